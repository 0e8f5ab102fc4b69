// What the page knows about the projector's data: the kinds of control by display type,
// integer values with decimals, the words for refusals, access levels and alarm
// severities. Everything here is pure, so views only render what these functions decide.

export interface ListEntry {
    idx: number;
    text: string;
    icon?: string;
    hint?: string;
    selectable?: boolean;
}

// One control as "menu:get" lists it (attributes, properties and value together).
export interface Control {
    code: string;
    type: number;
    label?: string;
    access?: number;
    enabled?: boolean;
    readOnly?: boolean;
    value?: unknown;
    min?: number;
    max?: number;
    softmin?: number;
    softmax?: number;
    decimals?: number;
    list?: ListEntry[];
    confirm?: string;
    icon?: string;
}

export type Kind = "boolean" | "integer" | "text" | "list" | "action" | "menu" | "custom" | "heading";

export function kindOf(type: number): Kind {
    if (type === 302 || !Number.isFinite(type)) {
        return "heading";
    }
    switch (Math.floor(type / 100)) {
        case 1: return "boolean";
        case 2: return "integer";
        case 3: return "text";
        case 4: return "list";
        case 5: return "action";
        case 6: return "menu";
        default: return "custom";
    }
}

// A menu item that names no control comes as a plain text entry {"type": 302, "label"}.
export function isControlEntry(item: { type: number; code?: string }): boolean {
    return typeof item.code === "string" && kindOf(item.type) !== "heading";
}

// "MMM+PICT" -> "PICT"; undefined for anything that is not a menu code.
export function menuIdOf(code: string): string | undefined {
    const match = /^MMM\+([A-Z0-9]{4})$/i.exec(code);
    return match ? match[1].toUpperCase() : undefined;
}

export function displayName(control: { label?: string; code?: string }): string {
    return control.label && control.label.trim() !== "" ? control.label : control.code ?? "";
}

// Integer controls carry their value in units of 10^-decimals.
export function scale(decimals: number | undefined): number {
    return Math.pow(10, Math.max(0, Math.min(decimals ?? 0, 6)));
}

export function formatInteger(raw: number, decimals: number | undefined): string {
    const d = Math.max(0, Math.min(decimals ?? 0, 6));
    return (raw / scale(d)).toFixed(d);
}

// The raw value for what a person typed, or undefined when it is not a number.
export function parseInteger(text: string, decimals: number | undefined): number | undefined {
    const trimmed = text.trim().replace(",", ".");
    if (!/^[-+]?\d*(\.\d*)?$/.test(trimmed) || trimmed === "" || trimmed === "." || /^[-+]\.?$/.test(trimmed)) {
        return undefined;
    }
    return Math.round(Number(trimmed) * scale(decimals));
}

// The range a value can take: integer controls with soft limits are held inside them.
export function effectiveRange(control: Control): { min: number; max: number } {
    let min = control.min ?? 0;
    let max = control.max ?? 100;
    if (typeof control.softmin === "number" && control.softmin > min) {
        min = control.softmin;
    }
    if (typeof control.softmax === "number" && control.softmax !== 0 && control.softmax < max) {
        max = control.softmax;
    }
    return { min, max: Math.max(min, max) };
}

// A step that moves the slider by about one percent of the range in whole units.
export function sliderStep(control: Control): number {
    const { min, max } = effectiveRange(control);
    const span = max - min;
    return span > 1000 ? Math.pow(10, Math.floor(Math.log10(span / 100))) : 1;
}

// A client that never logged in changes ordinary settings as an operator does; access
// groups above the connection's level are locked.
export function changeLevel(sessionLevel: number): number {
    return Math.max(sessionLevel, 2);
}

export function isLocked(control: Control, sessionLevel: number): boolean {
    return (control.access ?? 2) > changeLevel(sessionLevel);
}

export const accessLevelNames: Record<number, string> = {
    1: "Guest",
    2: "Operator",
    3: "Service",
    4: "Advanced service",
    5: "Factory",
    6: "Protected",
};

export function accessLevelName(level: number): string {
    return accessLevelNames[level] ?? `Level ${level}`;
}

// Words for the refusals a change can meet; other errors keep the projector's own text.
export function refusalText(code: number, message: string): string {
    switch (code) {
        case 112: return "The projector could not apply this value, so the previous setting was kept.";
        case 104: return "This value is outside the allowed range or not in the list.";
        case 105: return "This control or choice is not available right now.";
        case 117: return "Your access level is too low for this change. Log in with a higher level.";
        case 116: return "Wrong user name or password.";
        case 118: return "Too many failed attempts. Wait a moment and try again.";
        case 3: return message && message !== "Invalid Parameter" ? message : "The projector did not accept this input.";
        case 110: case 111: return message;
        default: return message || `The projector refused the change (error ${code}).`;
    }
}

export const severityNames = ["OK", "Warning", "Error", "Critical"];

export function severityName(status: number): string {
    return severityNames[status] ?? `Severity ${status}`;
}

// Status items as the status module sends them.
export interface StatusItem {
    idx: number;
    group: string;
    status: number;
    value: string;
    desc: string;
}

export interface StatusGroup {
    group: string;
    name: string;
    status: number;
    icon?: string;
}

export function alarmKey(item: StatusItem): string {
    return `${item.group}.${item.idx}`;
}

// A status value as a number, when it is one ("25.0" -> 25).
export function numericValue(value: string | undefined): number | undefined {
    if (value === undefined || value.trim() === "") {
        return undefined;
    }
    const n = Number(value);
    return Number.isFinite(n) ? n : undefined;
}

export function formatHours(seconds: number): string {
    return `${Math.round(seconds)} h`;
}

export function formatDate(secondsSince1970: number): string {
    if (!secondsSince1970) {
        return "—";
    }
    return new Date(secondsSince1970 * 1000).toISOString().slice(0, 10);
}

// Keeps the last `keepMs` of samples; the chart reads the columns as they are.
export class TimeSeries {
    readonly times: number[] = [];
    readonly columns: (number | null)[][];

    constructor(columns: number, private keepMs: number) {
        this.columns = Array.from({ length: columns }, () => []);
    }

    add(timeMs: number, values: (number | undefined)[]): void {
        this.times.push(timeMs / 1000);
        this.columns.forEach((column, i) => column.push(values[i] ?? null));
        const oldest = (timeMs - this.keepMs) / 1000;
        let drop = 0;
        while (drop < this.times.length && this.times[drop] < oldest) {
            drop++;
        }
        if (drop > 0) {
            this.times.splice(0, drop);
            this.columns.forEach((column) => column.splice(0, drop));
        }
    }
}
