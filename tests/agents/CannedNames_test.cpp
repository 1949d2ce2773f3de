// Which canned names the canned library registers: the default set leaves
// every name a real agent or the property map serves, a names list narrows or
// widens it in order, never takes a real agent's name, and its unknown items
// are set apart.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "CannedNames.h"
#include "FakeDataAgent.h"

namespace {

typedef std::vector<std::string> Names;

// The default set here: 83 less sshPort and fans (real agents) and hostname and kvmPort (property map).
const size_t kDefault = 79;

TEST(CannedNames, Choose)
{
    const std::map<std::string, std::string> served = {{"sshPort", "Service"}, {"fans", "RealSensors"}};
    const std::set<std::string> mapped = {"hostname", "kvmPort"};
    // listed, names list, size of the result, names in it, names not in it, refused names
    const std::tuple<bool, const char*, size_t, Names, Names, Names> cases[] = {
        {false, "", kDefault, {"pwState", "users", "traceLogEntries"}, {"sshPort", "fans", "hostname", "kvmPort"}, {}},
        {true, "default,hostname,-users", kDefault, {"hostname"}, {"users", "sshPort"}, {}},
        {true, "fans sshPort,default", kDefault, {"pwState"}, {"fans", "sshPort"}, {"fans", "sshPort"}},
        // Items apply in order: a removal before "default" is undone by it.
        {true, "-pwState,default", kDefault, {"pwState"}, {}, {}},
        {true, "default,-pwState,-email", kDefault - 2, {"certificate"}, {"pwState", "email"}, {}},
        {true, "temperatures,kvmPort,temperatures", 2, {"temperatures", "kvmPort"}, {"pwState"}, {}},
        {true, "", 0, {}, {"pwState"}, {}},
        {true, "-fans", 0, {}, {"fans"}, {}},
    };
    for (const auto& [listed, list, size, in, out, refusedExpected] : cases) {
        Names unknown;
        Names refused;
        Names names = CannedNames::choose(listed, CannedNames::parseList(list, unknown), served, mapped, refused);
        EXPECT_EQ(size, names.size()) << list;
        for (const std::string& n : in) {
            EXPECT_NE(names.end(), std::find(names.begin(), names.end(), n)) << list << " " << n;
        }
        for (const std::string& n : out) {
            EXPECT_EQ(names.end(), std::find(names.begin(), names.end(), n)) << list << " " << n;
        }
        EXPECT_EQ(refusedExpected, refused) << list;
        EXPECT_EQ(Names{}, unknown) << list;
        // Always in the canned order, each once.
        Names order;
        for (const std::string& n : FakeDataAgent::knownNames()) {
            if (std::find(names.begin(), names.end(), n) != names.end()) {
                order.push_back(n);
            }
        }
        EXPECT_EQ(order, names) << list;
    }
}

TEST(CannedNames, ParseListSetsUnknownItemsApart)
{
    // list, kept items, unknown items
    const std::tuple<const char*, Names, Names> cases[] = {
        {"default, hostname\t-users,,bogus -x -", {"default", "hostname", "-users"}, {"bogus", "-x", "-"}},
        {"Hostname,PWSTATE,--users,default2", {}, {"Hostname", "PWSTATE", "--users", "default2"}},
        {" , ,", {}, {}},
        {"-default", {}, {"-default"}},
    };
    for (const auto& [list, kept, unknownExpected] : cases) {
        Names unknown;
        EXPECT_EQ(kept, CannedNames::parseList(list, unknown)) << list;
        EXPECT_EQ(unknownExpected, unknown) << list;
    }
}

}  // namespace
