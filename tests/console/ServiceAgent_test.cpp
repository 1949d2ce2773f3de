// Service settings: which change events (with their payloads) each request produces, in order; the
// early end when SSH is stored off; failures that must not stop the other events.
#include <gtest/gtest.h>

#include <tuple>

#include "AIMClient.h"
#include "AIMStore.h"
#include "AgentHarness.h"

namespace {

typedef std::vector<std::string> Lines;
const char kOk[] = "<root><status>ok</status>\n</root>\n";

// The SSH event: the state word, then the 64-byte command field, holding the restart command when asked.
std::string sshEvent(int32_t state, bool restart)
{
    std::string payload(68, '\0');
    memcpy(&payload[0], &state, 4);
    payload.replace(4, restart ? 30 : 0, restart ? "/etc/init.d/sshd-init restart " : "");
    return "pm_event_ssh_config_changed " + AIMStore::toHex(payload.data(), payload.size());
}

// The event (or call) records as "name payload-hex" ("-" for none), calls with their time-out first.
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
    }

    AgentHarness h;
    AIMClient aim{"test", 1};
};

TEST_F(Services, EventsPerRequest)
{
    // request, "pm_bool_ssh_enabled" before it, the events
    const std::vector<std::tuple<const char*, bool, Lines>> cases = {
        {"set=sshPort:2222", true, {sshEvent(2, true)}},
        // A failed range check ends the store: "sshPort" is not stored this time and sends nothing.
        {"set=webTimeout:30,sshPort:22", true, {}},
        {"set=sshEnabled:0", true, {sshEvent(0, false)}},
        {"set=sshEnabled:1", false, {sshEvent(1, true)}},
        {"set=apiEnabled:1,webEnabled:0", true, {"gui_event_config_changed 00000000", "apid_config_changed 00000000"}},
        {"set=apiHTTPPort:8080,hostApiIP:10.0.0.9", true, {"apid_config_changed 02000000"}},
        {"set=redfishEnabled:1,xmlapiEnabled:0,sshTimeout:600,webTimeout:900",
         true,
         {"gui_event_config_changed 02000000", sshEvent(2, true), "event_xmlapi_config_changed -",
          "event_redfish_config_changed -"}},
        // SSH stored off: the events from SSH on are not sent.
        {"set=xmlapiEnabled:1,sshPort:2200,webTimeout:900", false, {"gui_event_config_changed 02000000"}},
    };
    for (const auto& [request, sshOn, events] : cases) {
        aim.setProperty("pm_bool_ssh_enabled", sshOn, true);
        AIMStore::clearRecords();
        std::string reply = h.request(request, 0x02);
        EXPECT_EQ(events, records()) << request;
        EXPECT_EQ(Lines{}, records(true)) << request;
        EXPECT_TRUE(events.empty() || reply == kOk) << request;
    }
    // A failed event does not stop the others.
    aim.setProperty("pm_bool_ssh_enabled", true, true);
    AIMStore::clearRecords();
    h.root().writeFile("/var/aim/faults/event.gui_event_config_changed", "");
    EXPECT_EQ(kOk, h.request("set=webEnabled:1,apiEnabled:0,sshPort:2222", 0x02));
    EXPECT_EQ((Lines{"apid_config_changed 01000000", sshEvent(2, true)}), records());
}

}  // namespace
