# shellcheck shell=bash disable=SC2034
# What the scripts share: packages, the ordinary user, the tree to build in. Sourced, never run.
#
# VEX refuses root, and nothing is built or run as root either: only apt-get is. Started as root (in
# a container, or by sudo), configure, build and run belong to SUDO_USER or else to nobody.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '%s\n' "$*" >&2; }
die() {
    say "$*"
    exit 1
}

# needPackages NAME... installs those that are missing; asks and says nothing when all are there.
needPackages() {
    local name missing=() asRoot=()
    if ! command -v dpkg-query >/dev/null; then
        say "No dpkg here: taking it that these are installed: $*"
        return 0
    fi
    for name in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}\n' "$name" 2>/dev/null | head -n 1)" = installed ] ||
            missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null ||
            die "Missing: ${missing[*]}. There is no sudo; as root, run: apt-get install ${missing[*]}"
        asRoot=(sudo)
    fi
    say "Installing with apt-get: ${missing[*]}"
    aptGet install "${missing[@]}" && return 0
    say "Fetching the package lists first."
    if ! aptGet update || ! aptGet install "${missing[@]}"; then
        tail -n 20 "$scratch/apt.log" >&2
        die "apt-get could not install: ${missing[*]}"
    fi
}

# The caller's standard input may be a script for the session: apt-get must not eat it.
aptGet() {
    "${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y --no-install-recommends "$@" </dev/null >"$scratch/apt.log" 2>&1
}

# Everything temporary lives in one directory that goes at the end, however the script ends.
scratch=$(mktemp -d "/tmp/vex-scripts.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

user=$(id -un 2>/dev/null || id -u)
drop=()
if [ "$(id -u)" -eq 0 ]; then
    user=${SUDO_USER:-nobody}
    [ "$user" = root ] && user=nobody
    uid=$(id -u "$user")
    gid=$(id -g "$user")
    home=$scratch/home
    if [ "$user" != nobody ]; then home=$(getent passwd "$user" | cut -d: -f6); fi
    chmod 0755 "$scratch"
    mkdir -p "$scratch/home"
    chown "$uid:$gid" "$scratch/home"
    drop=(setpriv --reuid "$uid" --regid "$gid" --clear-groups
        env -u TMPDIR -u XDG_RUNTIME_DIR HOME="$home" USER="$user" LOGNAME="$user" CCACHE_DISABLE=1)
fi

# asUser COMMAND... runs it as the ordinary user.
asUser() { "${drop[@]}" "$@"; }

# A place of our own for what cannot be beside the sources; sets `spare`. Root's own directory,
# with only the build directories in it given away: nobody else can lay a trap there.
makeSpare() {
    spare=/var/tmp/vex-$user-$(printf %s "$top" | cksum | cut -d' ' -f1)
    mkdir -m 0755 "$spare" 2>/dev/null || { [ -d "$spare" ] && [ ! -L "$spare" ] && [ -O "$spare" ]; } ||
        spare=$(mktemp -d "/var/tmp/vex-$user.XXXXXX")
    chmod 0755 "$spare"
}

# Sets `src`: the checkout, or a copy of it when the ordinary user cannot read it.
findSources() {
    [ -n "${src:-}" ] && return 0
    src=$top
    if asUser test -x "$top" && [ -z "$(cd / && asUser find "$top" -name .git -prune -o -name 'build*' -prune \
        -o ! -readable -print -quit 2>&1)" ]; then
        return 0
    fi
    makeSpare
    src=$spare
    say "$user cannot read $top: building and running a copy in $src"
    find "$src" -mindepth 1 -maxdepth 1 ! -name 'build*' -exec rm -rf {} +
    tar -C "$top" -c --exclude=./.git --exclude='./build*' . | tar -C "$src" -x --no-same-owner
    chmod -R a+rX,go-w "$src" 2>/dev/null || true
}

# findBuild NAME sets `build`: a directory of that name that the ordinary user can write, beside the
# sources where possible.
findBuild() {
    findSources
    build=$src/$1
    if [ "$(id -u)" -eq 0 ]; then
        if mkdir -p "$build" 2>/dev/null; then
            [ -z "$(find "$build" ! -user "$user" -print -quit)" ] || chown -hR "$uid:$gid" "$build"
            return 0
        fi
    elif mkdir -p "$build" 2>/dev/null && [ -z "$(find "$build" ! -writable -print -quit)" ]; then
        return 0
    fi
    makeSpare
    build=$spare/$1
    say "$user cannot write $src/$1: building in $build"
    mkdir -p "$build"
    [ "$(id -u)" -ne 0 ] || chown "$uid:$gid" "$build"
}

# configure PRESET DIRECTORY [CMAKE-OPTION...] sets `build`. Warnings are errors unless `werror` is OFF; a
# directory that is there keeps what it has, since a change would compile all of it again.
configure() {
    local preset=$1 log=$scratch/configure.log strict
    findBuild "$2"
    shift 2
    if [ -n "${CI:-}" ] || ! strict=$(grep -s '^VEX_WERROR:' "$build/CMakeCache.txt"); then
        strict=VEX_WERROR:BOOL=${werror:-ON}
    fi
    (cd "$src" && asUser cmake --preset "$preset" -B "$build" "-D$strict" "$@") </dev/null >"$log" 2>&1 && return 0
    tail -n 40 "$log" >&2
    return 1
}

# buildPreset PRESET [CMAKE-OPTION...] configures and builds; sets `build`. Messages go to standard
# error: a line of progress on a terminal, otherwise only what went wrong.
buildPreset() {
    local preset=$1 name=build-$1 log=$scratch/build.log
    shift
    [ "$preset" = release ] && name=build
    configure "$preset" "$name" "$@" || return 1
    if [ -t 2 ]; then
        asUser cmake --build "$build" -j "$(nproc)" </dev/null >&2
    elif ! asUser cmake --build "$build" -j "$(nproc)" </dev/null >"$log" 2>&1; then
        grep -vE '^\[[0-9]+/[0-9]+\] (Building|Linking)' "$log" | tail -n 60 >&2
        return 1
    fi
}

# Every source that is ours to format.
sourceFiles() {
    (cd "$top" && find ./* -path "./build*" -prune -o -name '*.cpp' -print -o -name '*.h' -print | sort)
}

packagesToBuild=(g++ cmake ninja-build libasio-dev libcli11-dev libssl-dev)
packagesToRun=(gdb ncurses-bin)
packagesToTest=(libgtest-dev libc-bin openmpi-bin libopenmpi-dev mpich libmpich-dev python3-mpi4py)
packagesForSlurm=(slurmctld slurmd slurm-client munge)
packagesForHosts=(openssh-server openssh-client iproute2 procps)
packagesForChecks=(clang clang-format clang-tidy libclang-rt-dev libbenchmark-dev shellcheck)
