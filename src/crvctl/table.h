// The one table of all verbs. The parser, the help, the man pages, the completion and docs/json.md are made from it.
// Texts are English and pass through tr() where they are shown.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace crv::ctl {

class Run;

/// What a value is, for the check of the parser and for completion.
enum class ValueKind { Flag, Text, Number, Port, File, NewFile, Folder, Oid, Time, Hex, Choice, Profile, Server };

struct OptionSpec {
    const char* name;  ///< without the hyphens
    ValueKind kind;
    const char* value;  ///< what stands for the value in help; of a choice the words, separated by "|"
    const char* help;
    char letter = 0;
};

struct OperandSpec {
    const char* name;
    ValueKind kind;
    const char* value;  ///< words of a choice
    bool optional = false;
    bool many = false;
};

/// What a verb works on; each includes those before it, save that a database needs no keys.
enum class Needs { Nothing, List, Profile, Database, Keys };
enum class Effect { Reads, Writes, Changes, Destroys };

/// A field of the result: of the whole, or, with `item`, of each item.
struct FieldSpec {
    const char* key;
    const char* type;   ///< of JSON: "string", "number", "boolean", "array", "object"
    const char* label;  ///< as the text output shows it
    bool item = false;
};

/// Bits of VerbSpec::secrets, in the order of secretKinds().
enum SecretBit : unsigned {
    kPasswordBit = 1,
    kNewPasswordBit = 2,
    kPinBit = 4,
    kRootsPasswordBit = 8,
    kServerPasswordBit = 16,
    kProxyPasswordBit = 32
};

struct VerbSpec {
    const char* group;  ///< empty for a verb that stands alone
    const char* verb;
    Needs needs;
    Effect effect;
    void (*run)(Run&);
    const char* help;
    std::vector<OperandSpec> operands = {};
    std::vector<OptionSpec> options = {};
    std::vector<FieldSpec> fields = {};
    unsigned secrets = 0;

    /// "cert list"
    [[nodiscard]] std::string words() const;
};

struct GroupSpec {
    const char* name;
    const char* help;
};

const std::vector<GroupSpec>& groups();
const std::vector<VerbSpec>& verbs();
const VerbSpec* findVerb(std::string_view group, std::string_view verb);
/// Options that every verb has.
const std::vector<OptionSpec>& globalOptions();
/// The names of the secrets: "password", "new-password" ...
const std::vector<const char*>& secretKinds();
/// The options of a verb: its own, those of its secrets, the global ones.
std::vector<OptionSpec> optionsOf(const VerbSpec& verb);
/// The words of a choice.
std::vector<std::string> choices(const char* value);

}  // namespace crv::ctl
