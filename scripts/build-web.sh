#!/bin/bash
# Builds the projector's web page into web/dist/ (served by the projector, installed with
# it): installs the page's npm packages exactly as web/package-lock.json names them when
# web/node_modules is missing or older than the lockfile, bundles the page, and puts a
# gzip copy (gzip -9 -n, so the bytes do not depend on the time of the build) beside each
# text file for clients that accept it. Prints the size of the page as it travels gzipped.
set -eu

web="$(cd "$(dirname "$0")/.." && pwd)/web"
cd "$web"

# npm records the lockfile it installed from; a changed lockfile means a fresh install.
stamp=node_modules/.package-lock.json
if [ ! -d node_modules ] || [ ! -f "$stamp" ] || [ package-lock.json -nt "$stamp" ]; then
    npm ci --no-audit --no-fund
fi

node build.mjs

total=0
while IFS= read -r -d '' file; do
    case "$file" in
        *.html|*.js|*.css|*.svg|*.json|*.map|*.txt)
            gzip -9 -n -c "$file" > "$file.gz"
            total=$((total + $(stat -c %s "$file.gz")))
            ;;
        *.gz) ;;
        *) total=$((total + $(stat -c %s "$file"))) ;;
    esac
done < <(find dist -type f ! -name '*.gz' -print0)
echo "web page built in web/dist: $((total / 1024)) KiB gzipped ($total bytes)"
