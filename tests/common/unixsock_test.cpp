#include "common/frame.h"
#include "common/unixsock.h"
#include "tests/support/tempdir.h"
#include "tests/support/wire.h"

namespace {

// Two connected ends.
struct Link {
    std::unique_ptr<UnixSocket> near, far;
    Link() {
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == -1) std::abort();
        near = std::make_unique<UnixSocket>(fds[0]);
        far = std::make_unique<UnixSocket>(fds[1]);
    }
    void send(const std::string& data) const {
        far->write(data.data(), static_cast<int>(data.size()));
    }
};

TEST(UnixSocket, ConnectAndAccept) {
    TempDir dir;
    const std::string path = dir.path("socket");
    const mode_t mask = ::umask(0);
    UnixSocket listener, client;
    listener.bind(path.c_str());
    EXPECT_EQ(::umask(mask), 0u);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    ASSERT_EQ(client.connect(path.c_str(), 1), 0);
    std::string peer;
    const auto served = listener.accept(peer);
    EXPECT_EQ(served->peerUser(), ::getuid());
    served->write("hello", 5);
    char got[6] = "";
    client.read(got, 5);
    EXPECT_STREQ(got, "hello");
    client.close();
    EXPECT_THROW(served->read(got, 1), BrokenConnection);
    // What an earlier session left behind is no obstacle to the next, nor does it answer.
    UnixSocket().bind(path.c_str());
    EXPECT_EQ(client.connect(path.c_str(), 1), 111);
    const std::string odd = dir.write("file", "") + "/socket";
    EXPECT_EQ(raised([&] { client.connect(odd.c_str(), 1); }).second,
              "3917-200  System call failed: error when connecting to a unix domain socket: Not a "
              "directory.\n");
}

TEST(UnixSocket, ThePeerClosesWithinAFrame) {
    for (const char* sent : {"", "0000", "00000005 'abcd'", "7fffffff 'abcd'", "ffffffff"}) {
        Link link;
        link.send(bytes(sent));
        link.far.reset();
        EXPECT_THROW(Frame::recv(link.near.get()), BrokenConnection) << sent;
    }
    Link link;
    link.send(bytes("00000000 00000002 'ab' 'c'"));
    EXPECT_EQ(Frame::recv(link.near.get()).size(), 0u);
    EXPECT_EQ(Frame::recv(link.near.get()), (std::vector<char>{'a', 'b'}));
    link.far.reset();
    EXPECT_THROW(link.near->write("x", 1), BrokenConnection); // and no SIGPIPE
}

TEST(UnixSocket, AFrameArrivesWholeThroughSmallBuffersAndSignals) {
    struct sigaction action {
    }, before{};
    action.sa_handler = [](int) {}; // without SA_RESTART: calls are cut short
    ::sigaction(SIGUSR1, &action, &before);
    Link link;
    link.near->async();
    link.far->setSbuf(4096);
    link.near->setRbuf(4096);
    std::string body(3'000'000, '\0');
    for (std::size_t i = 0; i < body.size(); ++i)
        body[i] = static_cast<char>(i * 2654435761u >> 13);
    std::thread sender(
        [&] { Frame::send(link.far.get(), body.data(), static_cast<int>(body.size())); });
    std::jthread disturber([&](const std::stop_token& over) {
        for (; !over.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            ::pthread_kill(sender.native_handle(), SIGUSR1);
    });
    const std::vector<char> got = Frame::recv(link.near.get());
    EXPECT_TRUE(std::equal(got.begin(), got.end(), body.begin(), body.end()));
    disturber = {};
    sender.join();
    ::sigaction(SIGUSR1, &before, nullptr);
}

} // namespace
