#pragma once

#include <string>
#include <string_view>

/// printf formats that come from a file or meet arguments of a peer, handled without printf.

/// Whether two printf formats take the same arguments: as many, each of the same type, in the same
/// order. Flags, widths and the text between may differ, and either may number its arguments
/// ("%2$s"). False when one of them is no valid format.
bool sameConversions(const char* left, const char* right);

/// The format's text with value in place of its first conversion, whatever type that has; further
/// conversions are left out and "%%" becomes "%". Never fails: a "%" that begins no conversion
/// stays.
std::string fillFirst(std::string_view format, std::string_view value);
