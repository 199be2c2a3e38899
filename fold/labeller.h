#pragma once

#include "backend/os/clock.h"
#include "fold/labelform.h"
#include "fold/linefold.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Divides lines into labels and texts, and hands them to a LineFold. Where the form of the labels
/// is to be found out, the first lines are held until it is known.
class Labeller {
  public:
    /// Safe: what is to be shown on a terminal gets no control bytes. The fold must outlive this.
    Labeller(LineFold& to, std::optional<LabelPattern> expression, bool safe)
        : fold(to), pattern(std::move(expression)), isSafe(safe) {}

    /// All lines are what this label has said, from now on.
    void setLabel(const std::string& only) { label = only; }
    /// A line without its newline.
    void add(std::string_view line, Clock::time_point now);
    /// Whether lines are held.
    bool undecided() const { return !held.empty(); }
    /// No more lines are waited for to know the form.
    void decide(Clock::time_point now);

  private:
    static constexpr std::size_t enough = 1000;

    LineFold& fold;
    const std::optional<LabelPattern> pattern;
    const bool isSafe;
    std::optional<std::string> label;
    FormGuess guess;
    std::vector<std::string> held;
    bool decided = false;
    std::optional<LabelForm::Kind> form;

    void handOver(std::string_view line, Clock::time_point now);
};
