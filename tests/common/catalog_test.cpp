#include "common/catalog.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

namespace {

using Texts = std::map<int, std::string>;

std::string outputOf(const std::string& command) {
    const TempDir dir;
    EXPECT_EQ(std::system((command + " >" + dir.path("output")).c_str()), 0) << command;
    return dir.read("output");
}

// What a process that finds this catalog source, compiled, gets for the numbers.
Texts lookUp(const std::string& source, const std::string& numbers) {
    const TempDir dir;
    dir.write("source", source);
    const std::string compiled = dir.path("orn_vex.cat");
    EXPECT_EQ(std::system(("gencat " + compiled + ' ' + dir.path("source")).c_str()), 0);
    const std::string output =
        outputOf("NLSPATH='" + dir.path("%N") + "' LANG=en " VEX_BIN_DIR "/catalogtext " + numbers);
    Texts texts;
    for (std::size_t at = 0; at < output.size();) {
        const std::size_t colon = output.find(':', at);
        const std::size_t end = output.find('\0', colon);
        texts[std::stoi(output.substr(at, colon - at))] = output.substr(colon + 1, end - colon - 1);
        at = end + 1;
    }
    return texts;
}

TEST(MessageCatalog, TableIsWellFormed) {
    int index = 0;
    for (const auto& [number, text] : MessageCatalog::entries()) {
        const std::string whole = text;
        EXPECT_EQ(whole.substr(0, 10), "3917-" + std::to_string(number) + "  ");
        EXPECT_EQ(MessageCatalog::GetIndex(number), ++index);
    }
    EXPECT_EQ(index, 90);
    for (const int unknown : {-1, 0, 109, 504, 1000})
        EXPECT_EQ(MessageCatalog::GetIndex(unknown), 0);
}

TEST(ExternalCatalog, GeneratedSourceGivesEveryTextBack) {
    std::string source = outputOf(VEX_BIN_DIR "/vex-mkcatalog");
    std::string numbers;
    Texts expected;
    for (const auto& entry : MessageCatalog::entries()) {
        numbers += std::to_string(entry.number) + ' ';
        expected[entry.number] = std::string("@") + Catalog::get(entry.number);
    }
    // A mark that the built-in texts do not have, where the text shown begins.
    for (auto& [number, text] : expected) {
        const std::string identifier = "3917-" + std::to_string(number) + "  ";
        const bool hidden = number == INFO_ERROR_COMMAND || number >= 900;
        source.insert(source.find(identifier) + (hidden ? identifier.size() : 0), "@");
    }
    EXPECT_EQ(lookUp(source, numbers), expected);
}

TEST(ExternalCatalog, TextsThatCannotBeFormatsAreRefused) {
    const std::string source = "$set 1\n$quote \"\n"
                               "7 \"zu langsam: %s\"\n"
                               "8 \"'%2$s' braucht %1$d Argumente\"\n"
                               "9 \"'%s' kennt -%c nicht %n\"\n"
                               "28 \"mit 'send' \"\n"
                               "47 \"3917-800  %s Fehler bei: %s<ENDE>\\n\"\n"
                               "55 \"3917-901  zu 100% deutsch\"\n";
    EXPECT_EQ(lookUp(source, "120 150 151 503 800 901 12345"),
              (Texts{{120, "3917-120  Connection time-out after %d seconds.\n"},
                     {150, "'%2$s' braucht %1$d Argumente"},
                     {151, "3917-151  '%s' does not recognize option '-%c'.\n"},
                     {503, "3917-503  Use 'send %s' to send secondary prompt messages."},
                     {800, "%s Fehler bei: %s<ENDE>\n"},
                     {901, "zu 100% deutsch"},
                     {12345, ""}}));
}

} // namespace
