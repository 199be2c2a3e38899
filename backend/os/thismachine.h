#pragma once

#include <string>
#include <vector>

/// What this machine is called, and where other machines reach it.
namespace ThisMachine {

/// The host name as the system has it, with or without a domain; empty when it has none.
std::string hostName();

/// An address of one of the network interfaces.
struct Address {
    std::string interface;
    std::string figures; // of IP version 4 or 6
    bool up = false;     // the interface
    bool loopback = false;
    bool linkLocal = false; // of version 6: good with its interface only
};
/// In the system's order; none when the system does not tell them.
std::vector<Address> addresses();

} // namespace ThisMachine
