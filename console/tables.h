#pragma once

#include "console/ccommand.h"

/// The tables that dispatch, help, completion and the settings read.

/// What the alternative shell has of a command: the same, a command that does nothing and that no
/// help mentions, or nothing at all.
enum class Luma { SAME, SILENT, ABSENT };

/// A command or help topic.
struct Topic {
    const char* name;
    int id;     ///< index for dispatch, -1 for a topic
    int brief;  ///< message number of the one-line description
    int detail; ///< message number of the full text
    /// The command, null for a topic.
    Action (CommandLine::*handler)(Token&) = nullptr;
    Luma luma = Luma::SAME;

    /// Whether help mentions it.
    bool isShown(bool servesLuma) const { return !servesLuma || luma == Luma::SAME; }
};

/// A word and the value that it stands for.
struct DumpTopic {
    const char* name;
    int id;
};
using BcastTopic = DumpTopic;

enum CommandId {
    HELP_COMMAND,
    OPTION_COMMAND,
    INTERRUPT_COMMAND,
    LEAVE_COMMAND,
    MATCH_COMMAND,
    GROUP_COMMAND,
    ON_COMMAND,
    SEND_COMMAND,
    QUIT_COMMAND,
    EXIT_COMMAND,
    HISTORY_COMMAND,
    INSTANT_COMMAND,
    SCRIPT_COMMAND,
    STAT_COMMAND
};

/// The words of the option command by their index.
enum Option {
    BROADCAST_OPTION,
    ECOLOR_OPTION,
    SCOLOR_OPTION,
    DCOLOR_OPTION,
    BCOLOR_OPTION,
    MODE_OPTION,
    SESSION_OPTION
};

constexpr int numCmds = 14;
constexpr int numTopics = 4;
constexpr int numModes = 3;
constexpr int numBcasts = 2;
constexpr int numOptions = 7;

/// Row i is the command of id i.
extern const Topic cmdList[numCmds];
extern const Topic topicList[numTopics];
extern const DumpTopic dcmdList[numModes];
extern const BcastTopic bcastList[numBcasts];
/// The words of the option command.
extern const char* const optionList[numOptions];
