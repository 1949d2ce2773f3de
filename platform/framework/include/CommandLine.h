// CommandLine: the process options, written as "-name value" or a bare "-name".
// Built once on the main thread; read-only afterwards. Holds copies of argv.
#pragma once

#include <map>
#include <string>

class CommandLine {
public:
    CommandLine(int argc, char** argv);

    // Whether "-name" was given (with or without a value).
    bool hasArg(const char* name) const;

    // The value following "-name", or null when the option is absent or has no
    // value (it is the last word, or the next word is another option). A later
    // repetition of an option replaces an earlier one. Words that are neither
    // options nor option values are ignored.
    const char* getArg(const char* name) const;

private:
    std::map<std::string, std::string> m_values;
    std::map<std::string, bool> m_hasValue;
};
