#include "frontend/switchboard/groups.h"

#include "common/catalog.h"
#include "common/groupnames.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace {

// Groups of other rows than stat's.
constexpr std::size_t maxRows = 99;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The client that a number-named group stands for; -1 when the name is no number in its usual form.
int clientOf(const std::string& name) {
    const auto id = wholeNumber<int>(name);
    return id && std::to_string(*id) == name ? *id : -1;
}

Reply failed(int number, const std::string& text = "") {
    Reply reply(Reply::FAILED, number);
    reply.addRetInfo(text.c_str());
    return reply;
}

// Operands are gathered and united once: there may be as many as clients.
void append(std::vector<ClientSet::Range>& ranges, const ClientSet& ids) {
    for (const ClientSet::Range& run : ids.runs())
        ranges.push_back(run);
}

} // namespace

Groups::Groups(int clients) {
    if (clients > 0) everyone.insertRange(0, clients - 1);
}

std::optional<ClientSet> Groups::members(const std::string& name, int console) const {
    const ClientSet* found = nullptr;
    if (name == GroupNames::all) {
        found = &everyone;
    } else if (name == GroupNames::filtered) {
        if (auto at = filtered.find(console); at != filtered.end()) found = &at->second;
    } else if (name == GroupNames::pending) {
        if (auto at = pending.find(console); at != pending.end()) found = &at->second;
    } else if (const int id = clientOf(name); id >= 0) {
        if (everyone.contains(id)) return ClientSet{id};
    } else if (const ClientSet* place = placeOf(name, console)) {
        found = place;
    } else if (auto at = named.find(name); at != named.end()) {
        found = &at->second;
    }
    if (!found || found->empty()) return std::nullopt;
    return *found;
}

// Null when the console has no such place; it may have lost all its clients.
const ClientSet* Groups::placeOf(const std::string& name, int console) const {
    const auto own = places.find(console);
    if (own == places.end()) return nullptr;
    if (name == own->second.keptName) return &own->second.kept;
    const auto at = own->second.groups.find(name);
    return at == own->second.groups.end() ? nullptr : &at->second;
}

void Groups::setPlaces(int console, const std::vector<ClientSet>& clients,
                       const std::string& current, const std::string& name) {
    Places now;
    now.groups = places[console].groups;
    std::erase_if(now.groups, [&name](const auto& each) {
        return each.first.starts_with(name) && each.first.size() > name.size() &&
               std::ranges::all_of(each.first.substr(name.size()), isDigit);
    });
    const auto stays = members(current, console);
    const std::size_t most = name == GroupNames::place ? GroupNames::maxPlaces : maxRows;
    for (std::size_t i = 0; i < std::min(clients.size(), most); ++i) {
        ClientSet living = clients[i].intersection(everyone);
        if (!living.empty()) now.groups[name + std::to_string(i + 1)] = std::move(living);
    }
    // Its own of that name, too.
    if (stays && (now.groups.contains(current) || placeOf(current, console))) {
        now.keptName = current;
        now.kept = *stays;
    }
    places[console] = std::move(now);
}

void Groups::leftGroup(int console) {
    const auto own = places.find(console);
    if (own != places.end()) own->second.keptName.clear();
}

std::string Groups::describe(const std::string& name, const ClientSet& ids) {
    std::string list = ids.str();
    while (!list.empty() && list.back() == ' ')
        list.pop_back();
    return name + " (" + std::to_string(ids.size()) + "): " + list + "\n";
}

Reply Groups::query(const std::string& name, int console) const {
    Reply reply(Reply::GROUP_QUERY, 0);
    if (!name.empty()) {
        const auto ids = members(name, console);
        if (!ids) return failed(CMD_GROUP_NOT_FOUND);
        reply.addRetInfo(describe(name, *ids).c_str());
        return reply;
    }
    std::string text = describe(GroupNames::all, everyone);
    for (const char* own : {GroupNames::filtered, GroupNames::pending}) {
        if (const auto ids = members(own, console)) text += describe(own, *ids);
    }
    if (const auto own = places.find(console); own != places.end()) {
        for (const auto& [key, ids] : own->second.groups) {
            if (const auto members = this->members(key, console)) text += describe(key, *members);
        }
    }
    for (const auto& [key, ids] : named) {
        if (!placeOf(key, console)) text += describe(key, ids);
    }
    reply.addRetInfo(text.c_str());
    return reply;
}

Reply Groups::assignFiltered(const GroupCommand& command, int console, const std::string& current) {
    ClientSet ids = command.ids().intersection(everyone);
    std::vector<ClientSet::Range> operands;
    for (const std::string& name : command.names()) {
        if (const auto operand = members(name, console)) append(operands, *operand);
    }
    ids.insert(ClientSet(std::move(operands)));
    // When no client spoke, a console that stands in FILTERED keeps the group: else its next
    // command would go to all clients.
    if (!ids.empty() || current != GroupNames::filtered) filtered[console] = std::move(ids);
    return Reply(Reply::SUCCESS, 0);
}

Reply Groups::apply(const GroupCommand& command, int console, const std::string& current) {
    const std::string& base = command.getBase();
    if (command.getOpType() == GroupCommand::QUERY) return query(base, console);
    if (base == GroupNames::filtered && command.getOpType() == GroupCommand::ASSIGN)
        return assignFiltered(command, console, current);
    if (base.empty()) return failed(CMD_GROUP_NAME);
    if (isDigit(base[0])) return failed(CMD_GROUP_NUMBER);
    if (base == GroupNames::all || base == GroupNames::filtered || base == GroupNames::pending)
        return failed(CMD_GROUP_PREDEFINED);

    const auto before = members(base, console);
    if (command.getOpType() == GroupCommand::DELETE && !before) return failed(CMD_GROUP_NOT_FOUND);
    ClientSet ids = command.ids();
    if (ids.intersection(everyone) != ids) return failed(CMD_GROUP_CLIENT_ID);
    std::vector<ClientSet::Range> operands;
    for (const std::string& name : command.names()) {
        const auto operand = members(name, console);
        if (!operand) return failed(CMD_GROUP_NOT_FOUND);
        append(operands, *operand);
    }
    ids.insert(ClientSet(std::move(operands)));
    ClientSet result = before.value_or(ClientSet());
    switch (command.getOpType()) {
    case GroupCommand::ASSIGN:
        result = ids;
        break;
    case GroupCommand::ADD:
        result.insert(ids);
        break;
    case GroupCommand::DELETE:
        result.erase(ids);
        break;
    default:
        return failed(CMD_GROUP_OPERATION);
    }
    const bool hidden = placeOf(base, console) != nullptr;
    // From now on the name is the user's.
    if (const auto own = places.find(console); own != places.end()) {
        own->second.groups.erase(base);
        if (own->second.keptName == base) own->second.keptName.clear();
    }
    if (!result.empty()) {
        named[base] = std::move(result);
        return Reply(Reply::SUCCESS, 0);
    }
    if (command.getOpType() != GroupCommand::DELETE) return failed(CMD_GROUP_ADD_EMPTY, base);
    if (!hidden) named.erase(base);
    return failed(CMD_GROUP_DELETE_EMPTY, base);
}

void Groups::removeClient(int id) {
    everyone.erase(id);
    for (auto* own : {&filtered, &pending}) {
        for (auto& [console, ids] : *own)
            ids.erase(id);
    }
    for (auto& [console, own] : places) {
        own.kept.erase(id);
        for (auto& [name, ids] : own.groups)
            ids.erase(id);
    }
    for (auto entry = named.begin(); entry != named.end();) {
        entry->second.erase(id);
        entry = entry->second.empty() ? named.erase(entry) : std::next(entry);
    }
}
