// Fuzzes the checks of user text: validateFileName (input "name", or
// "name\0extension"; ".bin" when there is no NUL) against an independent
// statement of its rules, ipv4_conv against inet_pton on canonical dotted
// quads, ipv6_conv, and system_check_user_input, whose accepted texts must
// be inert in a shell word and which must accept what the agents' escaping
// makes of text built from letters, digits and escapable characters.
#include <arpa/inet.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DataAgent.h"
#include "safeexec.h"

namespace {

const char kEscapable[] = ";|\"$!@#%^*-_+()`>?<[]&}{";

bool fileNameCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.' || c == '/';
}

// The file-name rules, stated once more without looking at the code.
int expectedFileNameResult(const std::string& name, const std::string& extension)
{
    if (name.size() > 254) {
        return -1;
    }
    if (extension.size() > name.size() || name.compare(name.size() - extension.size(), extension.size(), extension)) {
        return -2;
    }
    for (char c : name) {
        if (!fileNameCharacter(c)) {
            return -1;
        }
    }
    size_t slash = name.rfind('/');
    std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    if (base.size() <= extension.size() || base[0] == '-' ||
        base.substr(0, base.size() - extension.size()).find('.') != std::string::npos) {
        return -1;
    }
    return 0;
}

// Text a shell takes literally inside one word: plain characters, and a
// backslash only before an escapable character.
bool inertInShellWord(const std::string& text, bool password)
{
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\\') {
            if (i + 1 == text.size() || text[i + 1] == '\0' || !strchr(kEscapable, text[i + 1])) {
                return false;
            }
            ++i;
        } else if (!(isalnum(c) && c < 0x80) && !strchr("-_.,/:=@%+", c) && !(password && c == '~' && i > 0)) {
            return false;
        }
    }
    return true;
}

bool canonicalDottedQuad(const std::string& text)
{
    int parts = 0;
    size_t at = 0;
    while (at <= text.size()) {
        size_t dot = text.find('.', at);
        std::string part = text.substr(at, dot == std::string::npos ? std::string::npos : dot - at);
        if (part.empty() || part.size() > 3 || (part.size() > 1 && part[0] == '0') ||
            part.find_first_not_of("0123456789") != std::string::npos || atoi(part.c_str()) > 255) {
            return false;
        }
        ++parts;
        if (dot == std::string::npos) {
            break;
        }
        at = dot + 1;
    }
    return parts == 4;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = freopen("/dev/null", "w", stdout) != nullptr;  // validateFileName prints its verdict
    (void)quiet;
    if (size > 4096) {
        return 0;
    }
    std::string raw(reinterpret_cast<const char*>(data), size);
    size_t nul = raw.find('\0');
    std::string name = raw.substr(0, nul);
    std::string extension = nul == std::string::npos ? ".bin" : raw.substr(nul + 1);
    extension = extension.substr(0, strnlen(extension.c_str(), extension.size()));

    char* message = reinterpret_cast<char*>(1);
    int result = DataAgent::validateFileName(name.c_str(), extension.c_str(), &message);
    if (result != expectedFileNameResult(name, extension) || (result == 0) != (message == nullptr)) {
        abort();
    }

    std::string address = name;
    int number = DataAgent::ipv4_conv(&address[0]);
    in_addr reference;
    if (canonicalDottedQuad(name) && (inet_pton(AF_INET, name.c_str(), &reference) != 1 ||
                                      static_cast<uint32_t>(number) != ntohl(reference.s_addr))) {
        abort();
    }
    in6_addr address6;
    DataAgent::ipv6_conv(name.c_str(), &address6);

    for (bool password : {false, true}) {
        const char* rule = password ? "password_rule" : "general_rule";
        if (system_check_user_input(name.c_str(), rule) && !inertInShellWord(name, password)) {
            abort();
        }
    }
    // What the agents' escaping makes of letters, digits and escapable
    // characters passes both rules while it fits.
    std::string escapable;
    for (char c : name) {
        if ((isalnum(static_cast<unsigned char>(c)) && static_cast<unsigned char>(c) < 0x80) ||
            (c != '\0' && strchr(kEscapable, c))) {
            escapable += c;
        }
    }
    DataAgent::escapeShellMetaChar(escapable);
    if (escapable.size() <= 255 && (!system_check_user_input(escapable.c_str(), "general_rule") ||
                                    !system_check_user_input(escapable.c_str(), "password_rule"))) {
        abort();
    }
    return 0;
}
