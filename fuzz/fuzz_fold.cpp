#include "fold/labeller.h"
#include "fold/labels.h"
#include "fold/linefold.h"
#include "fold/output.h"
#include "fold/printer.h"
#include "fuzz/fuzz.h"

#include <fcntl.h>

// The first byte chooses what is done with the labelled lines behind it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (size == 0) return 0;
    const unsigned how = bytes[0];
    const std::string text = textOf(bytes + 1, size - 1);
    Output out(nowhere);
    Labels labels;
    Printer printer({static_cast<Parser::Mode>(how % 3), (how & 4) != 0, (how & 8) != 0, true},
                    labels, out);
    const bool follows = (how & 16) != 0;
    LineFold fold(labels, printer, follows, !follows && (how & 32) != 0);
    std::optional<LabelPattern> pattern;
    if (how & 64) pattern.emplace("([\\w.]+)[:=]");
    Labeller labeller(fold, std::move(pattern), (how & 128) != 0);
    Clock::time_point now{};
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        labeller.add(std::string_view(text).substr(at, end - at), now);
        at = end + 1;
        now += std::chrono::milliseconds(50);
        if (follows) fold.showDue(now);
        if (follows && at > 64 && labeller.undecided()) labeller.decide(now);
    }
    labeller.decide(now);
    fold.finish();
    out.flush();
    return 0;
}
