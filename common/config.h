#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

/// Named variables, read from a file of "name = value" lines.
///
/// A name consists of letters, digits and underscores; its first definition holds. A value type,
/// not synchronised.
class Config {
  public:
    /// Adds the definitions of a file. Blank lines and lines whose first character is '#' are
    /// skipped; a line of more than 255 characters is read in pieces, each a line of its own.
    /// Throws Error for a file that cannot be opened and for a line that is no definition; the
    /// variables of the lines before stay.
    void readConfiguration(const char* file);
    /// Adds one definition. Throws Error when it is none.
    void addVariable(const char* line);
    /// Throws Error unless the variable has one of the values; case does not count.
    void checkValue(const std::string& name, const std::vector<std::string>& allowed) const;
    /// Replaces each "%name" of a defined variable by its value, which is not expanded again. Gives
    /// back false when a "%" was left because no defined name follows it.
    bool parseCommand(std::string& text) const;
    /// Prints the variables in name order on standard output.
    void dump() const;

    /// The packed variables: their number, then name and value of each. The length in bytes goes to
    /// *length when that is not null.
    std::unique_ptr<char[]> pack(int* length) const;
    /// Takes the variables of a packed form in place of the own ones. Throws BrokenConnection, and
    /// keeps the own ones, when the form does not fit len bytes.
    void unpack(const void* message, int len);

    /// The value of a variable; empty for a variable that is not defined.
    const std::string& operator[](const std::string& name) const;

  private:
    std::map<std::string, std::string> variables;
};
