#pragma once

#include "common/descriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// What a process has left in a core file: see core(5) and elf(5). Of core files of another word
/// size or byte order it knows only that they are core files.
class CoreFile {
  public:
    /// Nothing when the file cannot be read, or is no core file.
    static std::optional<CoreFile> open(const std::string& path);

    /// The process that it was; -1: it does not tell.
    pid_t process() const { return pid; }
    /// The rank that the launcher gave the process, in the order of RankVariables, or its session
    /// (VEX_TASK); -1: its environment has none, or is not in the file.
    int rank() const;

  private:
    struct Segment {
        std::uint64_t address, offset, size;
    };
    Descriptor file;
    /// What was read of the file last, and where it stands there.
    std::vector<char> block;
    std::uint64_t blockBegin = 0;
    std::vector<Segment> memory;
    pid_t pid = -1;
    /// Where the kernel has put random bytes and the program's name, with the environment between
    /// them; 0: not known.
    std::uint64_t random = 0, name = 0;
    /// "NAME=VALUE", each with a NUL behind it.
    std::string environment;

    void read();
    void readNotes(std::uint64_t offset, std::uint64_t size, int& left);
    void readVectors(std::uint64_t offset, std::uint64_t size);
    void readEnvironment();
    std::optional<std::string> variable(const std::string& wanted) const;
    template <class T>
    bool get(std::uint64_t offset, T& into);
};
