// Fuzzes the checks of user text: validateFileName (input "name", or
// "name\0extension"; ".bin" when there is no NUL), the address readers, and
// system_check_user_input, whose accepted texts must be inert in a shell
// word (plain characters; a backslash only before an escapable one).
#include <arpa/inet.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DataAgent.h"
#include "safeexec.h"

static bool inertInShellWord(const std::string& text, bool password)
{
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\\') {
            if (++i == text.size() || text[i] == '\0' || !strchr(";|\"$!@#%^*-_+()`>?<[]&}{", text[i])) {
                return false;
            }
        } else if (!(isalnum(c) && c < 0x80) && !strchr("-_.,/:=@%+", c) && !(password && c == '~' && i > 0)) {
            return false;
        }
    }
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = freopen("/dev/null", "w", stdout) != nullptr;  // validateFileName prints its verdict
    (void)quiet;
    std::string raw(reinterpret_cast<const char*>(data), size);
    size_t nul = raw.find('\0');
    std::string name = raw.substr(0, nul);
    std::string extension = nul == std::string::npos ? ".bin" : raw.substr(nul + 1);
    char* message = nullptr;
    DataAgent::validateFileName(name.c_str(), extension.c_str(), &message);
    std::string address = name;  // read in place
    DataAgent::ipv4_conv(&address[0]);
    in6_addr address6;
    DataAgent::ipv6_conv(name.c_str(), &address6);
    for (bool password : {false, true}) {
        if (system_check_user_input(name.c_str(), password ? "password_rule" : "general_rule") &&
            !inertInShellWord(name, password)) {
            abort();
        }
    }
    DataAgent::escapeShellMetaChar(name);
    return 0;
}
