// Service settings: which change events (with their payloads) and platform
// functions each request produces, in order; the smart-card rule; the early
// end when SSH is stored off; failures that must not stop the other events.
#include <gtest/gtest.h>

#include <tuple>

#include "AIMClient.h"
#include "AIMStore.h"
#include "AgentHarness.h"
#include "DataAgent.h"

namespace {

typedef std::vector<std::string> Lines;
const char kOk[] = "<root><status>ok</status>\n</root>\n";
const char* const kSwitches[] = {"pm_bool_telnet_enabled", "pm_bool_ssh_enabled", "drisko_bool_enabled"};

// "pm_event_ssh_config_changed <hex>": the state word, then the 64-byte
// command field, holding the restart command when asked.
std::string sshEvent(int32_t state, bool restart)
{
    std::string payload(68, '\0');
    memcpy(&payload[0], &state, 4);
    payload.replace(4, restart ? 30 : 0, restart ? "/etc/init.d/sshd-init restart " : "");
    return "pm_event_ssh_config_changed " + AIMStore::toHex(payload.data(), payload.size());
}

std::string word(const char* event, int32_t value)
{
    return std::string(event) + " " + AIMStore::toHex(&value, 4);
}

// The event (or call) records as "name payload-hex" ("-" for none), calls
// with their time-out first.
Lines records(bool calls = false)
{
    std::vector<AIMStore::Record> records;
    calls ? AIMStore::readCalls(records) : AIMStore::readEvents(records);
    Lines out;
    for (const auto& r : records) {
        out.push_back((calls ? std::to_string(r.number) + " " : "") + r.name + " " +
                      (r.payload.empty() ? "-" : AIMStore::toHex(r.payload.data(), r.payload.size())));
    }
    return out;
}

class Services : public testing::Test {
protected:
    void SetUp() override
    {
        h.server().setDefaultProperties();
        aim.initialize();
        service = h.connection().getDataAgentFor(sshPortName);
        ASSERT_STREQ("Service", service->getName());
    }

    // The Telnet, SSH and remote command line switches as "0"/"1" digits:
    // set (clearing the records) or read.
    void setSwitches(const std::string& digits)
    {
        for (int i = 0; i < 3; ++i) {
            aim.setProperty(kSwitches[i], digits[i] == '1', true);
        }
        AIMStore::clearRecords();
    }
    std::string switches()
    {
        std::string out;
        for (const char* name : kSwitches) {
            bool value = false;
            out += aim.getProperty(name, value) ? (value ? "1" : "0") : "?";
        }
        return out;
    }

    // Drives the service agent directly with one set request (for names the
    // registry does not route to it); returns processSet's result.
    int setDirect(const std::vector<std::pair<std::string, std::string>>& values)
    {
        TokenMap arguments;
        for (const auto& v : values) {
            arguments[v.first].push_back(RequestToken(RequestToken::TEXT, v.second));
        }
        service->initialize();
        for (auto v : values) {
            service->preProcessSet(v.first, arguments);
        }
        return service->processSet();
    }

    AgentHarness h;
    AIMClient aim{"test", 1};
    std::string sshPortName = "sshPort";
    DataAgent* service = nullptr;
};

TEST_F(Services, EventsPerRequest)
{
    // request, "pm_bool_ssh_enabled" before it, the events
    const std::vector<std::tuple<const char*, bool, Lines>> cases = {
        {"set=sshPort:2222", true, {sshEvent(2, true)}},
        {"set=sshPort:22,sshTimeout:600,sshMaxSessions:2", true, {sshEvent(2, true)}},
        // A failed range check ends the store: "sshPort" is not stored this time and sends nothing.
        {"set=webTimeout:30,sshPort:22", true, {}},
        {"set=sshEnabled:0", true, {sshEvent(0, false)}},
        {"set=sshEnabled:1", false, {sshEvent(1, true)}},
        {"set=webHTTPSPort:8443", true, {word("gui_event_config_changed", 2)}},
        {"set=webEnabled:1", true, {word("gui_event_config_changed", 1)}},
        {"set=apiEnabled:1,webEnabled:0", true, {word("gui_event_config_changed", 0), word("apid_config_changed", 0)}},
        {"set=apiHTTPPort:8080,hostApiIP:10.0.0.9", true, {word("apid_config_changed", 2)}},
        {"set=redfishEnabled:1,xmlapiEnabled:0,sshTimeout:600,webTimeout:900",
         true,
         {word("gui_event_config_changed", 2), sshEvent(2, true), "event_xmlapi_config_changed -",
          "event_redfish_config_changed -"}},
        // SSH stored off: the events from SSH on are not sent.
        {"set=xmlapiEnabled:1,sshPort:2200,webTimeout:900", false, {word("gui_event_config_changed", 2)}},
        {"set=sshPort:0", true, {}},  // not stored: nothing sent
    };
    for (const auto& [request, sshOn, events] : cases) {
        setSwitches(sshOn ? "010" : "000");
        std::string reply = h.request(request, 0x02);
        EXPECT_EQ(events, records()) << request;
        EXPECT_EQ(Lines{}, records(true)) << request;
        EXPECT_TRUE(events.empty() || reply == kOk) << request;
    }
    std::string tlog = h.root().readFile("/var/log/tlog");
    EXPECT_NE(std::string::npos, tlog.find("2 obj/../../src/ServiceAgent:255:XMLAPI Service was modified.\n"));
    EXPECT_NE(std::string::npos, tlog.find("2 obj/../../src/ServiceAgent:256:REDFISH Service was modified.\n"));
}

TEST_F(Services, FailedEventDoesNotStopTheOthers)
{
    AIMStore::clearRecords();
    h.root().writeFile("/var/aim/faults/event.gui_event_config_changed", "");
    EXPECT_EQ(kOk, h.request("set=webEnabled:1,apiEnabled:0,sshPort:2222", 0x02));
    EXPECT_EQ((Lines{word("apid_config_changed", 1), sshEvent(2, true)}), records());
}

// Names the registry does not route to this agent, driven directly: the
// smart-card rule (switching SSH off ends the request before any event) and
// the lock functions, run with the lock's state (a failing one does not fail the request).
TEST_F(Services, SmartCardRuleAndLockFunctions)
{
    // value, switches before and after, events
    const std::tuple<const char*, const char*, const char*, Lines> cases[] = {
        {"2", "111", "001", {}},
        {"1", "111", "000", {}},
        {"0", "111", "111", {}},
        {"2", "101", "001", {"pm_event_telnet_config_changed -"}},
        {"1", "101", "000", {"pm_event_telnet_config_changed -", "drisko_event_config_changed -"}},
    };
    for (const auto& [value, before, after, events] : cases) {
        setSwitches(before);
        EXPECT_EQ(1, setDirect({{"scEnabled", value}})) << value;
        EXPECT_EQ(events, records()) << value;
        EXPECT_EQ(after, switches()) << value;
    }
    setSwitches("111");
    AIMStore::writeFixture("ipmi_function_localconfig", false, 5, "");
    EXPECT_EQ(1, setDirect({{"romDisabled", "1"}, {"driskoDisabled", "0"}, {"snmpEnabled", "1"}}));
    EXPECT_EQ((Lines{"30000 ipmi_function_bbbconfig 01000000", "30000 ipmi_function_localconfig 00000000"}),
              records(true));
    EXPECT_EQ((Lines{"alert_event_snmp_config_changed -"}), records());
}

}  // namespace
