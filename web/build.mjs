// Builds the page into dist/: one script and one style sheet bundled and minified, beside
// the HTML and the icon. Nothing the page needs is left outside dist/.
import { build } from "esbuild";
import { copyFileSync, mkdirSync, rmSync } from "node:fs";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));
const out = join(here, "dist");
rmSync(out, { recursive: true, force: true });
mkdirSync(out, { recursive: true });

await build({
    entryPoints: { app: join(here, "src", "main.tsx") },
    outdir: out,
    bundle: true,
    minify: true,
    format: "iife",
    target: ["chrome100", "firefox100", "safari15"],
    jsx: "automatic",
    jsxImportSource: "preact",
    legalComments: "none",
    logLevel: "warning",
});
for (const file of ["index.html", "favicon.svg"]) {
    copyFileSync(join(here, "src", file), join(out, file));
}
