// The page's state: what it knows of the projector's controls, status groups, alarms and
// session, kept current by the listeners it registers on every (re)connection. Views
// subscribe and render from it; every change to the projector goes through here.

import { useEffect, useState } from "preact/hooks";
import { Rpc, RpcError, ConnectionState } from "./rpc";
import { Control, StatusGroup, StatusItem, alarmKey, refusalText } from "./model";

export interface Notice {
    id: number;
    kind: "error" | "info";
    text: string;
}

function valueOf(result: unknown): unknown {
    if (result !== null && typeof result === "object" && !Array.isArray(result) && "value" in (result as object)) {
        return (result as { value: unknown }).value;
    }
    return result;
}

export class Store {
    connection: ConnectionState = "closed";
    // Bumped on every new connection: views that loaded data load it again.
    epoch = 0;
    level = 1;
    user = "";
    controls = new Map<string, Control>();
    // The latest refusal per control, shown beside it until its next successful change.
    refusals = new Map<string, string>();
    groups: StatusGroup[] = [];
    items = new Map<string, StatusItem[]>();
    alarms: StatusItem[] = [];
    cooldownSec = 0;
    notices: Notice[] = [];
    private nextNotice = 1;
    private subscribers = new Set<() => void>();
    private listenedGroups = new Set<string>();
    private listenedCodes = new Set<string>();

    constructor(readonly rpc: Rpc) {
        rpc.onState((state) => {
            this.connection = state;
            if (state === "open") {
                this.level = 1;
                this.user = "";
                this.listenedGroups.clear();
                this.listenedCodes.clear();
                this.epoch++;
                void this.registerListeners();
            }
            this.changed();
        });
        rpc.on("control:notify", (params) => {
            for (const one of Array.isArray(params) ? params : [params]) {
                if (one && typeof one.code === "string") {
                    this.patchControl(one.code, { value: one.value });
                }
            }
        });
        rpc.on("status:notifyGroupSummary", (groups) => {
            if (Array.isArray(groups)) {
                this.groups = groups;
                this.changed();
            }
        });
        rpc.on("status:notifyAlarms", (alarms) => {
            if (Array.isArray(alarms)) {
                this.alarms = alarms;
                this.changed();
            }
        });
        rpc.on("status:notifyItems", (items) => this.mergeItems(items, true));
        rpc.on("status:notify", (items) => this.mergeItems(items, false));
        rpc.on("system:notifyCooldownTime", (params) => {
            if (params && typeof params.sec === "number") {
                this.cooldownSec = params.sec;
                this.changed();
            }
        });
    }

    subscribe(fn: () => void): () => void {
        this.subscribers.add(fn);
        return () => this.subscribers.delete(fn);
    }

    changed(): void {
        for (const fn of this.subscribers) {
            fn();
        }
    }

    notify(kind: Notice["kind"], text: string): void {
        const notice = { id: this.nextNotice++, kind, text };
        this.notices = [...this.notices.slice(-3), notice];
        this.changed();
        setTimeout(() => this.dismiss(notice.id), 6000);
    }

    dismiss(id: number): void {
        this.notices = this.notices.filter((n) => n.id !== id);
        this.changed();
    }

    patchControl(code: string, patch: Partial<Control>): void {
        const old = this.controls.get(code);
        this.controls.set(code, { ...(old ?? { code, type: 0 }), ...patch, code });
        this.changed();
    }

    mergeControls(items: Control[]): void {
        for (const item of items) {
            if (typeof item.code === "string") {
                this.controls.set(item.code, { ...this.controls.get(item.code), ...item });
            }
        }
        this.changed();
    }

    // Loads one control (attributes, properties, value) and listens to its changes.
    async loadControl(code: string): Promise<Control | undefined> {
        try {
            const [attributes, properties] = await Promise.all([
                this.rpc.call("control:getAttributes", { code }),
                this.rpc.call("control:getProperties", { code }),
            ]);
            this.patchControl(code, { ...attributes, ...properties });
            await this.listenControls([code]);
            return this.controls.get(code);
        } catch {
            return undefined;
        }
    }

    async listenControls(codes: string[]): Promise<void> {
        const fresh = codes.filter((c) => !this.listenedCodes.has(c));
        if (fresh.length === 0) {
            return;
        }
        fresh.forEach((c) => this.listenedCodes.add(c));
        await Promise.all(fresh.map((code) => this.rpc.call("control:addListener", { code, sendNow: false }).catch(() => {
            this.listenedCodes.delete(code);
        })));
    }

    async listenGroups(groups: string[]): Promise<void> {
        const fresh = groups.filter((g) => !this.listenedGroups.has(g));
        if (fresh.length === 0) {
            return;
        }
        fresh.forEach((g) => this.listenedGroups.add(g));
        await this.rpc.call("status:addListener", { group: fresh, sendNow: true }).catch(() => {
            fresh.forEach((g) => this.listenedGroups.delete(g));
        });
    }

    // Sends a change. A refused one snaps the control back to what the projector holds
    // and is answered with words; the promise never rejects.
    async set(code: string, value: unknown): Promise<boolean> {
        try {
            const result = await this.rpc.call("control:set", { code, value });
            this.refusals.delete(code);
            this.patchControl(code, { value: valueOf(result) });
            return true;
        } catch (e) {
            const error = e instanceof RpcError ? e : new RpcError(0, String(e));
            const text = refusalText(error.code, error.message);
            this.refusals.set(code, text);
            try {
                const now = await this.rpc.call("control:get", { code });
                this.patchControl(code, { value: valueOf(now) });
            } catch {
                this.changed();
            }
            return false;
        }
    }

    clearRefusal(code: string): void {
        if (this.refusals.delete(code)) {
            this.changed();
        }
    }

    async login(user: string, password: string): Promise<string | undefined> {
        try {
            const result = await this.rpc.call("session:connect", { user, password });
            this.level = Number(result?.access ?? 1);
            this.user = user;
            this.refusals.clear();
            this.changed();
            return undefined;
        } catch (e) {
            this.level = 1;
            this.user = "";
            this.changed();
            return e instanceof RpcError ? refusalText(e.code, e.message) : String(e);
        }
    }

    // A new connection starts at level 1 with nothing registered; listeners come back.
    logout(): void {
        this.rpc.restart();
    }

    async changePassword(user: string, password: string, newPassword: string): Promise<string | undefined> {
        try {
            await this.rpc.call("session:changePassword", { user, password, newPassword });
            return undefined;
        } catch (e) {
            return e instanceof RpcError ? refusalText(e.code, e.message) : String(e);
        }
    }

    private mergeItems(items: unknown, whole: boolean): void {
        if (!Array.isArray(items) || items.length === 0) {
            return;
        }
        const byGroup = new Map<string, StatusItem[]>();
        for (const item of items as StatusItem[]) {
            if (!item || typeof item.group !== "string") {
                continue;
            }
            const list = byGroup.get(item.group) ?? (whole ? [] : [...(this.items.get(item.group) ?? [])]);
            const at = list.findIndex((i) => i.idx === item.idx);
            if (at >= 0) {
                list[at] = item;
            } else {
                list.push(item);
            }
            byGroup.set(item.group, list);
        }
        for (const [group, list] of byGroup) {
            this.items.set(group, list);
        }
        this.changed();
    }

    private async registerListeners(): Promise<void> {
        const rpc = this.rpc;
        const calls: Promise<unknown>[] = [
            rpc.call("status:getGroups").then((groups) => { this.groups = groups; this.changed(); }),
            rpc.call("status:addGroupListener", {}),
            rpc.call("status:addAlarmListener", { sendNow: true }),
            rpc.call("system:getCooldownTime").then((r) => { this.cooldownSec = Number(r?.sec ?? 0); this.changed(); }),
            rpc.call("system:addListener", { notifyMethod: "system:notifyCooldownTime", sendNow: false }),
        ];
        await Promise.all(calls.map((c) => c.catch(() => undefined)));
    }

    isAlarm(item: StatusItem): boolean {
        return this.alarms.some((a) => alarmKey(a) === alarmKey(item));
    }
}

// Re-renders the calling component whenever the store changes.
export function useStore(store: Store): Store {
    const [, setTick] = useState(0);
    useEffect(() => store.subscribe(() => setTick((t) => t + 1)), [store]);
    return store;
}
