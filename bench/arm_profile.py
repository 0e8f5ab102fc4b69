#!/usr/bin/env python3
"""Where the ARM programs' instructions go: reads the profiles the instruction counter
writes (bench/QemuInstructionCounter.cpp with "profile=<path>", one <path>.<pid> file per
process; bench/arm_instructions.sh makes them when PROFILE is set) and prints, for each
process, its instructions per library and the functions that took the most in each.

    bench/arm_profile.py [--top N] [--per COUNT] FILE...

--per divides every figure by COUNT (the requests sent, say). A profile covers the whole
life of its process: start, idle spells and every request. Function names come from the
libraries' symbol tables (arm-linux-gnueabihf-nm); an address in a function that is in
neither table is given to the nearest symbol before it.
"""
import argparse
import bisect
import collections
import subprocess
import sys


def read_profile(path):
    base, maps, blocks = 0, [], []
    with open(path) as f:
        for line in f:
            kind, _, rest = line.partition(" ")
            if kind == "base":
                base = int(rest, 16)
            elif kind == "map":
                fields = rest.split()
                start, end = (int(x, 16) for x in fields[0].split("-"))
                maps.append((start, end, int(fields[2], 16), fields[5] if len(fields) > 5 else ""))
            elif kind == "block":
                address, instructions, runs = rest.split()
                blocks.append((int(address, 16), int(instructions), int(runs)))
    return base, sorted(maps), blocks


def symbols(library, cache={}):
    if library not in cache:
        found = []
        for options in (["--defined-only", "-n", "-C"], ["-D", "--defined-only", "-n", "-C"]):
            run = subprocess.run(["arm-linux-gnueabihf-nm", *options, library], capture_output=True, text=True)
            for line in run.stdout.splitlines():
                fields = line.split(" ", 2)
                if len(fields) == 3 and fields[1] in "tTwWiI":
                    found.append((int(fields[0], 16) & ~1, fields[2]))  # the Thumb bit off
        found.sort()
        cache[library] = ([address for address, _ in found], [name for _, name in found])
    return cache[library]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--top", type=int, default=8)
    parser.add_argument("--per", type=float, default=1.0)
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    for path in options.files:
        base, maps, blocks = read_profile(path)
        starts = [start for start, _, _, _ in maps]
        by_library = collections.Counter()
        by_function = collections.defaultdict(collections.Counter)
        for address, instructions, runs in blocks:
            host = address + base
            i = bisect.bisect_right(starts, host) - 1
            library, offset = "?", 0
            if i >= 0 and host < maps[i][1]:
                library, offset = maps[i][3] or "?", host - maps[i][0] + maps[i][2]
            by_library[library] += instructions * runs
            by_function[library][offset] += instructions * runs
        program = next((name for _, _, _, name in maps if name.endswith(("vprojector", "_frontend"))), "?")
        total = sum(by_library.values())
        print("== %s (%s): %.0f instructions" % (path, program, total / options.per))
        for library, count in by_library.most_common(options.top):
            print("%12.0f %5.1f%%  %s" % (count / options.per, 100.0 * count / total, library))
            if library == "?":
                continue
            addresses, names = symbols(library)
            functions = collections.Counter()
            for offset, n in by_function[library].items():
                j = bisect.bisect_right(addresses, offset) - 1
                functions[names[j] if j >= 0 else "?"] += n
            for name, n in functions.most_common(options.top):
                print("%12.0f          %s" % (n / options.per, name[:110]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
