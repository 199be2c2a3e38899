#include "fold/printer.h"

#include "backend/folding/json.h"
#include "display/color.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace {

constexpr int everyLabel = -1;

// A console's colours of equal, similar and different lines.
constexpr int stateColors[] = {2, 9, 1};

} // namespace

// Compares the variants of a position with their leader, as a console does.
void Printer::judge(std::vector<Shown>& position) const {
    const bool matters = style.colors || style.json || style.mode == Parser::AUTO;
    if (position.size() < 2 || !matters) return;
    Data data;
    for (Shown& each : position) {
        Line line(0, Line::EQUAL);
        line.setKey(std::hash<std::string>()(each.text));
        line.setContent(each.text);
        line.addBEs(each.ranks);
        data.addLine(std::move(line));
    }
    Parser parser;
    parser.parse(&data);
    const auto& lines = data.slots().begin()->second.lines;
    for (std::size_t i = 0; i < position.size(); ++i)
        position[i].state = lines[i].getState();
}

void Printer::show(std::vector<Folder::Line>&& lines) {
    labels.rank();
    std::vector<Shown> gathered;
    for (std::size_t i = 0; i < lines.size();) {
        const std::size_t begin = gathered.size();
        const int number = lines[i].number;
        for (; i < lines.size() && lines[i].number == number; ++i)
            gathered.push_back(
                {number, labels.ranked(std::move(lines[i].clients)), std::move(lines[i].text)});
        const auto bySmallest = [](const Shown& a, const Shown& b) {
            return a.ranks.front() < b.ranks.front();
        };
        const auto from = gathered.begin() + static_cast<std::ptrdiff_t>(begin);
        if (!std::is_sorted(from, gathered.end(), bySmallest))
            std::stable_sort(from, gathered.end(), bySmallest);
        if (byLabel()) continue;
        showPosition(gathered);
        gathered.clear();
    }
    if (!gathered.empty()) showByLabel(gathered);
}

void Printer::showPosition(std::vector<Shown>& position) {
    judge(position);
    int weight = 0;
    for (const Shown& each : position)
        weight += each.state;
    if (style.mode == Parser::AUTO && !style.json && weight > labels.size() / 2)
        return showByLabel(position);
    for (const Shown& each : position)
        print(each, everyLabel);
}

// Label by label, each label's lines in their order.
void Printer::showByLabel(const std::vector<Shown>& lines) {
    std::vector<std::size_t> ends(static_cast<std::size_t>(labels.size()) + 1);
    for (const Shown& line : lines)
        for (const int rank : line.ranks)
            ++ends[static_cast<std::size_t>(rank)];
    std::size_t sum = 0;
    for (std::size_t& each : ends)
        sum += std::exchange(each, sum);
    std::vector<std::size_t> order(sum);
    for (std::size_t i = 0; i < lines.size(); ++i)
        for (const int rank : lines[i].ranks)
            order[ends[static_cast<std::size_t>(rank)]++] = i;
    std::size_t at = 0;
    for (int rank = 0; rank < labels.size(); ++rank)
        for (; at < ends[static_cast<std::size_t>(rank)]; ++at)
            print(lines[order[at]], rank);
}

void Printer::begin(Line::State state, std::size_t labelCount) {
    if (style.colors) out.text() += colorList[stateColors[state]].detail;
    if (style.count) out.text().append(std::to_string(labelCount)) += ' ';
}

void Printer::end() {
    if (style.colors) out.text() += END_COLOR;
    out.text() += '\n';
    out.grown();
}

// A line of one label, or of all that have said it.
void Printer::print(const Shown& line, int rank) {
    if (style.json) return printJson(line);
    begin(line.state, rank == everyLabel ? line.ranks.size() : 1);
    if (rank == everyLabel)
        labels.add(out.text(), line.ranks);
    else
        labels.add(out.text(), rank);
    out.text().append(" | ").append(line.text);
    end();
}

void Printer::printJson(const Shown& line) {
    std::string name;
    labels.add(name, line.ranks);
    std::string& text = out.text();
    text += '{';
    if (style.count) text.append("\"count\":").append(std::to_string(line.ranks.size())) += ',';
    text += "\"labels\":";
    Json::add(text, name);
    Json::addText(text, line.text);
    constexpr const char* names[] = {"equal", "similar", "different"};
    text.append(",\"state\":\"").append(names[line.state]);
    text.append("\",\"position\":").append(std::to_string(line.number)).append("}\n");
    out.grown();
}

void Printer::showStray(std::string_view line, int position) {
    std::string& text = out.text();
    if (style.json) {
        text += "{\"labels\":null";
        Json::addText(text, line);
        text.append(",\"state\":null,\"position\":").append(std::to_string(position)).append("}\n");
    } else {
        text.append(line) += '\n';
    }
    out.grown();
}

void Printer::show(const std::vector<Whole>& texts) {
    labels.rank();
    std::vector<Shown> all;
    for (const Whole& each : texts)
        all.push_back({0, labels.ranked(each.clients), each.text});
    std::stable_sort(all.begin(), all.end(), [](const Shown& a, const Shown& b) {
        return a.ranks.front() < b.ranks.front();
    });
    judge(all);
    for (const Shown& each : all) {
        if (style.json) {
            printJson(each);
            continue;
        }
        begin(each.state, each.ranks.size());
        labels.add(out.text(), each.ranks);
        end();
        out.text() += each.text;
        out.grown();
    }
}
