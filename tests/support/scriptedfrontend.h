#pragma once

#include "common/command.h"
#include "common/data.h"
#include "common/descriptor.h"
#include "common/frame.h"
#include "common/reply.h"
#include "common/unixsock.h"
#include "tests/support/output.h"
#include "tests/support/testing.h"

#include <cstddef>
#include <sys/socket.h>
#include <sys/un.h>

/// The other end of a console's socket, played by a test: it listens on a session number of its
/// own, takes one console, and sends and expects records one by one.
///
/// Every wait has a deadline and throws std::runtime_error that says what was expected. The socket
/// and its name go with the object. One thread only.
class ScriptedFrontEnd {
  public:
    ScriptedFrontEnd() {
        // Even numbers of five digits; tests run side by side, each in a process of its own. The
        // odd ones are nobody's.
        number = 10000 + 2 * (static_cast<int>(::getpid()) % 20000);
        for (;; number += 2) {
            name = "/tmp/.vexsock." + std::to_string(number);
            if (::access(name.c_str(), F_OK) != 0) break;
        }
        listener.bind(name.c_str());
        // As a session does, so that nobody who lists sessions looks whether it is alive.
        sockaddr_un claimed{};
        claimed.sun_family = AF_UNIX;
        const std::string words = "vex-session-" + std::to_string(number);
        words.copy(claimed.sun_path + 1, words.size());
        claim.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(
            ::bind(claim.get(), reinterpret_cast<sockaddr*>(&claimed),
                   static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + words.size())),
            0);
    }
    ~ScriptedFrontEnd() { ::unlink(name.c_str()); }
    ScriptedFrontEnd(const ScriptedFrontEnd&) = delete;
    ScriptedFrontEnd& operator=(const ScriptedFrontEnd&) = delete;

    int session() const { return number; }

    /// While the front end waits, it reads what the console's terminal shows (fd and how to read
    /// it; -1 for none), so that a full terminal never stops the console.
    void watch(int fd, std::function<void()> read) {
        screen = fd;
        readScreen = std::move(read);
    }

    /// Waits for the console to connect and gives it its id.
    void accept(int id) {
        connected();
        console->write(&id, sizeof id);
    }
    /// Waits for the console to connect.
    void connected() {
        if (!readable(listener.getFd(), Deadline().left()))
            expected("a console to connect to " + name);
        std::string peer;
        console = listener.accept(peer);
    }
    /// The next command, whatever it is.
    Command expectCommand() {
        if (!readable(console->getFd(), Deadline().left())) expected("a command from the console");
        Command command;
        command.recv(console.get());
        return command;
    }
    /// The next command, which must be of this type and, when given, with this text.
    Command expectCommand(Command::Type type) {
        Command command = expectCommand();
        if (command.getType() != type)
            expected("a command of type " + std::to_string(type) + ", got " +
                     std::to_string(command.getType()) + ": " + textOf(command));
        return command;
    }
    void expectCommand(Command::Type type, const std::string& text) {
        // A text travels with its NUL; an empty one stands for no content at all.
        const std::string got = textOf(expectCommand(type));
        if (got != (text.empty() ? "" : text + '\0'))
            expected("\"" + text + "\", got \"" + got + "\"");
    }
    /// The next command, which must be a group request.
    GroupCommand expectGroup() {
        const Command command = expectCommand(Command::GROUP);
        GroupCommand group;
        group.unpack(command.getContent(), command.getLength());
        return group;
    }
    /// The request that follows READY: it assigns the group FILTERED. Its clients ("0:2 ").
    std::string expectFiltered() {
        const GroupCommand group = expectGroup();
        if (group.getBase() != "FILTERED" || group.getOpType() != GroupCommand::ASSIGN ||
            group.numOfName() != 0)
            expected("FILTERED to be assigned, got group " + group.getBase());
        return group.ids().str();
    }
    /// Waits until the console has closed the connection; it must not have sent anything more.
    void expectClosed() {
        char byte;
        if (!readable(console->getFd(), Deadline().left()) ||
            ::read(console->getFd(), &byte, 1) > 0)
            expected("the console to close the connection");
    }
    /// Whether bytes of the console wait to be read, now.
    bool hasCommand() const { return waitForCommand(std::chrono::milliseconds(0)); }
    /// The same within a time.
    bool waitForCommand(std::chrono::milliseconds span) const {
        return readable(console->getFd(), static_cast<int>(span.count()));
    }

    /// A TEXT record for the console's id, whose bounds and client count follow from the lines.
    static Data text(int id, const std::vector<Output>& lines, const std::string& command = "") {
        Data data = Output::record(lines);
        data.setConsoleID(id);
        data.setConsoleCmd(command);
        return data;
    }
    /// A record without lines.
    static Data status(Data::Type type, int id) {
        Data data;
        data.setType(type);
        data.setConsoleID(id);
        return data;
    }
    static Reply answer(Reply::Value value, int error = 0, const std::string& text = "") {
        Reply reply(value, error);
        reply.addRetInfo(text.c_str());
        return reply;
    }

    void send(const Data& data) { raw(bytes(data)); }
    void send(const Reply& reply) { raw(bytes(reply)); }
    void ready(int id) { send(status(Data::READY, id)); }
    void success() { send(answer(Reply::SUCCESS)); }
    void reply(Reply::Value value, int error = 0, const std::string& text = "") {
        send(answer(value, error, text));
    }
    void print(int id, const std::vector<Output>& lines) { send(text(id, lines)); }
    /// READY, and the console's FILTERED request answered: the end of a command as consoles see it.
    void finish(int id) {
        ready(id);
        expectFiltered();
        success();
    }
    /// Bytes as they are: several records in one write, or records that lie.
    void raw(const std::string& data) {
        console->write(data.data(), static_cast<int>(data.size()));
    }

    /// A record as it travels, kind word and frame included.
    template <class Record>
    static std::string bytes(const Record& record) {
        int len = 0;
        const auto body = record.pack(&len);
        return Frame::wrap(std::is_same_v<Record, Data> ? KIND_DATA : KIND_REPLY, body.get(), len);
    }

    /// Closes the connection, as the end of the front end's process would.
    void close() { console.reset(); }

  private:
    UnixSocket listener;
    Descriptor claim;
    std::unique_ptr<UnixSocket> console;
    int number = 0;
    std::string name;
    int screen = -1;
    std::function<void()> readScreen;

    [[noreturn]] static void expected(const std::string& what) {
        throw std::runtime_error("expected " + what);
    }
    static std::string textOf(const Command& command) {
        return {command.getContent(), static_cast<std::size_t>(command.getLength())};
    }
    bool readable(int fd, int timeout) const {
        const Deadline deadline{std::chrono::milliseconds(timeout)};
        pollfd fds[2] = {{fd, POLLIN, 0}, {screen, POLLIN, 0}};
        do {
            if (::poll(fds, 2, deadline.left()) <= 0) return false;
            if (fds[0].revents != 0) return true;
            readScreen();
        } while (deadline.left() > 0);
        return false;
    }
};
