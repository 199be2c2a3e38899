// Plays the front end to a console and measures the console's processor time and memory.
//
//   vex_load CONSOLE WORKLOAD CLIENTS RECORDS MODE [RUNS]
//
// WORKLOAD: a all clients say the same, b three variants spread at random, c an address of its own
// in every client's every line, d as c, with a word of its own that begins with a letter, flood
// distinct lines, idle nothing. A text of 100 lines of 80 bytes comes in RECORDS records: one line
// each for 100, an equal share of the clients each for any other number; flood sends RECORDS
// records of 4,000 lines. MODE: auto, collapsed, expanded; "seen" behind it (auto-seen) shows 500
// words beforehand. Prints one line: bytes, and of the best run ms of processor time, ms of the
// bare loop, MiB at the peak and behind it, writes and bytes written. For idle: wake-ups of the
// console in two seconds at its prompt, and with a command in flight.
#include "common/clientset.h"
#include "common/command.h"
#include "common/data.h"
#include "common/frame.h"
#include "common/reply.h"
#include "common/sessionfile.h"
#include "common/unixsock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int lineCount = 100;

// Big-endian integers and texts, appended to records that are far larger than Data can hold twice.
struct Bytes {
    std::string text;
    void number(int value) {
        const std::uint32_t v = static_cast<std::uint32_t>(value);
        const char bytes[] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16),
                              static_cast<char>(v >> 8), static_cast<char>(v)};
        text.append(bytes, 4);
    }
    void string(std::string_view s) {
        number(static_cast<int>(s.size()) + 1);
        text.append(s).push_back('\0');
    }
};

// The text of one line, 80 bytes; `odd` makes it another variant, `own` is the client's part.
std::string lineOf(int line, int odd, std::string_view own) {
    std::string text = "#" + std::to_string(line) + "  " + std::string(own) +
                       " in relax (grid=" + std::to_string(512 + odd) +
                       ", rows=77, step=12) at ring.c:";
    text.resize(76, '.');
    return text + std::to_string(1000 + line + odd);
}

void writeLine(Bytes& out, int number, const std::vector<int>& ids, const std::string& text) {
    out.number(number);
    out.number(static_cast<int>(ids.size()));
    for (const int id : ids)
        out.number(id);
    out.string(text);
    out.number(static_cast<int>(hashStr(text)));
}

// The lines from, ..., to - 1 of the clients first, ..., last - 1.
std::string record(char workload, int from, int to, int first, int last) {
    Bytes out;
    for (const int head : {0, static_cast<int>(Data::TEXT), 1, to})
        out.number(head);
    if (from > 0) out.number(-from);
    std::mt19937 random(static_cast<unsigned>(from * 131 + first + 1));
    for (int line = from; line < to; ++line) {
        if (workload == 'a' || workload == 'b') {
            const int variants = workload == 'a' ? 1 : 3;
            std::vector<std::vector<int>> sets(static_cast<std::size_t>(variants));
            for (int id = first; id < last; ++id)
                sets[random() % sets.size()].push_back(id);
            std::erase_if(sets, [](const auto& set) { return set.empty(); });
            out.number(static_cast<int>(sets.size()));
            for (std::size_t v = 0; v < sets.size(); ++v)
                writeLine(out, line, sets[v], lineOf(line, static_cast<int>(v), "0x00005555"));
            continue;
        }
        out.number(last - first);
        for (int id = first; id < last; ++id) {
            char own[40];
            const unsigned long long address = 0x7f0000000000u + (random() & 0xffffffu) * 4096ull +
                                               static_cast<unsigned long long>(id);
            if (workload == 'd')
                std::snprintf(own, sizeof own, "0x%012llx w%08x", address,
                              static_cast<unsigned>(line * 131072 + id));
            else
                std::snprintf(own, sizeof own, "0x%012llx", address);
            writeLine(out, line, {id}, lineOf(line, 0, own));
        }
    }
    out.number(last - first);
    out.number(last - 1);
    out.number(first);
    out.string("");
    return out.text;
}

// So many lines, one client's, all different.
std::string floodRecord(int from, int number) {
    Bytes out;
    for (const int head : {0, static_cast<int>(Data::TEXT), 1, from + number})
        out.number(head);
    if (from > 0) out.number(-from);
    for (int line = from; line < from + number; ++line) {
        char own[40];
        std::snprintf(own, sizeof own, "value %08d", line);
        out.number(1);
        writeLine(out, line, {0}, lineOf(line, 0, own));
    }
    for (const int bound : {1, 0, 0})
        out.number(bound);
    out.string("");
    return out.text;
}

// 500 words of one client.
std::string wordsRecord() {
    Bytes out;
    for (const int head : {0, static_cast<int>(Data::TEXT), 1, 1, 1})
        out.number(head);
    std::string text;
    for (int i = 0; i < 500; ++i)
        text += "word" + std::to_string(i) + " ";
    writeLine(out, 0, {0}, text);
    for (const int bound : {1, 0, 0})
        out.number(bound);
    out.string("");
    return out.text;
}

using Records = std::vector<std::string>;

Records recordsOf(const std::string& workload, int clients, int records) {
    Records all;
    for (int r = 0; r < records; ++r) {
        std::string body;
        if (workload == "flood")
            body = floodRecord(r * 4000, 4000);
        else if (records == lineCount)
            body = record(workload[0], r, r + 1, 0, clients);
        else
            body = record(workload[0], 0, lineCount, r * (clients / records),
                          (r + 1) * (clients / records));
        all.push_back(Frame::wrap(KIND_DATA, body.data(), static_cast<int>(body.size())));
    }
    return all;
}

double processorMs(pid_t pid) {
    clockid_t clock;
    timespec now{};
    if (::clock_getcpuclockid(pid, &clock) != 0 || ::clock_gettime(clock, &now) != 0) return 0;
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// A number of a file of /proc, behind its name.
double statusOf(pid_t pid, const char* file, const std::string& name) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(name, 0) == 0) return std::atof(line.c_str() + name.size());
    }
    return 0;
}

struct Figures {
    double ms = 0, peak = 0, after = 0, writes = 0, written = 0;
};

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what); }

// A console between a pipe for its keyboard and /dev/null for its screen.
class Console {
  public:
    explicit Console(const char* program) {
        number = 30000 + static_cast<int>(::getpid()) % 20000;
        path = SessionFile::path(number);
        listener.bind(path.c_str());
        int pipe[2];
        if (::pipe2(pipe, O_CLOEXEC) != 0) fail("pipe");
        pid = ::fork();
        if (pid == 0) {
            ::dup2(pipe[0], STDIN_FILENO);
            const int nowhere = ::open("/dev/null", O_WRONLY);
            ::dup2(nowhere, STDOUT_FILENO);
            const std::string session = std::to_string(number);
            ::execl(program, program, "-s", session.c_str(), nullptr);
            ::_exit(127);
        }
        ::close(pipe[0]);
        keyboard = pipe[1];
        std::string peer;
        socket = listener.accept(peer);
        const int id = 1;
        socket->write(&id, sizeof id);
        socket->setSbuf(1048576);
    }
    ~Console() {
        ::close(keyboard);
        socket.reset();
        ::waitpid(pid, nullptr, 0);
        ::unlink(path.c_str());
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    void type(const std::string& line) {
        if (::write(keyboard, line.data(), line.size()) < 0) fail("keyboard");
    }
    void expect(Command::Type type) {
        Command command;
        command.recv(socket.get());
        if (command.getType() != type) fail("another command");
    }
    void send(const std::string& bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t piece = std::min<std::size_t>(bytes.size() - at, 1 << 20);
            socket->write(bytes.data() + at, static_cast<int>(piece));
            at += piece;
        }
    }
    // A whole command with these records as its output.
    Figures run(const Records& records) {
        type("run\n");
        expect(Command::CLIENT);
        Data ready;
        ready.setType(Data::READY);
        ready.setConsoleID(1);
        Figures figures;
        std::ofstream("/proc/" + std::to_string(pid) + "/clear_refs") << "5";
        const double before = processorMs(pid), writes = statusOf(pid, "io", "syscw:"),
                     written = statusOf(pid, "io", "wchar:");
        for (const std::string& r : records)
            send(r);
        send(Frame::of(KIND_DATA, ready));
        expect(Command::GROUP);
        figures.ms = processorMs(pid) - before;
        figures.peak = statusOf(pid, "status", "VmHWM:") / 1024;
        figures.writes = statusOf(pid, "io", "syscw:") - writes;
        figures.written = statusOf(pid, "io", "wchar:") - written;
        Reply reply(Reply::SUCCESS, 0);
        send(Frame::of(KIND_REPLY, reply));
        // The answer to a query is behind all that is still done with the output.
        type("group\n");
        expect(Command::GROUP);
        figures.after = statusOf(pid, "status", "VmRSS:") / 1024;
        Reply groups(Reply::GROUP_QUERY, 0);
        send(Frame::of(KIND_REPLY, groups));
        return figures;
    }
    pid_t process() const { return pid; }

  private:
    UnixSocket listener;
    std::unique_ptr<UnixSocket> socket;
    std::string path;
    int number = 0, keyboard = -1;
    pid_t pid = -1;
};

// The processor time of a loop that only reads the same bytes, in pieces of 1 MiB.
double bareMs(const Records& records) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) fail("socketpair");
    UnixSocket near(ends[0]), far(ends[1]);
    near.setSbuf(1048576);
    far.setRbuf(1048576);
    const pid_t reader = ::fork();
    if (reader == 0) {
        near.drop();
        std::vector<char> piece(1 << 20);
        const double before = processorMs(0);
        while (::read(far.getFd(), piece.data(), piece.size()) > 0) {
        }
        const double ms = processorMs(0) - before;
        std::_Exit(::write(far.getFd(), &ms, sizeof ms) == sizeof ms ? 0 : 1);
    }
    far.drop();
    for (const std::string& r : records) {
        for (std::size_t at = 0; at < r.size();) {
            const std::size_t size = std::min<std::size_t>(r.size() - at, 1 << 20);
            near.write(r.data() + at, static_cast<int>(size));
            at += size;
        }
    }
    ::shutdown(near.getFd(), SHUT_WR);
    double ms = 0;
    near.read(&ms, sizeof ms);
    ::waitpid(reader, nullptr, 0);
    return ms;
}

// How often the console's threads have begun to wait.
double waits(pid_t pid) {
    double sum = 0;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        const std::string file = "task/" + task.path().filename().string() + "/status";
        sum += statusOf(pid, file.c_str(), "voluntary_ctxt_switches:");
    }
    return sum;
}

int measureIdle(char** argv) {
    Console console(argv[1]);
    console.run({});
    const auto wakeUps = [&] {
        ::sleep(1);
        const double before = waits(console.process());
        ::sleep(2);
        return waits(console.process()) - before;
    };
    const double atPrompt = wakeUps();
    console.type("run\n");
    console.expect(Command::CLIENT);
    std::printf("%.0f %.0f\n", atPrompt, wakeUps());
    return 0;
}

int measure(char** argv, int runs) {
    const std::string workload = argv[2], mode = argv[5];
    if (workload == "idle") return measureIdle(argv);
    const Records records = recordsOf(workload, std::atoi(argv[3]), std::atoi(argv[4]));
    double bytes = 0;
    for (const std::string& r : records)
        bytes += static_cast<double>(r.size());
    Figures best;
    for (int i = 0; i < runs; ++i) {
        Console console(argv[1]);
        console.type("option mode " + mode.substr(0, mode.find('-')) + "\n");
        if (mode.find("-seen") != mode.npos) {
            const std::string words = wordsRecord();
            console.run({Frame::wrap(KIND_DATA, words.data(), static_cast<int>(words.size()))});
        }
        const Figures now = console.run(records);
        if (i == 0 || now.ms < best.ms) best = now;
    }
    double bare = bareMs(records);
    for (int i = 0; i < 3 * runs; ++i)
        bare = std::min(bare, bareMs(records));
    std::printf("%.0f %.2f %.2f %.0f %.0f %.0f %.0f\n", bytes, best.ms, bare, best.peak, best.after,
                best.writes, best.written);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::fprintf(stderr, "vex_load CONSOLE WORKLOAD CLIENTS RECORDS MODE [RUNS]\n");
        return 2;
    }
    try {
        return measure(argv, argc > 6 ? std::atoi(argv[6]) : 3);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vex_load: %s\n", error.what());
    } catch (const BrokenConnection&) {
        std::fprintf(stderr, "vex_load: the console has gone\n");
    }
    return 1;
}
