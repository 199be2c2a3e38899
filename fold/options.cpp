#include "fold/options.h"

#include <array>
#include <cstdio>
#include <getopt.h>
#include <string_view>

namespace {

constexpr const char* usage =
    R"(Usage: vexfold [option]... [file]...

Folds the labelled lines of parallel output: what many have said stands there
once, with all their labels. Reads standard input when no file is named.

  --mode auto|collapsed|expanded
                   how lines that differ are shown; on a terminal auto,
                   else collapsed
  --color auto|always|never
                   colours for equal, similar and different lines
  --label REGEX    what lines begin with; its first group is the label
  --files          each file is what one label has said
  --whole          folds whole outputs instead of lines
  --count          puts the number of labels in front
  --json           one JSON object a line
  --follow         shows what agrees as it comes; Ctrl-C ends
  --help, --version
)";

// The index of a word in a list; nothing when it is none of them.
template <std::size_t N>
std::optional<std::size_t> choice(const std::array<std::string_view, N>& words,
                                  std::string_view word) {
    for (std::size_t i = 0; i < N; ++i)
        if (words[i] == word) return i;
    return std::nullopt;
}

int refuse(const std::string& problem) {
    std::fprintf(stderr, "vexfold: %s; try: vexfold --help\n", problem.c_str());
    return 2;
}

} // namespace

std::optional<int> Options::parse(int argc, char** argv) {
    enum { MODE = 256, COLOR, LABEL, FILES, WHOLE, COUNT, JSON, FOLLOW, HELP, VERSION };
    static constexpr option known[] = {{"mode", required_argument, nullptr, MODE},
                                       {"color", required_argument, nullptr, COLOR},
                                       {"label", required_argument, nullptr, LABEL},
                                       {"files", no_argument, nullptr, FILES},
                                       {"whole", no_argument, nullptr, WHOLE},
                                       {"count", no_argument, nullptr, COUNT},
                                       {"json", no_argument, nullptr, JSON},
                                       {"follow", no_argument, nullptr, FOLLOW},
                                       {"help", no_argument, nullptr, HELP},
                                       {"version", no_argument, nullptr, VERSION},
                                       {nullptr, 0, nullptr, 0}};
    static constexpr std::array<std::string_view, 3> modes{"auto", "collapsed", "expanded"};
    static constexpr std::array<std::string_view, 3> colors{"auto", "always", "never"};
    opterr = 0;
    for (int found; (found = ::getopt_long(argc, argv, ":h", known, nullptr)) != -1;) {
        switch (found) {
        case MODE:
            if (const auto which = choice(modes, optarg))
                mode = static_cast<Parser::Mode>(*which);
            else
                return refuse("--mode is auto, collapsed or expanded");
            break;
        case COLOR:
            if (const auto which = choice(colors, optarg))
                color = static_cast<Color>(*which);
            else
                return refuse("--color is auto, always or never");
            break;
        case LABEL:
            label = optarg;
            break;
        case FILES:
            labelsAreFiles = true;
            break;
        case WHOLE:
            whole = true;
            break;
        case COUNT:
            count = true;
            break;
        case JSON:
            json = true;
            break;
        case FOLLOW:
            follow = true;
            break;
        case HELP:
        case 'h':
            std::fputs(usage, stdout);
            return 0;
        case VERSION:
            std::puts("vexfold " VEX_VERSION);
            return 0;
        case ':':
            return refuse(std::string(argv[optind - 1]) + " needs a value");
        default:
            return refuse("there is no option " + std::string(argv[optind - 1]));
        }
    }
    files.assign(argv + optind, argv + argc);
    if (labelsAreFiles && files.empty()) return refuse("--files needs files");
    if (labelsAreFiles && !label.empty()) return refuse("--files and --label exclude each other");
    if (whole && follow) return refuse("--whole and --follow exclude each other");
    return std::nullopt;
}
