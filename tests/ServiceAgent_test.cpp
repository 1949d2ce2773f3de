// Service settings: which change events (with their payloads) and platform
// functions each request produces, in order; the smart-card rule; the early
// end when SSH is stored off; failures that must not stop the other events.
#include <gtest/gtest.h>

#include "AIMClient.h"
#include "AIMStore.h"
#include "AgentHarness.h"
#include "DataAgent.h"

namespace {

const char kOk[] = "<root><status>ok</status>\n</root>\n";

// "pm_event_ssh_config_changed <hex>" with the state word and, when asked,
// the restart command in the 64-byte field.
std::string sshEvent(int32_t state, bool restart)
{
    std::string payload(68, '\0');
    memcpy(&payload[0], &state, 4);
    if (restart) {
        memcpy(&payload[4], "/etc/init.d/sshd-init restart ", 30);
    }
    return "pm_event_ssh_config_changed " + AIMStore::toHex(payload.data(), payload.size());
}

std::string word(const char* event, int32_t value)
{
    return std::string(event) + " " + AIMStore::toHex(&value, 4);
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

    void setFlags(const std::vector<std::pair<const char*, bool>>& flags)
    {
        for (const auto& f : flags) {
            aim.setProperty(f.first, f.second, true);
        }
    }

    bool flag(const char* name)
    {
        bool value = false;
        EXPECT_TRUE(aim.getProperty(name, value)) << name;
        return value;
    }

    // The event (or call) record: "name payload-hex" ("-" for none), calls
    // with their time-out first.
    std::vector<std::string> records(bool calls = false)
    {
        std::vector<AIMStore::Record> records;
        calls ? AIMStore::readCalls(records) : AIMStore::readEvents(records);
        std::vector<std::string> out;
        for (const auto& r : records) {
            std::string hex = r.payload.empty() ? "-" : AIMStore::toHex(r.payload.data(), r.payload.size());
            out.push_back((calls ? std::to_string(r.number) + " " : "") + r.name + " " + hex);
        }
        return out;
    }
    std::vector<std::string> events() { return records(); }
    std::vector<std::string> calls() { return records(true); }

    // Drives the service agent directly with one set request (for names the
    // registry does not route to it); returns processSet's result.
    int setDirect(const std::vector<std::pair<std::string, std::string>>& values)
    {
        TokenMap arguments;
        for (const auto& v : values) {
            arguments[v.first].push_back(RequestToken(RequestToken::TEXT, v.second));
        }
        service->initialize();
        for (const auto& v : values) {
            std::string name = v.first;
            service->preProcessSet(name, arguments);
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
    struct Case {
        const char* request;
        bool sshOn;  // "pm_bool_ssh_enabled" before the request
        std::vector<std::string> events;
    };
    const std::vector<Case> cases = {
        {"set=sshPort:2222", true, {sshEvent(2, true)}},
        {"set=sshPort:22,sshTimeout:600,sshMaxSessions:2", true, {sshEvent(2, true)}},
        // A failed range check ends the store: "sshPort", stored by the case
        // before, is not stored this time and sends nothing.
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
        // Values that were not stored send nothing.
        {"set=sshPort:0", true, {}},
    };
    for (const Case& c : cases) {
        setFlags({{"pm_bool_ssh_enabled", c.sshOn}});
        AIMStore::clearRecords();
        std::string reply = h.request(c.request, 0x02);
        EXPECT_EQ(c.events, events()) << c.request;
        EXPECT_TRUE(calls().empty()) << c.request;
        if (!c.events.empty()) {
            EXPECT_EQ(kOk, reply) << c.request;
        }
    }
    std::string tlog = h.root().readFile("/var/log/tlog");
    EXPECT_NE(std::string::npos, tlog.find("2 obj/../../src/ServiceAgent:255:XMLAPI Service was modified.\n"));
    EXPECT_NE(std::string::npos, tlog.find("2 obj/../../src/ServiceAgent:256:REDFISH Service was modified.\n"));
}

TEST_F(Services, PrivilegeAndFailedEvents)
{
    AIMStore::clearRecords();
    EXPECT_EQ("<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>",
              h.request("set=sshPort:2222", 0x5d));
    EXPECT_TRUE(events().empty());

    // A refused event is logged; the events after it still go out.
    h.root().writeFile("/var/aim/faults/event.gui_event_config_changed", "");
    EXPECT_EQ(kOk, h.request("set=webEnabled:1,apiEnabled:0,sshPort:2222", 0x02));
    EXPECT_EQ((std::vector<std::string>{word("apid_config_changed", 1), sshEvent(2, true)}), events());
}

TEST_F(Services, SmartCardRule)
{
    struct Case {
        const char* value;
        bool telnet, ssh, drisko;  // before
        bool telnetAfter, sshAfter, driskoAfter;
        std::vector<std::string> events;
    };
    const std::vector<Case> cases = {
        // Switching SSH off ends the request before any event.
        {"2", true, true, true, false, false, true, {}},
        {"1", true, true, true, false, false, false, {}},
        {"0", true, true, true, true, true, true, {}},
        {"2", true, false, true, false, false, true, {"pm_event_telnet_config_changed -"}},
        {"1", false, false, true, false, false, false, {"drisko_event_config_changed -"}},
        {"1",
         true,
         false,
         true,
         false,
         false,
         false,
         {"pm_event_telnet_config_changed -", "drisko_event_config_changed -"}},
    };
    for (const Case& c : cases) {
        setFlags(
            {{"pm_bool_telnet_enabled", c.telnet}, {"pm_bool_ssh_enabled", c.ssh}, {"drisko_bool_enabled", c.drisko}});
        AIMStore::clearRecords();
        EXPECT_EQ(1, setDirect({{"scEnabled", c.value}})) << c.value;
        EXPECT_EQ(c.events, events()) << c.value;
        EXPECT_EQ(c.telnetAfter, flag("pm_bool_telnet_enabled")) << c.value;
        EXPECT_EQ(c.sshAfter, flag("pm_bool_ssh_enabled")) << c.value;
        EXPECT_EQ(c.driskoAfter, flag("drisko_bool_enabled")) << c.value;
    }
}

TEST_F(Services, OtherServicesAndLockFunctions)
{
    AIMStore::clearRecords();
    EXPECT_EQ(1, setDirect({{"asrEnabled", "1"},
                            {"snmpEnabled", "1"},
                            {"driskoMaxSessions", "2"},
                            {"telnetPort", "2323"},
                            {"romDisabled", "1"},
                            {"driskoDisabled", "0"}}));
    EXPECT_EQ((std::vector<std::string>{"pm_event_telnet_config_changed -", "drisko_event_config_changed -",
                                        "alert_event_snmp_config_changed -", "pm_event_asra_config_changed -"}),
              events());
    EXPECT_EQ((std::vector<std::string>{"30000 ipmi_function_bbbconfig 01000000",
                                        "30000 ipmi_function_localconfig 00000000"}),
              calls());

    // The function runs with the lock's state even when the value is unchanged,
    // and its failure does not fail the request.
    AIMStore::clearRecords();
    AIMStore::writeFixture("ipmi_function_bbbconfig", false, 5, "");
    EXPECT_EQ(1, setDirect({{"romDisabled", "1"}}));
    EXPECT_EQ((std::vector<std::string>{"30000 ipmi_function_bbbconfig 01000000"}), calls());
    EXPECT_TRUE(events().empty());
}

}  // namespace
