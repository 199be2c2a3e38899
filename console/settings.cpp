#include "console/settings.h"

#include "common/split.h"
#include "console/tables.h"
#include "console/userfile.h"
#include "display/color.h"

#include <cstdio>

namespace {

constexpr int pieceSize = 256; // a longer line of the settings file is read in pieces

constexpr struct {
    Option option;
    int Settings::*field;
} colorOptions[] = {{ECOLOR_OPTION, &Settings::c_ecolor},
                    {SCOLOR_OPTION, &Settings::c_scolor},
                    {DCOLOR_OPTION, &Settings::c_dcolor},
                    {BCOLOR_OPTION, &Settings::c_bcolor}};

// The first row whose name equals the word: a text is the whole name, a token a prefix of it. Null
// when there is none.
template <class Row, std::size_t n, class Word>
const Row* find(const Row (&table)[n], const Word& word) {
    for (const Row& row : table) {
        if (word == row.name) return &row;
    }
    return nullptr;
}

template <class Row>
bool check(const Row* row, int& id) {
    if (row) id = row->id;
    return row != nullptr;
}

template <class Row>
bool choose(int& field, const Row* row, const char* before, const char* after) {
    if (!row) return false;
    field = row->id;
    std::printf("%s%s%s\n", before, row->name, after);
    return true;
}

} // namespace

void Settings::readConfiguration(const std::string& configFileName) {
    const File file = UserFile(configFileName).read();
    if (!file) return;
    char text[pieceSize];
    while (std::fgets(text, sizeof text, file.get()))
        addVariable(text);

    const auto value = [this](const char* key) -> const std::string* {
        const auto at = cmdMap.find(key);
        return at == cmdMap.end() ? nullptr : &at->second;
    };
    if (const std::string* word = value("broadcast")) check(find(bcastList, *word), toBcast);
    for (const auto& [option, field] : colorOptions) {
        if (const std::string* name = value(optionList[option])) checkColor(*name, this->*field);
    }
    if (const std::string* name = value("dmode")) checkDmode(*name, c_dmode);
}

bool Settings::addVariable(const char* line) {
    const Split pieces(line, "=", true);
    if (pieces.size() != 2) return false;
    // The first definition holds.
    cmdMap.emplace(pieces[0], pieces[1]);
    return true;
}

bool Settings::checkColor(const std::string& name, int& id) {
    return check(find(colorList, name), id);
}

bool Settings::checkDmode(const std::string& name, int& mode) {
    return check(find(dcmdList, name), mode);
}

bool Settings::setColor(int& field, const Token& word) {
    return choose(field, find(colorList, word), "set color to ", ".");
}

bool Settings::setDmode(int& field, const Token& word) {
    return choose(field, find(dcmdList, word), "Set dump mode to ", ".");
}

bool Settings::setBcastOpt(int& field, const Token& word) {
    return choose(field, find(bcastList, word), "broadcast mode ", ".");
}

bool Settings::set(int option, const Token& word) {
    if (option == BROADCAST_OPTION) return setBcastOpt(toBcast, word);
    if (option == MODE_OPTION) return setDmode(c_dmode, word);
    for (const auto& row : colorOptions) {
        if (row.option == option) return setColor(this->*row.field, word);
    }
    return false;
}

void Settings::show(int option) const {
    const char* what = option == BROADCAST_OPTION ? "broadcast mode"
                       : option == MODE_OPTION    ? "dump mode"
                                                  : "color";
    std::printf("current %s is %s.\n", what, getConfigValue(optionList[option]).c_str());
}

std::string Settings::getConfigValue(const std::string& key) const {
    if (key == optionList[BROADCAST_OPTION]) return bcastList[toBcast].name;
    if (key == optionList[MODE_OPTION]) return dcmdList[c_dmode].name;
    for (const auto& [option, field] : colorOptions) {
        if (key == optionList[option]) return colorList[this->*field].name;
    }
    return "";
}
