#include "fold/labeller.h"

#include "backend/folding/safetext.h"

#include <utility>

void Labeller::add(std::string_view line, Clock::time_point now) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (decided || pattern || label) return handOver(line, now);
    guess.look(line);
    held.emplace_back(line);
    if (held.size() == enough) decide(now);
}

void Labeller::decide(Clock::time_point now) {
    decided = true;
    form = guess.best();
    for (const std::string& line : std::exchange(held, {}))
        handOver(line, now);
}

void Labeller::handOver(std::string_view line, Clock::time_point now) {
    std::optional<LabelledLine> divided;
    if (label)
        divided = {*label, line};
    else if (pattern)
        divided = pattern->divide(line);
    else if (form)
        divided = LabelForm::divide(*form, line);
    if (!divided)
        fold.addStray(isSafe ? SafeText::line(std::string(line)) : line);
    else if (isSafe)
        fold.add(SafeText::of(std::string(divided->label)),
                 SafeText::line(std::string(divided->text)), now);
    else
        fold.add(divided->label, divided->text, now);
}
