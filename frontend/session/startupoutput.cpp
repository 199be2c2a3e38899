#include "frontend/session/startupoutput.h"

#include "backend/os/text.h"
#include "common/clientset.h"

#include <algorithm>
#include <sstream>
#include <unordered_map>
#include <utility>
#include <vector>

bool StartupOutput::allSaid(std::string_view text, std::size_t clients) const {
    return clients > 0 && clients == static_cast<std::size_t>(
                                         std::ranges::count_if(texts, [text](const auto& each) {
                                             return each.second.find(text) != std::string::npos;
                                         }));
}

std::string StartupOutput::report(const Driver& driver) const {
    std::vector<std::pair<std::string, ClientSet>> lines; // in the order in which they came
    std::unordered_map<std::string, std::size_t> places;  // in those
    for (const auto& [client, text] : texts) {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            if (driver.isGreeting(line)) continue;
            const auto [at, isNew] = places.try_emplace(line, lines.size());
            if (isNew) lines.emplace_back(line, ClientSet());
            lines[at->second].second.insert(client);
        }
    }
    std::string report;
    for (const auto& [line, clients] : lines) {
        const std::string hint = driver.hintFor(line);
        report.append("vex: ").append(Text::list(clients)).append(" | ").append(line);
        report.append(hint.empty() ? "" : " ").append(hint).append("\n");
    }
    return report;
}
