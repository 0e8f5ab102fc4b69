// One widget per kind of control, each wrapped in a row that carries data-code, the
// control's name as its accessible label, its lock and its latest refusal. The projector's
// answer is what the widget shows: a refused change snaps back to the value that stands.

import { useContext, useEffect, useRef, useState } from "preact/hooks";
import { ComponentChildren } from "preact";
import {
    Control, displayName, effectiveRange, formatInteger, isLocked, kindOf, parseInteger,
    menuIdOf, scale, sliderStep, accessLevelName,
} from "./model";
import { StoreContext } from "./context";
import { Icon } from "./icons";
import { navigate } from "./router";

let nextId = 0;
function useId(prefix: string): string {
    const ref = useRef<string>();
    if (!ref.current) {
        ref.current = `${prefix}-${++nextId}`;
    }
    return ref.current;
}

interface WidgetProps {
    control: Control;
    disabled: boolean;
    labelId: string;
    name: string;
    onSet: (value: unknown) => Promise<boolean>;
}

function BooleanWidget({ control, disabled, name, onSet }: WidgetProps) {
    const on = control.value === true || control.value === 1;
    return (
        <button type="button" role="switch" class="switch" aria-checked={on} aria-label={name}
            disabled={disabled} onClick={() => void onSet(!on)}>
            <span class="switch-track"><span class="switch-thumb" /></span>
            <span class="switch-text">{on ? "On" : "Off"}</span>
        </button>
    );
}

function IntegerWidget({ control, disabled, name, onSet }: WidgetProps) {
    const raw = typeof control.value === "number" ? control.value : 0;
    const { min, max } = effectiveRange(control);
    const [draft, setDraft] = useState<number | null>(null);
    const [text, setText] = useState<string | null>(null);
    const shown = draft ?? raw;
    const factor = scale(control.decimals);
    useEffect(() => { setDraft(null); setText(null); }, [raw]);

    const commit = async (value: number) => {
        const ok = await onSet(value);
        if (!ok) {
            setDraft(null);
            setText(null);
        }
    };
    const commitText = () => {
        if (text === null) {
            return;
        }
        const parsed = parseInteger(text, control.decimals);
        if (parsed === undefined) {
            setText(null);
            return;
        }
        setText(null);
        if (parsed !== raw) {
            setDraft(parsed);
            void commit(parsed);
        }
    };
    const soft = control.type === 203 && (control.min !== min || control.max !== max);
    return (
        <div class="integer">
            <input type="range" aria-label={name} min={min} max={max} step={sliderStep(control)} value={shown}
                disabled={disabled}
                onInput={(e) => setDraft(Number((e.target as HTMLInputElement).value))}
                onChange={(e) => void commit(Number((e.target as HTMLInputElement).value))} />
            <input type="number" class="number" aria-label={`${name} value`} disabled={disabled}
                min={min / factor} max={max / factor} step={1 / factor}
                value={text ?? formatInteger(shown, control.decimals)}
                onInput={(e) => setText((e.target as HTMLInputElement).value)}
                onBlur={commitText}
                onKeyDown={(e) => { if (e.key === "Enter") { commitText(); } if (e.key === "Escape") { setText(null); } }} />
            {soft && (
                <span class="hint">Limited to {formatInteger(min, control.decimals)}–{formatInteger(max, control.decimals)}</span>
            )}
        </div>
    );
}

function ListWidget({ control, disabled, name, onSet }: WidgetProps) {
    const list = control.list ?? [];
    const value = typeof control.value === "number" ? control.value : undefined;
    const known = list.some((e) => e.idx === value);
    return (
        <select aria-label={name} disabled={disabled} value={known ? String(value) : ""}
            onChange={(e) => {
                const target = e.target as HTMLSelectElement;
                void onSet(Number(target.value)).then((ok) => { if (!ok) { target.value = known ? String(value) : ""; } });
            }}>
            {!known && <option value="" disabled>{value === undefined ? "—" : `Value ${value}`}</option>}
            {list.map((entry) => (
                <option key={entry.idx} value={String(entry.idx)} disabled={entry.selectable === false}
                    title={entry.hint}>
                    {entry.text}
                </option>
            ))}
        </select>
    );
}

function TextWidget({ control, disabled, name, onSet }: WidgetProps) {
    const value = typeof control.value === "string" ? control.value : String(control.value ?? "");
    const [text, setText] = useState<string | null>(null);
    useEffect(() => setText(null), [value]);
    const limited = control.type >= 300 && control.type <= 303 && typeof control.max === "number" && control.max > 0;
    const commit = () => {
        if (text !== null && text !== value) {
            void onSet(text).then(() => setText(null));
        } else {
            setText(null);
        }
    };
    return (
        <input type="text" class="text" aria-label={name} disabled={disabled}
            maxLength={limited ? control.max : undefined}
            inputMode={control.type === 306 ? "decimal" : undefined}
            spellcheck={false}
            value={text ?? value}
            onInput={(e) => setText((e.target as HTMLInputElement).value)}
            onBlur={commit}
            onKeyDown={(e) => { if (e.key === "Enter") { commit(); } if (e.key === "Escape") { setText(null); } }} />
    );
}

function ActionWidget({ control, disabled, name, onSet }: WidgetProps) {
    const [asking, setAsking] = useState(false);
    const run = () => void onSet(1);
    return (
        <>
            <button type="button" class="button" aria-label={name} disabled={disabled}
                onClick={() => (control.confirm ? setAsking(true) : run())}>
                {name}
            </button>
            {asking && (
                <ConfirmDialog text={control.confirm!} action={name}
                    onAnswer={(yes) => { setAsking(false); if (yes) { run(); } }} />
            )}
        </>
    );
}

export function ConfirmDialog({ text, action, onAnswer }: { text: string; action: string; onAnswer: (yes: boolean) => void }) {
    const ref = useRef<HTMLDialogElement>(null);
    useEffect(() => {
        const dialog = ref.current;
        if (dialog && !dialog.open) {
            dialog.showModal();
        }
    }, []);
    return (
        <dialog ref={ref} class="dialog" aria-label={`Confirm ${action}`}
            onCancel={(e) => { e.preventDefault(); onAnswer(false); }}>
            <p>{text}</p>
            <div class="dialog-buttons">
                <button type="button" class="button secondary" onClick={() => onAnswer(false)}>Cancel</button>
                <button type="button" class="button danger" onClick={() => onAnswer(true)}>{action}</button>
            </div>
        </dialog>
    );
}

function CustomWidget({ control }: WidgetProps) {
    return <output class="readout">{control.value === null || control.value === undefined ? "—" : String(control.value)}</output>;
}

function Row({ control, labelId, name, locked, children, favourite }: {
    control: Control; labelId: string; name: string; locked: boolean; children: ComponentChildren;
    favourite?: ComponentChildren;
}) {
    const store = useContext(StoreContext);
    const refusal = store.refusals.get(control.code);
    const readOnly = control.readOnly === true;
    const disabled = control.enabled === false;
    return (
        <div class={`control kind-${kindOf(control.type)}${locked ? " locked" : ""}${disabled ? " disabled" : ""}`}
            data-code={control.code} role="group" aria-labelledby={labelId}>
            <div class="control-head">
                <span class="control-name" id={labelId}>{name}</span>
                {locked && (
                    <span class="badge lock" title={`Needs ${accessLevelName(control.access ?? 2)} access`}>
                        <Icon name="lock" /> {accessLevelName(control.access ?? 2)}
                    </span>
                )}
                {readOnly && <span class="badge">Read-only</span>}
                {disabled && <span class="badge">Disabled</span>}
                {favourite}
            </div>
            <div class="control-body">{children}</div>
            {refusal && (
                <p class="refusal" role="alert">
                    <Icon name="alert" /> {refusal}
                    <button type="button" class="link" aria-label="Dismiss" onClick={() => store.clearRefusal(control.code)}>×</button>
                </p>
            )}
        </div>
    );
}

export function ControlView({ control, favourite }: { control: Control; favourite?: ComponentChildren }) {
    const store = useContext(StoreContext);
    const labelId = useId("label");
    const name = displayName(control);
    const kind = kindOf(control.type);
    if (kind === "menu") {
        const id = menuIdOf(control.code);
        return (
            <a class="menu-link" data-code={control.code} href={id ? `#/menu/${id}` : undefined}
                aria-label={name} onClick={(e) => { if (id) { e.preventDefault(); navigate(`/menu/${id}`); } }}>
                <Icon name={(control.icon ?? "").replace(/^.*\//, "") || "menu"} />
                <span>{name}</span>
                <Icon name="chevron" />
            </a>
        );
    }
    const locked = isLocked(control, store.level);
    const disabled = locked || control.enabled === false || control.readOnly === true;
    const props: WidgetProps = { control, disabled, labelId, name, onSet: (v) => store.set(control.code, v) };
    const widget = kind === "boolean" ? <BooleanWidget {...props} />
        : kind === "integer" ? <IntegerWidget {...props} />
        : kind === "list" ? <ListWidget {...props} />
        : kind === "text" ? <TextWidget {...props} />
        : kind === "action" ? <ActionWidget {...props} />
        : <CustomWidget {...props} />;
    return <Row control={control} labelId={labelId} name={name} locked={locked} favourite={favourite}>{widget}</Row>;
}
