// AdapterAgent: construction, per-request reset, the shared card cache and
// card resolution, and the helpers every read and action uses.
#include "AdapterAgent.h"

#include <fcntl.h>
#include <netdb.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>

#include "AIMClient.h"
#include "ConnectionHandler.h"
#include "DataHandler.h"
#include "GUIDataServer.h"
#include "InventoryAgent.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "card_config.h"
#include "clean_spawn.h"
#include "log_tlog.h"
#include "safeexec.h"

namespace {

const char kCardUtil[] = "/usr/local/bin/cardutil";
const char kDefaultMpTool[] = "/opt/flash/halvric/bin/mptool";
const int kNetConfigSize = 992;
const int kNetModeOffset = 128;
const int kNetSlotOffset = 129;

}  // namespace

bool AdapterAgent::plainWord(const std::string& text)
{
    return !text.empty() && text[0] != '-' && system_check_user_input(text.c_str(), "general_rule");
}

std::string AdapterAgent::shown(const std::string& text)
{
    return text.substr(0, 255);
}

std::mutex AdapterAgent::m_mutex;
std::shared_ptr<const AdapterAgent::CardMap> AdapterAgent::cardsById;
std::shared_ptr<const AdapterAgent::CardMap> AdapterAgent::lastListing;
int AdapterAgent::previousNetMode = -1;
int AdapterAgent::previousCardSlot = -1;
bool AdapterAgent::refilling = false;
std::condition_variable AdapterAgent::cardsRefilled;
std::bitset<128> AdapterAgent::updatingCards;

AdapterAgent::AdapterAgent(DataHandler& handler) : DataAgent("AdapterAgent", handler)
{
    m_status = 1;
    mptoolPath();
    if (card_config_lib_init() != 0) {
        m_log.logError("Adapter Subsystem unable to initialialize Card Library\n");
    }
}

const std::string& AdapterAgent::mptoolPath()
{
    // A function-local static: chosen once, thread-safe. The value is a
    // controller path (resolved below the platform root at each use); one
    // that a shell would split is not used.
    static const std::string path = [] {
        const char* env = getenv("MPTOOL_PATH");
        if (env != nullptr && plainWord(env)) {
            log_tlog(1, "AdapterAgent.cpp %d: Using MP tool at %s\n", __LINE__, env);
            return std::string(env);
        }
        log_tlog(1, "AdapterAgent.cpp %d: Using default MP tool\n", __LINE__);
        return std::string(kDefaultMpTool);
    }();
    return path;
}

int AdapterAgent::initialize()
{
    m_get.fill(false);
    m_cardIndex = 0;
    m_cardIndexText.clear();
    m_detailSelector.clear();
    m_vnicName.clear();
    m_cardInterface.clear();
    m_cardMac.clear();
    m_childClass.clear();
    m_childIndex.clear();
    m_profileName.clear();
    m_channelNumber.clear();
    m_numAdapters = m_numEthHostIfs = m_numFcHostIfs = 0;
    m_backendError = false;
    m_backendErrorText.clear();
    m_setName.clear();
    resetSetFields();
    m_status = 1;
    free(m_backendText);
    m_backendText = nullptr;
    // The network-mode memory is shared: read and written under the lock
    // (the original reads it unlocked), but the property-service call runs
    // without it, so a request never waits for another one's call.
    bool first = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        first = previousNetMode == -1;
    }
    if (first) {
        int mode = -1;
        int slot = -1;
        mode = getNetMode(&mode, &slot);
        std::lock_guard<std::mutex> lock(m_mutex);
        if (previousNetMode == -1) {
            previousNetMode = mode;
            if (mode != -99) {
                previousCardSlot = slot;
            }
            log_tlog(1, "AdapterAgent.cpp %d: previousNetMode = %d, previousCardSlot = %d\n", __LINE__, previousNetMode,
                     previousCardSlot);
        }
    }
    return 1;
}

AIMClient& AdapterAgent::aim()
{
    return m_dataHandler->getConnectionHandler()->getServer().getAIMClient();
}

int AdapterAgent::getNetMode(int* mode, int* slot)
{
    unsigned char result[kNetConfigSize] = {0};
    int length = 0;
    if (aim().callFunction("netGetCurrentIfConfig", 0, nullptr, kNetConfigSize, &length, result) != 0 ||
        length <= kNetSlotOffset) {
        m_log.logError("Error retrieving BRESK NetMode information.\n");
        return -99;
    }
    *mode = static_cast<signed char>(result[kNetModeOffset]);
    *slot = static_cast<signed char>(result[kNetSlotOffset]);
    return *mode;
}

void AdapterAgent::clearCardsCache()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    cardsById.reset();
}

size_t AdapterAgent::cachedCardCount()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return cardsById ? cardsById->size() : 0;
}

std::shared_ptr<const AdapterAgent::CardMap> AdapterAgent::loadCards()
{
    // Beyond the original, which tests and reads the cache without the lock
    // while another connection may refill it, and beyond a refill under the
    // lock, which made every adapter request wait for a slow listing: the
    // cache is read and replaced under the lock, but the network-mode call
    // and the card utility run without it. One refill runs at a time; a
    // request that needs a card meanwhile waits for it, one that needs none
    // never takes part. A listing is never changed once made: a refill makes
    // a new one, so the caller reads the one it was handed without the lock.
    int latestMode = -1;
    int latestSlot = -1;
    bool filled = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        filled = cardsById && !cardsById->empty();
    }
    if (filled) {
        getNetMode(&latestMode, &latestSlot);
        std::lock_guard<std::mutex> lock(m_mutex);
        log_tlog(1, "AdapterAgent.cpp %d: previousNetModeSING = %d ,latestNetMode = %d\n", __LINE__, previousNetMode,
                 latestMode);
        if (latestMode == previousNetMode && latestSlot == previousCardSlot && cardsById && !cardsById->empty()) {
            return cardsById;
        }
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    if (refilling) {
        // Another connection lists the cards: its listing is the answer.
        cardsRefilled.wait(lock, [] { return !refilling; });
        return lastListing;
    }
    refilling = true;
    lock.unlock();
    CardMap fresh;
    log_tlog(1, "AdapterAgent.cpp %d: Using cardutil to retrieve halvric cards key information.\n", __LINE__);
    char command[1024];
    Pipe listing;
    if (!format(command, sizeof command, "%s -L", PlatformRoot::path(kCardUtil).c_str()) || !listing.open(command)) {
        m_log.logError("could not load discovered cards\n");
    } else {
        parseCardListing(listing.stream, false, [this, &fresh](const CardRecord& card) {
            // MAC address and interface go into every command line for the
            // card: a record whose texts are not plain words is not cached.
            if (!plainWord(card.mac) || !plainWord(card.interface)) {
                m_log.logError("card in slot %s ignored: unusable MAC address or interface\n", card.slot.c_str());
                return;
            }
            fresh[getCardIndex(card.slot)] = {card.mac, card.interface, card.type};
        });
        int rc = listing.close();
        if (rc != 0) {
            m_log.logError("unable to discover cards. cardutil returned %d\n", rc);
        }
    }
    lock.lock();
    bool changed = !lastListing || *lastListing != fresh;
    cardsById = std::make_shared<const CardMap>(std::move(fresh));
    lastListing = cardsById;
    std::shared_ptr<const CardMap> listed = cardsById;
    if (latestMode != -1) {
        previousNetMode = latestMode;
    }
    if (latestSlot != -1) {
        previousCardSlot = latestSlot;
    }
    refilling = false;
    cardsRefilled.notify_all();
    lock.unlock();
    if (changed) {
        // Other cards, or other cards in the slots: the inventory's firmware
        // versions are looked up again.
        InventoryAgent::forgetPciFirmware(-1);
    }
    return listed;
}

void AdapterAgent::locateMPAddress(const char* method, int slot, std::string& mac, std::string& interface)
{
    size_t count = 0;
    bool found = false;
    // The listing this request was handed: a refill by another connection
    // replaces the cache, never this listing.
    std::shared_ptr<const CardMap> cards = loadCards();
    if (cards) {
        count = cards->size();
        auto it = cards->find(slot);
        if (it != cards->end()) {
            mac = it->second[0];
            interface = it->second[1];
            found = true;
        }
    }
    if (!found) {
        m_status = 2;
        throw ProcessingException("%d not a managed card for method %s. %d cards are discovered", slot, method,
                                  static_cast<int>(count));
    }
    if (!canTalkToCard(slot)) {
        m_status = 2;
        throw ProcessingException("cannot communicate with card (actions are not enabled) %d (%s)", slot, method);
    }
}

bool AdapterAgent::canTalkToCard(int slot)
{
    config* cfg = nullptr;
    int rc = get_card_config(&cfg);
    card* c =
        rc == 0 && slot >= 0 && slot <= 255 ? get_card_by_pci_slot_id(cfg, static_cast<unsigned char>(slot)) : nullptr;
    bool ready = false;
    if (c == nullptr) {
        m_log.logError("could not retrieve card for slot %d rc %d card %d\n", slot, rc, 0);
    } else {
        ready = (is_card_active(c) || powerOn()) && are_card_actions_enabled(c) && !check_overtemp_condition(c);
    }
    if (rc == 0) {
        free_config(cfg);
    }
    return ready;
}

int AdapterAgent::getCardIndex(const std::string& text)
{
    errno = 0;
    char* end = nullptr;
    long value = strtol(text.c_str(), &end, 10);
    // "2x" is no slot: text left over makes it 0, like any other non-number.
    if (end == text.c_str() || *end != '\0' || errno == ERANGE || value > INT_MAX || value < INT_MIN) {
        return 0;
    }
    return static_cast<int>(value);
}

void AdapterAgent::trim(std::string& text)
{
    const char* kCut = " \t\"";
    size_t first = text.find_first_not_of(kCut);
    if (first == std::string::npos) {
        text.clear();
        return;
    }
    text = text.substr(first, text.find_last_not_of(kCut) - first + 1);
}

bool AdapterAgent::isv6check(const char* text)
{
    if (text == nullptr) {
        return false;
    }
    struct addrinfo hints = {};
    hints.ai_family = AF_INET6;
    hints.ai_flags = AI_NUMERICHOST;  // never a name look-up on the request's thread
    struct addrinfo* result = nullptr;
    if (getaddrinfo(text, nullptr, &hints, &result) != 0) {
        return false;
    }
    freeaddrinfo(result);
    return true;
}

void AdapterAgent::checkUserText(const std::string& text, const char* property)
{
    if (!text.empty() && !plainWord(text)) {
        throw ProcessingException("Invalid characters in an argument of %s", property);
    }
}

bool AdapterAgent::format(char* buffer, size_t size, const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int n = vsnprintf(buffer, size, fmt, args);
    va_end(args);
    if (n < 0 || static_cast<size_t>(n) >= size) {
        m_log.logError("AdapterAgent: command too long, not run\n");
        buffer[0] = '\0';
        return false;
    }
    return true;
}

bool AdapterAgent::Pipe::open(const char* command)
{
    stream = run.start(command) ? run.stream() : nullptr;
    return stream != nullptr;
}

bool AdapterAgent::Pipe::open(const ToolRun::Command& command)
{
    stream = run.start(command) ? run.stream() : nullptr;
    return stream != nullptr;
}

int AdapterAgent::Pipe::close()
{
    if (stream == nullptr) {
        return -1;
    }
    stream = nullptr;
    return run.finish();
}
