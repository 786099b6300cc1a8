#include "crvconfd/session/program_info.h"

#include <cstdio>
#include <cstdlib>

#include "config/configuration_manager.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/settings.h"
#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/c_string.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr const char* kNoName = " - <bez nazwy>";

/// What follows the header for the current profile; header is what stands before it.
std::string profileSuffix(const std::string& header, bool shorten) {
    if (!cfgManager || !cfgManager->profile()) return {};
    const std::string name = cfgManager->profileName();
    if (name.empty()) return kNoName;
    const std::string open = " - [";
    const size_t length = header.size() + open.size();
    if (!shorten || length + name.size() + 4 < 81) return open + name + "]";
    return open + std::string(cutText(name, 76 - length)) + "...]";
}

}  // namespace

void getProgramInfo(std::string& text) {
    text = bSignerProfiles ? "Konfiguracja CORVANE Signature " : "Konfiguracja pakietu CORVANE ";
    text += std::string(kProgramVersion) + " (K.2023030101)";
}

void displayProgramInfo(int row) {
    std::string text;
    getProgramInfo(text);
    text += profileSuffix(text, true);
    displHeader(row, "%s", text.c_str());
}

void setTitle(const char* title) {
    if (!viewOrEmpty(std::getenv("TERM")).starts_with("xterm")) return;
    const std::string shown = pl(printable(viewOrEmpty(title)));
    std::printf("\x1b]0;%s\a", shown.c_str());
    std::fflush(stdout);
}

std::string sessionTitle() {
    std::string title = "Konfiguracja CORVANE ";
    if (bSignerProfiles) title += "Signature ";
    title += kProgramVersion;
    return title + profileSuffix(title, false);
}

}  // namespace crv
