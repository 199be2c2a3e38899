#include "common/error.h"

#include "common/catalog.h"
#include "common/format.h"

#include <cerrno>
#include <cstdio>

Error::Error() { errno = 0; }

Error::Error(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    fill(format, arguments);
    va_end(arguments);
    throw *this;
}

Error::Error(int number, ...) : errorNo(number) {
    if (!MessageCatalog::find(number)) {
        copy("Unknown error " + std::to_string(number) + ".");
        throw *this;
    }
    std::va_list arguments;
    va_start(arguments, number);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    // The catalog hands out no format that differs from the built-in one in its conversions.
    fill(Catalog::get(number), arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    throw *this;
}

void Error::raiseReply(int number, const std::string& text) {
    Error error;
    error.errorNo = number;
    if (MessageCatalog::find(number))
        error.copy(fillFirst(Catalog::get(number), text));
    else
        error.copy("Unknown error " + std::to_string(number) + (text.empty() ? "." : ": " + text));
    throw error;
}

void Error::fill(const char* format, std::va_list arguments) {
    std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
}

void Error::copy(const std::string& text) {
    const std::size_t length = text.copy(buffer.data(), buffer.size() - 1);
    buffer[length] = '\0';
}

void Error::dump(bool withNumber) const {
    if (!withNumber)
        std::puts(buffer.data());
    else if (errorNo != 0)
        std::printf("ERROR: %d %s\n", errorNo, buffer.data());
    else
        std::printf("ERROR: %s\n", buffer.data());
    std::fflush(stdout);
}
