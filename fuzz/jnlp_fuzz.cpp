// Fuzzes the launch-document and token requests through request processing:
// any argument text yields either no document or a complete one whose
// elements are balanced (request values never add or break markup), and
// never reads or writes outside a buffer. The first input byte picks the
// request name and the privilege mask; the rest is the argument text.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "AIMClient.h"
#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "GUIDataServer.h"

namespace {

ConnectionHandler* connection = nullptr;
int peer = -1;

std::string be32(uint32_t v)
{
    return std::string{static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                       static_cast<char>(v)};
}

void writeFile(const std::string& path, const char* text)
{
    FILE* f = fopen(path.c_str(), "w");
    if (f != nullptr) {
        fputs(text, f);
        fclose(f);
    }
}

size_t count(const std::string& text, const char* what)
{
    size_t n = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += strlen(what)) {
        ++n;
    }
    return n;
}

// A platform root in the working folder with the console switched on, one
// recording, and a session manager that fails (so its record stays small).
void setUp()
{
    char dir[] = "jnlp_fuzz-root-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        abort();
    }
    char* cwd = getcwd(nullptr, 0);
    std::string root = std::string(cwd) + "/" + dir;
    free(cwd);
    setenv("GDS_ROOT", root.c_str(), 1);
    for (const char* sub : {"/tmp", "/tmp/bootcapture", "/var", "/var/session", "/var/session/faults"}) {
        mkdir((root + sub).c_str(), 0755);
    }
    writeFile(root + "/tmp/bootcapture/boot.dvc", "b");
    writeFile(root + "/var/session/faults/get_temp_credentials", "5");

    GUIDataServer* server = new GUIDataServer();
    server->getAIMClient().setProperty("vkvm_bool_enabled", true, true);
    ConnectionManager* manager = new ConnectionManager(*server);
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        abort();
    }
    int size = 4 << 20;
    setsockopt(fds[1], SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    fcntl(fds[1], F_SETFL, O_NONBLOCK);
    peer = fds[1];
    sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    GUIDataSocket socket(fds[0], addr);
    connection = new ConnectionHandler(*manager, socket, false);
}

// The reply data of everything sent so far.
std::string drain()
{
    std::string bytes;
    char buf[65536];
    for (ssize_t n; (n = read(peer, buf, sizeof buf)) > 0;) {
        bytes.append(buf, static_cast<size_t>(n));
    }
    std::string text;
    for (size_t at = 0; at + 8 <= bytes.size();) {
        size_t len = ((static_cast<unsigned char>(bytes[at]) << 8) | static_cast<unsigned char>(bytes[at + 1])) - 2;
        text += bytes.substr(at + 8, len);
        at += 8 + len;
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (connection == nullptr) {
        setUp();
    }
    if (size == 0 || size > 8000) {
        return 0;
    }
    static const char* const kNames[] = {"viewer.jnlp", "kvm.jnlp", "bootCapture.jnlp", "crashCapture.jnlp",
                                         "get=genComputeTokens"};
    static const uint32_t kMasks[] = {0x7f, 0x20, 0x08, 0x00};
    const char* name = kNames[data[0] % 5];
    uint32_t mask = kMasks[(data[0] >> 4) % 4];
    std::string text = std::string(name) + std::string(reinterpret_cast<const char*>(data + 1), size - 1);
    text = text.substr(0, strnlen(text.c_str(), text.size()));
    std::string frame = be32(static_cast<uint32_t>(text.size()) + 4) + be32(mask) + "BEEF" + text;
    if (write(peer, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size()) ||
        connection->nextRequest() == nullptr) {
        abort();
    }
    connection->processRequest();
    connection->getSocket().flush();
    std::string reply = drain();
    if (reply.compare(0, 5, "<?xml") == 0) {
        // A document is whole, and its markup is only its own.
        if (reply.size() < 10 || reply.compare(reply.size() - 10, 10, "  </jnlp>\n") != 0 ||
            count(reply, "<argument>") != count(reply, "</argument>") || count(reply, "<jnlp ") != 1 ||
            count(reply, "</jnlp>") != 1) {
            abort();
        }
    }
    return 0;
}
