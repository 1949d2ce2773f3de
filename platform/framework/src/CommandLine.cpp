#include "CommandLine.h"

namespace {
bool isOption(const char* word)
{
    // "-" alone and negative numbers ("-5") are values, not options.
    return word != nullptr && word[0] == '-' && word[1] != '\0' && !(word[1] >= '0' && word[1] <= '9');
}
}  // namespace

CommandLine::CommandLine(int argc, char** argv)
{
    for (int i = 1; i < argc && argv != nullptr; ++i) {
        const char* word = argv[i];
        if (!isOption(word)) {
            continue;
        }
        std::string name(word + 1);
        if (i + 1 < argc && argv[i + 1] != nullptr && !isOption(argv[i + 1])) {
            m_values[name] = argv[i + 1];
            m_hasValue[name] = true;
            ++i;
        } else {
            m_values[name].clear();
            m_hasValue[name] = false;
        }
    }
}

bool CommandLine::hasArg(const char* name) const
{
    return name != nullptr && m_hasValue.count(name) != 0;
}

const char* CommandLine::getArg(const char* name) const
{
    if (name == nullptr) {
        return nullptr;
    }
    auto it = m_hasValue.find(name);
    if (it == m_hasValue.end() || !it->second) {
        return nullptr;
    }
    return m_values.find(name)->second.c_str();
}
