#pragma once

#include <string>

/// How a front end and an agent show each other that they know the secret of a launch without
/// sending it: each a keyed hash of what the two have said, HMAC-SHA-256 (RFC 2104, RFC 6234).
namespace Handshake {

enum Side { FRONT_END, AGENT };

/// The proof of a side, 32 bytes, from the agent's hello as it was sent and the front end's nonce,
/// both of which are made anew for each connection.
std::string proof(Side side, const std::string& secret, const std::string& hello,
                  const std::string& nonce);
/// A hash of the text, 32 bytes, by which nobody finds the text: SHA-256 (RFC 6234).
std::string hash(const std::string& text);
/// Compares in a time that does not tell where they differ.
bool equal(const std::string& one, const std::string& other);

} // namespace Handshake
