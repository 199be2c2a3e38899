#include "backend/folding/folder.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <set>

namespace {

// Plays what clients and sets of them say, and looks that what leaves is that: all of it, each
// client's in its order, under numbers that neither fall nor stand far behind.
class Play {
  public:
    void step(unsigned what, unsigned which, unsigned who) {
        now += std::chrono::milliseconds(what >> 4);
        const ClientSet clients = setOf(who);
        switch (what & 15) {
        case 0:
            return folder.await(clients);
        case 1:
            return folder.answered(static_cast<int>(who % 16));
        case 2:
            return leave(folder.take());
        case 3:
            return leave(folder.takeDue(now));
        case 4:
            return folder.merged(now);
        case 5:
            return folder.addRow(clients, "#" + std::to_string(++rows), now);
        case 6:
            return say(clients, which, Folder::HALF);
        case 7:
            return say(clients, which, Folder::REST);
        case 8:
            return say(clients, which, Folder::HALF_REST);
        default:
            return say(clients, which, Folder::WHOLE);
        }
    }
    void end() {
        leave(folder.take());
        expect(folder.empty() && !folder.due());
        expect(shown == said);
    }

  private:
    Folder folder;
    Clock::time_point now{};
    std::map<int, std::string> said, shown; // of each client, without the cuts
    std::map<int, int> lastNumber;
    int highest = -1, rows = 0;

    // A client, a run of them, or every second one.
    static ClientSet setOf(unsigned who) {
        ClientSet clients;
        const int first = static_cast<int>(who % 16);
        const int count = 1 + static_cast<int>(who / 16 % 8), step = who & 128 ? 2 : 1;
        for (int i = 0; i < count; ++i)
            clients.insert(first + i * step);
        return clients;
    }
    void say(const ClientSet& clients, unsigned which, Folder::Cut cut) {
        const std::string text = std::to_string(which % 32) + (which & 128 ? ";" : ".");
        if (clients.size() == 1 && (which & 64) != 0)
            folder.add(*clients.begin(), text, now, cut);
        else
            folder.add(clients, text, now, cut);
        for (const int id : clients)
            said[id] += text;
    }
    void leave(const Folder::Lines& lines) {
        std::set<std::pair<int, std::string>> slots;
        for (const Folder::Line& line : lines.lines) {
            expect(slots.emplace(line.number, line.text).second);
            expect(line.number >= std::max(0, highest - 1000));
            if (line.text.starts_with('#')) continue; // a row, which no client has said
            for (const int id : line.clients) {
                auto& last = lastNumber.try_emplace(id, -1).first->second;
                expect(line.number >= last);
                last = line.number;
                shown[id] += line.text;
            }
        }
        if (!lines.empty()) highest = std::max(highest, lines.lines.back().number);
        expect(folder.highest() >= highest);
    }
};

} // namespace

// Three bytes a step.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Play play;
    for (std::size_t at = 0; at + 2 < size; at += 3)
        play.step(bytes[at], bytes[at + 1], bytes[at + 2]);
    play.end();
    return 0;
}
