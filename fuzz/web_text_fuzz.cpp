// The web front door's readers of outside text: percent-decoding of request
// texts and form fields, login bodies (form and JSON), the Cookie header, the
// read-only check of GET /data, and the Host header that goes unescaped into
// a launch request. Checks what each promises, besides not crashing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "HttpText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string in(reinterpret_cast<const char*>(data), size);
    std::string out;
    for (bool plus : {false, true}) {
        if (HttpText::percentDecode(in, out, plus) && (out.size() > in.size() || out.find('\0') != std::string::npos)) {
            abort();
        }
    }
    std::map<std::string, std::string> fields;
    HttpText::parseForm(in, fields);
    std::string user, password;
    for (const char* type : {"application/json", "application/x-www-form-urlencoded"}) {
        if (HttpText::parseLogin(type, in, user, password) &&
            (user.empty() || password.empty() || user.size() > 128 || password.size() > 128)) {
            abort();
        }
    }
    std::string cookie = HttpText::cookieValue(in, "gdsweb_session");
    if (cookie.find(';') != std::string::npos) {
        abort();
    }
    HttpText::readsOnly(in);
    HttpText::loopbackHost(in);
    HttpText::plainWord(in);
    HttpText::Reached r = HttpText::reachedFrom(in, "127.0.0.1", 8080);
    if (r.address.find_first_of("@()<>\"'&; \r\n") != std::string::npos || r.port < 1 || r.port > 65535) {
        abort();
    }
    std::string text = HttpText::launchText("viewer.jnlp", r, "1", 1, 4, "ref");
    if (text.find(')') != text.size() - 1) {
        abort();
    }
    return 0;
}
