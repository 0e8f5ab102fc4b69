// The page's icons, drawn inline (24-unit stroked paths) so nothing is fetched at run time.
// The menu tree names its icons; a name without a drawing gets the generic menu icon.

const paths: Record<string, string> = {
    menu: "M4 6h16M4 12h16M4 18h16",
    picture: "M3 5h18v14H3zM3 16l5-5 4 4 3-3 6 6",
    palette: "M12 3a9 9 0 1 0 0 18c1.5 0 2-1 2-2s-1-1.5-1-2.5S14 15 15 15h2a4 4 0 0 0 4-4c0-4.4-4-8-9-8zM7.5 11.5h.01M10 7.5h.01M14.5 7.5h.01",
    geometry: "M4 20l4-16 12 4-4 12zM8 4l8 16",
    input: "M3 7h18v10H3zM7 17v3M17 17v3M10 12h4",
    lamp: "M9 18h6M10 21h4M12 3a6 6 0 0 0-4 10.5c.7.7 1 1.5 1 2.5h6c0-1 .3-1.8 1-2.5A6 6 0 0 0 12 3z",
    laser: "M3 12h6M13 12h8M9 8l4 4-4 4M17 6l2-2M17 18l2 2",
    network: "M12 3v6M5 21v-4h14v4M12 9a3 3 0 1 0 0 .01M12 12v5M5 21h0M19 21h0",
    settings: "M12 15a3 3 0 1 0 0-6 3 3 0 0 0 0 6zM19.4 15a1.7 1.7 0 0 0 .3 1.8l.1.1a2 2 0 1 1-2.8 2.8l-.1-.1a1.7 1.7 0 0 0-2.9 1.2V21a2 2 0 1 1-4 0v-.1a1.7 1.7 0 0 0-2.9-1.2l-.1.1a2 2 0 1 1-2.8-2.8l.1-.1A1.7 1.7 0 0 0 3 14H3a2 2 0 1 1 0-4h.1a1.7 1.7 0 0 0 1.2-2.9l-.1-.1a2 2 0 1 1 2.8-2.8l.1.1A1.7 1.7 0 0 0 10 3.1V3a2 2 0 1 1 4 0v.1a1.7 1.7 0 0 0 2.9 1.2l.1-.1a2 2 0 1 1 2.8 2.8l-.1.1a1.7 1.7 0 0 0 1.2 2.9H21a2 2 0 1 1 0 4h-.1a1.7 1.7 0 0 0-1.5 1z",
    system: "M4 4h16v12H4zM8 20h8M12 16v4",
    info: "M12 21a9 9 0 1 0 0-18 9 9 0 0 0 0 18zM12 11v6M12 7h.01",
    status: "M3 12h4l3-8 4 16 3-8h4",
    star: "M12 3l2.8 5.7 6.2.9-4.5 4.4 1 6.2L12 17.3 6.5 20.2l1-6.2L3 9.6l6.2-.9z",
    lock: "M6 11h12v10H6zM8 11V7a4 4 0 0 1 8 0v4",
    user: "M12 12a4 4 0 1 0 0-8 4 4 0 0 0 0 8zM4 21a8 8 0 0 1 16 0",
    alert: "M12 3l10 18H2zM12 10v5M12 18h.01",
    chevron: "M9 6l6 6-6 6",
    power: "M12 3v9M6.3 6.3a8 8 0 1 0 11.4 0",
    home: "M3 11l9-8 9 8M5 10v10h14V10",
};

export function Icon({ name, label }: { name: string; label?: string }) {
    const d = paths[name] ?? paths.menu;
    return (
        <svg class="icon" viewBox="0 0 24 24" width="20" height="20" fill="none" stroke="currentColor"
            stroke-width="2" stroke-linecap="round" stroke-linejoin="round"
            role={label ? "img" : undefined} aria-label={label} aria-hidden={label ? undefined : true}>
            <path d={d} />
        </svg>
    );
}
