// Raw-byte helpers for tests that speak to a server below the client
// library: frame bytes, plain loopback connections, closure checks and
// bounded waits. Free functions; any thread.
#pragma once

#include <functional>
#include <string>

// `v` as four bytes, most significant first.
std::string be32(int v);
// A legacy frame: length, word (privileges), magic, text.
std::string legacyFrame(const std::string& text, int word = 0x7f);
// A connected loopback socket to `port`, or -1.
int connectTo(int port);
// A socket listening on a free loopback port (its number in `port`), or -1.
int listenOnLoopback(int& port);
// True when the other end closed `fd` (end of stream or reset) within
// `waitMs`; 0 only looks.
bool closedByServer(int fd, int waitMs = 0);
// Polls `done` every 100 ms for up to `seconds` times
// ProjectBinary::slowdown(); its last answer.
bool waitFor(const std::function<bool()>& done, int seconds);
