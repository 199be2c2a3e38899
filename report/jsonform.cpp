#include "report/jsonform.h"

#include "backend/folding/json.h"

#include <string_view>

namespace {

// One object: members in the order in which they are added.
class Object {
  public:
    Object& add(std::string_view name, const std::string& value) {
        Json::add(begin(name), value);
        return *this;
    }
    Object& add(std::string_view name, int value) {
        begin(name) += std::to_string(value);
        return *this;
    }
    // [[first, last], ...]
    Object& add(std::string_view name, const ClientSet& clients) {
        std::string& to = begin(name);
        const char* before = "[";
        for (const ClientSet::Range& run : clients.runs()) {
            to += before + ("[" + std::to_string(run.first)) + "," + std::to_string(run.last) + "]";
            before = ",";
        }
        to += clients.empty() ? "[]" : "]";
        return *this;
    }
    Object& add(std::string_view name, const std::vector<std::string>& texts) {
        std::string& to = begin(name);
        const char* before = "[";
        for (const std::string& each : texts) {
            to += before;
            Json::add(to, each);
            before = ",";
        }
        to += texts.empty() ? "[]" : "]";
        return *this;
    }
    // An array of what `each` makes of the items.
    template <class Items, class Each>
    Object& add(std::string_view name, const Items& items, Each each) {
        std::string& to = begin(name);
        const char* before = "[\n";
        for (const auto& item : items) {
            to += before + each(item).str();
            before = ",\n";
        }
        to += items.empty() ? "[]" : "]";
        return *this;
    }
    std::string str() const { return text + "}"; }

  private:
    std::string text = "{";

    std::string& begin(std::string_view name) {
        if (text.size() > 1) text += ",\n";
        Json::add(text, name);
        return text += ":";
    }
};

Object ofRow(const Row& row) { return Object().add("clients", row.clients).add("text", row.text); }

Object ofMissing(const Row& row) {
    return Object().add("ranks", row.clients).add("text", row.text);
}

Object ofPart(const Transcript::Part& part) {
    return Object().add("clients", part.clients).add("lines", part.lines);
}

Object ofCall(const Report::Call& call) {
    return Object()
        .add("depth", static_cast<int>(call.depth))
        .add("call", call.text)
        .add("clients", call.clients);
}

Object ofCrash(const Report::Crash& crash) {
    return Object()
        .add("clients", crash.clients)
        .add("signal", crash.signal)
        .add("meaning", crash.meaning)
        .add("address", crash.address)
        .add("place", crash.place)
        .add("calls", crash.calls)
        .add("stacks", crash.stacks, ofPart);
}

Object ofEnded(const Report::Ended& ended) {
    return Object()
        .add("clients", ended.clients)
        .add("status", ended.status)
        .add("signal", ended.signal);
}

std::string nameOf(Report::Outcome outcome) {
    switch (outcome) {
    case Report::ENDED:
        return "ended";
    case Report::LOOKED:
        return "looked";
    case Report::FAILED:
        return "failed";
    default:
        return "timed out";
    }
}

} // namespace

std::string JsonForm::of(const Report& report) {
    return Object()
               .add("version", version)
               .add("outcome", nameOf(report.outcome))
               .add("status", report.exitStatus())
               .add("headline", report.headline)
               .add("culprits", report.culprits, ofRow)
               .add("missing", report.missing, ofMissing)
               .add("command", report.command)
               .add("tasks", report.tasks)
               .add("started", report.started)
               .add("looked", report.looked)
               .add("written", report.written)
               .add("vex", report.vex)
               .add("debugger", report.debugger)
               .add("launchedBy", report.launchedBy)
               .add("mpi", report.mpi, ofRow)
               .add("system", report.system)
               .add("crashes", report.crashes, ofCrash)
               .add("ended", report.ended, ofEnded)
               .add("places", report.places, ofRow)
               .add("tree", report.tree, ofCall)
               .add("helpers", report.helpers, ofRow)
               .add("waits", report.waits, ofRow)
               .add("who", report.who, ofRow)
               .add("output", report.output, ofPart)
               .add("launcher", report.launcher)
               .add("stacks", report.stacks, ofPart)
               .add("notes", report.notes, ofRow)
               .str() +
           "\n";
}
