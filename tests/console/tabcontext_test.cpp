#include "common/groupnames.h"
#include "console/readline.h"
#include "console/tabcontext.h"
#include "console/tables.h"
#include "display/color.h"
#include "tests/support/output.h"
#include "tests/support/testing.h"

#include <deque>
#include <unordered_set>

namespace {

// The pool by the letter: all words of the output and of the tables, again for every record.
struct Model {
    std::deque<std::string> pool;
    std::unordered_set<std::string> members;
    bool full = false; // a word has been dropped

    void add(const std::string& word) {
        if (!members.insert(word).second) return;
        if (pool.size() == 400) {
            members.erase(pool.front());
            pool.pop_front();
            full = true;
        }
        pool.push_back(word);
    }
    static Lines wordsOf(const Data& data) {
        Lines words;
        for (const auto& [number, slot] : data.slots()) {
            for (const Line& line : slot.lines) {
                std::string text(line.getContent());
                const char* delimiters = " \t+=-/\\<>()[]{}.,;|*&%!?#'@\"";
                for (char* at = std::strtok(text.data(), delimiters); at;
                     at = std::strtok(nullptr, delimiters)) {
                    const unsigned char c = static_cast<unsigned char>(*at);
                    if (at[1] && !std::isspace(c) && !std::isdigit(c) && std::isprint(c))
                        words.push_back(at);
                }
            }
        }
        return words;
    }
    void addAll(const Lines& words) {
        for (const std::string& word : words)
            add(word);
    }
    void addTables() {
        for (const Topic& row : cmdList)
            add(row.name);
        for (const Topic& row : topicList)
            add(row.name);
        for (const Color& row : colorList)
            add(row.name);
        for (const char* option : optionList)
            add(option);
        for (const DumpTopic& row : dcmdList)
            add(row.name);
        for (const BcastTopic& row : bcastList)
            add(row.name);
        add(GroupNames::filtered);
    }
    void handle(const Data& kept) {
        addAll(wordsOf(kept));
        addTables();
    }
};

Lines poolNow() {
    const Readline::LockedPool pool = Readline::lockPool();
    Lines texts;
    for (std::uint64_t i = 0; i < pool.words.size(); ++i)
        texts.emplace_back(pool.words.text(pool.words.dropped() + i));
    return texts;
}

TEST(TabContext, IsThePoolByTheLetter) {
    std::mt19937 random(2);
    const auto pick = [&](unsigned below) { return static_cast<int>(random() % below); };
    TabContext context;
    Model model;
    for (const std::string& word : poolNow())
        model.add(word);
    model.full = model.pool.size() == 400; // by other tests of this process
    model.addTables();
    Data kept;
    for (int round = 0; round < 150; ++round) {
        if (pick(10) == 0) {
            kept.clearLine();
            context.forget();
        }
        // Lines of a slot are alike but for a word, as the lines of many clients are.
        Data record;
        const unsigned vocabulary = round < 20 ? 20 : round % 50 < 25 ? 300 : 5000;
        for (int slots = 1 + pick(3); slots > 0; --slots) {
            const int number = pick(30);
            for (int lines = 1 + pick(round % 50 == 27 ? 5000 : 60); lines > 0; --lines) {
                std::string text = "step (" + std::to_string(number) + ") of w" +
                                   std::to_string(pick(vocabulary)) + ", s" +
                                   std::to_string(pick(4)) + "=v" + std::to_string(number) +
                                   std::string(pick(9) ? "" : " tail tail");
                if (pick(40) == 0) text = pick(2) ? "" : "7 8";
                const Line line = Output{number, {pick(50)}, text}.line();
                record.addLine(&line);
            }
        }
        kept.addData(std::move(record));
        kept.truncate(20);
        kept.bound(10); // words of lines that are not kept are not offered
        const bool offered = context.offer(kept);
        kept.merge();
        if (!offered) context.replay(kept);
        model.handle(kept);
        ASSERT_EQ(poolNow(), Lines(model.pool.begin(), model.pool.end())) << round;
    }
    EXPECT_TRUE(model.full);
}

} // namespace
