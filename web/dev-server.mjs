// A development server for working on the page without the projector's own web server:
// serves dist/ and carries each WebSocket message on "/jsonrpc" to a running projector's
// JSON-RPC TCP port (NUL-framed) and back.
//
//   node dev-server.mjs [--port 8080 (0: a free port)] [--jsonrpc-host 127.0.0.1] [--jsonrpc-port 3003]
import { createServer } from "node:http";
import { connect } from "node:net";
import { readFile } from "node:fs/promises";
import { extname, join, normalize } from "node:path";
import { dirname } from "node:path";
import { fileURLToPath } from "node:url";
import { WebSocketServer } from "ws";

const args = process.argv.slice(2);
const option = (name, fallback) => {
    const at = args.indexOf(name);
    return at >= 0 && args[at + 1] ? args[at + 1] : fallback;
};
const port = Number(option("--port", "8080"));
const rpcHost = option("--jsonrpc-host", "127.0.0.1");
const rpcPort = Number(option("--jsonrpc-port", "3003"));
const root = join(dirname(fileURLToPath(import.meta.url)), "dist");
const types = { ".html": "text/html; charset=utf-8", ".js": "text/javascript", ".css": "text/css", ".svg": "image/svg+xml" };

const server = createServer(async (req, res) => {
    const path = normalize(decodeURIComponent(new URL(req.url, "http://x").pathname));
    const file = join(root, path === "/" ? "index.html" : path);
    if (!file.startsWith(root)) {
        res.writeHead(404).end();
        return;
    }
    try {
        const body = await readFile(file);
        res.writeHead(200, { "Content-Type": types[extname(file)] ?? "application/octet-stream" }).end(body);
    } catch {
        res.writeHead(404).end("not found");
    }
});

const sockets = new WebSocketServer({ server, path: "/jsonrpc", maxPayload: 1 << 20 });
sockets.on("connection", (ws) => {
    const tcp = connect(rpcPort, rpcHost);
    let pending = "";
    tcp.setEncoding("utf8");
    tcp.on("data", (chunk) => {
        pending += chunk;
        let end;
        while ((end = pending.indexOf("\0")) >= 0) {
            ws.send(pending.slice(0, end));
            pending = pending.slice(end + 1);
        }
    });
    tcp.on("close", () => ws.close());
    tcp.on("error", () => ws.close());
    ws.on("message", (data) => tcp.write(`${data}\0`));
    ws.on("close", () => tcp.destroy());
});

server.listen(port, "127.0.0.1", () => {
    console.log(`page on http://127.0.0.1:${server.address().port}/ (JSON-RPC ${rpcHost}:${rpcPort})`);
});
