// ConnectionThreads: runs each connection's thread on a stack this class maps
// itself, and takes the stack back as soon as the thread has ended, so the
// memory of a burst of connections leaves the process when they close (the C
// library would keep up to 40 MiB of ended threads' stacks, their touched
// pages resident). Any thread may start one; all state is under one lock.
#pragma once

#include <cstddef>

class AThread;

class ConnectionThreads {
public:
    // The usable stack of a connection thread. Deepest use measured on
    // x86-64 (the "deepest stack use" log line): 100 KiB for a JSON header
    // nested to cJSON's limit of 1000 levels (the deepest path: recursive
    // parsing of client input); at most 24 KiB over the end-to-end suite
    // otherwise (inventory, adapters, BIOS tokens, tool runs). 256 KiB keeps
    // a margin of 2.5 over the deepest, for the 32-bit target's different
    // frames and later code; 1000 connections reserve 250 MiB of the 3 GiB
    // address space, and only touched pages cost memory. Sanitizer builds
    // take four times as much.
    static const size_t kStackSize = 256 * 1024;
    // Stacks of ended threads kept for the next connections; the rest are
    // unmapped at once.
    static const int kSpareStacks = 8;

    // Starts `thread`->run() on a thread of its own; false when no thread
    // could be made (run() is then never called).
    static bool start(AThread& thread);

    // Joins the thread that ended last, if no later one has yet, and takes
    // its stack back. The accept loop calls it when idle.
    static void joinEnded();
    // Threads started and not joined yet (running, or ended and waiting).
    static unsigned long unjoined();

    // On a thread started here: returns the pages of its stack below the
    // caller's frame (keeping a margin for the calls the caller makes). The
    // pages come back zeroed at the next touch. Elsewhere: nothing.
    static void releaseUnusedStack();

    // The deepest stack use seen so far, in bytes (resident pages of the
    // stacks of ended threads).
    static size_t deepestUse();
};
