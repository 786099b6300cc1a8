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

struct OptionRow {
    const char* name;  ///< without the hyphens
    ValueKind kind;
    const char* value;  ///< what stands for the value in help; of a choice the words, separated by "|"
    const char* help;
    char letter = 0;
};

struct OperandRow {
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
struct FieldRow {
    const char* key;
    const char* type;   ///< of JSON: "string", "number", "boolean", "array", "object"
    const char* label;  ///< as the text output shows it
    bool item = false;
};

/// Bits of VerbRow::secrets, in the order of secretKinds().
enum SecretBit : unsigned {
    kPasswordBit = 1,
    kNewPasswordBit = 2,
    kPinBit = 4,
    kRootsPasswordBit = 8,
    kServerPasswordBit = 16,
    kProxyPasswordBit = 32,
    kDecryptionPinBit = 64,
    kKeyPinBit = 128,
    kImportPasswordBit = 256
};

struct VerbRow {
    const char* group;  ///< empty for a verb that stands alone
    const char* verb;
    Needs needs;
    Effect effect;
    void (*run)(Run&);
    const char* help;
    std::vector<OperandRow> operands = {};
    std::vector<OptionRow> options = {};
    std::vector<FieldRow> fields = {};
    unsigned secrets = 0;
    bool sheets = false;  ///< as text an item is a sheet of labelled lines below the result, not a line of its own

    /// "cert list"
    [[nodiscard]] std::string words() const;
};

struct GroupRow {
    const char* name;
    const char* help;
};

const std::vector<GroupRow>& groups();
const std::vector<VerbRow>& verbs();
const VerbRow* findVerb(std::string_view group, std::string_view verb);
/// Options that every verb has.
const std::vector<OptionRow>& globalOptions();
/// The names of the secrets: "password", "new-password" ...
const std::vector<const char*>& secretKinds();
/// The options of a verb: its own, those of its secrets, the global ones.
std::vector<OptionRow> optionsOf(const VerbRow& verb);
/// Options that may stand before the verb: those of all secrets and the global ones.
std::vector<OptionRow> earlyOptions();
/// The words of a choice.
std::vector<std::string> choices(const char* value);

}  // namespace crv::ctl
