// The command line and the environment of the program: one table of options, the help text.
#pragma once

#include <optional>
#include <string>

#include "crvconfd/session/settings.h"
#include "profiles/profile_media.h"

namespace crv {

/// What the command line asks for.
enum class Request { Session, List, Help, Version, UnknownArgument };

struct CommandLine {
    Request request = Request::Session;
    std::string unknownArgument;
    std::optional<std::string> profile;   ///< profile to open without asking
    std::optional<std::string> listFile;  ///< the named list; may be missing although kind is File
    AvailableProfiles kind = AvailableProfiles::All;
    TerminalMode terminalMode = TerminalMode::Rich;
    bool verbose = false;
};

/// What stands in a path after its last "/".
[[nodiscard]] std::string baseName(const std::string& path);

/// Whether a program's base name makes it the configuration of the signing program: "sign" in it, in any case.
[[nodiscard]] bool isSignerName(const std::string& base);

/// Reads environment and arguments and sets the process-wide settings, the locale and the display encoding. Stops at
/// the first argument that decides alone (help, version) or is not known. CRV_PROFILE and CRV_PROFILE_FILE win over
/// options.
[[nodiscard]] CommandLine readCommandLine(int count, const char* const* arguments);

/// The help text, converted for display, for a program of this base name.
[[nodiscard]] std::string helpText(const std::string& base);

}  // namespace crv
