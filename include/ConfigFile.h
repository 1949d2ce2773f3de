// ConfigFile: reader of the configuration file that declares handler
// libraries ("addHandler=", and "[name]" sections with "libFile=" and
// "entryPoint="). Used once on the main thread during start-up; owns its
// FILE* and closes it in the destructor.
#pragma once

#include <cstdio>
#include <string>

class GUIDataServer;

class ConfigFile {
public:
    ConfigFile();
    virtual ~ConfigFile();
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    // 0 on success, 1 when the file cannot be opened.
    int open(const char* path);
    // Applies every statement to `server`: 0 at the end of the file, 1 when a
    // bad section header stopped the parse (what came before stays applied).
    int parse(GUIDataServer& server);
    // The next token; "" at the end of the file.
    std::string nextToken();

    int getLineNumber() const { return m_lineNumber; }

private:
    // Longest statement kept. On a longer line the token after the 50th is
    // read and dropped, and the rest of the line is read as a new statement.
    static const int kMaxTokens = 50;

    FILE* m_stream;
    int m_pushback;
    int m_lineNumber;
};
