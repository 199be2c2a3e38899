#pragma once

#include "common/clientset.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

class UnixSocket;

/// The one record that a console sends to the front end: who sends, to which group of clients, what
/// kind of command, and an opaque content. Reused: init, send, reset.
class Command {
  public:
    enum Type : int {
        CONFIG = 0,
        ATTACHCFG = 1,
        CLIENT = 2,
        INSTANT = 3,
        SCRIPTCLIENT = 4,
        STATCLIENT = 5,
        PROMPT = 6,
        GROUP = 7,
        ON = 8,
        INTERRUPT = 9,
        QUIT = 10
    };

    Command() = default;

    /// Sets all fields and copies the content. A negative length means a NUL-terminated text, which
    /// is kept with its NUL; length 0 means no content.
    void init(int consoleId, const std::string& groupName, Type commandType, const char* text,
              int bytes);
    void reset();

    /// The packed record; its length goes to *len when len is not null.
    std::unique_ptr<char[]> pack(int* len) const;
    /// Reads a packed record of len bytes; throws BrokenConnection.
    void unpack(const void* buf, int len);
    void send(UnixSocket* socket) const;
    void recv(UnixSocket* socket);

    int getConsoleID() const { return consoleID; }
    Type getType() const { return type; }
    const std::string& getGroup() const { return group; }
    /// The content, null when there is none.
    const char* getContent() const { return content.empty() ? nullptr : content.data(); }
    int getLength() const { return static_cast<int>(content.size()); }

  private:
    int consoleID = 0;
    std::string group;
    Type type = CLIENT;
    std::vector<char> content;
};

/// An operation on client groups, packed into the content of a GROUP command.
class GroupCommand {
  public:
    enum Type : int { QUERY = 0, ASSIGN = 1, ADD = 2, DELETE = 3 };

    void setOpType(Type type) { opType = type; }
    Type getOpType() const { return opType; }
    void setBase(const std::string& name) { baseName = name; }
    const std::string& getBase() const { return baseName; }

    /// Operands are for assign, add and delete: set the operation first.
    void addOperand(int id);
    void addOperand(const std::string& name);
    void addOperands(int first, int last);
    void addOperands(const ClientSet& ids);
    /// Empties both operand sets; the operation and the base stay.
    void reset();

    int numOfId() const { return static_cast<int>(operandIds.size()); }
    int numOfName() const { return static_cast<int>(operandNames.size()); }
    const ClientSet& ids() const { return operandIds; }
    const std::set<std::string>& names() const { return operandNames; }

    /// A cursor over both sets; the caller bounds its steps by numOfName and numOfId.
    void resetIterator();
    const std::string& nextName();
    int nextId();

    std::unique_ptr<char[]> pack(int* len) const;
    /// Adds to the sets what the packed form holds; throws BrokenConnection.
    void unpack(const void* buf, int len);
    void dump() const;

  private:
    Type opType = QUERY;
    std::string baseName;
    std::set<std::string> operandNames;
    ClientSet operandIds;
    std::set<std::string>::const_iterator posn;
    ClientSet::const_iterator posi;
    std::string operandName;
};
