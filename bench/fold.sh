# shellcheck shell=bash disable=SC2154
# What vexfold and its peers need for the same text; read by scripts/bench. Uses $bin.

# labelled KIND CLIENTS: 100 lines of 80 bytes for each client, in the order of the lines. a: all say the
# same; b: one of three variants at random; c: each has an address of its own.
labelled() {
    awk -v kind="$1" -v clients="$2" 'BEGIN {
        srand(1)
        for (line = 0; line < 100; ++line) {
            text = sprintf("line %03d ", line)
            while (length(text) < 80) text = text sprintf("%c", 97 + int(26 * rand()))
            variant[0] = text; variant[1] = substr(text, 1, 77) "foo"; variant[2] = substr(text, 1, 71) "different"
            for (i = 0; i < clients; ++i) {
                said = kind == "b" ? variant[int(3 * rand())] : text
                if (kind == "c") said = substr(text, 1, 64) sprintf("0x%07x%07x", 268435456 * rand(), 268435456 * rand())
                printf "node%05d: %s\n", i, said
            }
        }
    }'
}

# measured NAME INPUT COMMAND...: processor and wall time and memory of a command.
measured() {
    local name=$1 input=$2
    shift 2
    /usr/bin/time -f "$name %U %S %e %M" "$@" <"$input" 2>&1 >/dev/null | tail -n 1
}

benchFold() {
    local clients=${1:-16384} folder kind
    folder=$(mktemp -d)
    printf '%-4s %-12s %10s %10s %10s\n' text program 'cpu s' 'wall s' MB
    for kind in a b c; do
        labelled "$kind" "$clients" >"$folder/$kind"
        {
            measured cat "$folder/$kind" cat
            measured vexfold "$folder/$kind" "$bin/vexfold"
            if command -v dshbak >/dev/null && [ "$kind" = a ]; then measured dshbak "$folder/$kind" dshbak -c; fi
            if command -v clubak >/dev/null; then measured clubak "$folder/$kind" clubak -b; fi
        } | awk -v kind="$kind" '{ printf "%-4s %-12s %10.2f %10.2f %10.0f\n", kind, $1, $2 + $3, $4, $5 / 1024 }'
    done
    rm -r "$folder"
}
