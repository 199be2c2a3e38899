#pragma once

#include <filesystem>
#include <istream>
#include <string>
#include <sys/types.h>
#include <vector>

/// Where and how agents find their front end. As a text it has one "name value" a line.
struct Rendezvous {
    /// The abstract name (unix(7)) of the socket for agents on the same machine, without its NUL;
    /// empty: there is none.
    std::string socketName;
    /// The machine's addresses, as numbers, in the order in which to try them.
    std::vector<std::string> addresses;
    int port = 0; // TCP
    /// Known to the front end and its agents only.
    std::string secret;
    /// The ranks of its tasks and the size of the job for an agent whose launcher tells neither;
    /// none and -1: it tells.
    std::vector<int> ranks = {};
    int size = -1;
    /// The abstract name of the socket of a node's agent, the same on each host; known to others,
    /// it tells nothing of the secret. Empty: agents of a host do not find each other.
    std::string nodeName = {};

    std::string str() const;
    /// Throws std::runtime_error.
    static Rendezvous parse(std::istream& in);

    /// A secret of 256 random bits, printable.
    static std::string newSecret();
    /// A name for the node's agents of the launch that has this secret.
    static std::string nodeNameOf(const std::string& secret);
};

/// The file that tells agents a rendezvous: private to its user, in a directory that all hosts of a
/// job see. Removed when destroyed.
class RendezvousFile {
  public:
    /// Writes a new file in the directory, which is made when it is not there. Also removes files
    /// that front ends of this machine left behind when they were killed. Throws
    /// std::runtime_error with a sentence for the user.
    RendezvousFile(const std::filesystem::path& folder, const Rendezvous& content);
    ~RendezvousFile();
    RendezvousFile(const RendezvousFile&) = delete;
    RendezvousFile& operator=(const RendezvousFile&) = delete;

    const std::filesystem::path& path() const { return file; }

    /// What a file tells that nobody but its owner, this user or root, can read. Waits for nothing.
    /// Throws std::runtime_error with a sentence for the user.
    static Rendezvous read(const std::filesystem::path& path);

    /// Removes the files of a process of this machine that was killed.
    static void removeOf(pid_t pid);

    /// VEX_LAUNCH_DIR, else ~/.vex/launch. Throws std::runtime_error when there is no home.
    static std::filesystem::path defaultFolder();

  private:
    std::filesystem::path file;
};
