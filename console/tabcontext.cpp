#include "console/tabcontext.h"

#include "common/groupnames.h"
#include "console/readline.h"
#include "console/tables.h"
#include "display/color.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

// The words of the lines, in their order; they point into the lines.
void collectWords(const Data& data, std::vector<std::string_view>& words) {
    static constexpr char delimiters[] = " \t+=-/\\<>()[]{}.,;|*&%!?#'@\"";
    for (const auto& [number, slot] : data.slots()) {
        for (const auto& line : slot.lines) {
            const std::string_view text = line->getContent();
            for (std::size_t at = text.find_first_not_of(delimiters); at != text.npos;) {
                const std::size_t end = std::min(text.find_first_of(delimiters, at), text.size());
                const unsigned char c = static_cast<unsigned char>(text[at]);
                if (end - at > 1 && !std::isspace(c) && !std::isdigit(c) && std::isprint(c))
                    words.push_back(text.substr(at, end - at));
                at = text.find_first_not_of(delimiters, end);
            }
        }
    }
}

} // namespace

void addTabContext(const Data& lastData) {
    std::vector<std::string_view> words;
    collectWords(lastData, words);
    for (const Topic& command : cmdList)
        words.push_back(command.name);
    for (const Topic& topic : topicList)
        words.push_back(topic.name);
    for (const Color& color : colorList)
        words.push_back(color.name);
    words.insert(words.end(), std::begin(optionList), std::end(optionList));
    for (const DumpTopic& mode : dcmdList)
        words.push_back(mode.name);
    for (const BcastTopic& word : bcastList)
        words.push_back(word.name);
    words.push_back(GroupNames::filtered);
    Readline::addContexts(words);
}

// Called for every record: as long as no word ever had to make room, all others are there already
// and only those of the record can be new.
void addNewTabContext(const Data& record, const Data& lastData) {
    std::vector<std::string_view> words;
    collectWords(record, words);
    if (!Readline::addContextsIfRoom(words)) addTabContext(lastData);
}
