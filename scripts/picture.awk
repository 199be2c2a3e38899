# Turns what a console printed, with its colour sequences, into an SVG picture of a terminal window.
# Begins at the prompt of the command `first` and leaves out the question at the end.

function escape(text) {
    gsub(/&/, "\\&amp;", text)
    gsub(/</, "\\&lt;", text)
    gsub(/>/, "\\&gt;", text)
    return text
}

function span(text, class) {
    if (text == "") return ""
    return class == "" ? escape(text) : "<tspan class=\"" class "\">" escape(text) "</tspan>"
}

# The line's text; colours become tspans, other sequences go.
function paint(line,    result, at, code) {
    result = ""
    width = 0
    while (match(line, /\033\[[0-9;?]*[A-Za-z]/)) {
        width += RSTART - 1
        result = result span(substr(line, 1, RSTART - 1), class)
        code = substr(line, RSTART + 2, RLENGTH - 3)
        if (substr(line, RSTART + RLENGTH - 1, 1) == "m") class = code == "00" ? "" : name[code]
        line = substr(line, RSTART + RLENGTH)
    }
    width += length(line)
    return result span(line, class)
}

BEGIN {
    name["1;31"] = "red"; name["1;32"] = "green"; name["2;32"] = "darkgreen"; name["1;37"] = "white"
    size = 13; advance = 7.83; step = 19; margin = 18; bar = 34
    count = 0; columns = 80
}

{ sub(/\r$/, "") }
/^(\033\[\?[0-9]+h)*\([A-Za-z0-9_:]+\) kquit$/ { exit }
index($0, "(all) " first) { shown = 1 }
shown {
    lines[++count] = paint($0)
    if (width > columns) columns = width
}

END {
    w = int(columns * advance + 2 * margin + 1)
    h = bar + (count + 1) * step + margin
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d %d\" role=\"img\">\n", w, h, w, h
    printf "<title>A session of VEX: %s</title>\n", escape(title)
    print "<style>"
    print "text { font: " size "px 'DejaVu Sans Mono', Menlo, Consolas, 'Liberation Mono', monospace; fill: #d7dde5; white-space: pre }"
    print ".bar { fill: #8b95a3 } .green { fill: #6ee787; font-weight: bold } .darkgreen { fill: #3d9c55 }"
    print ".red { fill: #ff7a70; font-weight: bold } .white { fill: #ffffff; font-weight: bold }"
    print "</style>"
    printf "<rect x=\"0.5\" y=\"0.5\" width=\"%d\" height=\"%d\" rx=\"9\" fill=\"#12161d\" stroke=\"#39424f\"/>\n", w - 1, h - 1
    printf "<path d=\"M1 %d H%d\" stroke=\"#262d37\"/>\n", bar, w - 1
    split("#ff5f57 #febc2e #28c840", dots, " ")
    for (i = 1; i <= 3; ++i) printf "<circle cx=\"%d\" cy=\"17\" r=\"5.5\" fill=\"%s\"/>\n", 2 + 18 * i, dots[i]
    printf "<text class=\"bar\" x=\"%d\" y=\"22\" text-anchor=\"middle\">%s</text>\n", w / 2, escape(title)
    for (i = 1; i <= count; ++i)
        printf "<text xml:space=\"preserve\" x=\"%d\" y=\"%d\">%s</text>\n", margin, bar + i * step + 5, lines[i]
    print "</svg>"
}
