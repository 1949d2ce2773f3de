// vNIC, iSCSI boot, usNIC and boot-table actions of the adapter agent: the
// management-processor tool reads the properties of a vNIC from a property
// file ("name value " lines) or, for a boot-table change, its standard input.
//
// Which check guards which text: preProcessSet refuses vNIC names, boot-entry
// indexes and every property name and value of the index forms that are not
// plain words; the WWPN passes the property validator. updateBackend and the
// boot-table change check every line they write once more, because they
// write whatever map they are given.
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "AdapterAgent.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "log_tlog.h"
#include "safeexec.h"

namespace {

bool generalRule(const std::string& text)
{
    return system_check_user_input(text.c_str(), "general_rule") != 0;
}

// Drops a line end (the tool's lines end in "\n").
std::string chomp(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string AdapterAgent::vnicPropertyFile()
{
    // The controller names the file after the process id alone. Every
    // connection thread of this one process has that id, so two requests at
    // once would write into each other's file; a process-wide counter makes
    // the name unique per call, and a random part makes it unpredictable, so
    // no other process can plant a file under it first (the file is created
    // with O_EXCL anyway).
    static std::atomic<unsigned> calls{0};
    unsigned long long nonce = 0;
    if (getrandom(&nonce, sizeof nonce, 0) != static_cast<ssize_t>(sizeof nonce)) {
        nonce = static_cast<unsigned long long>(PlatformRoot::monotonicMs()) * 2654435761u;
    }
    char suffix[20];
    snprintf(suffix, sizeof suffix, "%016llx", nonce);
    return PlatformRoot::path("/tmp/mpt_vifprops." + std::to_string(getpid()) + "." + std::to_string(++calls) + "." +
                              suffix);
}

namespace {

// Creates `path` for this call only: never follows or reuses a file that is
// already there (the directory is shared).
FILE* createPrivate(const char* path)
{
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        return nullptr;
    }
    FILE* f = fdopen(fd, "w");
    if (f == nullptr) {
        close(fd);
        unlink(path);
    }
    return f;
}

}  // namespace

int AdapterAgent::updateBackend(const char* command, TokenMap& arguments, std::string& output, const char* propertyFile)
{
    output.clear();
    if (command == nullptr || propertyFile == nullptr) {
        output = "Internal error.";
        return -1;
    }
    FILE* file = createPrivate(propertyFile);
    if (file == nullptr) {
        log_tlog(1, "AdapterAgentVnic.cpp %d: AdapterAgent::updateBackend(%s) failed during preprocessing of \n",
                 __LINE__, command);
        output = "Internal error. User request failed.";
        return -1;  // nothing of this call's own to delete: the file was not made
    }
    int result = 0;
    for (const auto& [name, tokens] : arguments) {
        // Beyond the original: a name or value that is not plain text (a line
        // end above all, which would add a property line) is refused too.
        if (name.empty() || tokens.empty() || !generalRule(name)) {
            output = name.empty() || tokens.empty() ? "Invalid property value." : "Invalid property name.";
            result = -1;
            break;
        }
        std::string value = tokens[0].toString();
        if (!generalRule(value)) {
            output = "Invalid property value.";
            result = -1;
            break;
        }
        log_tlog(1, "AdapterAgentVnic.cpp %d: AdapterAgent::updateBackend: writing name(%s) value(%s)\n", __LINE__,
                 name.c_str(), value.c_str());
        if (fprintf(file, "%s %s \n", name.c_str(), value.c_str()) < 0) {
            result = -1;
        }
    }
    if (fclose(file) != 0 && result == 0) {
        result = -1;
    }
    if (result == 0) {
        Pipe tool;
        if (!tool.open(command)) {
            m_log.logError("AdapterAgent::updateBackend(%s) failed to run\n", command);
            output = "Internal error occurred while processing user request.";
            result = -1;
        } else {
            char line[512];
            while (fgets(line, sizeof line, tool.stream) != nullptr) {
                log_tlog(1, "AdapterAgentVnic.cpp %d: mptool stdout: %s\n", __LINE__, line);
                output += line;
            }
            result = tool.close();
        }
    } else if (output.empty()) {
        output = "Internal error. User request failed.";
    }
    log_tlog(1, "AdapterAgentVnic.cpp %d: AdapterAgent::updateBackend(%s) exit status=%x, errString=%s\n", __LINE__,
             command, static_cast<unsigned>(result), output.c_str());
    unlink(propertyFile);
    return result;
}

int AdapterAgent::runWithPropertyFile(const std::string& lines, const char* command, const char* joiner,
                                      std::string& output)
{
    const std::string path = vnicPropertyFile();
    FILE* file = createPrivate(path.c_str());
    if (file == nullptr) {
        m_log.logError("AdapterAgent: cannot write the property file %s\n", path.c_str());
        return -1;
    }
    bool written = fputs(lines.c_str(), file) >= 0;
    written = fclose(file) == 0 && written;
    int status = -1;
    char line[1024];
    if (written && format(line, sizeof line, "%s%s%s", command, joiner, path.c_str())) {
        status = invokeBackend(line, output, "AdapterAgent");
    }
    unlink(path.c_str());
    return status;
}

void AdapterAgent::vnicChange(TokenMap& arguments)
{
    const std::string tool = PlatformRoot::path(mptoolPath());
    const char* mpt = tool.c_str();
    const char* vif = m_cardInterface.c_str();
    const char* mac = m_cardMac.c_str();
    const char* vnic = m_vnicName.c_str();
    const std::string file = vnicPropertyFile();
    char command[1024];
    std::string output;
    int status = 0;
    // A command that does not fit is not run: updateBackend gets no command
    // and answers "Internal error.".
    auto run = [&](bool fits) {
        status = updateBackend(fits ? command : nullptr, arguments, output, file.c_str());
        return status == 0;
    };
    if (m_enicCreate || m_fnicCreate || m_enicModify || m_fnicModify) {
        bool create = m_enicCreate || m_fnicCreate;
        const char* type = m_enicCreate || m_enicModify ? "eth" : "fc";
        if (!run(format(command, sizeof command,
                        create ? "%s -i %s %s vorn_add_vnic %s \"%s\" %s 2>&1"
                               : "%s -i %s %s vorn_modify_vnic %s \"%s\" %s 2>&1",
                        mpt, vif, mac, type, vnic, file.c_str()))) {
            m_log.logError(create ? "create vnic command (%s) failed with status %d\n"
                                  : "modify vnic command (%s) failed with status %d\n",
                           command, status);
            m_status = 2;
            throw ProcessingException("%s", output.c_str());
        }
    } else if (m_iscsiBootConfigure) {
        std::string priority;
        for (const auto& [name, tokens] : arguments) {
            if (name.empty() || tokens.empty()) {
                break;
            }
            if (name == "initiator-priority") {
                priority = tokens[0].toString().substr(0, 31);
            }
        }
        if (!run(format(command, sizeof command, "%s -i %s %s vorn_set_iscsiboot_params \"%s\" %s 2>&1", mpt, vif, mac,
                        vnic, file.c_str()))) {
            m_log.logError("configure iscsi eth vnic command (%s) failed with status %d\n", command, status);
            m_status = 2;
            throw ProcessingException("%s", output.c_str());
        }
        // The two iSCSI boot vNICs of a card always hold opposite priorities.
        std::string other = otherIscsiBootVnic(m_vnicName);
        if (!other.empty()) {
            setIscsiPriority(other, priority == "primary" ? "secondary" : "primary");
        }
    } else if (m_usnicConfigure) {
        if (!run(format(command, sizeof command, "%s -i %s %s vorn_set_usnic_params \"%s\" %d %s 2>&1", mpt, vif, mac,
                        vnic, m_usnicCount, file.c_str()))) {
            m_log.logError("configure USNIC eth vnic command (%s) failed with status %d\n", command, status);
            m_status = 2;
            throw ProcessingException("%s", output.c_str());
        }
    }
}

std::string AdapterAgent::otherIscsiBootVnic(const std::string& except)
{
    // The tool lists one vNIC name a line between "---" and "...". The
    // original filters the list with grep, which also drops every name that
    // merely contains `except` ("eth1" hides "eth10"); the lines are
    // compared whole here instead, and no request text reaches this command.
    char command[1024];
    if (!format(command, sizeof command, "%s -i %s %s vorn_list_iscsi_bootable_vnics yaml",
                PlatformRoot::path(mptoolPath()).c_str(), m_cardInterface.c_str(), m_cardMac.c_str())) {
        return "";
    }
    Pipe list;
    if (!list.open(command)) {
        m_log.logError("AdapterAgent: (%s) failed to run\n", command);
        return "";
    }
    std::string found;
    char line[512];
    while (fgets(line, sizeof line, list.stream) != nullptr) {
        std::string name = chomp(line);
        if (found.empty() && name.compare(0, 3, "---") != 0 && name.compare(0, 3, "...") != 0 && name != except &&
            !name.empty()) {
            found = name;
        }
    }
    int status = list.close();
    // Tool output goes into the next command line: only a plain word is used.
    if (status != 0 || (!found.empty() && !plainWord(found))) {
        m_log.logError("AdapterAgent: (%s) status %d, no usable vNIC name\n", command, status);
        return "";
    }
    return found;
}

void AdapterAgent::setIscsiPriority(const std::string& vnic, const char* priority)
{
    char command[1024];
    std::string output;
    if (!format(command, sizeof command, "%s -i %s %s vorn_set_iscsiboot_params \"%s\"",
                PlatformRoot::path(mptoolPath()).c_str(), m_cardInterface.c_str(), m_cardMac.c_str(), vnic.c_str())) {
        return;
    }
    std::string lines = std::string("initiator-priority  ") + priority + " \n";
    int status = runWithPropertyFile(lines, command, " ", output);
    if (status != 0) {
        // The request itself succeeded; the partner keeps its priority.
        m_log.logError("set initiator priority of %s command (%s) failed with status %d\n", vnic.c_str(), command,
                       status);
    }
}

void AdapterAgent::vnicRemoval(TokenMap& arguments)
{
    if (m_iscsiBootDelete) {
        char command[1024];
        std::string output;
        int status = -1;
        if (!format(command, sizeof command, "%s -i %s %s vorn_delete_iscsiboot_config \"%s\"",
                    PlatformRoot::path(mptoolPath()).c_str(), m_cardInterface.c_str(), m_cardMac.c_str(),
                    m_vnicName.c_str()) ||
            (status = invokeBackend(command, output, "AdapterAgent")) != 0) {
            m_log.logError("unconfigure eth vnic iscsi command (%s) failed with status %d\n", command, status);
            m_status = 2;
            throw ProcessingException("%s", output.c_str());
        }
        // The remaining iSCSI boot vNIC becomes primary.
        std::string other = otherIscsiBootVnic("");
        if (!other.empty()) {
            setIscsiPriority(other, "primary");
        }
        return;
    }
    bootTableChange(arguments);
}

void AdapterAgent::bootTableChange(TokenMap& arguments)
{
    // The tool reads the change from its standard input, "name value" lines:
    // the operation, the entry, and for a create the target.
    std::string lines;
    bool callForm = true;  // createFnicChild(...) or deleteFnicChild(...)
    if (m_createFnicChild) {
        lines = "boot-table-op create\nboot-entry " + m_childIndex + "\nboot-target-wwpn " + m_bootTargetWwpn +
                "\nboot-lun-id " + std::to_string(m_bootTargetLun) + "\n";
    } else if (m_fnicBootTableModify) {
        callForm = false;
        lines = "boot-table-op modify\nboot-entry " + m_childIndex + "\n";
    } else if (m_deleteFnicChild) {
        lines = "boot-table-op delete\nboot-entry " + m_childIndex + "\n";
    } else {
        return;
    }
    // Then one line per property left in the map: the boot-table properties
    // of the index form. The call forms ("createFnicChild(...)") carry none;
    // their map holds only call parameters, which are no properties of the
    // boot entry and are not written (the original writes them too).
    if (!callForm) {
        for (const auto& [name, tokens] : arguments) {
            if (tokens.empty()) {
                continue;
            }
            std::string value = tokens[0].toString();
            if (!generalRule(name) || !generalRule(value)) {
                m_status = 2;
                throw ProcessingException("Invalid property value %s ",
                                          shown(generalRule(name) ? value : name).c_str());
            }
            lines += name + " " + value + " \n";
        }
    }
    log_tlog(1, "AdapterAgentVnic.cpp %d: boot table entry param(wwpn=%s lun=%d)\n", __LINE__, m_bootTargetWwpn.c_str(),
             m_bootTargetLun);
    char command[1024];
    std::string output;
    int status = -1;
    if (format(command, sizeof command, "%s -i %s %s vorn_modify_vnic fc \"%s\"",
               PlatformRoot::path(mptoolPath()).c_str(), m_cardInterface.c_str(), m_cardMac.c_str(),
               m_vnicName.c_str())) {
        status = runWithPropertyFile(lines, command, " < ", output);
    }
    if (status != 0) {
        m_log.logError("vnic child command (%s) failed with status %d\n", command, status);
        m_status = 2;
    }
}
