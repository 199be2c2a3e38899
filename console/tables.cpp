#include "console/tables.h"

#include "common/catalog.h"

const Topic cmdList[numCmds] = {
    {"help", HELP_COMMAND, HELP_HELP_BRIEF, HELP_HELP_DETAIL},
    {"option", OPTION_COMMAND, HELP_OPTION_BRIEF, HELP_OPTION_DETAIL},
    {"interrupt", INTERRUPT_COMMAND, HELP_INTERRUPT_BRIEF, HELP_INTERRUPT_DETAIL},
    {"leave", LEAVE_COMMAND, HELP_LEAVE_BRIEF, HELP_LEAVE_DETAIL},
    {"match", MATCH_COMMAND, HELP_MATCH_BRIEF, HELP_MATCH_DETAIL},
    {"group", GROUP_COMMAND, HELP_GROUP_BRIEF, HELP_GROUP_DETAIL},
    {"on", ON_COMMAND, HELP_ON_BRIEF, HELP_ON_DETAIL},
    {"send", SEND_COMMAND, HELP_SEND_BRIEF, HELP_SEND_DETAIL},
    {"kquit", QUIT_COMMAND, HELP_QUIT_BRIEF, HELP_QUIT_DETAIL},
    {"exit", EXIT_COMMAND, HELP_EXIT_BRIEF, HELP_EXIT_DETAIL},
    {"history", HISTORY_COMMAND, HELP_HISTORY_BRIEF, HELP_HISTORY_DETAIL},
    {"instant", INSTANT_COMMAND, HELP_INSTANT_BRIEF, HELP_INSTANT_DETAIL},
    {"script", SCRIPT_COMMAND, HELP_SCRIPT_BRIEF, HELP_SCRIPT_DETAIL},
    {"stat", STAT_COMMAND, HELP_STAT_BRIEF, HELP_STAT_DETAIL},
};

const Topic topicList[numTopics] = {
    {"general", -1, HELP_GENERAL_BRIEF, HELP_GENERAL_DETAIL},
    {"editing", -1, HELP_EDITING_BRIEF, HELP_EDITING_DETAIL},
    {"states", -1, HELP_STATES_BRIEF, HELP_STATES_DETAIL},
    {"restrictions", -1, HELP_RESTRICTIONS_BRIEF, HELP_RESTRICTIONS_DETAIL},
};

const DumpTopic dcmdList[numModes] = {{"auto", 0}, {"collapsed", 1}, {"expanded", 2}};
const BcastTopic bcastList[numBcasts] = {{"off", 0}, {"on", 1}};
const char* const optionList[numOptions] = {"broadcast", "ecolor", "scolor", "dcolor",
                                            "bcolor",    "mode",   "session"};
