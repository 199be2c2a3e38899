#pragma once

#include "common/line.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class UnixSocket;
class WireReader;

/// Output of one or several clients, arranged by line number, or a change of the clients' status.
///
/// Slot i holds the variants of line i: the distinct texts that were seen there. Only slots that
/// hold lines take memory, so a line number costs nothing however large it is. Owns its lines; not
/// synchronised.
class Data {
  public:
    enum Type : int { TEXT = 0, READY = 1, QUIT = 2, ERROR = 3, DEPLOY = 4, URGENTTEXT = 5 };

    using Variants = std::vector<Line>;

    /// Finds the lines of a slot by their texts: positions, in an open table. Keys alone would not
    /// do: those of numbers are often alike.
    class KeyIndex {
      public:
        void clear() { cells.clear(); }
        /// Prepares for so many lines; the first `known` of them are entered.
        void build(const Variants& lines, std::size_t known, std::size_t expected);
        /// The line entered that has this one's key and content; nullptr if there is none.
        Line* find(Variants& lines, const Line& like, std::uint32_t hash) const;
        void add(std::size_t position, std::uint32_t hash);
        static std::uint32_t hashOf(const Line& line);

      private:
        struct Cell {
            std::uint32_t place = 0; // position + 1, 0 for a free one
            std::uint32_t hash = 0;
        };
        std::vector<Cell> cells;
        std::size_t used = 0;
        int shift = 0;

        std::size_t home(std::uint32_t hash) const { return hash * 0x9e3779b97f4a7c15u >> shift; }
        void enter(std::size_t position, std::uint32_t hash);
    };

    /// The variants of one line number, and what merge has folded so far.
    struct Slot {
        Variants lines;
        /// The first `merged` lines hold no two alike.
        std::size_t merged = 0;
        /// Another one, of all slots that the record ever had, once lines have changed places.
        std::uint64_t version = 0;
        /// Lines of the merged part; kept once there are many and more keep coming.
        std::unique_ptr<KeyIndex> index;
    };

    Data() = default;
    Data(Data&&) = default;
    Data& operator=(Data&&) = default;

    void setClientID(int id) { clientID = id; }
    int getClientID() const { return clientID; }
    void setType(Type value) { type = value; }
    Type getType() const { return type; }
    void setConsoleID(int id) { consoleID = id; }
    int getConsoleID() const { return consoleID; }
    void setConsoleCmd(const std::string& text) { console_cmd = text; }
    const std::string& getConsoleCmd() const { return console_cmd; }
    int getMaxId() const { return max_id; }
    int getMinId() const { return min_id; }
    /// Number of clients contributing.
    int numOfBE() const { return be_num; }
    /// Sets the trailer by hand: the smallest and the largest client and their number.
    void setBounds(int minId, int maxId, int clients);
    /// Number of slots, the empty ones included.
    int numOfLine() const { return slotCount; }
    int getTruncated() const { return truncated; }

    /// The slots that hold lines, by slot number.
    const std::map<int, Slot>& slots() const { return lines; }
    /// The same, for setting the states of lines.
    std::map<int, Slot>& slots() { return lines; }
    /// The numbers of slots with lines that merge has not folded: those behind Slot::merged. Some
    /// of the slots may have been released since.
    const std::vector<int>& pending() const { return unmerged; }

    /// Stores a copy at the end of the slot of its line number.
    void addLine(const Line* line);
    /// The same without the copy.
    void addLine(Line&& line);
    void addLine(std::unique_ptr<Line> line);
    /// Releases all lines; the header fields and the truncated count stay.
    void clearLine();
    /// Adds copies of the other record's lines, its clients and bounds.
    void addData(const Data* data);
    /// The same, but takes the lines over; the other record is left without any.
    void addData(Data&& data);
    void copy(const Data& other);
    /// Cuts one client's raw output into lines, one slot each; *lineNo counts them on.
    void fromStr(const char* text, int beId, int* lineNo);
    /// Leaves the text as it is: trailing blanks and tabs of client output are kept.
    void chomp(char* text) const;
    /// Folds identical lines within each slot, in the order of less_compare (stable).
    void merge();
    /// Releases the oldest tenth of n slots once `truncated` + n slots have been filled.
    void truncate(int n);
    /// To be called behind truncate: where more than 2n slots hold lines, releases the oldest
    /// tenths of n until no more than that do, or until those are left that truncate would leave.
    /// The count begins anew with the first slot that holds lines: what an earlier output has left
    /// of it keeps nothing of this one.
    void bound(int n);

    /// The packed record; its length goes to *len when len is not null.
    std::unique_ptr<char[]> pack(int* len) const;
    /// Reads a packed record of len bytes; throws BrokenConnection when it lies about its lengths.
    void unpack(const void* buf, int len);
    void send(UnixSocket* socket) const;
    /// Reads a record, line by line as it arrives. Throws BrokenConnection.
    void recv(UnixSocket* socket);
    void dump() const;

  private:
    int clientID = 0;
    Type type = TEXT;
    int consoleID = 0;
    std::map<int, Slot> lines;
    int slotCount = 0;
    int max_id = 0;
    int min_id = 0;
    int be_num = 0;
    std::string console_cmd;
    int truncated = 0;
    /// Slots with lines that merge has not seen.
    std::vector<int> unmerged;
    std::uint64_t versions = 0;
    KeyIndex scratch; // for the slots that keep no index

    Slot& slotOf(int number);
    void store(int number, Line&& line);
    void addTrailer(const Data& data);
    void read(WireReader& in);
    void mergeSlot(Slot& slot);
};
