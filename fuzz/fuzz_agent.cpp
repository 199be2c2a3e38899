#include "backend/wire/agentrecord.h"
#include "common/brokenconnection.h"
#include "common/framereader.h"
#include "fuzz/fuzz.h"

#include <cassert>

// What comes on an agent's connection, at either end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FrameReader reader(AgentRecord::maxHello);
    reader.feed(textOf(bytes, size));
    try {
        while (const auto body = reader.body()) {
            const AgentRecord record = AgentRecord::unpack(*body);
            if (record.type == AgentRecord::HELLO) {
                const AgentHello hello = AgentHello::of(record);
                assert(hello.protocol != AgentHello::version || hello.record().body == record.body);
            }
            if (record.type == AgentRecord::CHALLENGE)
                assert(AgentChallenge::of(record).record().body == record.body);
            if (record.type == AgentRecord::START)
                assert(AgentRecords::start(AgentRecords::startOf(record)).body == record.body);
        }
    } catch (const BrokenConnection&) {
    }
    return 0;
}
