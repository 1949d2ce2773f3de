// Scenarios: runs the simulator's scenario tool (simctl, next to gdsweb) for
// the explorer: list, apply, clear. The tool runs with an argument vector,
// never through a shell, one run at a time, with a time limit. Any thread.
#pragma once

#include <mutex>
#include <string>
#include <vector>

class Scenarios {
public:
    explicit Scenarios(const std::string& tool) : m_tool(tool) {}

    struct Result {
        bool missing = false;  // the tool is not there (or not executable)
        int exitStatus = -1;   // -1: did not end within the limit, or could not start
        std::string out, err;
    };
    // Runs the tool with `args` (the tool's name is added in front).
    Result run(const std::vector<std::string>& args);
    const std::string& tool() const { return m_tool; }

    static constexpr int kTimeLimitSeconds = 30;
    static constexpr size_t kOutputLimit = 1u << 20;

private:
    std::string m_tool;
    std::mutex m_mutex;
};
