#include "ConfigFile.h"

#include <cctype>
#include <vector>

#include "GUIDataServer.h"

ConfigFile::ConfigFile() : m_stream(nullptr), m_pushback(-1), m_lineNumber(0) {}

ConfigFile::~ConfigFile()
{
    if (m_stream != nullptr) {
        fclose(m_stream);
    }
}

int ConfigFile::open(const char* path)
{
    printf(" Openning config file: %s\n", path != nullptr ? path : "(null)");
    if (path == nullptr) {
        return 1;
    }
    if (m_stream != nullptr) {
        fclose(m_stream);
    }
    m_stream = fopen(path, "r");
    m_lineNumber = 0;
    m_pushback = -1;
    return m_stream != nullptr ? 0 : 1;
}

std::string ConfigFile::nextToken()
{
    if (m_stream == nullptr) {
        return "";
    }
    int c = m_pushback;
    m_pushback = -1;
    if (c == -1) {
        c = fgetc(m_stream);  // a read error reads as the end of the file
    }
    while (c != EOF && isblank(c)) {
        c = fgetc(m_stream);
    }
    std::string token;
    for (;;) {
        if (c == EOF) {
            return token;
        }
        if (c == '[' || c == ']' || c == '=' || c == '\n') {
            if (token.empty()) {
                if (c == '\n') {
                    ++m_lineNumber;
                }
                return std::string(1, static_cast<char>(c));
            }
            m_pushback = c;  // the line end is counted when it is read as a token
            return token;
        }
        token += static_cast<char>(c);
        c = fgetc(m_stream);
    }
}

int ConfigFile::parse(GUIDataServer& server)
{
    try {
        for (;;) {
            std::string token = nextToken();
            if (token.empty()) {
                return 0;
            }
            std::vector<std::string> tokens;
            while (token != "\n" && static_cast<int>(tokens.size()) < kMaxTokens) {
                tokens.push_back(token);
                token = nextToken();
            }
            if (tokens.empty()) {
                continue;  // an empty line
            }
            if (tokens[0] == "[") {
                if (tokens.size() != 3) {
                    fprintf(stderr, "Bad section header: token count=%i, line number %i",
                            static_cast<int>(tokens.size()), m_lineNumber);
                    throw "BadSectionHeader";
                }
                server.setConfigContext(tokens[1]);
            } else if (tokens.size() >= 3 && tokens[1] == "=") {
                server.setConfigProperty(tokens[0], tokens[2]);
            }
            // Anything else (an empty line, a lone word, "key=" without a
            // value, "#" comments) is ignored.
        }
    } catch (...) {
        return 1;
    }
}
