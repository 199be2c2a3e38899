#include "console/frontendlink.h"

#include "common/catalog.h"
#include "common/error.h"

#include <cerrno>
#include <signal.h>
#include <unistd.h>

namespace {

constexpr int receiveBuffer = 1048576; // bytes

// Keeps Ctrl-C away from this thread while a frame is being written.
class InterruptHold {
  public:
    InterruptHold() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        ::pthread_sigmask(SIG_BLOCK, &set, &before);
    }
    ~InterruptHold() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    InterruptHold(const InterruptHold&) = delete;
    InterruptHold& operator=(const InterruptHold&) = delete;

  private:
    sigset_t before;
};

bool processLives(int pid) { return ::kill(pid, 0) == 0 || errno != ESRCH; }

} // namespace

void FrontEndLink::connect(const std::string& serverHost, int attempts, int feId) {
    for (int attempt = 1; client.connect(serverHost.c_str(), 1) != 0; ++attempt) {
        if (attempt == attempts || (feId != -1 && !processLives(feId)))
            throw Error(ERR_CONNECTION_TIMEOUT, attempt);
    }
    // Whoever listens there sees every command and says what the clients print.
    if (const unsigned peer = client.peerUser(); peer != ::getuid() && peer != 0)
        throw Error("The front end at '%s' belongs to another user (user id %u).",
                    serverHost.c_str(), peer);
    client.setRbuf(receiveBuffer);
}

void FrontEndLink::receiveId() {
    client.read(&myId, sizeof myId);
    if (myId == -1) throw Error(ERR_CONNECTION_LIMIT);
}

void FrontEndLink::transmit(Command::Type type, const std::string& group, const char* text, int n) {
    const std::lock_guard sending(sendMutex);
    const InterruptHold hold;
    curCmd.init(myId, group, type, text, n);
    curCmd.send(&client);
    curCmd.reset();
}

void FrontEndLink::transmit(const GroupCommand& command, const std::string& group) {
    int length = 0;
    const auto packed = command.pack(&length);
    transmit(Command::GROUP, group, packed.get(), length);
}

int FrontEndLink::receiveKind() {
    int kind = 0;
    client.read(&kind, sizeof kind);
    return kind;
}
