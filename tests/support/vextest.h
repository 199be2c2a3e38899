#pragma once

#include "backend/os/processtree.h"
#include "common/clientset.h"
#include "common/command.h"
#include "common/data.h"
#include "common/frame.h"
#include "common/reply.h"
#include "common/unixsock.h"
#include "tests/support/tempdir.h"
#include "tests/support/terminal.h"
#include "tests/support/testing.h"

#include <iostream>

// Whether one of the lines has this text in it.
inline bool contain(const Lines& lines, const std::string& text) {
    return std::ranges::any_of(
        lines, [&text](const std::string& each) { return each.find(text) != std::string::npos; });
}

// A console of which only the connection exists.
class Peer {
  public:
    // Waits for its number, unless it is early; the debuggers have prompted then.
    explicit Peer(const std::string& path, bool early = false) {
        if (socket.connect(path.c_str(), 20) != 0) throw std::runtime_error("nobody listens");
        if (early) return;
        awaitBytes();
        socket.read(&id, sizeof id);
    }

    void send(Command::Type type, const std::string& group, const std::string& text = "") {
        Command command;
        command.init(id, group, type, text.c_str(), text.empty() ? 0 : -1);
        command.send(&socket);
    }
    void raw(const std::string& bytes) {
        socket.write(bytes.data(), static_cast<int>(bytes.size()));
    }
    // The next record, as text: "READY", "REPLY -1 511", or the lines of a TEXT record, each as
    // "0:3 | content".
    Lines next() {
        Data pieces;
        return next(pieces);
    }
    std::string interrupted = "all"; // the group
    bool deaf = false;               // to what others' commands bring
    // All that comes until READY, or until another record that ends a wait: the lines, then the
    // other records. Slow clients send the same line later; it counts once.
    Lines untilReady() {
        Data pieces;
        Lines others;
        for (;;) {
            const Lines some = next(pieces);
            const bool ready = some == Lines{"READY"};
            if (!ready && !(some.size() == 1 && some[0].starts_with("REPLY"))) continue;
            // Not all have stopped within a second; a debugger on a busy machine may have dropped
            // the interrupt. A user tries again.
            if (some == Lines{"REPLY 0 0"}) {
                send(Command::INTERRUPT, interrupted);
                continue;
            }
            others.push_back(some[0]);
            if (!ready && !some[0].starts_with("REPLY -1")) continue;
            pieces.merge();
            Lines all = textOf(pieces);
            all.insert(all.end(), others.begin(), others.end());
            return all;
        }
    }
    Lines command(const std::string& text, const std::string& group = "all") {
        send(Command::CLIENT, group, text);
        return finish();
    }
    // The answer to a command or an interrupt, and FILTERED as a console does it.
    Lines finish() {
        Lines answer = untilReady();
        if (answer.back() == "READY") assign("FILTERED", {});
        return answer;
    }
    void assign(const std::string& name, const ClientSet& clients) {
        GroupCommand group;
        group.setOpType(GroupCommand::ASSIGN);
        group.setBase(name);
        group.addOperands(clients);
        const std::string body = Frame::packed(group);
        Command command;
        command.init(id, "all", Command::GROUP, body.data(), static_cast<int>(body.size()));
        command.send(&socket);
        // Output of other consoles' commands may come in between, and who has come or ended.
        Lines reply = next();
        while (reply.empty() || !reply[0].starts_with("REPLY") || reply[0].starts_with("REPLY 4") ||
               reply[0].starts_with("REPLY 5"))
            reply = next();
        EXPECT_EQ(reply, Lines{"REPLY 0 0"});
    }
    // Waits for the announcement of this many forked clients: their numbers.
    ClientSet forked(int number) {
        ClientSet found;
        while (number > 0) {
            const Lines record = next();
            if (!record.empty() && record[0].starts_with("REPLY 4 ")) {
                found.insert(std::stoi(record[0].substr(8)));
                --number;
            }
        }
        return found;
    }
    // Waits until the example's tasks have said that they stand still: one computes, the others
    // wait for messages.
    void awaitTheHang(int tasks) {
        for (int told = 0; told < tasks;) {
            for (const std::string& line : next())
                told += line.find("still waits") != std::string::npos ||
                        line.find("does not settle") != std::string::npos;
        }
    }
    bool closed() {
        try {
            for (;;)
                next();
        } catch (const BrokenConnection&) {
            return true;
        }
    }

  private:
    UnixSocket socket;
    int id = 0;

    // Adds the lines of a TEXT record to those before.
    Lines next(Data& pieces) {
        awaitBytes();
        int kind = 0;
        socket.read(&kind, sizeof kind);
        if (kind == KIND_REPLY) {
            Reply reply;
            reply.recv(&socket);
            return {"REPLY " + std::to_string(reply.getRetValue()) + " " +
                    std::to_string(reply.getErrCode())};
        }
        Data data;
        data.recv(&socket);
        if (data.getType() == Data::READY) return {"READY"};
        if (deaf && data.getConsoleID() != id) return {};
        pieces.addData(&data);
        return textOf(data);
    }
    static Lines textOf(const Data& data) {
        Lines lines;
        for (const auto& [number, slot] : data.slots()) {
            for (const Line& line : slot.lines)
                lines.push_back(line.clients().str() + "| " + std::string(line.getContent()));
        }
        return lines;
    }
    void awaitBytes() {
        pollfd ready{socket.getFd(), POLLIN, 0};
        if (::poll(&ready, 1, Deadline().left()) != 1) throw std::runtime_error("no answer");
    }
};

// vex with real debuggers, on a terminal, its console being a program that does nothing.
class VexTest : public UserTest {
  protected:
    TempDir folder;
    std::unique_ptr<Terminal> vex;
    std::string socketPath;           // of the session begun last
    long long socketTime = 1;         // of the session begun last
    std::optional<std::string> input; // in place of the terminal

    // What went wrong stands there, most often.
    void TearDown() override {
        if (!HasFailure() || !vex) return;
        std::cout << "the terminal:\n" << vex->screen() << std::endl;
        if (!vex->running()) std::cout << "vex ended with " << vex->exitStatus() << std::endl;
    }
    std::string script(const std::string& name, const std::string& text) {
        const std::string path = folder.write(name, text);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }
    // Runs what it is given behind the name of a host, on this one, and notes the host.
    std::string fakeSsh() {
        return script("ssh", "#!/bin/sh\necho \"$1\" >>" + folder.path("hosts.log") +
                                 "\nshift\ncd /\nexec sh -c \"$*\"\n");
    }
    void launch(const Lines& arguments) {
        Terminal::Start start{{program("vex")}, {{"VEX_TEST", folder.path()}}, input};
        start.argv.insert(start.argv.end(), arguments.begin(), arguments.end());
        vex = std::make_unique<Terminal>(start);
    }
    // Starts n clients of the example; gives the socket's path.
    std::string begin(int n, const Lines& more = {}) {
        Lines arguments{"-n", std::to_string(n)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.push_back(program("halo"));
        return beginWith(arguments);
    }
    // Starts a session of any kind.
    std::string beginWith(const Lines& more) {
        const std::string file = folder.path("session");
        std::filesystem::remove(file);
        const std::string console =
            script("console", "#!/bin/sh\necho $2 > " + file + ".new\nmv " + file + ".new " + file +
                                  "\nexec sleep infinity\n");
        Lines arguments{"--console", console};
        arguments.insert(arguments.end(), more.begin(), more.end());
        launch(arguments);
        await("session");
        const std::string path =
            "/tmp/.vexsock." + std::to_string(std::atoi(folder.read("session").c_str()));
        socketTime = std::max(1LL, timeOf(path)); // it may have ended
        return socketPath = path;
    }
    // When a file was made or changed last, in ns; 0: there is none.
    static long long timeOf(const std::string& path) {
        struct stat status {};
        if (::stat(path.c_str(), &status) == -1) return 0;
        return status.st_ctim.tv_sec * 1000000000LL + status.st_ctim.tv_nsec;
    }
    // The living processes that descend from this test's vex, itself included.
    std::vector<pid_t> living() const {
        std::vector<pid_t> found = ProcessTree::everyone();
        std::erase_if(found, [this](pid_t id) {
            return ProcessTree::variable(id, "VEX_TEST") != folder.path();
        });
        return found;
    }
    static std::vector<pid_t> named(const std::string& name, std::vector<pid_t> among) {
        std::erase_if(among, [&name](pid_t id) { return ProcessTree::nameOf(id) != name; });
        return among;
    }
    static std::vector<pid_t> tasksOf(pid_t launcher, const std::string& name) {
        return named(name, ProcessTree::descendants(launcher));
    }
    // The child of that name; -1: there is none.
    static pid_t childOf(pid_t parent, const std::string& name) {
        const auto found = named(name, ProcessTree::children(parent));
        return found.empty() ? -1 : found[0];
    }
    // The process that serves the consoles: vex has a guardian, which has it as a child.
    pid_t sessionPid() const { return childOf(childOf(vex->pid(), "vex"), "vex"); }
    // A real console ends when its connection does; this one is made to.
    void killConsole() const {
        EXPECT_TRUE(eventually([&] { return !consoles().empty(); }));
        kill(consoles());
    }
    std::vector<pid_t> consoles() const { return named("sleep", living()); }
    static void kill(const std::vector<pid_t>& ids) {
        for (const pid_t id : ids)
            ::kill(id, SIGKILL);
    }
    // Waits for a file of the folder that is there as a whole or not at all.
    void await(const std::string& file) const {
        EXPECT_TRUE(eventually([&] { return !folder.read(file).empty(); })) << file;
    }
    void expectNothingLeft(const std::string& path) const {
        EXPECT_TRUE(eventually([this] { return living().empty(); }));
        // The number may have gone to a session of another test.
        if (!path.empty()) {
            EXPECT_NE(timeOf(path), socketTime) << path;
        }
    }
    // Ends the session by kquit.
    void quit(Peer& console) {
        console.send(Command::QUIT, "all");
        EXPECT_TRUE(console.closed());
        expectEnd(0);
    }
    // The session ends as soon as its console does; nothing is left of it.
    void expectEnd(int status) {
        killConsole();
        EXPECT_EQ(vex->exitStatus(), status) << vex->screen();
        expectNothingLeft(socketPath);
    }
};
