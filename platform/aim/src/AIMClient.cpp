#include "AIMClient.h"

#include <cstring>
#include <string>

#include "AIMStore.h"

namespace {
const char kLogName[] = "AIMClient";

// Names come from callers and files: show control bytes escaped so a name
// cannot break a log line.
std::string shown(const char* text)
{
    return text == nullptr ? std::string("(null)") : AIMStore::displayText(text);
}

bool traced(AComponentLog& log)
{
    return log.isEnabled(ALog::kTrace);
}

void copyText(const std::string& text, char* out)
{
    size_t n = text.size() < static_cast<size_t>(AIMClient::kMaxValue) ? text.size() : AIMClient::kMaxValue;
    memcpy(out, text.data(), n);
    out[n] = '\0';
}
}  // namespace

AIMClient::AIMClient(const char* clientName, int clientId)
    : m_clientName(clientName != nullptr ? clientName : ""), m_clientId(clientId), m_log(kLogName)
{
}

AIMClient::~AIMClient() = default;

bool AIMClient::initialize()
{
    if (AIMStore::fault("initialize", nullptr)) {
        m_log.logTrace("initialize(%s, %d): refused by fault file", m_clientName, m_clientId);
        return false;
    }
    if (!AIMStore::ensureFolders()) {
        m_log.logTrace("initialize(%s, %d): store folders cannot be created", m_clientName, m_clientId);
        return false;
    }
    AIMStore::removeStaleTemps(600);
    m_initialized = true;
    m_log.logTrace("initialize(%s, %d): ok", m_clientName, m_clientId);
    return true;
}

void AIMClient::setLog(AComponentLog& log)
{
    m_log = AComponentLog(kLogName);
    m_log.setParent(log);
}

void AIMClient::setLog(ALog& log)
{
    m_log = AComponentLog(kLogName);
    m_log.setBaseLog(log);
}

bool AIMClient::getProperty(const char* name, int& value)
{
    AIMStore::Status status = AIMStore::getInt(name, value);
    if (traced(m_log)) {
        if (status == AIMStore::kOk) {
            m_log.logTrace("get int %s = %d", shown(name).c_str(), value);
        } else {
            m_log.logTrace("get int %s failed: %s", shown(name).c_str(), AIMStore::statusText(status));
        }
    }
    return status == AIMStore::kOk;
}

bool AIMClient::getProperty(const char* name, bool& value)
{
    AIMStore::Status status = AIMStore::getBool(name, value);
    if (traced(m_log)) {
        if (status == AIMStore::kOk) {
            m_log.logTrace("get bool %s = %d", shown(name).c_str(), value ? 1 : 0);
        } else {
            m_log.logTrace("get bool %s failed: %s", shown(name).c_str(), AIMStore::statusText(status));
        }
    }
    return status == AIMStore::kOk;
}

bool AIMClient::getProperty(const char* name, char* value)
{
    std::string text;
    AIMStore::Status status = value != nullptr ? AIMStore::getText(name, text) : AIMStore::kBadValue;
    if (status == AIMStore::kOk) {
        copyText(text, value);
    }
    if (traced(m_log)) {
        if (status == AIMStore::kOk) {
            m_log.logTrace("get str %s = \"%s\"", shown(name).c_str(), AIMStore::displayText(text).c_str());
        } else {
            m_log.logTrace("get str %s failed: %s", shown(name).c_str(), AIMStore::statusText(status));
        }
    }
    return status == AIMStore::kOk;
}

bool AIMClient::getPropertyCrypt(const char* name, char* value)
{
    std::string text;
    AIMStore::Status status = value != nullptr ? AIMStore::getCrypt(name, text) : AIMStore::kBadValue;
    if (status == AIMStore::kOk) {
        copyText(text, value);
    }
    // The value itself is never logged.
    m_log.logTrace("get crypt %s: %s", shown(name).c_str(), AIMStore::statusText(status));
    return status == AIMStore::kOk;
}

bool AIMClient::setProperty(const char* name, int value, bool persist)
{
    AIMStore::Status status = AIMStore::setInt(name, value);
    if (traced(m_log)) {
        m_log.logTrace("set int %s = %d: %s", shown(name).c_str(), value, AIMStore::statusText(status));
    }
    return status == AIMStore::kOk;
}

bool AIMClient::setProperty(const char* name, bool value, bool persist)
{
    AIMStore::Status status = AIMStore::setBool(name, value);
    if (traced(m_log)) {
        m_log.logTrace("set bool %s = %d: %s", shown(name).c_str(), value ? 1 : 0, AIMStore::statusText(status));
    }
    return status == AIMStore::kOk;
}

bool AIMClient::setProperty(const char* name, char* value, bool persist)
{
    return setProperty(name, static_cast<const char*>(value), persist);
}

bool AIMClient::setProperty(const char* name, const char* value, bool persist)
{
    AIMStore::Status status = AIMStore::setText(name, value);
    if (traced(m_log)) {
        m_log.logTrace("set str %s = \"%s\": %s", shown(name).c_str(), shown(value).c_str(),
                       AIMStore::statusText(status));
    }
    return status == AIMStore::kOk;
}

bool AIMClient::setPropertyCrypt(const char* name, char* value, bool persist)
{
    AIMStore::Status status = AIMStore::setCrypt(name, value);
    m_log.logTrace("set crypt %s: %s", shown(name).c_str(), AIMStore::statusText(status));
    return status == AIMStore::kOk;
}

int AIMClient::callFunction(const char* name, int inLength, const void* in, int outCapacity, int* outLength, void* out)
{
    int produced = 0;
    int result = AIMStore::callFunction(name, in, inLength, out, outCapacity, &produced, nullptr);
    if (outLength != nullptr) {
        *outLength = produced;
    }
    if (traced(m_log)) {
        m_log.logTrace("call %s (%d bytes in, room for %d): result %d, %d bytes out", shown(name).c_str(), inLength,
                       outCapacity, result, produced);
    }
    return result;
}

bool AIMClient::notifyEvent(const char* event, int length, void* data)
{
    AIMStore::Status status = AIMStore::raiseEvent(nullptr, event, data, length);
    if (traced(m_log)) {
        m_log.logTrace("event %s (%d bytes): %s", shown(event).c_str(), length, AIMStore::statusText(status));
    }
    return status == AIMStore::kOk;
}
