#include "common/catalog.h"

#include <cstdio>
#include <iostream>
#include <string_view>

// Prints the built-in messages as a source file of gencat(1). To translate them:
//   vex-mkcatalog > orn_vex.msg; edit the texts; gencat orn_vex.cat orn_vex.msg
// and put orn_vex.cat where NLSPATH finds it. See X/Open's catgets and the GNU C Library manual,
// "Format of the message catalog files".

namespace {

// A quoted text; after a line end inside, the source goes on in a new line for the reader's sake.
void printQuoted(std::string_view text) {
    std::cout << '"';
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n')
            std::cout << (i + 1 < text.size() ? "\\n\\\n" : "\\n");
        else if (text[i] == '"' || text[i] == '\\')
            std::cout << '\\' << text[i];
        else
            std::cout << text[i];
    }
    std::cout << "\"\n";
}

} // namespace

int main() {
    std::cout
        << "$ Messages of VEX. Keep the numbers, and in the messages below 900 the conversions\n"
           "$ (%s, %d, %c); %1$s and %2$s may change places. Keep the ten characters in front.\n"
           "$set 1\n"
           "$quote \"\n";
    int number = 0;
    for (const MessageCatalog::Entry& entry : MessageCatalog::entries()) {
        std::cout << ++number << ' ';
        printQuoted(entry.text);
    }
    std::cout.flush();
    if (std::cout) return 0;
    std::perror("vex-mkcatalog");
    return 1;
}
