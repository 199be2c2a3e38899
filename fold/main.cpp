// vexfold: folds labelled lines as a console does, without a debugger.
#include "fold/filelabels.h"
#include "fold/labeller.h"
#include "fold/labels.h"
#include "fold/linefold.h"
#include "fold/options.h"
#include "fold/output.h"
#include "fold/printer.h"
#include "fold/source.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

constexpr int interruptStatus = 128 + SIGINT;

bool wantsColors(const Options& options, bool terminal) {
    const char* const refused = std::getenv("NO_COLOR");
    if (options.color == Options::AUTO) return terminal && !(refused && *refused);
    return options.color == Options::ALWAYS;
}

class Program {
  public:
    explicit Program(const Options& wanted)
        : options(wanted),
          terminal(::isatty(STDOUT_FILENO) == 1),
          printer(style(), labels, out),
          fold(labels, printer, options.follow, options.whole),
          labeller(fold, pattern(), terminal) {}

    int run() {
        const std::vector<std::string> names =
            options.files.empty() ? std::vector<std::string>{""} : options.files;
        const std::vector<std::string> fileLabels = FileLabels::of(names);
        for (std::size_t i = 0; i < names.size() && !interrupted; ++i) {
            if (options.labelsAreFiles) labeller.setLabel(fileLabels[i]);
            readAll(names[i]);
        }
        labeller.decide(Clock::now());
        fold.finish();
        out.flush();
        if (const std::size_t count = fold.strays())
            std::fprintf(stderr, "vexfold: %zu line%s nobody\n", count,
                         count == 1 ? " belongs to" : "s belong to");
        return interrupted ? interruptStatus : status;
    }

  private:
    const Options& options;
    const bool terminal;
    Labels labels;
    Output out{STDOUT_FILENO};
    Printer printer;
    LineFold fold;
    Labeller labeller;
    std::optional<Clock::time_point> decideAt;
    int status = 0;

    Printer::Style style() const {
        return {options.mode.value_or(terminal ? Parser::AUTO : Parser::COLLAPSED),
                wantsColors(options, terminal), options.json, options.count};
    }
    std::optional<LabelPattern> pattern() const {
        if (options.label.empty()) return std::nullopt;
        return LabelPattern(options.label);
    }

    void readAll(const std::string& name) {
        try {
            Source source(name);
            std::vector<std::string_view> lines;
            Source::Result result = Source::LINES;
            while (result != Source::END && !interrupted) {
                result = source.read(patience(), lines);
                const Clock::time_point now = options.follow ? Clock::now() : Clock::time_point();
                for (const std::string_view line : lines)
                    labeller.add(line, now);
                if (options.follow) showDue(now);
            }
        } catch (const std::system_error& fault) {
            std::fprintf(stderr, "vexfold: %s\n", fault.what());
            status = 1;
        }
    }

    // How long to wait for input; nothing: until it comes.
    std::optional<std::chrono::milliseconds> patience() const {
        if (!options.follow) return std::nullopt;
        std::optional<Clock::time_point> next = fold.due();
        if (decideAt && (!next || *decideAt < *next)) next = decideAt;
        if (!next) return std::chrono::milliseconds(-1);
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now());
        return std::max(left, std::chrono::milliseconds(0));
    }

    void showDue(Clock::time_point now) {
        if (!labeller.undecided()) {
            decideAt.reset();
        } else if (!decideAt) {
            decideAt = now + Wait::window;
        } else if (*decideAt <= now) {
            labeller.decide(now);
            decideAt.reset();
        }
        fold.showDue(now);
        out.flush();
    }
};

} // namespace

int main(int argc, char** argv) {
    Options options;
    if (const auto status = options.parse(argc, argv)) return *status;
    std::signal(SIGPIPE, SIG_DFL);
    if (options.follow) {
        struct sigaction action {};
        action.sa_handler = onInterrupt;
        ::sigaction(SIGINT, &action, nullptr);
        // It comes while input is waited for.
        sigset_t held;
        ::sigemptyset(&held);
        ::sigaddset(&held, SIGINT);
        ::sigprocmask(SIG_BLOCK, &held, nullptr);
    }
    try {
        return Program(options).run();
    } catch (const std::system_error& fault) {
        std::fprintf(stderr, "vexfold: %s\n", fault.what());
        return 1;
    } catch (const std::runtime_error& mistake) {
        std::fprintf(stderr, "vexfold: --label '%s': %s\n", options.label.c_str(), mistake.what());
        return 2;
    }
}
