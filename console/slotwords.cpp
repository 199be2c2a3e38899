#include "console/slotwords.h"

#include "common/bytes/commonends.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace {

// Lines of one slot that come at once and are not taken apart before they are needed again.
constexpr std::size_t mostAtOnce = 4096;

enum ByteClass : unsigned char { DELIMITER, BEGINNING, INNER };

// What each byte may be in a word.
const std::array<unsigned char, 256>& byteClasses() {
    static const auto classes = [] {
        std::array<unsigned char, 256> table{};
        for (int c = 0; c < 256; ++c)
            table[static_cast<std::size_t>(c)] =
                !std::isspace(c) && !std::isdigit(c) && std::isprint(c) ? BEGINNING : INNER;
        for (const unsigned char c : std::string_view(" \t+=-/\\<>()[]{}.,;|*&%!?#'@\""))
            table[c] = DELIMITER;
        return table;
    }();
    return classes;
}

} // namespace

std::string_view WordCutter::next() {
    const auto& classes = byteClasses();
    const auto classOf = [&](const char* at) { return classes[static_cast<unsigned char>(*at)]; };
    const char* at = rest.data();
    const char* const end = at + rest.size();
    for (;;) {
        while (at != end && classOf(at) == DELIMITER)
            ++at;
        const char* const begin = at;
        while (at != end && classOf(at) != DELIMITER)
            ++at;
        if (begin == end || (at - begin > 1 && classOf(begin) == BEGINNING)) {
            rest = {at, static_cast<std::size_t>(end - at)};
            return {begin, static_cast<std::size_t>(at - begin)};
        }
    }
}

WordCutter::WordCutter(std::string_view line, std::string_view before) : rest(line) {
    const auto& classes = byteClasses();
    const auto delimits = [&](char c) {
        return classes[static_cast<unsigned char>(c)] == DELIMITER;
    };
    std::size_t begin = CommonEnds::head(line, before);
    const std::size_t shared = CommonEnds::tail(line.substr(begin), before.substr(begin));
    std::size_t end = line.size() - shared;
    // A word that goes beyond what both have in common is another one.
    while (begin > 0 && !delimits(line[begin - 1]))
        --begin;
    while (end < line.size() && !delimits(line[end]))
        ++end;
    rest = line.substr(begin, end - begin);
}

namespace {

// Takes the place of the words before by those of a line.
template <class Words>
void cut(std::string_view line, Words& words) {
    words.clear();
    WordCutter cutter(line);
    for (auto word = cutter.next(); !word.empty(); word = cutter.next())
        words.emplace_back(word);
}

} // namespace

// Takes the lines in that have come since.
void SlotWords::read(const Data::Slot& slot) {
    Words before, now;
    if (lines > 0) cut(slot.lines[lines - 1].getContent(), before);
    for (; lines < slot.lines.size(); ++lines) {
        cut(slot.lines[lines].getContent(), now);
        const std::size_t first = steps.size();
        if (now.size() == before.size() && !steps.empty()) {
            for (std::size_t i = 0; i < now.size(); ++i) {
                if (!(now[i] == before[i]))
                    steps.push_back({Step::CHANGE, false, static_cast<std::uint32_t>(i), now[i]});
            }
            if (steps.size() == first) {
                if (steps.back().kind == Step::REPEAT)
                    ++steps.back().count;
                else
                    steps.push_back({Step::REPEAT, true, 1, {}});
                continue;
            }
        } else {
            for (const WordPool::Word& word : now)
                steps.push_back({Step::WHOLE, false, 0, word});
            // A line without words leaves nothing to be compared with.
            if (now.empty()) steps.push_back({Step::WHOLE, true, 0, {}});
        }
        steps.back().last = true;
        before.swap(now);
    }
    if (steps.capacity() > 2 * steps.size()) steps.shrink_to_fit();
}

// Adds the words; `oldest` is the number of the entry that is the first of them to be dropped.
void SlotWords::addAll(const Words& words, WordPool& pool, std::uint64_t& oldest) {
    oldest = std::numeric_limits<std::uint64_t>::max();
    for (const WordPool::Word& word : words)
        oldest = std::min(oldest, pool.add(word));
}

void SlotWords::replay(const Data::Slot& slot, WordPool& pool) {
    if (version != slot.version) *this = {};
    version = slot.version;
    if (!streamed && lines == 0 && slot.lines.size() > mostAtOnce) {
        streamed = true;
        for (const Line& line : slot.lines) {
            WordCutter cutter(line.getContent());
            for (auto word = cutter.next(); !word.empty(); word = cutter.next())
                pool.add(WordPool::Word(word));
        }
        return;
    }
    read(slot);
    Words words, changed;
    std::uint64_t oldest = 0;
    bool whole = false; // the words are being replaced by those of another line
    for (const Step& step : steps) {
        if (step.kind == Step::REPEAT) {
            // Once a line's words are all there, its repetitions change nothing.
            for (std::uint32_t n = step.count; n > 0 && oldest < pool.dropped(); --n)
                addAll(words, pool, oldest);
            continue;
        }
        if (step.kind == Step::WHOLE) {
            if (!whole) words.clear();
            whole = !step.last;
            if (!step.word.text.empty()) words.push_back(step.word);
            if (step.last) addAll(words, pool, oldest);
            continue;
        }
        words[step.count] = step.word;
        changed.push_back(step.word);
        if (!step.last) continue;
        // The other words stay where they are unless one of them is dropped on the way.
        if (pool.dropped() + changed.size() <= oldest) {
            for (const WordPool::Word& each : changed)
                oldest = std::min(oldest, pool.add(each));
        } else {
            addAll(words, pool, oldest);
        }
        changed.clear();
    }
}
