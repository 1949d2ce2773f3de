// AdapterAgent, set side: the rights check and the checks of every
// configuration request, all made before anything runs.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <strings.h>
#include <sys/stat.h>
#include <syslog.h>

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "AIMClient.h"
#include "AdapterAgent.h"
#include "ConnectionHandler.h"
#include "DataHandler.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "SecurityException.h"
#include "bios_util.h"
#include "card_config.h"
#include "clean_spawn.h"
#include "log_tlog.h"
#include "power_control.h"
#include "safeexec.h"

namespace {

const char* const kSetNames[] = {"adapterIndex",
                                 "enicIndex",
                                 "fnicIndex",
                                 "fnicBTIndex",
                                 "adapterStandby",
                                 "uplinkSpeed",
                                 "linkTraining",
                                 "adapterConfig",
                                 "deleteVnic",
                                 "iscsiBootDelete",
                                 "createFnicChild",
                                 "deleteFnicChild",
                                 "clearPersistentBindings",
                                 "adapterReset",
                                 "adapterFactoryReset",
                                 "adapterUpdate",
                                 "adapterActivate",
                                 "adapterCancelUpdate",
                                 nullptr};

const char kCardUtil[] = "/usr/local/bin/cardutil";
const char kConfigFile[] = "/mnt/scratchpad/ie_config.xml";
const char kPropValidator[] = "/usr/cli/classes/cli_prop_validator";

// The texts of a parameter's arguments.
std::vector<std::string> textsOf(TokenMap& arguments, const std::string& name)
{
    std::vector<std::string> texts;
    auto it = arguments.find(name);
    if (it != arguments.end()) {
        for (const RequestToken& token : it->second) {
            texts.push_back(token.toString());
        }
    }
    return texts;
}

bool startsWithNoCase(const std::string& text, const char* prefix)
{
    return strncasecmp(text.c_str(), prefix, strlen(prefix)) == 0;
}

// A whole decimal (optionally signed) that fits an int.
bool decimal(const std::string& text, int& value)
{
    if (text.empty() || text.size() > 11) {
        return false;
    }
    char* end = nullptr;
    long long v = strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || v > 2147483647LL || v < -2147483647LL - 1) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

}  // namespace

int AdapterAgent::number(const std::string& text)
{
    // The token's own checked reading: "x" is refused with "Cannot parse int
    // from "x"" before anything runs, never taken as 0.
    return RequestToken(RequestToken::TEXT, text).getInt();
}

const char* const* AdapterAgent::setNames()
{
    return kSetNames;
}

bool AdapterAgent::anySetRecorded() const
{
    return m_descriptionSet || !m_fipMode.empty() || !m_vntagMode.empty() || !m_lldp.empty() ||
           !m_portChannel.empty() || !m_passthrough.empty() || m_ptsEnicCount != -1 || m_standbyRequested ||
           m_uplinkNumber != -1 || m_configOperation != -1 || m_enicCreate || m_enicModify || m_fnicCreate ||
           m_fnicModify || m_iscsiBootConfigure || m_usnicConfigure || m_deleteVnic || m_iscsiBootDelete ||
           m_createFnicChild || m_deleteFnicChild || m_fnicBootTableModify || m_clearPersistentBindings ||
           m_adapterReset || m_adapterFactoryReset || m_adapterUpdate || m_adapterActivate || m_adapterCancelUpdate;
}

void AdapterAgent::validate(ValType type, const std::string& value)
{
    static const char* const kMessages[] = {"invalid label or IP address provided %s", "invalid path provided %s",
                                            "Invalid Protocol!"};
    bool ok = system_check_user_input(value.c_str(), "general_rule") != 0;
    if (ok) {
        system_exec_cmd_t command;
        std::string program;
        switch (type) {
            case kAddress:
                program = PlatformRoot::path("/usr/cli/classes/validateaddress");
                ok = system_exec_set_command_arg(&command, program.c_str(), "1", "2", value.c_str(), nullptr) == 0;
                break;
            case kPath:
                program = PlatformRoot::path("/usr/cli/classes/validatepath");
                ok = system_exec_set_command_arg(&command, program.c_str(), "1", "2", "3", value.c_str(), nullptr) == 0;
                break;
            default:
                program = PlatformRoot::path("/usr/cli/classes/validateprotocol");
                ok = system_exec_set_command_arg(&command, program.c_str(), value.c_str(), nullptr) == 0;
                break;
        }
        char output[256];
        ok = ok && system_exec_command(&command, output, sizeof output) == 0;
    }
    if (!ok) {
        throw ProcessingException(kMessages[type], shown(value).c_str());
    }
}

bool AdapterAgent::validate(std::string& value, const std::string& name, std::string& text, std::string& output)
{
    // Beyond the original, which hands both texts to the shell unchecked.
    if (!plainWord(name) || !(text.empty() || plainWord(text))) {
        output += " (invalid characters)";
        return false;
    }
    char command[1024];
    const std::string tool = PlatformRoot::path(kPropValidator);
    bool fits = text.empty()
                    ? format(command, sizeof command, "%s %s %s \"%s\"", tool.c_str(), "1", name.c_str(), "")
                    : format(command, sizeof command, "%s %s %s %s", tool.c_str(), "1", name.c_str(), text.c_str());
    if (!fits) {
        return false;
    }
    std::string lines;
    int status = invokeBackend(command, lines, "AdapterAgent");
    while (!lines.empty() && (lines.back() == '\n' || lines.back() == '\r')) {
        lines.pop_back();
    }
    output += lines;
    return status == 0;
}

int AdapterAgent::preProcessSet(std::string& name, TokenMap& arguments)
{
    log_tlog(1, "AdapterAgentSet.cpp %d: AdapterAgent::preProcessSet:(%s)\n", __LINE__, name.c_str());
    if ((m_dataHandler->getConnectionHandler()->getPrivileges() & 0x02) == 0) {
        throw SecurityException("Insufficient privileges for method %s ", name.c_str());
    }
    try {
        checkSetName(name, arguments);
    } catch (const char* text) {
        // C-string failures while reading arguments end the operation.
        m_log.logError(" preProcessSet %s exception: %s\n", name.c_str(), text);
    }
    return m_status;
}

// An error: the status word becomes 2 and the message is thrown.
#define SET_ERROR(...)                          \
    do {                                        \
        m_status = 2;                           \
        throw ProcessingException(__VA_ARGS__); \
    } while (0)

void AdapterAgent::checkSetName(std::string& name, TokenMap& arguments)
{
    std::vector<std::string> args = textsOf(arguments, name);
    int count = static_cast<int>(args.size());
    auto slotOf = [&](size_t i) { return i < args.size() ? getCardIndex(args[i]) : 0; };

    if (name == "adapterIndex") {
        adapterIndex(arguments);
    } else if (name == "enicIndex" || name == "fnicIndex") {
        vnicIndex(name, arguments);
    } else if (name == "fnicBTIndex") {
        bootTableIndex(arguments);
    } else if (name == "adapterStandby") {
        m_standbyRequested = true;
        if (count != 2 && count != 3) {
            SET_ERROR("expecting %s(slot,0|1,[,1|_0_(default:noforce)]) ", "adapterStandby");
        }
        m_cardIndex = slotOf(0);
        int action = number(args[1]);
        bool force = count == 3 && number(args[2]) != 0;
        if ((action != 0 && action != 1) || m_cardIndex <= 0) {
            SET_ERROR("invalid cardId/action passed to adapterPowerControl%d/%d", m_cardIndex, action);
        }
        m_standbyAction = static_cast<short>(action);
        if (action == 0 && !force && getValue("netMode").compare(0, 1, "4") == 0) {
            SET_ERROR("Host power is off. Deactivating standby may cause loss of management connectivity.");
        }
        locateMPAddress(name.c_str(), m_cardIndex, m_cardMac, m_cardInterface);
    } else if (name == "uplinkSpeed" || name == "linkTraining") {
        bool speed = name == "uplinkSpeed";
        if (arguments.find(name) == arguments.end()) {
            throw ProcessingException(speed ? "Invalid parameters for %s(slot, uplinkId=0|1, "
                                              "speed=Auto|1Gbps|10Gbps|4x10Gbps|40Gbps)"
                                            : "Invalid parameters for %s(slot, uplinkId=0|1, link_training=on|off)",
                                      name.c_str());
        }
        if (count != 3) {
            throw ProcessingException(speed ? "Invalid number of parameters (%d) for %s(slot, uplinkId=0|1, "
                                              "speed=Auto|1Gbps|10Gbps|4x10Gbps|40Gbps)"
                                            : "Invalid number of parameters (%d) for %s(slot, uplinkId=0|1, "
                                              "link_training=on|off",
                                      count, name.c_str());
        }
        m_cardIndex = slotOf(0);
        m_uplinkNumber = number(args[1]);
        if (m_cardIndex < 1) {
            throw ProcessingException("%d is not a valid card.", m_cardIndex);
        }
        if (m_uplinkNumber < 0 || m_uplinkNumber > 3) {
            throw ProcessingException("%d is not a valid uplink.", m_uplinkNumber);
        }
        if (speed) {
            static const char* const kSpeeds[] = {"Auto", "1Gbps", "10Gbps", "4x10Gbps", "40Gbps"};
            bool known = false;
            for (const char* s : kSpeeds) {
                known = known || args[2] == s;
            }
            if (!known) {
                throw ProcessingException("%s is not a valid uplink speed.", shown(args[2]).c_str());
            }
            m_uplinkSpeed = args[2];
        } else {
            // Beyond the original: the setting goes to the tool, so it is checked.
            checkUserText(args[2], "linkTraining");
            m_linkTraining = "AN_" + args[2];
        }
        locateMPAddress(name.c_str(), m_cardIndex, m_cardMac, m_cardInterface);
    } else if (name == "adapterConfig") {
        configRequest(args);
    } else if (name == "deleteVnic" || name == "iscsiBootDelete") {
        bool del = name == "deleteVnic";
        if (count != 2) {
            SET_ERROR("invalid arg count to %s, expecting 2 received %d", name.c_str(), count);
        }
        m_cardIndex = slotOf(0);
        m_vnicName = args[1];
        if (del && (m_cardIndex < 1 || m_vnicName.empty() || m_vnicName == "eth0" || m_vnicName == "eth1" ||
                    m_vnicName == "fc0" || m_vnicName == "fc1")) {
            SET_ERROR("invalid card/vnic name/default vnic passed to deleteVnic %d/%s", m_cardIndex,
                      shown(m_vnicName).c_str());
        }
        if (!del && (m_cardIndex < 1 || m_vnicName.empty())) {
            SET_ERROR("invalid card/vnic name passed to deleteISCSIBoot %d/%s", m_cardIndex, shown(m_vnicName).c_str());
        }
        checkUserText(m_vnicName, name.c_str());
        if (!del) {
            log_tlog(1, "AdapterAgentSet.cpp %d: preProcessSet(%s) card-%d name-%s\n", __LINE__, name.c_str(),
                     m_cardIndex, m_vnicName.c_str());
        }
        locateMPAddress(name.c_str(), m_cardIndex, m_cardMac, m_cardInterface);
        (del ? m_deleteVnic : m_iscsiBootDelete) = true;
    } else if (name == "createFnicChild" || name == "deleteFnicChild") {
        bool create = name == "createFnicChild";
        if (create && count != 6) {
            SET_ERROR("invalid argument counted (%d) for %s(slot,child_class,fnic_name,index,wwpn,lun)", count,
                      name.c_str());
        }
        if (!create && count != 4) {
            SET_ERROR("invalid argument counted (%d) for %s(slot,child_class,fnic_name,index)", count, name.c_str());
        }
        m_cardIndex = slotOf(0);
        m_childClass = args[1];
        m_vnicName = args[2];
        m_childIndex = args[3];
        checkUserText(m_vnicName, name.c_str());
        checkUserText(m_childIndex, name.c_str());
        if (create) {
            std::string wwpn = args[4];
            std::string output = wwpn;
            if (!validate(wwpn, "boot-target-wwpn", wwpn, output)) {
                throw ProcessingException("Validation failed for property %s: %s", "boot-target-wwpn",
                                          AdapterAgent::shown(output).c_str());
            }
            m_bootTargetWwpn = wwpn;
            m_bootTargetLun = number(args[5]);
        }
        if (m_cardIndex < 1 || m_childClass != "BootTable") {
            SET_ERROR(" %s invalid card/childClass (%d/%s) passed", name.c_str(), m_cardIndex,
                      shown(m_childClass).c_str());
        }
        locateMPAddress(name.c_str(), m_cardIndex, m_cardMac, m_cardInterface);
        (create ? m_createFnicChild : m_deleteFnicChild) = true;
    } else if (name == "clearPersistentBindings") {
        if (count != 2) {
            SET_ERROR("invalid argument counted for clearPeristentBindings(slot,fnic_name)");
        }
        m_cardIndex = slotOf(0);
        m_vnicName = args[1];
        checkUserText(m_vnicName, name.c_str());
        if (m_cardIndex < 1) {
            SET_ERROR(" %s invalid card/fnic (%d/%s) passed", "clearPersistentBindings", m_cardIndex,
                      shown(m_vnicName).c_str());
        }
        locateMPAddress(name.c_str(), m_cardIndex, m_cardMac, m_cardInterface);
        m_clearPersistentBindings = true;
    } else if (name == "adapterReset" || name == "adapterFactoryReset") {
        bool factory = name == "adapterFactoryReset";
        if (count != 1) {
            SET_ERROR("invalid argument counted for %s(slot)", name.c_str());
        }
        const std::string text = shown(args[0]);
        int slot = 0;
        if (!decimal(args[0], slot) || slot < 1) {
            if (factory) {
                SET_ERROR(" %s invalid card (%s) passed ", "adapterFactoryReset", text.c_str());
            }
            SET_ERROR("%s is not a valid slot.", text.c_str());
        }
        m_cardIndex = slot;
        if (factory) {
            try {
                locateMPAddress(name.c_str(), m_cardIndex, m_cardMac, m_cardInterface);
            } catch (const ProcessingException&) {
                SET_ERROR(" %s invalid card (%s) passed ", "adapterFactoryReset", text.c_str());
            }
            m_adapterFactoryReset = true;
        } else {
            m_adapterReset = true;
        }
    } else if (name == "adapterUpdate") {
        updateRequest(args);
    } else if (name == "adapterActivate") {
        if (count < 1 || args[0].empty()) {  // "adapterActivate()" carries one empty argument
            SET_ERROR("invalid argument counted for %s(fw_id, 1, 2,... slotN)", "adapterActivate");
        }
        m_firmwareId = number(args[0]);
        slotList("adapterActivate", args, 1);
        m_adapterActivate = true;
    } else if (name == "adapterCancelUpdate") {
        slotList("adapterCancelUpdate", args, 0);
        m_adapterCancelUpdate = true;
    }
}

void AdapterAgent::slotList(const char* operation, std::vector<std::string>& args, size_t first)
{
    for (size_t i = first; i < args.size(); ++i) {
        if (args[i].empty()) {
            continue;
        }
        int slot = getCardIndex(args[i]);
        try {
            std::string mac, vif;
            locateMPAddress(operation, slot, mac, vif);
        } catch (const ProcessingException&) {
            SET_ERROR("invalid slot %d passed to %s)", slot, operation);
        }
        m_updateSlots.push_back(slot);
    }
}

void AdapterAgent::adapterIndex(TokenMap& arguments)
{
    std::vector<std::string> slot = textsOf(arguments, "adapterIndex");
    int index = 0;
    if (slot.empty() || !decimal(slot[0], index)) {
        throw ProcessingException("invalid adapter index specified in %s ", slot.empty() ? "" : shown(slot[0]).c_str());
    }
    m_cardIndex = index;
    locateMPAddress("adapterIndex", m_cardIndex, m_cardMac, m_cardInterface);
    struct Toggle {
        const char* name;
        std::string* field;
    };
    const Toggle toggles[] = {{"fip-mode", &m_fipMode},
                              {"vntag-mode", &m_vntagMode},
                              {"lldp", &m_lldp},
                              {"portchannel", &m_portChannel},
                              {"passthrough", &m_passthrough}};
    for (const Toggle& t : toggles) {
        std::vector<std::string> v = textsOf(arguments, t.name);
        if (v.empty()) {
            continue;
        }
        const std::string& value = v[0];
        const std::string text = shown(value);
        if (t.field == &m_fipMode) {
            if (!startsWithNoCase(value, "enable") && !startsWithNoCase(value, "disable")) {
                SET_ERROR("valid values for %s are enable | disable) %s ", t.name, text.c_str());
            }
        } else {
            bool enable = strcasecmp(value.c_str(), "enabled") == 0;
            bool disable = strcasecmp(value.c_str(), "disabled") == 0;
            log_tlog(1, "AdapterAgentSet.cpp %d: Validation  enable=%d , disable=%d\n", __LINE__, enable, disable);
            if (!enable && !disable) {
                SET_ERROR("valid values for %s are enabled | disabled) %s ", t.name, text.c_str());
            }
        }
        // Written to the tool's standard input: one plain word only.
        checkUserText(value, t.name);
        *t.field = value;
    }
    std::vector<std::string> description = textsOf(arguments, "description");
    if (!description.empty()) {
        if (description[0].size() > 64) {
            SET_ERROR("maximum length exceeded for %s", "description");
        }
        // Blanks are allowed in a description; line ends would add lines.
        if (description[0].find_first_of("\r\n") != std::string::npos) {
            SET_ERROR("Invalid characters in an argument of %s", "description");
        }
        m_description = description[0];
        m_descriptionSet = true;
    }
    std::vector<std::string> pts = textsOf(arguments, "pts-enic-count");
    if (!pts.empty()) {
        int count = -1;
        if (!decimal(pts[0], count) || count < 0 || count > 112) {
            SET_ERROR("%s must be with in the range of 0 to 112", "pts-enic-count");
        }
        m_ptsEnicCount = count;
    }
}

void AdapterAgent::vnicProperties(TokenMap& arguments)
{
    for (auto& [property, tokens] : arguments) {
        std::string name = property;
        std::string value = tokens.empty() ? "" : tokens[0].toString();
        if (!plainWord(name)) {
            throw ProcessingException("Invalid property name %s ", shown(name).c_str());
        }
        if (!value.empty() && !plainWord(value)) {
            throw ProcessingException("Invalid property value %s ", shown(value).c_str());
        }
        std::string output = value;
        if (!validate(value, name, value, output)) {
            throw ProcessingException("Validation failed for property %s: %s", name.c_str(), shown(output).c_str());
        }
    }
}

void AdapterAgent::vnicIndex(const std::string& name, TokenMap& arguments)
{
    bool enic = name == "enicIndex";
    std::vector<std::string> values = textsOf(arguments, name);
    for (const std::string& value : values) {
        size_t slash = value.find('/');
        if (slash == std::string::npos) {
            SET_ERROR("vnicIndex in invalid format expecting slot/vnic_name got %s", shown(value).c_str());
        }
        m_cardIndex = getCardIndex(value.substr(0, slash));
        m_vnicName = value.substr(slash + 1);
        if (!plainWord(m_vnicName)) {
            SET_ERROR("Invalid parameter vNIC name");
        }
        locateMPAddress(name.c_str(), m_cardIndex, m_cardMac, m_cardInterface);
    }
    arguments.erase(name);
    std::vector<std::string> action = textsOf(arguments, "action");
    if (arguments.find("action") == arguments.end()) {
        log_tlog(1, "AdapterAgentSet.cpp %d: User request is missing the action property.\n", __LINE__);
        SET_ERROR("'action' property is missing in user request for vNIC %s", m_vnicName.c_str());
    }
    log_tlog(1, "AdapterAgentSet.cpp %d: vNIC request had action prop. %d =%s\n", __LINE__,
             static_cast<int>(action.size()), action.empty() ? "" : action[0].c_str());
    std::string a = action.empty() ? "" : action[0];
    if (strcasecmp(a.c_str(), "create") == 0) {
        (enic ? m_enicCreate : m_fnicCreate) = true;
    } else if (strcasecmp(a.c_str(), "modify") == 0) {
        (enic ? m_enicModify : m_fnicModify) = true;
    } else if (enic && strcasecmp(a.c_str(), "iscsiBootConfigure") == 0) {
        m_iscsiBootConfigure = true;
    } else if (enic && strcasecmp(a.c_str(), "usnicConfigure") == 0) {
        std::vector<std::string> count = textsOf(arguments, "usnic-count");
        if (arguments.find("usnic-count") == arguments.end()) {
            SET_ERROR("Cannot configure USNIC interfaces for vNIC %s. Missing USNIC interfaces count property.",
                      m_vnicName.c_str());
        }
        int n = 0;
        if (count.empty() || !decimal(count[0], n)) {
            SET_ERROR("Cannot configure USNIC interfaces for vNIC %s. Invalid USNIC interfaces count (%s) ",
                      m_vnicName.c_str(), count.empty() ? "" : shown(count[0]).c_str());
        }
        m_usnicConfigure = true;
        m_usnicCount = n;
        arguments.erase("usnic-count");
    } else {
        log_tlog(1, "AdapterAgentSet.cpp %d: User request has invalid action property value.\n", __LINE__);
        SET_ERROR("'action' property has invalid value in user request for vNIC %s", m_vnicName.c_str());
    }
    arguments.erase("action");
    vnicProperties(arguments);
}

void AdapterAgent::bootTableIndex(TokenMap& arguments)
{
    m_fnicBootTableModify = true;
    std::vector<std::string> values = textsOf(arguments, "fnicBTIndex");
    std::string value = values.empty() ? "" : values[0];
    std::vector<std::string> fields;
    size_t start = 0;
    while (start <= value.size()) {
        size_t slash = value.find('/', start);
        std::string field = value.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (!field.empty()) {
            fields.push_back(field);
        }
        if (slash == std::string::npos) {
            break;
        }
        start = slash + 1;
    }
    int slot = fields.empty() ? 0 : getCardIndex(fields[0]);
    if (fields.size() > 3 || slot < 0) {
        SET_ERROR("%s in invalid format expecting slot/vnic_name/child_index got %s", "fnicBTIndex",
                  shown(value).c_str());
    }
    m_cardIndex = slot;
    m_vnicName = fields.size() > 1 ? fields[1] : "";
    m_childIndex = fields.size() > 2 ? fields[2] : "";
    checkUserText(m_vnicName, "fnicBTIndex");
    checkUserText(m_childIndex, "fnicBTIndex");
    locateMPAddress("fnicBTIndex", m_cardIndex, m_cardMac, m_cardInterface);
    arguments.erase("fnicBTIndex");
    vnicProperties(arguments);
}

void AdapterAgent::configRequest(std::vector<std::string>& args)
{
    struct stat st;
    if (stat(PlatformRoot::path(kConfigFile).c_str(), &st) == 0) {
        SET_ERROR("try later a config import/export is already underway");
    }
    int count = static_cast<int>(args.size());
    if (count != 2 && count != 7) {
        SET_ERROR(
            "invalid parameters for adapterConfig(slot, import=0|export=1,[remoteProtocol,remoteIP,remotepath,"
            "remoteUsername,remotePassword]) got %d",
            count);
    }
    int slot = strcasecmp(args[0].c_str(), "all") == 0 ? 0 : getCardIndex(args[0]);
    if (slot == 0 && strcasecmp(args[0].c_str(), "all") != 0) {
        SET_ERROR("Card slot cannpt be 0");
    }
    if (count == 7) {
        if (!args[2].empty()) {
            validate(kProtocol, args[2]);
        }
        if (!args[3].empty()) {
            validate(kAddress, args[3]);
        }
        if (!args[4].empty()) {
            validate(kPath, args[4]);
        }
        // Beyond the original: user and password reach the transfer
        // command line, so they are checked here too.
        if (!system_check_user_input(args[5].c_str(), "general_rule") ||
            !system_check_user_input(args[6].c_str(), "password_rule")) {
            SET_ERROR("Invalid Parameters");
        }
    }
    int operation = number(args[1]);
    if (operation != 0 && operation != 1) {
        SET_ERROR(
            "invalid parameters passed to adapterConfig(slot, import=0|export=1,[remoteProtocol,remoteIP,"
            "remotepath,remoteUsername, remotePassword])");
    }
    m_configOperation = operation;
    m_cardIndex = slot;
    if (count == 7) {
        m_remoteProtocol = args[2];
        m_remoteAddress = args[3];
        m_remotePath = args[4];
        m_remoteUser = args[5];
        m_remotePassword = args[6];
    }
    if (slot > 0) {
        locateMPAddress("adapterConfig", slot, m_cardMac, m_cardInterface);
    }
}

void AdapterAgent::updateRequest(std::vector<std::string>& args)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);  // the marks are shared (see updatingCards)
        if (updatingCards.any()) {
            throw ProcessingException("update already underway cannot update now");
        }
    }
    if (args.size() < 2) {
        SET_ERROR("invalid argument count!");
    }
    if (args[0].empty()) {
        SET_ERROR("invalid protocol!");
    }
    size_t firstSlot = 0;
    if (args[0] == "local") {
        if (args.size() < 3) {
            throw ProcessingException("invalid argument counted for %s(remoteIp, remotePath, 1, 2,... slotN)",
                                      "adapterUpdate");
        }
        if (!args[1].empty()) {
            validate(kAddress, args[1]);
        }
        if (!args[2].empty()) {
            validate(kPath, args[2]);
        }
        m_remoteProtocol = args[0];
        m_remoteAddress = args[1];
        m_remotePath = args[2];
        m_updateOption = args.size() > 3 && number(args[3]) != 0;
        firstSlot = 4;
    } else {
        if (args.size() < 6) {
            throw ProcessingException(
                "invalid argument counted for %s(protocol,ip,path,username, password, 1, 2,... slotN)",
                "adapterUpdate");
        }
        validate(kProtocol, args[0]);
        if (!args[1].empty()) {
            validate(kAddress, args[1]);
        }
        if (!args[2].empty()) {
            validate(kPath, args[2]);
        }
        std::string user = args[3], password = args[4];
        escapeShellMetaChar(user);
        escapeShellMetaChar(password);
        if (!system_check_user_input(args[1].c_str(), "general_rule") ||
            !system_check_user_input(args[2].c_str(), "general_rule") ||
            !system_check_user_input(user.c_str(), "general_rule") ||
            !system_check_user_input(args[0].c_str(), "general_rule") ||
            !system_check_user_input(password.c_str(), "password_rule")) {
            throw ProcessingException("Invalid Parameters");
        }
        m_remoteProtocol = args[0];
        m_remoteAddress = args[1];
        m_remotePath = args[2];
        m_remoteUser = user;
        m_remotePassword = password;
        m_updateOption = number(args[5]) != 0;
        firstSlot = 6;
    }
    slotList("adapterUpdate", args, firstSlot);
    m_adapterUpdate = true;
}

#undef SET_ERROR

int AdapterAgent::postProcessSet(ConnectionHandler& connection, TokenMap& arguments)
{
    const std::string tool = PlatformRoot::path(mptoolPath());
    const char* mpt = tool.c_str();
    const char* vif = m_cardInterface.c_str();
    const char* mac = m_cardMac.c_str();
    char command[1024];
    std::string output;
    int status = 0;
    prepareTransfer();
    // Exactly one operation runs (the first recorded, in this order); the
    // adapter parameters follow in every case.
    if (m_standbyRequested) {
        if (format(command, sizeof command, m_standbyAction == 1 ? "%s -a %d" : "%s -i %d",
                   PlatformRoot::path(kCardUtil).c_str(), m_cardIndex)) {
            status = system_secure(command);
            if (status != 0) {
                m_log.logError(" standby command (%s) failed with status %d\n", command, status);
                m_status = 2;
            }
        } else {
            m_status = 2;
        }
    } else if (!m_uplinkSpeed.empty() || !m_linkTraining.empty()) {
        bool speed = !m_uplinkSpeed.empty();
        bool fits = speed ? format(command, sizeof command, "%s -i %s %s vorn_setuplink_speed %d %s", mpt, vif, mac,
                                   m_uplinkNumber, m_uplinkSpeed.c_str())
                          : format(command, sizeof command, "%s -i %s %s vorn_setuplink_speed %d 40Gbps %s ", mpt, vif,
                                   mac, m_uplinkNumber, m_linkTraining.c_str());
        if (!fits || (status = invokeBackend(command, output, "AdapterAgent")) != 0) {
            m_log.logError(speed ? "set uplink speed command (%s) failed with status %d error %s\n"
                                 : "set link training command (%s) failed with status %d error %s\n",
                           command, status, output.c_str());
            m_status = 2;
            throw ProcessingException("Failed to set uplink speed: %s", output.c_str());
        }
    } else if (m_configOperation != -1) {
        configTransfer();
    } else if (m_enicCreate || m_fnicCreate || m_enicModify || m_fnicModify || m_iscsiBootConfigure ||
               m_usnicConfigure) {
        vnicChange(arguments);
    } else if (m_deleteVnic) {
        if (format(command, sizeof command, "%s -i %s %s vorn_delete_vnic \"%s\"", mpt, vif, mac, m_vnicName.c_str()) &&
            (status = invokeBackend(command, output, "AdapterAgent")) != 0) {
            m_log.logError("delete vnic command (%s) failed with status %d\n", command, status);
            m_status = 2;
        }
    } else if (m_iscsiBootDelete || m_createFnicChild || m_deleteFnicChild || m_fnicBootTableModify) {
        vnicRemoval(arguments);
    } else if (m_clearPersistentBindings) {
        if (format(command, sizeof command, "%s -i %s %s ping", mpt, vif, mac) &&
            (status = invokeBackend(command, output, "AdapterAgent")) != 0) {
            m_log.logError("command clear perbi (%s) failed with status %d\n", command, status);
            m_status = 2;
        }
    } else if (m_adapterReset) {
        resetAdapter(m_cardIndex);
    } else if (m_adapterFactoryReset) {
        if (format(command, sizeof command, "%s -i %s %s restoredefconfig", mpt, vif, mac) &&
            (status = invokeBackend(command, output, "AdapterAgent")) != 0) {
            m_log.logError("command (%s) failed with status %d\n", command, status);
            m_status = 2;
        }
    } else if (m_adapterUpdate || m_adapterActivate || m_adapterCancelUpdate) {
        firmwareAction();
    }
    adapterParameters();
    return m_status;
}

namespace {

void audit(const char* line)
{
    openlog("AUDIT", LOG_PID, LOG_AUTHPRIV);
    syslog(LOG_NOTICE, "%s", line);
    closelog();
    syslog_mirror("AUDIT", line);  // below a platform root, as the BIOS lines
}

}  // namespace

bool AdapterAgent::resettableType(int type)
{
    static const int kTypes[] = {3, 36, 37, 50, 51, 57, 81, 91, 92, 93, 94};
    for (int t : kTypes) {
        if (t == type) {
            return true;
        }
    }
    return false;
}

void AdapterAgent::pause(int seconds)
{
    // GDS_ADAPTER_PAUSE_SCALE (a test and development aid) scales the
    // pauses of a reset: 0.01 makes the 5 seconds 50 milliseconds.
    static const double scale = [] {
        const char* text = getenv("GDS_ADAPTER_PAUSE_SCALE");
        char* end = nullptr;
        double value = text != nullptr ? strtod(text, &end) : 1.0;
        return text != nullptr && (end == text || *end != '\0' || !(value >= 0.0 && value <= 1.0)) ? 1.0 : value;
    }();
    int ms = static_cast<int>(seconds * 1000 * scale);
    threadSleep(ms / 1000, ms % 1000);
}

void AdapterAgent::resetAdapter(int slot)
{
    bool hostOn = powerOn();
    config* cfg = nullptr;
    int rc = get_card_config(&cfg);
    card* c =
        rc == 0 && slot >= 0 && slot <= 255 ? get_card_by_pci_slot_id(cfg, static_cast<unsigned char>(slot)) : nullptr;
    // The configuration is released on every way out.
    struct Release {
        config* cfg;
        ~Release()
        {
            if (cfg != nullptr) {
                free_config(cfg);
            }
        }
    } release{rc == 0 ? cfg : nullptr};
    if (c == nullptr) {
        throw ProcessingException("Failed adapter reset. Card in slot %d not found.", slot);
    }
    int type = -1;
    if (get_card_type(c, &type) != 0 || !resettableType(type)) {
        throw "This card type does not support the reset command.";
    }
    bool active = is_card_active(c) != 0;
    char serial[CARD_SERIAL_SIZE] = "";
    if ((rc = get_card_serialnum(c, serial)) != 0) {
        throw ProcessingException("Cannot get serial number for card in slot %d. Error %d", slot, rc);
    }
    if (active && (rc = set_card_as_inactive(cfg, serial, 0)) != 0) {
        throw ProcessingException("Reset adapter in slot %d failed. Error deactivating %d", slot, rc);
    }
    if (hostOn) {
        m_dataHandler->log("%s: powerState = %i\n", "resetAdapter", 0);
        rc = SetPowerState(1, POWER_STATE_OFF);
        audit("Server power state modify (op:power-off)");
        if (rc != 0) {
            if (active) {
                set_card_as_active(cfg, serial, 0);
                m_log.logError("Power off host failed during adapter reset. Reactivating card %s, slot %d, ret %d",
                               serial, slot, rc);
            }
            throw "Power off host failed.";
        }
    }
    pause(5);
    struct stat st;
    if (stat(PlatformRoot::path("/var/portChannelChanged").c_str(), &st) == 0) {
        unlink(PlatformRoot::path("/var/portChannelChanged").c_str());
        triggerHalvricNetChange();
    }
    if (hostOn) {
        pause(5);
        m_dataHandler->log("%s: powerState = %i\n", "resetAdapter", 1);
        rc = SetPowerState(1, POWER_STATE_ON);
        audit("Server power state modify (op:power-on)");
        if (rc != 0) {
            set_card_as_active(cfg, serial, 0);
            m_log.logError("Power on host failed during adapter reset. Reactivating card %s, slot %d, ret %d", serial,
                           slot, rc);
            throw "Power on host failed.";
        }
    }
    if (active) {
        if (hostOn) {
            pause(5);
        }
        if ((rc = set_card_as_active(cfg, serial, 0)) != 0) {
            throw ProcessingException("Adapter reset failed to reactivate card %s in slot %d. Error %d", serial, slot,
                                      rc);
        }
    }
}

int AdapterAgent::triggerHalvricNetChange()
{
    unsigned char record[992] = {0};
    int length = 0;
    if (aim().callFunction("netGetCurrentIfConfig", 0, nullptr, sizeof record, &length, record) != 0) {
        m_log.logInfo("Error retrieving BRESK NetMode information.\n");
        return -1;
    }
    return aim().callFunction("HalvricNETSetConfigImmediate", sizeof record, record, 0, nullptr, nullptr);
}

int AdapterAgent::writeToTool(const char* const argv[], const std::string& line)
{
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        return -1;
    }
    int in = -1;
    pid_t pid = spawn_clean_writer(argv[0], const_cast<char* const*>(argv), out[1], &in);
    close(out[1]);
    if (pid < 0) {
        close(out[0]);
        return -1;
    }
    // One short line fits the pipe: the write never waits for the tool. A
    // tool that ended without reading makes it fail with EPIPE; the signal
    // is held for this thread (the server ignores it, a test program may not).
    sigset_t pipeSignal, previous;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    bool written = write(in, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    if (!written && errno == EPIPE) {
        const timespec none = {0, 0};
        sigtimedwait(&pipeSignal, nullptr, &none);
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    close(in);
    std::string output;
    char piece[256];
    for (ssize_t n; (n = read(out[0], piece, sizeof piece)) != 0;) {
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            break;
        }
        output.append(piece, static_cast<size_t>(n));
    }
    close(out[0]);
    int status = child_exit_status(wait_child(pid));
    m_log.logTrace("AdapterAgent: %s answered %d: %s\n", argv[0], status, output.c_str());
    return written ? status : -1;
}

void AdapterAgent::adapterParameters()
{
    struct Parameter {
        const char* name;
        const std::string* value;
        const char* failure;
        bool error;  // the failure is an error line, else an information line
    };
    const Parameter parameters[] = {
        {"fip-mode", &m_fipMode, " set fip-mode command (%s) failed with status %d (%s)\n", true},
        {"vntag-mode", &m_vntagMode, " set niv-mode command (%s) failed with status %d (%s)\n", true},
        {"lldp", &m_lldp, " set lldp command (%s) failed with status %d (%s)\n", true},
        {"portchannel", &m_portChannel, " set portchannel command (%s) failed with status %d (%s)\n", false},
        {"passthrough", &m_passthrough, " set passthrough command (%s) failed with status %d (%s)\n", false},
    };
    char command[1024];
    for (const Parameter& p : parameters) {
        if (p.value->empty()) {
            continue;
        }
        // The tool reads "name value" lines on its standard input: the line
        // is written to it through a pipe, no file and no shell (the value
        // was checked to be one plain word, so it adds no line).
        const std::string tool = PlatformRoot::path(mptoolPath());
        format(command, sizeof command, "%s -i %s %s vorn_setadapter_param", tool.c_str(), m_cardInterface.c_str(),
               m_cardMac.c_str());
        log_tlog(1, "AdapterAgentSet.cpp %d: cmd(%s)\n", __LINE__, command);
        const char* argv[] = {tool.c_str(), "-i", m_cardInterface.c_str(), m_cardMac.c_str(), "vorn_setadapter_param",
                              nullptr};
        std::string line = std::string(p.name) + " " + *p.value + " \n";
        int status = -1;
        if (system_check_user_input(p.value->c_str(), "general_rule")) {
            status = writeToTool(argv, line);
        }
        if (status != 0) {
            if (p.error) {
                m_log.logError(p.failure, command, status, p.value->c_str());
            } else {
                m_log.logInfo(p.failure, command, status, p.value->c_str());
            }
            m_status = 2;
        }
        if (p.value == &m_portChannel) {
            config* cfg = nullptr;
            if (get_card_config(&cfg) == 0) {
                card* c = get_card_by_pci_slot_id(cfg, static_cast<unsigned char>(m_cardIndex));
                if (c != nullptr && is_card_active(c)) {
                    FILE* marker = fopen(PlatformRoot::path("/var/portChannelChanged").c_str(), "w");
                    if (marker != nullptr) {
                        fclose(marker);
                    }
                }
                free_config(cfg);
            }
        }
    }
    if (m_descriptionSet) {
        config* cfg = nullptr;
        int rc = get_card_config(&cfg);
        card* c = rc == 0 ? get_card_by_pci_slot_id(cfg, static_cast<unsigned char>(m_cardIndex)) : nullptr;
        if (c == nullptr || (rc = set_card_description(c, m_description.c_str())) != 0) {
            m_log.logError("set card description returned rc %d || card idx %d not retrieved\n", rc, m_cardIndex);
        }
        if (cfg != nullptr) {
            free_config(cfg);
        }
    }
    if (m_ptsEnicCount != -1) {
        std::string output;
        if (!format(command, sizeof command, "%s -i %s %s vorn_configure_pts_eths %d 2>&1",
                    PlatformRoot::path(mptoolPath()).c_str(), m_cardInterface.c_str(), m_cardMac.c_str(),
                    m_ptsEnicCount) ||
            invokeBackend(command, output, "AdapterAgent") != 0) {
            m_status = 2;
            throw ProcessingException("Failed to configure VM FEX interfaces: %s", output.c_str());
        }
    }
}
