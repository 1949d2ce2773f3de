// Log lines stay lines: control characters from clients are escaped in the
// debug log, the trace log and the component logs; per-item lines of one
// request are bounded; lines written during construction are kept (that
// lines of many connections at once stay whole is the end-to-end
// concurrency test's).
#include "gds_debug_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "ALog.h"
#include "AgentHarness.h"
#include "TestRoot.h"
#include "log_tlog.h"

namespace {

int lines(const std::string& text)
{
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

TEST(LogLines, ControlCharactersAreEscapedInEverySink)
{
    // message, as written (final line end kept)
    const std::pair<const char*, const char*> cases[] = {
        {"a\nb\n", "a\\nb\n"},
        {"tab\there\r\n", "tab\\there\\r\n"},
        {"bell\x07 del\x7f esc\x1b", "bell\\x07 del\\x7f esc\\x1b"},
        {"\n\n", "\\n\n"},
        {"plain \xc3\xa9", "plain \xc3\xa9"},  // bytes above 127 are left alone
    };
    for (const auto& [message, expected] : cases) {
        EXPECT_EQ(expected, ALog::escapeControls(message, true)) << message;
    }
    EXPECT_EQ("x\\n", ALog::escapeControls("x\n", false));

    TestRoot root;
    root.writeFile("/tmp/gdsprint_override", "");
    root.makeDirs("/var/log");
    gds_debug_log(1, "interface %s => %s and ret=0\n", "web\n", "get=a\n(1)[now] GDS_DBG_ERROR: forged");
    log_tlog(2, "file.cpp %d: %s\n", 1, "x\ny");
    std::string file = root.path("/var/log/component.log");
    FILE* f = fopen(file.c_str(), "w");
    {
        ALog log("L", f);
        AComponentLog component("C");
        component.setBaseLog(log);
        component.logInfo("name %s\n", "a\nb");
        component.logInfo("\nlead %s", "\nx\ny");  // the format's own opening line end stays
    }
    fclose(f);
    EXPECT_EQ(1, lines(root.readFile("/var/log/gds.log"))) << root.readFile("/var/log/gds.log");
    EXPECT_NE(std::string::npos, root.readFile("/var/log/gds.log").find("web\\n => get=a\\n(1)"));
    EXPECT_EQ(1, lines(root.readFile("/var/log/tlog"))) << root.readFile("/var/log/tlog");
    EXPECT_EQ("L INFO C: name a\\nb\nL INFO C: \nlead \\nx\\ny\n", root.readFile("/var/log/component.log"));
}

TEST(LogLines, ItemLinesOfOneRequestAreBounded)
{
    ALog::beginItemLines(3);
    int written = 0;
    for (int i = 0; i < 10; ++i) {
        written += ALog::takeItemLine();
    }
    EXPECT_EQ(3, written);
    EXPECT_EQ(7, ALog::endItemLines());
    EXPECT_TRUE(ALog::takeItemLine());  // outside a request nothing is held back

    // Through request processing: 1,000 unknown names (a frame holds 8,092
    // characters); only the first few are reported.
    AgentHarness h;
    testing::internal::CaptureStdout();
    std::string request = "get=";
    for (int i = 0; i < 1000; ++i) {
        request += "n" + std::to_string(i) + "\x01,";
    }
    ALog::beginItemLines(ConnectionHandler::kItemLogLines);
    h.request(request);
    int held = ALog::endItemLines();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_GT(held, 900);
    EXPECT_LT(lines(out), 2 * ConnectionHandler::kItemLogLines + 20);
    EXPECT_EQ(std::string::npos, out.find('\x01'));
}

TEST(LogLines, LinesWrittenDuringConstructionAreKept)
{
    TestRoot root;
    std::string map = root.writeFile("/map.properties", "a,aim_a,float,0\n");
    setenv("MORVANE_MAP_PROP_FILE", map.c_str(), 1);
    std::string file = root.path("/process.log");
    FILE* f = fopen(file.c_str(), "w");
    ALog log("P", f);
    log.setLevel(ALog::kTrace);
    ALog::setProcessLog(&log);
    {
        AgentHarness h;  // builds a connection handler, its socket and agents
    }
    ALog::setProcessLog(nullptr);
    fclose(f);
    unsetenv("MORVANE_MAP_PROP_FILE");
    std::string text = root.readFile("/process.log");
    for (const char* expected : {"Creating a new connection handler object.",
                                 "Initializing agents for new ConnectionHandler.", "Creating a new GUIDataSocket",
                                 " Attempting to open property map file: ", "Unknown property type (float) read from",
                                 " Adding property a: (aim_a,0,0)"}) {
        EXPECT_NE(std::string::npos, text.find(expected)) << expected << "\n" << text;
    }
}

}  // namespace
