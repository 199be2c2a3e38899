#include "common/talconfig.h"

#include "common/catalog.h"
#include "common/error.h"
#include "common/file.h"
#include "common/packer.h"
#include "common/split.h"

#include <climits>

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int lowestVersion = 5100;
constexpr std::size_t minFields = 7;
constexpr std::size_t maxLine = 1023; // what is beyond is cut
// A packed entry takes at least this many bytes: four ints and four empty strings.
constexpr std::size_t minPackedSize = 36;

// A line without its newline; false at the end of the file.
bool readLine(const File& input, std::string& line) {
    line.clear();
    int c;
    while ((c = std::getc(input.get())) != EOF && c != '\n')
        if (line.size() < maxLine) line += static_cast<char>(c);
    return c != EOF || !line.empty();
}

int toInt(const char* text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

int toInt(const std::string& text) { return toInt(text.c_str()); }

} // namespace

void TALConfig::readConfiguration(const char* configFile) {
    assert(configFile);
    entries.clear();
    const File input(std::fopen(configFile, "rte"));
    if (!input) Error(ERR_ATTACH_CFG_FILE_MISSING, configFile);

    std::string line;
    if (!readLine(input, line) || toInt(line) < lowestVersion)
        Error(ERR_ATTACH_CFG_VER_LOW, configFile);
    if (!readLine(input, line)) Error(ERR_ATTACH_CFG_FORMAT, configFile);
    std::vector<Entry> read;
    for (int left = toInt(line); left > 0; --left) {
        if (!readLine(input, line)) Error(ERR_ATTACH_CFG_FORMAT, configFile);
        const Split fields(line.c_str(), " ", true);
        if (fields.size() < minFields) Error(ERR_ATTACH_CFG_FORMAT, configFile);
        Entry entry{toInt(fields[0]), toInt(fields[1]), fields[2], fields[3],
                    toInt(fields[4]), toInt(fields[5]), fields[6], {}};
        // The last field of a line is no argument.
        for (std::size_t i = minFields; i + 1 < fields.size(); ++i)
            entry.exeArgs += ' ' + fields[i];
        read.push_back(std::move(entry));
    }
    entries = std::move(read);
}

std::vector<std::string> TALConfig::splitRecord(const std::string& record) {
    std::vector<std::string> fields;
    for (std::size_t at = 0;;) {
        const std::size_t comma = std::min(record.find(',', at), record.size());
        const std::size_t begin = std::min(record.find_first_not_of(' ', at), comma);
        fields.push_back(record.substr(begin, comma - begin));
        if (comma == record.size()) return fields;
        at = comma + 1;
    }
}

TALConfig::Entry TALConfig::fromRecord(const std::vector<std::string>& fields) {
    const auto field = [&](std::size_t i) { return i < fields.size() ? fields[i] : std::string(); };
    return {toInt(field(1)), toInt(field(9)), field(6), field(5), toInt(field(4)), 0, field(7), {}};
}

void TALConfig::readNewTalConfiguration(const std::vector<std::string>& records) {
    entries.clear();
    for (const std::string& record : records)
        entries.push_back(fromRecord(splitRecord(record)));
}

TALConfig::Entry* TALConfig::findTask(int task) {
    const auto found = std::ranges::find(entries, task, &Entry::task);
    return found == entries.end() ? nullptr : &*found;
}

void TALConfig::setTaskSpawn(int task, const std::vector<std::string>& fields) {
    if (Entry* entry = findTask(task)) *entry = fromRecord(fields);
}

void TALConfig::setTaskExit(int task) {
    if (Entry* entry = findTask(task)) entry->pid = -1;
}

int TALConfig::generateHostFile(const char* hostFile) const {
    assert(hostFile);
    File output(std::fopen(hostFile, "we"));
    if (!output) Error(ERR_HOST_FILE_INVALID, hostFile);
    int lines = 0;
    bool written = true;
    for (const Entry& entry : entries) {
        if (entry.pid == -1) break;
        written = std::fprintf(output.get(), "%s\n", entry.host.c_str()) >= 0 && written;
        ++lines;
    }
    if (std::fclose(output.release()) != 0 || !written) Error(ERR_HOST_FILE_INVALID, hostFile);
    return lines;
}

std::unique_ptr<char[]> TALConfig::pack(int* len) const {
    Packer packer;
    packer.packInt(getEntryNum());
    for (const Entry& entry : entries) {
        packer.packInt(entry.task);
        packer.packInt(entry.vtask);
        packer.packStr(entry.ip);
        packer.packStr(entry.host);
        packer.packInt(entry.pid);
        packer.packInt(entry.ppid);
        packer.packStr(entry.exe);
        packer.packStr(entry.exeArgs);
    }
    packer.packInt(mjid);
    if (len) *len = packer.getPackedMsgLen();
    return packer.getPackedMsg();
}

void TALConfig::unpack(const void* buf, int len) {
    Packer packer;
    packer.setPackedMsg(buf, len);
    std::vector<Entry> received;
    for (int left = packer.unpackCount(minPackedSize); left > 0; --left) {
        Entry entry;
        entry.task = packer.unpackInt();
        entry.vtask = packer.unpackInt();
        entry.ip = packer.unpackStr();
        entry.host = packer.unpackStr();
        entry.pid = packer.unpackInt();
        entry.ppid = packer.unpackInt();
        entry.exe = packer.unpackStr();
        entry.exeArgs = packer.unpackStr();
        received.push_back(std::move(entry));
    }
    mjid = packer.unpackInt();
    entries = std::move(received);
}

void TALConfig::dump() const {
    for (const Entry& entry : entries)
        std::printf("%d %d %s %s %d %d '%s %s'\n", entry.task, entry.vtask, entry.ip.c_str(),
                    entry.host.c_str(), entry.pid, entry.ppid, entry.exe.c_str(),
                    entry.exeArgs.c_str());
}
