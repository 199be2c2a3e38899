#include "common/catalog.h"

#include "common/format.h"

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <nl_types.h>

namespace {

constexpr int messageSet = 1;
constexpr std::size_t identifierLength = 10;

// The program's one descriptor, kept for its whole life: texts that catgets returned point into the
// catalog. A failed open gives the value that catopen defines for it, and is not tried again.
nl_catd openCatalog() {
    std::setlocale(LC_MESSAGES, "");
    return ::catopen("orn_vex.cat", 0);
}

bool isOpen(nl_catd catalog) { return reinterpret_cast<std::intptr_t>(catalog) != -1; }

const MessageCatalog::Entry* findEntry(int number) {
    const auto table = MessageCatalog::entries();
    const auto at = std::ranges::lower_bound(table, number, {}, &MessageCatalog::Entry::number);
    return at != table.end() && at->number == number ? &*at : nullptr;
}

} // namespace

const char* MessageCatalog::find(int number) {
    const Entry* entry = findEntry(number);
    return entry ? entry->text : nullptr;
}

int MessageCatalog::GetIndex(int number) {
    const Entry* entry = findEntry(number);
    return entry ? static_cast<int>(entry - entries().data()) + 1 : 0;
}

const char* Catalog::get(int number) {
    static const nl_catd catalog = openCatalog();

    const char* builtIn = MessageCatalog::find(number);
    if (!builtIn) return "";
    const char* text = builtIn;
    if (isOpen(catalog))
        text = ::catgets(catalog, messageSet, MessageCatalog::GetIndex(number), builtIn);

    const bool isHelp = number >= HELP_HELP_BRIEF;
    // A text below the help texts serves as a printf format, and a catalog file is nobody's code.
    if (text != builtIn && !isHelp && !sameConversions(text, builtIn)) text = builtIn;
    if (isHelp || number == INFO_ERROR_COMMAND)
        text += std::min(identifierLength, std::strlen(text));
    return text;
}

void Catalog::dump(int number) { std::puts(get(number)); }
