#include "sm_session.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "PlatformRoot.h"

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
const unsigned kAlphabetSize = sizeof kAlphabet - 1;  // 62
const int kUserRandomChars = 12;
const int kPasswordChars = 24;

// Fills `out` with `count` bytes from the kernel's random source; 0 or an errno.
int randomBytes(unsigned char* out, size_t count)
{
    size_t done = 0;
    while (done < count) {
        ssize_t n = getrandom(out + done, count - done, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && errno == ENOSYS) {
            break;  // an old kernel: read the device instead
        }
        if (n <= 0) {
            return n < 0 ? errno : EIO;
        }
        done += static_cast<size_t>(n);
    }
    if (done == count) {
        return 0;
    }
    int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    while (done < count) {
        ssize_t n = read(fd, out + done, count - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            int err = n < 0 ? errno : EIO;
            close(fd);
            return err;
        }
        done += static_cast<size_t>(n);
    }
    close(fd);
    return 0;
}

// `count` characters drawn evenly from kAlphabet (bytes that would favour
// the first letters are thrown away and drawn again).
int randomText(std::string& text, int count)
{
    const unsigned limit = 256 - 256 % kAlphabetSize;
    text.clear();
    unsigned char pool[64];
    while (static_cast<int>(text.size()) < count) {
        int err = randomBytes(pool, sizeof pool);
        if (err != 0) {
            return err;
        }
        for (unsigned char b : pool) {
            if (b < limit && static_cast<int>(text.size()) < count) {
                text += kAlphabet[b % kAlphabetSize];
            }
        }
    }
    return 0;
}

// The error number written in the fault file, 0 when there is no fault file.
// A fault file without a non-zero number fails with EIO.
int injectedFault()
{
    std::string text;
    if (!PlatformRoot::faultText("session", "get_temp_credentials", text)) {
        return 0;
    }
    int code = 0;
    if (sscanf(text.c_str(), "%d", &code) != 1 || code == 0) {
        code = EIO;
    }
    return code;
}

// Appends one line to the record of issued credentials; 0 or an errno.
int record(const std::string& line)
{
    mkdir(PlatformRoot::path("/var").c_str(), 0755);
    mkdir(PlatformRoot::path("/var/session").c_str(), 0755);
    std::string path = PlatformRoot::path("/var/session/credentials");
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) {
        return errno;
    }
    int err = 0;
    if (flock(fd, LOCK_EX) != 0) {
        err = errno;
    } else if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        err = errno != 0 ? errno : EIO;
    }
    close(fd);
    return err;
}

}  // namespace

extern "C" int sm_session_get_temp_credentials(int kind, char* user, char* password, int aim_session_id,
                                               int aim_user_priv)
{
    if (user == nullptr || password == nullptr) {
        return EINVAL;
    }
    int err = injectedFault();
    if (err != 0) {
        return err;
    }
    std::string userText;
    std::string passwordText;
    if ((err = randomText(userText, kUserRandomChars)) != 0 || (err = randomText(passwordText, kPasswordChars)) != 0) {
        return err;
    }
    userText = "vkvm-" + userText;
    // The session manager knows credentials only once they are recorded.
    timeval now;
    gettimeofday(&now, nullptr);
    char head[96];
    // long long: time_t is 64 bits on the 32-bit controller, long is not.
    snprintf(head, sizeof head, "%lld.%06ld %d %d %d ", static_cast<long long>(now.tv_sec),
             static_cast<long>(now.tv_usec), kind, aim_session_id, aim_user_priv);
    if ((err = record(head + userText + " " + passwordText + "\n")) != 0) {
        return err;
    }
    snprintf(user, SM_SESSION_CREDENTIAL_SIZE, "%s", userText.c_str());
    snprintf(password, SM_SESSION_CREDENTIAL_SIZE, "%s", passwordText.c_str());
    return 0;
}
