#pragma once

#include "common/descriptor.h"

#include <cstddef>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

/// Descriptors that one process hands to another over a local stream socket (SCM_RIGHTS, unix(7)).
namespace DescriptorPassing {

/// The most that are handed over at a time.
inline constexpr std::size_t most = 4;

/// Sends all of the bytes, and copies of the descriptors with the first of them; waits where the
/// socket blocks. False when the connection is broken.
bool send(int socket, std::string_view bytes, const std::vector<int>& descriptors);
/// Receives as read(2) does, and the descriptors that came with these bytes.
std::pair<ssize_t, std::vector<Descriptor>> receive(int socket, char* buffer, std::size_t size);

} // namespace DescriptorPassing
