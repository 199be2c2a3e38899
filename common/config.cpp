#include "common/config.h"

#include "common/catalog.h"
#include "common/error.h"
#include "common/file.h"
#include "common/packer.h"
#include "common/split.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <string_view>
#include <strings.h>

namespace {

constexpr std::string_view VARIABLE_CHARSET =
    "_0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

// Name and value of a packed variable take at least this many bytes: two empty strings.
constexpr std::size_t minPackedSize = 10;

bool isComment(std::string_view line) {
    for (const char c : line)
        if (!std::isspace(static_cast<unsigned char>(c))) return c == '#';
    return true;
}

} // namespace

void Config::readConfiguration(const char* file) {
    const File input(std::fopen(file, "rte"));
    if (!input) Error(ERR_CONFIG_FILE_MISSING, file);
    std::array<char, 256> line;
    while (std::fgets(line.data(), static_cast<int>(line.size()), input.get()))
        if (!isComment(line.data())) addVariable(line.data());
}

void Config::addVariable(const char* line) {
    const Split pieces(line, "=", true);
    if (pieces.size() != 2) Error(ERR_VARIABLE_FORMAT, line);
    if (pieces[0].find_first_not_of(VARIABLE_CHARSET) != std::string::npos)
        Error(ERR_VARIABLE_NAME, line);
    variables.emplace(pieces[0], pieces[1]);
}

void Config::checkValue(const std::string& name, const std::vector<std::string>& allowed) const {
    const std::string& value = (*this)[name];
    std::string list;
    for (const std::string& word : allowed) {
        if (::strcasecmp(value.c_str(), word.c_str()) == 0) return;
        list += ' ' + word;
    }
    Error(ERR_VARIABLE_VALUE, name.c_str(), list.c_str());
}

bool Config::parseCommand(std::string& text) const {
    bool replacedAll = true;
    std::size_t at = 0;
    while ((at = text.find('%', at)) != std::string::npos) {
        const std::size_t end =
            std::min(text.find_first_not_of(VARIABLE_CHARSET, at + 1), text.size());
        const auto variable = variables.find(text.substr(at + 1, end - at - 1));
        if (variable == variables.end()) {
            replacedAll = false;
            at = end;
        } else {
            text.replace(at, end - at, variable->second);
            at += variable->second.size();
        }
    }
    return replacedAll;
}

void Config::dump() const {
    for (const auto& [name, value] : variables)
        std::printf("%s=%s\n", name.c_str(), value.c_str());
}

std::unique_ptr<char[]> Config::pack(int* length) const {
    Packer packer;
    packer.packInt(static_cast<int>(variables.size()));
    for (const auto& [name, value] : variables) {
        packer.packStr(name);
        packer.packStr(value);
    }
    if (length) *length = packer.getPackedMsgLen();
    return packer.getPackedMsg();
}

void Config::unpack(const void* message, int len) {
    Packer packer;
    packer.setPackedMsg(message, len);
    std::map<std::string, std::string> received;
    for (int left = packer.unpackCount(minPackedSize); left > 0; --left) {
        const std::string name = packer.unpackStr();
        received.emplace(name, packer.unpackStr());
    }
    variables = std::move(received);
}

const std::string& Config::operator[](const std::string& name) const {
    static const std::string undefined;
    const auto variable = variables.find(name);
    return variable == variables.end() ? undefined : variable->second;
}
