// AdapterAgent, get side: the argument forms of every adapter property and
// the tool runs that answer them.
#include <cstdlib>
#include <cstring>

#include "AdapterAgent.h"
#include "ConnectionHandler.h"
#include "GUIDataSocket.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "log_tlog.h"
#include "safeexec.h"

namespace {

const char kCardUtil[] = "/usr/local/bin/cardutil";
const char kParseScript[] = "/etc/scripts/parse-cardutil.sh";
const char kIeStatusFile[] = "/var/ieAllKorStatus";
const char kFixedMpTool[] = "/opt/flash/halvric/bin/mptool";
const char kNoData[] = "No Storage Data";
const char kAgent[] = "AdapterAgent";

// How a property takes its arguments.
enum Form {
    kNoCard,        // no arguments, no card
    kOptionalSlot,  // none or [slot]; [slot selector] for "adapter"
    kRequiredSlot,  // [slot] or [slot vnic-name]
    kTokens,        // [a b c ...], see kTokenForms
};

struct GetEntry {
    const char* name;
    AdapterAgent::GetProperty property;
    Form form;
};

const GetEntry kGetTable[] = {
    {"adapter", AdapterAgent::kAdapter, kOptionalSlot},
    {"adapterFW", AdapterAgent::kAdapterFW, kOptionalSlot},
    {"adapterPcieLinkWidth", AdapterAgent::kAdapterPcieLinkWidth, kOptionalSlot},
    {"adapterFWStatus", AdapterAgent::kAdapterFWStatus, kOptionalSlot},
    {"tarqAdapterFWVerAndStatus", AdapterAgent::kTarqAdapterFWVerAndStatus, kOptionalSlot},
    {"nextOrder", AdapterAgent::kNextOrder, kOptionalSlot},
    {"isVnicAvailable", AdapterAgent::kIsVnicAvailable, kOptionalSlot},
    {"iscsiBoot", AdapterAgent::kIscsiBoot, kRequiredSlot},
    {"usnicConfig", AdapterAgent::kUsnicConfig, kRequiredSlot},
    {"enic", AdapterAgent::kEnic, kRequiredSlot},
    {"ptsEnic", AdapterAgent::kPtsEnic, kRequiredSlot},
    {"fnic", AdapterAgent::kFnic, kRequiredSlot},
    {"fnicChild", AdapterAgent::kFnicChild, kTokens},
    {"adapterChild", AdapterAgent::kAdapterChild, kTokens},
    {"portProfileExists", AdapterAgent::kPortProfileExists, kTokens},
    {"channelStatus", AdapterAgent::kChannelStatus, kTokens},
    {"bootableVnicCount", AdapterAgent::kBootableVnicCount, kTokens},
    {"ptsEnicCount", AdapterAgent::kPtsEnicCount, kTokens},
    {"allAdapterDetails", AdapterAgent::kAllAdapterDetails, kNoCard},
    {"allKORIEStatus", AdapterAgent::kAllKORIEStatus, kNoCard},
    {"numOfAdaptors", AdapterAgent::kNumOfAdaptors, kNoCard},
    {"numOfEthHostIfs", AdapterAgent::kNumOfEthHostIfs, kNoCard},
    {"numOfFcHostIfs", AdapterAgent::kNumOfFcHostIfs, kNoCard},
};

// Token forms: how many tokens are required, and the message for fewer.
struct TokenForm {
    AdapterAgent::GetProperty property;
    size_t required;
    const char* message;
};
const TokenForm kTokenForms[] = {
    {AdapterAgent::kFnicChild, 3, " invalid params for get=%s[slot child_class vnic_name]"},
    {AdapterAgent::kAdapterChild, 2, " invalid params for get=%s[slot child_class]"},
    {AdapterAgent::kPortProfileExists, 3, " invalid params for get=%s[slot uplid profilename]"},
    {AdapterAgent::kChannelStatus, 4, " invalid params for get=%s[slot uplid vnicname channel-number]"},
    {AdapterAgent::kBootableVnicCount, 1, " invalid params for get=%s[slot]"},
    {AdapterAgent::kPtsEnicCount, 1, " invalid params for get=%s[slot]"},
};

const char* const kGetNames[] = {"adapter",
                                 "adapterFW",
                                 "adapterPcieLinkWidth",
                                 "adapterFWStatus",
                                 "tarqAdapterFWVerAndStatus",
                                 "nextOrder",
                                 "isVnicAvailable",
                                 "iscsiBoot",
                                 "usnicConfig",
                                 "enic",
                                 "ptsEnic",
                                 "fnic",
                                 "fnicChild",
                                 "adapterChild",
                                 "portProfileExists",
                                 "channelStatus",
                                 "bootableVnicCount",
                                 "ptsEnicCount",
                                 "allAdapterDetails",
                                 "allKORIEStatus",
                                 "numOfAdaptors",
                                 "numOfEthHostIfs",
                                 "numOfFcHostIfs",
                                 nullptr};

// A whole, non-negative decimal that fits an int.
bool parseSlot(const std::string& text, int& slot)
{
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    long long value = atoll(text.c_str());
    if (value > 2147483647LL) {
        return false;
    }
    slot = static_cast<int>(value);
    return true;
}

std::vector<std::string> splitBlanks(const std::string& text)
{
    std::vector<std::string> tokens;
    size_t i = 0;
    while (i < text.size()) {
        size_t start = text.find_first_not_of(" \t\r\n\f\v", i);
        if (start == std::string::npos) {
            break;
        }
        size_t end = text.find_first_of(" \t\r\n\f\v", start);
        tokens.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        i = end == std::string::npos ? text.size() : end;
    }
    return tokens;
}

// Tool text for element content: markup characters escaped, control bytes
// (but tabs) dropped.
std::string xmlText(const char* text)
{
    std::string out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != '\0'; ++p) {
        switch (*p) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            default:
                if (*p >= 0x20 || *p == '\t') {
                    out += static_cast<char>(*p);
                }
        }
    }
    return out;
}

// A key that can stand as an element name: a letter or "_" first, then
// letters, digits, "-", "_" and ".".
bool xmlName(const char* key, size_t length)
{
    if (length == 0 || !(isalpha(static_cast<unsigned char>(key[0])) || key[0] == '_')) {
        return false;
    }
    for (size_t i = 1; i < length; ++i) {
        unsigned char c = static_cast<unsigned char>(key[i]);
        if (!(isalnum(c) || c == '-' || c == '_' || c == '.')) {
            return false;
        }
    }
    return true;
}

}  // namespace

const char* const* AdapterAgent::getNames()
{
    return kGetNames;
}

int AdapterAgent::preProcessGet(std::string& name, std::string& extra)
{
    const GetEntry* entry = nullptr;
    for (const GetEntry& e : kGetTable) {
        if (name == e.name) {
            entry = &e;
        }
    }
    if (entry == nullptr) {
        return 1;
    }
    m_get[entry->property] = true;
    const char* property = entry->name;

    if (entry->form == kNoCard) {
        return 1;
    }
    if (entry->form == kOptionalSlot || entry->form == kRequiredSlot) {
        size_t open = extra.find('[');
        if (open == std::string::npos) {
            if (entry->form == kRequiredSlot) {
                throw ProcessingException("card index required for get=%s ", property);
            }
            return 1;
        }
        size_t blank = extra.find(' ', open);
        if (blank == std::string::npos) {
            size_t close = extra.find(']', open);
            std::string slotText =
                extra.substr(open + 1, close == std::string::npos ? std::string::npos : close - open - 1);
            if (!parseSlot(slotText, m_cardIndex)) {
                throw ProcessingException("invalid index specified for get=%s[%s] ", property, extra.c_str());
            }
            m_cardIndexText = slotText;
        } else {
            m_cardIndexText = extra.substr(open + 1, blank - open - 1);
            m_cardIndex = getCardIndex(m_cardIndexText);
            std::string rest = extra.substr(blank + 1);
            if (!rest.empty()) {
                rest.pop_back();  // the closing bracket
            }
            if (entry->property == kAdapter) {
                m_detailSelector = atoi(rest.c_str()) > 3 ? "1" : rest;
            } else if (entry->form == kRequiredSlot) {
                m_vnicName = rest;
                checkUserText(m_vnicName, property);
            }
        }
        bool resolve = entry->form == kRequiredSlot ||
                       (entry->property == kAdapter ? m_detailSelector == "1" && m_cardIndex >= 1 : true);
        if (resolve) {
            locateMPAddress(property, m_cardIndex, m_cardMac, m_cardInterface);
        }
        return 1;
    }

    // Token forms.
    const TokenForm* form = nullptr;
    for (const TokenForm& f : kTokenForms) {
        if (f.property == entry->property) {
            form = &f;
        }
    }
    std::string inner = extra.size() >= 2 ? extra.substr(1, extra.size() - 2) : "";
    std::vector<std::string> tokens = splitBlanks(inner);
    if (tokens.size() < form->required) {
        throw ProcessingException(form->message, property);
    }
    m_cardIndexText = tokens[0];
    m_cardIndex = getCardIndex(tokens[0]);
    switch (entry->property) {
        case kFnicChild:
            m_childClass = tokens[1];
            m_vnicName = tokens[2];
            if (tokens.size() > 3) {
                m_childIndex = tokens[3];
            }
            break;
        case kAdapterChild:
            m_childClass = tokens[1];
            if (tokens.size() > 2) {
                m_childIndex = tokens[2];
            }
            break;
        case kPortProfileExists:
            m_childIndex = tokens[1];
            m_profileName = tokens[2];
            break;
        case kChannelStatus:
            m_childIndex = tokens[1];
            m_vnicName = tokens[2];
            m_channelNumber = tokens[3];
            break;
        default:
            break;
    }
    // Beyond the original (which only quotes some of them): every text bound
    // for a command line is checked before anything runs.
    for (const std::string* text : {&m_vnicName, &m_childIndex, &m_profileName, &m_channelNumber}) {
        checkUserText(*text, property);
    }

    locateMPAddress(property, m_cardIndex, m_cardMac, m_cardInterface);
    switch (entry->property) {
        case kFnicChild:
            if (m_childClass != "Perbi" && m_childClass != "BootTable") {
                throw ProcessingException(" invalid childClass %s for get=%s ", m_childClass.c_str(), "fnicChild");
            }
            break;
        case kAdapterChild:
            if (m_childClass != "Uplink" && m_childClass != "PortProfiles") {
                throw ProcessingException(" invalid childClass %s for get=%s ", m_childClass.c_str(), "adapterChild");
            }
            if (m_childClass == "PortProfiles" && m_childIndex.empty()) {
                throw ProcessingException(" missing uplid %s for get=%s ", m_childClass.c_str(), "adapterChild");
            }
            log_tlog(1, "AdapterAgentGet.cpp %d: card child retrieval for <slot(%d)> <child_class(%s)> <index(%s)>\n",
                     __LINE__, m_cardIndex, m_childClass.c_str(), m_childIndex.c_str());
            break;
        case kPortProfileExists:
        case kChannelStatus:
            if (m_childIndex != "0" && m_childIndex != "1") {
                throw ProcessingException(" invalid childIndex %s for get=%s ", m_childIndex.c_str(), property);
            }
            if (entry->property == kPortProfileExists) {
                log_tlog(1,
                         "AdapterAgentGet.cpp %d: port profile exists check for <slot(%d)> <uplid(%s)> "
                         "<profile-name(%s)>\n",
                         __LINE__, m_cardIndex, m_childIndex.c_str(), m_profileName.c_str());
            } else {
                log_tlog(
                    1, "AdapterAgentGet.cpp %d: channel number check for <slot(%d)> <uplid(%s)> <channel-number(%s)>\n",
                    __LINE__, m_cardIndex, m_childIndex.c_str(), m_channelNumber.c_str());
            }
            break;
        case kPtsEnicCount:
            log_tlog(1, "AdapterAgentGet.cpp %d: PTS Enic count for <slot(%d)> \n", __LINE__, m_cardIndex);
            break;
        case kBootableVnicCount:
            log_tlog(1, "AdapterAgentGet.cpp %d: Bootable vnic count for <slot(%d)> \n", __LINE__, m_cardIndex);
            break;
        default:
            break;
    }
    return 1;
}

std::string AdapterAgent::wellFormedOutput(const std::string& output)
{
    std::string result;
    bool open = false;
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        std::string line = output.substr(start, end == std::string::npos ? std::string::npos : end - start);
        start = end == std::string::npos ? output.size() : end + 1;
        std::string clean;
        for (char c : line) {
            if (static_cast<unsigned char>(c) >= 0x20 || c == '\t') {
                clean += c;
            }
        }
        if (clean.compare(0, 3, "---") == 0) {
            result += "---\n";
            open = true;
            continue;
        }
        if (clean.compare(0, 3, "...") == 0) {
            result += "...\n";
            open = false;
            continue;
        }
        size_t colon = clean.find(':');
        if (colon == std::string::npos || colon > 64 || !xmlName(clean.c_str(), colon)) {
            continue;  // gives no element, or no well-formed one
        }
        // The element "<key>value</key>" must fit the conversion's 355
        // characters whole; the value is cut before an escape, never inside.
        std::string value = colon + 2 <= clean.size() ? xmlText(clean.c_str() + colon + 2) : "";
        size_t room = 355 - 2 * colon - 5;
        if (value.size() > room) {
            size_t cut = value.rfind('&', room);
            value.resize(cut != std::string::npos && value.find(';', cut) >= room ? cut : room);
        }
        result += clean.substr(0, colon) + ": " + value + "\n";
    }
    if (open) {
        result += "...\n";  // a tool that stopped early leaves no element open
    }
    return result;
}

int AdapterAgent::runQuery(const char* command, GUIDataSocket& socket, const char* tag, bool wrapList, bool extended)
{
    if (extended) {
        return queryBackend(command, socket, tag, m_backendError, m_backendErrorText, kNoData, kAgent, wrapList, true);
    }
    // Beyond the framework's conversion, which writes tool text as it comes:
    // the output is collected first and made safe (see wellFormedOutput),
    // then converted as prepared text; the tool's exit status still decides.
    std::string output;
    int status = invokeBackend(command, output, kAgent);
    free(m_backendText);
    m_backendText = strdup(wellFormedOutput(output).c_str());
    int rc = queryBackend(command, socket, tag, m_backendError, m_backendErrorText, kNoData, kAgent, wrapList, false);
    return status == 0 ? rc : -1;
}

int AdapterAgent::postProcessGet(ConnectionHandler& connection)
{
    GUIDataSocket& socket = connection.getSocket();
    int property = 0;
    while (property < kGetPropertyCount && !m_get[property]) {
        ++property;
    }
    if (property == kGetPropertyCount) {
        return m_status;
    }
    char command[1024];
    const std::string tool = PlatformRoot::path(mptoolPath());
    const std::string cardUtil = PlatformRoot::path(kCardUtil);
    const char* mpt = tool.c_str();
    const char* vif = m_cardInterface.c_str();
    const char* mac = m_cardMac.c_str();
    const char* vnic = m_vnicName.c_str();
    bool haveSlot = m_cardIndex >= 1;
    // A command that did not fit its buffer never runs: the read fails.
#define BUILD(...)                                       \
    if (!format(command, sizeof command, __VA_ARGS__)) { \
        return 2;                                        \
    }
    int rc = 0;
    switch (property) {
        case kAdapter: {
            bool details = m_detailSelector == "1" && haveSlot;
            if (details) {
                BUILD("%s -i %s %s vorn_getadapter yaml --detail", mpt, vif, mac);
                rc = queryForGetAdapter(command, socket, "Adapter", m_cardIndex);
            } else {
                BUILD("%s -L", cardUtil.c_str());
                rc = runQuery(command, socket, "Adapter", true, false);
            }
            if (rc != 0) {
                return 2;
            }
            if (m_backendError) {
                throw ProcessingException("%s", m_backendErrorText.c_str());
            }
            if (details) {
                BUILD("%s -i %s %s vorn_get_pts_eth_count yaml", mpt, vif, mac);
                rc = runQuery(command, socket, "pts-enic-count-result", true, false);
            }
            break;
        }
        case kAllKORIEStatus: {
            char line[256] = "";
            FILE* f = fopen(PlatformRoot::path(kIeStatusFile).c_str(), "r");
            if (f != nullptr) {
                if (fgets(line, sizeof line, f) == nullptr) {
                    line[0] = '\0';
                }
                fclose(f);
            }
            socket.writeSimpleElement("allKORIEStatus", line[0] != '\0' ? line : "NONE");
            return 1;
        }
        case kAdapterFW:
            command[0] = '\0';
            if (haveSlot) {
                BUILD("%s -i %s %s fwlist yaml --detail", mpt, vif, mac);
            }
            rc = runQuery(command, socket, "AdapterFW", true, false);
            break;
        case kAdapterPcieLinkWidth:
            rc = pcieLinkWidth(haveSlot, socket);
            break;
        case kTarqAdapterFWVerAndStatus:
            BUILD("%s -i %s %s fwlist yaml --detail", mpt, vif, mac);
            rc = runQuery(command, socket, "AdapterFW", true, false);
            if (rc == 0) {
                BUILD("%s -i %s %s fwstatus ", mpt, vif, mac);
                rc = runQuery(command, socket, "AdapterFWStatus", true, false);
            }
            break;
        case kAdapterFWStatus:
            command[0] = '\0';
            if (haveSlot) {
                BUILD("%s -i %s %s fwstatus ", mpt, vif, mac);
            }
            rc = runQuery(command, socket, "AdapterFWStatus", true, false);
            break;
        case kIscsiBoot:
            if (m_vnicName.empty()) {
                BUILD("%s -i %s %s vorn_listethvnics yaml --detail", mpt, vif, mac);
                rc = countISCSIBootVnic(command, socket);
            } else {
                BUILD("%s -i %s %s vorn_get_iscsiboot_params \"%s\" yaml --detail", mpt, vif, mac, vnic);
                rc = runQuery(command, socket, "iscsiBoot", true, false);
            }
            break;
        case kUsnicConfig:
            if (m_vnicName.empty()) {
                m_status = 2;
                throw ProcessingException("GDS %s command missing eth vNIC name input parameter.", "usnicConfig");
            }
            BUILD("%s -i %s %s vorn_get_usnic_params \"%s\" yaml --detail", mpt, vif, mac, vnic);
            rc = runQuery(command, socket, "usnicConfig", true, false);
            break;
        case kEnic:
        case kPtsEnic:
        case kFnic: {
            const char* list = property == kEnic      ? "vorn_listethvnics"
                               : property == kPtsEnic ? "vorn_listptsethvnics"
                                                      : "vorn_listfcvnics";
            const char* tag = property == kEnic ? "Enic" : property == kPtsEnic ? "PTSEnic" : "Fnic";
            if (m_vnicName.empty()) {
                BUILD("%s -i %s %s %s yaml --detail", mpt, vif, mac, list);
            } else {
                BUILD("%s -i %s %s vorn_getvnic \"%s\" --display all yaml --detail", mpt, vif, mac, vnic);
            }
            rc = runQuery(command, socket, tag, true, false);
            break;
        }
        case kNextOrder:
            socket.writeString("<nextOrder>NA</nextOrder>");
            return 1;
        case kIsVnicAvailable:
            socket.writeString("<avail>1</avail>");
            return 1;
        case kAllAdapterDetails:
            getAllAdapterDetails(socket);
            return 1;
        case kFnicChild:
            BUILD("%s -i %s %s vorn_getvnic \"%s\" --display %s yaml --detail ", mpt, vif, mac, vnic,
                  m_childClass == "Perbi" ? "perbi" : "boot");
            rc = runQuery(command, socket, m_childClass.c_str(), true, false);
            break;
        case kAdapterChild:
            if (m_childClass == "Uplink") {
                return uplinkChild(socket);
            }
            BUILD("%s -i %s %s vorn_listportprofiles %s yaml --detail", mpt, vif, mac, m_childIndex.c_str());
            rc = runQuery(command, socket, "PortProfiles", false, true);
            break;
        case kPortProfileExists:
            BUILD("%s -i %s %s vorn_portprofileexists %s %s yaml --detail", mpt, vif, mac, m_childIndex.c_str(),
                  m_profileName.c_str());
            rc = runQuery(command, socket, "port-profile-check", false, false);
            break;
        case kChannelStatus:
            BUILD("%s -i %s %s vorn_vnic_niv_chnl_status \"%s\" %s %s yaml", mpt, vif, mac, vnic,
                  m_channelNumber.c_str(), m_childIndex.c_str());
            rc = runQuery(command, socket, "channel-status-result", false, false);
            break;
        case kBootableVnicCount:
            rc = bootEnabledVnicCount(socket);
            break;
        case kPtsEnicCount:
            BUILD("%s -i %s %s vorn_get_pts_eth_count yaml", mpt, vif, mac);
            rc = runQuery(command, socket, "pts-enic-count-result", true, false);
            break;
        default:  // the three counters
            getNumOfAdapterDetailForTARQComputeRackUnit(socket);
            if (m_get[kNumOfAdaptors]) {
                socket.writeSimpleElement("numOfAdaptors", m_numAdapters);
            }
            if (m_get[kNumOfEthHostIfs]) {
                socket.writeSimpleElement("numOfEthHostIfs", m_numEthHostIfs);
            }
            if (m_get[kNumOfFcHostIfs]) {
                socket.writeSimpleElement("numOfFcHostIfs", m_numFcHostIfs);
            }
            return 1;
    }
#undef BUILD
    return rc == 0 ? 1 : 2;
}

int AdapterAgent::uplinkChild(GUIDataSocket& socket)
{
    const char* uplink = m_childIndex.empty() ? "all" : m_childIndex.c_str();
    static const char* const kCommands[3][2] = {
        {"vorn_getuplink", "Uplink"}, {"vorn_get_an_status", "LinkStatus"}, {"vorn_getconnector", "ConnectorInfo"}};
    char command[1024];
    for (int i = 0; i < 3; ++i) {
        if (!format(command, sizeof command, "%s -i %s %s %s %s yaml", PlatformRoot::path(mptoolPath()).c_str(),
                    m_cardInterface.c_str(), m_cardMac.c_str(), kCommands[i][0], uplink)) {
            return 2;
        }
        int status = system_secure(command);
        if (status != 0) {
            if (i == 2) {
                return 1;
            }
            continue;
        }
        if (runQuery(command, socket, kCommands[i][1], true, false) != 0) {
            return 2;
        }
    }
    return 1;
}

int AdapterAgent::queryForGetAdapter(const char* command, GUIDataSocket& socket, const char* element, int slot)
{
    Pipe tool;
    if (!tool.open(command)) {
        log_tlog(1, "AdapterAgentGet.cpp %d: %s::queryBackend(%s) failed to run\n", __LINE__, kAgent, command);
        return -1;
    }
    char text[300];
    snprintf(text, sizeof text, "<%sList>", element);
    socket.writeString(text);
    int rc = xmlizeAdapter(tool.stream, socket, element, m_backendError, m_backendErrorText, kNoData);
    int ret = tool.close();
    int result = 0;
    if (rc != 0 || ret != 0) {
        log_tlog(1, "AdapterAgentGet.cpp %d: %s::queryBackend(%s) rc %d ret %d\n", __LINE__, kAgent, command, rc, ret);
        result = -1;
    }
    if (result == 0) {
        // "cardutil -l SLOT | grep description", the grep in the server.
        const std::string description = PlatformRoot::path(kCardUtil) + " -l " + std::to_string(slot);
        if (tool.open(ToolRun::program({PlatformRoot::path(kCardUtil), "-l", std::to_string(slot)},
                                       {{ToolFilter::Step::kGrep, "description"}}))) {
            bool flag = false;
            std::string errorText;
            rc = xmlizeAdapter(tool.stream, socket, element, flag, errorText, kNoData);
            ret = tool.close();
            if (rc != 0 || ret != 0) {
                log_tlog(1, "AdapterAgentGet.cpp %d: %s::queryBackend(%s) rc %d ret %d\n", __LINE__, kAgent,
                         description.c_str(), rc, ret);
                result = -1;
            }
        } else {
            result = -1;
        }
    }
    snprintf(text, sizeof text, "</%sList>", element);
    socket.writeString(text);
    log_tlog(1, "AdapterAgentGet.cpp %d: %s::queryBackend(%s) returning %d\n", __LINE__, kAgent, command, result);
    return result;
}

int AdapterAgent::xmlizeAdapter(FILE* file, GUIDataSocket& socket, const char* element, bool& errorFlag,
                                std::string& errorText, const char* pcCompStr)
{
    errorFlag = false;
    errorText.clear();
    if (file == nullptr || element == nullptr || pcCompStr == nullptr) {
        return -1;
    }
    char line[356];
    bool open = false;
    bool skipping = false;
    std::string out;
    bool wholeLine = true;
    while (fgets(line, sizeof line, file) != nullptr) {
        bool startsLine = wholeLine;
        size_t length = strlen(line);
        wholeLine = length > 0 && line[length - 1] == '\n';
        if (!startsLine) {
            continue;  // the rest of a line longer than 355 characters
        }
        if (strncmp(line, "error:", 6) == 0) {
            line[strcspn(line, "\r\n")] = '\0';
            const char* text = strlen(line) >= 7 ? line + 7 : "";
            if (strcmp(text, pcCompStr) == 0) {
                continue;
            }
            if (strlen(text) > 1) {
                errorText = text;
                errorFlag = true;
            }
        } else if (strncmp(line, "---", 3) == 0) {
            out = open ? "</" + std::string(element) + "><" + element + ">" : "<" + std::string(element) + ">";
            socket.writeString(out.c_str());
            open = true;
            continue;
        } else if (strncmp(line, "...", 3) == 0) {
            if (open) {
                out = "</" + std::string(element) + ">";
                socket.writeString(out.c_str());
                open = false;
            }
            continue;
        }
        line[strcspn(line, "\r\n")] = '\0';
        const char* start = line;
        while (*start == ' ' || *start == '\t') {
            ++start;
        }
        if (strncasecmp(start, "running-kor-cfg", 15) == 0) {
            skipping = true;
            continue;
        }
        if (skipping) {
            if (strncasecmp(start, "startup-kor-cfg", 15) == 0) {
                skipping = false;
            }
            continue;
        }
        const char* colon = strchr(start, ':');
        if (colon == nullptr) {
            continue;
        }
        size_t keyLength = static_cast<size_t>(colon - start);
        if (!xmlName(start, keyLength)) {
            continue;  // no well-formed element can carry it
        }
        const char* value = colon[1] == '\0' ? "" : colon + 2;
        std::string key(start, keyLength);
        out = "<" + key + ">" + xmlText(value) + "</" + key + ">";
        socket.writeString(out.c_str());
    }
    if (open) {  // a tool that stopped early leaves no element open
        out = "</" + std::string(element) + ">";
        socket.writeString(out.c_str());
    }
    return 0;
}

int AdapterAgent::getAllAdapterDetails(GUIDataSocket& socket)
{
    char command[1024];
    Pipe listing;
    if (!format(command, sizeof command, "%s -L", PlatformRoot::path(kCardUtil).c_str()) || !listing.open(command)) {
        m_log.logError("could not load discovered cards\n");
        return -1;
    }
    socket.writeString("<AdapterList>");
    parseCardListing(listing.stream, true, [&](const CardRecord& card) {
        std::string product = "NA";
        int slot = getCardIndex(card.slot);
        // The card's own texts go into this command line: they must be
        // plain words too.
        bool plain = plainWord(card.interface) && plainWord(card.mac);
        // "mptool -i IF MAC vorn_getadapter yaml | grep "product-name" |
        // awk -F": " '{print $2}'": the tool alone, the filters in the server.
        Pipe tool;
        if (plain && canTalkToCard(slot) &&
            tool.open(ToolRun::program(
                {PlatformRoot::path(kFixedMpTool), "-i", card.interface, card.mac, "vorn_getadapter", "yaml"},
                {{ToolFilter::Step::kGrep, "product-name"}, {ToolFilter::Step::kField, ": ", 2}}))) {
            char line[256];
            if (fgets(line, sizeof line, tool.stream) != nullptr && line[0] != '\0') {
                line[strlen(line) - 1] = '\0';
                product = line;
            }
            tool.close();
        }
        std::string out = "<Adapter><slot-number>" + xmlText(card.slot.c_str()) + "</slot-number><card-type>" +
                          xmlText(card.type.c_str()) + "</card-type><product-name>" + xmlText(product.c_str()) +
                          "</product-name><hw-revision>" + xmlText(card.hwRevision.c_str()) +
                          "</hw-revision><standby-power>" + xmlText(card.standbyPower.c_str()) +
                          "</standby-power><actions-blocked>" + xmlText(card.actionsBlocked.c_str()) +
                          "</actions-blocked></Adapter>";
        socket.writeString(out.c_str());
    });
    socket.writeString("</AdapterList>");
    int rc = listing.close();
    if (rc != 0) {
        m_log.logError("unable to discover cards. cardutil returned %d\n", rc);
    }
    return 0;
}

// "cardutil -P SLOT | grep "PCIe link width" | awk -F":   " '{print $2}'":
// the card utility alone, the filters in the server.
int AdapterAgent::pcieLinkWidth(bool haveSlot, GUIDataSocket& socket)
{
    const std::string command = PlatformRoot::path(kCardUtil) + " -P " + std::to_string(m_cardIndex);
    Pipe tool;
    if (!haveSlot || !tool.open(ToolRun::program(
                         {PlatformRoot::path(kCardUtil), "-P", std::to_string(m_cardIndex)},
                         {{ToolFilter::Step::kGrep, "PCIe link width"}, {ToolFilter::Step::kField, ":   ", 2}}))) {
        m_log.logError("AdapterAgent::pcieLinkWidth(%s) failed to run\n", command.c_str());
        return -1;
    }
    char line[256] = "";
    if (fgets(line, sizeof line, tool.stream) != nullptr && line[0] != '\0') {
        line[strlen(line) - 1] = '\0';
    }
    int ret = tool.close();
    log_tlog(1, "AdapterAgentGet.cpp %d: PCIe Link Width %s\n", __LINE__, line);
    if (ret != 0) {
        m_log.logError("AdapterAgent::pcieLinkWidth(%s) ret %d\n", command.c_str(), ret);
        return -1;
    }
    std::string out = "<adapterPcieLinkWidth>" + xmlText(line) + "</adapterPcieLinkWidth>";
    socket.writeString(out.c_str());
    return 0;
}

int AdapterAgent::bootEnabledVnicCount(GUIDataSocket& socket)
{
    char command[1024];
    if (!format(command, sizeof command, "%s -i %s %s vorn_bootable_vnics yaml",
                PlatformRoot::path(mptoolPath()).c_str(), m_cardInterface.c_str(), m_cardMac.c_str())) {
        return -1;
    }
    Pipe tool;
    if (!tool.open(command)) {
        m_log.logError("AdapterAgent::bootEnabledVnicCount(%s) failed to run\n", command);
        return -1;
    }
    int count = 0;
    char line[256];
    while (fgets(line, sizeof line, tool.stream) != nullptr) {
        if (strncmp(line, "num-bootable-vnics", 18) == 0) {
            line[strcspn(line, "\r\n")] = '\0';
            const char* value = strstr(line, ": ");
            value = value != nullptr ? value + 2 : "";
            count = atoi(value);
            log_tlog(1, "AdapterAgentGet.cpp %d: vorn_bootable_vnics %s=%s  vallen=%d\n", __LINE__,
                     "num-bootable-vnics", value, static_cast<int>(strlen(value)));
        }
    }
    int ret = tool.close();
    if (ret != 0) {
        m_log.logError("AdapterAgent::bootEnabledVnicCount(%s) ret %d\n", command, ret);
        return -1;
    }
    char out[160];
    snprintf(out, sizeof out,
             "<boot-enabled-vnics-count>%d</boot-enabled-vnics-count><max-bootable-vnics>%d</max-bootable-vnics>",
             count, 4);
    socket.writeString(out);
    return 0;
}

int AdapterAgent::countISCSIBootVnic(const char* command, GUIDataSocket& socket)
{
    Pipe tool;
    if (!tool.open(command)) {
        m_log.logError("AdapterAgent::countISCSIBootVnic(%s) failed to run\n", command);
        return -1;
    }
    int count = 0;
    char line[356];
    while (fgets(line, sizeof line, tool.stream) != nullptr) {
        if (strncmp(line, "---", 3) == 0 || strncmp(line, "...", 3) == 0) {
            continue;
        }
        line[strcspn(line, "\r\n")] = '\0';
        char* colon = strchr(line, ':');
        if (colon == nullptr) {
            continue;
        }
        *colon = '\0';
        const char* value = colon[1] == '\0' ? "" : colon + 2;
        log_tlog(1, "AdapterAgentGet.cpp %d: AdapterAgent::countISCSIBootVnic(%s:%s)\n", __LINE__, line, value);
        if (strcmp(line, "iscsi-boot") == 0 && strcmp(value, "enabled") == 0) {
            ++count;
        }
    }
    int ret = tool.close();
    int result = 0;
    if (ret != 0) {
        m_log.logError("AdapterAgent::countISCSIBootVnic(%s) rc %d ret %d\n", command, 0, ret);
        result = -1;
    } else {
        socket.writeSimpleElement("iscsiBootCount", count);
    }
    log_tlog(1, "AdapterAgentGet.cpp %d: AdapterAgent::countISCSIBootVnic(%s) returning %d\n", __LINE__, command,
             result);
    return result;
}

int AdapterAgent::getNumOfAdapterDetailForTARQComputeRackUnit(GUIDataSocket& socket)
{
    m_numAdapters = m_numEthHostIfs = m_numFcHostIfs = 0;
    char command[1024];
    Pipe tool;
    if (!format(command, sizeof command, "%s -L |%s  ", PlatformRoot::path(kCardUtil).c_str(),
                PlatformRoot::path(kParseScript).c_str()) ||
        !tool.open(command)) {
        return 0;
    }
    char line[256];
    while (fgets(line, sizeof line, tool.stream) != nullptr) {
        line[strcspn(line, "\r\n")] = '\0';
        int values[3] = {0, 0, 0};
        char* save = nullptr;
        char* field = strtok_r(line, ":", &save);
        for (int i = 0; i < 3 && field != nullptr; ++i, field = strtok_r(nullptr, ":", &save)) {
            values[i] = atoi(field);
        }
        m_numAdapters = values[0];
        m_numEthHostIfs = values[1];
        m_numFcHostIfs = values[2];
    }
    tool.close();
    return 0;
}
