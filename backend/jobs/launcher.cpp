#include "backend/jobs/launcher.h"

#include "backend/os/drain.h"
#include "backend/os/pipe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <wordexp.h>

namespace {

// In bytes; a longer line is handed over in pieces.
constexpr std::size_t maxLine = 4096;
// How long a launcher that was asked to end may take.
constexpr auto maxStop = std::chrono::seconds(2);

} // namespace

Launcher::Launcher(EventLoop& loop, const std::vector<std::string>& argv, const std::string& input,
                   Handler handler)
    : handle(std::move(handler)),
      output(loop),
      unwritten(input),
      inputStream(loop),
      patience(loop) {
    Pipe toIt, fromIt;
    Pipe::unblock(fromIt.reader);
    Pipe::unblock(toIt.writer);
    ChildProcess::Start what;
    what.argv = argv;
    what.input = toIt.reader.get();
    what.output = fromIt.writer.get();
    // A launcher has files of its own to remove.
    what.orphan = ChildProcess::Start::TERMINATED;
    process.start(what);
    pipe = std::move(fromIt.reader);
    output.watch(pipe.get());
    waitToRead();
    inputPipe = std::move(toIt.writer);
    inputStream.watch(inputPipe.get());
    writeSome();
}

Launcher::~Launcher() = default;

// A launcher need not read it.
void Launcher::writeSome() {
    while (!unwritten.empty()) {
        const ssize_t put = ::write(inputPipe.get(), unwritten.data(), unwritten.size());
        if (put == -1 && errno == EINTR) continue;
        if (put == -1 && errno == EAGAIN) return inputStream.whenWritable([this] { writeSome(); });
        if (put == -1) break;
        unwritten.erase(0, static_cast<std::size_t>(put));
    }
    inputStream.release();
    inputPipe.reset();
}

void Launcher::waitToRead() {
    output.whenReadable([this] {
        if (readSome()) waitToRead();
    });
}

// Reads what is there at the moment, once; false when no more will come.
bool Launcher::readSome() {
    std::array<char, 4096> buffer;
    const ssize_t got = ::read(pipe.get(), buffer.data(), buffer.size());
    if (got <= 0) return got == -1 && (errno == EAGAIN || errno == EINTR);
    partial.append(buffer.data(), static_cast<std::size_t>(got));
    for (;;) {
        const std::size_t end = partial.find('\n');
        if (end == std::string::npos && partial.size() < maxLine) break;
        std::string line = partial.substr(0, std::min(end, maxLine));
        partial.erase(0, line.size() + (end == line.size() ? 1 : 0));
        while (line.ends_with('\r') || line.ends_with(' '))
            line.pop_back();
        if (!line.empty()) tell(line);
    }
    return true;
}

// "srun: job 4711 queued and waiting for resources", "salloc: Pending job allocation 4711"; then
// "srun: job 4711 has been allocated resources".
void Launcher::tell(const std::string& line) {
    for (const std::string_view key : {"Pending job allocation ", ": job "}) {
        const std::size_t at = line.find(key);
        if (at == std::string::npos) continue;
        const std::size_t begin = at + key.size();
        const std::size_t end = std::min(line.size(), line.find_first_not_of("0123456789", begin));
        if (end > begin) slurmJob = line.substr(begin, end - begin);
    }
    handle.line(line);
}

void Launcher::stop() {
    stopped = stopped || process.running();
    process.signal(SIGTERM);
    patience.after(maxStop, [this] {
        killed = process.running();
        process.signal(SIGKILL);
    });
}

std::optional<std::string> Launcher::remedy() const {
    if (!killed || slurmJob.empty()) return std::nullopt;
    return "scancel " + slurmJob;
}

bool Launcher::failed() const {
    const bool exited = !process.running() && WIFEXITED(process.status());
    return exited && WEXITSTATUS(process.status()) != 0 && !stopped;
}

void Launcher::collect() {
    if (process.poll() != ChildProcess::ENDED) return;
    // A process that it has started may keep the pipe open, so the pipe's end is not waited for.
    drain(pipe.get(), [this] { return readSome(); });
    if (!partial.empty()) tell(std::exchange(partial, {}));
    output.release();
    pipe.reset();
    handle.ended(ChildProcess::describe(process.status(), "was ended by "));
}

std::vector<std::string> Launcher::split(const std::string& line) {
    wordexp_t found{};
    const int fault = ::wordexp(line.c_str(), &found, WRDE_NOCMD);
    const std::unique_ptr<wordexp_t, decltype(&::wordfree)> owner(
        fault == 0 || fault == WRDE_NOSPACE ? &found : nullptr, ::wordfree);
    if (fault == WRDE_BADCHAR)
        throw std::runtime_error("the launcher '" + line +
                                 "' has one of |&;<>(){} outside quotes.");
    if (fault == WRDE_CMDSUB)
        throw std::runtime_error("the launcher '" + line +
                                 "' would run a command by itself; put its result there.");
    if (fault != 0)
        throw std::runtime_error("the launcher '" + line + "' has a quote that is not closed.");
    std::vector<std::string> words(found.we_wordv, found.we_wordv + found.we_wordc);
    if (words.empty()) throw std::runtime_error("the launcher is empty.");
    return words;
}
