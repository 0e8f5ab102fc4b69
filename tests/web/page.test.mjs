// The projector's web page in a real browser: vprojector serves the built page (web/dist)
// on its HTTP and HTTPS ports, Debian's Chromium opens it headless through playwright-core,
// and each change made on the page is checked on the projector over the JSON-RPC TCP port
// (and the other way round over ASCII and the simulator). Screenshots of the main views go
// to the output folder.
//
//   node page.test.mjs --vprojector PATH --source DIR --out DIR [--sanitized]
//
// --sanitized: vprojector runs under a sanitizer, several times slower; the half-second
// bound on a change made elsewhere is then checked as ten times that, since it would
// measure the sanitizer.
//
// Exits 77 (skipped) with the reason when Chromium, the page's npm packages or the built
// page are missing.

import { after, before, test } from "node:test";
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, rmSync } from "node:fs";
import { connect } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { createInterface } from "node:readline";

const kSkip = 77;
const kChromium = "/usr/bin/chromium";
const kChromiumArgs = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync"];

function option(name) {
    const at = process.argv.indexOf(name);
    if (at < 0 || !process.argv[at + 1]) {
        console.error(`usage: node page.test.mjs --vprojector PATH --source DIR --out DIR (missing ${name})`);
        process.exit(2);
    }
    return process.argv[at + 1];
}
const vprojector = option("--vprojector");
const source = option("--source");
const out = option("--out");
const kLiveBoundMs = process.argv.includes("--sanitized") ? 5000 : 500;

function skip(reason) {
    console.log(`SKIP: ${reason}`);
    process.exit(kSkip);
}
if (!existsSync(kChromium)) {
    skip(`no browser at ${kChromium} (scripts/install-deps.sh installs Debian's chromium)`);
}
if (!existsSync(join(source, "web/node_modules/playwright-core"))) {
    skip("web/node_modules is missing (scripts/build-web.sh installs the page's packages)");
}
if (!existsSync(join(source, "web/dist/index.html"))) {
    skip("the page is not built (scripts/build-web.sh builds web/dist)");
}
const { chromium } = await import(join(source, "web/node_modules/playwright-core/index.mjs"));

// A JSON-RPC client on the projector's TCP port: NUL-framed JSON texts.
class RpcClient {
    constructor(port) {
        this.port = port;
        this.nextId = 1;
        this.pending = new Map();
        this.notifications = [];
        this.buffer = "";
    }
    open() {
        return new Promise((resolve, reject) => {
            this.socket = connect(this.port, "127.0.0.1", resolve);
            this.socket.on("error", reject);
            this.socket.setEncoding("utf8");
            this.socket.on("data", (chunk) => {
                this.buffer += chunk;
                let end;
                while ((end = this.buffer.indexOf("\0")) >= 0) {
                    const message = JSON.parse(this.buffer.slice(0, end));
                    this.buffer = this.buffer.slice(end + 1);
                    if (message.id !== undefined && this.pending.has(message.id)) {
                        this.pending.get(message.id)(message);
                        this.pending.delete(message.id);
                    } else {
                        this.notifications.push(message);
                    }
                }
            });
        });
    }
    async call(method, params) {
        const id = this.nextId++;
        const answer = new Promise((resolve) => this.pending.set(id, resolve));
        this.socket.write(`${JSON.stringify({ jsonrpc: "2.0", id, method, params })}\0`);
        const message = await answer;
        if (message.error) {
            throw new Error(`${method}: ${message.error.code} ${message.error.message}`);
        }
        return message.result;
    }
    async value(code) {
        const result = await this.call("control:get", { code });
        return result !== null && typeof result === "object" && "value" in result ? result.value : result;
    }
    close() {
        this.socket?.destroy();
    }
}

// Sends ASCII commands on the projector's ASCII port followed by a query, whose answer
// (the commands before it are done by then) is what this resolves with.
function ascii(port, commands, query) {
    return new Promise((resolve, reject) => {
        const socket = connect(port, "127.0.0.1", () => socket.write(`${commands}${query}`));
        let text = "";
        const timer = setTimeout(() => { socket.destroy(); reject(new Error(`no answer to ${query}`)); }, 5000);
        socket.setEncoding("utf8");
        socket.on("data", (chunk) => {
            text += chunk;
            if (text.includes(")")) {
                clearTimeout(timer);
                socket.destroy();
                resolve(text.trim());
            }
        });
        socket.on("error", reject);
    });
}

async function eventually(what, check, timeoutMs = 3000) {
    const end = Date.now() + timeoutMs;
    let last;
    while (Date.now() < end) {
        last = await check();
        if (last) {
            return last;
        }
        await new Promise((r) => setTimeout(r, 50));
    }
    assert.fail(`${what}: not within ${timeoutMs} ms (last: ${JSON.stringify(last)})`);
}

let projector;
let ports;
let root;
let profile;
let context;
let page;
let rpc;
const consoleErrors = [];

before(async () => {
    root = mkdtempSync(join(tmpdir(), "web-page-test-"));
    profile = mkdtempSync(join(tmpdir(), "web-page-chromium-"));
    mkdirSync(out, { recursive: true });
    projector = spawn(vprojector, ["--root", root, "--ascii-port", "0", "--jsonrpc-port", "0", "--unicast-port", "0",
        "--pjlink-port", "0", "--http-port", "0", "--https-port", "0", "--log-level", "4"],
    { stdio: ["ignore", "pipe", "inherit"] });
    const line = await new Promise((resolve, reject) => {
        const timer = setTimeout(() => reject(new Error("vprojector printed no ready line in 15 s")), 15000);
        createInterface({ input: projector.stdout }).once("line", (l) => { clearTimeout(timer); resolve(l); });
        projector.once("exit", (code) => reject(new Error(`vprojector ended (${code}) before it was ready`)));
    });
    ports = Object.fromEntries([...line.matchAll(/(\w+)=(\d+)/g)].map((m) => [m[1], Number(m[2])]));
    assert.ok(ports.http > 0 && ports.jsonrpc > 0 && ports.ascii > 0, `ready line: ${line}`);
    rpc = new RpcClient(ports.jsonrpc);
    await rpc.open();

    context = await chromium.launchPersistentContext(profile, {
        executablePath: kChromium, headless: true, args: kChromiumArgs, ignoreHTTPSErrors: true,
        viewport: { width: 1280, height: 860 },
    });
    page = context.pages()[0] ?? await context.newPage();
    page.on("console", (m) => { if (m.type() === "error") { consoleErrors.push(m.text()); } });
    page.on("pageerror", (e) => consoleErrors.push(e.message));
});

after(async () => {
    rpc?.close();
    await context?.close();
    if (projector && projector.exitCode === null) {
        projector.kill("SIGTERM");
        await new Promise((r) => projector.once("exit", r));
    }
    rmSync(root, { recursive: true, force: true });
    rmSync(profile, { recursive: true, force: true });
});

const base = () => `http://127.0.0.1:${ports.http}/`;
const control = (code) => page.locator(`[data-code="${code}"]`);
const shot = (name) => page.screenshot({ path: join(out, `${name}.png`), fullPage: true });

// The menu tree as the projector serves it: each control's code with its menu and entry.
async function menuTree() {
    const found = new Map();
    const queue = ["MAIN"];
    const seen = new Set();
    while (queue.length > 0) {
        const id = queue.shift();
        if (seen.has(id)) {
            continue;
        }
        seen.add(id);
        const { items } = await rpc.call("menu:get", { code: `MMM+${id}` });
        for (const item of items) {
            const sub = /^MMM\+(\w{4})$/.exec(item.code ?? "");
            if (sub) {
                queue.push(sub[1]);
            } else if (item.code && !found.has(item.code)) {
                found.set(item.code, { ...item, menu: id });
            }
        }
    }
    return found;
}
let tree;
function menuOf(code) {
    assert.ok(tree.has(code), `${code} is in the menu tree`);
    return tree.get(code).menu;
}

async function connected() {
    await page.locator(".connection.open").waitFor({ state: "attached" });
}

async function openMenu(id) {
    await page.goto(`${base()}#/menu/${id}`);
    await connected();
    await page.locator(".entries").first().waitFor();
}

test("the page loads from the projector, connects and shows its menus", async () => {
    await openMenu("MAIN");
    await page.locator(".menu-link").first().waitFor();
    assert.ok(await page.locator(".menu-link").count() >= 3, "the main menu lists its sub-menus");
    await shot("home");
});

test("every kind of control is changed on the page and seen over JSON-RPC", async () => {
    tree = await menuTree();
    // An integer, by keyboard: the slider takes the focus and an arrow key moves it.
    await openMenu(menuOf("BRI"));
    const before = await rpc.value("BRI");
    await control("BRI").locator('input[type="range"]').focus();
    await page.keyboard.press("ArrowRight");
    await eventually("BRI raised by one", async () => (await rpc.value("BRI")) === before + 1);
    // An integer with decimals through its number field: 2.4 is held as 24.
    await control("GAM").getByLabel(/value$/).fill("2.4");
    await page.keyboard.press("Enter");
    await eventually("GAM set to 2.4", async () => (await rpc.value("GAM")) === 24);
    await shot("picture");

    const toggle = [...tree.values()].find((e) => e.type >= 100 && e.type < 200 && e.enabled && e.access <= 2);
    assert.ok(toggle, "the menus hold a boolean control");
    await openMenu(toggle.menu);
    await control(toggle.code).getByRole("switch").click();
    await eventually(`${toggle.code} switched`, async () => (await rpc.value(toggle.code)) === !toggle.value);

    await openMenu(menuOf("INP"));
    await control("INP").locator("select").selectOption("2");
    await eventually("INP chose entry 2", async () => (await rpc.value("INP")) === 2);

    await openMenu(menuOf("NAM"));
    await control("NAM").locator("input").fill("Booth 7");
    await page.keyboard.press("Enter");
    await eventually("NAM renamed", async () => (await rpc.value("NAM")) === "Booth 7");
    await eventually("the header shows the new name",
        async () => (await page.locator("[data-projector-name]").textContent()) === "Booth 7");
});

test("a change made over ASCII shows on the page within half a second", async () => {
    await openMenu(menuOf("BRI"));
    assert.match(await ascii(ports.ascii, "(BRI 70)", "(BRI?)"), /70/);
    const start = Date.now();
    await eventually("the slider at 70",
        async () => (await control("BRI").locator('input[type="range"]').inputValue()) === "70", kLiveBoundMs);
    assert.ok(Date.now() - start <= kLiveBoundMs);
});

test("a refused change snaps back and says why", async () => {
    await openMenu(menuOf("BRI"));
    const field = control("BRI").getByLabel(/value$/);
    await field.fill("13");
    await page.keyboard.press("Enter");
    await control("BRI").locator(".refusal").waitFor();
    assert.match(await control("BRI").locator(".refusal").textContent(), /could not apply/);
    assert.equal(await field.inputValue(), "70");
    assert.equal(await rpc.value("BRI"), 70);
    await shot("refused");
});

test("an alarm raised through the simulator appears and clears", async () => {
    await page.goto(`${base()}#/status`);
    await connected();
    await page.locator("[data-alarms]").first().waitFor();
    await rpc.call("sim:setStatus", { group: "LAMP", idx: 1, severity: 2, value: "Overheated" });
    const alarm = page.locator('[data-alarm="LAMP.1"]');
    await alarm.waitFor({ timeout: 2000 });
    assert.match(await alarm.getAttribute("class"), /sev-2/);
    assert.match(await alarm.textContent(), /Overheated/);
    assert.equal(await page.locator("[data-alarm-count]").textContent(), "1");
    await shot("status");
    await rpc.call("sim:setStatus", { group: "LAMP", idx: 1, severity: 0, value: "Off" });
    await alarm.waitFor({ state: "detached", timeout: 2000 });
});

test("logging in raises the access level and unlocks the controls above it", async () => {
    await openMenu(menuOf("RST"));
    const reset = control("RST");
    assert.equal(await reset.locator(".lock").count(), 1, "the reset needs service access");
    assert.ok(await reset.locator("button.button").isDisabled());

    await page.goto(`${base()}#/account`);
    await page.locator("#login-user").fill("service");
    await page.locator("#login-password").fill("wrong");
    await page.locator("#login-password").press("Enter");
    await page.getByText("Wrong user name or password").waitFor();
    await page.locator("#login-password").fill("service");
    await page.locator("#login-password").press("Enter");
    await page.locator('[data-access-level="3"]').waitFor();
    assert.match(await page.locator("[data-access-chip]").textContent(), /Service/);
    await shot("account");

    const listener = new RpcClient(ports.jsonrpc);
    await listener.open();
    await listener.call("control:addListener", { code: "RST", sendNow: false });
    // A change of the location's hash keeps the connection, and with it the login.
    await page.evaluate((id) => { location.hash = `#/menu/${id}`; }, menuOf("RST"));
    await reset.waitFor();
    assert.equal(await control("RST").locator(".lock").count(), 0);
    await control("RST").locator("button.button").click();
    const confirm = page.locator("dialog[open]");
    if (await confirm.count()) {
        await confirm.locator(".button.danger").click();
    }
    await eventually("the reset announced", async () => listener.notifications.some((n) => n.params?.code === "RST"));
    listener.close();
});

test("the light source view charts the laser and lists the lamps", async () => {
    await page.goto(`${base()}#/light`);
    await connected();
    await page.locator(".chart canvas").waitFor();
    await eventually("the laser temperature shown",
        async () => /\d/.test(await page.locator(".tile-value").first().textContent()), 5000);
    await page.locator("table.items tbody tr").first().waitFor();
    await page.waitForTimeout(2500);
    await shot("light");
});

test("the page fits a phone's width", async () => {
    await page.setViewportSize({ width: 390, height: 844 });
    await openMenu(menuOf("BRI"));
    const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
    assert.ok(overflow <= 0, `the page is ${overflow} px wider than the screen`);
    await shot("phone");
    await page.setViewportSize({ width: 1280, height: 860 });
});

test("HTTPS serves the page with the projector's own certificate", async () => {
    assert.ok(ports.https > 0, "the ready line names the HTTPS port");
    await page.goto(`https://127.0.0.1:${ports.https}/#/menu/${menuOf("BRI")}`);
    await connected();
    assert.equal(await control("BRI").locator('input[type="range"]').inputValue(), "70");
});

test("no error was logged in the browser's console", () => {
    assert.deepEqual(consoleErrors, []);
});
