#include "common/reply.h"

#include "common/frame.h"
#include "common/packer.h"
#include "common/unixsock.h"

#include <cassert>
#include <cstdio>
#include <vector>

void Reply::reset() {
    retValue = SUCCESS;
    errCode = 0;
    retInfo.clear();
}

std::unique_ptr<char[]> Reply::pack(int* len) const {
    Packer packer;
    packer.packInt(retValue);
    packer.packInt(errCode);
    packer.packStr(retInfo);
    if (len) *len = packer.getPackedMsgLen();
    return packer.getPackedMsg();
}

void Reply::unpack(const void* buf, int len) {
    Packer packer;
    packer.setPackedMsg(buf, len);
    retValue = static_cast<Value>(packer.unpackInt());
    errCode = packer.unpackInt();
    retInfo = packer.unpackStr();
}

void Reply::send(UnixSocket* socket) const {
    assert(socket);
    int len = 0;
    const auto body = pack(&len);
    Frame::send(socket, body.get(), len);
}

void Reply::recv(UnixSocket* socket) {
    assert(socket);
    const std::vector<char> body = Frame::recv(socket);
    unpack(body.data(), static_cast<int>(body.size()));
}

void Reply::dump() const {
    std::printf("Return value: %d\n", static_cast<int>(retValue));
    std::printf("Error code: %d\n", errCode);
    std::printf("Return info: %s\n", retInfo.c_str());
}
