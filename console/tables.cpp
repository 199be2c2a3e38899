#include "console/tables.h"

#include "common/catalog.h"

const Topic cmdList[numCmds] = {
    {"help", HELP_COMMAND, HELP_HELP_BRIEF, HELP_HELP_DETAIL, &CommandLine::helpCommand},
    {"option", OPTION_COMMAND, HELP_OPTION_BRIEF, HELP_OPTION_DETAIL, &CommandLine::optionCommand,
     Luma::ABSENT},
    {"interrupt", INTERRUPT_COMMAND, HELP_INTERRUPT_BRIEF, HELP_INTERRUPT_DETAIL,
     &CommandLine::interruptCommand},
    {"leave", LEAVE_COMMAND, HELP_LEAVE_BRIEF, HELP_LEAVE_DETAIL, &CommandLine::leaveCommand},
    {"match", MATCH_COMMAND, HELP_MATCH_BRIEF, HELP_MATCH_DETAIL, &CommandLine::matchCommand,
     Luma::ABSENT},
    {"group", GROUP_COMMAND, HELP_GROUP_BRIEF, HELP_GROUP_DETAIL, &CommandLine::groupCommand},
    {"on", ON_COMMAND, HELP_ON_BRIEF, HELP_ON_DETAIL, &CommandLine::onCommand},
    {"send", SEND_COMMAND, HELP_SEND_BRIEF, HELP_SEND_DETAIL, &CommandLine::sendCommand},
    {"kquit", QUIT_COMMAND, HELP_QUIT_BRIEF, HELP_QUIT_DETAIL, &CommandLine::quitCommand},
    {"exit", EXIT_COMMAND, HELP_EXIT_BRIEF, HELP_EXIT_DETAIL, &CommandLine::exitCommand,
     Luma::SILENT},
    {"history", HISTORY_COMMAND, HELP_HISTORY_BRIEF, HELP_HISTORY_DETAIL,
     &CommandLine::historyCommand},
    {"instant", INSTANT_COMMAND, HELP_INSTANT_BRIEF, HELP_INSTANT_DETAIL,
     &CommandLine::sendInstantCmd, Luma::ABSENT},
    {"script", SCRIPT_COMMAND, HELP_SCRIPT_BRIEF, HELP_SCRIPT_DETAIL, &CommandLine::sendScriptCmd,
     Luma::ABSENT},
    {"stat", STAT_COMMAND, HELP_STAT_BRIEF, HELP_STAT_DETAIL, &CommandLine::sendStatCmd,
     Luma::ABSENT},
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
