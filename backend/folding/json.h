#pragma once

#include <string>
#include <string_view>

/// The little of JSON (RFC 8259) that is written.
namespace Json {

/// Adds the text as a string. Bytes that are no UTF-8 become U+FFFD, one for each beginning of a
/// character that comes to nothing; false when there were any.
bool add(std::string& to, std::string_view text);
/// Adds the members ,"text":... and, for a text that is no UTF-8, ,"raw":... in base64 (RFC 4648).
void addText(std::string& to, std::string_view text);

} // namespace Json
