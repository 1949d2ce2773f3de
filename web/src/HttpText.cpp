#include "HttpText.h"

#include <cjson/cJSON.h>

#include <cstring>

namespace {

const size_t kMaxLoginField = 128;

int hexValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool goodLoginField(const std::string& s)
{
    return !s.empty() && s.size() <= kMaxLoginField;
}

// A host name or address as the launch document may carry it unescaped.
bool plainAddress(const std::string& s)
{
    if (s.empty() || s.size() > 253) {
        return false;
    }
    for (char c : s) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
                  c == ':';
        if (!ok) {
            return false;
        }
    }
    return true;
}

int portNumber(const std::string& s)
{
    if (s.empty() || s.size() > 5) {
        return 0;
    }
    int v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') {
            return 0;
        }
        v = v * 10 + (c - '0');
    }
    return v >= 1 && v <= 65535 ? v : 0;
}

}  // namespace

bool HttpText::percentDecode(const std::string& in, std::string& out, bool plusIsSpace)
{
    out.clear();
    out.reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        char c = in[i];
        if (c == '%') {
            if (i + 2 >= in.size()) {
                return false;
            }
            int hi = hexValue(in[i + 1]);
            int lo = hexValue(in[i + 2]);
            if (hi < 0 || lo < 0) {
                return false;
            }
            c = static_cast<char>(hi * 16 + lo);
            i += 2;
        } else if (c == '+' && plusIsSpace) {
            c = ' ';
        }
        if (c == '\0') {
            return false;
        }
        out.push_back(c);
    }
    return true;
}

bool HttpText::parseForm(const std::string& body, std::map<std::string, std::string>& fields)
{
    size_t at = 0;
    while (at <= body.size()) {
        size_t end = body.find('&', at);
        if (end == std::string::npos) {
            end = body.size();
        }
        std::string pair = body.substr(at, end - at);
        if (!pair.empty()) {
            size_t eq = pair.find('=');
            std::string name, value;
            if (!percentDecode(pair.substr(0, eq), name, true) ||
                !percentDecode(eq == std::string::npos ? "" : pair.substr(eq + 1), value, true)) {
                return false;
            }
            fields.emplace(name, value);
        }
        at = end + 1;
    }
    return true;
}

bool HttpText::parseLogin(const std::string& contentType, const std::string& body, std::string& user,
                          std::string& password)
{
    user.clear();
    password.clear();
    if (contentType.find("json") != std::string::npos) {
        cJSON* root = cJSON_ParseWithLength(body.data(), body.size());
        if (root == nullptr) {
            return false;
        }
        const cJSON* u = cJSON_GetObjectItemCaseSensitive(root, "user");
        const cJSON* p = cJSON_GetObjectItemCaseSensitive(root, "password");
        if (cJSON_IsObject(root) && cJSON_IsString(u) && cJSON_IsString(p)) {
            user = u->valuestring;
            password = p->valuestring;
        }
        cJSON_Delete(root);
    } else {
        std::map<std::string, std::string> fields;
        if (!parseForm(body, fields)) {
            return false;
        }
        user = fields["user"];
        password = fields["password"];
    }
    return goodLoginField(user) && goodLoginField(password);
}

std::string HttpText::cookieValue(const std::string& header, const std::string& name)
{
    size_t at = 0;
    while (at < header.size()) {
        size_t end = header.find(';', at);
        if (end == std::string::npos) {
            end = header.size();
        }
        size_t b = at;
        while (b < end && (header[b] == ' ' || header[b] == '\t')) {
            ++b;
        }
        size_t eq = header.find('=', b);
        if (eq != std::string::npos && eq < end && header.compare(b, eq - b, name) == 0 && eq - b == name.size()) {
            size_t e = end;
            while (e > eq + 1 && (header[e - 1] == ' ' || header[e - 1] == '\t')) {
                --e;
            }
            return header.substr(eq + 1, e - eq - 1);
        }
        at = end + 1;
    }
    return "";
}

std::string HttpText::rawQuery(const std::string& target)
{
    size_t q = target.find('?');
    return q == std::string::npos ? "" : target.substr(q + 1);
}

bool HttpText::isLaunchText(const std::string& text)
{
    static const char* const kNames[] = {"viewer.jnlp", "kvm.jnlp", "crashCapture.jnlp", "bootCapture.jnlp"};
    for (const char* n : kNames) {
        if (text.find(n) != std::string::npos) {
            return true;
        }
    }
    return text.compare(0, 17, "/captureFile.jnlp") == 0;
}

bool HttpText::readsOnly(const std::string& text)
{
    if (isLaunchText(text)) {
        return true;
    }
    if (text.compare(0, 4, "get=") != 0) {
        return false;
    }
    size_t set = text.find("set");
    return set == std::string::npos || text.find('=', set) == std::string::npos;
}

bool HttpText::plainWord(const std::string& text)
{
    if (text.empty() || text.size() > 64 || text[0] == '-' || text[0] == '.') {
        return false;
    }
    for (char c : text) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
                  c == '.';
        if (!ok) {
            return false;
        }
    }
    return true;
}

HttpText::Reached HttpText::reachedFrom(const std::string& hostHeader, const std::string& localAddress, int localPort)
{
    Reached r;
    std::string host = hostHeader;
    std::string port;
    if (!host.empty() && host[0] == '[') {
        size_t close = host.find(']');
        if (close != std::string::npos) {
            r.address = host.substr(1, close - 1);
            r.ipv6 = true;
            if (close + 1 < host.size() && host[close + 1] == ':') {
                port = host.substr(close + 2);
            } else if (close + 1 != host.size()) {
                r.address.clear();
            }
        }
    } else {
        size_t colon = host.find(':');
        r.address = host.substr(0, colon);
        if (colon != std::string::npos) {
            port = host.substr(colon + 1);
        }
        if (r.address.find(':') != std::string::npos) {
            r.address.clear();
        }
    }
    r.port = port.empty() ? localPort : portNumber(port);
    if (!plainAddress(r.address) || (r.ipv6 && r.address.find(':') == std::string::npos) || r.port == 0) {
        r.address = localAddress;
        r.ipv6 = localAddress.find(':') != std::string::npos;
        r.port = localPort;
    }
    return r;
}

std::string HttpText::launchText(const std::string& document, const Reached& reached, const std::string& cacheToken,
                                 int sessionId, int userPrivilege, const std::string& sessionRef)
{
    return document + "(" + reached.address + "@" + (reached.ipv6 ? "1" : "0") + "@" + cacheToken + "@" +
           std::to_string(reached.port) + "@" + std::to_string(sessionId) + "@" + std::to_string(userPrivilege) + "@" +
           sessionRef + ")";
}

bool HttpText::loopbackHost(const std::string& hostHeader)
{
    Reached r = reachedFrom(hostHeader, "", 80);  // any port will do here
    if (r.ipv6) {
        return r.address == "::1";
    }
    return r.address == "localhost" || r.address.compare(0, 4, "127.") == 0;
}

bool HttpText::sameSecret(const std::string& a, const std::string& b)
{
    if (a.size() != b.size()) {
        return false;
    }
    unsigned char diff = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return diff == 0;
}
