#include "crvctl/table.h"

#include <algorithm>

#include "crvctl/table_rows.h"
#include "crvctl/verbs.h"

namespace crv::ctl {
namespace {

using enum ValueKind;

std::vector<VerbRow> ownVerbs() {
    return {
        {"module",
         "status",
         Needs::Nothing,
         Effect::Reads,
         moduleStatus,
         "tell whether other programs find the PKCS#11 module over profiles, and which tokens it shows them",
         {},
         {},
         {{"library", "string", "PKCS#11 module"},
          {"registration", "string", "File for p11-kit"},
          {"label", "string", "Label", true},
          {"serialNumber", "string", "Serial number", true},
          {"slot", "string", "Slot", true}}},
        {"",
         "completion",
         Needs::Nothing,
         Effect::Reads,
         completion,
         "print the completion script of a shell; \"words\" prints what may follow the words of a line",
         {{"SHELL", Choice, "bash|zsh|fish|words"}, {"WORD", Text, nullptr, true, true}},
         {},
         {{"text", "string", "Text"}}},
        {"",
         "watch",
         Needs::List,
         Effect::Reads,
         watch,
         "look over all profiles for what ends soon: certificates of keys in use, trust points, revocation lists",
         {},
         {{"days", Number, "N", "how many days before its end something is told (30)"},
          {"all", Flag, nullptr, "tell also what does not end soon"},
          {"format", Choice, "items|prometheus", "prometheus: the ends of everything as metrics (items)"}},
         {{"text", "string", "Text"},
          {"profile", "string", "Profile", true},
          {"kind", "string", "Kind", true},
          {"name", "string", "Name", true},
          {"ends", "string", "Ends", true},
          {"days", "number", "Days left", true},
          {"state", "string", "State", true}},
         kPasswordBit | kPinBit},
        {"",
         "version",
         Needs::Nothing,
         Effect::Reads,
         version,
         "print the version",
         {},
         {},
         {{"version", "string", "Version"}}},
        {"",
         "help",
         Needs::Nothing,
         Effect::Reads,
         help,
         "explain a command",
         {{"GROUP", Text, nullptr, true}, {"VERB", Text, nullptr, true}},
         {{"as", Choice, "text|man|json-doc", "form: text, a manual page of everything, the description of the JSON"}},
         {{"text", "string", "Text"}}},
    };
}

}  // namespace

std::string VerbRow::words() const {
    return *group ? std::string(group) + " " + verb : verb;
}

const std::vector<GroupRow>& groups() {
    static const std::vector<GroupRow> all{
        {"profile", "profiles in their lists"},
        {"store", "the security file of a profile"},
        {"key", "keys of the user"},
        {"policy", "policies of the user"},
        {"setting", "settings of the configuration record"},
        {"cert", "certificates of the database and of the user"},
        {"trust", "trust points"},
        {"crl", "certificate revocation lists"},
        {"db", "the database of a profile"},
        {"usage", "extended key usages that a profile accepts"},
        {"server", "network servers of a profile"},
        {"proxy", "HTTP proxy of a profile"},
        {"module", "profiles as tokens for other programs"},
    };
    return all;
}

const std::vector<VerbRow>& verbs() {
    static const std::vector<VerbRow> all = [] {
        std::vector<VerbRow> rows;
        for (auto* group : {profileVerbs, storeVerbs, keyVerbs, policyVerbs, settingVerbs, certVerbs, trustVerbs,
                            crlVerbs, dbVerbs, usageVerbs, serverVerbs, proxyVerbs, messageVerbs, ownVerbs})
            rows = join(std::move(rows), group());
        return rows;
    }();
    return all;
}

const VerbRow* findVerb(std::string_view group, std::string_view verb) {
    for (const VerbRow& row : verbs())
        if (row.group == group && row.verb == verb) return &row;
    return nullptr;
}

std::vector<OptionRow> earlyOptions() {
    VerbRow any{};
    any.secrets = ~0U;
    return optionsOf(any);
}

const std::vector<OptionRow>& globalOptions() {
    static const std::vector<OptionRow> all{
        {"profile", Profile, "NAME", "the profile to work on (else CRV_PROFILE)", 'p'},
        {"list-file", File, "FILE",
         "the profile list (else CRV_PROFILE_FILE, else the user's list and the common one)"},
        {"user", Flag, nullptr, "the user's list only"},
        {"common", Flag, nullptr, "the list common to the machine only"},
        {"signer", Flag, nullptr, "the lists of the signing program"},
        {"json", Flag, nullptr, "answer with one JSON object"},
        {"json-lines", Flag, nullptr, "answer with a JSON object a line: the items, then the summary"},
        {"dry-run", Flag, nullptr, "do everything but the write, and tell what would change"},
        {"wait", Number, "SECONDS", "how many whole seconds to wait for another program's lock (30)"},
        {"yes", Flag, nullptr, "answer every question with yes", 'y'},
        {"non-interactive", Flag, nullptr, "ask nothing on the terminal"},
        {"lang", Choice, "pl|en", "language of the texts (else the locale's)"},
        {"help", Flag, nullptr, "explain the command", 'h'},
        {"version", Flag, nullptr, "print the version", 'V'},
    };
    return all;
}

const std::vector<const char*>& secretKinds() {
    static const std::vector<const char*> all{"password",       "new-password",    "pin",
                                              "roots-password", "server-password", "proxy-password",
                                              "decryption-pin", "key-pin",         "import-password"};
    return all;
}

std::vector<OptionRow> optionsOf(const VerbRow& verb) {
    // The names live as long as the table.
    static const std::vector<std::vector<std::string>> names = [] {
        std::vector<std::vector<std::string>> all;
        for (const std::string kind : secretKinds()) all.push_back({kind + "-fd", kind + "-file", kind + "-env"});
        return all;
    }();
    std::vector<OptionRow> options = verb.options;
    for (size_t i = 0; i < names.size(); ++i) {
        if ((verb.secrets >> i & 1U) == 0) continue;
        options.push_back({names[i][0].c_str(), Number, "N", "read the secret from a descriptor"});
        options.push_back(
            {names[i][1].c_str(), File, "FILE", "read the secret from a file that only its owner can read"});
        options.push_back({names[i][2].c_str(), Text, "NAME", "take the secret from an environment variable"});
    }
    return join(std::move(options), globalOptions());
}

std::vector<std::string> choices(const char* value) {
    std::vector<std::string> words(1);
    for (const char* at = value; *at; ++at) {
        if (*at == '|') {
            words.emplace_back();
        } else {
            words.back() += *at;
        }
    }
    return words;
}

}  // namespace crv::ctl
