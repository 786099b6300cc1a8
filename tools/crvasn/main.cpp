// crvasn: prints DER, BER, PEM and Base64 files as indented trees.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "asn/asn_object.h"
#include "crvasn/disk_file.h"
#include "crvasn/structure_kind.h"
#include "crvasn/tree_printer.h"
#include "misc/base64_file.h"
#include "misc/memory_file.h"

namespace crv {
namespace {

constexpr char kUsage[] =
    "usage: crvasn [-s] [-w octets] [file...]\n"
    "Prints DER, BER, PEM or Base64: what structure it is, and an indented tree of offset, length, type, value.\n"
    "  -s         do not look inside OCTET STRING and BIT STRING values\n"
    "  -w octets  show at most so many octets of a value (64)\n"
    "  -h, --help  -V, --version\n"
    "Without a file, or for \"-\", reads the standard input.\n";
constexpr char kVersion[] = "crvasn " CRV_VERSION "\n";

struct Arguments {
    TreeOptions options;
    const char* said = nullptr;  ///< what was asked for instead of a tree
    std::vector<std::string> files;
};

bool parse(int argc, char** argv, Arguments& arguments) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "-s") {
            arguments.options.inside = false;
        } else if (argument == "-w" && i + 1 < argc) {
            char* end = nullptr;
            const long shown = std::strtol(argv[++i], &end, 10);
            if (end == argv[i] || *end != '\0' || shown < 0) return false;
            arguments.options.shownOctets = static_cast<size_t>(shown);
        } else if (argument == "-h" || argument == "--help") {
            arguments.said = kUsage;
        } else if (argument == "-V" || argument == "--version") {
            arguments.said = kVersion;
        } else if (argument.size() > 1 && argument[0] == '-') {
            return false;
        } else {
            arguments.files.emplace_back(argument);
        }
    }
    if (arguments.files.empty()) arguments.files.emplace_back("-");
    return true;
}

int fail(const std::string& name, const char* why) {
    std::fprintf(stderr, "crvasn: %s: %s\n", name.c_str(), why);
    return 1;
}

int print(const std::string& name, ByteView octets, const TreeOptions& options) {
    const char* kind = structureKind(octets);
    std::printf("# %s\n", kind ? kind : "unknown structure");
    const Tree tree = printTree(octets, options);
    std::fwrite(tree.text.data(), 1, tree.text.size(), stdout);
    return tree.whole ? 0 : fail(name, "malformed or incomplete");
}

/// A label is text of the file: nothing in it reaches the terminal as a command.
std::string printable(std::string text) {
    for (char& c : text)
        if (c < ' ' || c > '~') c = '?';
    return text;
}

int printPem(const std::string& name, ByteView text, const TreeOptions& options) {
    MemoryFile source(text);
    int status = 0;
    for (;;) {
        Base64Reader block(source, Base64Armour::Pem);
        if (!block.findBlock()) return status;
        std::printf("# PEM %s\n", printable(block.label()).c_str());
        SecretBytes octets;
        if (!readAll(block, octets)) return fail(name, "malformed PEM");
        status |= print(name, octets, options);
    }
}

int printFile(const std::string& name, const TreeOptions& options) {
    DiskFile file(name == "-" ? "/dev/stdin" : name, DiskFile::Mode::Read);
    SecretBytes all;
    if (!file.isOpen() || !readAll(file, all)) return fail(name, std::strerror(file.error()));
    const std::string_view text = asText(all);
    if (text.find("-----BEGIN ") != std::string_view::npos && !beginsWithSequence(all))
        return printPem(name, all, options);
    if (const auto octets = fromBase64(text); octets && !octets->empty()) return print(name, *octets, options);
    return print(name, all, options);
}

int run(int argc, char** argv) {
    Arguments arguments;
    if (!parse(argc, argv, arguments)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (arguments.said) arguments.files.clear(), std::fputs(arguments.said, stdout);
    int status = 0;
    for (const std::string& name : arguments.files) {
        if (arguments.files.size() > 1) std::printf("## %s\n", name.c_str());
        status |= printFile(name, arguments.options);
    }
    return std::fflush(stdout) == 0 ? status : fail("standard output", std::strerror(errno));
}

}  // namespace
}  // namespace crv

int main(int argc, char** argv) {
    try {
        return crv::run(argc, argv);
    } catch (const std::exception& error) {
        return crv::fail("internal error", error.what());
    }
}
