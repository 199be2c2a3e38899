#include "backend/jobs/hostfile.h"

#include "common/wholenumber.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {

// How many tasks run on the host; throws when the text is no number from 1 up.
std::size_t count(const std::string& text) {
    const auto number = wholeNumber<std::size_t>(text);
    if (number.value_or(0) == 0) throw std::runtime_error("'" + text + "' is no number of tasks");
    return *number;
}

// Takes the number from "host:n" and the brackets from "[address]".
std::size_t splitHost(std::string& host) {
    std::size_t number = 1;
    const std::size_t colon = host.rfind(':');
    const bool bracket = host.starts_with('[');
    if (colon != std::string::npos &&
        (bracket ? host[colon - 1] == ']' : host.find(':') == colon)) {
        number = count(host.substr(colon + 1));
        host.erase(colon);
    }
    if (bracket && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    // What begins with a hyphen would be an option of the command that it is given to.
    if (host.empty() || host[0] == '-') throw std::runtime_error("'" + host + "' is no host");
    return number;
}

std::size_t addLine(std::string& line, std::string& host) {
    line.erase(std::min(line.size(), line.find('#')));
    // "slots = 4" and "slots=4" are the same.
    for (std::size_t at; (at = line.find_first_of("=\r")) != std::string::npos;)
        line[at] = ' ';
    std::istringstream words(line);
    if (!(words >> host)) return 0;
    std::size_t number = splitHost(host);
    for (std::string key, value; words >> key;) {
        if (!(words >> value) || (key != "slots" && key != "max_slots" && key != "max-slots"))
            throw std::runtime_error("'" + key + "' is not understood here");
        if (key == "slots") number = count(value);
    }
    return number;
}

} // namespace

std::vector<std::string> HostFile::read(std::istream& in, const std::string& name,
                                        std::size_t maxTasks) {
    std::vector<std::string> hosts;
    int lineNo = 0;
    for (std::string line, host; std::getline(in, line);) {
        const std::string place = name + ", line " + std::to_string(++lineNo) + ": ";
        std::size_t number = 0;
        try {
            number = addLine(line, host);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(place + error.what() +
                                     "; a line is: host, host:n or host slots=n");
        }
        if (number > maxTasks - hosts.size())
            throw std::runtime_error(place + "that are more than " + std::to_string(maxTasks) +
                                     " tasks.");
        hosts.insert(hosts.end(), number, host);
    }
    if (hosts.empty()) throw std::runtime_error(name + " names no host.");
    return hosts;
}
