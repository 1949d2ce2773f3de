// The accept loop's defences: a connection that cannot be built is dropped
// without ending the process; at the cap the connection idle longest makes
// room; a handler without a library is refused.
#include "ConnectionManager.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <new>
#include <stdexcept>

#include "GUIDataServer.h"
#include "HandlerFactory.h"
#include "RawWire.h"
#include "TestRoot.h"

namespace {

struct ThrowingFactory : HandlerFactory {
    bool badAlloc;
    explicit ThrowingFactory(bool b) : badAlloc(b) {}
    DataHandler* createDataHandler(ConnectionHandler&) override
    {
        if (badAlloc) {
            throw std::bad_alloc();
        }
        throw std::runtime_error("broken library");
    }
};

TEST(ConnectionManager, FailuresBuildingAConnectionCloseOnlyIt)
{
    TestRoot root(true);
    for (bool badAlloc : {true, false}) {
        GUIDataServer server;
        ConnectionManager manager(server);
        ThrowingFactory factory(badAlloc);
        manager.addDataHandlerFactory(&factory);
        int port = 0;
        int s = listenOnLoopback(port);
        int client = connectTo(port);
        testing::internal::CaptureStdout();
        EXPECT_NO_THROW(EXPECT_TRUE(manager.acceptOne(s, false))) << badAlloc;
        testing::internal::GetCapturedStdout();
        EXPECT_TRUE(closedByServer(client, 2000)) << badAlloc;
        EXPECT_EQ(0, manager.openConnections());
        close(client);
        close(s);
    }
}

TEST(ConnectionManager, AtTheCapTheLongestIdleConnectionMakesRoom)
{
    TestRoot root(true);
    GUIDataServer server;
    ConnectionManager manager(server);
    manager.setMaxConnections(3);
    int pairs[4][2];
    int keys[4];  // the table is keyed by handler address; any distinct addresses do
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, pairs[i]));
        manager.connectionStarted(&keys[i], pairs[i][0]);
        usleep(2000);
    }
    // 0 is busy with a request, 1 is closing its descriptor itself.
    manager.connectionBusy(&keys[0], true);
    manager.connectionClosing(&keys[1]);
    EXPECT_EQ(3, manager.openConnections());
    // Room for one more: 2 (idle longest among the rest) is shut down.
    EXPECT_TRUE(manager.makeRoomForConnection());
    EXPECT_TRUE(closedByServer(pairs[2][1], 2000));
    EXPECT_EQ(2, manager.openConnections());
    // A request just finished on 3 makes it the most recently idle; with
    // the cap at 1, 3 goes and 0, still busy, stays: no room is left.
    manager.setMaxConnections(1);
    manager.connectionBusy(&keys[3], false);
    EXPECT_FALSE(manager.makeRoomForConnection());
    EXPECT_TRUE(closedByServer(pairs[3][1], 2000));
    pollfd p = {pairs[0][1], POLLIN, 0};
    EXPECT_EQ(0, poll(&p, 1, 0));  // the busy one is untouched
    p.fd = pairs[1][1];
    EXPECT_EQ(0, poll(&p, 1, 0));  // the closing one too
    for (int i = 0; i < 4; ++i) {
        manager.connectionEnded(&keys[i]);
        close(pairs[i][0]);
        close(pairs[i][1]);
    }
    EXPECT_EQ(0, manager.openConnections());
}

TEST(ConnectionManager, HandlersWithoutLibraryOrEntryAreRefused)
{
    TestRoot root(true);
    GUIDataServer server;
    ConnectionManager manager(server);
    // libFile, entryPoint: dlopen("") would be the program itself
    const std::pair<std::string, std::string> cases[] = {
        {"", "abort"}, {"", ""}, {TestRoot::libDir() + "/libtesthandler.so", ""}};
    for (auto [lib, entry] : cases) {
        testing::internal::CaptureStdout();
        EXPECT_FALSE(manager.loadHandler(lib, entry)) << lib << "/" << entry;
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_NE(std::string::npos, out.find(lib.empty() ? "has no libFile" : "has no entryPoint")) << out;
    }
}

}  // namespace
