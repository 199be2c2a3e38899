#include "console/tabcontext.h"

#include "common/groupnames.h"
#include "console/readline.h"
#include "console/tables.h"
#include "display/color.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace {

// The words of the tables, in their order.
std::vector<WordPool::Word> tableWords() {
    std::vector<WordPool::Word> words;
    for (const Topic& command : cmdList)
        words.emplace_back(command.name);
    for (const Topic& topic : topicList)
        words.emplace_back(topic.name);
    for (const Color& color : colorList)
        words.emplace_back(color.name);
    for (const char* option : optionList)
        words.emplace_back(option);
    for (const DumpTopic& mode : dcmdList)
        words.emplace_back(mode.name);
    for (const BcastTopic& word : bcastList)
        words.emplace_back(word.name);
    words.emplace_back(GroupNames::filtered);
    return words;
}

} // namespace

TabContext::TabContext() { replay({}); }

bool TabContext::offer(const Data& kept) {
    if (!complete) return false;
    // The few that are not there yet, in their order.
    WordPool fresh;
    const auto end = kept.slots().end();
    auto slot = end;
    for (const int number : kept.pending()) {
        // Mostly one slot after the other, behind those that were released.
        if (slot == end && (kept.slots().empty() || number < kept.slots().begin()->first)) continue;
        if (slot == end || ++slot == end || slot->first != number) slot = kept.slots().find(number);
        if (slot == end) continue;
        const auto& lines = slot->second.lines;
        // The editor need not wait for the whole record.
        const Readline::LockedPool pool = Readline::lockPool();
        std::string_view before;
        for (std::size_t i = slot->second.merged; i < lines.size(); ++i) {
            // The words of the line before are there, or fresh.
            const std::string_view line = lines[i].getContent();
            WordCutter cutter(line, before);
            before = line;
            for (auto text = cutter.next(); !text.empty(); text = cutter.next()) {
                const WordPool::Word word(text);
                if (pool.words.contains(word)) continue;
                fresh.add(word);
                if (pool.words.size() + fresh.size() > WordPool::capacity || pool.words.dropped())
                    return false;
            }
        }
    }
    const Readline::LockedPool pool = Readline::lockPool();
    for (std::uint64_t i = 0; i < fresh.size(); ++i)
        pool.words.add(WordPool::Word(fresh.text(i)));
    pool.words.settle();
    return true;
}

void TabContext::replay(const Data& kept) {
    static const std::vector<WordPool::Word> tables = tableWords();
    std::uint64_t droppedBefore = 0;
    {
        const Readline::LockedPool pool = Readline::lockPool();
        droppedBefore = pool.words.dropped();
    }
    auto known = slots.begin();
    for (const auto& [number, slot] : kept.slots()) {
        while (known != slots.end() && known->first < number)
            known = slots.erase(known);
        if (known == slots.end() || known->first != number)
            known = slots.emplace_hint(known, number, SlotWords());
        // The editor need not wait for all slots.
        const Readline::LockedPool pool = Readline::lockPool();
        known->second.replay(slot, pool.words);
        ++known;
    }
    slots.erase(known, slots.end());
    const Readline::LockedPool pool = Readline::lockPool();
    for (const WordPool::Word& word : tables)
        pool.words.add(word);
    pool.words.settle();
    complete = pool.words.dropped() == droppedBefore;
}
