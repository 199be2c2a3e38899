#include "frontend/session/startupoutput.h"

#include "backend/folding/safetext.h"
#include "backend/os/text.h"

#include <algorithm>
#include <sstream>
#include <unordered_map>
#include <utility>

bool StartupOutput::allSaid(std::string_view text, std::size_t clients) const {
    std::size_t found = 0;
    for (const auto& [client, said] : texts)
        found += said.find(text) != std::string::npos;
    for (const auto& [said, whose] : equal) {
        if (said.find(text) != std::string::npos) found += whose.size();
    }
    return clients > 0 && found == clients;
}

std::vector<std::pair<std::string, ClientSet>> StartupOutput::lines(const Driver& driver) const {
    std::vector<std::pair<ClientSet, std::string>> said;
    for (const auto& [client, text] : texts)
        said.push_back({{client}, text});
    for (const auto& [text, clients] : equal)
        said.emplace_back(clients, text);
    std::ranges::stable_sort(said, {}, [](const auto& each) { return each.first.front(); });
    std::vector<std::pair<std::string, ClientSet>> lines; // in the order of the clients
    std::unordered_map<std::string, std::size_t> places;  // in those
    for (const auto& [whose, text] : said) {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            if (driver.isGreeting(line)) continue;
            const auto [at, isNew] = places.try_emplace(line, lines.size());
            if (isNew) lines.emplace_back(line, ClientSet());
            lines[at->second].second.insert(whose);
        }
    }
    return lines;
}

std::vector<std::pair<std::string, ClientSet>>
StartupOutput::complaints(const Driver& driver) const {
    auto found = lines(driver);
    std::erase_if(found, [&driver](const auto& each) { return !driver.complains(each.first); });
    return found;
}

std::string StartupOutput::report(const Driver& driver, bool brief) const {
    std::string report;
    for (const auto& [line, clients] : lines(driver)) {
        const std::string hint = driver.hintFor(line);
        if (brief && hint.empty() && !driver.complains(line)) continue;
        report.append("vex: ")
            .append(Text::list(clients))
            .append(" | ")
            .append(SafeText::line(line));
        report.append(hint.empty() ? "" : " ").append(hint).append("\n");
    }
    return report;
}
