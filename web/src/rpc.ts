// The page's one JSON-RPC 2.0 connection to the projector: a WebSocket on "/jsonrpc" of the
// page's own host, one JSON text per message. Requests are matched to answers by id;
// notifications (messages without id) go to the handlers registered for their method.
// A lost connection is opened again after a pause that grows to 5 s; every open (the first
// and each reconnect) is announced, so the page registers its listeners again, since a new
// connection starts with none and at access level 1.

export class RpcError extends Error {
    constructor(public code: number, message: string) {
        super(message);
    }
}

export type ConnectionState = "connecting" | "open" | "closed";
type NotifyHandler = (params: any) => void;

interface Pending {
    resolve: (value: any) => void;
    reject: (error: Error) => void;
    timer: ReturnType<typeof setTimeout>;
}

const kCallTimeoutMs = 15000;

export class Rpc {
    private socket: WebSocket | null = null;
    private nextId = 1;
    private pending = new Map<number, Pending>();
    private handlers = new Map<string, Set<NotifyHandler>>();
    private stateHandlers = new Set<(state: ConnectionState) => void>();
    private retryMs = 500;
    private stopped = false;
    state: ConnectionState = "closed";

    constructor(private url: string) {}

    start(): void {
        this.stopped = false;
        this.open();
    }

    // Closes the connection and opens a fresh one: the way to drop a login.
    restart(): void {
        this.socket?.close();
    }

    onState(handler: (state: ConnectionState) => void): () => void {
        this.stateHandlers.add(handler);
        return () => this.stateHandlers.delete(handler);
    }

    on(method: string, handler: NotifyHandler): () => void {
        let set = this.handlers.get(method);
        if (!set) {
            set = new Set();
            this.handlers.set(method, set);
        }
        set.add(handler);
        return () => set!.delete(handler);
    }

    // Resolves with "result", rejects with an RpcError for an error object or a lost
    // connection (code 111) or no answer in time (code 110).
    call<T = any>(method: string, params?: unknown): Promise<T> {
        const socket = this.socket;
        if (!socket || socket.readyState !== WebSocket.OPEN) {
            return Promise.reject(new RpcError(111, "Not connected to the projector"));
        }
        const id = this.nextId++;
        const request: Record<string, unknown> = { jsonrpc: "2.0", method, id };
        if (params !== undefined) {
            request.params = params;
        }
        return new Promise<T>((resolve, reject) => {
            const timer = setTimeout(() => {
                this.pending.delete(id);
                reject(new RpcError(110, "The projector did not answer in time"));
            }, kCallTimeoutMs);
            this.pending.set(id, { resolve, reject, timer });
            socket.send(JSON.stringify(request));
        });
    }

    private setState(state: ConnectionState): void {
        this.state = state;
        for (const handler of this.stateHandlers) {
            handler(state);
        }
    }

    private open(): void {
        this.setState("connecting");
        const socket = new WebSocket(this.url);
        this.socket = socket;
        socket.onopen = () => {
            this.retryMs = 500;
            this.setState("open");
        };
        socket.onmessage = (event) => this.receive(String(event.data));
        socket.onclose = () => {
            if (this.socket !== socket) {
                return;
            }
            this.socket = null;
            for (const [, call] of this.pending) {
                clearTimeout(call.timer);
                call.reject(new RpcError(111, "The connection to the projector was lost"));
            }
            this.pending.clear();
            this.setState("closed");
            if (!this.stopped) {
                setTimeout(() => this.open(), this.retryMs);
                this.retryMs = Math.min(this.retryMs * 2, 5000);
            }
        };
    }

    private receive(text: string): void {
        let message: any;
        try {
            message = JSON.parse(text);
        } catch {
            console.warn("projector sent a message that is not JSON");
            return;
        }
        for (const one of Array.isArray(message) ? message : [message]) {
            this.dispatch(one);
        }
    }

    private dispatch(message: any): void {
        if (message === null || typeof message !== "object") {
            return;
        }
        if (typeof message.method === "string" && message.id === undefined) {
            for (const handler of this.handlers.get(message.method) ?? []) {
                handler(message.params);
            }
            return;
        }
        const call = this.pending.get(message.id);
        if (!call) {
            return;
        }
        this.pending.delete(message.id);
        clearTimeout(call.timer);
        if (message.error) {
            call.reject(new RpcError(Number(message.error.code), String(message.error.message ?? "")));
        } else {
            call.resolve(message.result);
        }
    }
}

export function pageSocketUrl(): string {
    const scheme = location.protocol === "https:" ? "wss:" : "ws:";
    return `${scheme}//${location.host}/jsonrpc`;
}
