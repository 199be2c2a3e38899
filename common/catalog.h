#pragma once

#include <span>

/// The numbers of all messages: 110 to 221 start-up and system errors, 500 to 601 errors of the
/// command language, 800 to 832 notices, 900 to 957 the help topics (a brief line, then its
/// detailed text), 990 the end of the help overview.
enum MessageId : int {
    ERR_FE_INIT_FAILED = 110,
    ERR_FILTER_LOAD_FAILED = 111,
    ERR_BE_INIT_FAILED = 112,
    ERR_LIB_OPEN_FAILED = 113,
    ERR_HANDLER_INIT_FAILED = 114,
    ERR_NO_AVAIABLE_TASKS_TO_BE_DEBUGGED = 115,
    ERR_CONNECTION_TIMEOUT = 120,
    ERR_ARGUMENT_MISSING = 150,
    ERR_OPTION_INVALID = 151,
    ERR_OPTION_MISSING = 152,
    ERR_ARGUMENT_EXTRA = 153,
    ERR_ARGUMENT_INTEGER = 154,
    ERR_HOST_FILE_INVALID = 160,
    ERR_CONFIG_FILE_MISSING = 170,
    ERR_CONFIG_VARIABLE_MISSING = 171,
    ERR_VARIABLE_FORMAT = 172,
    ERR_VARIABLE_NAME = 173,
    ERR_VARIABLE_VALUE = 174,
    ERR_ATTACH_CFG_FILE_MISSING = 180,
    ERR_ATTACH_CFG_VER_LOW = 181,
    ERR_ATTACH_CFG_FORMAT = 182,
    ERR_SYSCALL = 200,
    ERR_FD_SETSIZE = 210,
    ERR_CONNECTION_LIMIT = 221,
    CMD_IN_INTERRUPT = 500,
    CMD_AMBIGUOUS = 501,
    CMD_IN_NORMAL = 502,
    CMD_USE_SEND = 503,
    CMD_GROUP_NAME = 510,
    CMD_GROUP_NOT_FOUND = 511,
    CMD_GROUP_NUMBER = 512,
    CMD_GROUP_PREDEFINED = 513,
    CMD_GROUP_OPERATION = 514,
    CMD_GROUP_CLIENT_ID = 515,
    CMD_GROUP_RANGE_REVERSED = 516,
    CMD_GROUP_SYMBOL = 517,
    CMD_GROUP_RANGE_OPEN = 518,
    CMD_GROUP_BUSY = 519,
    CMD_HELP_TOPIC = 530,
    CMD_INTERRUPT_EXTRA = 540,
    CMD_ON_GROUP = 550,
    CMD_INSTANT_PARAM = 551,
    CMD_SCRIPT_PARAM = 552,
    CMD_STAT_PARAM = 553,
    CMD_GROUP_DELETE_EMPTY = 600,
    CMD_GROUP_ADD_EMPTY = 601,
    INFO_ERROR_COMMAND = 800,
    INFO_ERROR_CONNECTION = 801,
    INFO_ERROR_MEMORY = 802,
    INFO_ALL_CLIENTS_BROKEN = 803,
    INFO_CLIENT_BROKEN = 804,
    INFO_CLIENT_SIGNAL = 831,
    INFO_CLIENT_INTERRUPT = 832,
    HELP_HELP_BRIEF = 900,
    HELP_HELP_DETAIL = 901,
    HELP_GROUP_BRIEF = 902,
    HELP_GROUP_DETAIL = 903,
    HELP_ON_BRIEF = 904,
    HELP_ON_DETAIL = 905,
    HELP_INTERRUPT_BRIEF = 906,
    HELP_INTERRUPT_DETAIL = 907,
    HELP_LEAVE_BRIEF = 908,
    HELP_LEAVE_DETAIL = 909,
    HELP_QUIT_BRIEF = 910,
    HELP_QUIT_DETAIL = 911,
    HELP_EXIT_BRIEF = 912,
    HELP_EXIT_DETAIL = 913,
    HELP_OPTION_BRIEF = 914,
    HELP_OPTION_DETAIL = 915,
    HELP_MATCH_BRIEF = 916,
    HELP_MATCH_DETAIL = 917,
    HELP_SEND_BRIEF = 918,
    HELP_SEND_DETAIL = 919,
    HELP_HISTORY_BRIEF = 920,
    HELP_HISTORY_DETAIL = 921,
    HELP_INSTANT_BRIEF = 922,
    HELP_INSTANT_DETAIL = 923,
    HELP_SCRIPT_BRIEF = 924,
    HELP_SCRIPT_DETAIL = 925,
    HELP_STAT_BRIEF = 926,
    HELP_STAT_DETAIL = 927,
    HELP_GENERAL_BRIEF = 950,
    HELP_GENERAL_DETAIL = 951,
    HELP_EDITING_BRIEF = 952,
    HELP_EDITING_DETAIL = 953,
    HELP_STATES_BRIEF = 954,
    HELP_STATES_DETAIL = 955,
    HELP_RESTRICTIONS_BRIEF = 956,
    HELP_RESTRICTIONS_DETAIL = 957,
    HELP_EPILOG = 990,
};

/// The built-in texts, in the order that numbers the messages of the external catalog. Constant
/// data: usable before main and from any thread.
class MessageCatalog {
  public:
    struct Entry {
        MessageId number;
        const char* text; ///< begins with the identifier, "3917-nnn" and two blanks
    };

    /// The whole table, ascending by number.
    static std::span<const Entry> entries();
    /// The built-in text, identifier included; null when the table does not hold the number.
    static const char* find(int number);
    /// The message's number in the external catalog, from 1; 0 when the table does not hold it.
    static int GetIndex(int number);
};

/// Looks messages up in the system's message catalog "orn_vex.cat" (set 1), with the built-in texts
/// where that has none. The catalog is opened by the first lookup, once; any thread may call.
class Catalog {
  public:
    /// The text of a message, valid for the program's life; empty for a number that does not exist.
    /// The identifier stands in front except for 800 and the help texts (from 900). Below 900 the
    /// text has the conversions of the built-in one: a translation that differs there is not used.
    static const char* get(int number);
    /// Prints the text and a newline on standard output.
    static void dump(int number);
};
