// The store every view reads, handed down from the page's root.

import { createContext } from "preact";
import { Store } from "./store";

export const StoreContext = createContext<Store>(null as unknown as Store);
