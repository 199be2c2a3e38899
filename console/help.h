#pragma once

struct Topic;

/// What the help command prints, on standard output.
namespace Help {

/// The commands, those of the alternative shell only when it is served, and the topics, one a line.
void listCommands(bool servesLuma);
/// The full text of one command or topic.
void showDetail(const Topic& topic);

} // namespace Help
