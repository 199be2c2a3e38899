#include "tests/support/scriptedfrontend.h"

namespace {

[[noreturn]] void expected(const std::string& what) {
    throw std::runtime_error("expected " + what);
}

std::string textOf(const Command& command) {
    return {command.getContent(), static_cast<std::size_t>(command.getLength())};
}

} // namespace

bool ScriptedFrontEnd::readable(int fd, int timeout) const {
    const Deadline deadline{std::chrono::milliseconds(timeout)};
    pollfd fds[2] = {{fd, POLLIN, 0}, {screen, POLLIN, 0}};
    do {
        if (::poll(fds, 2, deadline.left()) <= 0) return false;
        if (fds[0].revents != 0) return true;
        readScreen();
    } while (deadline.left() > 0);
    return false;
}

ScriptedFrontEnd::ScriptedFrontEnd() {
    // Even numbers of five digits; tests run side by side, each in a process of its own. The odd
    // ones are nobody's.
    number = 10000 + 2 * (static_cast<int>(::getpid()) % 20000);
    for (;; number += 2) {
        name = "/tmp/.vexsock." + std::to_string(number);
        if (::access(name.c_str(), F_OK) != 0) break;
    }
    listener.bind(name.c_str());
}

void ScriptedFrontEnd::connected() {
    if (!readable(listener.getFd(), Deadline().left())) expected("a console to connect to " + name);
    std::string peer;
    console = listener.accept(peer);
}

Command ScriptedFrontEnd::expectCommand() {
    if (!readable(console->getFd(), Deadline().left())) expected("a command from the console");
    Command command;
    command.recv(console.get());
    return command;
}

Command ScriptedFrontEnd::expectCommand(Command::Type type) {
    Command command = expectCommand();
    if (command.getType() != type)
        expected("a command of type " + std::to_string(type) + ", got " +
                 std::to_string(command.getType()) + ": " + textOf(command));
    return command;
}

void ScriptedFrontEnd::expectCommand(Command::Type type, const std::string& text) {
    // A text travels with its NUL; an empty one stands for no content at all.
    const std::string got = textOf(expectCommand(type));
    if (got != (text.empty() ? "" : text + '\0')) expected("\"" + text + "\", got \"" + got + "\"");
}

GroupCommand ScriptedFrontEnd::expectGroup() {
    const Command command = expectCommand(Command::GROUP);
    GroupCommand group;
    group.unpack(command.getContent(), command.getLength());
    return group;
}

std::string ScriptedFrontEnd::expectFiltered() {
    const GroupCommand group = expectGroup();
    if (group.getBase() != "FILTERED" || group.getOpType() != GroupCommand::ASSIGN ||
        group.numOfName() != 0)
        expected("FILTERED to be assigned, got group " + group.getBase());
    return group.ids().str();
}

void ScriptedFrontEnd::expectClosed() {
    char byte;
    if (!readable(console->getFd(), Deadline().left()) || ::read(console->getFd(), &byte, 1) > 0)
        expected("the console to close the connection");
}

bool ScriptedFrontEnd::waitForCommand(std::chrono::milliseconds span) const {
    return readable(console->getFd(), static_cast<int>(span.count()));
}

void ScriptedFrontEnd::finish(int id) {
    ready(id);
    expectFiltered();
    success();
}
