#pragma once

#include "common/clientset.h"
#include "common/command.h"

#include <string>

/// The words of what users type.
namespace Text {

/// The content of a text command: one line, up to its NUL.
std::string of(const Command& command);
std::string firstWord(const std::string& text);
/// The text behind the first word and its blanks.
std::string afterWord(const std::string& text);
/// The text without the quotes around it, if there are any.
std::string unquoted(const std::string& text);
/// A word as a shell and wordexp(3) read it again: in quotes, but as it stands where it needs none,
/// for those who start programs without a shell.
std::string quoted(const std::string& word);
/// "0:3 5 7:9".
std::string list(const ClientSet& ids);
/// The last part of a path.
std::string baseName(const std::string& path);

} // namespace Text
