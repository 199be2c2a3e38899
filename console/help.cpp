#include "console/help.h"

#include "common/catalog.h"
#include "console/tables.h"

#include <cstdio>
#include <string>

namespace {

void printTopic(const Topic& topic) {
    std::printf("%14s -- %s\n", topic.name, Catalog::get(topic.brief));
}

} // namespace

void Help::listCommands(bool servesLuma) {
    std::printf("Commands:\n");
    for (const Topic& command : cmdList) {
        if (command.isShown(servesLuma)) printTopic(command);
    }
    std::printf("\nTopics:\n");
    for (const Topic& topic : topicList)
        printTopic(topic);
    std::printf("\n%s", Catalog::get(HELP_EPILOG));
}

void Help::showDetail(const Topic& topic) {
    // Looked up one after the other: a translated text may share its storage with the next.
    const std::string head = Catalog::get(topic.brief);
    std::printf("%s\n\n%s", head.c_str(), Catalog::get(topic.detail));
}
