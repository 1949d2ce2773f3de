// AdapterAgent: every property of the server's virtual interface cards: card
// discovery (the card utility's listing, cached for the whole process), the
// reads through the card utility and the management-processor tool, and the
// checks and actions of configuration requests.
// One agent per connection, used on its thread only; the card cache, the
// network-mode memory and the firmware-update marks are shared by all agents
// and guarded by the class's mutex. The agent owns nothing outside itself.
#pragma once

#include <sys/types.h>
#include <array>
#include <bitset>
#include <condition_variable>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DataAgent.h"
#include "ToolRun.h"

class AIMClient;

// What a set request asks for, recorded by preProcessSet for postProcessSet;
// a base of the agent so that one assignment resets it for every request.
struct AdapterSetFields {
    std::string m_fipMode, m_vntagMode, m_lldp, m_portChannel, m_passthrough;
    std::string m_description;
    bool m_descriptionSet = false;
    int m_ptsEnicCount = -1;
    bool m_standbyRequested = false;
    short m_standbyAction = 0;
    int m_uplinkNumber = -1;
    std::string m_uplinkSpeed, m_linkTraining;
    int m_configOperation = -1;
    std::string m_remoteProtocol, m_remoteAddress, m_remotePath, m_remoteUser, m_remotePassword;
    bool m_enicCreate = false, m_enicModify = false, m_fnicCreate = false, m_fnicModify = false;
    bool m_iscsiBootConfigure = false, m_usnicConfigure = false;
    int m_usnicCount = -1;
    bool m_deleteVnic = false, m_iscsiBootDelete = false;
    bool m_createFnicChild = false, m_deleteFnicChild = false, m_fnicBootTableModify = false;
    std::string m_bootTargetWwpn;
    int m_bootTargetLun = -1;
    bool m_clearPersistentBindings = false, m_adapterReset = false, m_adapterFactoryReset = false;
    bool m_adapterUpdate = false, m_adapterActivate = false, m_adapterCancelUpdate = false;
    bool m_updateOption = false;
    int m_firmwareId = -1;
    std::vector<int> m_updateSlots;
};

class AdapterAgent : public DataAgent, protected AdapterSetFields {
public:
    explicit AdapterAgent(DataHandler& handler);
    ~AdapterAgent() override = default;

    int initialize() override;
    int preProcessGet(std::string& name, std::string& extra) override;
    int processGet() override { return m_status; }
    int postProcessGet(ConnectionHandler& connection) override;
    int preProcessSet(std::string& name, TokenMap& arguments) override;
    int processSet() override { return 1; }
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override;

    // Every property name the agent serves (gets, then sets), null-terminated;
    // the handler library registers them.
    static const char* const* getNames();
    static const char* const* setNames();

    // --- card discovery and resolution ---
    // One card of the card utility's listing ("-L"): its records start at
    // "---", the listing ends at "..."; lines are "key: value".
    struct CardRecord {
        std::string slot, mac, interface, type, hwRevision, standbyPower, actionsBlocked;
        bool complete() const { return !slot.empty() && !mac.empty() && !interface.empty() && !type.empty(); }
        bool completeDetails() const
        {
            return complete() && !hwRevision.empty() && !standbyPower.empty() && !actionsBlocked.empty();
        }
    };
    // Reads a listing: `onCard` is called for every record once its four
    // (with `details`, seven) values are known; later lines of that record
    // are ignored until the next "---". Lines longer than 255 characters
    // are ignored.
    template <typename F>
    static void parseCardListing(FILE* listing, bool details, F onCard);

    // Slot -> MAC address, virtual interface, card type.
    using CardMap = std::map<int, std::vector<std::string>>;
    // Fills the card cache when it is empty or the controller's network mode
    // (or its card slot) changed since it was filled, and hands back the
    // current listing (never changed afterwards; null when none was made).
    // The tools run without the class's lock; while another connection
    // refills, this waits for that refill and takes its listing.
    std::shared_ptr<const CardMap> loadCards();
    static void clearCardsCache();
    // Resolves a slot to its card; throws ProcessingException (status 2)
    // when the slot holds no managed card or the card cannot be addressed.
    void locateMPAddress(const char* method, int slot, std::string& mac, std::string& interface);
    // True when the card is (active or the host is on), its actions are
    // enabled and it is not too hot.
    bool canTalkToCard(int slot);
    // The controller's network mode and its card slot from the property
    // service ("netGetCurrentIfConfig"); the mode, or -99 (mode and slot
    // unchanged) when the service fails.
    int getNetMode(int* mode, int* slot);
    static int getCardIndex(const std::string& text);
    // An argument that must be a number (an action, an uplink, a LUN, a
    // firmware id, an option): RequestToken::getInt, which throws
    // ProcessingException "Cannot parse int from "%s"" for other text.
    static int number(const std::string& text);
    // The management-processor tool's controller path: MPTOOL_PATH, or the
    // default. Chosen once per process.
    static const std::string& mptoolPath();
    static size_t cachedCardCount();

    // --- reads; each returns 0 on success and -1 on failure ---
    int queryForGetAdapter(const char* command, GUIDataSocket& socket, const char* element, int slot);
    // Tool output as elements inside an open list: "---"/"..." open and close
    // `element`, "key: value" lines become elements; the section from a
    // "running-kor-cfg" line to the "startup-kor-cfg" line is dropped, as is
    // an error line whose text is `pcCompStr`. Unlike the framework's
    // conversion, values are escaped and lines whose key is no XML name are
    // dropped, and a document still open at the end is closed, so any tool
    // output gives a well-formed reply. A line keeps its first 355 characters.
    int xmlizeAdapter(FILE* file, GUIDataSocket& socket, const char* element, bool& errorFlag, std::string& errorText,
                      const char* pcCompStr);
    int getAllAdapterDetails(GUIDataSocket& socket);
    int pcieLinkWidth(bool haveSlot, GUIDataSocket& socket);
    int bootEnabledVnicCount(GUIDataSocket& socket);
    int countISCSIBootVnic(const char* command, GUIDataSocket& socket);
    int getNumOfAdapterDetailForTARQComputeRackUnit(GUIDataSocket& socket);

    // Removes leading and trailing blanks, tabs and double quotes.
    static void trim(std::string& text);
    // True when the text resolves as an IPv6 address.
    static bool isv6check(const char* text);

    // The get properties, in the order postProcessGet answers them.
    enum GetProperty {
        kAdapter,
        kAllKORIEStatus,
        kAdapterFW,
        kAdapterPcieLinkWidth,
        kTarqAdapterFWVerAndStatus,
        kAdapterFWStatus,
        kIscsiBoot,
        kUsnicConfig,
        kEnic,
        kNextOrder,
        kIsVnicAvailable,
        kPtsEnic,
        kFnic,
        kAllAdapterDetails,
        kFnicChild,
        kAdapterChild,
        kPortProfileExists,
        kChannelStatus,
        kBootableVnicCount,
        kPtsEnicCount,
        kNumOfAdaptors,
        kNumOfEthHostIfs,
        kNumOfFcHostIfs,
        kGetPropertyCount
    };

    // Tool output made safe for the framework's conversion: control bytes
    // dropped, values escaped, lines whose key is no XML name dropped, each
    // element short enough to be written whole, an open document closed.
    static std::string wellFormedOutput(const std::string& output);

protected:
    // A tool's output as a stream (ToolRun: no shell, filters in the
    // server; the children start clean). Closing gives the exit status.
    struct Pipe {
        FILE* stream = nullptr;
        ToolRun run;
        bool open(const char* command);
        bool open(const ToolRun::Command& command);
        int close();
    };

    AIMClient& aim();
    // Formats a command into `buffer`; false (logged) when it does not fit,
    // so a cut command never runs.
    bool format(char* buffer, size_t size, const char* fmt, ...) __attribute__((format(printf, 4, 5)));
    // Refuses request text that would reach a command line: it must pass
    // system_check_user_input(text, "general_rule") and may not begin with
    // "-" (a tool would read it as an option). Throws ProcessingException
    // naming `property`.
    static void checkUserText(const std::string& text, const char* property);
    // Not empty, no leading "-", passes "general_rule".
    static bool plainWord(const std::string& text);
    // Request text echoed in a message: at most its first 255 characters.
    // The text is shown as it came (also when it is refused); the error
    // reply escapes markup and control characters.
    static std::string shown(const std::string& text);
    int runQuery(const char* command, GUIDataSocket& socket, const char* tag, bool wrapList, bool extended);
    int uplinkChild(GUIDataSocket& socket);
    // Clears the fields that set requests record.
    void resetSetFields() { static_cast<AdapterSetFields&>(*this) = AdapterSetFields(); }
    // --- set checks ---
    enum ValType { kAddress = 0, kPath = 1, kProtocol = 2 };
    // The external validators; throw ProcessingException when they refuse.
    void validate(ValType type, const std::string& value);
    // The property validator for one vNIC property; true when it accepts,
    // its output appended to `output`. `name` and `text` must be plain.
    bool validate(std::string& value, const std::string& name, std::string& text, std::string& output);
    bool anySetRecorded() const;
    void checkSetName(std::string& name, TokenMap& arguments);
    void vnicIndex(const std::string& name, TokenMap& arguments);
    void bootTableIndex(TokenMap& arguments);
    void adapterIndex(TokenMap& arguments);
    void configRequest(std::vector<std::string>& args);
    void updateRequest(std::vector<std::string>& args);
    void slotList(const char* operation, std::vector<std::string>& args, size_t first);
    void vnicProperties(TokenMap& arguments);
    // Actions.
    void adapterParameters();
    // Starts argv[0] with `argv` (no shell), writes `line` to its standard
    // input and waits: its exit status, or -1 when it could not be run or
    // fed. Its output goes to the trace log.
    int writeToTool(const char* const argv[], const std::string& line);
    void resetAdapter(int slot);
    int triggerHalvricNetChange();
    // Waits `seconds`, scaled by GDS_ADAPTER_PAUSE_SCALE.
    void pause(int seconds);

    // vNIC, iSCSI boot, usNIC and boot-table actions (AdapterAgentVnic.cpp).
    // `arguments` is the request's map as preProcessSet left it: for the
    // index forms the vNIC or boot-table properties still to be written.
    void vnicChange(TokenMap& arguments);
    void vnicRemoval(TokenMap& arguments);
    // Writes every entry of `arguments` ("name value " lines, key order) into
    // `propertyFile`, runs `command` (which names that file), and collects
    // its output. Refuses (-1, nothing run) an entry without a value, or a
    // name or value that fails "general_rule" (so no line end can add a
    // line). The exit status, or -1; the file is removed in every case.
    int updateBackend(const char* command, TokenMap& arguments, std::string& output, const char* propertyFile);
    // A fresh property-file path for one call (see AdapterAgentVnic.cpp).
    static std::string vnicPropertyFile();
    // Writes `lines` to a fresh property file and runs `command`, `joiner`
    // and the file's path ("... FILE" or "... < FILE"); the file is removed
    // afterwards. The exit status, or -1.
    int runWithPropertyFile(const std::string& lines, const char* command, const char* joiner, std::string& output);
    // The first iSCSI-bootable vNIC of the card other than `except` ("" when
    // none or the tool fails).
    std::string otherIscsiBootVnic(const std::string& except);
    // Gives `vnic` the iSCSI initiator priority `priority` (the partner
    // vNIC's side of a configuration or a delete); failures are logged.
    void setIscsiPriority(const std::string& vnic, const char* priority);
    void bootTableChange(TokenMap& arguments);

    // Transfers: configuration import and export, firmware update,
    // activation and cancellation (AdapterAgentTransfer.cpp).
    void prepareTransfer();
    void configTransfer();
    void firmwareAction();
    // A transfer of `localFile` (controller path) to (upload) or from the
    // remote server; the transfer client's exit status, or -1 when the
    // command cannot be built or run. The password never reaches a log.
    int transfer(bool upload, const char* localFile);
    bool transferCommand(char* buffer, size_t size, bool upload, const std::string& localFile, const char* password);
    // Throws "Invalid Parameters" unless every remote text obeys its rule.
    void checkRemoteTexts();
    void removeFingerprint();
    void configAllCards();
    void firmwareUpdate();
    void firmwareActivate();
    void cancelUpdate();
    // Releases a card from its bypass reset after activation; throws the
    // slot (an int) when the card cannot be found or released.
    void bypassResetSequence(int slot);
    // Type codes of the cards that can be reset (and bypass-reset).
    static bool resettableType(int type);
    bool m_remoteIsIpv6 = false;
    std::string m_transferOptions;  // the transfer client's options, set for every set request
    // True while one agent downloads an image and starts updates (under
    // m_mutex, like updatingCards).
    static bool updateStarting;

    // Per request.
    std::array<bool, kGetPropertyCount> m_get{};
    int m_cardIndex = 0;
    std::string m_cardIndexText;
    std::string m_detailSelector;
    std::string m_vnicName;
    std::string m_cardInterface;
    std::string m_cardMac;
    std::string m_childClass;
    std::string m_childIndex;
    std::string m_profileName;
    std::string m_channelNumber;
    int m_numAdapters = 0;
    int m_numEthHostIfs = 0;
    int m_numFcHostIfs = 0;
    bool m_backendError = false;
    std::string m_backendErrorText;
    std::string m_setName;

    // Shared by every agent of the process.
    static std::mutex m_mutex;
    static std::shared_ptr<const CardMap> cardsById;    // the cache; null or empty: to be filled
    static std::shared_ptr<const CardMap> lastListing;  // the latest refill's listing
    static int previousNetMode;
    static int previousCardSlot;
    static bool refilling;                         // a connection is listing the cards
    static std::condition_variable cardsRefilled;  // signalled when that listing is in
    static std::bitset<128> updatingCards;
};

template <typename F>
void AdapterAgent::parseCardListing(FILE* listing, bool details, F onCard)
{
    static const char* const kMacKeys[] = {"vorn-mac", "quaile-mac", "dremm-mac", "tiskel-mac"};
    char line[256];
    bool collecting = false;
    bool wholeLine = true;  // the piece read starts a line
    CardRecord record;
    while (fgets(line, sizeof line, listing) != nullptr) {
        bool startsLine = wholeLine;
        size_t length = strlen(line);
        wholeLine = length > 0 && line[length - 1] == '\n';
        // A line longer than the buffer is dropped whole: its value would
        // be cut, and its later pieces are no lines of their own.
        if (!startsLine || (!wholeLine && length == sizeof line - 1)) {
            continue;
        }
        if (strncmp(line, "---", 3) == 0) {
            record = CardRecord();
            collecting = true;
            continue;
        }
        if (strncmp(line, "...", 3) == 0) {
            break;
        }
        if (!collecting) {
            continue;
        }
        line[strcspn(line, "\r\n")] = '\0';
        const char* colon = strchr(line, ':');
        if (colon == nullptr) {
            continue;
        }
        std::string key(line, static_cast<size_t>(colon - line));
        std::string value = colon[1] == '\0' ? "" : colon + 2;
        if (key == "slot-number") {
            record.slot = value;
        } else if (key == "virtual-eth-if") {
            record.interface = value;
        } else if (key == "card-type") {
            record.type = value;
        } else if (key == "hw-revision") {
            record.hwRevision = value;
        } else if (key == "standby-power") {
            record.standbyPower = value;
        } else if (key == "actions-blocked") {
            record.actionsBlocked = value;
        } else {
            for (const char* macKey : kMacKeys) {
                if (key == macKey) {
                    record.mac = value;
                }
            }
        }
        if (details ? record.completeDetails() : record.complete()) {
            onCard(record);
            collecting = false;
        }
    }
}
