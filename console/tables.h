#pragma once

/// The tables that dispatch, help, completion and the settings read.

/// A command or help topic.
struct Topic {
    const char* name;
    int id;     ///< index for dispatch, -1 for a topic
    int brief;  ///< message number of the one-line description
    int detail; ///< message number of the full text
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

constexpr int numCmds = 14;
constexpr int numTopics = 4;
constexpr int numModes = 3;
constexpr int numBcasts = 2;
constexpr int numOptions = 7;

extern const Topic cmdList[numCmds];
extern const Topic topicList[numTopics];
extern const DumpTopic dcmdList[numModes];
extern const BcastTopic bcastList[numBcasts];
/// The words of the option command; a word's index is its sub-command.
extern const char* const optionList[numOptions];
