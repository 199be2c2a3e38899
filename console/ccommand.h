#pragma once

#include "console/action.h"

#include <string>

/// The command language: takes a typed line and gives back the action that it asks for.
///
/// Sends nothing, prints nothing, changes no setting. A line that is wrong is thrown as a Token,
/// which carries the message and points to the place in the line, or into a copy of one word that
/// lives until the next line is parsed. For the input thread only.
class CommandLine {
  public:
    /// What a line means depends on this as well. Each command asks only for what it needs to know,
    /// and asking for the state may wait until the state is settled.
    class Context {
      public:
        virtual ~Context() = default;
        /// Whether the console serves the alternative shell, which lacks some commands.
        virtual bool servesLuma() const = 0;
        virtual bool isNormal() = 0;
        virtual bool isInterrupted() = 0;
    };

    /// The context must outlive the object.
    explicit CommandLine(Context& where) : context(where) {}

    /// The action of one line.
    Action parse(const char* line);

    // The commands, each with the token on the command word.
    Action helpCommand(Token& t);
    Action LumahelpCommand(Token& t);
    Action optionCommand(Token& t);
    Action interruptCommand(Token& t);
    Action leaveCommand(Token& t);
    Action matchCommand(Token& t);
    Action groupCommand(Token& t);
    Action onCommand(Token& t);
    Action sendCommand(Token& t);
    Action quitCommand(Token& t);
    Action exitCommand(Token& t);
    Action historyCommand(Token& t);
    Action sendInstantCmd(Token& t);
    Action sendScriptCmd(Token& t);
    Action sendStatCmd(Token& t);
    /// A line that begins with no console command.
    Action sendClientCmd(Token& t);

  private:
    Context& context;
    GroupCommand subCmd;
    std::string badField; // what the thrown token of a wrong stat option points into

    Action dispatch(int id, Token& t);
    Action forward(Command::Type type, Token& t);
    /// The rest of a line that changes the group of subCmd.
    Action groupSubcommand(Token& t);
    /// Reads the operands into subCmd, up to the line's end.
    void parseGroupExpression(Token& t);
    const Topic* findTopic(const Token& t) const;
};
