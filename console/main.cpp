#include "common/argument.h"
#include "common/brokenconnection.h"
#include "common/catalog.h"
#include "common/error.h"
#include "console/console.h"
#include "console/term.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <optional>
#include <unistd.h>

namespace {

// Runs one step; false when it failed in a way that has been reported.
template <class Step>
bool guarded(Step step) {
    try {
        step();
        return true;
    } catch (const std::bad_alloc&) {
        Catalog::dump(INFO_ERROR_MEMORY);
    } catch (const BrokenConnection&) {
        Catalog::dump(INFO_ERROR_CONNECTION);
    } catch (const Error& error) {
        error.dump(true);
    } catch (...) {
        term.restore();
        ::_exit(1);
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    ArgDescription table[numConsoleArgs];
    std::copy(std::begin(consoleArgs), std::end(consoleArgs), std::begin(table));
    std::optional<Argument> args;
    std::optional<Console> console;
    // Each step needs the one before; whatever was built is destroyed, the console first.
    guarded([&] { args.emplace(argc, argv, table); }) && guarded([&] { console.emplace(); }) &&
        guarded([&] { console->init(*args); });
    guarded([&] { console.reset(); });
    guarded([&] { args.reset(); });
    return 0;
}
