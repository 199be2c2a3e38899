#pragma once

#include "common/clientset.h"
#include "report/conversation.h"
#include "report/transcript.h"

#include <chrono>
#include <string>
#include <vector>

/// Asks debuggers, by the commands of a console, and waits for their answers; not for ever: those
/// that do not answer are left out from then on, and the others are asked again without them. One
/// thread.
class Questions {
  public:
    struct Answer {
        bool complete = false; // of all that were asked and are not left out
        int error = 0;         // the number of the message by which the question was refused
        std::vector<Row> rows;
    };
    class Owner {
      public:
        virtual ~Owner() = default;
        /// What belongs to no answer that is waited for.
        virtual void onText(const Data& data) = 0;
        virtual void onForked(int client) = 0;
        /// May call hurry.
        virtual void onSignal(int number) = 0;
        /// Debuggers have not answered the question within this time.
        virtual void onSilent(const ClientSet& clients, const std::string& question,
                              std::chrono::seconds time) = 0;
        /// They work for other consoles, and are left out.
        virtual void onForeign(const ClientSet& clients) = 0;
    };

    /// `shared`: others use the session, too, which stays as it is. Both must outlive this.
    Questions(Conversation& conversation, bool isShared, Owner& whose);

    /// What a record says, without the session's own words about who is silent.
    static std::vector<Row> rowsOf(const Data& data);

    /// All clients of the session: those of group all.
    void setAll(const ClientSet& clients) { all = clients; }
    /// From now on answers have to come at once.
    void hurry() { hurried = true; }
    /// Clients that cannot answer.
    void leaveOut(const ClientSet& clients) { out.insert(clients); }
    const ClientSet& leftOut() const { return out; }

    /// The answers of those that are still there and not left out.
    Answer ask(const ClientSet& clients, const std::string& question);
    /// The same of what the session answers itself, `vex who` and `vex waits`, about all clients.
    Answer askSession(const std::string& question);
    /// Has those of the clients that are still there carry out a command, without waiting; false:
    /// none does.
    bool command(const ClientSet& clients, const std::string& text);

  private:
    using Clock = Conversation::Clock;

    Conversation& session;
    const bool shared;
    Owner& owner;
    // Of this report alone: others have groups of their own.
    const std::string group;
    ClientSet all, out;
    bool hurried = false;

    bool gather(const ClientSet& clients);
    std::string groupOf(const ClientSet& clients);
    std::chrono::seconds patience(const ClientSet& asked) const;
    Answer askOnce(const ClientSet& clients, const std::string& question, bool ofSession);
    Answer await(const ClientSet& clients, const std::string& question, bool ofSession);
    void giveUp(const ClientSet& silent);
    void leaveBusy(const ClientSet& asked, const std::string& question);
    ClientSet idleOf(const ClientSet& clients);
};
