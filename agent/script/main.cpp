// vexscript: what gdb starts in the place of a program that is a script. It runs the script, and
// becomes the first program of it that can be debugged.
//
// gdb starts it as the wrapper of a program: with five words of its own, the program that gdb knows
// and the arguments. In its first run gdb knows no other program than this one: gdb takes what is
// executed next for its beginning, and hears of what is executed after that. In another run it
// knows the one that was found, which then is that beginning.
#include "agent/script/follower.h"
#include "agent/script/imitation.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::string_view again = "--begun";

bool isSame(const char* one, const char* other) {
    struct stat first {
    }, second{};
    return ::stat(one, &first) == 0 && ::stat(other, &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

void open(const char* file, int flags, int number) {
    const int opened = ::open(file, flags);
    if (opened == -1) {
        std::perror(file);
        std::_Exit(1);
    }
    ::dup2(opened, number);
    ::close(opened);
}

// Where the command line says nothing else, output goes to the debugger's terminal, and task 0
// reads the file that its user has given.
void redirect(const char* input, const char* terminal, const char* file) {
    constexpr std::array<const char*, 3> numbers = {"/dev/fd/0", "/dev/fd/1", "/dev/fd/2"};
    const char* const task = std::getenv("VEX_TASK");
    if (*file != '\0' && task && std::string_view(task) == "0" && isSame(numbers[0], input))
        open(file, O_RDONLY, STDIN_FILENO);
    for (const int number : {STDOUT_FILENO, STDERR_FILENO}) {
        if (isSame(numbers[static_cast<std::size_t>(number)], input))
            open(terminal, O_WRONLY, number);
    }
}

// The user's own libraries stay, behind it.
void preload(const std::string& library) {
    constexpr const char* variable = "LD_PRELOAD";
    const char* const own = std::getenv(variable);
    if (!library.empty())
        ::setenv(variable, (own && *own ? library + ":" + own : library).c_str(), 1);
}

} // namespace

int main(int argc, char** argv) {
    std::vector<char*> words(argv + 1, argv + argc);
    const bool begun = !words.empty() && words[0] == again;
    if (begun) words.erase(words.begin());
    if (words.size() < 6) {
        std::fputs("vexscript is a part of vex, which starts scripts by it.\n", stderr);
        return 2;
    }
    if (!begun && isSame(words[5], "/proc/self/exe")) {
        std::string mark(again);
        words.insert(words.begin(), mark.data());
        words.insert(words.begin(), argv[0]);
        words.push_back(nullptr);
        ::execv("/proc/self/exe", words.data());
        std::perror(argv[0]);
        return 1;
    }
    try {
        redirect(words[0], words[1], words[2]);
        preload(words[3]);
        std::vector<std::string> script{words[4]};
        script.insert(script.end(), words.begin() + 6, words.end());
        Follower::Found found = Follower::follow(script);
        if (found.model != -1) imitate(std::move(found));
        std::fprintf(stderr,
                     "vexscript: '%s' has ended, and nothing that it has started has symbols\n",
                     words[4]);
        return WIFEXITED(found.status) ? WEXITSTATUS(found.status) : 128 + WTERMSIG(found.status);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexscript: %s\n", error.what());
    }
    return 1;
}
