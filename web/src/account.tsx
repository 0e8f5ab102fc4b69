// Logging in (the connection takes the user's access level), logging out (a fresh
// connection at the lowest level) and changing a password.

import { useContext, useState } from "preact/hooks";
import { StoreContext } from "./context";
import { accessLevelName } from "./model";
import { Icon } from "./icons";

function Field({ id, label, type, value, onInput, autoComplete }: {
    id: string; label: string; type: string; value: string; onInput: (v: string) => void; autoComplete: string;
}) {
    return (
        <div class="field">
            <label for={id}>{label}</label>
            <input id={id} name={id} type={type} value={value} autoComplete={autoComplete} required
                onInput={(e) => onInput((e.target as HTMLInputElement).value)} />
        </div>
    );
}

function LoginForm() {
    const store = useContext(StoreContext);
    const [user, setUser] = useState("");
    const [password, setPassword] = useState("");
    const [message, setMessage] = useState("");
    const [busy, setBusy] = useState(false);
    const submit = async (e: Event) => {
        e.preventDefault();
        setBusy(true);
        const error = await store.login(user, password);
        setBusy(false);
        setPassword("");
        setMessage(error ?? "");
        if (!error) {
            store.notify("info", `Logged in as ${user}: ${accessLevelName(store.level)} access.`);
        }
    };
    return (
        <form class="form" onSubmit={submit} aria-labelledby="login-title">
            <h3 class="card-title" id="login-title"><Icon name="user" /> Log in</h3>
            <Field id="login-user" label="User" type="text" value={user} onInput={setUser} autoComplete="username" />
            <Field id="login-password" label="Password" type="password" value={password} onInput={setPassword} autoComplete="current-password" />
            {message && <p class="refusal" role="alert">{message}</p>}
            <button type="submit" class="button" disabled={busy}>Log in</button>
        </form>
    );
}

function PasswordForm() {
    const store = useContext(StoreContext);
    const [user, setUser] = useState(store.user);
    const [old, setOld] = useState("");
    const [fresh, setFresh] = useState("");
    const [again, setAgain] = useState("");
    const [message, setMessage] = useState<{ ok: boolean; text: string } | null>(null);
    const submit = async (e: Event) => {
        e.preventDefault();
        if (fresh !== again) {
            setMessage({ ok: false, text: "The new passwords do not match." });
            return;
        }
        const error = await store.changePassword(user, old, fresh);
        setMessage(error ? { ok: false, text: error } : { ok: true, text: "The password was changed." });
        setOld(""); setFresh(""); setAgain("");
    };
    return (
        <form class="form" onSubmit={submit} aria-labelledby="password-title">
            <h3 class="card-title" id="password-title"><Icon name="lock" /> Change password</h3>
            <Field id="pw-user" label="User" type="text" value={user} onInput={setUser} autoComplete="username" />
            <Field id="pw-old" label="Current password" type="password" value={old} onInput={setOld} autoComplete="current-password" />
            <Field id="pw-new" label="New password" type="password" value={fresh} onInput={setFresh} autoComplete="new-password" />
            <Field id="pw-again" label="New password again" type="password" value={again} onInput={setAgain} autoComplete="new-password" />
            {message && <p class={message.ok ? "success" : "refusal"} role="alert">{message.text}</p>}
            <button type="submit" class="button">Change password</button>
        </form>
    );
}

export function AccountView() {
    const store = useContext(StoreContext);
    return (
        <section class="view" aria-labelledby="account-title">
            <h2 id="account-title">Account</h2>
            <div class="card">
                <p class="session" data-access-level={store.level}>
                    {store.user ? <>Logged in as <strong>{store.user}</strong> with </> : <>Not logged in: </>}
                    <strong>{accessLevelName(store.level)}</strong> access (level {store.level}).
                    {" "}Controls that need a higher level are shown locked.
                </p>
                {store.user && <button type="button" class="button secondary" onClick={() => store.logout()}>Log out</button>}
            </div>
            <div class="two">
                <div class="card"><LoginForm /></div>
                <div class="card"><PasswordForm /></div>
            </div>
        </section>
    );
}
