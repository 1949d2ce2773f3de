// Shared by the two conversion fuzz targets: one agent on a connection over
// a socket pair, fed tool output as prepared text (as queryBackend reads it)
// and as a stream, with the reply read back from the other end.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DataHandler.h"
#include "StubAgent.h"
#include "fuzz_connection.h"

namespace xmlizefuzz {

using Agent = StubAgent;

inline ConnectionHandler* connection = nullptr;
inline Agent* agent = nullptr;
inline int peer = -1;

// A platform root in the working folder, a server and one connection.
inline void setUp(const char* name)
{
    fuzzconn::setUp(name);
    fuzzconn::Connection c = fuzzconn::connect(false);
    connection = c.handler;
    peer = c.client;
    agent = new Agent(*connection->getDataHandlers()[0]);
}

// The reply data written since the last call, checked packet by packet.
inline std::string drain()
{
    connection->getSocket().flush();
    return fuzzconn::drain(peer);
}

// A stream over `text`; null for the empty text (fmemopen needs a byte).
inline FILE* streamOf(const std::string& text)
{
    return text.empty() ? nullptr : fmemopen(const_cast<char*>(text.data()), text.size(), "r");
}

// One fuzz input: the raw bytes and the text up to the first NUL byte (what
// prepared text can hold). Sets the connection up on first use; false for
// inputs above 64 KiB, which add nothing but time.
struct Input {
    std::string raw;
    std::string text;
};

inline bool begin(const char* name, const uint8_t* data, size_t size, Input& input)
{
    if (connection == nullptr) {
        setUp(name);
    }
    if (size > 65536) {
        return false;
    }
    input.raw.assign(reinterpret_cast<const char*>(data), size);
    input.text = input.raw.substr(0, strnlen(input.raw.c_str(), input.raw.size()));
    return true;
}

}  // namespace xmlizefuzz
