#include "common/command.h"

#include "common/frame.h"
#include "common/packer.h"
#include "common/unixsock.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

void Command::init(int consoleId, const std::string& groupName, Type commandType, const char* text,
                   int bytes) {
    consoleID = consoleId;
    group = groupName;
    type = commandType;
    content.clear();
    if (bytes < 0) bytes = static_cast<int>(std::strlen(text)) + 1;
    if (bytes > 0) content.assign(text, text + bytes);
}

void Command::reset() {
    consoleID = 0;
    group.clear();
    type = CLIENT;
    content.clear();
}

std::unique_ptr<char[]> Command::pack(int* len) const {
    Packer packer;
    packer.packInt(consoleID);
    packer.packInt(type);
    packer.packStr(group);
    packer.packInt(getLength());
    // The length stands twice when there is content: once as a field, once as the block's own.
    if (!content.empty()) packer.packMem(content.data(), getLength());
    if (len) *len = packer.getPackedMsgLen();
    return packer.getPackedMsg();
}

void Command::unpack(const void* buf, int len) {
    Packer packer;
    packer.setPackedMsg(buf, len);
    consoleID = packer.unpackInt();
    type = static_cast<Type>(packer.unpackInt());
    group = packer.unpackStr();
    const int length = packer.unpackInt();
    content.clear();
    if (length < 0) throw BrokenConnection();
    if (length > 0) {
        int block = 0;
        const char* data = packer.unpackMem(&block);
        if (block != length) throw BrokenConnection();
        content.assign(data, data + length);
    }
}

void Command::send(UnixSocket* socket) const {
    assert(socket);
    int len = 0;
    const auto body = pack(&len);
    Frame::send(socket, body.get(), len);
}

void Command::recv(UnixSocket* socket) {
    assert(socket);
    const std::vector<char> body = Frame::recv(socket);
    unpack(body.data(), static_cast<int>(body.size()));
}

void GroupCommand::addOperand(int id) {
    assert(opType != QUERY);
    operandIds.insert(id);
}

void GroupCommand::addOperand(const std::string& name) {
    assert(opType != QUERY);
    operandNames.insert(name);
}

void GroupCommand::addOperands(int first, int last) {
    assert(opType != QUERY);
    operandIds.insertRange(first, last);
}

void GroupCommand::addOperands(const ClientSet& ids) {
    assert(opType != QUERY);
    operandIds.insert(ids);
}

void GroupCommand::reset() {
    operandNames.clear();
    operandIds.clear();
}

void GroupCommand::resetIterator() {
    posn = operandNames.begin();
    posi = operandIds.begin();
}

const std::string& GroupCommand::nextName() {
    operandName = *posn++;
    return operandName;
}

int GroupCommand::nextId() { return *posi++; }

std::unique_ptr<char[]> GroupCommand::pack(int* len) const {
    Packer packer;
    packer.packInt(opType);
    packer.packStr(baseName);
    packer.packInt(numOfName());
    for (const std::string& name : operandNames)
        packer.packStr(name);
    packer.packInt(numOfId());
    for (const ClientSet::Range& r : operandIds.runs())
        packer.packInts(r.first, r.last);
    if (len) *len = packer.getPackedMsgLen();
    return packer.getPackedMsg();
}

void GroupCommand::unpack(const void* buf, int len) {
    Packer packer;
    packer.setPackedMsg(buf, len);
    opType = static_cast<Type>(packer.unpackInt());
    baseName = packer.unpackStr();
    // Sorted first: a record may hold a million of them, in the worst of orders.
    std::vector<std::string> names;
    for (int n = packer.unpackCount(5); n > 0; --n)
        names.push_back(packer.unpackStr());
    std::ranges::sort(names);
    operandNames.insert(std::make_move_iterator(names.begin()),
                        std::make_move_iterator(names.end()));
    std::vector<ClientSet::Range> ids;
    for (int m = packer.unpackCount(4); m > 0; --m) {
        const int id = packer.unpackInt();
        ids.push_back({id, id});
    }
    operandIds.insert(ClientSet(std::move(ids)));
}

void GroupCommand::dump() const {
    std::printf("%s", baseName.c_str());
    switch (opType) {
    case QUERY:
        std::printf(" = ");
        break;
    case ASSIGN:
        std::printf(" + ");
        break;
    case ADD:
        std::printf(" - ");
        break;
    case DELETE:
        std::printf("'s member query ");
        break;
    }
    for (const std::string& name : operandNames)
        std::printf("%s ", name.c_str());
    for (int id : operandIds)
        std::printf("%d ", id);
    std::printf("\n");
}
