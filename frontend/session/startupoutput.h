#pragma once

#include "backend/drivers/driver.h"
#include "common/clientset.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What the debuggers print at their start, before their first prompts.
class StartupOutput {
  public:
    void add(int client, std::string_view text) { texts[client] += text; }
    /// All that each of these clients has printed.
    void add(const ClientSet& clients, const std::string& text) { equal[text].insert(clients); }
    /// Whether each of that many clients has said this.
    bool allSaid(std::string_view text, std::size_t clients) const;
    void drop(int client) { texts.erase(client); }
    /// The lines beyond the debugger's usual greeting, each once with its clients, and what to do
    /// about it; `brief`: only those about which something is wrong.
    std::string report(const Driver& driver, bool brief) const;
    /// Those of them that say what could not be done or believed.
    std::vector<std::pair<std::string, ClientSet>> complaints(const Driver& driver) const;

  private:
    std::map<int, std::string> texts;
    std::map<std::string, ClientSet> equal; // texts of clients that are known as sets

    std::vector<std::pair<std::string, ClientSet>> lines(const Driver& driver) const;
};
