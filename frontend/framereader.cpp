#include "frontend/framereader.h"

#include "common/brokenconnection.h"
#include "common/frame.h"

std::optional<Command> FrameReader::next() {
    constexpr std::size_t head = 4;
    if (buffer.size() < head) return std::nullopt;
    const int length = Frame::length(buffer.data());
    if (length < 0 || length > maxFrame) throw BrokenConnection();
    if (buffer.size() - head < static_cast<std::size_t>(length)) return std::nullopt;
    Command command;
    command.unpack(buffer.data() + head, length);
    buffer.erase(0, head + static_cast<std::size_t>(length));
    return command;
}
