#include "common/catalog.h"

#include <cstdlib>
#include <iostream>

// Prints the messages of the numbers given, each after its number and a colon and before a NUL.
int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        std::cout << argv[i] << ':' << Catalog::get(std::atoi(argv[i])) << '\0';
}
