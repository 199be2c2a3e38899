#include "backend/folding/statreport.h"

#include "backend/os/text.h"

std::vector<StackTree::RowGroup> StatReport::rows() const {
    std::vector<StackTree::RowGroup> groups = stacks.places();
    if (!innermost) {
        for (auto& group : stacks.tree())
            groups.push_back(std::move(group));
    }
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
