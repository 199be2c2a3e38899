#include "common/framereader.h"

#include "common/brokenconnection.h"
#include "common/frame.h"

std::optional<std::string> FrameReader::body() {
    constexpr std::size_t head = 4;
    if (buffer.size() < head) return std::nullopt;
    const int length = Frame::length(buffer.data());
    if (length < 0 || length > most) throw BrokenConnection();
    if (buffer.size() - head < static_cast<std::size_t>(length)) return std::nullopt;
    std::string whole = buffer.substr(head, static_cast<std::size_t>(length));
    buffer.erase(0, head + static_cast<std::size_t>(length));
    return whole;
}

std::optional<Command> FrameReader::next() {
    const auto whole = body();
    if (!whole) return std::nullopt;
    Command command;
    command.unpack(whole->data(), static_cast<int>(whole->size()));
    return command;
}
