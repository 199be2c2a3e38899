#pragma once

#include "backend/jobs/target.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// The process table that a launcher of parallel jobs keeps for debuggers: the array MPIR_proctable
/// of MPIR_proctable_size entries, as "The MPIR Process Acquisition Interface" of the MPI Forum
/// describes them. Read from the launcher's memory, which goes on running.
namespace Mpir {

/// A task of the job; the entry's index in the table is the rank.
struct Entry {
    std::string host;
    std::string executable;
    pid_t pid = 0;
    bool operator==(const Entry&) const = default;
};

/// Reads `length` bytes at an address into a buffer; false when it cannot.
using Memory = std::function<bool(std::uint64_t address, void* into, std::size_t length)>;

/// The table of a launcher; empty when it has none, or not yet. Throws std::runtime_error when its
/// memory cannot be read.
std::vector<Entry> tableOf(pid_t launcher);

/// The table at an address, of `count` entries; empty when it cannot be read.
std::vector<Entry> read(const Memory& memory, std::uint64_t table, int count);
/// Addresses of the data symbols of an ELF file (64 bits, this machine's byte order) among names,
/// relative to where the file begins in memory. The file's contents are not trusted.
std::map<std::string, std::uint64_t> symbols(const std::string& file,
                                             const std::vector<std::string>& names);

} // namespace Mpir
