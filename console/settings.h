#pragma once

#include "common/token.h"

#include <map>
#include <string>

/// What the user chooses: colours, display mode and broadcasts, from the settings file and by the
/// option command; and how many lines of output are kept.
///
/// Not synchronised: the file is read before there is a second thread, and from then on the turn's
/// holder reads and changes. The c_ fields and toBcast are ids of the tables' rows.
class Settings {
  public:
    int c_ecolor = 2;
    int c_scolor = 9;
    int c_dcolor = 1;
    int c_bcolor = 7;
    int c_dmode = 0;
    int toBcast = 0; ///< 1: output of other consoles' commands is shown
    int maxHistoryLines = 1000;

    /// Reads the file and takes its values; those that are wrong are ignored in silence.
    void readConfiguration(const std::string& configFileName);
    /// Adds one "name = value" line of the file; false when it is none.
    bool addVariable(const char* line);

    /// Gives an option, by its index, the value that begins with the word, and says so; false, and
    /// nothing is said or changed, when there is no such value.
    bool set(int option, const Token& word);
    /// Prints the value of an option that has one here.
    void show(int option) const;
    /// The value of an option by its word; empty for a word that has none here.
    std::string getConfigValue(const std::string& key) const;

    /// The row of exactly this name.
    static bool checkColor(const std::string& name, int& id);
    static bool checkDmode(const std::string& name, int& mode);
    /// The first row that the word is a prefix of, which is printed.
    static bool setColor(int& field, const Token& word);
    static bool setDmode(int& field, const Token& word);
    static bool setBcastOpt(int& field, const Token& word);

  private:
    std::map<std::string, std::string> cmdMap;
};
