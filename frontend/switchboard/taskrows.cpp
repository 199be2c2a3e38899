#include "frontend/switchboard/taskrows.h"

#include "backend/folding/safetext.h"
#include "backend/os/text.h"

bool TaskRows::answers(OwnCommand::Name what, const std::string& line) {
    return what != OwnCommand::UNKNOWN && Text::afterWord(Text::afterWord(line)).empty();
}

std::vector<StackTree::Row> TaskRows::of(OwnCommand::Name what, const ClientSet& members,
                                         Switchboard::Outlet& outlet) {
    std::vector<StackTree::Row> rows;
    if (what == OwnCommand::WHO) {
        for (const int id : members)
            rows.push_back({SafeText::of(outlet.describe(id)), {id}});
        return rows;
    }
    for (const StackTree::Row& row : outlet.waits()) {
        const ClientSet those = row.clients.intersection(members);
        if (!those.empty()) rows.push_back({SafeText::of(row.text), those});
    }
    return rows;
}
