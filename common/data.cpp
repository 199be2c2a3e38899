#include "common/data.h"

#include "common/frame.h"
#include "common/packer.h"
#include "common/unixsock.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

// Up to this many variants, comparing keys one by one is cheaper than an index.
constexpr std::size_t indexThreshold = 8;

int saturate(std::int64_t value) {
    return static_cast<int>(std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(),
                                                     std::numeric_limits<int>::max()));
}

} // namespace

void Data::setBounds(int minId, int maxId, int clients) {
    min_id = minId;
    max_id = maxId;
    be_num = clients;
}

void Data::store(int slot, std::unique_ptr<Line> line) {
    slotCount = std::max(slotCount, slot + 1);
    Slot& at = lines[slot];
    if (at.merged == at.lines.size()) unmerged.push_back(slot);
    at.lines.push_back(std::move(line));
}

void Data::addLine(const Line* line) {
    assert(line);
    addLine(std::make_unique<Line>(*line));
}

void Data::addLine(std::unique_ptr<Line> line) {
    assert(line);
    const int slot = line->getLineNo();
    store(slot, std::move(line));
}

void Data::clearLine() {
    lines.clear();
    unmerged.clear();
    slotCount = 0;
    min_id = max_id = 0;
    be_num = 0;
    console_cmd.clear();
}

void Data::addData(const Data* data) {
    assert(data);
    for (const auto& [number, slot] : data->lines) {
        for (const auto& line : slot.lines)
            addLine(line.get());
    }
    if (data->max_id > max_id)
        max_id = data->max_id;
    else if (data->min_id < min_id)
        min_id = data->min_id;
    be_num = saturate(static_cast<std::int64_t>(be_num) + data->be_num);
}

void Data::copy(const Data& other) {
    clearLine();
    clientID = other.clientID;
    type = other.type;
    consoleID = other.consoleID;
    for (const auto& [number, slot] : other.lines) {
        for (const auto& line : slot.lines)
            addLine(line.get());
    }
    be_num = other.be_num;
    max_id = other.max_id;
    min_id = other.min_id;
}

void Data::fromStr(const char* text, int beId, int* lineNo) {
    clearLine();
    while (*text) {
        const char* newline = std::strchr(text, '\n');
        std::string piece(text,
                          newline ? static_cast<std::size_t>(newline - text) : std::strlen(text));
        chomp(piece.data());
        auto line = std::make_unique<Line>((*lineNo)++, Line::EQUAL);
        line->setContent(piece.c_str());
        line->addBE(beId);
        line->generateKey();
        store(slotCount, std::move(line));
        if (!newline) break;
        text = newline + 1;
    }
    setBounds(beId, beId, 1);
}

void Data::chomp(char* text) const {
    // The walk starts at the terminator, which is no blank, and so ends where it starts.
    for (char* at = text + std::strlen(text); *at == ' ' || *at == '\t'; --at)
        *at = '\0';
}

void Data::mergeSlot(Slot& slot) {
    Variants& all = slot.lines;
    const auto before = [](const std::unique_ptr<Line>& a, const std::unique_ptr<Line>& b) {
        return less_compare(a.get(), b.get());
    };
    const auto from = all.begin() + static_cast<std::ptrdiff_t>(slot.merged);
    if (!std::is_sorted(slot.merged ? from - 1 : from, all.end(), before)) {
        std::stable_sort(all.begin(), all.end(), before);
        slot.merged = 0;
        slot.index.reset();
    }
    if (!slot.index && all.size() > indexThreshold) {
        slot.index = std::make_unique<std::unordered_multimap<std::size_t, Line*>>();
        for (std::size_t i = 0; i < slot.merged; ++i)
            slot.index->emplace(all[i]->getKey(), all[i].get());
    }
    // Every line joins the first one like it; the lines that stay move up.
    std::size_t kept = slot.merged;
    for (std::size_t i = slot.merged; i < all.size(); ++i) {
        Line* line = all[i].get();
        Line* same = nullptr;
        if (slot.index) {
            auto [at, end] = slot.index->equal_range(line->getKey());
            for (; at != end && !same; ++at) {
                if (at->second->getContent() == line->getContent()) same = at->second;
            }
        } else {
            for (std::size_t j = 0; j < kept && !same; ++j) {
                if (all[j]->getKey() == line->getKey() &&
                    all[j]->getContent() == line->getContent())
                    same = all[j].get();
            }
        }
        if (same) {
            // Its smallest id stays: the lines are sorted by theirs, and so is the rest of the
            // slot.
            same->addLine(line);
            all[i].reset();
            continue;
        }
        if (slot.index) slot.index->emplace(line->getKey(), line);
        if (kept != i) all[kept] = std::move(all[i]);
        ++kept;
    }
    all.resize(kept);
    slot.merged = kept;
}

void Data::merge() {
    std::vector<int> pending;
    pending.swap(unmerged);
    for (int number : pending) {
        auto at = lines.find(number);
        if (at != lines.end()) mergeSlot(at->second);
    }
}

void Data::truncate(int n) {
    if (static_cast<std::int64_t>(truncated) + n > slotCount) return;
    const int k = n / 10;
    if (k > 0) lines.erase(lines.lower_bound(truncated), lines.lower_bound(truncated + k));
    truncated = saturate(static_cast<std::int64_t>(truncated) + k);
}

std::unique_ptr<char[]> Data::pack(int* len) const {
    Packer packer;
    packer.packInt(clientID);
    packer.packInt(type);
    packer.packInt(consoleID);
    packer.packInt(slotCount);
    int next = 0;
    for (const auto& [number, slot] : lines) {
        if (slot.lines.empty()) continue;
        if (number > next) packer.packInt(next - number);
        next = number + 1;
        packer.packInt(static_cast<int>(slot.lines.size()));
        for (const auto& line : slot.lines) {
            packer.packInt(line->getLineNo());
            packer.packInt(line->numOfBE());
            for (int id : line->clients())
                packer.packInt(id);
            packer.packStr(line->getContent());
            packer.packInt(static_cast<int>(static_cast<std::uint32_t>(line->getKey())));
        }
    }
    packer.packInt(be_num);
    packer.packInt(max_id);
    packer.packInt(min_id);
    packer.packStr(console_cmd);
    if (len) *len = packer.getPackedMsgLen();
    return packer.getPackedMsg();
}

void Data::unpack(const void* buf, int len) {
    // The least that a line record takes: number, client count, empty text, key.
    constexpr std::size_t lineSize = 17;
    clearLine();
    Packer packer;
    packer.setPackedMsg(buf, len);
    clientID = packer.unpackInt();
    type = static_cast<Type>(packer.unpackInt());
    consoleID = packer.unpackInt();
    const int slotNumber = packer.unpackInt();
    if (slotNumber < 0) throw BrokenConnection();
    std::vector<int> ids;
    for (std::int64_t i = 0; i < slotNumber; ++i) {
        int count = packer.unpackInt();
        if (count <= 0) {
            i -= count;
            count = packer.unpackInt();
        }
        if (count < 0 || static_cast<std::size_t>(count) > packer.remaining() / lineSize)
            throw BrokenConnection();
        for (; count > 0; --count) {
            const int number = packer.unpackInt();
            // The slot after the last must still have a number.
            if (number < 0 || number == std::numeric_limits<int>::max()) throw BrokenConnection();
            auto line = std::make_unique<Line>(number, Line::EQUAL);
            ids.resize(static_cast<std::size_t>(packer.unpackCount(4)));
            for (int& id : ids)
                id = packer.unpackInt();
            // Ascending ids are appended in constant time each; others are put in order first. The
            // bounds follow the order of arrival.
            ClientSet clients;
            if (std::is_sorted(ids.begin(), ids.end())) {
                for (int id : ids)
                    clients.insert(id);
                line->addBEs(clients);
            } else {
                for (int id : ids)
                    line->addBE(id);
            }
            line->setContent(packer.unpackStr());
            // Sign-extended: only the low 32 bits travel.
            line->setKey(static_cast<std::size_t>(static_cast<std::int64_t>(packer.unpackInt())));
            addLine(std::move(line));
        }
    }
    be_num = packer.unpackInt();
    max_id = packer.unpackInt();
    min_id = packer.unpackInt();
    console_cmd = packer.unpackStr();
}

void Data::send(UnixSocket* socket) const {
    assert(socket);
    int len = 0;
    const auto body = pack(&len);
    Frame::send(socket, body.get(), len);
}

void Data::recv(UnixSocket* socket) {
    assert(socket);
    const std::vector<char> body = Frame::recv(socket);
    unpack(body.data(), static_cast<int>(body.size()));
}

void Data::dump() const {
    for (const auto& [number, slot] : lines) {
        for (const auto& line : slot.lines)
            line->dump();
    }
}
