// Alarms and status groups. The alarm list and the groups' summaries are listened to from
// the moment the page connects; a group's items are listened to once it is opened.

import { useContext, useEffect, useState } from "preact/hooks";
import { StoreContext } from "./context";
import { StatusItem, severityName } from "./model";
import { Icon } from "./icons";

export function itemName(item: StatusItem): string {
    return item.desc && item.desc.trim() !== "" ? item.desc : `Item ${item.idx}`;
}

export function Severity({ status }: { status: number }) {
    return <span class={`severity sev-${Math.max(0, Math.min(status, 3))}`}>{severityName(status)}</span>;
}

export function AlarmList() {
    const store = useContext(StoreContext);
    const groupName = (id: string) => store.groups.find((g) => g.group === id)?.name ?? id;
    if (store.alarms.length === 0) {
        return <p class="all-clear" data-alarms="0"><Icon name="info" /> No active alarms.</p>;
    }
    return (
        <ul class="alarms" data-alarms={store.alarms.length} aria-live="polite">
            {[...store.alarms].sort((a, b) => b.status - a.status).map((alarm) => (
                <li key={`${alarm.group}.${alarm.idx}`} class={`alarm sev-${Math.min(alarm.status, 3)}`}
                    data-alarm={`${alarm.group}.${alarm.idx}`}>
                    <Severity status={alarm.status} />
                    <span class="alarm-group">{groupName(alarm.group)}</span>
                    <span class="alarm-text">{itemName(alarm)}{alarm.value ? `: ${alarm.value}` : ""}</span>
                </li>
            ))}
        </ul>
    );
}

function GroupItems({ group }: { group: string }) {
    const store = useContext(StoreContext);
    useEffect(() => { void store.listenGroups([group]); }, [group, store.epoch]);
    const items = store.items.get(group);
    if (!items) {
        return <p class="muted">Loading…</p>;
    }
    return (
        <table class="items">
            <thead><tr><th scope="col">Item</th><th scope="col">Value</th><th scope="col">State</th></tr></thead>
            <tbody>
                {items.map((item) => (
                    <tr key={item.idx} class={`sev-row-${Math.min(item.status, 3)}`}>
                        <th scope="row">{itemName(item)}</th>
                        <td>{item.value || "—"}</td>
                        <td><Severity status={item.status} /></td>
                    </tr>
                ))}
            </tbody>
        </table>
    );
}

export function StatusView() {
    const store = useContext(StoreContext);
    const [open, setOpen] = useState<Set<string>>(new Set());
    const toggle = (group: string) => {
        const next = new Set(open);
        if (!next.delete(group)) {
            next.add(group);
        }
        setOpen(next);
    };
    return (
        <section class="view" aria-labelledby="status-title">
            <h2 id="status-title">Status</h2>
            <div class="card">
                <h3 class="card-title"><Icon name="alert" /> Active alarms</h3>
                <AlarmList />
            </div>
            <div class="card">
                <h3 class="card-title"><Icon name="status" /> Status groups</h3>
                <ul class="groups">
                    {store.groups.map((g) => (
                        <li key={g.group} data-group={g.group}>
                            <button type="button" class="group-head" aria-expanded={open.has(g.group)}
                                onClick={() => toggle(g.group)}>
                                <Icon name={g.icon ?? "status"} />
                                <span class="group-name">{g.name || g.group}</span>
                                <Severity status={g.status} />
                                <Icon name="chevron" />
                            </button>
                            {open.has(g.group) && <GroupItems group={g.group} />}
                        </li>
                    ))}
                </ul>
            </div>
        </section>
    );
}
