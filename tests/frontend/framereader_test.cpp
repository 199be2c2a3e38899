#include "common/brokenconnection.h"
#include "common/frame.h"
#include "frontend/framereader.h"

#include <gtest/gtest.h>

namespace {

std::string frameOf(const std::string& text) {
    Command command;
    command.init(7, "all", Command::CLIENT, text.c_str(), -1);
    int length = 0;
    const auto body = command.pack(&length);
    return Frame::wrap(body.get(), length);
}

TEST(FrameReader, CutsCommandsHoweverTheyArrive) {
    const std::string bytes = frameOf("where") + frameOf("") + frameOf("print 1");
    for (std::size_t size = 1; size <= bytes.size(); ++size) {
        FrameReader reader;
        std::vector<std::string> texts;
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            reader.feed(std::string_view(bytes).substr(at, size));
            while (const auto command = reader.next())
                texts.emplace_back(command->getContent());
        }
        EXPECT_EQ(texts, (std::vector<std::string>{"where", "", "print 1"})) << size;
    }
}

TEST(FrameReader, RefusesFramesThatLie) {
    std::string longer = frameOf("where"), shorter = longer;
    ++longer[3];
    --shorter[3];
    const std::string beyond("\0\0\0\x0c\0\0\0\x07\0\0\0\x02\0\0\x10\0", 16);
    for (const std::string& lie : {std::string("\xff\xff\xff\xff"), std::string("\x7f\xff\xff\xff"),
                                   std::string(4, '\0'), shorter, beyond}) {
        FrameReader reader;
        reader.feed(lie);
        EXPECT_THROW(reader.next(), BrokenConnection);
    }
    // A frame whose end has not come yet is only that.
    FrameReader reader;
    reader.feed(longer);
    EXPECT_FALSE(reader.next());
}

} // namespace
