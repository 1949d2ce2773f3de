#include "AdapterMacDatabase.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DataAgent.h"
#include "PlatformRoot.h"

const char* const AdapterMacDatabase::kPrimaryPath = "/var/pellox/BIOS/MacDB.bin";
const char* const AdapterMacDatabase::kSecondaryPath = "/mnt/jffs2/MacDB.bin";
const char* const AdapterMacDatabase::kSlotListPath = "/tmp/SlotInfo.txt";

std::vector<AdapterMacDatabase::Adapter> AdapterMacDatabase::s_adapters;
int AdapterMacDatabase::s_adapterCount = 0;
bool AdapterMacDatabase::s_haveTable = false;
std::atomic<bool> AdapterMacDatabase::s_updateFound{false};
std::atomic<int64_t> AdapterMacDatabase::s_seenTime[2] = {{0}, {0}};

namespace {

// The header's total length is 16 bits, so a valid database is at most
// 65535 bytes long; reading one byte more is enough to judge any file.
const size_t kMaxImage = 65536;

unsigned int u16(const unsigned char* p)
{
    return static_cast<unsigned int>(p[0]) | static_cast<unsigned int>(p[1]) << 8;
}

// The file's first bytes in one go, so that validation and reading see the
// same bytes even when the BIOS rewrites the file meanwhile. false when it
// cannot be opened or read.
bool readImage(const char* path, std::vector<unsigned char>& image)
{
    image.clear();
    int fd = open(PlatformRoot::path(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    image.resize(kMaxImage + 1);
    size_t got = 0;
    while (got < image.size()) {
        ssize_t n = read(fd, image.data() + got, image.size() - got);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            close(fd);
            image.clear();
            return false;
        }
        if (n == 0) {
            break;
        }
        got += static_cast<size_t>(n);
    }
    close(fd);
    image.resize(got);
    return true;
}

bool exists(const char* path)
{
    struct stat st;
    return stat(PlatformRoot::path(path).c_str(), &st) == 0;
}

// Text of a fixed-size field: cut at its NUL, and at `size` - 1 characters
// when it has none (names without a terminator are cut, not rejected).
std::string cutField(const unsigned char* data, size_t size)
{
    const char* text = reinterpret_cast<const char*>(data);
    return std::string(text, strnlen(text, size - 1));
}

}  // namespace

AdapterMacDatabase::AdapterMacDatabase(AComponentLog& log) : m_log(log) {}

int AdapterMacDatabase::getMaxPlatformSlots()
{
    static const struct {
        PLATFORM platform;
        int slots;
    } kSlots[] = {
        {PLATFORM_KESTIN, 2},   {PLATFORM_MORLAC, 2},   {PLATFORM_PALLIX1, 4}, {PLATFORM_TOVREL, 8},
        {PLATFORM_QUENTAR, 12}, {PLATFORM_VORSHA2, 21}, {PLATFORM_GREFF2, 21}, {PLATFORM_NIMBREL1, 3},
        {PLATFORM_CASTREL, 11}, {PLATFORM_LURVEN, 15},
    };
    PLATFORM platform = DataAgent::getPlatform();
    for (const auto& row : kSlots) {
        if (row.platform == platform) {
            return row.slots;
        }
    }
    return 7;
}

void AdapterMacDatabase::reset()
{
    s_adapters.clear();
    s_adapterCount = 0;
    s_haveTable = false;
    s_updateFound = false;
    s_seenTime[0] = 0;
    s_seenTime[1] = 0;
}

void AdapterMacDatabase::CheckforAdapterUpdate()
{
    // Runs outside the inventory mutex on every connection's thread: the
    // remembered states and the flag are atomics, so concurrent checks never
    // race. A file's state is its modification time to the nanosecond
    // together with its size and inode, and any change counts (also a file
    // put back with an older time): file times advance only once per clock
    // tick, so a rewrite right after a check is still seen when the size
    // changes or the file was replaced by a rename.
    const char* const paths[2] = {kPrimaryPath, kSecondaryPath};
    for (int i = 0; i < 2; i++) {
        struct stat st;
        if (stat(PlatformRoot::path(paths[i]).c_str(), &st) != 0) {
            continue;
        }
        uint64_t state =
            static_cast<uint64_t>(st.st_mtim.tv_sec) * 1000000000u + static_cast<uint64_t>(st.st_mtim.tv_nsec);
        state ^= static_cast<uint64_t>(st.st_size) * 0x9E3779B97F4A7C15u;
        state ^= static_cast<uint64_t>(st.st_ino) * 0xC2B2AE3D27D4EB4Fu;
        int64_t time = static_cast<int64_t>(state);
        if (s_seenTime[i].exchange(time) != time) {
            s_updateFound = true;
            m_log.logInfo("InventoryAgent::CheckforAdapterUpdate: new version of MacDb.bin found %d\n", i + 1);
        }
        return;
    }
    printf("Unable to stat MAC DB files for updates\n");
}

void AdapterMacDatabase::extractSlotInfo(const std::string& extra)
{
    size_t open = extra.find('[');
    size_t close = open == std::string::npos ? std::string::npos : extra.find(']', open + 1);
    if (close == std::string::npos) {
        return;
    }
    std::string inner = extra.substr(open + 1, close - open - 1);
    std::vector<std::string> words;
    size_t pos = 0;
    while (pos < inner.size()) {
        size_t end = inner.find(' ', pos);
        if (end == std::string::npos) {
            end = inner.size();
        }
        if (end > pos) {
            words.push_back(inner.substr(pos, end - pos));
        }
        pos = end + 1;
    }
    m_slot = 0;
    m_slotRejected = false;
    if (!words.empty()) {
        const std::string& word = words[0];
        if (word.find('L') != std::string::npos || word.find('M') != std::string::npos) {
            // Letters pack into 16 bits: one or two characters. A longer word
            // names no slot: it is rejected and matches no adapter.
            if (word.size() == 1) {
                m_slot = static_cast<unsigned char>(word[0]);
            } else if (word.size() == 2) {
                m_slot = static_cast<unsigned short>(static_cast<unsigned char>(word[0]) << 8 |
                                                     static_cast<unsigned char>(word[1]));
            } else {
                m_slotRejected = true;
            }
        } else if (word == "IOESlot1") {
            m_slot = 5;
        } else if (word == "IOESlot2") {
            m_slot = 7;
        } else {
            char* end = nullptr;
            errno = 0;
            unsigned long value = strtoul(word.c_str(), &end, 0);
            if (errno != 0 || value > 0xFFFF) {
                m_slotRejected = true;  // no 16-bit slot id: matches no adapter
            } else {
                m_slot = static_cast<unsigned short>(value);
            }
        }
    }
    if (words.size() > 1) {
        // At most four characters, as the mode buffer holds. The mode is
        // kept per connection, not process-wide, so two connections never
        // overwrite each other's mode.
        m_mode = words[1].substr(0, 4);
    }
}

std::string AdapterMacDatabase::slotText(unsigned short id)
{
    if (id <= 64) {
        return std::to_string(id);
    }
    std::string text;
    if (id > 0xFF) {
        text += static_cast<char>(id >> 8);
    }
    text += static_cast<char>(id & 0xFF);
    return text;
}

int AdapterMacDatabase::validateImage(const std::vector<unsigned char>& image, int slots)
{
    if (image.size() < static_cast<size_t>(kHeaderSize)) {
        m_log.logInfo("\n Invalid Mac header");
        return -1;
    }
    if (image[0] != kSignature) {
        m_log.logInfo("\n Invalid signature in MacDB");
        return -1;
    }
    // Skipping past the end of the file counts as a failed skip.
    size_t position = static_cast<size_t>(kHeaderSize) + static_cast<size_t>(kSlotEntrySize) * slots;
    if (position > image.size()) {
        m_log.logInfo("\n Invalid Slot Description in MacDB");
        return -1;
    }
    position += static_cast<size_t>(kMacEntrySize) * u16(&image[2]);
    if (position > image.size()) {
        m_log.logInfo("\n Invalid MAC list in MacDB");
        return -1;
    }
    unsigned int total = u16(&image[4]);
    if (position != total) {
        m_log.logInfo("\n MacDB data corrupted length:%d, ftell:%d", static_cast<int>(total),
                      static_cast<int>(position));
        return -1;
    }
    return 0;
}

int AdapterMacDatabase::ValidateMacDB(const char* path)
{
    std::vector<unsigned char> image;
    if (!readImage(path, image)) {
        m_log.logInfo("Unable to open Mac DB: %s\n ", kPrimaryPath);
        return -1;
    }
    return validateImage(image, getMaxPlatformSlots());
}

void AdapterMacDatabase::discard()
{
    s_adapters.clear();
    s_adapterCount = 0;
    s_haveTable = false;
}

void AdapterMacDatabase::getAdapterMacInfo()
{
    m_log.logInfo("InventoryAgent::%s\n", "getAdapterMacInfo");
    if (s_haveTable && !s_updateFound) {
        m_log.logInfo("InventoryAgent::pAdapterMacAddressData: Using cached adapter Mac Address Data\n");
        return;
    }
    const char* path = kPrimaryPath;
    if (!exists(kPrimaryPath)) {
        printf("\n The file %s doesn't exist...\n", kPrimaryPath);
        m_log.logInfo("\n MacDB.bin doesnt exist will try copying from persistant storage");
        if (!exists(kSecondaryPath)) {
            printf("\n The file doesn't exist %s ", kSecondaryPath);
            m_log.logInfo("\n MacDB.bin not present anywhere returning back");
            return;  // a missing file keeps the previous table
        }
        path = kSecondaryPath;
        printf("We started using %s\n", path);
    }
    const int slots = getMaxPlatformSlots();
    // The update flag is taken down before the file is read, not after: a
    // check on another connection that notices a newer file while this read
    // runs raises it again, so that file is read next time instead of being
    // lost. Every failure below either drops the table (which forces a
    // reread) or raises the flag again.
    s_updateFound = false;
    std::vector<unsigned char> image;
    if (!readImage(path, image)) {
        m_log.logInfo("Unable to open Mac DB: %s\n ", kPrimaryPath);
        m_log.logInfo("\n MacDB.bin Validation Failed. Will not display adapterInfo\n");
        discard();
        return;
    }
    if (validateImage(image, slots) != 0) {
        // The message promises no adapters: an invalid file also drops the
        // table of an earlier, valid one.
        m_log.logInfo("\n MacDB.bin Validation Failed. Will not display adapterInfo\n");
        discard();
        return;
    }
    const int count = image[1];  // iAdapterMacItems
    const int macs = static_cast<int>(u16(&image[2]));
    const unsigned char* slotMap = image.data() + kHeaderSize;
    const unsigned char* macList = slotMap + kSlotEntrySize * slots;
    auto slotId = [&](int k) { return static_cast<unsigned short>(u16(slotMap + kSlotEntrySize * k)); };
    auto slotInterfaces = [&](int k) { return static_cast<unsigned short>(u16(slotMap + kSlotEntrySize * k + 2)); };
    auto slotName = [&](int k) { return cutField(slotMap + kSlotEntrySize * k + 8, 64); };
    auto macSlot = [&](int i) { return static_cast<unsigned short>(u16(macList + kMacEntrySize * i + 2)); };

    // A fixed name in the shared /tmp: a symbolic link planted there is
    // refused, never followed.
    FILE* list = PlatformRoot::openNoFollow(PlatformRoot::path(kSlotListPath), "w");
    if (list == nullptr && errno == ELOOP) {
        m_log.logWarning("AdapterMacDatabase: %s is a symbolic link, not followed\n", kSlotListPath);
    }
    if (list == nullptr) {
        m_log.logInfo("\n Not able to create temp slot file, will not display network adapter");
        s_updateFound = true;  // keeps the previous table; try again next time
        return;
    }
    bool zeroInterfaces = false;
    for (int k = 0; k < slots; k++) {
        unsigned short id = slotId(k);
        if (id != 0) {
            fprintf(list, "%s ", slotText(id).c_str());  // the number up to 64, else the letters
        }
        if (slotInterfaces(k) == 0) {
            zeroInterfaces = true;
        }
    }
    fprintf(list, "\n");
    fclose(list);

    // The table holds at most the header's adapter count: an adapter beyond
    // it does not fit and the whole file is rejected.
    std::vector<Adapter> table;
    auto fits = [&]() {
        if (static_cast<int>(table.size()) < count) {
            return true;
        }
        m_log.logError("\n More network adapters in MacDB.bin than its header's %d, will not display network adapters",
                       count);
        return false;
    };
    int i = 0;
    while (i < macs) {
        unsigned short want = macSlot(i);
        int k = 0;
        while (k < slots && slotId(k) != want) {
            k++;
        }
        if (k == slots) {
            m_log.logInfo("Invalid Slot number was expecting %d \n", want);
            discard();
            return;
        }
        unsigned short n = slotInterfaces(k);
        if (n == 0) {
            i++;
            continue;
        }
        if (!fits()) {
            discard();
            return;
        }
        Adapter adapter{want, n, slotName(k), {}};
        for (int j = 0; j < n; j++) {
            if (i + j >= macs || macSlot(i + j) != want) {
                if (i + j < macs) {
                    m_log.logInfo("\n this should not happen expected -> %x got -> %x\n", want, macSlot(i + j));
                }
                m_log.logInfo("\n Mismatch in mac data for slot %d  will not display network adapters ", want);
                discard();
                return;
            }
            const unsigned char* entry = macList + kMacEntrySize * (i + j);
            adapter.macs.push_back(
                {static_cast<unsigned short>(u16(entry)), cutField(entry + 8, 32), std::string("N/A")});
        }
        i += n;
        table.push_back(adapter);
    }
    if (zeroInterfaces) {
        for (int k = 0; k < slots; k++) {
            if (slotId(k) != 0 && slotInterfaces(k) == 0) {
                if (!fits()) {
                    discard();
                    return;
                }
                table.push_back({slotId(k), 0, slotName(k), {}});
            }
        }
    }
    if (static_cast<int>(table.size()) != count) {
        m_log.logError(
            "\n Network Adapter inventory mismatch: # of cards in MacDB.bin = %d, # of cards populated in inventory "
            "= %d. Finding missing entry... ",
            count, static_cast<int>(table.size()));
        bool foundMissing = false;
        for (int k = 0; k < slots; k++) {
            unsigned short id = slotId(k);
            bool listed = false;
            for (const Adapter& a : table) {
                listed = listed || a.slotId == id;
            }
            if (id == 0 || listed) {
                continue;
            }
            std::string name = slotName(k);
            if (!name.empty() && slotInterfaces(k) != 0) {
                m_log.logError(
                    "\n Found missing network adapter entry (slotID 0x%x) with %d interfaces. No associated MACs "
                    "were found, changing to 0 interfaces ",
                    id, slotInterfaces(k));
                if (!fits()) {
                    discard();
                    return;
                }
                table.push_back({id, 0, name, {}});
            } else if (!name.empty()) {
                m_log.logInfo(
                    "\n Found missing network adapter entry (slotID 0x%x), unknown error, will not display network "
                    "adapters",
                    id);
                discard();
                return;
            } else {
                m_log.logError(
                    "\n Found missing network adapter entry (slotID 0x%x), product name is NULL or empty, include "
                    "the entry as an Unknown Card w/ 0 interfaces ",
                    id);
                if (!fits()) {
                    discard();
                    return;
                }
                table.push_back({id, 0, "Unknown Adapter", {}});
            }
            foundMissing = true;
        }
        if (!foundMissing) {
            m_log.logInfo(
                "\n Unable to find missing network adapter entry, unknown error, will not display network adapters");
            discard();
            return;
        }
    }
    s_adapters = table;
    // The reply walks the adapters actually filled; when fewer than the
    // header's count could be found, the rest are not there to show.
    s_adapterCount = static_cast<int>(table.size());
    s_haveTable = true;
}

void AdapterMacDatabase::writeMacList(GUIDataSocket& socket, const Adapter& adapter)
{
    socket.writeString("<MacDataList>");
    if (adapter.macs.empty()) {
        m_log.logInfo("No Interfaces found for slot %d", adapter.slotId);
        socket.writeString("<MacData>");
        socket.writeSimpleElement("InterfaceID", "0");
        socket.writeSimpleElement("MacAddress", "Card not supported or option ROM disabled");
        socket.writeSimpleElement("MediaPresent", "N/A");
        socket.writeString("</MacData>");
    }
    for (const Mac& mac : adapter.macs) {
        socket.writeString("<MacData>");
        socket.writeSimpleElement("InterfaceID", static_cast<unsigned int>(mac.interfaceId));
        socket.writeSimpleElement("MacAddress", mac.address.c_str());
        socket.writeSimpleElement("MediaPresent", mac.media.c_str());
        socket.writeString("</MacData>");
    }
    socket.writeString("</MacDataList>");
}

void AdapterMacDatabase::writeAdapter(GUIDataSocket& socket, const Adapter& adapter, bool withMacs)
{
    socket.writeString("<AdapterData>");
    if (adapter.slotId <= 64) {
        socket.writeSimpleElement("Slot", static_cast<unsigned int>(adapter.slotId));
    } else {
        socket.writeSimpleElement("Slot", slotText(adapter.slotId).c_str());
    }
    socket.writeSimpleElement("ProductName", adapter.name.c_str());
    socket.writeSimpleElement("NoOfInterfaces", static_cast<unsigned int>(adapter.interfaces));
    if (withMacs) {
        writeMacList(socket, adapter);
    }
    socket.writeString("</AdapterData>");
}

void AdapterMacDatabase::postAdapterMacAddressList(GUIDataSocket& socket)
{
    if (m_mode == "card") {
        socket.writeString("<AdapterDataList>");
        for (const Adapter& adapter : s_adapters) {
            if (m_slotRejected || (m_slot != 0 && adapter.slotId != m_slot)) {
                continue;
            }
            writeAdapter(socket, adapter, false);
            if (m_slot != 0) {
                break;
            }
        }
        socket.writeString("</AdapterDataList>");
    } else if (m_mode == "mac") {
        for (const Adapter& adapter : s_adapters) {
            if (!m_slotRejected && adapter.slotId == m_slot) {
                writeMacList(socket, adapter);
            }
        }
    } else {
        socket.writeString("<AdapterDataList>");
        for (const Adapter& adapter : s_adapters) {
            writeAdapter(socket, adapter, true);
        }
        socket.writeString("</AdapterDataList>");
    }
    m_mode.clear();
    m_slot = 0;
    m_slotRejected = false;
}
