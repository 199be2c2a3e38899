#pragma once

#include <istream>
#include <string>
#include <vector>

/// A host file: one host a line, as "host", "host:n" or "host slots=n"; n tasks run there, one by
/// default, and a host may come again. "#" begins a comment. An address of IP version 6 with a
/// number stands in brackets: "[fe80::1]:2".
namespace HostFile {

/// The host of each task, in the order of the file. Throws std::runtime_error that names the line,
/// also when there is no host or there are more than `maxTasks` tasks.
std::vector<std::string> read(std::istream& in, const std::string& name, std::size_t maxTasks);

} // namespace HostFile
