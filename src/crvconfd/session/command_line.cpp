#include "crvconfd/session/command_line.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "crvconfd/toolkit/encoding.h"
#include "misc/ascii.h"

namespace crv {

namespace {

/// An option: its synonyms (unused ones null), whether it takes the next argument, and what it does with it.
struct Option {
    std::array<const char*, 3> names;
    bool takesValue;
    void (*apply)(CommandLine& line, const char* value);
};

void chooseEncoding(const char* standard, bool namesInUtf8) {
    plStandard(standard);
    displDnInUft8 = namesInUtf8;
}

template <AvailableProfiles kind>
void chooseKind(CommandLine& line, const char* /*value*/) {
    line.kind = kind;
}

template <TerminalMode mode>
void chooseMode(CommandLine& line, const char* /*value*/) {
    line.terminalMode = mode;
}

void assign(std::optional<std::string>& target, const char* value) {
    target.reset();
    if (value) target = value;
}

constexpr std::array kOptions{
    Option{
        {"-profile", "-crvProfile"}, true, [](CommandLine& line, const char* value) { assign(line.profile, value); }},
    Option{{"-list", "-listProfiles"}, false, [](CommandLine& line, const char*) { line.request = Request::List; }},
    Option{{"-common", "-commonProfiles"}, false, chooseKind<AvailableProfiles::Common>},
    Option{{"-user", "-userProfiles"}, false, chooseKind<AvailableProfiles::User>},
    Option{{"-all", "-allProfiles"}, false, chooseKind<AvailableProfiles::All>},
    Option{{"-profiles", "-profilesFile"},
           true,
           [](CommandLine& line, const char* value) {
               line.kind = AvailableProfiles::File;
               assign(line.listFile, value);
           }},
    Option{{"-signer", "-signerProfiles"}, false, [](CommandLine&, const char*) { bSignerProfiles = true; }},
    Option{{"-corvane", "-corvaneProfiles"}, false, [](CommandLine&, const char*) { bSignerProfiles = false; }},
    Option{{"-utf8"}, false, [](CommandLine&, const char*) { chooseEncoding("UTF8", true); }},
    Option{{"-ascii"},
           false,
           [](CommandLine&, const char*) {
               chooseEncoding("ASCII", false);
               displDnEscaped = true;
           }},
    Option{{"-latin2"}, false, [](CommandLine&, const char*) { chooseEncoding("LATIN2", false); }},
    Option{{"-cp1250"}, false, [](CommandLine&, const char*) { chooseEncoding("WINDOWS", false); }},
    // There is no table for code page 852: the encoding is not known, so this is plain ASCII.
    Option{{"-cp852"}, false, [](CommandLine&, const char*) { chooseEncoding("852", false); }},
    Option{{"-dnutf8"}, false, [](CommandLine&, const char*) { displDnInUft8 = true; }},
    Option{{"-dnesc"}, false, [](CommandLine&, const char*) { displDnEscaped = true; }},
    Option{{"-dnnorm"}, false, [](CommandLine&, const char*) { displDnInUft8 = displDnEscaped = false; }},
    Option{{"-termdumb"}, false, chooseMode<TerminalMode::Dumb>},
    Option{{"-termsimple"}, false, chooseMode<TerminalMode::Simple>},
    Option{{"-termrich"}, false, chooseMode<TerminalMode::Rich>},
    Option{{"-help", "--help", "-h"}, false, [](CommandLine& line, const char*) { line.request = Request::Help; }},
    Option{{"-verbose", "-v"}, false, [](CommandLine& line, const char*) { line.verbose = true; }},
    Option{{"-version", "-ver", "--version"},
           false,
           [](CommandLine& line, const char*) { line.request = Request::Version; }},
};

const Option* findOption(std::string_view argument) {
    for (const Option& option : kOptions) {
        if (std::any_of(option.names.begin(), option.names.end(),
                        [&](const char* name) { return name && equalIgnoreCase(name, argument); })) {
            return &option;
        }
    }
    return nullptr;
}

bool decidesAlone(Request request) {
    return request == Request::Help || request == Request::Version;
}

void readArguments(CommandLine& line, int count, const char* const* arguments) {
    for (int i = 1; i < count && !decidesAlone(line.request); ++i) {
        const std::string_view argument = arguments[i];
        // The one comparison that looks at the case: "-v" is -verbose.
        if (argument == "-V") {
            line.request = Request::Version;
            return;
        }
        const Option* option = findOption(argument);
        if (!option) {
            line.request = Request::UnknownArgument;
            line.unknownArgument = argument;
            return;
        }
        const char* value = nullptr;
        if (option->takesValue && i + 1 < count) value = arguments[++i];
        option->apply(line, value);
    }
}

constexpr std::string_view kHelpHead = "Sposób użycia:\n";
constexpr std::string_view kHelpLists =
    R"(Parametry:
  -profile <profil> - wybierz wskazany profil do edycji
  -list[Profiles]   - wyświetl listę profili i zakończ
  -common[Profiles] - Wyświetla tylko wspólne profile
  -user[Profiles]   - Wyświetla tylko profile użytkownika
  -all[Profiles]    - Wyświetla wszystkie dostępne profile
)";
constexpr std::string_view kHelpSigner = "  -signer[Profiles] - Wczytuje listę profili dla programu Corvane-Signature";
constexpr std::string_view kHelpCorvane = "  -corvane[Profiles] - Wczytuje listę profili dla programu Corvane";
constexpr std::string_view kHelpDefault = " (domyślnie)";
constexpr std::string_view kHelpRest =
    R"(  -profiles <plik>  - Wskazuje bezpośrednio plik z listą profili
  -utf8             - wymusza kodowanie wyświetlanych tekstów w UTF-8
  -latin2           - wymusza kodowanie wyświetlanych tekstów w ISO 8859-2
  -ascii            - wymusza kodowanie wyświetlanych tekstów w ASCII
  -cp1250           - wymusza kodowanie wyświetlanych tekstów w windows-1250
  -dnutf8           - wyświetla DN-y z certyfikatu zakodowane w UTF-8
  -dnesc            - wyświetla znaki spoza zakresu ASCII w DN-ie certyfikatu
                      w postaci '\xx'
  -dnnorm           - wyświetla DN-y z certyfikatu w zwykły sposób - przywró-
                      cenie domyślnego zachowania
  -termdumb         - Wyłącza wyświetlanie znaków z atrybutami podświetlenia
                      lub podkreślenia - powinno być używane na terminalach,
                      które nie mają wsparcia dla atrybutów
  -termsimple       - Używa do wyświetlania znaków tylko prostych atrybutów
  -termrich         - Używa do wyświetlania znaków wszystkich atrybutów
  -verbose          - Wyświetlenie na końcu raportu z wykonywanych operacji
  -help             - Wyświetlenie tego tekstu pomocy
  -version          - Wyświetlenie informacji o wersji programu

Jeśli program zostanie wywołany bez parametrów, zostanie wyświetlona lista
profili i będzie można wybrać profil do edycji.
)";

}  // namespace

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool isSignerName(const std::string& base) {
    return containsIgnoreCase(base, "sign");
}

CommandLine readCommandLine(int count, const char* const* arguments) {
    CommandLine line;
    bSignerProfiles = count > 0 && isSignerName(baseName(arguments[0]));
    // Letters and libc's messages; the other ten files of a locale say nothing here, and take time at each start.
    for (const int category : {LC_CTYPE, LC_MESSAGES}) std::setlocale(category, "");
    displDnInUft8 = plStandard() == static_cast<char>(DisplayEncoding::Utf8);
    displDnEscaped = false;
    readArguments(line, count, arguments);
    if (const char* file = std::getenv("CRV_PROFILE_FILE"); file) {
        line.kind = AvailableProfiles::File;
        line.listFile = file;
    }
    if (const char* profile = std::getenv("CRV_PROFILE"); profile) line.profile = profile;
    return line;
}

std::string helpText(const std::string& base) {
    const bool signer = isSignerName(base);
    const auto marked = [](std::string_view option, bool isDefault) {
        return std::string(option) + std::string(isDefault ? kHelpDefault : "") + "\n";
    };
    std::string options = std::string(kHelpLists) + marked(kHelpSigner, signer) + marked(kHelpCorvane, !signer);
    options += kHelpRest;
    return pl(kHelpHead) + base + " [parametry]\n\n" + pl(options);
}

}  // namespace crv
