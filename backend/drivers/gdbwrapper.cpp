#include "backend/drivers/gdbwrapper.h"

#include "backend/os/text.h"

#include <string_view>

namespace {

std::string inDoubleQuotes(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (std::string_view("\\\"$`").find(c) != std::string_view::npos) result += '\\';
        result += c;
    }
    return result + "\"";
}

} // namespace

// Output goes to the debugger's terminal unless the command line of the program says where else,
// and the input of task 0 comes from its file.
std::string GdbWrapper::of(const Driver::Launch& launch) {
    const std::string& input = launch.inputTerminal;
    if (!launch.starter.empty()) {
        std::string words = Text::quoted(launch.starter);
        for (const auto& word :
             {input, launch.terminal, launch.inputFile, launch.preload, launch.program.at(0)})
            words += " " + Text::quoted(word);
        return words;
    }
    std::string script;
    if (!launch.inputFile.empty())
        script = R"([ "$VEX_TASK" = 0 ] && [ /proc/$$/fd/0 -ef )" + input + " ] && exec <" +
                 inDoubleQuotes(launch.inputFile) + "; ";
    script += "[ /proc/$$/fd/1 -ef " + input + " ] && exec >" + launch.terminal +
              "; [ /proc/$$/fd/2 -ef " + input + " ] && exec 2>" + launch.terminal + "; ";
    // The user's own libraries stay, behind it.
    if (!launch.preload.empty())
        script += "export LD_PRELOAD=" + launch.preload + "${LD_PRELOAD:+:$LD_PRELOAD}; ";
    script += R"(exec "$0" "$@")";
    return "/bin/sh -c " + Text::quoted(script);
}
