#pragma once

#include <optional>
#include <string>

/// Finds programs before they are needed, so that one sentence tells the user what is missing.
namespace Executables {

/// The file that a name stands for: the path itself when it has a slash, else the first such
/// executable in PATH.
std::optional<std::string> find(const std::string& name);
/// The program to debug: a path, else a file of the working directory, else one in PATH. Throws
/// std::runtime_error with a sentence for the user.
std::string program(const std::string& name);
/// Whether an executable is a script.
bool isScript(const std::string& path);
/// Whether it is one of the system's programs that become another one (env, nice).
bool isWrapper(const std::string& path);
/// The console program: as given, else beside this program, else in PATH. Throws
/// std::runtime_error with a sentence for the user.
std::string console(const std::string& given);
/// The program that writes reports: beside this program, else in PATH. Throws std::runtime_error
/// with a sentence for the user.
std::string reporter();
/// The agent: beside this program, else in PATH, as an absolute path. Throws
/// std::runtime_error with a sentence for the user.
std::string agent();
/// The library that is loaded into tasks to see their MPI calls: where it is installed together
/// with the agent, whose path this is; empty: together with this program. Throws std::runtime_error
/// with a sentence for the user when it is not there, or cannot be loaded from there.
std::string mpiLibrary(const std::string& agent);
/// The debugger. Throws std::runtime_error with a sentence for the user.
std::string debugger(const std::string& name);

} // namespace Executables
