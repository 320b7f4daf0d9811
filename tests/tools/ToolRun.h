// What one of the tools says, and how it ends.

#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace Kes::testing {

struct ToolRun {
    bool says(const std::string& words) const { return output.find(words) != std::string::npos; }

    int status = -1;  // -1 when a signal ended it
    std::string output;
};

/// Runs the command in a shell, and waits for it.
inline ToolRun runTool(const std::string& command) {
    ToolRun run;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t size; (size = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        run.output.append(buffer, size);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

}  // namespace Kes::testing
