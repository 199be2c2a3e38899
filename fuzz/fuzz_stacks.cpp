#include "backend/drivers/driver.h"
#include "backend/folding/stacktext.h"
#include "fuzz/fuzz.h"

// What gdb or lldb answers when it is asked for all stacks, by the first byte; read line by line,
// and by two clients as a tree, which comes out of its outline as it went in.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) return 0;
    const auto driver =
        makeDriver((bytes[0] & 1) != 0 ? "lldb" : "gdb",
                   (bytes[0] & 2) != 0 ? Driver::Subject::PROCESS : Driver::Subject::PROGRAM);
    const std::string answer = textOf(bytes + 1, size - 1);
    const StackText text{*driver, (bytes[0] & 4) != 0};
    StackTree tree = text.parse(3, answer);
    tree.add(text.parse(5, answer.substr(answer.size() / 2)));
    for (const auto& rows : {tree.tree(), tree.places(), StackTree(tree.outline()).tree()}) {
        for (const auto& group : rows) {
            for (const StackTree::Row& row : group)
                expect(!row.clients.empty() && row.text.find('\n') == std::string::npos);
        }
    }
    expect(StackTree(tree.outline()).tree() == tree.tree());
    const std::string line = answer.substr(0, answer.find('\n'));
    driver->asks(line);
    driver->letsRun(line);
    driver->keepsBars(line);
    driver->showsInterrupt(line);
    driver->reportsError(line);
    driver->isGreeting(line);
    driver->hintFor(line);
    expect(driver->shown(line).size() <= line.size());
    expect(driver->whole(line).find('\n') == std::string::npos);
    return 0;
}
