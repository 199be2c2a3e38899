# shellcheck shell=bash disable=SC2034
# What the trials of vex under daemons of their own share: needs, waiting, saying, and vex at work. Sourced by
# tests/*.sh, run by root with the directory of the programs. The sourcing script makes `dir` by makeDir and defines
# `vexAs`, which runs a command as the user where vex is to run.
# shellcheck source=scripts/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
name=$(basename "$0" .sh)
bin=$(cd "${1:?usage: tests/$name.sh BIN-DIRECTORY}" && pwd)
programs=$bin # the same where vex is to run

skip() {
    say "$name: skipped, $*"
    exit 0
}
# needs PACKAGES COMMAND...: root, and these commands, which are in those packages.
needs() {
    local packages=$1 each
    shift
    [ "$(id -u)" -eq 0 ] || skip "its daemons need root"
    for each in "$@"; do
        command -v "$each" >/dev/null || skip "there is no $each here (Debian: $packages)"
    done
}

# makeDir PARENT sets `dir`, and the keys of the terminal on which vex will be.
makeDir() {
    dir=$(mktemp -d "$1/vex-$name.XXXXXX")
    chmod 755 "$dir"
    mkfifo "$dir/keys"
    exec 9<>"$dir/keys"
}

failed=0
# expect WHAT COMMAND...: the command succeeds within 20 s.
expect() {
    local what=$1 limit=$((SECONDS + 20))
    shift
    until "$@"; do
        if [ $SECONDS -ge $limit ]; then
            say "$name: FAILED: $what"
            [ ! -e "$dir/screen" ] || tail -n 15 "$dir/screen" >&2
            failed=1
            return
        fi
        sleep 0.1
    done
    say "$name: $what"
}

# The user's vex on a terminal; its screen goes to a file.
onTerminal() { vexAs script -qec "$programs/vex $*" /dev/null >"$dir/screen" 2>&1 <&9 & }
says() { tr -d '\r' <"$dir/screen" | grep -q -e "$1"; }
# batch SCRIPT OPTIONS...: the report of a script of console commands.
batch() {
    printf '%b' "$1" >"$dir/script"
    chmod 644 "$dir/script"
    shift
    vexAs timeout 60 "$programs/vex" --script "$dir/script" "$@" >"$dir/screen" 2>&1
}
