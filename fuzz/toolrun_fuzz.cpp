// Fuzzes the command-line splitter and the output filters: any line is
// either refused or split into programs, never an empty one or one that
// starts with an assignment; any tool output filters
// without reading past it. Nothing is run.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ToolFilter.h"
#include "ToolRun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 2048) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data), size);
    ToolRun::Command command;
    if (ToolRun::parse(text, command)) {
        if (command.programs.empty()) {
            abort();
        }
        for (const auto& program : command.programs) {
            if (program.empty() || program[0].find('=') != std::string::npos) {
                abort();
            }
        }
        int status = 0;
        command.filter.apply(text, status);
    }
    ToolFilter::field(ToolFilter::grep(text, ":"), ": ", 2);
    ToolFilter::field(text, "", 3);
    return 0;
}
