// ToolFilter: the line filters that tool command lines end in ("grep KEY",
// "grep -v KEY", "awk -F': ' '{print $2}'", "awk '{print $2}'"), done in the
// server on a tool's collected output instead of in extra processes, with
// the same text as the programs print. Plain values: any thread, no shared
// state.
#pragma once

#include <string>
#include <vector>

class ToolFilter {
public:
    // One filter of a chain.
    struct Step {
        enum Kind { kGrep, kGrepInvert, kField } kind;
        std::string text;  // kGrep/kGrepInvert: the substring; kField: the separator ("" = blanks)
        int field = 0;     // kField: the field number, 0 for the whole line
    };

    void add(const Step& step) { m_steps.push_back(step); }
    bool empty() const { return m_steps.empty(); }
    // Runs the chain over `text`; `status` gets the exit status of the last
    // filter as the program would give it (grep: 0 when it printed a line,
    // else 1; awk: 0). An empty chain hands the text on with status 0.
    std::string apply(const std::string& text, int& status) const;

    // grep PATTERN (a pattern without regular-expression characters): the
    // lines holding `substring` anywhere, each ending in a line break.
    static std::string grep(const std::string& text, const std::string& substring, bool invert = false);
    // awk -F SEP '{print $N}': field `n` of every line ("" when the line has
    // fewer fields), each printed with a line break. The separator is taken
    // as a plain text; "" (and " ") mean awk's default, runs of blanks and
    // tabs with leading and trailing ones ignored. Field 0 is the line.
    static std::string field(const std::string& text, const std::string& separator, int n);
    // The first line of `text` without its line break ("" for empty text).
    static std::string firstLine(const std::string& text);

private:
    static std::vector<std::string> lines(const std::string& text);
    std::vector<Step> m_steps;
};
