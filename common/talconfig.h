#pragma once

#include <memory>
#include <string>
#include <vector>

/// The tasks of a parallel job as its launcher describes them for attaching a debugger.
///
/// Read from the launcher's attach file or from its comma-separated records; written as a host
/// file; sent in packed form. Numbers of a record or a file that are missing or no numbers read as
/// 0: check a process id before use. Entry indexes run from 0 to getEntryNum() - 1.
class TALConfig {
  public:
    /// Reads an attach file in place of the entries held; of a line, the first 1023 characters.
    /// Throws Error, and holds no entries, for a file that cannot be opened, is of a version below
    /// 5100, or has a task line of fewer than seven fields or fewer lines than it announces.
    void readConfiguration(const char* configFile);
    /// Takes one entry from each comma-separated record in place of the entries held.
    void readNewTalConfiguration(const std::vector<std::string>& records);
    /// Sets the first entry of that task from the fields of a comma-separated record.
    void setTaskSpawn(int task, const std::vector<std::string>& fields);
    /// Marks the first entry of that task as exited: its process id becomes -1.
    void setTaskExit(int task);
    /// Writes the host of each entry as a line, up to the first task that has exited. Gives back
    /// the number of lines; throws Error when the file cannot be written.
    int generateHostFile(const char* hostFile) const;

    /// The fields of a comma-separated record: leading blanks are skipped, empty fields kept.
    static std::vector<std::string> splitRecord(const std::string& record);

    int getMjid() const { return mjid; }
    void setMjid(int id) { mjid = id; }
    int getEntryNum() const { return static_cast<int>(entries.size()); }
    int getTask(int entry) const { return at(entry).task; }
    int getVTask(int entry) const { return at(entry).vtask; }
    const std::string& getIP(int entry) const { return at(entry).ip; }
    const std::string& getHostName(int entry) const { return at(entry).host; }
    int getPid(int entry) const { return at(entry).pid; }
    int getPPid(int entry) const { return at(entry).ppid; }
    const std::string& getExe(int entry) const { return at(entry).exe; }
    /// The arguments, each after one blank.
    const std::string& getExeArg(int entry) const { return at(entry).exeArgs; }

    /// The packed table; its length in bytes goes to *len when that is not null.
    std::unique_ptr<char[]> pack(int* len) const;
    /// Takes a packed table in place of the own. Throws BrokenConnection, and keeps the own, when
    /// the form does not fit len bytes.
    void unpack(const void* buf, int len);
    /// Prints one line an entry on standard output.
    void dump() const;

  private:
    struct Entry {
        int task = 0;
        int vtask = 0; // virtual task number
        std::string ip;
        std::string host;
        int pid = 0; // -1 once the task has exited
        int ppid = 0;
        std::string exe;
        std::string exeArgs;
    };

    std::vector<Entry> entries;
    int mjid = 0; // the job's identifier

    const Entry& at(int entry) const { return entries.at(static_cast<std::size_t>(entry)); }
    Entry* findTask(int task);
    static Entry fromRecord(const std::vector<std::string>& fields);
};
