#include "display/parser.h"

#include "common/catalog.h"
#include "display/levenshtein.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <set>

namespace {

// Printed text is handed on in pieces of about this many bytes.
constexpr std::size_t outputChunk = 65536;

} // namespace

std::size_t hash2Key(std::size_t a, std::size_t b) { return std::max(a, b) * 5 + std::min(a, b); }

std::string itoa(int number) { return std::to_string(number); }

void Parser::setColor(const char* color, ColorT type) {
    switch (type) {
    case EQUAL_COLOR:
        ecolor = color;
        return;
    case SIMILAR_COLOR:
        scolor = color;
        return;
    case DIFFERENT_COLOR:
        dcolor = color;
        return;
    }
    std::puts("wrong color type. ");
}

Line::State Parser::compare(Line* line1, Line* line2) {
    assert(line1 && line2);
    const std::size_t pair = hash2Key(line1->getKey(), line2->getKey());
    if (const auto known = distances.find(pair); known != distances.end()) return known->second;
    const std::string& a = line1->getContent();
    const std::string& b = line2->getContent();
    const std::size_t longer = std::max(a.size(), b.size());
    const std::size_t gap = longer - std::min(a.size(), b.size());
    Line::State verdict = Line::DIFFERENT;
    if (a == b) {
        verdict = Line::EQUAL;
    } else if (5 * gap < longer) {
        // The distance is at least the difference in length: anything else is settled above.
        const std::size_t distance = static_cast<std::size_t>(Levenshtein::Distance(a, b));
        if (5 * distance < longer) verdict = Line::SIMILAR;
    }
    distances.emplace(pair, verdict);
    return verdict;
}

void Parser::parse(Data* data) {
    assert(data);
    for (const auto& [number, slot] : data->slots()) {
        const auto& variants = slot.lines;
        int leader = 0;
        // The reference count stays that of the first variant, so the last larger one leads.
        for (std::size_t j = 1; j < variants.size(); ++j) {
            if (variants[j]->numOfBE() > variants[0]->numOfBE()) leader = static_cast<int>(j);
        }
        leaders.push_back(leader);
        weights.push_back(0);
    }
    std::size_t position = leaders.size() - data->slots().size();
    for (const auto& [number, slot] : data->slots()) {
        const auto& variants = slot.lines;
        const std::size_t leader = static_cast<std::size_t>(leaders[position]);
        for (std::size_t j = 0; j < variants.size(); ++j) {
            if (j == leader) continue;
            const Line::State state = compare(variants[leader].get(), variants[j].get());
            assert(state != Line::EQUAL);
            variants[j]->setState(state);
            weights[position] += state == Line::SIMILAR ? 1 : 2;
        }
        ++position;
    }
}

bool Parser::dump(Data* data, Mode mode, const char* pattern) {
    assert(data);
    bool valid = true;
    try {
        switch (mode) {
        case AUTO:
            dumpAuto(data, pattern);
            break;
        case COLLAPSED:
            dumpCollapsed(data, pattern);
            break;
        case EXPANDED:
            dumpExpanded(data, pattern);
            break;
        }
    } catch (const BadPattern&) {
        valid = false;
        out += endColor;
        out.append(Catalog::get(HELP_MATCH_BRIEF)).append("\n\n");
        out += Catalog::get(HELP_MATCH_DETAIL);
    }
    flush(0);
    std::fflush(stdout);
    return valid;
}

void Parser::dumpCollapsed(Data* data, const char* pattern) {
    parse(data);
    for (const auto& [number, slot] : data->slots()) {
        for (const auto& line : slot.lines)
            dumpLine(line.get(), pattern);
    }
}

// Prints variants client by client, each client's lines in the order of the variants. A sweep over
// the ends of the clients' ranges keeps the set of variants that the current client printed, so
// clients without output cost nothing.
template <class Variants>
void Parser::printPerClient(const Variants& variants, Data* data, const char* pattern) {
    struct Edge {
        long long id;
        bool starts;
        std::size_t variant;
    };
    std::vector<Edge> edges;
    for (std::size_t v = 0; v < variants.size(); ++v) {
        for (const ClientSet::Range& r : variants[v]->clients().ranges()) {
            const int first = std::max(r.first, data->getMinId());
            const int last = std::min(r.last, data->getMaxId());
            if (first > last) continue;
            edges.push_back({first, true, v});
            edges.push_back({last + 1LL, false, v});
        }
    }
    std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.id < b.id; });
    std::set<std::size_t> present;
    for (std::size_t e = 0; e < edges.size();) {
        long long id = edges[e].id;
        for (; e < edges.size() && edges[e].id == id; ++e) {
            if (edges[e].starts)
                present.insert(edges[e].variant);
            else
                present.erase(edges[e].variant);
        }
        if (present.empty()) continue;
        for (; id < edges[e].id; ++id) {
            for (std::size_t v : present)
                dumpLine(variants[v], static_cast<int>(id), pattern);
        }
    }
}

void Parser::dumpExpanded(Data* data, const char* pattern) {
    std::vector<Line*> variants;
    for (const auto& [number, slot] : data->slots()) {
        for (const auto& line : slot.lines)
            variants.push_back(line.get());
    }
    printPerClient(variants, data, pattern);
}

void Parser::dumpAuto(Data* data, const char* pattern) {
    parse(data);
    const int half = data->numOfBE() / 2;
    std::size_t position = 0;
    for (const auto& [number, slot] : data->slots()) {
        std::vector<Line*> variants;
        for (const auto& line : slot.lines)
            variants.push_back(line.get());
        if (weights[position++] > half) {
            printPerClient(variants, data, pattern);
        } else {
            for (Line* line : variants)
                dumpLine(line, pattern);
        }
    }
}

void Parser::dumpLine(Line* line, const char* pattern) {
    assert(line);
    printColor(*line);
    std::string text = line->clients().str();
    text += "| ";
    text += line->getContent();
    printText(text, pattern);
}

void Parser::dumpLine(Line* line, int id, const char* pattern) {
    assert(line);
    if (!line->clients().contains(id)) return;
    printColor(*line);
    printText(itoa(id) + " | " + line->getContent(), pattern);
}

void Parser::printColor(const Line& line) {
    switch (line.getState()) {
    case Line::EQUAL:
        out += ecolor;
        return;
    case Line::SIMILAR:
        out += scolor;
        return;
    case Line::DIFFERENT:
        out += dcolor;
        return;
    }
    assert(!"Undefined line state");
}

void Parser::printText(const std::string& text, const char* pattern) {
    bool printed = true;
    if (pattern && *pattern) {
        // Compiled when the first line is to be printed: that is when a bad cascade is noticed.
        if (!filter) {
            filter.emplace();
            if (filter->compare(pattern) == -1) throw BadPattern();
        }
        printed = filter->filter(text.c_str(), out);
    } else {
        out += text;
    }
    out += endColor;
    if (printed) out += '\n';
    flush(outputChunk);
}

void Parser::flush(std::size_t limit) {
    if (out.size() <= limit) return;
    std::fwrite(out.data(), 1, out.size(), stdout);
    out.clear();
}
