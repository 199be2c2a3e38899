#include "common/catalog.h"

#include <algorithm>
#include <array>

namespace {

// New messages change the numbers of all that follow in the external catalog: add them at the end.
constexpr auto table = std::to_array<MessageCatalog::Entry>({
    {ERR_FE_INIT_FAILED, "3917-110  Failed to start VEX session.\n"},
    {ERR_FILTER_LOAD_FAILED, "3917-111  Failed to load VEX filter library.\n"},
    {ERR_BE_INIT_FAILED, "3917-112  Failed to start VEX back end.\n"},
    {ERR_LIB_OPEN_FAILED, "3917-113  Failed to open VEX filter library.\n"},
    {ERR_HANDLER_INIT_FAILED, "3917-114  Failed to start handler thread.\n"},
    {ERR_NO_AVAIABLE_TASKS_TO_BE_DEBUGGED,
     "3917-115  Information about debugged tasks is not available for launch or attach.\n"},
    {ERR_CONNECTION_TIMEOUT, "3917-120  Connection time-out after %d seconds.\n"},
    {ERR_ARGUMENT_MISSING, "3917-150  %d arguments are required to run '%s'.\n"},
    {ERR_OPTION_INVALID, "3917-151  '%s' does not recognize option '-%c'.\n"},
    {ERR_OPTION_MISSING, "3917-152  '%s' requires <%s> after -%c.\n"},
    {ERR_ARGUMENT_EXTRA, "3917-153  Extra argument '%s' to '%s'.\n"},
    {ERR_ARGUMENT_INTEGER, "3917-154  Argument <%s> to '%s' must be an integer.\n"},
    {ERR_HOST_FILE_INVALID, "3917-160  Host file '%s' is not editable.\n"},
    {ERR_CONFIG_FILE_MISSING, "3917-170  Cannot find configuration file '%s'.\n"},
    {ERR_CONFIG_VARIABLE_MISSING, "3917-171  Configuration file must define '%s' variable.\n"},
    {ERR_VARIABLE_FORMAT, "3917-172  Expect '=' in variable definition:\n"
                          "%s\n"},
    {ERR_VARIABLE_NAME, "3917-173  Invalid variable name in definition:\n"
                        "%s\n"},
    {ERR_VARIABLE_VALUE, "3917-174  The value of variable '%s' must be one of:%s\n"},
    {ERR_ATTACH_CFG_FILE_MISSING, "3917-180  Cannot find TAL attach.cfg file '%s'.\n"},
    {ERR_ATTACH_CFG_VER_LOW, "3917-181  Version of TAL attach.cfg file '%s' is low.\n"},
    {ERR_ATTACH_CFG_FORMAT, "3917-182  Format of TAL attach.cfg file '%s' is incorrect.\n"},
    {ERR_SYSCALL, "3917-200  System call failed: %s.\n"},
    {ERR_FD_SETSIZE, "3917-210  Maximum file descriptor number exceeds FD_SETSIZE (%d).\n"},
    {ERR_CONNECTION_LIMIT, "3917-221  The VEX front end has reached its connection limit. \n"},
    {CMD_IN_INTERRUPT, "3917-500  This command cannot run in interrupt state."},
    {CMD_AMBIGUOUS, "3917-501  Ambiguous command."},
    {CMD_IN_NORMAL, "3917-502  This command cannot run in normal state."},
    {CMD_USE_SEND, "3917-503  Use 'send %s' to send secondary prompt messages."},
    {CMD_GROUP_NAME, "3917-510  Invalid group name."},
    {CMD_GROUP_NOT_FOUND, "3917-511  Group not found."},
    {CMD_GROUP_NUMBER, "3917-512  Cannot create or change a number-named group."},
    {CMD_GROUP_PREDEFINED, "3917-513  Cannot change a predefined group."},
    {CMD_GROUP_OPERATION, "3917-514  Invalid group operation."},
    {CMD_GROUP_CLIENT_ID, "3917-515  Invalid client ID."},
    {CMD_GROUP_RANGE_REVERSED, "3917-516  Reversed range."},
    {CMD_GROUP_SYMBOL, "3917-517  Invalid symbol."},
    {CMD_GROUP_RANGE_OPEN, "3917-518  Invalid open range."},
    {CMD_GROUP_BUSY, "3917-519  Group busy."},
    {CMD_HELP_TOPIC, "3917-530  Invalid help topic."},
    {CMD_INTERRUPT_EXTRA, "3917-540  Extra parameters."},
    {CMD_ON_GROUP, "3917-550  Must specify an existing group."},
    {CMD_INSTANT_PARAM,
     "3917-551  Must specify actual debugger command as argument for instant command."},
    {CMD_SCRIPT_PARAM, "3917-552  Must specify actual external shell script or binary file as "
                       "argument for script command."},
    {CMD_STAT_PARAM, "3917-553  Not a valid option for \"stat\" command."},
    {CMD_GROUP_DELETE_EMPTY, "3917-600  Group %s is empty and deleted.\n"},
    {CMD_GROUP_ADD_EMPTY, "3917-601  Group %s is empty and not added.\n"},
    {INFO_ERROR_COMMAND, "3917-800  %s Error near: %s<END>\n"},
    {INFO_ERROR_CONNECTION, "3917-801  The connection terminated.\n"},
    {INFO_ERROR_MEMORY, "3917-802  Out of memory.\n"},
    {INFO_ALL_CLIENTS_BROKEN, "3917-803  The connections to all clients were broken.\n"},
    {INFO_CLIENT_BROKEN, "3917-804  The connection to client %d was broken .\n"},
    {INFO_CLIENT_SIGNAL, "3917-831  Send process %d signal %d.\n"},
    {INFO_CLIENT_INTERRUPT, "3917-832  Issue interrupt command: %s.\n"},
    {HELP_HELP_BRIEF, "3917-900  Show help information"},
    {HELP_HELP_DETAIL, "3917-901  help                 -- Overview of VEX commands and topics.\n"
                       "help <command/topic> -- Details of a command or a topic.\n"},
    {HELP_GROUP_BRIEF, "3917-902  Group clients"},
    {HELP_GROUP_DETAIL,
     "3917-903  group -- show all groups.\n"
     "group <name> -- show the clients of one group.\n"
     "group <name> = <clients> -- make <name> the group of these clients only.\n"
     "group <name> + <clients> -- add the clients to the group.\n"
     "group <name> - <clients> -- remove the clients from the group.\n"
     "\n"
     "<name>    -- A letter or an underscore, then letters, digits and\n"
     "             underscores. A group that does not exist is created.\n"
     "<clients> -- Client numbers, ranges and group names, separated by blanks.\n"
     "             A range is written client:client, the lower number first.\n"
     "\n"
     "Predefined groups, which cannot be changed:\n"
     "0, 1, ... -- One group for each client, named by the client's number.\n"
     "all       -- Every client.\n"
     "FILTERED  -- The clients that answered the last command; set anew by each.\n"
     "PENDING   -- The clients that have not answered yet; 'on PENDING' goes there.\n"
     "\n"
     "Examples:\n"
     "group g1 = 0:3 7     -- The clients 0, 1, 2, 3 and 7.\n"
     "group g1 + g2 12     -- And those of the group g2, and client 12.\n"
     "group odd = FILTERED -- Keep the clients that have just answered.\n"},
    {HELP_ON_BRIEF, "3917-904  Switch client group"},
    {HELP_ON_DETAIL, "3917-905  on <group> -- Set current group to be <group>.\n"
                     "              Client commands are broadcast to every member of the current\n"
                     "              group; the prompt shows its name. The group must exist, see\n"
                     "              'help group'.\n"
                     "\n"
                     "Examples:\n"
                     "on 3          -- Talk to client 3 alone.\n"
                     "on all        -- Talk to every client again.\n"},
    {HELP_INTERRUPT_BRIEF, "3917-906  Interrupt the execution of clients"},
    {HELP_INTERRUPT_DETAIL,
     "3917-907  interrupt -- Stop clients in current group by sending SIGINT.\n"
     "             Available only in interrupt state.\n"},
    {HELP_LEAVE_BRIEF, "3917-908  Leave interrupt state"},
    {HELP_LEAVE_DETAIL, "3917-909  leave -- To leave interrupt state.\n"
                        "         Available only in interrupt state.\n"},
    {HELP_QUIT_BRIEF, "3917-910  Kill clients and quit"},
    {HELP_QUIT_DETAIL,
     "3917-911  kquit -- Kill all running clients by SIGKILL and quit.\n"
     "         The child processes of the clients, the debugged programs among\n"
     "         them, are killed first, then the clients themselves. This ends the\n"
     "         session for every console. You are asked before: y kills, any other\n"
     "         answer does nothing.\n"
     "         Use it only when the client's own quit command does not work. To\n"
     "         leave the session without killing anything, use 'exit'.\n"},
    {HELP_EXIT_BRIEF, "3917-912  Exit current console only"},
    {HELP_EXIT_DETAIL,
     "3917-913  exit -- Exit the current console only.\n"
     "        Nothing is killed: the clients, the debugged programs and the other\n"
     "        consoles go on. A session that was started on a terminal lives on\n"
     "        without a console; a session that a script controls ends with its last\n"
     "        console.\n"
     "        You are asked before: y leaves, any other answer does nothing.\n"
     "        'option session' shows the number of the session; by that number,\n"
     "        'vex --join <number>' opens another console of it.\n"},
    {HELP_OPTION_BRIEF, "3917-914  option <broadcast | <ecolor|scolor|dcolor|bcolor> <name> | mode "
                        "<auto|collapsed|expanded> | session>"},
    {HELP_OPTION_DETAIL,
     "3917-915  option broadcast <on|off> -- set broadcast mode. on: also show the output of\n"
     "                             other consoles' commands. Normal state only.\n"
     "option ecolor <color> -- color of equal lines: all clients printed the same.\n"
     "option scolor <color> -- color of similar lines: they differ in a few\n"
     "                         characters.\n"
     "option dcolor <color> -- color of different lines.\n"
     "option bcolor <color> -- color of broadcast output (of other consoles).\n"
     "option mode <mode> -- how output is displayed:\n"
     "                      collapsed  each distinct line once, after the list of\n"
     "                                 the clients that printed it;\n"
     "                      expanded   every line of every client by itself, client\n"
     "                                 after client;\n"
     "                      auto       line by line: expanded where the clients\n"
     "                                 differ much, else collapsed.\n"
     "option session -- show the session number.\n"
     "\n"
     "<color>: black, red, green, yellow, darkblue, purple, blue, white, gray,\n"
     "         darkgreen.\n"
     "Without a value, an option shows its current value. Defaults are read from\n"
     "the file ~/.vex/conf: one 'name = value' a line, the mode by the name dmode.\n"},
    {HELP_MATCH_BRIEF, "3917-916  Filter client command outputs with regular expression"},
    {HELP_MATCH_DETAIL,
     "3917-917  match -- show last client command outputs.\n"
     "match <regexp> -- show only those of its lines that match <regexp>.\n"
     "match <regexp> | match <regexp> ... -- only the lines that match all of them.\n"
     "\n"
     "<regexp> -- An extended regular expression; upper and lower case are the same.\n"
     "            Put it in single or double quotes when it holds blanks, bars or\n"
     "            quotes: unquoted words are joined without the blanks.\n"
     "            It is tested on the whole line as displayed, the client numbers\n"
     "            in front included.\n"
     "\n"
     "Normal state only. The last 1000 lines are kept; the environment variable\n"
     "VEX_HISTORY_LINES sets another number.\n"
     "\n"
     "A client command can also be piped through the system's grep, before its\n"
     "output comes to the console; grep then sees the output of each client by\n"
     "itself: 'where | grep main'. Such a bar stands between blanks, outside quotes\n"
     "and brackets, before a program; '::' at the start of the line keeps it for\n"
     "the client.\n"
     "\n"
     "Examples:\n"
     "match main                      -- Lines that hold 'main'.\n"
     "match 'foo.c:[0-9]+'            -- Lines that name a place in foo.c.\n"
     "match 'error|warning'           -- Lines that hold either word.\n"
     "match 'error' | match '^[^|]*7' -- Of these, those of a client with a 7.\n"},
    {HELP_SEND_BRIEF, "3917-918  Send secondary prompt messages"},
    {HELP_SEND_DETAIL,
     "3917-919  send command -- send secondary prompt messages.\n"
     "                A client that asks back, with (y or n) or a prompt such as >,\n"
     "                waits for an answer, and its command does not end. Press\n"
     "                ctrl+c for the interrupt state, unless the prompt shows\n"
     "                ':int' already, and send the answer. It goes to the current\n"
     "                group; the command then runs on.\n"
     "                Only one word or number is sent. Quote anything longer; the\n"
     "                quotes are not sent.\n"
     "                Outside interrupt state the whole line, 'send' included, goes\n"
     "                to the clients.\n"
     "\n"
     "Examples:\n"
     "send y              -- Answer yes.\n"
     "send 'print x'      -- Two words.\n"
     "send end            -- End the lines that gdb's 'commands' asks for.\n"},
    {HELP_HISTORY_BRIEF, "3917-920  List history commands"},
    {HELP_HISTORY_DETAIL, "3917-921  history -- List latest 10 history commands.\n"
                          "history <number> -- List latest <number> history commands.\n"},
    {HELP_INSTANT_BRIEF,
     "3917-922  Execute internal debugger(gdb/dbx/idbc) command in non-aggregation way"},
    {HELP_INSTANT_DETAIL,
     "3917-923  instant -- execute internal debugger(gdb/dbx/idbc) command in non-aggregation "
     "way.\n"
     "           The output of each client is shown as it comes, without waiting\n"
     "           for the other clients to compare it with theirs.\n"
     "\n"
     "instant <command> -- Run <command> so on every client of the current group.\n"
     "\n"
     "Example:\n"
     "instant run\n"},
    {HELP_SCRIPT_BRIEF, "3917-924  Execute script/binary including internal debugger command"},
    {HELP_SCRIPT_DETAIL,
     "3917-925  Execute script/binary with internal debugger command.\n"
     "script <file> [arguments] -- Run an external script or program once for each\n"
     "                             client of the current group.\n"
     "          A line that it prints as\n"
     "              vex_cmd <debugger command>\n"
     "          goes to the client as a command, and what the client answers is\n"
     "          shown in its place. Any other line is output as it stands.\n"
     "          Ctrl+c and then 'interrupt' end the script as well.\n"
     "\n"
     "Environment of the script:\n"
     "VEX_SCRIPT_TASKID   -- Number of the task, from 0.\n"
     "VEX_SCRIPT_DEBUGGER -- The debugger in use: gdb or idbc (dbx on another\n"
     "                       operating system).\n"
     "\n"
     "Example, the file where.sh, to be run by 'script ./where.sh':\n"
     "#!/bin/sh\n"
     "echo \"This is task $VEX_SCRIPT_TASKID under $VEX_SCRIPT_DEBUGGER.\"\n"
     "echo \"vex_cmd where\"\n"},
    {HELP_STAT_BRIEF, "3917-926  Execute process Stack Trace Analysis"},
    {HELP_STAT_DETAIL,
     "3917-927  Collect and aggregate process's threads' stack information\n"
     "stat [-s] -- Collect the stack of every thread of each process in the current\n"
     "             group and aggregate them by function name only, into one tree of\n"
     "             calls that shows which clients are where. Like the debuggers'\n"
     "             commands for a backtrace of all threads (gdb: thread apply all\n"
     "             backtrace), but for the whole group at once.\n"
     "             First come the places where threads are, the fewest clients\n"
     "             first, then the tree.\n"
     "stat -s   -- Tell calls apart by source file and line as well, and show them.\n"
     "stat -i   -- Show only the innermost calls, without the tree.\n"
     "\n"
     "Examples:\n"
     "stat                -- Where does every process stand?\n"
     "match main          -- Then: only the lines that hold 'main'.\n"
     "stat | grep main    -- The same by the system's grep.\n"},
    {HELP_GENERAL_BRIEF, "3917-950  Understanding the VEX commands"},
    {HELP_GENERAL_DETAIL,
     "3917-951  There are two types of commands: VEX commands and client commands.\n"
     "\n"
     "VEX commands are those that 'help' lists; VEX carries them out itself. Every\n"
     "other line is a client command: it is passed to all clients of the current\n"
     "group, and what they answer is shown together.\n"
     "\n"
     "A client is one debugger with one task of the job. Clients are numbered from\n"
     "0. The prompt names the current group, at first (all): see 'help group' and\n"
     "'help on'. Output names the clients that printed it before the bar:\n"
     "    0:3 7 | text     -- The clients 0, 1, 2, 3 and 7 printed 'text'.\n"
     "\n"
     "VEX commands can be abbreviated, so that some short client commands do not\n"
     "reach the clients. Put a colon before those:\n"
     "    s, i, h, o       -- Ambiguous, since several VEX commands begin so. Type\n"
     "                        :s to step, :i r to see the registers.\n"
     "    l                -- Is leave. Type :l, or list.\n"
     "    k                -- Is kquit, which asks whether to kill everything.\n"
     "                        Type :k, or kill.\n"
     "    e, g, m          -- Are exit, group and match.\n"
     "b, c, d, f, n, p, r, u, x, step, info and list are client commands as they\n"
     "stand.\n"
     "\n"
     "To leave this console without killing anything, use exit; the session goes\n"
     "on as 'help exit' says. quit is a client command: it ends the debuggers of\n"
     "the current group. kquit kills everything.\n"
     "\n"
     "Which commands are available depends on the state; see 'help states' and the\n"
     "user manual, vexconsole(1).\n"},
    {HELP_EDITING_BRIEF, "3917-952  Command editing"},
    {HELP_EDITING_DETAIL,
     "3917-953  Simple command editing and command history are supported. Here are\n"
     "the keys:\n"
     "\n"
     "Ctrl-B, Left     -- Move back one character.\n"
     "Ctrl-F, Right    -- Move forward one character.\n"
     "Ctrl-A, Home     -- Move to the beginning of the line.\n"
     "Ctrl-E, End      -- Move to the end of the line.\n"
     "Ctrl-D, Delete   -- Delete the character under the cursor.\n"
     "Backspace        -- Delete the character before the cursor.\n"
     "Ctrl-K           -- Delete from the cursor to the end of the line.\n"
     "Ctrl-U           -- Undo all changes of the line.\n"
     "Insert           -- Switch between inserting and overwriting.\n"
     "Ctrl-P, Up       -- Show the previous line of the history.\n"
     "Ctrl-N, Down     -- Show the next line of the history.\n"
     "Ctrl-R           -- Search the history backwards for the text typed so far.\n"
     "                    Press it again and again to cycle through all lines that\n"
     "                    hold the text.\n"
     "Tab              -- Complete the word before the cursor. Press it again for\n"
     "                    the next candidate; after the last, the word as typed may\n"
     "                    come back. Candidates are VEX words and words of the last\n"
     "                    output.\n"},
    {HELP_STATES_BRIEF, "3917-954  States of VEX and clients"},
    {HELP_STATES_DETAIL,
     "3917-955  Normal state:\n"
     "    All clients have prompted. The console shows its prompt, for example\n"
     "    (all). Every command is available, but interrupt and leave do nothing\n"
     "    and send is passed to the clients.\n"
     "\n"
     "Running state:\n"
     "    Clients of the current group run a command and have not prompted. The\n"
     "    console shows what they print and no prompt; no command is available.\n"
     "    The normal state comes back by itself when all clients have prompted.\n"
     "    Control-C or SIGINT leads into interrupt state.\n"
     "\n"
     "Interrupt state:\n"
     "    Some clients have not prompted: they still run, or they ask back and wait\n"
     "    for an answer. The console shows the prompt with ':int', for example\n"
     "    (all:int). Control-C itself does not stop the clients. Now use\n"
     "        interrupt  -- to stop the clients by SIGINT,\n"
     "        send       -- to answer a client that asks back,\n"
     "        leave      -- to wait on for the clients.\n"
     "    help, history, group, on, kquit and exit are available too, and option\n"
     "    except for broadcast. Client commands, instant, script, stat and match\n"
     "    are not. Output that comes meanwhile is kept for match.\n"},
    {HELP_RESTRICTIONS_BRIEF, "3917-956  Client commands/features to avoid"},
    {HELP_RESTRICTIONS_DETAIL,
     "3917-957  VEX relies on a predefined prompt for tracking client status. To\n"
     "know when a client has finished a command, it looks for this prompt at the\n"
     "beginning of a line. Client commands and features that change the prompt, or\n"
     "that keep it from the beginning of a line, are to be avoided:\n"
     "\n"
     "Prompt        -- Do not change it (gdb: set prompt).\n"
     "Settings      -- Do not change those that VEX has set: confirm, pagination,\n"
     "                 width, height, style and editing.\n"
     "Screens       -- Do not use full-screen features (gdb: tui, layout) and\n"
     "                 programs that need the terminal, such as editors.\n"
     "Further lines -- Commands that ask for more lines (gdb: commands, define,\n"
     "                 python without an argument) have a prompt of their own. Give\n"
     "                 the lines by 'send' in interrupt state, or put the commands\n"
     "                 into a file and read it with the client's source command.\n"},
    {HELP_EPILOG, "3917-990  Type 'help' followed by a command or a topic to see details.\n"
                  "Commands starting with a colon(:) are passed to the client directly.\n"
                  "All commands can be abbreviated by their prefixes.\n"},
});

static_assert(std::ranges::is_sorted(table, std::ranges::less_equal{},
                                     &MessageCatalog::Entry::number));

} // namespace

std::span<const MessageCatalog::Entry> MessageCatalog::entries() { return table; }
