#include "backend/folding/statreport.h"

#include "backend/os/text.h"

#include <iterator>
#include <utility>

std::vector<StackTree::RowGroup> StatReport::rows() const {
    std::vector<StackTree::RowGroup> groups = stacks.places();
    const auto append = [&groups](std::vector<StackTree::RowGroup> more) {
        groups.insert(groups.end(), std::move_iterator(more.begin()),
                      std::move_iterator(more.end()));
    };
    if (!chosen.innermostOnly) append(stacks.tree());
    append(stacks.helperThreads());
    groups.insert(groups.end(), ready.begin(), ready.end());
    return groups;
}

std::string StatReport::text() {
    std::string all;
    for (const auto& group : rows()) {
        for (const auto& row : group) {
            const std::string line = Text::list(row.clients) + " | " + row.text;
            all += line + "\n";
            fed.emplace(line, row);
        }
    }
    return all;
}

const StackTree::Row* StatReport::find(const std::string& line) const {
    const auto row = fed.find(line);
    return row == fed.end() ? nullptr : &row->second;
}
