// A menu of the projector's menu tree: its controls, headings and sub-menus, as "menu:get"
// lists them, listened to while shown. The main menu also shows the favourites, and every
// control can be added to or removed from them.

import { useContext, useEffect, useState } from "preact/hooks";
import { StoreContext } from "./context";
import { ControlView } from "./controls";
import { Control, displayName, isControlEntry, kindOf, menuIdOf } from "./model";
import { Icon } from "./icons";
import { RpcError } from "./rpc";
import { Store } from "./store";

type Entry = Control | { type: number; label: string; code?: undefined };

// Titles of menus seen as entries of their parents, for the heading and the trail.
const menuTitles = new Map<string, string>([["MAIN", "Home"], ["FAVR", "Favourites"]]);

async function loadMenu(store: Store, id: string): Promise<Entry[]> {
    const result = await store.rpc.call("menu:get", { code: `MMM+${id}`, addListener: true });
    const items: Entry[] = Array.isArray(result?.items) ? result.items : [];
    for (const item of items) {
        const sub = item.code ? menuIdOf(item.code) : undefined;
        if (sub && item.label) {
            menuTitles.set(sub, item.label);
        }
    }
    store.mergeControls(items.filter((i) => isControlEntry(i as Control)) as Control[]);
    return items;
}

function FavouriteToggle({ code, favourites, onChange }: { code: string; favourites: string[]; onChange: () => void }) {
    const store = useContext(StoreContext);
    const on = favourites.includes(code);
    const name = displayName(store.controls.get(code) ?? { code });
    const toggle = async () => {
        try {
            await store.rpc.call(on ? "menu:deleteFavorite" : "menu:addFavorite", { code });
            onChange();
        } catch (e) {
            const reason = e instanceof RpcError && e.code === 117 ? "Log in to change the favourites." : String((e as Error).message);
            store.notify("error", reason);
        }
    };
    return (
        <button type="button" class={`star${on ? " on" : ""}`} aria-pressed={on}
            aria-label={on ? `Remove ${name} from favourites` : `Add ${name} to favourites`}
            title={on ? "Remove from favourites" : "Add to favourites"} onClick={() => void toggle()}>
            <Icon name="star" />
        </button>
    );
}

function EntryList({ entries, favourites, onFavourites }: { entries: Entry[]; favourites: string[]; onFavourites: () => void }) {
    const store = useContext(StoreContext);
    return (
        <div class="entries">
            {entries.map((entry, i) => {
                if (!isControlEntry(entry as Control)) {
                    return <h3 class="section" key={`h${i}`}>{entry.label}</h3>;
                }
                const code = entry.code as string;
                const control = store.controls.get(code) ?? (entry as Control);
                const star = kindOf(control.type) === "menu" ? undefined
                    : <FavouriteToggle code={code} favourites={favourites} onChange={onFavourites} />;
                return <ControlView key={code} control={control} favourite={star} />;
            })}
        </div>
    );
}

export function MenuView({ id }: { id: string }) {
    const store = useContext(StoreContext);
    const [entries, setEntries] = useState<Entry[] | null>(null);
    const [favourites, setFavourites] = useState<Entry[]>([]);
    const [error, setError] = useState("");
    const [trail, setTrail] = useState<string[]>(["MAIN"]);

    const loadFavourites = async () => {
        try {
            setFavourites(await loadMenu(store, "FAVR"));
        } catch {
            setFavourites([]);
        }
    };

    useEffect(() => {
        if (store.connection !== "open") {
            return;
        }
        let live = true;
        setEntries(null);
        setError("");
        loadMenu(store, id)
            .then((items) => { if (live) { setEntries(items); } })
            .catch((e: Error) => { if (live) { setError(e.message); } });
        void loadFavourites();
        setTrail((old) => {
            const at = old.indexOf(id);
            return at >= 0 ? old.slice(0, at + 1) : id === "MAIN" ? ["MAIN"] : [...old, id];
        });
        return () => { live = false; };
    }, [id, store.epoch, store.connection === "open"]);

    const favouriteCodes = favourites.filter((f) => f.code).map((f) => f.code as string);
    const title = menuTitles.get(id) ?? id;
    return (
        <section class="view" aria-labelledby="menu-title">
            <nav class="trail" aria-label="Menu path">
                {trail.map((m, i) => (
                    <span key={m}>
                        {i > 0 && <Icon name="chevron" />}
                        {i < trail.length - 1 ? <a href={`#/menu/${m}`}>{menuTitles.get(m) ?? m}</a> : <span aria-current="page">{menuTitles.get(m) ?? m}</span>}
                    </span>
                ))}
            </nav>
            <h2 id="menu-title">{title}</h2>
            {error && <p class="refusal" role="alert">{error}</p>}
            {!entries && !error && <p class="muted">Loading…</p>}
            {id === "MAIN" && favourites.length > 0 && (
                <div class="card favourites">
                    <h3 class="card-title"><Icon name="star" /> Favourites</h3>
                    <EntryList entries={favourites} favourites={favouriteCodes} onFavourites={loadFavourites} />
                </div>
            )}
            {entries && (
                <div class="card">
                    <EntryList entries={entries} favourites={favouriteCodes} onFavourites={loadFavourites} />
                    {entries.length === 0 && <p class="muted">This menu is empty.</p>}
                </div>
            )}
        </section>
    );
}
