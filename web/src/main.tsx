// The page's root: the connection, the header (projector name, connection, alarms, access
// level), the navigation and the view the location names.

import { render } from "preact";
import { useContext, useEffect } from "preact/hooks";
import { Rpc, pageSocketUrl } from "./rpc";
import { Store, useStore } from "./store";
import { StoreContext } from "./context";
import { useRoute } from "./router";
import { MenuView } from "./menu";
import { StatusView } from "./status";
import { LightView, startLightSampling } from "./light";
import { AccountView } from "./account";
import { Icon } from "./icons";
import { accessLevelName } from "./model";
import "./style.css";

// The projector's name, shown in the header and the title when the projector has one.
const kNameCode = "NAM";

function Header() {
    const store = useContext(StoreContext);
    const name = store.controls.get(kNameCode)?.value;
    const title = typeof name === "string" && name !== "" ? name : "Projector";
    useEffect(() => { document.title = title; }, [title]);
    const worst = store.alarms.reduce((m, a) => Math.max(m, a.status), 0);
    const state = store.connection;
    return (
        <header class="header">
            <div class="brand">
                <span class="logo" aria-hidden="true"><Icon name="picture" /></span>
                <span class="brand-name" data-projector-name>{title}</span>
            </div>
            <div class="header-right">
                <span class={`connection ${state}`} role="status" aria-live="polite">
                    <span class="dot" aria-hidden="true" />
                    {state === "open" ? "Connected" : state === "connecting" ? "Connecting…" : "Disconnected"}
                </span>
                <a class={`chip alarm-chip${store.alarms.length ? ` sev-${Math.min(worst, 3)}` : ""}`} href="#/status"
                    aria-label={`${store.alarms.length} active alarms`}>
                    <Icon name="alert" /> <span data-alarm-count>{store.alarms.length}</span>
                </a>
                <a class="chip" href="#/account" data-access-chip aria-label={`Access level: ${accessLevelName(store.level)}`}>
                    <Icon name="user" /> {store.user ? `${store.user} · ` : ""}{accessLevelName(store.level)}
                </a>
            </div>
        </header>
    );
}

const views = [
    { route: "/menu/MAIN", match: "/menu/", label: "Controls", icon: "settings" },
    { route: "/status", match: "/status", label: "Status", icon: "status" },
    { route: "/light", match: "/light", label: "Light source", icon: "lamp" },
    { route: "/account", match: "/account", label: "Account", icon: "user" },
];

function Navigation({ route }: { route: string }) {
    return (
        <nav class="nav" aria-label="Views">
            {views.map((v) => (
                <a key={v.route} href={`#${v.route}`} class="nav-link"
                    aria-current={route.startsWith(v.match) ? "page" : undefined}>
                    <Icon name={v.icon} /> <span>{v.label}</span>
                </a>
            ))}
        </nav>
    );
}

function Notices() {
    const store = useContext(StoreContext);
    return (
        <div class="notices" aria-live="assertive">
            {store.notices.map((n) => (
                <div key={n.id} class={`notice ${n.kind}`} role={n.kind === "error" ? "alert" : "status"}>
                    <span>{n.text}</span>
                    <button type="button" class="link" aria-label="Dismiss" onClick={() => store.dismiss(n.id)}>×</button>
                </div>
            ))}
        </div>
    );
}

function App({ store }: { store: Store }) {
    useStore(store);
    const route = useRoute();
    useEffect(() => {
        if (store.connection === "open") {
            void store.loadControl(kNameCode);
            startLightSampling(store);
        }
    }, [store.epoch, store.connection === "open"]);
    const menu = /^\/menu\/([A-Za-z0-9]{4})$/.exec(route);
    const view = menu ? <MenuView id={menu[1].toUpperCase()} />
        : route === "/status" ? <StatusView />
        : route === "/light" ? <LightView />
        : route === "/account" ? <AccountView />
        : <MenuView id="MAIN" />;
    return (
        <StoreContext.Provider value={store}>
            <a class="skip" href="#main">Skip to content</a>
            <Header />
            <div class="layout">
                <Navigation route={route} />
                <main id="main" tabIndex={-1}>
                    {store.connection !== "open" && (
                        <p class="banner" role="status">The projector cannot be reached. Trying again…</p>
                    )}
                    {view}
                </main>
            </div>
            <Notices />
        </StoreContext.Provider>
    );
}

const rpc = new Rpc(pageSocketUrl());
const store = new Store(rpc);
render(<App store={store} />, document.getElementById("app")!);
rpc.start();
