#include "backend/jobs/hostfile.h"
#include "backend/jobs/jobprocesses.h"
#include "backend/jobs/launcher.h"
#include "backend/jobs/mpir.h"
#include "backend/os/text.h"
#include "backend/wire/rendezvous.h"
#include "common/config.h"
#include "common/error.h"
#include "common/format.h"
#include "common/talconfig.h"
#include "console/historyfile.h"
#include "console/settings.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

// A file of this process, in a directory that is its alone; each case writes it anew.
std::string file(const std::string& text) {
    static std::string folder = std::filesystem::temp_directory_path() / "vex-fuzz-XXXXXX";
    static const bool made = ::mkdtemp(folder.data()) != nullptr;
    expect(made);
    const std::string path = folder + "/file";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

void hosts(const std::string& text) {
    std::istringstream in(text);
    const auto names = HostFile::read(in, "hosts", 100);
    expect(!names.empty() && names.size() <= 100);
    for (const std::string& name : names)
        expect(!name.empty() && name.find_first_of(" \t\n#") == std::string::npos);
}

void rendezvous(const std::string& text) {
    std::istringstream in(text);
    const Rendezvous found = Rendezvous::parse(in);
    std::istringstream again(found.str());
    expect(Rendezvous::parse(again).str() == found.str());
}

void attachFile(const std::string& text) {
    TALConfig table, again;
    table.readConfiguration(file(text).c_str());
    int length = 0;
    const auto form = table.pack(&length);
    again.unpack(form.get(), length);
    expect(again.getEntryNum() == table.getEntryNum());
    again.unpack(text.data(), static_cast<int>(text.size()));
}

void settings(const std::string& text) {
    Settings chosen;
    chosen.readConfiguration(file(text));
    Config config;
    config.unpack(text.data(), static_cast<int>(text.size()));
    std::string expanded = text.c_str();
    config.parseCommand(expanded);
}

void configuration(const std::string& text) {
    Config config, again;
    config.readConfiguration(file(text).c_str());
    int length = 0;
    const auto form = config.pack(&length);
    again.unpack(form.get(), length);
}

// Nothing of it is lost but what is too much.
void history(const std::string& text) {
    const HistoryFile lines(file(text));
    const int before = lines.countLines();
    const std::string end = lines.tail(3);
    expect(end.size() <= text.size() && text.ends_with(end));
    lines.write("where\n");
    expect(lines.countLines() <= std::max(before, 1000) + 2);
    expect(lines.tail(100000).ends_with("where\n"));
}

void commandLine(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; std::getline(in, word, '\0');)
        words.push_back(word);
    JobProcesses::sizeIn(words);
    JobProcesses::daemonIn(words);
    const std::string line = text.c_str();
    // Patterns and variables are the system's, and would read its files.
    if (line.find_first_of("$~*?[") != std::string::npos) return;
    const std::string word = Text::quoted(line);
    if (line.find('\n') == std::string::npos)
        expect(Launcher::split(word) == std::vector<std::string>{line});
    Launcher::split(line);
}

// A launcher's memory from an address on, and its program.
void table(const std::string& text) {
    constexpr std::uint64_t base = 0x1000;
    const Mpir::Memory memory = [&text](std::uint64_t at, void* to, std::size_t length) {
        if (at < base || at - base > text.size() || text.size() - (at - base) < length)
            return false;
        std::memcpy(to, text.data() + (at - base), length);
        return true;
    };
    for (const int count : {1, 3, 1 << 30})
        Mpir::read(memory, base, count);
    Mpir::symbols(file(text), {"MPIR_proctable", "MPIR_proctable_size"});
}

// Of a catalog: a text is used as a format only when it takes what the built-in one takes.
void translation(const std::string& text) {
    const std::string translated = text.c_str();
    if (!sameConversions(translated.c_str(), "%s Error near: %s<END>\n")) return;
    char printed[4096];
#pragma clang diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(printed, sizeof printed, translated.c_str(), "one", "two");
}

} // namespace

// Files that users and launchers write, and what else is read like one; the first byte says which.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) return 0;
    const auto kinds = {hosts,   rendezvous,  attachFile, settings,   configuration,
                        history, commandLine, table,      translation};
    try {
        kinds.begin()[*bytes % kinds.size()](textOf(bytes + 1, size - 1));
    } catch (const Error&) {
    } catch (const BrokenConnection&) {
    } catch (const std::runtime_error&) {
    }
    return 0;
}
