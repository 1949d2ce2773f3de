// Transfers of the adapter agent: configuration import and export (one card
// or all of them), firmware update, activation and cancellation.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "AdapterAgent.h"
#include "InventoryAgent.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "card_config.h"
#include "log_tlog.h"
#include "safeexec.h"

namespace {

const char kClient[] = "/opt/flash/halvric/bin/curl";
const char kConfigFile[] = "/mnt/scratchpad/ie_config.xml";
const char kImage[] = "/mnt/scratchpad/mpfw.bin";
const char kUpdateScript[] = "/etc/scripts/mp-update.sh";
const char kAllCardsScript[] = "/etc/scripts/ieAllKors.sh";
// What log lines show instead of a password.
const char kHidden[] = "********";

// Removes a file on every way out of a scope.
struct RemoveOnExit {
    std::string file;
    ~RemoveOnExit() { unlink(file.c_str()); }
};

// The fingerprint file's name is made of the address: only an address that
// is a plain word without a slash names a file, and only one in /tmp.
std::string fingerprintFile(const std::string& address)
{
    if (address.empty() || address.find('/') != std::string::npos ||
        !system_check_user_input(address.c_str(), "general_rule")) {
        return "";
    }
    return PlatformRoot::path("/tmp/" + address + "_ssh_fingerprint");
}

}  // namespace

bool AdapterAgent::updateStarting = false;

void AdapterAgent::prepareTransfer()
{
    trim(m_remoteAddress);
    m_remoteIsIpv6 = isv6check(m_remoteAddress.c_str());
    m_transferOptions = "--connect-timeout 10";
    if (m_remoteProtocol != "scp" && m_remoteProtocol != "sftp") {
        return;
    }
    std::string file = fingerprintFile(m_remoteAddress);
    // Written by another process under a name made of the address: a
    // symbolic link there is not followed.
    FILE* f = file.empty() ? nullptr : PlatformRoot::openNoFollow(file, "r");
    if (f == nullptr && errno == ELOOP) {
        m_log.logWarning("AdapterAgent: %s is a symbolic link, not followed\n", file.c_str());
    }
    char line[256] = "";
    bool read = f != nullptr && fgets(line, sizeof line, f) != nullptr;
    if (f != nullptr) {
        fclose(f);
    }
    // The line end is dropped (it would end the command line), and the
    // fingerprint must be one plain word, as it goes into the command line.
    line[strcspn(line, "\r\n")] = '\0';
    if (!read || !plainWord(line)) {
        m_status = 2;
        throw ProcessingException("Failed to open host fingerprint file");
    }
    m_transferOptions += std::string(" --hostpubmd5 ") + line;
}

void AdapterAgent::removeFingerprint()
{
    std::string file = fingerprintFile(m_remoteAddress);
    if (!file.empty()) {
        unlink(file.c_str());
    }
}

void AdapterAgent::checkRemoteTexts()
{
    if (!system_check_user_input(m_remoteAddress.c_str(), "general_rule") ||
        !system_check_user_input(m_remotePath.c_str(), "general_rule") ||
        !system_check_user_input(m_remoteUser.c_str(), "general_rule") ||
        !system_check_user_input(m_remoteProtocol.c_str(), "general_rule") ||
        !system_check_user_input(m_remotePassword.c_str(), "password_rule")) {
        m_status = 2;
        throw ProcessingException("Invalid Parameters");
    }
}

bool AdapterAgent::transferCommand(char* buffer, size_t size, bool upload, const std::string& localFile,
                                   const char* password)
{
    // "-o FILE" downloads, "-S -s -f -T FILE" uploads; an IPv6 address goes
    // in brackets, and "--globoff" keeps the client from reading them as a
    // range.
    const std::string head = PlatformRoot::path(kClient) + (upload ? " -S -s -f -T " : " -o ") + localFile;
    const char* open = m_remoteIsIpv6 ? "[" : "";
    const char* close = m_remoteIsIpv6 ? "]" : "";
    const char* tail = m_remoteIsIpv6 ? " --globoff" : "";
    const char* address = m_remoteAddress.c_str();
    const char* path = m_remotePath.c_str();
    const char* options = m_transferOptions.c_str();
    if (m_remoteProtocol.empty() || m_remoteProtocol == "tftp") {
        return format(buffer, size, "%s tftp://%s%s%s/%s %s%s", head.c_str(), open, address, close, path, options,
                      tail);
    }
    if (m_remoteUser.empty() && m_remotePassword.empty()) {
        return format(buffer, size, "%s %s://%s%s%s/%s %s%s", head.c_str(), m_remoteProtocol.c_str(), open, address,
                      close, path, options, tail);
    }
    return format(buffer, size, "%s %s://%s%s%s/%s -u %s:%s %s%s", head.c_str(), m_remoteProtocol.c_str(), open,
                  address, close, path, m_remoteUser.c_str(), password, options, tail);
}

int AdapterAgent::transfer(bool upload, const char* localFile)
{
    char command[1024];
    char shown[1024];  // the command as logged: the password hidden
    const std::string file = PlatformRoot::path(localFile);
    if (!transferCommand(command, sizeof command, upload, file, m_remotePassword.c_str()) ||
        !transferCommand(shown, sizeof shown, upload, file, kHidden)) {
        return -1;
    }
    log_tlog(1, "AdapterAgentTransfer.cpp %d: transfer (%s)\n", __LINE__, shown);
    std::string output;
    int status = invokeBackend(command, output, "AdapterAgent");
    if (status != 0) {
        m_log.logError("transfer (%s) failed with status %d\n", shown, status);
    }
    return status;
}

void AdapterAgent::configTransfer()
{
    checkRemoteTexts();
    if (m_cardIndex < 0) {
        return;
    }
    // Beyond the original, which only tests for the file when the request is
    // checked: the file is created here exclusively, so of two requests that
    // passed that test at once only one runs, and it is removed on every way
    // out, so it never stays behind to refuse later requests.
    const std::string file = PlatformRoot::path(kConfigFile);
    int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        m_status = 2;
        if (errno == EEXIST) {
            throw ProcessingException("try later a config import/export is already underway");
        }
        m_log.logError("cannot create %s: %s\n", file.c_str(), strerror(errno));
        throw ProcessingException("Internal error. User request failed.");
    }
    close(fd);
    RemoveOnExit remove{file};
    if (m_cardIndex == 0) {
        configAllCards();
        return;
    }
    const std::string tool = PlatformRoot::path(mptoolPath());
    const char* address = m_remoteAddress.c_str();
    char command[1024];
    std::string output;
    int status = -1;
    if (m_configOperation == 1) {
        if (!format(command, sizeof command, "%s -i %s %s vorn_vniccfg_export %s", tool.c_str(),
                    m_cardInterface.c_str(), m_cardMac.c_str(), file.c_str()) ||
            (status = invokeBackend(command, output, "AdapterAgent")) != 0) {
            m_status = 2;
            throw ProcessingException("error during MP config export rc=%d", status);
        }
        if (m_remoteAddress.empty()) {
            m_status = 2;
            throw ProcessingException("Export Failed - Remote Server IP is Invalid!");
        }
        status = transfer(true, kConfigFile);
        if (status == 67) {
            m_status = 2;
            throw ProcessingException("Login denied by Remote Server - PROTOCOL:IP[%s:%s]", m_remoteProtocol.c_str(),
                                      address);
        }
        if (status != 0) {
            m_status = 2;
            throw ProcessingException("error during transfer of xml config off BMC check PROTOCOL:IP:PATH (%s:%s:%s)",
                                      m_remoteProtocol.c_str(), address, m_remotePath.c_str());
        }
        removeFingerprint();
        return;
    }
    if (!m_remoteAddress.empty()) {
        status = transfer(false, kConfigFile);
        if (status == 67) {
            m_status = 2;
            throw ProcessingException("Login denied by Remote Server - IP[%s]", address);
        }
        if (status != 0) {
            m_status = 2;
            throw ProcessingException("error during transfer of xml config to BMC check remote IP:PATH (%s:%s)",
                                      address, m_remotePath.c_str());
        }
        removeFingerprint();
    }
    if (!format(command, sizeof command, "%s -i %s %s vorn_vniccfg_import %s 2>&1", tool.c_str(),
                m_cardInterface.c_str(), m_cardMac.c_str(), file.c_str()) ||
        invokeBackend(command, output, "AdapterAgent") != 0) {
        m_status = 2;
        throw ProcessingException("%s", output.c_str());
    }
}

void AdapterAgent::configAllCards()
{
    checkRemoteTexts();  // the vector below holds the same texts
    const bool exporting = m_configOperation == 1;
    const char* operation = exporting ? "export" : "import";
    const std::string script = PlatformRoot::path(kAllCardsScript);
    const std::string protocol = m_remoteProtocol.empty() ? "tftp" : m_remoteProtocol;
    // An argument vector: no shell sees these texts.
    system_exec_cmd_t command;
    int rc = -1;
    if (m_remoteAddress.empty()) {
        rc = system_exec_set_command_arg(&command, script.c_str(), "-f", PlatformRoot::path(kConfigFile).c_str(),
                                         operation, nullptr);
    } else if (m_remoteUser.empty() && m_remotePassword.empty()) {
        rc = system_exec_set_command_arg(&command, script.c_str(), "-f", m_remotePath.c_str(), "-ip",
                                         m_remoteAddress.c_str(), "-protocol", protocol.c_str(), operation, nullptr);
    } else {
        rc = system_exec_set_command_arg(&command, script.c_str(), "-f", m_remotePath.c_str(), "-ip",
                                         m_remoteAddress.c_str(), "-protocol", protocol.c_str(), "-username",
                                         m_remoteUser.c_str(), "-password", m_remotePassword.c_str(), operation,
                                         nullptr);
    }
    char output[256];
    rc = rc == 0 ? system_exec_command(&command, output, sizeof output) : -1;
    log_tlog(1, "AdapterAgentTransfer.cpp %d: all adapters %s (%s:%s:%s) returned %d\n", __LINE__, operation,
             protocol.c_str(), m_remoteAddress.c_str(), m_remotePath.c_str(), rc);
    if (rc != 0) {
        m_status = 2;
        throw ProcessingException(exporting ? "Export for All Adapters failed!" : "Import for All Adapters failed!");
    }
}

void AdapterAgent::firmwareAction()
{
    if (m_adapterUpdate) {
        firmwareUpdate();
    } else if (m_adapterActivate) {
        firmwareActivate();
    } else {
        cancelUpdate();
    }
}

void AdapterAgent::firmwareUpdate()
{
    checkRemoteTexts();
    {
        // Beyond the original, whose marks every connection's thread reads
        // and writes unguarded: the marks and this claim change only under
        // m_mutex. The claim also keeps a second request that passed its
        // check at the same moment from downloading over the image the
        // first one's updates are reading.
        std::lock_guard<std::mutex> lock(m_mutex);
        if (updateStarting || updatingCards.any()) {
            m_status = 2;
            throw ProcessingException("update already underway cannot update now");
        }
        updateStarting = true;
    }
    struct Claim {
        ~Claim()
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            updateStarting = false;
        }
    } claim;
    // Clears a slot's mark; true when no mark is left.
    auto clearMark = [](int slot) {
        std::lock_guard<std::mutex> lock(m_mutex);
        updatingCards.reset(static_cast<size_t>(slot));
        return updatingCards.none();
    };
    const std::string image = PlatformRoot::path(kImage);
    if (!m_remoteAddress.empty()) {
        int status = transfer(false, kImage);
        if (status != 0) {
            unlink(image.c_str());  // no partial image stays behind
            m_status = 2;
            if (status == 67) {
                throw ProcessingException("Login denied by Remote Server - IP[%s]", m_remoteAddress.c_str());
            }
            throw ProcessingException("Error during transfer KOR-FW to BRESK check remote IP:PATH (%s:%s)",
                                      m_remoteAddress.c_str(), m_remotePath.c_str());
        }
        removeFingerprint();
    }
    std::vector<int> slots = m_updateSlots;
    if (slots.empty()) {
        std::shared_ptr<const CardMap> listing = loadCards();
        std::vector<int> cached;
        for (const auto& entry : listing ? *listing : CardMap()) {
            cached.push_back(entry.first);
        }
        for (int slot : cached) {
            if (canTalkToCard(slot)) {
                slots.push_back(slot);
            }
        }
    }
    const std::string script = PlatformRoot::path(kUpdateScript);
    for (int slot : slots) {
        bool marked = true;
        {
            // Tested and set at once; a slot named twice is updated once.
            std::lock_guard<std::mutex> lock(m_mutex);
            if (slot >= 0 && static_cast<size_t>(slot) < updatingCards.size() && !updatingCards.test(slot)) {
                updatingCards.set(static_cast<size_t>(slot));
                marked = false;
            }
        }
        if (marked || !canTalkToCard(slot)) {
            if (!marked) {
                clearMark(slot);
            }
            m_log.logError(" update already requested or cannot talk to card for slot %d skipping \n", slot);
            continue;
        }
        std::string mac, vif;
        try {
            locateMPAddress("MPFWUpdate::postProcess", slot, mac, vif);
        } catch (...) {
            clearMark(slot);
            throw;
        }
        int rc = system_secure("blade-power lock");
        if (rc != 0) {
            m_log.logError("unable to lock blade power rc=%d\n", rc);
        }
        // The script runs on in the background ("&"). Beyond the original:
        // a script that is missing or cannot run counts as a failed start,
        // which the shell's "&" would hide.
        char command[1024];
        bool started = access(script.c_str(), X_OK) == 0 &&
                       format(command, sizeof command, " %s %d %s %s %s %d &", script.c_str(), slot, vif.c_str(),
                              mac.c_str(), image.c_str(), m_updateOption ? 1 : 0) &&
                       system_secure(command) == 0;
        InventoryAgent::forgetPciFirmware(slot);  // the inventory asks the card again
        if (!started) {
            m_log.logError("firmware update of slot %d could not be started\n", slot);
            m_status = 2;
            // Beyond the original, which unlocks at once and keeps the mark
            // (which would refuse every later update): the mark goes, and
            // blade power is unlocked and the image removed only when no
            // other update is under way.
            if (clearMark(slot)) {
                system_secure("blade-power unlock");
                unlink(image.c_str());
            }
        }
    }
}

void AdapterAgent::firmwareActivate()
{
    const std::string tool = PlatformRoot::path(mptoolPath());
    std::string failed;
    for (int slot : m_updateSlots) {
        if (!canTalkToCard(slot)) {
            failed += std::to_string(slot) + ",";
            continue;
        }
        std::string mac, vif;
        locateMPAddress("", slot, mac, vif);
        char command[1024];
        std::string output;
        int rc = -1;
        bool fits = format(command, sizeof command, "%s -i %s %s fwactivate %d", tool.c_str(), vif.c_str(), mac.c_str(),
                           m_firmwareId);
        if (fits) {
            rc = invokeBackend(command, output, "AdapterAgent");
            // Whatever the outcome, the inventory asks the card again.
            InventoryAgent::forgetPciFirmware(slot);
        }
        if (!fits || rc != 0) {
            m_log.logError("activate card %d (%s) returned with rc %d\n", slot, command, rc);
            throw slot;
        }
        bypassResetSequence(slot);
    }
    if (!failed.empty()) {
        m_status = 2;
        throw ProcessingException("failed activate to following cards (%s)", failed.c_str());
    }
}

void AdapterAgent::bypassResetSequence(int slot)
{
    config* cfg = nullptr;
    int rc = get_card_config(&cfg);
    std::unique_ptr<config, void (*)(config*)> release(rc == 0 ? cfg : nullptr, free_config);
    card* c =
        release && slot >= 0 && slot <= 255 ? get_card_by_pci_slot_id(cfg, static_cast<unsigned char>(slot)) : nullptr;
    if (c == nullptr) {
        m_log.logError("failed deassert bypass reset. card idx %d not retrieved\n", slot);
        throw slot;
    }
    int type = -1;
    if (get_card_type(c, &type) != 0 || !resettableType(type) || !is_card_active(c)) {
        return;
    }
    char serial[CARD_SERIAL_SIZE] = "";
    if ((rc = get_card_serialnum(c, serial)) != 0) {
        m_log.logError("cannot get serial_num for card %d ret %d", slot, rc);
        throw slot;
    }
    if ((rc = bypass_reset_sequence(cfg, serial)) != 0) {
        m_log.logError("bypass reset deassert sequence failed for card %d ret %d", slot, rc);
        throw slot;
    }
}

void AdapterAgent::cancelUpdate()
{
    bool none = false;
    if (m_updateSlots.empty()) {
        InventoryAgent::forgetPciFirmware(-1);
    }
    for (int slot : m_updateSlots) {
        InventoryAgent::forgetPciFirmware(slot);  // an update may have ended meanwhile
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_updateSlots.empty()) {
            updatingCards.reset();
        }
        for (int slot : m_updateSlots) {
            if (slot >= 0 && static_cast<size_t>(slot) < updatingCards.size()) {
                updatingCards.reset(static_cast<size_t>(slot));
            }
        }
        // An update still starting keeps its image and blade power.
        none = updatingCards.none() && !updateStarting;
    }
    if (!none) {
        return;
    }
    int rc = system_secure("blade-power unlock");
    if (rc != 0) {
        m_log.logError("After update unable to blade power unlock rc=%d\n", rc);
    }
    char command[1024];
    if (format(command, sizeof command, "rm -f %s", PlatformRoot::path(kImage).c_str()) &&
        (rc = system_secure(command)) != 0) {
        m_log.logError("After update could not run (%s) rc=%d\n", command, rc);
    }
}
