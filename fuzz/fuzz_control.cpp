#include "frontend/session/controlserver.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

struct Owner : ControlServer::Owner {
    EventLoop loop;
    int vanished = 0;
    int ends = 0;

    std::string onConsoleEnded(bool first, ControlServer::Leave how) override {
        expect(first);
        vanished += how == ControlServer::VANISHED;
        return "goes on 1";
    }
    void onFirstGone() override { loop.stop(); }
    void onGiveUp() override { ++ends; }
    void onServe() override { ++ends; }
    void onGoOn() override {}
    void onEnd(int exitStatus) override { ends += exitStatus != 0; }
    std::string facts() const override { return "1 1 0 halo"; }
};

} // namespace

// What a foreground says to its session, a text a line, until it hangs up.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string texts = textOf(bytes, size);
    Owner owner;
    static const Descriptor nobody =
        Channel::listenAs("vex-fuzz-control-" + std::to_string(::getpid()));
    auto [ours, theirs] = Channel::pair();
    ControlServer server(owner.loop, std::move(theirs), nobody, owner);
    int said = 0;
    for (std::size_t at = 0; at < texts.size() && said < 50; ++said) {
        const std::size_t end = std::min(texts.find('\n', at), texts.size());
        ours.say(texts.substr(at, end - at));
        at = end + 1;
    }
    ours.close();
    owner.loop.run();
    expect(owner.vanished <= 1 && owner.ends <= said && server.present() == 0);
    return 0;
}
