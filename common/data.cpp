#include "common/data.h"

#include "common/frame.h"
#include "common/packer.h"
#include "common/unixsock.h"
#include "common/wirereader.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <string_view>

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

Data::Slot& Data::slotOf(int number) {
    // Lines come slot by slot.
    if (!lines.empty() && lines.rbegin()->first == number) return lines.rbegin()->second;
    const bool behind = lines.empty() || lines.rbegin()->first < number;
    const auto at = lines.try_emplace(behind ? lines.end() : lines.lower_bound(number), number);
    if (at->second.version == 0) at->second.version = ++versions;
    slotCount = std::max(slotCount, number + 1);
    return at->second;
}

void Data::store(int number, Line&& line) {
    Slot& at = slotOf(number);
    if (at.merged == at.lines.size()) unmerged.push_back(number);
    at.lines.push_back(std::move(line));
}

void Data::addLine(const Line* line) {
    assert(line);
    addLine(Line(*line));
}

void Data::addLine(std::unique_ptr<Line> line) {
    assert(line);
    addLine(std::move(*line));
}

void Data::addLine(Line&& line) {
    const int number = line.getLineNo();
    store(number, std::move(line));
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
        for (const Line& line : slot.lines)
            addLine(&line);
    }
    addTrailer(*data);
}

void Data::addData(Data&& data) {
    while (!data.lines.empty()) {
        auto node = data.lines.extract(data.lines.begin());
        const int number = node.key();
        Slot& arrived = node.mapped();
        const bool behind = lines.empty() || lines.rbegin()->first < number;
        const auto at = behind ? lines.end() : lines.lower_bound(number);
        if (at != lines.end() && at->first == number) {
            for (Line& line : arrived.lines)
                store(number, std::move(line));
            continue;
        }
        arrived.merged = 0;
        arrived.index.reset();
        arrived.version = ++versions;
        if (!arrived.lines.empty()) unmerged.push_back(number);
        slotCount = std::max(slotCount, number + 1);
        lines.insert(at, std::move(node));
    }
    addTrailer(data);
    data.clearLine();
}

void Data::addTrailer(const Data& data) {
    if (data.max_id > max_id)
        max_id = data.max_id;
    else if (data.min_id < min_id)
        min_id = data.min_id;
    be_num = saturate(static_cast<std::int64_t>(be_num) + data.be_num);
}

void Data::copy(const Data& other) {
    clearLine();
    clientID = other.clientID;
    type = other.type;
    consoleID = other.consoleID;
    for (const auto& [number, slot] : other.lines) {
        for (const Line& line : slot.lines)
            addLine(&line);
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
        Line line((*lineNo)++, Line::EQUAL);
        line.setContent(piece.c_str());
        line.addBE(beId);
        line.generateKey();
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

// The table of keys.

std::uint32_t Data::KeyIndex::hashOf(const Line& line) {
    const std::size_t hash = std::hash<std::string_view>()(line.getContent()) ^ line.getKey();
    return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

void Data::KeyIndex::build(const Variants& variants, std::size_t known, std::size_t expected) {
    const std::size_t size = std::bit_ceil(2 * std::max<std::size_t>(expected, indexThreshold));
    shift = 64 - std::countr_zero(size);
    cells.assign(size, {});
    used = 0;
    for (std::size_t i = 0; i < known; ++i)
        enter(i, hashOf(variants[i]));
}

void Data::KeyIndex::enter(std::size_t position, std::uint32_t hash) {
    std::size_t at = home(hash);
    while (cells[at].place != 0)
        at = (at + 1) & (cells.size() - 1);
    cells[at] = {static_cast<std::uint32_t>(position + 1), hash};
    ++used;
}

void Data::KeyIndex::add(std::size_t position, std::uint32_t hash) {
    if (2 * (used + 1) > cells.size()) {
        std::vector<Cell> before(2 * cells.size());
        before.swap(cells);
        --shift;
        used = 0;
        for (const Cell& cell : before)
            if (cell.place != 0) enter(cell.place - 1, cell.hash);
    }
    enter(position, hash);
}

Line* Data::KeyIndex::find(Variants& variants, const Line& like, std::uint32_t hash) const {
    for (std::size_t at = home(hash); cells[at].place != 0; at = (at + 1) & (cells.size() - 1)) {
        if (cells[at].hash != hash) continue;
        Line& line = variants[cells[at].place - 1];
        if (line.getKey() == like.getKey() && line.getContent() == like.getContent()) return &line;
    }
    return nullptr;
}

void Data::mergeSlot(Slot& slot) {
    Variants& all = slot.lines;
    if (all.size() == 1) {
        slot.merged = 1;
        return;
    }
    const auto from = all.begin() + static_cast<std::ptrdiff_t>(slot.merged);
    if (!std::is_sorted(slot.merged ? from - 1 : from, all.end())) {
        std::stable_sort(all.begin(), all.end());
        slot.merged = 0;
        slot.index.reset();
        slot.version = ++versions;
    }
    KeyIndex* index = nullptr;
    if (all.size() > indexThreshold) {
        // A slot that is filled at once is seldom added to: its index is not kept.
        if (slot.merged > 0 && !slot.index) {
            slot.index = std::make_unique<KeyIndex>();
            slot.index->build(all, slot.merged, all.size());
        }
        index = slot.index ? slot.index.get() : &scratch;
        if (!slot.index) scratch.build(all, 0, all.size());
    }
    // Every line joins the first one like it; the lines that stay move up.
    std::size_t kept = slot.merged;
    for (std::size_t i = slot.merged; i < all.size(); ++i) {
        Line& line = all[i];
        Line* same = nullptr;
        const std::uint32_t hash = index ? KeyIndex::hashOf(line) : 0;
        if (index) {
            same = index->find(all, line, hash);
        } else {
            for (std::size_t j = 0; j < kept && !same; ++j) {
                if (all[j].getKey() == line.getKey() && all[j].getContent() == line.getContent())
                    same = &all[j];
            }
        }
        if (same) {
            // Its smallest id stays: the lines are sorted by theirs, and so is the rest of the
            // slot.
            same->addLine(&line);
            continue;
        }
        if (kept != i) all[kept] = std::move(line);
        if (index) index->add(kept, hash);
        ++kept;
    }
    all.erase(all.begin() + static_cast<std::ptrdiff_t>(kept), all.end());
    slot.merged = kept;
}

void Data::merge() {
    std::vector<int> pending;
    pending.swap(unmerged);
    auto at = lines.end();
    for (int number : pending) {
        // Mostly one slot after the other, behind those that were released.
        if (at == lines.end() && (lines.empty() || number < lines.begin()->first)) continue;
        if (at == lines.end() || ++at == lines.end() || at->first != number)
            at = lines.find(number);
        if (at != lines.end()) mergeSlot(at->second);
    }
}

void Data::truncate(int n) {
    if (static_cast<std::int64_t>(truncated) + n > slotCount) return;
    const int k = n / 10;
    if (k > 0) lines.erase(lines.lower_bound(truncated), lines.lower_bound(truncated + k));
    truncated = saturate(static_cast<std::int64_t>(truncated) + k);
}

void Data::bound(int n) {
    const int k = n / 10;
    const std::size_t most = 2 * static_cast<std::size_t>(std::max(n, 0));
    if (k <= 0 || lines.size() <= most) return;
    truncated = std::min(truncated, lines.begin()->first);
    // The last slot that has to go, and in which tenth it is. Mostly no number is left out.
    const std::size_t surplus = lines.size() - most;
    const std::int64_t first = lines.begin()->first, end = lines.rbegin()->first;
    const std::int64_t last =
        static_cast<std::size_t>(end - first) + 1 == lines.size()
            ? first + static_cast<std::int64_t>(surplus) - 1
            : std::next(lines.begin(), static_cast<std::ptrdiff_t>(surplus) - 1)->first;
    const std::int64_t due = (last - truncated) / k + 1;
    const std::int64_t spare = static_cast<std::int64_t>(slotCount) - n - truncated;
    if (spare < 0) return;
    const std::int64_t released = std::min<std::int64_t>(due, spare / k + 1) * k;
    truncated = saturate(truncated + released);
    lines.erase(lines.begin(), lines.lower_bound(truncated));
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
        for (const Line& line : slot.lines) {
            packer.packInt(line.getLineNo());
            packer.packInt(line.numOfBE());
            for (const ClientSet::Range& r : line.clients().runs())
                packer.packInts(r.first, r.last);
            packer.packStr(line.getContent());
            packer.packInt(static_cast<int>(static_cast<std::uint32_t>(line.getKey())));
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
    WireReader in(buf, static_cast<std::size_t>(len));
    read(in);
}

void Data::read(WireReader& in) {
    // The least that a line record takes: number, client count, empty text, key.
    constexpr std::size_t lineSize = 17;
    // A slot's count is believed that far before its lines have come.
    constexpr int believed = 65536;
    clearLine();
    clientID = in.readInt();
    type = static_cast<Type>(in.readInt());
    consoleID = in.readInt();
    const int slotNumber = in.readInt();
    if (slotNumber < 0) throw BrokenConnection();
    for (std::int64_t i = 0; i < slotNumber; ++i) {
        int count = in.readInt();
        if (count <= 0) {
            i -= count;
            count = in.readInt();
        }
        if (count < 0 || static_cast<std::size_t>(count) > in.remaining() / lineSize)
            throw BrokenConnection();
        for (int left = count; left > 0; --left) {
            const int number = in.readInt();
            // The slot after the last must still have a number.
            if (number < 0 || number == std::numeric_limits<int>::max()) throw BrokenConnection();
            Line line(number, Line::EQUAL);
            const int clients = in.readInt();
            in.readClients(clients, line);
            line.setContent(in.readText());
            // Sign-extended: only the low 32 bits travel.
            line.setKey(static_cast<std::size_t>(static_cast<std::int64_t>(in.readInt())));
            Slot& slot = slotOf(number);
            if (slot.lines.empty() && left == count)
                slot.lines.reserve(static_cast<std::size_t>(std::min(left, believed)));
            store(number, std::move(line));
        }
    }
    be_num = in.readInt();
    max_id = in.readInt();
    min_id = in.readInt();
    console_cmd = in.readText();
}

void Data::send(UnixSocket* socket) const {
    assert(socket);
    int len = 0;
    const auto body = pack(&len);
    Frame::send(socket, body.get(), len);
}

void Data::recv(UnixSocket* socket) {
    assert(socket);
    WireReader in(*socket, Frame::recvLength(socket));
    read(in);
    in.skip();
}

void Data::dump() const {
    for (const auto& [number, slot] : lines) {
        for (const Line& line : slot.lines)
            line.dump();
    }
}
