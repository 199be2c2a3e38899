#include "bench/vexunderload.h"

#include "backend/os/processtree.h"
#include "common/data.h"
#include "common/frame.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr double patience = 300; // s, for a start

std::string readWhole(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// A value in kB of one of /proc's tables.
std::size_t kilobytes(const std::string& table, const std::string& name) {
    const std::size_t at = table.find("\n" + name + ":");
    return at == std::string::npos ? 0 : std::strtoul(&table[at + name.size() + 2], nullptr, 10);
}

} // namespace

double VexUnderLoad::now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double VexUnderLoad::processorOf(pid_t process) {
    // In ns: proc(5) on schedstat.
    return std::strtod(ProcessTree::fileOf(process, "schedstat").c_str(), nullptr) / 1e9;
}

std::size_t VexUnderLoad::peakOf(pid_t process) {
    return 1024 * kilobytes(ProcessTree::fileOf(process, "status"), "VmHWM");
}

std::size_t VexUnderLoad::privateOf(pid_t process) {
    const std::string table = ProcessTree::fileOf(process, "smaps_rollup");
    return 1024 * (kilobytes(table, "Private_Clean") + kilobytes(table, "Private_Dirty"));
}

VexUnderLoad::VexUnderLoad(const std::string& binaries, const std::vector<std::string>& words) {
    char name[] = "/tmp/vex-bench.XXXXXX";
    if (!::mkdtemp(name)) throw std::runtime_error("cannot make a directory below /tmp");
    folder = name;
    // In the place of the console: tells the number of the session, and waits to be killed.
    const std::string console = folder + "/console";
    std::ofstream(console) << "#!/bin/sh\necho $2 >" << folder << "/new\nmv " << folder << "/new "
                           << folder << "/session\nexec sleep 100000\n";
    ::chmod(console.c_str(), S_IRWXU);

    std::vector<std::string> argv{binaries + "/vex", "--console", console};
    argv.insert(argv.end(), words.begin(), words.end());
    std::vector<char*> pointers;
    for (std::string& word : argv)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const double began = now();
    vex = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (vex == -1) throw std::runtime_error("cannot start vex");
    if (vex == 0) {
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    ::fcntl(terminal, F_SETFL, O_NONBLOCK);
    const std::string path = "/tmp/.vexsock." + awaitSession();
    if (socket.connect(path.c_str(), 20) != 0) throw std::runtime_error("no session answers");
    socket.read(&id, sizeof id);
    for (const pid_t guardian : ProcessTree::children(vex)) {
        for (const pid_t below : ProcessTree::children(guardian)) {
            if (ProcessTree::nameOf(below) == "vex") sessionProcess = below;
        }
    }
    if (sessionProcess == -1) throw std::runtime_error("vex runs no session");
    start.wall = now() - began;
    start.processor = processorOf(sessionProcess);
}

VexUnderLoad::~VexUnderLoad() {
    if (vex > 0) {
        ::kill(vex, SIGTERM);
        ::waitpid(vex, nullptr, 0);
    }
    ::close(terminal);
    std::filesystem::remove_all(folder);
}

// The number of the session, once its console is started; shows what vex says when it is not.
std::string VexUnderLoad::awaitSession() {
    std::string said;
    for (const double limit = now() + patience; now() < limit;) {
        char buffer[4096];
        const ssize_t got = ::read(terminal, buffer, sizeof buffer);
        if (got > 0) said.append(buffer, static_cast<std::size_t>(got));
        std::string number = readWhole(folder + "/session");
        if (number.ends_with('\n')) {
            number.pop_back();
            return number;
        }
        int status = 0;
        if (::waitpid(vex, &status, WNOHANG) == vex) {
            vex = -1;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    throw std::runtime_error("the session did not start: " + said);
}

void VexUnderLoad::send(Command::Type type, const std::string& body) {
    Command command;
    command.init(id, "all", type, body.data(),
                 type == Command::GROUP ? static_cast<int>(body.size()) : -1);
    command.send(&socket);
}

// Reads the next message and drops it.
VexUnderLoad::Message VexUnderLoad::next() {
    Message message;
    socket.read(&message.kind, sizeof message.kind);
    char head[4];
    socket.read(head, sizeof head);
    message.size = static_cast<std::size_t>(Frame::length(head));
    // A record's type stands behind the client's id.
    char begin[8] = {};
    std::size_t left = message.size;
    const std::size_t beginning = std::min(left, sizeof begin);
    socket.read(begin, static_cast<int>(beginning));
    left -= beginning;
    message.ready = message.kind == KIND_DATA && Frame::length(&begin[4]) == Data::READY;
    while (left > 0) {
        const std::size_t some = std::min(left, sink.size());
        socket.read(sink.data(), static_cast<int>(some));
        left -= some;
    }
    return message;
}

VexUnderLoad::Cost VexUnderLoad::command(const std::string& text) {
    return ask(Command::CLIENT, text);
}

VexUnderLoad::Cost VexUnderLoad::stat() { return ask(Command::STATCLIENT, "stat"); }

VexUnderLoad::Cost VexUnderLoad::ask(Command::Type type, const std::string& text) {
    Cost cost;
    const double began = now(), had = processorOf(sessionProcess);
    send(type, text);
    for (bool ready = false; !ready;) {
        const Message message = next();
        if (message.kind == KIND_REPLY) throw std::runtime_error("vex has refused: " + text);
        cost.bytes += message.size;
        ++cost.records;
        ready = message.ready;
    }
    cost.wall = now() - began;
    cost.processor = processorOf(sessionProcess) - had;
    GroupCommand filtered;
    filtered.setOpType(GroupCommand::ASSIGN);
    filtered.setBase("FILTERED");
    send(Command::GROUP, Frame::packed(filtered));
    while (next().kind != KIND_REPLY) {
    }
    return cost;
}

VexUnderLoad::Cost VexUnderLoad::quit() {
    const double began = now();
    send(Command::QUIT, "");
    // The console of a user would end now.
    socket.awaitEnd(60000);
    for (const pid_t child : ProcessTree::children(vex)) {
        if (ProcessTree::nameOf(child) == "sleep") ::kill(child, SIGKILL);
    }
    ::waitpid(vex, nullptr, 0);
    vex = -1;
    Cost cost;
    cost.wall = now() - began;
    return cost;
}
