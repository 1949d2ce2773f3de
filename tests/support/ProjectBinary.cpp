#include "ProjectBinary.h"

#include <cstdlib>
#include <sstream>

#include "TestRoot.h"

std::vector<std::string> ProjectBinary::emulator()
{
    std::vector<std::string> words;
    const char* text = getenv("GDS_EMULATOR");
    std::istringstream in(text != nullptr ? text : "");
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

std::vector<std::string> ProjectBinary::argv(const std::string& name)
{
    std::vector<std::string> words = emulator();
    words.push_back(TestRoot::binDir() + "/" + name);
    return words;
}

std::string ProjectBinary::command(const std::string& name)
{
    std::string line;
    for (const std::string& word : argv(name)) {
        line += (line.empty() ? "'" : " '") + word + "'";
    }
    return line;
}

int ProjectBinary::slowdown()
{
    const char* text = getenv("GDS_TEST_SLOWDOWN");
    int factor = text != nullptr ? atoi(text) : 1;
    return factor < 1 ? 1 : factor;
}
