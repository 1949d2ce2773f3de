#include "ServiceAgent.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "AIMClient.h"
#include "AInteger.h"
#include "aim_config.h"
#include "log_tlog.h"

namespace {

// Time-out of the lock functions, in the platform's unit (milliseconds).
const int kFunctionTimeout = 30000;
const char kSshRestart[] = "/etc/init.d/sshd-init restart ";

enum Service { kWeb, kApi, kSsh, kTelnet, kDrisko, kSnmp, kAsr, kXmlApi, kRedfish, kServiceCount };

// Property names whose change only marks their service as modified.
struct Member {
    const char* name;
    Service service;
};
const Member kMembers[] = {
    {"webMaxSessions", kWeb},
    {"webTimeout", kWeb},
    {"webHTTPPort", kWeb},
    {"webHTTPSPort", kWeb},
    {"apiEnabled", kApi},
    {"hostApiEnabled", kApi},
    {"hostApiIP", kApi},
    {"hostApiPort", kApi},
    {"maxApiCallers", kApi},
    {"apiEncrypted", kApi},
    {"apiHTTPPort", kApi},
    {"apiHTTPSPort", kApi},
    {"sshMaxSessions", kSsh},
    {"sshTimeout", kSsh},
    {"sshPort", kSsh},
    {"telnetMaxSessions", kTelnet},
    {"telnetEnabled", kTelnet},
    {"telnetSessionCount", kTelnet},
    {"telnetTimeout", kTelnet},
    {"telnetPort", kTelnet},
    {"driskoEnabled", kDrisko},
    {"driskoMaxSessions", kDrisko},
    {"driskoSessionCount", kDrisko},
    {"snmpEnabled", kSnmp},
    {"snmpCommunityServices", kSnmp},
    {"xmlapiEnabled", kXmlApi},
    {"asrEnabled", kAsr},
    {"redfishEnabled", kRedfish},
};

// Log lines announcing the events, for the services that have one.
const char* const kAnnouncements[] = {
    "ServiceAgent: processSet  Sending webServerModified notifyEvent\n",
    "ServiceAgent: processSet  Sending apiDerverModified notifyEvent\n",
    "ServiceAgent: processSet  Sending sshModified notifyEvent\n",
    "ServiceAgent: processSet  Sending telnetModified notifyEvent\n",
    "ServiceAgent: processSet  Sending remoteDRISKOModified notifyEvent\n",
    "ServiceAgent: processSet  Sending snmpAgentModified notifyEvent\n",
    "ServiceAgent: processSet  Sending asrAgentModified notifyEvent\n",
};

// Change events without payload, in sending order after the SSH event.
struct PlainEvent {
    Service service;
    const char* event;
    const char* failure;
};
const PlainEvent kPlainEvents[] = {
    {kTelnet, "pm_event_telnet_config_changed", "Failed to send Telnet change event.\n"},
    {kDrisko, "drisko_event_config_changed", "Failed to send Remote DRISKO change event.\n"},
    {kSnmp, "alert_event_snmp_config_changed", "Failed to send SNMP change event.\n"},
    {kAsr, "pm_event_asra_config_changed", "Failed to send ASR change event.\n"},
    {kXmlApi, "event_xmlapi_config_changed", "Failed to send XML api change event.\n"},
    {kRedfish, "event_redfish_config_changed", "Failed to send Redfish change event.\n"},
};

}  // namespace

ServiceAgent::ServiceAgent(DataHandler& handler) : DefaultPropertyAgent(handler, "Service") {}

ServiceAgent::~ServiceAgent() = default;

int ServiceAgent::initialize()
{
    return DefaultPropertyAgent::initialize();
}

void ServiceAgent::runLockFunction(const char* lockKey, const char* function)
{
    bool locked = false;
    aim().getProperty(lockKey, locked);
    int input = locked ? 1 : 0;
    int length = static_cast<int>(sizeof input);
    if (aim_function_execute_with_timeout_setting(function, &length, &input, 0, nullptr, kFunctionTimeout) != 0) {
        m_log.logInfo("%s failed.\n", function);
    }
}

bool ServiceAgent::disableForSmartCard(const char* key, const char* message)
{
    bool enabled = false;
    if (!aim().getProperty(key, enabled) || !enabled) {
        return false;
    }
    m_log.logInfo("%s", message);
    aim().setProperty(key, false, true);
    return true;
}

int ServiceAgent::processSet()
{
    // The base marks what it stores; entries it never reached (after a
    // failed range check) must not count as stored by an earlier request.
    for (PropertyInfo* info : m_requestList) {
        info->stored = false;
    }
    DefaultPropertyAgent::processSet();

    int webState = 2;
    int sshState = 2;
    bool modified[kServiceCount] = {};
    fputs(" ServiceAgent::processSet", stdout);
    fflush(stdout);
    AIMClient& client = aim();

    for (PropertyInfo* info : m_requestList) {
        if (!info->stored) {
            continue;
        }
        const std::string& name = info->name;
        if (name == "scEnabled") {
            int v = AInteger::parseInt(info->value);
            m_log.logInfo("SmartCard login value set to %i.\n", v);
            if (v == 0) {
                continue;
            }
            m_log.logInfo("SmartCard login enabled %s RADADM.\n", v == 1 ? "without" : "with");
            if (disableForSmartCard("pm_bool_telnet_enabled", "SmartCard: disabling telnet.\n")) {
                modified[kTelnet] = true;
            }
            if (disableForSmartCard("pm_bool_ssh_enabled", "SmartCard: disabling ssh.\n")) {
                modified[kSsh] = true;
            }
            if (v == 1 && disableForSmartCard("drisko_bool_enabled", "SmartCard: disabling drisko.\n")) {
                modified[kDrisko] = true;
            }
        } else if (name == "webEnabled") {
            bool enabled = false;
            client.getProperty("gui_bool_gui_enabled", enabled);
            webState = enabled ? 1 : 0;
            modified[kWeb] = true;
        } else if (name == "sshEnabled") {
            bool enabled = false;
            client.getProperty("pm_bool_ssh_enabled", enabled);
            sshState = enabled ? 1 : 0;
            modified[kSsh] = true;
        } else if (name == "romDisabled") {
            runLockFunction("ipmi_bbb_config_disable", "ipmi_function_bbbconfig");
        } else if (name == "driskoDisabled") {
            runLockFunction("ipmi_local_config_disable", "ipmi_function_localconfig");
        } else {
            for (const Member& member : kMembers) {
                if (name == member.name) {
                    modified[member.service] = true;
                    break;
                }
            }
        }
    }

    for (int service = kWeb; service <= kAsr; ++service) {
        if (modified[service]) {
            m_log.logInfo("%s", kAnnouncements[service]);
        }
    }
    if (modified[kXmlApi]) {
        log_tlog(2, "obj/../../src/ServiceAgent:%d:XMLAPI Service was modified.", 255);
    }
    if (modified[kRedfish]) {
        log_tlog(2, "obj/../../src/ServiceAgent:%d:REDFISH Service was modified.", 256);
    }

    if (modified[kWeb] && !client.notifyEvent("gui_event_config_changed", sizeof webState, &webState)) {
        m_log.logError("Failed to send GUI change event.\n");
    }
    if (modified[kApi] && !client.notifyEvent("apid_config_changed", sizeof webState, &webState)) {
        m_log.logError("Failed to send GUI change event.\n");
    }
    if (modified[kSsh]) {
        unsigned char payload[kSshPayloadSize];
        memset(payload, 0, sizeof payload);
        int32_t word = sshState;
        memcpy(payload, &word, sizeof word);
        if (sshState != 0) {
            bool enabled = false;
            aim_config_get_bool("pm_bool_ssh_enabled", &enabled);
            if (!enabled) {
                // SSH is stored off: nothing to restart, and the request ends
                // here without the later events.
                return m_status;
            }
            memcpy(payload + 4, kSshRestart, strlen(kSshRestart));
        }
        if (!client.notifyEvent("pm_event_ssh_config_changed", kSshPayloadSize, payload)) {
            m_log.logError("Failed to send SSH change event.\n");
        }
    }
    for (const PlainEvent& event : kPlainEvents) {
        if (modified[event.service] && !client.notifyEvent(event.event, 0, nullptr)) {
            m_log.logError("%s", event.failure);
        }
    }
    return m_status;
}
