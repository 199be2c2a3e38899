#include "frontend/session/userprograms.h"

#include <asio/post.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using asio::posix::descriptor_base;

// The streams own the descriptors.
struct UserPrograms::Running {
    explicit Running(asio::io_context& loop) : output(loop), input(loop) {}

    ChildProcess process;
    asio::posix::stream_descriptor output;
    asio::posix::stream_descriptor input;
    std::string toWrite;
    bool paused = false;
};

namespace {

std::string describe(int status) {
    if (WIFSIGNALED(status))
        return std::string("was ended by a signal: ") + ::strsignal(WTERMSIG(status));
    return WEXITSTATUS(status) == 0 ? ""
                                    : "ended with status " + std::to_string(WEXITSTATUS(status));
}

std::pair<Descriptor, Descriptor> makePipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == -1)
        throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// Ours only: the other end is the program's, which need not expect a non-blocking one.
void unblock(const Descriptor& end) { ::fcntl(end.get(), F_SETFL, O_NONBLOCK); }

} // namespace

UserPrograms::UserPrograms(asio::io_context& eventLoop, Handler handler)
    : loop(eventLoop),
      handle(std::move(handler)),
      most(std::max<std::size_t>(4, 2 * std::thread::hardware_concurrency())) {}

UserPrograms::~UserPrograms() { stopAll(); }

void UserPrograms::stopAll() {
    waiting.clear();
    while (!running.empty())
        stop(running.begin()->first);
}

void UserPrograms::start(int client, Start what) {
    waiting.push_back({client, std::move(what)});
    // Not from within this call: who starts it is not done yet.
    asio::post(loop, [this] { startNext(); });
}

void UserPrograms::startNext() {
    while (!waiting.empty() && running.size() < most) {
        Waiting next = std::move(waiting.front());
        waiting.pop_front();
        try {
            begin(next.client, std::move(next.what));
        } catch (const std::system_error& fault) {
            running.erase(next.client);
            handle.ended(next.client, fault.what());
        }
    }
}

void UserPrograms::begin(int client, Start what) {
    auto [inputReader, inputWriter] = makePipe();
    auto [outputReader, outputWriter] = makePipe();
    unblock(inputWriter);
    unblock(outputReader);
    const auto helper = std::make_shared<Running>(loop);
    running[client] = helper;
    ChildProcess::Start start;
    start.argv = {"/bin/sh", "-c", what.command};
    start.environment = std::move(what.environment);
    start.input = inputReader.get();
    start.output = outputWriter.get();
    helper->process.start(start);
    helper->toWrite = std::move(what.input);
    helper->output.assign(outputReader.release());
    helper->input.assign(inputWriter.release());
    waitToRead(client, helper);
    waitToWrite(helper);
}

void UserPrograms::waitToRead(int client, const std::shared_ptr<Running>& helper) {
    const auto wait = descriptor_base::wait_read;
    helper->output.async_wait(wait, [this, client, helper](const asio::error_code& fault) {
        if (fault) return;
        if (!handle.mayRead(client))
            helper->paused = true;
        else if (readSome(client, *helper) && helper->output.is_open())
            waitToRead(client, helper);
    });
}

void UserPrograms::waitToWrite(const std::shared_ptr<Running>& helper) {
    const auto wait = descriptor_base::wait_write;
    helper->input.async_wait(wait, [this, helper](const asio::error_code& fault) {
        if (fault) return;
        std::string& text = helper->toWrite;
        const ssize_t put = ::write(helper->input.native_handle(), text.data(), text.size());
        if (put > 0) text.erase(0, static_cast<std::size_t>(put));
        // Who has read enough ("head") closes its end.
        const bool broken = put == -1 && errno != EAGAIN && errno != EINTR;
        if (text.empty() || broken)
            helper->input.close();
        else
            waitToWrite(helper);
    });
}

// Reads what is there at the moment, once; false when no more will come.
bool UserPrograms::readSome(int client, Running& helper) {
    std::array<char, 65536> buffer;
    const ssize_t got = ::read(helper.output.native_handle(), buffer.data(), buffer.size());
    if (got <= 0) return got == -1 && (errno == EAGAIN || errno == EINTR);
    handle.output(client, {buffer.data(), static_cast<std::size_t>(got)});
    return true;
}

void UserPrograms::stop(int client) {
    std::erase_if(waiting, [client](const Waiting& each) { return each.client == client; });
    const auto found = running.find(client);
    if (found == running.end()) return;
    const auto helper = found->second;
    running.erase(found);
    if (helper->process.running()) ::kill(-helper->process.pid(), SIGKILL);
    helper->output.close();
    helper->input.close();
    asio::post(loop, [this] { startNext(); });
}

void UserPrograms::resume() {
    for (const auto& [client, helper] : running) {
        if (std::exchange(helper->paused, false)) waitToRead(client, helper);
    }
}

void UserPrograms::collect() {
    std::vector<int> over;
    for (const auto& [client, helper] : running) {
        if (helper->process.poll() == ChildProcess::ENDED) over.push_back(client);
    }
    for (const int client : over) {
        const auto found = running.find(client);
        if (found == running.end()) continue;
        const auto helper = found->second;
        // All that is left fits a pipe's buffer; what it has left behind may go on writing.
        for (int round = 0; round < 64 && helper->output.is_open(); ++round) {
            pollfd ready{helper->output.native_handle(), POLLIN, 0};
            if (::poll(&ready, 1, 0) != 1 || !(ready.revents & POLLIN)) break;
            if (!readSome(client, *helper)) break;
        }
        stop(client);
        handle.ended(client, describe(helper->process.status()));
    }
}

void UserPrograms::listPids(std::vector<pid_t>& pids) const {
    for (const auto& [client, helper] : running)
        pids.push_back(helper->process.pid());
}
