#include "common/catalog.h"
#include "common/format.h"
#include "tests/support/tempdir.h"

namespace {

std::string outputOf(const std::string& command) {
    const TempDir dir;
    EXPECT_EQ(std::system((command + " >" + dir.path("output")).c_str()), 0) << command;
    return dir.read("output");
}

// What a process that finds this catalog source, compiled, gets for the numbers, text by text.
std::string lookUp(const std::string& source, const std::string& numbers) {
    const TempDir dir;
    const std::string compiled = dir.path("orn_vex.cat");
    EXPECT_EQ(outputOf("gencat " + compiled + ' ' + dir.write("source", source)), "");
    return outputOf("NLSPATH='" + dir.path("%N") + "' LANG=en " VEX_BIN_DIR "/catalogtext " +
                    numbers);
}

TEST(MessageCatalog, TableIsWellFormed) {
    int index = 0;
    for (const auto& [number, text] : MessageCatalog::entries()) {
        EXPECT_TRUE(std::string(text).starts_with("3917-" + std::to_string(number) + "  "));
        EXPECT_EQ(MessageCatalog::GetIndex(number), ++index);
    }
    EXPECT_EQ(index, 90);
    for (const int unknown : {-1, 0, 109, 504, 1000})
        EXPECT_EQ(MessageCatalog::GetIndex(unknown), 0);
}

TEST(ExternalCatalog, GeneratedSourceGivesEveryTextBack) {
    std::string source = outputOf(VEX_BIN_DIR "/vex-mkcatalog"), numbers, expected;
    for (const auto& entry : MessageCatalog::entries()) {
        const std::string number = std::to_string(entry.number), identifier = "3917-" + number;
        // A mark that the built-in texts do not have, where the text shown begins.
        const bool hidden = entry.number == INFO_ERROR_COMMAND || entry.number >= 900;
        source.insert(source.find(identifier + "  ") + (hidden ? identifier.size() + 2 : 0), "@");
        numbers += number + ' ';
        expected += number + ":@" + Catalog::get(entry.number) + '\0';
    }
    EXPECT_EQ(lookUp(source, numbers), expected);
}

TEST(ExternalCatalog, TextsThatCannotBeFormatsAreRefused) {
    const std::string source = "$set 1\n$quote \"\n"
                               "7 \"zu langsam: %s\"\n"
                               "8 \"'%2$s' braucht %1$d Argumente\"\n"
                               "9 \"'%s' kennt -%c nicht %n\"\n"
                               "28 \"mit 'send' \"\n"
                               "11 \"%1$s zu viel hinter %3$s\"\n"
                               "47 \"3917-800  %s Fehler bei: %s<ENDE>\\n\"\n"
                               "55 \"3917-901  zu 100% deutsch\"\n";
    std::string texts = lookUp(source, "120 150 151 153 503 800 901 12345");
    std::replace(texts.begin(), texts.end(), '\0', '|');
    EXPECT_EQ(texts, "120:3917-120  Connection time-out after %d seconds.\n|"
                     "150:'%2$s' braucht %1$d Argumente|"
                     "151:3917-151  '%s' does not recognize option '-%c'.\n|"
                     "153:3917-153  Extra argument '%s' to '%s'.\n|"
                     "503:3917-503  Use 'send %s' to send secondary prompt messages.|"
                     "800:%s Fehler bei: %s<ENDE>\n|901:zu 100% deutsch|12345:|");
    // printf needs the type of every argument up to the last.
    EXPECT_FALSE(sameConversions("%1$s %3$s", "%1$s %3$s"));
}

} // namespace
