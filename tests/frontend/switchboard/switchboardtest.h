#pragma once

#include "backend/drivers/gdb.h"
#include "common/brokenconnection.h"
#include "frontend/switchboard/switchboard.h"
#include "tests/support/testing.h"

using namespace std::chrono_literals;
using enum Command::Type;
using enum GroupCommand::Type;

// A switchboard with clients, four of them mostly, and consoles 1 and 2, whose acts are written
// down: "1 READY 1", "2 FAILED 519", "1 0@0:3 hello" for a line and its number, "type 0 where" and
// so on, all with a slash between them.
class SwitchboardTest : public testing::Test, private Switchboard::Outlet {
  protected:
    Gdb gdb{"gdb"};
    Switchboard board;
    Clock::time_point now{};
    std::optional<Clock::time_point> wake;
    std::string log;
    int records = 0; // of lines, for console 1

    explicit SwitchboardTest(int clients = 4) : board(clients, gdb, *this) {
        board.consoleJoined(1);
        board.consoleJoined(2);
    }

    // What happened since the last look, which most of what follows is as well.
    std::string happened() { return std::exchange(log, ""); }

    std::string send(int console, Command::Type type, const std::string& group,
                     const std::string& content, int length = -1) {
        Command command;
        command.init(console, group, type, content.c_str(), length);
        board.command(console, command, now);
        return happened();
    }
    std::string types(int console, const std::string& group, const std::string& line) {
        return send(console, CLIENT, group, line);
    }
    std::string replies(const std::string& text, const std::string& group = "all") {
        return send(1, PROMPT, group, text);
    }
    std::string interrupts(const std::string& group, int console = 1) {
        return send(console, INTERRUPT, group, "", 0);
    }
    std::string on(int console, const std::string& group, const std::string& from = "all") {
        return send(console, ON, from, group);
    }
    std::string group(int console, GroupCommand::Type type, const std::string& base,
                      const ClientSet& ids = {}) {
        GroupCommand operation;
        operation.setOpType(type);
        operation.setBase(base);
        if (!ids.empty()) operation.addOperands(ids);
        int length = 0;
        const auto body = operation.pack(&length);
        return send(console, GROUP, "all", {body.get(), static_cast<std::size_t>(length)}, length);
    }
    std::string filtered() { return group(1, ASSIGN, "FILTERED", {0}); }
    void prints(const ClientSet& ids, const std::string& text) {
        for (int id : ids)
            board.output(id, text, now);
    }
    std::string prompts(const ClientSet& ids) {
        for (int id : ids)
            board.prompted(id, now);
        return happened();
    }
    std::string answers(const ClientSet& ids, const std::string& text) {
        prints(ids, text);
        return prompts(ids);
    }
    std::string stops(const ClientSet& ids) { return answers(ids, "received signal SIGINT\n"); }
    std::string dies(int client) {
        board.clientGone(client, now);
        return happened();
    }
    std::string pass(std::chrono::milliseconds time) {
        const auto end = now + time;
        while (wake && *wake <= end) {
            now = std::max(now, *std::exchange(wake, std::nullopt));
            board.tick(now);
        }
        now = end;
        return happened();
    }
    // A command of console 1 to a group.
    void running(const std::string& name = "all") { types(1, name, "continue"); }

  private:
    void note(const std::string& text) { log += (log.empty() ? "" : " / ") + text; }
    void toConsole(int console, const Reply& reply) override {
        static const char* const names[] = {"FAILED", "SUCCESS",    "ON_NORMAL", "ON_INTERRUPT",
                                            "QUERY",  "CLIENT_ADD", "REMOVE"};
        std::string text = std::to_string(console) + " " + names[reply.getRetValue() + 1];
        if (reply.getErrCode() != 0) text += " " + std::to_string(reply.getErrCode());
        note(text + (reply.getRetInfo().empty() ? "" : " ") + reply.getRetInfo());
    }
    void toConsole(int console, const Data& data) override {
        const std::string to = std::to_string(console) + " ",
                          its = std::to_string(data.getConsoleID());
        records += data.getType() == Data::TEXT && console == 1;
        if (data.getType() != Data::TEXT)
            note(to + (data.getType() == Data::READY ? "READY " : "QUIT ") + its);
        else if (console == 1 || its == "2")
            for (const auto& [number, slot] : data.slots())
                for (const Line& line : slot.lines)
                    note(to + std::to_string(number) + "@" + line.clients().str() +
                         std::string(line.getContent()));
    }
    void toConsoles(const std::vector<int>& consoles, const Data& data) override {
        for (const int console : consoles)
            toConsole(console, data);
    }
    void toClient(int client, const std::string& line) override {
        note("type " + std::to_string(client) + " " + line);
    }
    void startUserProgram(int client, const std::string& command,
                          const std::string& input) override {
        note("start " + std::to_string(client) + " " + command + " < " + input);
    }
    void stopUserProgram(int client) override { note("stop " + std::to_string(client)); }
    bool isProgram(const std::string& name) override { return name == "grep" || name == "./it"; }
    std::string describe(int client) override { return "task of " + std::to_string(client); }
    std::vector<StackTree::Row> waits() override { return {{"all wait", {0, 1, 2, 3}}}; }
    void interrupt(int client) override { note("SIGINT " + std::to_string(client)); }
    void sessionOver() override { note("over"); }
    void wakeAt(std::optional<Clock::time_point> time) override { wake = time; }
};
