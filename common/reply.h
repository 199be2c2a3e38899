#pragma once

#include <memory>
#include <string>

class UnixSocket;

/// The front end's answer to a command: the outcome, a message number when it failed, and a text.
class Reply {
  public:
    enum Value : int {
        FAILED = -1,
        SUCCESS = 0,
        ON_NORMAL = 1,
        ON_INTERRUPT = 2,
        GROUP_QUERY = 3,
        CLIENT_ADD = 4,
        CLIENT_REMOVE = 5
    };

    Reply() = default;
    Reply(Value value, int error) : retValue(value), errCode(error) {}

    void reset();
    /// Appends to the text.
    void addRetInfo(const char* text) { retInfo += text; }

    Value getRetValue() const { return retValue; }
    /// A message number; for CLIENT_ADD and CLIENT_REMOVE the client's number.
    int getErrCode() const { return errCode; }
    const std::string& getRetInfo() const { return retInfo; }

    std::unique_ptr<char[]> pack(int* len) const;
    /// Reads a packed record of len bytes; throws BrokenConnection.
    void unpack(const void* buf, int len);
    void send(UnixSocket* socket) const;
    void recv(UnixSocket* socket);
    void dump() const;

  private:
    Value retValue = SUCCESS;
    int errCode = 0;
    std::string retInfo;
};
