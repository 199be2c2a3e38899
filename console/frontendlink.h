#pragma once

#include "common/command.h"
#include "common/data.h"
#include "common/reply.h"
#include "common/unixsock.h"

#include <mutex>
#include <string>

/// The console's connection to its front end.
///
/// Any thread may send; commands leave whole, one after the other, whatever Ctrl-C does. Receiving
/// belongs to the main thread, so that a long send keeps nobody from reading. A connection that
/// breaks is thrown as BrokenConnection.
class FrontEndLink {
  public:
    /// Connects. Makes one attempt a second, `attempts` at most, and gives up earlier when the
    /// front end's process feId (-1: unknown) has ended. Throws Error when nobody or another user
    /// listens.
    void connect(const std::string& serverHost, int attempts, int feId);
    /// The descriptor that, once readable, ends a blocked receive at once and a blocked send after
    /// the farewell time. Not owned.
    void setCancelFd(int fd) { client.setCancelFd(fd, farewell); }
    /// Takes the number that the front end gives this console; throws Error when it wants none.
    void receiveId();
    int getId() const { return myId; }

    /// Sends one command; text and n are those of Command::init.
    void transmit(Command::Type type, const std::string& group, const char* text, int n);
    void transmit(const GroupCommand& command, const std::string& group);

    /// The kind of the record that comes next.
    int receiveKind();
    void receive(Reply& reply) { reply.recv(&client); }
    void receive(Data& data) { data.recv(&client); }

    /// Ends the connection for both threads; the thread that reads closes it.
    void disconnect() { client.disconnect(); }
    /// Waits until the front end has closed, which it does once it has read a QUIT; not longer than
    /// the farewell time.
    void awaitEnd() { client.awaitEnd(farewell); }
    void close() { client.close(); }

  private:
    static constexpr int farewell = 2000; // ms

    UnixSocket client;
    int myId = 0; // constant once the session has started
    std::mutex sendMutex;
    Command curCmd; // guarded by sendMutex
};
