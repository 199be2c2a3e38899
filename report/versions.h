#pragma once

#include <string>

/// What the job's software is.
namespace Versions {

/// Has a debugger print, without running anything in its task, which MPI library the program has:
/// a line for `mpiOf`, or none.
const char* mpiCommand();
/// "Open MPI 4.1.4 (libmpi.so.40)" of such a line, or the name of the library alone when it does
/// not tell its version; empty: it is another line.
std::string mpiOf(const std::string& line);
/// "Debian GNU/Linux 12 (bookworm), Linux 6.1.0-18-amd64 x86_64": this machine's.
std::string system();

} // namespace Versions
