// The manual page and the description of the JSON.
#include "crvctl/help.h"
#include "crvctl/statuses.h"
#include "crvctl/texts.h"
#include "ops/op_error.h"

namespace crv::ctl {
namespace {

/// Text for a roff line: no escape, no request.
std::string roff(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\' || c == '-') out += '\\';
        out += c == '\\' ? 'e' : c;
    }
    return out.starts_with('.') || out.starts_with('\'') ? "\\&" + out : out;
}

std::string section(const char* title) {
    return std::string(".SH ") + tr(title) + "\n";
}

std::string paragraph(const char* text) {
    return roff(tr(text)) + "\n";
}

std::string option(const OptionRow& row) {
    std::string text = ".TP\n";
    if (row.letter) text += std::string("\\fB\\-") + row.letter + "\\fR, ";
    text += "\\fB\\-\\-" + roff(row.name) + "\\fR";
    if (row.value) text += " \\fI" + roff(row.value) + "\\fR";
    return text + "\n" + roff(tr(row.help)) + "\n";
}

std::string command(const VerbRow& verb) {
    std::string text =
        ".SS " + roff(verb.words()) + "\n" + roff(usageLine(verb)) + "\n.PP\n" + roff(tr(verb.help)) + "\n";
    const size_t own = optionsOf(verb).size() - globalOptions().size();
    for (size_t i = 0; i < own; ++i) text += option(optionsOf(verb)[i]);
    return text;
}

}  // namespace

std::string manualPage() {
    std::string text = ".\\\" Made by \"crvctl help --as man\".\n.TH CRVCTL 1 \"\" \"Corvane\"\n";
    text += section("NAME") + "crvctl \\- " + roff(tr("prepares and looks after Corvane profiles")) + "\n";
    text += section("SYNOPSIS") + ".B crvctl\n[" + roff(tr("options")) + "] " + roff(tr("GROUP VERB ...")) + "\n";
    text += section("DESCRIPTION") +
            paragraph(
                "What the screens of crvconfd(1) do with profiles, key stores and databases, as commands. "
                "Standard output carries the result only; "
                "messages go to standard error.");
    text += ".PP\n" + paragraph(
                          "Secrets are never taken from the command line. Each comes from a descriptor, a file that "
                          "only its owner can read, an environment variable, the systemd credential "
                          "\"corvane.password\" (or the secret's own name), else from a prompt on the terminal: one "
                          "line of up to 254 octets in UTF-8.");
    text += section("OPTIONS");
    for (const OptionRow& row : globalOptions()) text += option(row);
    text += section("COMMANDS");
    for (const VerbRow& verb : verbs()) text += command(verb);
    text += section("EXIT STATUS");
    for (const StatusRow& status : statusRows())
        text += ".TP\n" + std::string(status.number) + "\n" + roff(tr(status.meaning)) + "\n";
    text += section("SEE ALSO") + "crvconfd(1), crvasn(1), crvdb(1), crvprofiles.conf(5)\n";
    return text;
}

std::string jsonDocument() {
    std::string text =
        "# JSON of crvctl\n\n"
        "Made by `crvctl help --as json-doc`. `--json` answers with one object, `--json-lines` with an object a line: "
        "the\n"
        "items, then the summary. Keys are only ever added. Times are RFC 3339 in UTC, serial numbers and key "
        "identifiers\n"
        "lower-case hexadecimal. A text that is no UTF-8 comes with U+FFFD in place of the faults and, under the same "
        "key\n"
        "with `Hex` behind it, its octets.\n\n"
        "| key | type | meaning |\n|---|---|---|\n"
        "| `v` | number | 1 |\n| `command` | string | group and verb |\n| `ok` | boolean | the status is 0 |\n"
        "| `code` | number | the library's code |\n| `name` | string | the name of the code |\n"
        "| `fault` | string | failures only: what it failed of |\n| `detail` | string | failures only: what it was "
        "about |\n"
        "| `result` | object | as below; `items` (with `--json`) and `count` where there are items |\n"
        "| `changes` | array | objects with `action`, `what`, `name` |\n| `warnings` | array | strings |\n\n"
        "Faults: ";
#define CRV_OP_FAULT(fault, status, code) text += "`" + faultName(OpFault::fault) + "`, ";
    CRV_OP_FAULTS(CRV_OP_FAULT)
#undef CRV_OP_FAULT
    text.resize(text.size() - 2);
    text += ".\n";
    for (const VerbRow& verb : verbs()) {
        text += "\n## " + verb.words() + "\n\n";
        if (verb.fields.empty()) text += "Nothing.\n";
        if (!verb.fields.empty()) text += "| key | of | type | meaning |\n|---|---|---|---|\n";
        for (const FieldRow& field : verb.fields) {
            text += std::string("| `") + field.key + "` | " + (field.item ? "item" : "result") + " | " + field.type +
                    " | " + field.label + " |\n";
        }
    }
    return text;
}

}  // namespace crv::ctl
