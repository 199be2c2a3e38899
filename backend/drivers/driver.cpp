#include "backend/drivers/driver.h"

#include "backend/drivers/gdb.h"
#include "backend/drivers/lldb.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <system_error>

namespace {

// The end of a function's name: where its parameter types or its arguments begin. Brackets of
// templates and of "(anonymous namespace)" belong to the name, and so do those of operators.
std::size_t nameEnd(std::string_view text) {
    constexpr std::string_view anonymous = "(anonymous namespace)", word = "operator";
    int depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string_view rest = text.substr(i);
        const bool starts = i == 0 || (!std::isalnum(static_cast<unsigned char>(text[i - 1])) &&
                                       text[i - 1] != '_');
        if (rest.starts_with(anonymous)) {
            i += anonymous.size() - 1;
        } else if (starts && rest.starts_with(word)) {
            i += word.size();
            if (text.substr(i).starts_with("()")) i += 2;
            while (i < text.size() &&
                   std::string_view("<>-=!+*/%^&|~[],").find(text[i]) != std::string_view::npos)
                ++i;
            --i;
        } else if (text[i] == '<') {
            ++depth;
        } else if (text[i] == '>' || text[i] == ')') {
            --depth;
        } else if (text[i] == '(') {
            if (depth <= 0) return i;
            ++depth; // "function<void (int)>"
        }
    }
    return text.size();
}

} // namespace

std::string Driver::functionName(std::string_view call) {
    call = call.substr(0, nameEnd(call));
    while (call.ends_with(' '))
        call.remove_suffix(1);
    return std::string(call);
}

std::string Driver::firstLine(std::string_view text) {
    const std::size_t begin = std::min(text.size(), text.find_first_not_of("\r\n"));
    return std::string(text.substr(begin, text.find_first_of("\r\n", begin) - begin));
}

std::optional<long double> Driver::numberIn(std::string_view text) {
    const char* const end = text.data() + text.size();
    const auto read = [&](auto number) -> std::optional<long double> {
        const auto [last, fault] = std::from_chars(text.data(), end, number);
        if (fault != std::errc() || last != end) return std::nullopt;
        return static_cast<long double>(number);
    };
    if (const auto whole = read(std::int64_t{})) return whole;
    if (const auto whole = read(std::uint64_t{})) return whole;
    return read(double{});
}

bool Driver::names(std::string_view word, std::span<const CommandName> commands) {
    return std::ranges::any_of(commands, [word](const CommandName& each) {
        return word.size() >= each.least && each.name.starts_with(word);
    });
}

std::unique_ptr<Driver> makeDriver(const std::string& executable, Driver::Subject subject) {
    const std::string name = executable.substr(executable.rfind('/') + 1);
    if (name.starts_with("lldb")) return std::make_unique<Lldb>(executable, subject);
    return std::make_unique<Gdb>(executable, subject);
}
