#include "crvctl/secrets.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "crvctl/output.h"
#include "crvctl/texts.h"
#include "misc/ascii.h"
#include "misc/file_ops.h"
#include "misc/path.h"
#include "misc/utf8.h"
#include "ops/op_error.h"

namespace crv::ctl {
namespace {

/// Reads one line, octet by octet, so that what follows it stays for the next reader of the descriptor.
SecretText readLine(int fd, const std::string& kind) {
    SecretText line;
    for (;;) {
        char octet = 0;
        const ssize_t count = ::read(fd, &octet, 1);
        const WipeGuard guard(&octet, 1);
        if (count < 0 && errno == EINTR) {
            stopIfEnding();
            continue;
        }
        if (count < 0) throw OpError(OpFault::SecretMissing, kind + ": " + std::strerror(errno));
        if (count == 0 || octet == '\n') break;
        if (octet == '\0' || line.size() == kLongestSecret) throw OpError(OpFault::SecretUnfit, kind);
        line.append({&octet, 1});
    }
    if (line.view().ends_with('\r')) line.truncate(line.size() - 1);
    return line;
}

SecretText readSecretFile(const std::string& path, const std::string& kind, bool strict) {
    const FileDescriptor file(fileOps().open(expandHome(path), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat info {};
    if (!file.valid() || fileOps().fstat(file.get(), &info) != 0)
        throw OpError(OpFault::SecretMissing, path + ": " + std::strerror(errno));
    constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
    if (strict && S_ISREG(info.st_mode) && (info.st_mode & kOthers) != 0) throw OpError(OpFault::SecretExposed, path);
    return readLine(file.get(), kind);
}

SecretText takeFromEnvironment(const std::string& name) {
    char* value = std::getenv(name.c_str());
    if (!value) throw OpError(OpFault::SecretMissing, name);
    SecretText secret{std::string_view(value)};
    // The octets lie in the process's environment, which others of the user can read.
    wipeMemory(value, std::strlen(value));
    unsetenv(name.c_str());
    if (secret.size() > kLongestSecret) throw OpError(OpFault::SecretUnfit, name);
    return secret;
}

std::string credentialPath(const std::string& kind) {
    const char* folder = std::getenv("CREDENTIALS_DIRECTORY");
    if (!folder) return {};
    std::string path = std::string(folder) + "/corvane." + kind;
    return fileOps().access(path, R_OK) == 0 ? path : std::string();
}

void demandUtf8(const SecretText& secret, const std::string& kind) {
    if (!isUtf8(secret.view())) throw OpError(OpFault::SecretUnfit, kind);
}

/// Takes the terminal's echo away for a scope.
class NoEcho {
  public:
    explicit NoEcho(int fd) : fd_(fd), changed_(tcgetattr(fd, &before_) == 0) {
        termios quiet = before_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (changed_) tcsetattr(fd_, TCSAFLUSH, &quiet);
    }
    ~NoEcho() {
        if (changed_) tcsetattr(fd_, TCSAFLUSH, &before_);
    }
    NoEcho(const NoEcho&) = delete;
    NoEcho& operator=(const NoEcho&) = delete;

  private:
    int fd_;
    termios before_{};
    bool changed_;
};

int openTerminal(const Call& call) {
    return call.has("non-interactive") ? -1 : fileOps().open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
}

const char* promptOf(const std::string& kind) {
    static constexpr std::pair<const char*, const char*> kPrompts[] = {
        {"password", "Password of the security file: "},
        {"new-password", "New password: "},
        {"pin", "PIN of the card: "},
        {"decryption-pin", "PIN of the card with the decryption key: "},
        {"key-pin", "PIN of the signing key: "},
        {"roots-password", "Password of the additional trust points: "},
        {"server-password", "Password of the server: "},
        {"proxy-password", "Password of the proxy: "},
        {"import-password", "Password of the file with the key: "},
    };
    const auto* row = std::ranges::find(kPrompts, kind, [](const auto& pair) { return std::string_view(pair.first); });
    return tr(row->second);
}

SecretText askSecret(int terminal, const char* prompt, const std::string& kind) {
    const NoEcho quiet(terminal);
    Output::write(terminal, forTerminal(prompt));
    SecretText secret = readLine(terminal, kind);
    Output::write(terminal, "\n");
    return secret;
}

SecretText prompt(const Call& call, const std::string& kind, bool twice) {
    const FileDescriptor terminal(openTerminal(call));
    if (!terminal.valid()) throw OpError(OpFault::SecretMissing, kind);
    SecretText secret = askSecret(terminal.get(), promptOf(kind), kind);
    if (twice && !(askSecret(terminal.get(), tr("Once more: "), kind) == secret))
        throw OpError(OpFault::SecretUnfit, kind);
    return secret;
}

}  // namespace

bool readGivenSecret(const Call& call, const std::string& kind, SecretText& secret) {
    if (const auto fd = call.value(kind + "-fd")) {
        int number = -1;
        std::from_chars(fd->data(), fd->data() + fd->size(), number);
        secret = readLine(number, kind);
    } else if (const auto file = call.value(kind + "-file")) {
        secret = readSecretFile(*file, kind, true);
    } else if (const auto name = call.value(kind + "-env")) {
        secret = takeFromEnvironment(*name);
    } else if (const std::string path = credentialPath(kind); !path.empty()) {
        secret = readSecretFile(path, kind, false);  // its folder admits the service only
    } else {
        return false;
    }
    demandUtf8(secret, kind);
    return true;
}

bool readCredentialOf(const std::string& profile, const std::string& kind, SecretText& secret) {
    const char* folder = std::getenv("CREDENTIALS_DIRECTORY");
    std::vector<std::string> names;
    if (!folder || fileOps().list(folder, names) != 0) return false;
    const std::string wanted = "corvane." + kind + "." + profile;
    const auto found =
        std::ranges::find_if(names, [&](const std::string& one) { return equalIgnoreCase(one, wanted); });
    if (found == names.end()) return false;
    secret = readSecretFile(std::string(folder) + "/" + *found, kind, false);
    demandUtf8(secret, kind);
    return true;
}

SecretText readSecret(const Call& call, const std::string& kind, bool twice) {
    SecretText secret;
    if (!readGivenSecret(call, kind, secret)) secret = prompt(call, kind, twice);
    demandUtf8(secret, kind);
    return secret;
}

bool askYesNo(const Call& call, const std::string& question) {
    const FileDescriptor terminal(openTerminal(call));
    if (!terminal.valid()) throw OpError(OpFault::NotConfirmed, question);
    Output::write(terminal.get(), forTerminal(harmlessUtf8(question) + " " + tr("(y/n)") + " "));
    const SecretText answer = readLine(terminal.get(), {});
    const std::string_view words[] = {"y", "Y", "yes", "t", "T", "tak"};
    return std::ranges::find(words, answer.view()) != std::end(words);
}

}  // namespace crv::ctl
