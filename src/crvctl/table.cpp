#include "crvctl/table.h"

#include <algorithm>

#include "crvctl/verbs.h"

namespace crv::ctl {
namespace {

using enum ValueKind;

const std::vector<OptionSpec> kProfileOptions{
    {"key-file", NewFile, "FILE", "security file (PKCS#12) with the keys"},
    {"db-type", Choice, "files|memory|none", "kind of the database"},
    {"db", Folder, "DIR", "folder of the database"},
    {"db-name", Text, "NAME", "name of a database in memory"},
    {"roots-file", File, "FILE", "PKCS#12 file with additional trust points"},
    {"roots-empty-password", Choice, "0|1", "whether that file has an empty password"},
    {"pkcs11-library", File, "FILE", "PKCS#11 module, or several separated by \";\""},
    {"reader-name", Text, "NAME", "card reader"},
    {"cert-filter", Text, "TEXT", "filter for the certificates of a card"},
    {"device-library", File, "FILE", "library of the Tarvo device"},
    {"device-type", Number, "N", "type of the Tarvo device"},
};

const std::vector<OptionSpec> kServerOptions{
    {"type", Choice, "ldap|http|ftp", "protocol (ldap)"},
    {"use", Choice, "certificates|crl|ocsp|time-stamp", "what the server is for; may be given several times"},
    {"address", Text, "HOST", "host name or address"},
    {"port", Port, "N", "port; 0 is the protocol's own"},
    {"path", Text, "PATH", "path of the URL, or base of the LDAP search"},
    {"user", Text, "NAME", "user to log in as"},
    {"period", Number, "SECONDS", "how often a CRL is fetched; 0 is when needed"},
    {"system-login", Choice, "yes|no", "log in with the system's own credentials"},
};

const std::vector<FieldSpec> kProfileItem{
    {"name", "string", "Name", true},
    {"list", "string", "List", true},
    {"type", "string", "Kind", true},
};

const std::vector<FieldSpec> kProfileRecord{
    {"name", "string", "Name"},
    {"list", "string", "List"},
    {"type", "string", "Kind"},
    {"key-file", "string", "Security file"},
    {"db-type", "string", "Database kind"},
    {"db", "string", "Database folder"},
    {"db-name", "string", "Database name"},
    {"roots-file", "string", "Additional trust points"},
    {"roots-empty-password", "number", "Additional trust points without password"},
    {"pkcs11-library", "string", "PKCS#11 module"},
    {"reader-name", "string", "Card reader"},
    {"cert-filter", "string", "Certificate filter"},
    {"device-library", "string", "Library of the device"},
    {"device-type", "number", "Type of the device"},
    {"servers", "number", "Servers"},
    {"usages", "number", "Accepted extended key usages"},
};

template <class Item>
std::vector<Item> join(std::vector<Item> first, const std::vector<Item>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::vector<VerbSpec> profileVerbs() {
    return {
        {"profile", "list", Needs::List, Effect::Reads, profileList, "list the profiles", {}, {}, kProfileItem},
        {"profile",
         "show",
         Needs::Profile,
         Effect::Reads,
         profileShow,
         "show a profile",
         {{"NAME", Profile, nullptr, true}},
         {},
         kProfileRecord},
        {"profile",
         "create",
         Needs::List,
         Effect::Changes,
         profileCreate,
         "make a profile with the folders that it needs",
         {{"NAME", Text, nullptr}},
         join({{"type", Choice, "file|token|tarvo|memory", "where the keys live (file)"}}, kProfileOptions),
         kProfileRecord},
        {"profile",
         "copy",
         Needs::List,
         Effect::Changes,
         profileCopy,
         "make a profile like another one",
         {{"NAME", Profile, nullptr}, {"NEW", Text, nullptr}},
         kProfileOptions,
         kProfileRecord},
        {"profile",
         "rename",
         Needs::List,
         Effect::Changes,
         profileRename,
         "give a profile another name",
         {{"NAME", Profile, nullptr}, {"NEW", Text, nullptr}}},
        {"profile",
         "set",
         Needs::Profile,
         Effect::Changes,
         profileSet,
         "change a profile; an empty value takes the old one away",
         {{"NAME", Profile, nullptr, true}},
         kProfileOptions},
        {"profile",
         "remove",
         Needs::Profile,
         Effect::Destroys,
         profileRemove,
         "take a profile out of its list; its files stay",
         {{"NAME", Profile, nullptr, true}}},
        {"profile",
         "check",
         Needs::Profile,
         Effect::Reads,
         profileCheck,
         "look for what a profile misses; status 1 when something is missing",
         {{"NAME", Profile, nullptr, true}},
         {},
         {{"finding", "string", "Finding", true}, {"path", "string", "Path", true}}},
    };
}

std::vector<VerbSpec> listVerbs() {
    return {
        {"usage",
         "list",
         Needs::Profile,
         Effect::Reads,
         usageList,
         "list the extended key usages that are accepted",
         {},
         {},
         {{"oid", "string", "Identifier", true}, {"name", "string", "Name", true}}},
        {"usage",
         "add",
         Needs::Profile,
         Effect::Changes,
         usageAdd,
         "accept an extended key usage; well-known ones bring their name",
         {{"OID", Oid, nullptr}, {"NAME", Text, nullptr, true}}},
        {"usage",
         "remove",
         Needs::Profile,
         Effect::Changes,
         usageRemove,
         "accept an extended key usage no longer",
         {{"OID", Oid, nullptr}}},
        {"server",
         "list",
         Needs::Profile,
         Effect::Reads,
         serverList,
         "list the servers in the order in which they are asked",
         {},
         {},
         {{"name", "string", "Name", true},
          {"type", "string", "Protocol", true},
          {"address", "string", "Address", true},
          {"port", "number", "Port", true},
          {"path", "string", "Path", true},
          {"use", "array", "Uses", true},
          {"user", "string", "User", true},
          {"period", "number", "Period", true},
          {"systemLogin", "boolean", "System login", true},
          {"ca", "string", "Authority", true}}},
        {"server",
         "add",
         Needs::Profile,
         Effect::Changes,
         serverAdd,
         "add a server; --address and --use are needed",
         {{"NAME", Text, nullptr}},
         kServerOptions,
         {},
         kServerPasswordBit},
        {"server",
         "set",
         Needs::Profile,
         Effect::Changes,
         serverSet,
         "change a server",
         {{"NAME", Server, nullptr}},
         kServerOptions,
         {},
         kServerPasswordBit},
        {"server",
         "remove",
         Needs::Profile,
         Effect::Destroys,
         serverRemove,
         "remove a server",
         {{"NAME", Server, nullptr}}},
        {"server",
         "move",
         Needs::Profile,
         Effect::Changes,
         serverMove,
         "let a server be asked first or last",
         {{"NAME", Server, nullptr}, {"PLACE", Choice, "first|last"}}},
        {"proxy",
         "show",
         Needs::Profile,
         Effect::Reads,
         proxyShow,
         "show the HTTP proxy",
         {},
         {},
         {{"system", "boolean", "System settings"},
          {"address", "string", "Address"},
          {"port", "number", "Port"},
          {"user", "string", "User"},
          {"password", "boolean", "Has a password"}}},
        {"proxy",
         "set",
         Needs::Profile,
         Effect::Changes,
         proxySet,
         "set the HTTP proxy",
         {},
         {{"address", Text, "HOST", "host name or address"},
          {"port", Port, "N", "port (8080)"},
          {"user", Text, "NAME", "user to log in as"},
          {"system", Flag, nullptr, "use the system's settings"}},
         {},
         kProxyPasswordBit},
        {"proxy", "clear", Needs::Profile, Effect::Changes, proxyClear, "use no proxy"},
    };
}

std::vector<VerbSpec> ownVerbs() {
    return {
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

std::string VerbSpec::words() const {
    return *group ? std::string(group) + " " + verb : verb;
}

const std::vector<GroupSpec>& groups() {
    static const std::vector<GroupSpec> all{
        {"profile", "profiles in their lists"},
        {"usage", "extended key usages that a profile accepts"},
        {"server", "network servers of a profile"},
        {"proxy", "HTTP proxy of a profile"},
    };
    return all;
}

const std::vector<VerbSpec>& verbs() {
    static const std::vector<VerbSpec> all = join(join(profileVerbs(), listVerbs()), ownVerbs());
    return all;
}

const VerbSpec* findVerb(std::string_view group, std::string_view verb) {
    for (const VerbSpec& spec : verbs())
        if (spec.group == group && spec.verb == verb) return &spec;
    return nullptr;
}

const std::vector<OptionSpec>& globalOptions() {
    static const std::vector<OptionSpec> all{
        {"profile", Profile, "NAME", "the profile to work on (else CRV_PROFILE)", 'p'},
        {"list-file", File, "FILE",
         "the profile list (else CRV_PROFILE_FILE, else the user's list and the common one)"},
        {"user", Flag, nullptr, "the user's list only"},
        {"common", Flag, nullptr, "the list common to the machine only"},
        {"signer", Flag, nullptr, "the lists of the signing program"},
        {"json", Flag, nullptr, "answer with one JSON object"},
        {"json-lines", Flag, nullptr, "answer with a JSON object a line: the items, then the summary"},
        {"dry-run", Flag, nullptr, "do everything but the write, and tell what would change"},
        {"wait", Number, "SECONDS", "how long to wait for another program's lock (30)"},
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
                                              "roots-password", "server-password", "proxy-password"};
    return all;
}

std::vector<OptionSpec> optionsOf(const VerbSpec& verb) {
    // The names live as long as the table.
    static const std::vector<std::vector<std::string>> names = [] {
        std::vector<std::vector<std::string>> all;
        for (const std::string kind : secretKinds()) all.push_back({kind + "-fd", kind + "-file", kind + "-env"});
        return all;
    }();
    std::vector<OptionSpec> options = verb.options;
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
