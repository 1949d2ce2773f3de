// Fuzzes the launch-document and token requests through request processing:
// any argument text yields either no document or one whose markup is only
// its own (request values never add or break an element). The first input byte picks the
// request name and the privilege mask; the rest is the argument text.
#include <arpa/inet.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "AIMClient.h"
#include "fuzz_connection.h"

namespace {

fuzzconn::Connection connection;

// A platform root in the working folder with the console switched on, one
// recording, and a session manager that fails (so its record stays small);
// a connection over a socket pair.
void setUp()
{
    fuzzconn::setUp("jnlp_fuzz");
    std::string root = getenv("GDS_ROOT");
    for (const char* sub : {"/tmp", "/tmp/bootcapture", "/var", "/var/session", "/var/session/faults"}) {
        mkdir((root + sub).c_str(), 0755);
    }
    std::ofstream(root + "/tmp/bootcapture/boot.dvc") << "b";
    std::ofstream(root + "/var/session/faults/get_temp_credentials") << "5";
    fuzzconn::manager->getServer().getAIMClient().setProperty("vkvm_bool_enabled", true, true);
    connection = fuzzconn::connect(false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (connection.handler == nullptr) {
        setUp();
    }
    if (size == 0 || size > 8000) {
        return 0;
    }
    static const char* const kNames[] = {"viewer.jnlp", "kvm.jnlp", "bootCapture.jnlp", "crashCapture.jnlp",
                                         "get=genComputeTokens"};
    static const uint32_t kMasks[] = {0x7f, 0x20, 0x08, 0x00};
    std::string text = kNames[data[0] % 5] + std::string(reinterpret_cast<const char*>(data + 1), size - 1);
    text.resize(strnlen(text.c_str(), text.size()));
    const uint32_t head[2] = {htonl(static_cast<uint32_t>(text.size()) + 4), htonl(kMasks[(data[0] >> 4) % 4])};
    std::string frame = std::string(reinterpret_cast<const char*>(head), 8) + "BEEF" + text;
    if (write(connection.client, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size()) ||
        connection.handler->nextRequest() == nullptr) {
        abort();
    }
    connection.handler->processRequest();
    connection.handler->getSocket().flush();
    std::string reply = fuzzconn::drain(connection.client);
    if (reply.compare(0, 5, "<?xml") == 0 && reply.find("<jnlp ", reply.find("<jnlp ") + 1) != std::string::npos) {
        abort();  // a second document element came from the request
    }
    return 0;
}
