// HttpText: the front door's readers and writers of outside text (request
// targets, login bodies, cookies, the launch request it builds from a Host
// header). Pure functions, no state: any thread; the fuzz target calls them
// directly.
#pragma once

#include <map>
#include <string>

class HttpText {
public:
    // Strict percent-decoding: every '%' must be followed by two hex digits,
    // and no decoded byte may be NUL (the data server's text ends at one).
    // With plusIsSpace ('+' in form fields) a '+' becomes a blank. False on
    // bad input (out is then unspecified).
    static bool percentDecode(const std::string& in, std::string& out, bool plusIsSpace);
    // application/x-www-form-urlencoded: name=value pairs separated by '&'.
    // A repeated name keeps its first value. False on bad encoding.
    static bool parseForm(const std::string& body, std::map<std::string, std::string>& fields);
    // A login body: JSON {"user":..,"password":..} when the content type
    // names JSON, else form fields. False when malformed or a field is
    // missing, empty, or longer than 128 bytes.
    static bool parseLogin(const std::string& contentType, const std::string& body, std::string& user,
                           std::string& password);
    // The value of cookie `name` in a Cookie header ("" when absent).
    static std::string cookieValue(const std::string& header, const std::string& name);
    // The raw query of a request target ("/data?get=x" -> "get=x").
    static std::string rawQuery(const std::string& target);

    // One of the launch document names the data server answers without the
    // XML envelope (viewer.jnlp, kvm.jnlp, bootCapture.jnlp,
    // crashCapture.jnlp, or a capture-file request).
    static bool isLaunchText(const std::string& text);
    // A text that only reads: a launch document, or a get request with no
    // set part. The data server takes the word set followed by '=' anywhere
    // as a set part, so any "set" with a '=' after it is refused.
    static bool readsOnly(const std::string& text);
    // A scenario or user name: 1-64 letters, digits, '_', '-', '.', not
    // starting with '-' or '.'.
    static bool plainWord(const std::string& text);

    // Where the browser reached the front door, from its Host header; the
    // socket's local address and port when the header is absent or not a
    // plain address (the launch document carries it unescaped).
    struct Reached {
        std::string address;  // without brackets
        bool ipv6 = false;
        int port = 0;
    };
    static Reached reachedFrom(const std::string& hostHeader, const std::string& localAddress, int localPort);
    // The launch request the controller's web server sends for `document`
    // (viewer.jnlp, bootCapture.jnlp, crashCapture.jnlp):
    // document(address@ipv6 flag@cache token@port@session id@user privilege@session reference).
    static std::string launchText(const std::string& document, const Reached& reached, const std::string& cacheToken,
                                  int sessionId, int userPrivilege, const std::string& sessionRef);

    // A Host header naming this machine's loopback: localhost, 127.x.x.x or
    // [::1], with or without a port.
    static bool loopbackHost(const std::string& hostHeader);

    // Constant-time comparison of two secrets.
    static bool sameSecret(const std::string& a, const std::string& b);
};
