# shellcheck shell=bash disable=SC2154
# Sourced by scripts/bench: the console's processor time and memory for the output of up to 131,072 clients, as
# multiples of a loop that only reads the same bytes; then single stages against what they replace. With another
# vexconsole, that one is measured beside it. Needs 5 GB of memory and some minutes.

# load CONSOLE WORKLOAD CLIENTS RECORDS MODE [RUNS]: the figures of vex_load, zeros when it fails.
load() { asUser env TERM=xterm VEX_HISTORY_LINES=1000 "$bin/vex_load" "$@" 2>/dev/null || echo "0 0 1 0 0 0 0"; }

title() { printf '\n%-34s %8s %9s %9s %9s %9s\n' "$@"; }
# row NAME WORKLOAD CLIENTS RECORDS MODE RUNS: processor time, multiple of the bare loop, memory, writes.
row() {
    local name=$1 console
    shift
    for console in "${consoles[@]}"; do
        load "$console" "$@" | awk -v name="$name" '{
            printf "%-34s %8.1f %8.1fx %9d %9d %9.2f\n", name, $2, $2 / $3, $4, $5, $7 ? $6 / ($7 / 65536) : 0 }'
    done
}
# ratio NAME A B: the processor times of two loads.
ratio() {
    local console first second
    for console in "${consoles[@]}"; do
        # shellcheck disable=SC2086
        first=$(load "$console" $2 3) second=$(load "$console" $3 3)
        printf '%s %s\n' "$first" "$second" | awk -v name="$1" '{ printf "%-60s %8.2fx\n", name, $2 / $9 }'
    done
}

benchConsole() {
    consoles=("$bin/vexconsole")
    [ -z "${1:-}" ] || consoles+=("$1")

    title "output of 100 lines" ms "of bare" "MiB peak" "MiB after" "w/64KiB"
    row "a 131,072 auto" a 131072 1 auto 5
    row "b 131,072 collapsed" b 131072 1 collapsed 3
    row "b 131,072 auto" b 131072 1 auto 3
    row "b 131,072 expanded" b 131072 1 expanded 2
    for mode in auto collapsed expanded; do row "c 16,384 $mode" c 16384 1 $mode 2; done
    row "c 131,072 auto" c 131072 1 auto 1
    row "flood, 490 records of 4,000 lines" flood 1 490 auto 2

    printf '\n'
    ratio "c 1,024 in 100 records, 400 words seen, against not" "c 1024 100 auto-seen" "c 1024 100 auto"
    ratio "d 1,024 in 100 records, against one" "d 1024 100 auto" "d 1024 1 auto"
    ratio "c 1,024 in 64 records of 16 clients, against one" "c 1024 64 auto" "c 1024 1 auto"

    printf '\n%-34s %22s %22s\n' "growth exponents" "1,024 to 16,384" "16,384 to 131,072"
    for workload in a b c; do
        for console in "${consoles[@]}"; do
            { load "$console" $workload 1024 1 auto 5; load "$console" $workload 16384 1 auto 2; load "$console" $workload 131072 1 auto 1; } |
                awk -v name="$workload auto" '{ t[NR] = $2 } END {
                    printf "%-34s %22.2f %22.2f\n", name, log(t[2] / t[1]) / log(16), log(t[3] / t[2]) / log(8) }'
        done
    done

    printf '\n'
    for console in "${consoles[@]}"; do
        load "$console" idle 0 0 auto | awk '{ printf "wake-ups in 2 s: %d at the prompt, %d with a command in flight\n", $1, $2 }'
    done

    printf '\n%-34s %12s\n' "stages" "faster"
    asUser "$bin/vex_bench" --benchmark_filter='^(union|unionStd|verdict|verdictByMatrix)/' \
        --benchmark_format=csv 2>/dev/null | tr -d '"' | awk -F, '
        /^(union|verdict)/ { time[$1] = $4; bytes[$1] = $NF }
        END {
            split("20 B;80 B, one field;80 B, scattered;200 B, one field;200 B, scattered", texts, ";")
            for (i = 0; i < 5; ++i)
                printf "%-34s %11.0fx\n", "verdict " texts[i + 1], time["verdictByMatrix/" i] / time["verdict/" i]
            split("every other;random half", sets, ";")
            for (i = 0; i < 2; ++i)
                printf "%-34s %11.0fx, %.0fx smaller\n", "union of 100,000, " sets[i + 1],
                    time["unionStd/" i] / time["union/" i], bytes["unionStd/" i] / bytes["union/" i]
        }'
}
