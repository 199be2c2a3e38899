#include "common/split.h"
#include "console/console.h"
#include "console/tables.h"
#include "console/userfile.h"
#include "display/parser.h"

#include <cstdio>

namespace {

constexpr int pieceSize = 256; // a longer line of the settings file is read in pieces

// The row whose name is exactly the word; null when there is none.
template <class Row, std::size_t n>
const Row* find(const Row (&table)[n], const std::string& word) {
    for (const Row& row : table) {
        if (word == row.name) return &row;
    }
    return nullptr;
}

// The first row that the token is a prefix of.
template <class Row, std::size_t n>
const Row* find(const Row (&table)[n], const Token& word) {
    for (const Row& row : table) {
        if (word == row.name) return &row;
    }
    return nullptr;
}

template <class Row>
bool choose(int& field, const Row* row, const char* before, const char* after) {
    if (!row) return false;
    field = row->id;
    std::printf("%s%s%s\n", before, row->name, after);
    return true;
}

} // namespace

void Console::readConfiguration() {
    const File file = UserFile(configFileName).read();
    if (!file) return;
    char text[pieceSize];
    while (std::fgets(text, sizeof text, file.get()))
        addVariable(text);

    const auto value = [this](const char* key) -> const std::string* {
        const auto at = cmdMap.find(key);
        return at == cmdMap.end() ? nullptr : &at->second;
    };
    if (const std::string* word = value("broadcast")) {
        if (const BcastTopic* row = find(bcastList, *word)) toBcast = row->id;
    }
    if (const std::string* name = value("ecolor")) checkColor(*name, c_ecolor);
    if (const std::string* name = value("scolor")) checkColor(*name, c_scolor);
    if (const std::string* name = value("dcolor")) checkColor(*name, c_dcolor);
    if (const std::string* name = value("bcolor")) checkColor(*name, c_bcolor);
    if (const std::string* name = value("dmode")) checkDmode(*name, c_dmode);
}

bool Console::addVariable(const char* line) {
    const Split pieces(line, "=", true);
    if (pieces.size() != 2) return false;
    // The first definition holds.
    cmdMap.emplace(pieces[0], pieces[1]);
    return true;
}

bool Console::checkColor(const std::string& name, int& id) {
    const Color* row = find(colorList, name);
    if (row) id = row->id;
    return row != nullptr;
}

bool Console::checkDmode(const std::string& name, int& mode) {
    const DumpTopic* row = find(dcmdList, name);
    if (row) mode = row->id;
    return row != nullptr;
}

bool Console::setColor(int& field, Token& word) {
    return choose(field, find(colorList, word), "set color to ", ".");
}

bool Console::setDmode(int& field, Token& word) {
    return choose(field, find(dcmdList, word), "Set dump mode to ", ".");
}

bool Console::setBcastOpt(int& field, Token& word) {
    return choose(field, find(bcastList, word), "broadcast mode ", ".");
}

std::string Console::getConfigValue(const std::string& key) const {
    if (key == "broadcast") return toBcast == 1 ? "on" : "off";
    if (key == "ecolor") return colorList[c_ecolor].name;
    if (key == "scolor") return colorList[c_scolor].name;
    if (key == "dcolor") return colorList[c_dcolor].name;
    if (key == "bcolor") return colorList[c_bcolor].name;
    if (key == "mode") return dcmdList[c_dmode].name;
    return "";
}
