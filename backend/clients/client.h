#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

/// One debugger as the session sees it, wherever it runs. The handlers run from the event loop or
/// from ended, and must not destroy it.
class Client {
  public:
    struct Handler {
        std::function<void(std::string_view)> output;
        std::function<void()> prompt;
        /// Whether to go on reading; when not, resume begins again.
        std::function<bool()> mayRead;
    };

    Client() = default;
    virtual ~Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Types a line, given without its newline.
    virtual void type(const std::string& line) = 0;
    /// Interrupts what the debugger does at the moment.
    virtual void interrupt() = 0;
    /// Reads on after mayRead has said no.
    virtual void resume() = 0;
    /// Makes a debugger that has attached to its program let it go, and end.
    virtual void release() = 0;
    /// Looks whether the debugger has ended. When it has, hands over what it still said and says
    /// true, once.
    virtual bool ended() = 0;
    /// Whether it holds the process that it was to attach to. Known when it prompts first.
    virtual bool holds() const = 0;
    /// Which process its task is, in one line (Identity); one of another machine's as it was told
    /// last.
    virtual std::string identity() const = 0;
    /// Asks for that whoever knows; false when there is nobody to ask.
    virtual bool askIdentity() { return false; }
    /// The debugger's process on this machine; -1: it is none of this machine's, or none at all.
    virtual pid_t pid() const = 0;
    virtual bool running() const = 0;
};
