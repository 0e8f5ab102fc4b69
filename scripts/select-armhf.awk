# Chooses the armhf packages the cross build unpacks into its private prefix, from what
# apt offers (the records of `apt-cache dumpavail`: one per package and architecture).
#
#   awk -v dev="a-dev b-dev" -v runtime="liba1 libb2" -v toolchain="libc6 libgcc-s1" \
#       -f scripts/select-armhf.awk offers.txt
#
# dev:       headers, static libraries and CMake or pkg-config files, taken as they are
#            (what they depend on is not followed: a development package drags in
#            desktop libraries the build never links);
# runtime:   the shared libraries the build links, taken with every library they need;
# toolchain: what the cross toolchain already brings (the C and C++ runtime), never taken.
# A dependency met by an "Architecture: all" or "Multi-Arch: foreign" package is data or
# a program, not something linked, and is left out. The first alternative that can be
# met is taken; a virtual package is met by its first provider.
#
# Prints one "name:armhf=version" per line, sorted; nothing else on the system is
# touched or named. Exits 1 with the reason on stderr when a package cannot be met.

function trim(s) {
    gsub(/^[ \t]+|[ \t]+$/, "", s)
    return s
}

# The package name of one alternative: without its version and architecture qualifier.
function bare(s) {
    s = trim(s)
    sub(/[ \t]*\(.*$/, "", s)
    sub(/:.*$/, "", s)
    return s
}

function flush_record() {
    if (name != "" && !((arch, name) in seen)) {
        seen[arch, name] = 1
        if (arch == "armhf") {
            version[name] = ver
            depends[name] = deps
            foreign[name] = (multiarch == "foreign")
            n = split(provides, list, ",")
            for (i = 1; i <= n; i++) {
                v = bare(list[i])
                if (v != "" && !(v in provider)) {
                    provider[v] = name
                }
            }
        } else if (arch == "all") {
            data[name] = 1
        }
    }
    name = ""; arch = ""; ver = ""; deps = ""; provides = ""; multiarch = ""
}

# The armhf package chosen for one dependency group ("a (>= 1) | b"), "" when the group is
# met without one, or "?" when nothing offered meets it.
function choose(group,    n, alts, i, a) {
    n = split(group, alts, "|")
    for (i = 1; i <= n; i++) {
        a = bare(alts[i])
        if (a in excluded || a in data || (a in foreign && foreign[a])) {
            return ""
        }
        if (a in version) {
            return a
        }
        if (a in provider) {
            return foreign[provider[a]] ? "" : provider[a]
        }
    }
    return "?"
}

function want(p, why) {
    if (p in excluded) {
        return
    }
    if (!(p in version)) {
        printf "select-armhf: no armhf package %s (%s)\n", p, why > "/dev/stderr"
        failed = 1
        return
    }
    if (!(p in chosen)) {
        chosen[p] = 1
        queue[++queued] = p
    }
}

/^Package: / { name = trim(substr($0, 10)); next }
/^Architecture: / { arch = trim(substr($0, 15)); next }
/^Version: / { ver = trim(substr($0, 10)); next }
/^(Pre-)?Depends: / {
    sub(/^(Pre-)?Depends: /, "")
    deps = deps == "" ? $0 : deps ", " $0
    next
}
/^Provides: / { provides = substr($0, 11); next }
/^Multi-Arch: / { multiarch = trim(substr($0, 13)); next }
/^$/ { flush_record() }

END {
    flush_record()
    split(toolchain, t, " ")
    for (i in t) {
        excluded[t[i]] = 1
    }
    n = split(dev, d, " ")
    for (i = 1; i <= n; i++) {
        if (!(d[i] in version)) {
            printf "select-armhf: no armhf package %s (wanted)\n", d[i] > "/dev/stderr"
            failed = 1
        } else {
            taken[d[i]] = 1
        }
    }
    n = split(runtime, r, " ")
    for (i = 1; i <= n; i++) {
        want(r[i], "wanted")
    }
    for (head = 1; head <= queued; head++) {
        p = queue[head]
        taken[p] = 1
        n = split(depends[p], groups, ",")
        for (i = 1; i <= n; i++) {
            if (trim(groups[i]) == "") {
                continue
            }
            c = choose(groups[i])
            if (c == "?") {
                printf "select-armhf: nothing offered for armhf meets \"%s\" (needed by %s)\n", trim(groups[i]), p > "/dev/stderr"
                failed = 1
            } else if (c != "") {
                want(c, "needed by " p)
            }
        }
    }
    if (failed) {
        exit 1
    }
    for (p in taken) {
        print p ":armhf=" version[p] | "sort"
    }
}
