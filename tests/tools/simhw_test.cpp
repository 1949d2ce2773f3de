// simhw: the committed packed files of the simulated hardware are exactly
// what the tool builds from the committed descriptions, and a dumped MAC
// database builds back to the same bytes.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "ProjectBinary.h"
#include "TestRoot.h"

namespace {

std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

int run(const std::string& command)
{
    int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Every file the tool writes, relative to a root.
// clang-format off
const char* const kBuilt[] = {
    "/var/pmbus/num_psu", "/var/pmbus/ps0/status", "/var/pmbus/ps0/pin", "/var/pmbus/ps0/poutmax",
    "/var/pmbus/ps0/rev", "/var/pmbus/ps0/model", "/var/pmbus/ps0/mfgRev", "/var/pmbus/ps1/status",
    "/var/gpu/num_gpu_sys", "/var/gpu/gpu0/num_gpu", "/var/aim/functions/GetActiveSensorInfoByType",
    "/var/pellox/BIOS/MacDB.bin"};
// clang-format on

}  // namespace

TEST(simhw, CommittedBinariesMatchTheirDescriptions)
{
    const std::string sim = TestRoot::simRoot() + "/..";
    const struct {
        const char* platform;
        std::string committed;
    } cases[] = {{"dravon", sim + "/root"},
                 {"kestin", sim + "/platforms/kestin"},
                 {"tovrel", sim + "/platforms/tovrel"},
                 {"quentar", sim + "/platforms/quentar"}};
    for (const auto& c : cases) {
        TestRoot out;
        ASSERT_EQ(
            run(ProjectBinary::command("simhw") + " build " + sim + "/hardware/" + c.platform + ".json " + out.dir()),
            0);
        for (const char* file : kBuilt) {
            EXPECT_EQ(out.readFile(file), readAll(c.committed + file))
                << c.platform << file << " differs: rebuild it with simhw (docs/simulator.md)";
        }
    }
}

TEST(simhw, DumpedDatabaseBuildsBackToTheSameBytes)
{
    TestRoot out;
    const std::string original = TestRoot::simPlatform("quentar") + "/var/pellox/BIOS/MacDB.bin";
    ASSERT_EQ(run(ProjectBinary::command("simhw") + " dump-macdb " + original + " > " + out.dir() + "/db.json"), 0);
    ASSERT_EQ(run(ProjectBinary::command("simhw") + " build " + out.dir() + "/db.json " + out.dir()), 0);
    EXPECT_EQ(out.readFile("/var/pellox/BIOS/MacDB.bin"), readAll(original));
    // Refusals: a file that is no database, a description with a bad slot.
    EXPECT_NE(run(ProjectBinary::command("simhw") + " dump-macdb " + out.dir() + "/db.json 2>/dev/null"), 0);
    out.writeFile("/bad.json", R"({"macdb": {"slots": 2, "adapters": [{"slot": "ABC"}]}})");
    EXPECT_NE(
        run(ProjectBinary::command("simhw") + " build " + out.path("/bad.json") + " " + out.dir() + " 2>/dev/null"), 0);
}
