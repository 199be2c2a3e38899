#include "frontend/session/userprograms.h"

#include "backend/os/drain.h"
#include "backend/os/pipe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>
#include <unistd.h>

struct UserPrograms::Running {
    explicit Running(EventLoop& loop) : output(loop), input(loop) {}

    ChildProcess process;
    Descriptor fromIt, toIt;
    Stream output;
    Stream input;
    std::string toWrite;
    bool paused = false;

    void closeInput() {
        input.release();
        toIt.reset();
    }
};

UserPrograms::UserPrograms(EventLoop& eventLoop, Owner& whose)
    : loop(eventLoop),
      owner(whose),
      maxRunning(std::max<std::size_t>(4, 2 * std::thread::hardware_concurrency())) {}

UserPrograms::~UserPrograms() { stopAll(); }

void UserPrograms::stopAll() {
    waiting.clear();
    while (!running.empty())
        stop(running.begin()->first);
}

void UserPrograms::start(int client, Start what) {
    waiting.push_back({client, std::move(what)});
    // Not from within this call: the caller is not done yet.
    loop.post([this] { startNext(); });
}

void UserPrograms::startNext() {
    while (!waiting.empty() && running.size() < maxRunning) {
        Waiting next = std::move(waiting.front());
        waiting.pop_front();
        try {
            begin(next.client, std::move(next.what));
        } catch (const std::system_error& fault) {
            running.erase(next.client);
            owner.onProgramEnded(next.client, fault.what());
        }
    }
}

void UserPrograms::begin(int client, Start what) {
    Pipe input, output;
    Pipe::unblock(input.writer);
    Pipe::unblock(output.reader);
    const auto program = std::make_shared<Running>(loop);
    running[client] = program;
    ChildProcess::Start start;
    start.argv = {"/bin/sh", "-c", what.command};
    start.environment = std::move(what.environment);
    start.input = input.reader.get();
    start.output = output.writer.get();
    program->process.start(start);
    program->toWrite = std::move(what.input);
    program->fromIt = std::move(output.reader);
    program->toIt = std::move(input.writer);
    program->output.watch(program->fromIt.get());
    program->input.watch(program->toIt.get());
    waitToRead(client, program);
    waitToWrite(program);
}

void UserPrograms::waitToRead(int client, const std::shared_ptr<Running>& program) {
    program->output.whenReadable([this, client, program] {
        if (!owner.mayReadProgram(client))
            program->paused = true;
        else if (readSome(client, *program) && program->output.watching())
            waitToRead(client, program);
    });
}

void UserPrograms::waitToWrite(const std::shared_ptr<Running>& program) {
    program->input.whenWritable([this, program] {
        std::string& text = program->toWrite;
        const ssize_t put = ::write(program->toIt.get(), text.data(), text.size());
        if (put > 0) text.erase(0, static_cast<std::size_t>(put));
        // A program that has read enough ("head") closes its end.
        const bool broken = put == -1 && errno != EAGAIN && errno != EINTR;
        if (text.empty() || broken)
            program->closeInput();
        else
            waitToWrite(program);
    });
}

// Reads what is there at the moment, once; false when no more will come.
bool UserPrograms::readSome(int client, Running& program) {
    std::array<char, 65536> buffer;
    const ssize_t got = ::read(program.fromIt.get(), buffer.data(), buffer.size());
    if (got <= 0) return got == -1 && (errno == EAGAIN || errno == EINTR);
    owner.onProgramOutput(client, {buffer.data(), static_cast<std::size_t>(got)});
    return true;
}

void UserPrograms::stop(int client) {
    std::erase_if(waiting, [client](const Waiting& each) { return each.client == client; });
    const auto found = running.find(client);
    if (found == running.end()) return;
    const auto program = found->second;
    running.erase(found);
    if (program->process.running()) ::kill(-program->process.pid(), SIGKILL);
    program->output.release();
    program->fromIt.reset();
    program->closeInput();
    loop.post([this] { startNext(); });
}

void UserPrograms::resume() {
    for (const auto& [client, program] : running) {
        if (std::exchange(program->paused, false)) waitToRead(client, program);
    }
}

void UserPrograms::collect() {
    std::vector<int> over;
    for (const auto& [client, program] : running) {
        if (program->process.poll() == ChildProcess::ENDED) over.push_back(client);
    }
    for (const int client : over) {
        const auto found = running.find(client);
        if (found == running.end()) continue;
        const auto program = found->second;
        // The owner may stop it when it hears its output.
        drain(program->fromIt.get(), [this, client, &program] {
            return program->output.watching() && readSome(client, *program);
        });
        stop(client);
        const int status = program->process.status();
        owner.onProgramEnded(
            client, status == 0 ? "" : ChildProcess::describe(status, "was ended by a signal: "));
    }
}
