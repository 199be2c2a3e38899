#include "backend/folding/valuetable.h"

#include "backend/os/text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <limits>

namespace {

constexpr int shortly = 6; // digits, as %g shows them
constexpr int exact = 15;  // digits that each double has
constexpr int utmost = std::numeric_limits<long double>::max_digits10;

std::string shown(long double number, int digits = shortly) {
    std::array<char, 64> text{};
    if (digits > exact)
        std::snprintf(text.data(), text.size(), "%.*Lg", digits, number);
    else
        std::snprintf(text.data(), text.size(), "%.*g", digits, static_cast<double>(number));
    return text.data();
}

bool isWhole(long double number, long double below) {
    return std::trunc(number) == number && std::abs(number) < below;
}

// Whole numbers, counters of iterations say, are told apart by their last digit, too.
std::string shownExactly(long double number) {
    return shown(number, isWhole(number, 1e15L) ? exact : shortly);
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
    if (value.isStatic)
        frames["evaluated without a process: what the program begins with"].insert(client);
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
    // Deviations are those of the distance to the least: it is exact for large values, too.
    const long double least = finite.begin()->first;
    long double sum = 0, distances = 0, squares = 0;
    for (const auto& [value, clients] : finite) {
        all.insert(clients);
        sum += value * clients.size();
        distances += (value - least) * clients.size();
    }
    const auto count = static_cast<long double>(all.size());
    for (const auto& [value, clients] : finite) {
        const long double deviation = value - least - distances / count;
        squares += deviation * deviation * clients.size();
    }
    const auto extreme = [](const auto& entry) {
        return shown(entry.first) + " (" + Text::list(entry.second) + ")";
    };
    rows.push_back({"min " + extreme(*finite.begin()), all});
    rows.push_back({"max " + extreme(*finite.rbegin()), all});
    rows.push_back({"mean " + shown(sum / count), all});
    rows.push_back({"sd " + shown(std::sqrt(squares / count)), all});
}

// A row for each value, if there are few enough that look different.
std::vector<StackTree::Row> ValueTable::bars() const {
    std::map<std::string, int> values; // by what they look like
    for (const auto& [value, clients] : finite)
        ++values[shownExactly(value)];
    std::vector<StackTree::Row> rows;
    for (const auto& [value, clients] : finite) {
        std::string text = shownExactly(value);
        constexpr long double beyond = 0x1p64L; // more than integers of 64 bits
        if (values[text] > 1 && isWhole(value, beyond)) text = shown(value, utmost);
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
    const int digits =
        std::clamp(static_cast<int>(std::ceil(std::log10(ratio))) + 2, shortly, utmost);
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
