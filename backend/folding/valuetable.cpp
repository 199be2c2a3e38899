#include "backend/folding/valuetable.h"

#include "backend/os/text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>

namespace {

constexpr int shortly = 6; // digits, as %g shows them

std::string shown(long double number, int digits = shortly) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.*g", digits, static_cast<double>(number));
    return text.data();
}

// Whole numbers, counters of iterations say, are told apart by their last digit, too.
std::string shownExactly(double number) {
    constexpr int exact = 15; // digits that each double has
    const bool whole = std::trunc(number) == number && std::abs(number) < 1e15;
    return shown(number, whole ? exact : shortly);
}

std::string counted(const std::string& what, const ClientSet& clients) {
    return what + ": " + std::to_string(clients.size()) +
           (clients.size() == 1 ? " client" : " clients");
}

} // namespace

void ValueTable::add(int client, const Driver::Value& value) {
    if (known.contains(client)) return;
    known.insert(client);
    if (!value.number)
        texts[value.text].insert(client);
    else if (std::isnan(*value.number))
        notNumbers.insert(client);
    else if (std::isinf(*value.number))
        infinite.insert(client);
    else
        finite[*value.number].insert(client);
    if (!value.function.empty())
        frames["evaluated in " + value.function +
               (value.isSelected ? ", the selected frame" : ", the program's innermost frame")]
            .insert(client);
}

std::vector<StackTree::Row> ValueTable::commonFirst(const std::map<std::string, ClientSet>& map) {
    std::vector<StackTree::Row> rows;
    for (const auto& [text, clients] : map)
        rows.push_back({text, clients});
    std::ranges::stable_sort(rows, [](const auto& one, const auto& other) {
        return one.clients.size() > other.clients.size();
    });
    return rows;
}

ValueTable::Report ValueTable::report() const {
    Report report;
    report.rows = commonFirst(frames);
    if (!finite.empty()) tellMoments(report.rows);
    if (!notNumbers.empty()) report.rows.push_back({"NaN: " + Text::list(notNumbers), notNumbers});
    if (!infinite.empty()) report.rows.push_back({"inf: " + Text::list(infinite), infinite});
    for (auto& part : {bars(), commonFirst(texts)}) {
        for (const StackTree::Row& row : part) {
            report.groups.push_back(row.clients);
            report.rows.push_back(row);
        }
    }
    return report;
}

void ValueTable::tellMoments(std::vector<StackTree::Row>& rows) const {
    ClientSet all;
    long double sum = 0, squares = 0;
    for (const auto& [value, clients] : finite) {
        all.insert(clients);
        sum += static_cast<long double>(value) * clients.size();
    }
    const auto count = static_cast<long double>(all.size());
    const long double mean = sum / count;
    for (const auto& [value, clients] : finite)
        squares += (value - mean) * (value - mean) * clients.size();
    const auto extreme = [](const auto& entry) {
        return shown(entry.first) + " (" + Text::list(entry.second) + ")";
    };
    rows.push_back({"min " + extreme(*finite.begin()), all});
    rows.push_back({"max " + extreme(*finite.rbegin()), all});
    rows.push_back({"mean " + shown(mean), all});
    rows.push_back({"sd " + shown(std::sqrt(squares / count)), all});
}

// A row for each value, if there are few enough that look different.
std::vector<StackTree::Row> ValueTable::bars() const {
    std::vector<StackTree::Row> rows;
    for (const auto& [value, clients] : finite) {
        std::string text = shownExactly(value);
        if (!rows.empty() && rows.back().text == text)
            rows.back().clients.insert(clients);
        else if (rows.size() == maxBars)
            return widths();
        else
            rows.push_back({std::move(text), clients});
    }
    for (StackTree::Row& row : rows)
        row.text = counted(row.text, row.clients);
    return rows;
}

// Rows of equal width; those without a value are left out.
std::vector<StackTree::Row> ValueTable::widths() const {
    const long double low = finite.begin()->first, high = finite.rbegin()->first;
    const long double width = (high - low) / maxBars;
    std::array<ClientSet, maxBars> bins;
    for (const auto& [value, clients] : finite) {
        const auto bin = static_cast<std::size_t>((value - low) / width);
        bins[std::min(bin, maxBars - 1)].insert(clients);
    }
    // As many digits as tell the rows' ends apart.
    const long double ratio = std::max(std::abs(low), std::abs(high)) / width;
    const int digits = std::clamp(static_cast<int>(std::ceil(std::log10(ratio))) + 2, shortly, 15);
    std::vector<StackTree::Row> rows;
    for (std::size_t i = 0; i < maxBars; ++i) {
        const auto begin = low + width * static_cast<long double>(i);
        if (!bins[i].empty())
            rows.push_back(
                {counted(shown(begin, digits) + " to " + shown(begin + width, digits), bins[i]),
                 bins[i]});
    }
    return rows;
}
