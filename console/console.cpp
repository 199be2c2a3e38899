#include "console/console.h"

#include "common/catalog.h"
#include "common/config.h"
#include "common/error.h"
#include "common/frame.h"
#include "console/historyfile.h"
#include "console/readline.h"
#include "console/term.h"
#include "console/userfile.h"
#include "display/parser.h"

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <poll.h>
#include <signal.h>
#include <system_error>
#include <unistd.h>

const ArgDescription consoleArgs[numConsoleArgs] = {
    {ARG_INTEGER, 's', "session number", "Which debug session to connect to."},
    {ARG_STRING, 'u', "use luma", "Whether use luma or not. "},
    {ARG_STRING, 'p', "command line file", "Command under batch mode file. "},
    {ARG_BOOLEAN, 'h', "", "Show help information."},
    {ARG_INTEGER, 'b', "frontend process pid", "Abort which frontend process when break"},
    {ARG_NULL, 0, nullptr, nullptr},
};

namespace {

constexpr int defaultTimeout = 600;    // connection attempts, one a second
constexpr int receiveBuffer = 1048576; // bytes
constexpr int largestSession = 99999;  // five digits
constexpr int patience = 2000; // ms for an answer that is due although the user pressed Ctrl-C
constexpr int farewell = 2000; // ms that the front end has to close after a QUIT
constexpr std::size_t recalledLines = 200; // as many as the editor's history holds
constexpr const char* everyClient = "all";

// The console that the signal handler acts for.
std::atomic<Console*> signalCatcher{nullptr};
static_assert(std::atomic<Console*>::is_always_lock_free);

void CatchSignal(int sig) {
    if (Console* console = signalCatcher.load()) console->SignalHandler(sig);
}

// Keeps Ctrl-C away from this thread while a frame is being written.
class InterruptHold {
  public:
    InterruptHold() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        ::pthread_sigmask(SIG_BLOCK, &set, &before);
    }
    ~InterruptHold() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    InterruptHold(const InterruptHold&) = delete;
    InterruptHold& operator=(const InterruptHold&) = delete;

  private:
    sigset_t before;
};

bool processLives(int pid) { return ::kill(pid, 0) == 0 || errno != ESRCH; }

void sayIgnored(const std::string& path) {
    std::printf("%s is ignored: it belongs to another user, or everybody may write to it.\n",
                path.c_str());
}

// Whether nothing but blanks is left to be read, as far as can be told without waiting.
bool inputIsOver() {
    for (;;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        char text[4096];
        if (::poll(&input, 1, 0) != 1) return false;
        const ssize_t got = ::read(STDIN_FILENO, text, sizeof text);
        if (got <= 0) return got == 0;
        if (!std::all_of(text, text + got, [](unsigned char c) { return std::isspace(c); }))
            return false;
    }
}

} // namespace

Console::Console() : machine(*StateMachine::getInstance()) { addTabContext(); }

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
            if (sessionNum > largestSession)
                throw Error(ERR_OPTION_MISSING, args.getExecutable(), consoleArgs[0].name, option);
            serverHost = "/tmp/.vexsock." + std::to_string(sessionNum);
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

    curGroupName = everyClient;
    signalCatcher = this;
    mainThread = std::this_thread::get_id();
    machine.setState(StateMachine::INIT);
    struct sigaction action {};
    action.sa_handler = CatchSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGPIPE, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    // A history file at its limit is a failed write, not the end.
    ::signal(SIGXFSZ, SIG_IGN);

    int attempt = 1;
    for (; client.connect(serverHost.c_str(), 1) != 0; ++attempt) {
        if (attempt == timeout || (feId != -1 && !processLives(feId)))
            throw Error(ERR_CONNECTION_TIMEOUT, attempt);
    }
    // Whoever listens there sees every command and says what the clients print.
    if (const unsigned peer = client.peerUser(); peer != ::getuid() && peer != 0)
        throw Error("The front end at '%s' belongs to another user (user id %u).",
                    serverHost.c_str(), peer);
    client.setRbuf(receiveBuffer);
    client.setCancelFd(machine.quitFd(), farewell);
}

void Console::openSettings() {
    if (const char* lines = std::getenv("VEX_HISTORY_LINES")) maxHistoryLines = std::atoi(lines);
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
    try {
        client.read(&myId, sizeof myId);
        if (myId == -1) throw Error(ERR_CONNECTION_LIMIT);
        if (!configFileName.empty() && ::access(configFileName.c_str(), R_OK) == 0)
            readConfiguration();
        machine.setState(StateMachine::NORMAL);
        runSession();
    } catch (const Error& error) {
        error.dump(true);
        machine.setState(StateMachine::TOQUIT);
    }
    client.close();
    tellReport();
}

// To a descriptor that the front part reads: the numbers of refused commands and of lines with a
// mistake, and whether the input was read to its end.
void Console::tellReport() const {
    const char* place = std::getenv("VEX_CONSOLE_REPORT");
    if (!place) return;
    const std::string text = std::to_string(refusals) + " " + std::to_string(mistakes) + " " +
                             (complete || (!unanswered && inputIsOver()) ? "1" : "0") + "\n";
    (void)!::write(std::atoi(place), text.data(), text.size());
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
    if (isLuma && !isInteractive) sendBatchCommand();
    watchData();
    // Nobody will read what the input thread may still be sending, unless it is a QUIT.
    if (!quitWanted) client.disconnect();
    input.join();
    try {
        if (quitWanted && !quitSent) sendQuit();
    } catch (const BrokenConnection&) {
        // Nobody is left to be told.
    }
    if (quitSent) client.awaitEnd(farewell);
    if (inputFailure) std::rethrow_exception(inputFailure);
}

void Console::sendBatchCommand() {
    machine.parseConsole(StateMachine::COMMON_CMD_EVENT);
    transmit(Command::CLIENT, everyClient, cmdLine.c_str(), -1);
}

void Console::sendQuit() {
    quitSent = true;
    transmit(Command::QUIT, everyClient, nullptr, 0);
}

void* wthread(void* console) {
    Console* self = static_cast<Console*>(console);
    try {
        self->watchInput();
    } catch (const BrokenConnection&) {
        // The data loop meets it too.
    } catch (...) {
        self->inputFailure = std::current_exception();
    }
    self->machine.parseConsole(StateMachine::PASSIVE_QUIT_EVENT);
    return nullptr;
}

Console::Lock Console::takeTurn() {
    const bool waits = std::this_thread::get_id() != mainThread;
    using Clock = std::chrono::steady_clock;
    std::optional<Clock::time_point> deadline;
    for (;;) {
        Lock turn(machine);
        if (!waits || machine.isToQuit()) return turn;
        int ms = -1;
        if (!machine.isBusy()) {
            if (open.empty()) return turn;
            // Ctrl-C came before an answer: the next request must not overtake it.
            if (!deadline) deadline = Clock::now() + std::chrono::milliseconds(patience);
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
            if (left.count() <= 0) {
                open.clear();
                return turn;
            }
            ms = static_cast<int>(left.count());
        }
        turn.unlock();
        machine.waitForChange(ms);
    }
}

void Console::transmit(Command::Type type, const std::string& group, const char* text, int n) {
    const std::lock_guard sending(sendMutex);
    const InterruptHold hold;
    curCmd.init(myId, group, type, text, n);
    curCmd.send(&client);
    curCmd.reset();
}

void Console::openRequest(OpenRequests::Kind kind) {
    open.push(kind);
    machine.parseConsole(StateMachine::SPECIAL_CMD_EVENT, StateMachine::NORMAL) ||
        machine.parseConsole(StateMachine::INTSTATUS_CMD_EVENT, StateMachine::INTERRUPTED);
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
        } else if (isInteractive) {
            machine.setState(StateMachine::INTERRUPTED,
                             {StateMachine::RUNNING, StateMachine::TEMP, StateMachine::INTTEMP});
        } else if (machine.setState(
                       StateMachine::TOQUIT,
                       {StateMachine::RUNNING, StateMachine::TEMP, StateMachine::INTTEMP})) {
            // The data loop wakes up; the session's end sends the QUIT.
            quitWanted = true;
        }
        break;
    default:
        assert(!"Unhandled signal");
    }
    errno = saved;
}

bool Console::showPrompt() {
    const Lock turn = takeTurn();
    if (machine.isToQuit()) return false;
    prompt = "(" + curGroupName + (machine.isInterrupted() ? ":int" : "") + ") ";
    Readline::showPrompt(prompt);
    atPrompt = true;
    return true;
}

void Console::watchInput() {
    Readline::initialize();
    recallHistory();
    while (showPrompt()) {
        const char* line = Readline::line.read();
        {
            const Lock turn(machine);
            atPrompt = false;
        }
        if (!line) {
            if (!Readline::line.isClosed()) continue;
            complete = true;
            if (std::getenv("VEX_CONSOLE_REPORT")) std::puts("");
            leaveSession();
            continue;
        }
        const char* text = line;
        while (std::isspace(static_cast<unsigned char>(*text)))
            ++text;
        if (*text) writeHistoryFile(std::string(text) + "\n");
        try {
            parseCommandLine(line);
        } catch (Token& token) {
            const Lock turn(machine);
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

void Console::watchData() {
    try {
        while (!machine.isToQuit()) {
            int kind;
            client.read(&kind, sizeof kind);
            switch (kind) {
            case KIND_DATA:
                handleData();
                break;
            case KIND_REPLY:
                handleReply();
                break;
            default:
                assert(!"Unknown data type");
            }
            std::fflush(stdout);
        }
    } catch (const BrokenConnection&) {
        machine.parseConsole(StateMachine::PASSIVE_QUIT_EVENT);
    }
}

void Console::handleReply() {
    curReply.reset();
    curReply.recv(&client);
    // The turn is held until the message of a failure is out: the prompt comes after it.
    const Lock turn(machine);
    actOnReply();
}

void Console::actOnReply() {
    const std::string& text = curReply.getRetInfo();
    switch (curReply.getRetValue()) {
    case Reply::FAILED:
        unanswered = false;
        // That the last client has gone refuses nothing.
        if (curReply.getErrCode() != INFO_ALL_CLIENTS_BROKEN) ++refusals;
        // A command in flight is not in the queue of requests.
        if (!machine.setState(StateMachine::NORMAL, {StateMachine::RUNNING})) {
            open.pop();
            if (open.empty()) {
                machine.setState(StateMachine::NORMAL, {StateMachine::TEMP}) ||
                    machine.setState(StateMachine::INTERRUPTED, {StateMachine::INTTEMP});
            }
        }
        machine.announce();
        if (curReply.getErrCode() != 0) {
            try {
                Error::raiseReply(curReply.getErrCode(), text);
            } catch (const Error& error) {
                error.dump(false);
            }
        }
        if (open.empty()) promptAgain(machine.isInterrupted() ? ":int) " : ") ");
        break;
    case Reply::SUCCESS:
        if (text == "NULL") {
            open.pop();
            Token all(everyClient);
            onCommand(all);
        } else {
            answered(StateMachine::NORMAL);
        }
        break;
    case Reply::ON_NORMAL:
        switched(") ", StateMachine::NORMAL);
        break;
    case Reply::ON_INTERRUPT:
        switched(":int) ", StateMachine::INTERRUPTED);
        break;
    case Reply::GROUP_QUERY:
        std::printf("%s", text.c_str());
        answered(StateMachine::NORMAL);
        break;
    case Reply::CLIENT_ADD:
        std::printf("A new client %d was forked:%s\n", curReply.getErrCode(), text.c_str());
        break;
    case Reply::CLIENT_REMOVE:
        std::printf("Client %d was terminated\n", curReply.getErrCode());
        break;
    }
}

// A request has its answer. The console is back in its saved state only with the last one that is
// open; the one for "FILTERED" ends a command, so that what follows it ends in NORMAL.
void Console::answered(StateMachine::STATE afterFiltered) {
    const OpenRequests::Kind kind = open.pop();
    if (open.empty())
        machine.parseConsole(StateMachine::GROUP_REPLY_EVENT);
    else if (kind == OpenRequests::FILTERED)
        machine.setSaved(afterFiltered);
    machine.announce();
}

// The prompt under which the input thread waits is an old one. An input thread that is not at its
// prompt prints the new one itself, as soon as it may.
void Console::promptAgain(const char* suffix) {
    if (needToPrompt && atPrompt) {
        prompt = "(" + curGroupName + suffix;
        std::printf("%s", prompt.c_str());
        std::fflush(stdout);
    }
    needToPrompt = false;
}

void Console::switched(const char* suffix, StateMachine::STATE state) {
    open.pop();
    curGroupName = curReply.getRetInfo();
    promptAgain(suffix);
    if (open.empty() || !machine.isBusy())
        machine.setState(state);
    else
        machine.setSaved(state);
    machine.announce();
}

void Console::handleData() {
    curData.recv(&client);
    Lock turn(machine);
    switch (curData.getType()) {
    case Data::READY:
        handleReady(turn);
        break;
    case Data::QUIT: {
        if (curData.getConsoleID() != myId) {
            std::printf("\n");
            needToPrompt = true;
        }
        Token all(everyClient);
        onCommand(all);
        break;
    }
    case Data::TEXT:
        handleText();
        break;
    default:
        assert(!"Unhandled data type");
    }
}

void Console::handleReady(Lock& turn) {
    const bool lastCommand = isLuma && !isInteractive;
    if (curData.getConsoleID() == myId) {
        unanswered = false;
        if (lastCommand) {
            machine.parseConsole(StateMachine::EXEC_OVER_EVENT);
        } else {
            // One step: the input thread must not find the console idle before the group
            // "FILTERED" has been answered.
            open.dropInterrupts();
            open.push(OpenRequests::FILTERED);
            machine.finishAndRequest();
            createFilteredGroupCmd(turn);
        }
    }
    if (lastCommand) {
        quitWanted = true;
        machine.parseConsole(StateMachine::ACTIVE_QUIT_EVENT);
        sendQuit();
    }
}

void Console::handleText() {
    if (curData.getConsoleID() != myId) {
        if (toBcast != 1) return;
        if (!curData.getConsoleCmd().empty()) std::puts(curData.getConsoleCmd().c_str());
        display(curData, c_bcolor, c_bcolor, c_bcolor, nullptr);
        return;
    }
    if (!machine.isInterrupted()) display(curData, c_ecolor, c_scolor, c_dcolor, nullptr);
    lastData.addData(&curData);
    lastData.merge();
    lastData.truncate(maxHistoryLines);
    addNewTabContext(curData);
}

bool Console::display(Data& data, int ecolor, int scolor, int dcolor, const char* pattern) {
    Parser parser;
    if (Term::isPlain()) {
        parser.setPlain();
    } else {
        parser.setColor(colorList[ecolor].detail, Parser::EQUAL_COLOR);
        parser.setColor(colorList[scolor].detail, Parser::SIMILAR_COLOR);
        parser.setColor(colorList[dcolor].detail, Parser::DIFFERENT_COLOR);
    }
    return parser.dump(&data, static_cast<Parser::Mode>(c_dmode), pattern);
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
