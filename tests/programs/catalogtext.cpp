#include "common/catalog.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

// Prints the messages of the numbers given, each after its number and a colon and before a NUL. The
// first lookups come from several threads at once, as in a process of its own only they can.
int main(int argc, char** argv) {
    std::vector<std::string> texts(4);
    {
        std::vector<std::jthread> readers;
        for (std::string& text : texts)
            readers.emplace_back([&, argc, argv] {
                for (int i = 1; i < argc; ++i) {
                    text += std::string(argv[i]) + ':' + Catalog::get(std::atoi(argv[i]));
                    text += '\0';
                }
            });
    }
    for (const std::string& text : texts)
        if (text != texts[0]) return 1;
    std::fwrite(texts[0].data(), 1, texts[0].size(), stdout);
    return 0;
}
