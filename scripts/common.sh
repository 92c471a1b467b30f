# What the scripts share. Sourced, not run.

unset CDPATH
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

say() { printf '== %s\n' "$*" >&2; }

# die STATUS MESSAGE...
die() {
    local status=$1
    shift
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit "$status"
}

# build PRESET TARGET...: configures and builds; what they print is shown only when they fail.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    say "building ($preset)"
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" "${@/#/--target=}"; } \
        >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        die 1 "the build failed"
    fi
    rm -f "$log"
}
