// Views are addressed by the location's hash ("#/menu/PICT", "#/status"), so the browser's
// back button and bookmarks work without the server knowing any route.

import { useEffect, useState } from "preact/hooks";

export function currentRoute(): string {
    const hash = location.hash.replace(/^#/, "");
    return hash.startsWith("/") ? hash : "/menu/MAIN";
}

export function navigate(route: string): void {
    location.hash = `#${route}`;
}

export function useRoute(): string {
    const [route, setRoute] = useState(currentRoute());
    useEffect(() => {
        const update = () => setRoute(currentRoute());
        window.addEventListener("hashchange", update);
        return () => window.removeEventListener("hashchange", update);
    }, []);
    return route;
}
