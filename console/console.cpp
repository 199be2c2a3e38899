#include "console/console.h"

#include "common/brokenconnection.h"
#include "common/catalog.h"
#include "common/config.h"
#include "common/error.h"
#include "common/frame.h"
#include "common/sessionfile.h"
#include "console/help.h"
#include "console/historyfile.h"
#include "console/readline.h"
#include "console/report.h"
#include "console/tables.h"
#include "console/term.h"
#include "console/userfile.h"
#include "display/screen.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <signal.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <variant>

const ArgDescription consoleArgs[numConsoleArgs] = {
    {ARG_INTEGER, 's', "session number", "Which debug session to connect to."},
    {ARG_STRING, 'u', "use luma", "Whether use luma or not. "},
    {ARG_STRING, 'p', "command line file", "Command under batch mode file. "},
    {ARG_BOOLEAN, 'h', "", "Show help information."},
    {ARG_INTEGER, 'b', "frontend process pid", "Abort which frontend process when break"},
    {ARG_NULL, 0, nullptr, nullptr},
};

namespace {

constexpr int defaultTimeout = 600;        // connection attempts, one a second
constexpr std::size_t recalledLines = 200; // as many as the editor's history holds

// The console that the signal handler acts for.
std::atomic<Console*> signalCatcher{nullptr};
static_assert(std::atomic<Console*>::is_always_lock_free);

void CatchSignal(int sig) {
    if (Console* console = signalCatcher.load()) console->SignalHandler(sig);
}

void sayIgnored(const std::string& path) {
    std::printf("%s is ignored: it belongs to another user, or everybody may write to it.\n",
                path.c_str());
}

bool confirm(const char* question) {
    const char* answer = Readline::readCommandLine(question);
    return answer && std::toupper(static_cast<unsigned char>(*answer)) == 'Y';
}

} // namespace

Console::Console()
    : machine(*StateMachine::getInstance()), session(settings, link), commands(*this) {}

Console::~Console() {
    if (signalCatcher.load() != this) return;
    ::signal(SIGINT, SIG_IGN);
    signalCatcher = nullptr;
}

void Console::getArgs(Argument& args) {
    for (const auto& [option, value] : args.getOptions()) {
        switch (option) {
        case 's':
            sessionNum = value;
            // A longer number is nobody's session, and must not become somebody else's by being
            // cut.
            if (sessionNum > SessionFile::maxNumber)
                throw Error(ERR_OPTION_MISSING, args.getExecutable(), consoleArgs[0].name, option);
            serverHost = SessionFile::path(sessionNum);
            break;
        case 'u':
            if (std::strcmp(value, "yes") == 0) isLuma = true;
            break;
        case 'p': {
            Config config;
            config.readConfiguration(value);
            cmdLine = config["command_line"];
            if (config["exe_mode"] == "batch") isInteractive = false;
            break;
        }
        case 'b':
            feId = value;
            break;
        default:
            assert(!"Unhandled option");
        }
    }
}

void Console::connectToFrontEnd() {
    int timeout = defaultTimeout;
    if (const char* pause = std::getenv("VEX_DEBUG_TIMEOUT")) {
        if (const int seconds = std::atoi(pause); seconds > 0) {
            std::printf("DEBUG: VEX Console will sleep %d seconds for attach\n", seconds);
            std::fflush(stdout);
            ::sleep(static_cast<unsigned>(seconds));
        }
    }
    if (const char* limit = std::getenv("VEX_CONSOLE_TIMEOUT")) {
        timeout = std::atoi(limit);
        if (timeout < 1)
            throw Error("\"VEX_CONSOLE_TIMEOUT\"(%d) should be positive value.", timeout);
    }
    if (!isLuma && ::getuid() == 0) throw Error("can't run console as root");

    signalCatcher = this;
    machine.setState(StateMachine::INIT);
    struct sigaction action {};
    action.sa_handler = CatchSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGPIPE, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    // A history file at its limit is a failed write, not the end.
    ::signal(SIGXFSZ, SIG_IGN);

    link.connect(serverHost, timeout, feId);
    link.setCancelFd(machine.quitFd());
}

void Console::openSettings() {
    if (const char* lines = std::getenv("VEX_HISTORY_LINES"))
        settings.maxHistoryLines = std::atoi(lines);
    const char* home = std::getenv("HOME");
    if (!home) return;
    const std::string name = std::string(home) + (isLuma ? "/.luma" : "/.vex");
    if (!UserFile::makeDirectory(name)) std::printf("Creating configuration directory failed.\n");
    if (UserFile::isForeignDirectory(name)) {
        sayIgnored(name);
        return;
    }
    dirName = name;
    configFileName = dirName + "/conf";
    historyFileName = dirName + "/history";
    for (const std::string& path : {configFileName, historyFileName}) {
        if (const UserFile file(path); file.isForeign()) sayIgnored(file.path());
    }
}

void Console::init(Argument& args) {
    getArgs(args);
    connectToFrontEnd();
    openSettings();
    bool failed = false;
    try {
        link.receiveId();
        if (!configFileName.empty() && ::access(configFileName.c_str(), R_OK) == 0)
            settings.readConfiguration(configFileName);
        machine.setState(StateMachine::NORMAL);
        runSession();
    } catch (const Error& error) {
        error.dump(true);
        machine.setState(StateMachine::TOQUIT);
        failed = true;
    }
    link.close();
    const int lostBy = Screen::lostBy();
    if (lostBy != 0)
        std::fprintf(stderr, "vexconsole: output was lost: %s\n", std::strerror(lostBy));
    if (::isatty(STDIN_FILENO)) {
        if (failed) Report::tell(session.getRefusals(), mistakes, false);
    } else if (Report::isWanted()) {
        const bool over =
            lostBy == 0 &&
            (complete || (!session.isUnanswered() && !lineLost && Report::inputIsOver()));
        Report::tell(session.getRefusals(), mistakes, over);
    }
}

void Console::runSession() {
    // The input thread is woken and joined on every way out of the data loop.
    struct Input {
        StateMachine& machine;
        std::thread thread;
        ~Input() { join(); }
        void join() {
            machine.setState(StateMachine::TOQUIT);
            if (thread.joinable()) thread.join();
        }
    } input{machine, {}};
    if (isInteractive) {
        term.setWakeFd(machine.quitFd());
        try {
            input.thread = std::thread(wthread, this);
        } catch (const std::system_error&) {
            throw Error(ERR_SYSCALL, "error when call pthread_create");
        }
    }
    if (isLuma && !isInteractive) session.sendBatchCommand(cmdLine);
    watchData();
    // Nobody will read what the input thread may still be sending, unless it is a QUIT.
    if (!session.isQuitWanted()) link.disconnect();
    input.join();
    session.finish();
    complete |= Screen::isGone();
    if (inputFailure) std::rethrow_exception(inputFailure);
}

void Console::SignalHandler(int sig) {
    const int saved = errno;
    switch (sig) {
    case SIGPIPE:
        break;
    case SIGINT:
        if (machine.isInit()) {
            if (feId > 0 && ::kill(feId, 0) == 0) {
                ::kill(feId, SIGUSR1);
            } else {
                term.restore();
                ::_exit(1);
            }
            break;
        }
        if (isInteractive) {
            machine.setState(StateMachine::INTERRUPTED,
                             {StateMachine::RUNNING, StateMachine::TEMP, StateMachine::INTTEMP});
        } else if (machine.setState(
                       StateMachine::TOQUIT,
                       {StateMachine::RUNNING, StateMachine::TEMP, StateMachine::INTTEMP})) {
            // The data loop wakes up; the session's end sends the QUIT.
            session.wantQuit();
        }
        // Behind the change: what sees the old state sees an interrupt that is still to come.
        session.cutShort();
        break;
    default:
        assert(!"Unhandled signal");
    }
    errno = saved;
}

void Console::watchData() {
    try {
        while (!machine.isToQuit()) {
            switch (link.receiveKind()) {
            case KIND_DATA:
                session.handleData();
                break;
            case KIND_REPLY:
                session.handleReply();
                break;
            default:
                assert(!"Unknown data type");
            }
            Screen::flushStdio();
            // As at the end of the input: nobody is there to read any more.
            if (Screen::isGone()) session.disconnect();
        }
    } catch (const BrokenConnection&) {
        machine.parseConsole(StateMachine::PASSIVE_QUIT_EVENT);
    }
}

void* wthread(void* console) {
    static_cast<Console*>(console)->watchInput();
    return nullptr;
}

void Console::watchInput() {
    try {
        readLines();
    } catch (const BrokenConnection&) {
        // The data loop meets it too.
    } catch (...) {
        inputFailure = std::current_exception();
    }
    machine.parseConsole(StateMachine::PASSIVE_QUIT_EVENT);
}

void Console::readLines() {
    Readline::initialize();
    recallHistory();
    while (session.showPrompt()) {
        const char* line = Readline::line.read();
        session.endPrompt();
        if (!line) {
            if (!Readline::line.isClosed()) {
                lineLost |= !Readline::line.isEmpty();
                continue;
            }
            complete = !term.hasFailed();
            lineLost |= !complete && !Readline::line.isEmpty();
            if (Report::isWanted()) std::puts("");
            session.disconnect();
            continue;
        }
        const char* text = line;
        while (std::isspace(static_cast<unsigned char>(*text)))
            ++text;
        lineInHand = *text != '\0';
        if (lineInHand) writeHistoryFile(std::string(text) + "\n");
        try {
            parseCommandLine(line);
        } catch (Token& token) {
            const ConsoleSession::Lock quiet = session.takeQuiet();
            reportError(token.Error(), token.Cursor());
        }
        std::fflush(stdout);
    }
}

void Console::recallHistory() {
    if (historyFileName.empty()) return;
    const std::string text = HistoryFile(historyFileName).tail(recalledLines);
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        Readline::line.recall(text.substr(at, end - at));
        at = end + 1;
    }
}

void Console::reportError(const char* message, const char* rest) {
    ++mistakes;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    // The catalog gives out only texts with the conversions of "%s Error near: %s<END>\n".
    std::printf(Catalog::get(INFO_ERROR_COMMAND), message, rest);
#pragma GCC diagnostic pop
    std::fflush(stdout);
}

// A line and what it asks for.

ConsoleSession::Lock& Console::takeTurn() {
    if (!turn.owns_lock()) turn = session.takeTurn();
    // The session may end between the reading of a line and this.
    if (lineInHand && machine.isToQuit()) lineLost = true;
    return turn;
}

bool Console::isNormal() {
    takeTurn();
    return machine.isNormal();
}

bool Console::isInterrupted() {
    takeTurn();
    return machine.isInterrupted();
}

void Console::parseCommandLine(const char* line) {
    // Also when the line is wrong.
    const struct GiveBack {
        ConsoleSession::Lock& turn;
        ~GiveBack() {
            if (turn.owns_lock()) turn.unlock();
        }
    } giveBack{turn};
    carryOutAny(commands.parse(line));
}

void Console::carryOutAny(const Action& action) {
    std::visit([this](const auto& asked) { carryOut(asked); }, action);
}

void Console::carryOut(const Actions::Send& command) {
    session.send(takeTurn(), command.type, command.text);
}

void Console::carryOut(const Actions::Group& group) {
    session.sendGroupCmd(takeTurn(), group.command);
}

void Console::carryOut(const Actions::Leave&) { session.leave(); }

void Console::carryOut(const Actions::Quit&) {
    if (!confirm("Really want to quit (all processes)? (y/n) ")) return;
    complete = true;
    session.quit();
}

void Console::carryOut(const Actions::Exit&) {
    if (!confirm("Really want to quit (current console only)? (y/n) ")) return;
    complete = true;
    session.disconnect();
}

void Console::carryOut(const Actions::ShowOption& shown) {
    if (shown.option == SESSION_OPTION)
        std::printf("current session number is %d.\n", sessionNum);
    else
        settings.show(shown.option);
}

void Console::carryOut(const Actions::SetOption& change) {
    if (!settings.set(change.option, change.value)) carryOut(Actions::OptionUsage{});
}

void Console::carryOut(const Actions::OptionUsage&) {
    ++mistakes;
    Help::showDetail(cmdList[OPTION_COMMAND]);
}

void Console::carryOut(const Actions::Help& help) {
    if (help.topic)
        Help::showDetail(*help.topic);
    else
        Help::listCommands(isLuma);
}

void Console::carryOut(const Actions::History& history) { readHistoryFile(history.count); }

void Console::carryOut(const Actions::Match& match) {
    if (!session.match(match.cascade)) ++mistakes;
}

void Console::carryOut(const Actions::Refuse& refused) {
    const std::string message = Catalog::get(CMD_USE_SEND);
    reportError(message.c_str(), refused.line.c_str());
}

void Console::carryOut(const Actions::Undefined& quotation) {
    ++mistakes;
    std::puts("Undefined token.");
    Token word = quotation.word;
    carryOutAny(commands.sendClientCmd(word));
}

void Console::writeHistoryFile(const std::string& line) {
    HistoryFile(historyFileName).write(line);
}

int Console::countLineNumOfFile(const std::string& path) { return HistoryFile(path).countLines(); }

void Console::readHistoryFile(const std::string& count) const {
    // More digits than any file has lines: all of them.
    const std::size_t lines = count.size() > 9 ? 1000000000 : std::stoul(count);
    const std::string text = HistoryFile(historyFileName).tail(lines);
    std::fwrite(text.data(), 1, text.size(), stdout);
}
