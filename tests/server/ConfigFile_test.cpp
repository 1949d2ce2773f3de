// The configuration grammar: tokens, statements, section headers and the
// handler table they build in the server.
#include "ConfigFile.h"

#include <gtest/gtest.h>

#include "GUIDataServer.h"
#include "TestRoot.h"

namespace {

TEST(ConfigFile, GrammarBuildsHandlerTable)
{
    // text -> "parse result;[name=libFile|entryPoint;]...standard error"
    const std::pair<const char*, std::string> cases[] = {
        // unknown keys ignored
        {"addHandler=inv\n[inv]\nlibFile=/lib/inv.so\nentryPoint=init\nname=other\n", "0;inv=/lib/inv.so|init;"},
        // blanks after = dropped, before = make another key
        {"addHandler= inv\naddHandler =x\n[inv]\nlibFile= a.so\n", "0;inv=a.so|;"},
        // short lines and the rest after a value ignored; carriage returns are part of words
        {"\nword\n=\naddHandler=h=more\naddHandler=c\r\n", "0;c\r=|;h=|;"},
        {"addHandler=a\n\n[a]b\naddHandler=b\n", "1;a=|;Bad section header: token count=4, line number 3"},
        {"addHandler=a\n[a]", "1;a=|;Bad section header: token count=50, line number 1"},
        // a repeated addHandler forgets the earlier entry
        {"addHandler=h\n[h]\nlibFile=one.so\naddHandler=h\n", "0;h=|;"},
        // an undeclared section is ignored
        {"addHandler=b\n[ghost]\nlibFile=x.so\n[b]\nentryPoint=eb\n", "0;b=|eb;"},
    };
    for (const auto& [text, expected] : cases) {
        TestRoot root;
        std::string path = root.writeFile("/etc/test.conf", text);
        GUIDataServer server;
        ConfigFile config;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(0, config.open(path.c_str())) << text;
        std::string got = std::to_string(config.parse(server)) + ";";
        for (const auto& entry : server.getHandlerTable()) {
            got += entry.first + "=" + entry.second->libFile + "|" + entry.second->entryPoint + ";";
        }
        got += testing::internal::GetCapturedStderr();
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(expected, got) << text;
    }
}

}  // namespace
