#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string_view>
#include <system_error>

/// The number that a text consists of: decimal digits, after a "-" where the type has a sign.
/// Nothing for any other text, also for a number with something behind it, and for a number that
/// the type does not hold.
template <std::integral Number>
std::optional<Number> wholeNumber(std::string_view text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, fault] = std::from_chars(text.data(), end, number);
    if (fault != std::errc() || stop != end) return std::nullopt;
    return number;
}
