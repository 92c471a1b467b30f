# SPDX-License-Identifier: Apache-2.0

# Defines the functions that the scripts share. The scripts source this file.

unset CDPATH
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

say() { printf '== %s\n' "$*" >&2; }

# die STATUS MESSAGE...: prints the message and ends the script with the status.
die() {
    local status=$1
    shift
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit "$status"
}

# build PRESET TARGET...: configures and builds. Shows the output only if a command fails.
build() {
    local preset=$1 printed
    shift
    say "building ($preset)"
    if ! printed=$({ cmake --preset "$preset" && cmake --build --preset "$preset" "${@/#/--target=}"; } 2>&1); then
        printf '%s\n' "$printed" >&2
        die 1 "the build failed"
    fi
}

# run_tests OPTION...: runs ctest with two tests for each processor, because many tests wait.
run_tests() { ctest --parallel "$((2 * $(getconf _NPROCESSORS_ONLN)))" "$@"; }

# Keeps temporary files in memory, where the system has a folder for that. Many tests spend most of their time on
# flushing files to the disk.
use_memory_for_files() { [ ! -w /dev/shm ] || export TMPDIR=/dev/shm; }

# start_host COMMAND...: runs a resident host in the background and returns when it serves. Sets `server` to
# the process and `messages` to a descriptor that reads the host's messages. Needs the folder $scratch.
start_host() {
    local line
    [ -p "$scratch/messages" ] || mkfifo "$scratch/messages"
    "$@" 2>"$scratch/messages" &
    server=$!
    exec {messages}<"$scratch/messages"
    while read -r line <&"$messages"; do
        printf '%s\n' "$line"
        [[ $line != *"serving on"* ]] || return 0
    done
    die 1 "the host does not serve"
}

# What the scripts keep for their next run, also in another checkout.
cache_folder=${XDG_CACHE_HOME:-$HOME/.cache}/lorx-naming-service

# Set the directories of what scripts/bootstrap --macos fetches. The compiler is the one that the lock file pins.
macos_packages=cmake/macos
macos_toolchain=$cache_folder/macos-toolchain-$(sha256sum <$macos_packages/package-lock.json | cut -c 1-12)
macos_protobuf=$cache_folder/protobuf-3.21.12
