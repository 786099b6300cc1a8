#include "crvconfd/session/program.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "corvane/crvapi.h"
#include "crvconfd/session/command_line.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/session/profile_names.h"
#include "crvconfd/session/program_info.h"
#include "crvconfd/session/session.h"
#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/exceptions.h"
#include "misc/path.h"
#include "misc/process_guard.h"

namespace crv {

namespace {

constexpr int kStatusFailed = 1;
constexpr int kStatusException = 255;

struct ModeAttributes {
    int shortcut;
    int selected;
    int header;
    int emphasis;
};
// In the order of TerminalMode.
constexpr std::array<ModeAttributes, 3> kModeAttributes{{
    {0, 0, 0, 0},
    {kAttrStandout, kAttrStandout, kAttrStandout, kAttrStandout},
    {kAttrUnderline, kAttrReverse, kAttrReverse, kAttrBold},
}};

void complain(const std::string& text) {
    const std::string line = pl(text) + "\n";
    // There is nobody left to tell when this fails.
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, line.data(), line.size());
}

/// What the screens kept for the end, a line at a time.
void bidFarewell() {
    const std::string text = takeFarewell();
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        complain(printable(line));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
}

/// Writes text that is converted already to standard output.
void print(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "Błąd zapisu na standardowe wyjście");
        if (count > 0) text.remove_prefix(static_cast<size_t>(count));
    }
}

void printVersion() {
    std::string info;
    getProgramInfo(info);
    print(pl(info + "\nCopyright (C) 2023 Twórcy pakietu Corvane. Licencja Apache 2.0.\n"));
}

bool canOpenList(const CommandLine& line) {
    if (!line.listFile) return false;
    const int fd = open(expandHome(*line.listFile).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat status {};
    const bool isFile = fstat(fd, &status) == 0 && !S_ISDIR(status.st_mode);
    close(fd);
    return isFile;
}

void startScreen(TerminalMode mode) {
    initScr();
    const ModeAttributes& attributes = kModeAttributes[static_cast<size_t>(mode)];
    setShortcutAttr(attributes.shortcut);
    setSelectedAttr(attributes.selected);
    setHeaderAttr(attributes.header);
    setEmphasisAttr(attributes.emphasis);
}

void runScreens(const CommandLine& line, NamedProfile named) {
    hideMemory();
    startScreen(line.terminalMode);
    {
        observeMessages(noteMessage);
        const CursorGuard hidden(false);
        runSessions(line, std::move(named));
    }
    downScr();
}

void chooseLists() {
    if (!bSignerProfiles) return;
    for (const ProfileMedia media : {ProfileMedia::User, ProfileMedia::Common}) {
        CrvProfile::setDefaultCfgFileName(media, CrvProfile::getSignerCfgFileName(media));
    }
}

/// What somebody may miss in the lists although it stands there.
void complainOfFlaws(const CommandLine& line) {
    for (const std::string& flaw : flawsOfLists(line.kind, line.listFile ? line.listFile->c_str() : nullptr))
        complain(printable(flaw));
}

/// What reads lists before there is a screen; where one cannot be read, the end tells which were looked for.
template <class Work>
auto readingLists(const CommandLine& line, const Work& work) try {
    return work();
} catch (const StoreError&) {
    sayAtEnd(searchedLists(line.kind, line.listFile.value_or("").c_str()));
    throw;
}

/// From the resolved command line to the exit status; the context lives in here.
int runWithContext(const CommandLine& line) {
    const ContextOwner context;
    if (line.request == Request::List) {
        print(readingLists(
            line, [&] { return profileListText(line.kind, line.listFile ? line.listFile->c_str() : nullptr); }));
        complainOfFlaws(line);
        return 0;
    }
    NamedProfile named;
    if (line.profile) {
        named.profile = readingLists(
            line, [&] { return loadCrvProfile(line.kind, *line.profile, line.listFile.value_or(""), &named.media); });
        if (!named.profile) {
            complain("Nie znaleziono profilu " + printable(*line.profile));
            complainOfFlaws(line);
            sayAtEnd(searchedLists(line.kind, line.listFile.value_or("").c_str()));
            bidFarewell();
            return kStatusFailed;
        }
    }
    runScreens(line, std::move(named));
    bidFarewell();
    if (line.verbose) complain(context.report());
    return 0;
}

int runRequest(const CommandLine& line, const std::string& program) {
    switch (line.request) {
        case Request::Help:
            print(helpText(baseName(program)));
            return 0;
        case Request::Version:
            printVersion();
            return 0;
        case Request::UnknownArgument:
            complain("Błędny parametr wywołania programu: " + printable(line.unknownArgument));
            return kStatusFailed;
        case Request::List:
        case Request::Session:
            break;
    }
    chooseLists();
    if (line.kind == AvailableProfiles::File && !canOpenList(line)) {
        complain("Nie można otworzyć pliku z listą profili: " + printable(line.listFile.value_or("")));
        return kStatusFailed;
    }
    return runWithContext(line);
}

/// Tells of an exception where the user looks; the screen is ended.
int failWith(const char* text) {
    if (!wasInitScr()) {
        complain(printable(text));
        bidFarewell();
    } else {
        errInfo(kMessageRow, "%s", text);
        downScr();
        // The row may have been too short for it.
        complain(printable(reasonFirst(text)));
        bidFarewell();
    }
    return kStatusException;
}

/// Ends the process as the signal would have, now that everything is put away.
int endBySignal(int signal) {
    downScr();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return kStatusException;
}

/// What cannot be told where the user looks; nothing here takes memory. The terminal is put right all the same.
int failPlainly(std::string_view text) noexcept {
    downScr();
    for (const std::string_view part : {text, std::string_view{"\n"}}) {
        [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, part.data(), part.size());
    }
    return kStatusException;
}

int runGuarded(int count, const char* const* arguments) {
    try {
        try {
            return runRequest(readCommandLine(count, arguments), count > 0 ? arguments[0] : "");
        } catch (const NoScreen& missing) {
            complain(missing.what());
            return kStatusFailed;
        } catch (const std::exception& failure) {
            return failWith(failureText(failure).c_str());
        }
    } catch (const ScreenClosed& closed) {
        return endBySignal(closed.signal());
    }
}

}  // namespace

int runProgram(int count, const char* const* arguments) {
    guardStandardFiles();
    try {
        return runGuarded(count, arguments);
    } catch (const std::bad_alloc&) {
        return failPlainly("Brak pamieci !!!");
    } catch (const std::exception& failure) {
        return failPlainly(failure.what());
    }
}

}  // namespace crv
