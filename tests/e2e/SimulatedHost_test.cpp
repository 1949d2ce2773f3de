// The simulated host end to end: a real server's dmidecode text imported with
// simhw becomes the host the running server reports, and every named
// scenario of simctl changes its page and is taken back.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <memory>

#include "GdsProcess.h"
#include "ProjectBinary.h"
#include "ReplyText.h"
#include "TestRoot.h"

namespace {

// What dmidecode prints for a one-socket server with one of two slots filled
// (abridged: records the import does not read are left out; every field the
// readers take is the SMBIOS import's own tests').
const char kDmidecode[] =
    "# dmidecode 3.4\n"
    "Getting SMBIOS data from sysfs.\n"
    "SMBIOS 3.2.0 present.\n\n"
    "Handle 0x0001, DMI type 1, 27 bytes\nSystem Information\n\tManufacturer: Bresk Systems\n"
    "\tProduct Name: R9000\n\tUUID: 4c4c4544-0042-3510-8052-b3c04f4b3132\n\n"
    "Handle 0x0004, DMI type 4, 48 bytes\nProcessor Information\n\tSocket Designation: CPU1\n"
    "\tType: Central Processor\n\tFamily: Xeon\n\tManufacturer: Intel(R) Corporation\n"
    "\tID: 57 06 05 00 FF FB EB BF\n\tSignature: Type 0, Family 6, Model 85, Stepping 7\n\tFlags:\n"
    "\t\tFPU (Floating-point unit on-chip)\n\tVersion: Intel(R) Xeon(R) Gold 6230 CPU @ 2.10GHz\n"
    "\tMax Speed: 4000 MHz\n\tCurrent Speed: 2100 MHz\n\tStatus: Populated, Enabled\n"
    "\tSerial Number: Not Specified\n\tCore Count: 20\n\tCore Enabled: 20\n\tThread Count: 40\n\n"
    "Handle 0x0011, DMI type 17, 84 bytes\nMemory Device\n\tData Width: 64 bits\n\tSize: 32 GB\n"
    "\tLocator: DIMM_A1\n\tBank Locator: NODE 0\n\tType: DDR4\n\tType Detail: Synchronous Registered (Buffered)\n"
    "\tSpeed: 2933 MT/s\n\tManufacturer: Samsung\n\tSerial Number: 3A1F0001\n\tAsset Tag: A1_Tag\n"
    "\tPart Number: M393A4K40CB2-CVF\n\n"
    "Handle 0x0012, DMI type 17, 84 bytes\nMemory Device\n\tData Width: Unknown\n\tSize: No Module Installed\n"
    "\tLocator: DIMM_A2\n\tBank Locator: NODE 0\n\tType: Unknown\n\n"
    "Handle 0x0015, DMI type 126, 12 bytes\nInactive\n\n";

int run(const std::string& command)
{
    int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::unique_ptr<GdsProcess> startServer(TestRoot& root)
{
    std::unique_ptr<GdsProcess> gds(new GdsProcess(root));
    gds->setEnv("product_name", "R9000");
    EXPECT_TRUE(gds->start()) << gds->output();
    return gds;
}

}  // namespace

TEST(SimulatedHost, ImportedServerIsTheHost)
{
    TestRoot root(true);
    root.writeFile("/host.txt", kDmidecode);
    const std::string description = root.path("/var/smbios/host.json");
    ASSERT_EQ(0, run(ProjectBinary::command("simhw") + " host --from-dmidecode " + root.path("/host.txt") + " --onto " +
                     description + " > " + description + ".new && mv " + description + ".new " + description));
    auto gds = startServer(root);
    std::string reply = gds->ask("get=inventoryCPU,inventoryCPUCore,inventoryMemoryDetail,inventoryMemorySummary,UUID");
    EXPECT_EQ(1u, occurrences(reply, "<Processor>"));
    EXPECT_EQ(2u, occurrences(reply, "<DIMM>"));
    for (const char* shown : {
             "<ProcessorVersion>Intel(R) Xeon(R) Gold 6230 CPU @ 2.10GHz</ProcessorVersion>",
             "<numOfCores>20</numOfCores>",
             // The platform's table gives the ids; empty slots are listed as the host reports them.
             "<id>1</id>\n<Name>DIMM_A1</Name>\n<Capacity>32768 MB</Capacity>\n<Speed>2933 MHz</Speed>",
             "<id>2</id>\n<Name>DIMM_A2</Name>\n<Capacity>NA</Capacity>",
             "<TotalMemory>32768 MB</TotalMemory>",
             "<UUID>4C4C4544-0042-3510-8052-B3C04F4B3132</UUID>",
         }) {
        EXPECT_NE(std::string::npos, reply.find(shown)) << shown << "\n" << reply;
    }
}

// Every scenario with the page it changes: a text only the page with the
// scenario applied shows, and one only the page without it shows.
TEST(SimulatedHost, EachScenarioChangesItsPageAndIsTakenBack)
{
    const struct {
        const char* scenario;
        const char* page;
        const char* applied;
        const char* cleared;
    } cases[] = {
        {"host-off", "get=adapterFW[2]", "cannot communicate with card", "<AdapterFWList>"},
        {"psu-failed", "get=inventoryPSU", "<Status>Failed</Status>",
         "<PSList><PS><deviceID>PSU1</deviceID>\n"
         "<Status>Present</Status>"},
        {"dimm-missing", "get=inventoryMemory", "<DIMMList><DIMM><Name>DIMM_A2</Name>",
         "<DIMMList><DIMM><Name>DIMM_A1</Name>"},
        {"card-tool-fails", "get=adapter", "<error>card utility not responding</error>",
         "<slot-number>1</slot-number>"},
        {"update-in-progress", "get=adapterFWStatus[1]", "<update-status>in-progress</update-status>",
         "<update-status>idle</update-status>"},
        {"inventory-collecting", "get=inventoryStatus", "<inventory-status>IN_PROGRESS</inventory-status>",
         "<inventory-status>NONE</inventory-status>"},
        {"session-manager-down", "get=genComputeTokens(17@4)", "Internal error while generating temp auth tokens",
         "<tmpAuthPwd>"},
        // Slowness is not a text: the page still answers, the same as without.
        {"property-service-slow", "get=hostname", "<hostname>sim-bmc</hostname>", "<hostname>sim-bmc</hostname>"},
    };
    TestRoot root(true);
    auto gds = startServer(root);
    const std::string simctl = ProjectBinary::command("simctl");
    for (const auto& c : cases) {
        EXPECT_NE(std::string::npos, gds->ask(c.page).find(c.cleared)) << c.scenario << " before";
        ASSERT_EQ(0, run(simctl + " apply " + c.scenario)) << c.scenario;
        std::string applied = gds->ask(c.page);
        EXPECT_NE(std::string::npos, applied.find(c.applied)) << c.scenario << "\n" << applied;
        ASSERT_EQ(0, run(simctl + " clear " + c.scenario)) << c.scenario;
        std::string cleared = gds->ask(c.page);
        EXPECT_NE(std::string::npos, cleared.find(c.cleared)) << c.scenario << " cleared\n" << cleared;
    }
    // The list the web front door reads, and clear-all.
    ASSERT_EQ(0, run(simctl + " apply psu-failed && " + simctl + " apply host-off"));
    ASSERT_EQ(0, run(simctl + " list --json > " + root.path("/list.json")));
    std::string list = root.readFile("/list.json");
    EXPECT_EQ(8u, occurrences(list, "\"name\":"));
    EXPECT_NE(std::string::npos, list.find("{\"name\":\"psu-failed\",\"description\":\"One power supply reports a "
                                           "failure\",\"applied\":true}"));
    EXPECT_EQ(2u, occurrences(list, "\"applied\":true"));
    EXPECT_EQ(0, run(simctl + " clear-all"));
    EXPECT_NE(std::string::npos, gds->ask("get=inventoryPSU").find("<Status>Present</Status>"));
    EXPECT_EQ("int\n1\n", root.readFile("/var/aim/props/pwState"));
    EXPECT_NE(0, run(simctl + " apply no-such-scenario 2>/dev/null"));
}
