// Writes well-formed inputs for the fuzz targets, one directory a target: fuzz_seeds DIRECTORY
#include "backend/wire/mpirecords.h"
#include "backend/wire/noderecords.h"
#include "backend/wire/rendezvous.h"
#include "common/command.h"
#include "common/data.h"
#include "common/reply.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <link.h>
#include <sys/procfs.h>

namespace {

std::filesystem::path root;

void seed(const char* target, const std::string& bytes) {
    static int number = 0;
    std::filesystem::create_directories(root / target);
    std::ofstream(root / target / std::to_string(number++), std::ios::binary) << bytes;
}

std::string dataRecord() {
    Data data;
    data.setConsoleID(1);
    data.setConsoleCmd("where");
    for (int slot : {0, 3, 3, 7}) {
        Line line(slot, Line::EQUAL);
        for (int id : {0, 1, 2, 5})
            line.addBE(id + slot);
        line.setContent("#0  main () at halo.c:" + std::to_string(slot));
        line.generateKey();
        data.addLine(&line);
    }
    data.setBounds(0, 12, 4);
    return packed(data);
}

std::string rendezvous() {
    return Rendezvous{.socketName = "vex-agents-1",
                      .addresses = {"127.0.0.1", "fe80::1"},
                      .port = 4711,
                      .secret = std::string(64, 'a'),
                      .ranks = {3, 5},
                      .size = 7,
                      .nodeName = "vex-node"}
        .str();
}

std::string groupRecord() {
    GroupCommand group;
    group.setOpType(GroupCommand::ASSIGN);
    group.setBase("g1");
    group.addOperand("g0");
    group.addOperands(0, 3);
    group.addOperand(9);
    return packed(group);
}

template <class T>
std::string bytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string note(unsigned type, const std::string& content) {
    const ElfW(Nhdr) head{5, static_cast<unsigned>(content.size()), type};
    return bytesOf(head) + std::string("CORE\0\0\0\0", 8) + content;
}

// Of process 4711 and rank 7: a segment of notes, and the end of a stack.
std::string coreFile() {
    constexpr std::size_t stack = 0x7000, random = 8;
    const std::string end = std::string(random, 'r') +
                            std::string("\0./x\0HOME=/\0OMPI_COMM_WORLD_RANK=7\0", 34) +
                            std::string("./x\0", 4);
    elf_prpsinfo process{};
    process.pr_pid = 4711;
    std::string vectors;
    for (const auto& [type, value] :
         {std::pair<std::size_t, std::size_t>(AT_RANDOM, stack + random - 2),
          {AT_EXECFN, stack + end.size() - 4},
          {AT_NULL, 0}})
        vectors += bytesOf(type) + bytesOf(value);
    const std::string notes =
        note(NT_PRPSINFO, bytesOf(process)) + note(NT_AUXV, vectors) + note(NT_PRSTATUS, "");
    ElfW(Ehdr) header{};
    std::copy_n(ELFMAG, SELFMAG, header.e_ident);
    header.e_ident[EI_CLASS] = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_type = ET_CORE;
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(ElfW(Phdr));
    header.e_phnum = 2;
    ElfW(Phdr) first{}, second{};
    first.p_type = PT_NOTE;
    first.p_offset = sizeof header + 2 * sizeof first;
    first.p_filesz = notes.size();
    second.p_type = PT_LOAD;
    second.p_offset = first.p_offset + notes.size();
    second.p_vaddr = stack;
    second.p_filesz = end.size();
    return bytesOf(header) + bytesOf(first) + bytesOf(second) + notes + end;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 1;
    root = argv[1];
    seed("data", dataRecord());
    seed("parser", dataRecord());
    const std::string group = groupRecord();
    seed("record", "\1" + group);
    Command command;
    command.init(7, "all", Command::CLIENT, "where", -1);
    seed("record", '\0' + packed(command));
    command.init(7, "all", Command::GROUP, group.data(), static_cast<int>(group.size()));
    seed("record", '\0' + packed(command));
    Reply reply(Reply::FAILED, 511);
    reply.addRetInfo("g1");
    seed("record", "\2" + packed(reply));
    for (const char* line : {"group g1 = 0:3 7 g2", "print \"a\\\"b\" 'c' \\* -3 12ab",
                             "stat -s -i | sort", "'open"}) {
        seed("token", line);
        seed("split", std::string(" ,:") + '\0' + line);
    }
    const AgentHello hello{.nonce = "nonce", .host = "node1"};
    seed("agent", hello.record().frames() + NodeRecords::tasks({{0, 2, 7}}).frames());
    DebuggerStart start;
    start.argv = {"gdb", "-q"};
    start.environment = {{"VEX_TASK", "0"}};
    start.prompt = start.terminal = start.inputTerminal = start.process = start.dialect = "x";
    seed("agent", NodeRecords::start({start, {{0, 0}, {3, 7}}}).frames());
    const ClientSet odd{1, 3, 5};
    StackTree tree;
    tree.add(1, {{"poll", true}, {"main", false}});
    seed("agent", NodeRecords::begin(odd, {7}).frames() + NodeRecords::type(odd, "where").frames());
    seed("agent",
         NodeRecords::lines(7, {}, {{odd, {"$1 = 1"}}, {{1}, {"> ", false, false}}}).frames() +
             NodeRecords::stacks(7, tree).frames() + NodeRecords::asks(7, odd, "> ").frames());
    seed("agent", NodeRecords::notes(AgentRecord::IDENTITY, {{1, "rank 1"}}).frames() +
                      NodeRecords::about(AgentRecord::ENDED, odd).frames());
    MpiState waits;
    waits.kind = MpiState::INSIDE;
    waits.call = "MPI_Recv";
    waits.peers = {0, MpiState::anybody};
    waits.comms = {{MpiState::worldId, 4, 2}};
    seed("agent", MpiRecords::states({{1, waits}, {2, MpiState()}}).frames());
    for (const char* lines :
         {"node01: a\nnode2: a\nplain\nnode01: b\n", "[1,3]<stdout>:x\n[1,4]<stderr>:x\n",
          "  3: x\r\n 12: y", "[a@1,3]<stdout>: x\n", "[3] \xff\n[3]\n"})
        for (const char how : {'\0', '\x19', '\x2e', '\xd0'})
            seed("fold", how + std::string(lines));
    for (const char* line :
         {"group g1 = 0:3 7 g2", "group g1 + 0", "on g1", "send yes", "script /bin/true x",
          "instant p 1", "stat -s -i | sort", "match 'a' | match b", "where", "option mode auto",
          ":s", "history 3", "'open", "interrupt", "help on"})
        for (const char state : {'\0', '\2'})
            seed("command", state + std::string(line));
    seed("output", "!a\r\nb\n\1abac\nc\1abac+\nd\x1b[1m\xc3\xa9\1abac-\na\nb\n> ");
    seed("stacks", std::string("\0", 1) +
                       "\nThread 2 (Thread 0x7f (LWP 5) \"x\"):\n#0  0x1 in poll () from "
                       "/lib/libc.so\n#1  std::map<int, f(int)>::at (this=0x1, k=@0x2) at a.cpp:3\n"
                       "#2  <signal handler called>\n#3  0x2 in ?? ()\nBacktrace stopped: x\n");
    seed("stacks", "\1* thread #1, name = 'halo', stop reason = signal SIGINT\n  * frame #0: 0x1 "
                   "libc.so.6`__poll + 3\n    frame #1: 0x2 halo`main(argc=1) at halo.cpp:3:5\n");
    const std::string files[] = {"a:2\nb slots=3 # c\n[fe80::1]:2\n",
                                 rendezvous(),
                                 "5300;1;3;/bin/halo;1\n0;0;10.0.0.1;node1;4711;1;/bin/halo;-x\n",
                                 "mode = collapsed\necolor = RED\n# x\nbroadcast = on\n",
                                 "name = value\n# x\n\nother=%name\n",
                                 "where\nprint 1\n",
                                 std::string("mpirun\0-np\0003\0--host\0a:2,b\0./x\0", 30),
                                 std::string("\x18\x10\0\0\0\0\0\0", 8) + std::string(24, '\1') +
                                     std::string("node\0", 5),
                                 "%2$s at %1$-5s<END>"};
    char kind = 0;
    for (const std::string& text : files)
        seed("files", kind++ + text);
    seed("files", "\6'quoted");
    seed("cores", coreFile());
    seed("control", "attend\nfacts\nleft\nhung up\ngive up\nserve\nend 3\nattend\n");
    seed("pattern", "'hello|world' | match x\nHello x\nworld\n");
    seed("editor", "whe\x05re\x01\x06\x0b\n\x10\x12re\x12\x15pri\t\t\x08\xe1x\n");
    return 0;
}
