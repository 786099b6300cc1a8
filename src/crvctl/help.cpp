#include "crvctl/help.h"

#include "crvctl/texts.h"

namespace crv::ctl {
namespace {

constexpr size_t kColumn = 30;

/// Columns of a UTF-8 text, all of whose characters take one.
size_t width(const std::string& text) {
    size_t columns = 0;
    for (const char c : text) columns += (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    return columns;
}

std::string row(const std::string& left, const std::string& right) {
    const size_t used = width(left) + 2;
    const std::string gap = used + 1 < kColumn ? std::string(kColumn - used, ' ') : "\n" + std::string(kColumn, ' ');
    return "  " + left + gap + right + "\n";
}

std::string optionWords(const OptionRow& option) {
    std::string words = option.letter ? std::string("-") + option.letter + ", " : "";
    words += std::string("--") + option.name;
    return option.value ? words + " " + option.value : words;
}

std::string operandWords(const VerbRow& verb) {
    std::string words;
    for (const OperandRow& operand : verb.operands) {
        const std::string name = operand.kind == ValueKind::Choice ? operand.value : operand.name;
        const std::string word = name + (operand.many ? "..." : "");
        words += operand.optional ? " [" + word + "]" : " " + word;
    }
    return words;
}

std::string effectText(const VerbRow& verb) {
    switch (verb.effect) {
        case Effect::Changes:
            return tr("Changes; --dry-run only tells what.");
        case Effect::Destroys:
            return tr("Destroys: asks first, or needs --yes; --dry-run only tells what.");
        case Effect::Writes:
            return tr("Writes the file it is told to; the profile stays as it is.");
        case Effect::Reads:
            break;
    }
    return tr("Reads only.");
}

}  // namespace

std::string usageLine(const VerbRow& verb) {
    return "crvctl [" + std::string(tr("options")) + "] " + verb.words() + operandWords(verb);
}

std::string overview() {
    std::string text = std::string(tr("Usage: crvctl [options] GROUP VERB ...")) + "\n\n";
    text += std::string(tr("Prepares and looks after profiles without a terminal.")) + "\n\n";
    for (const VerbRow& verb : verbs()) text += row(verb.words() + operandWords(verb), tr(verb.help));
    text += "\n" + std::string(tr("Options of every command:")) + "\n";
    for (const OptionRow& option : globalOptions()) text += row(optionWords(option), tr(option.help));
    return text;
}

std::string groupHelp(const std::string& group) {
    std::string text;
    for (const GroupRow& known : groups())
        if (known.name == group) text = std::string(known.name) + ": " + tr(known.help) + "\n";
    for (const VerbRow& verb : verbs())
        if (verb.group == group) text += row(verb.words() + operandWords(verb), tr(verb.help));
    return text;
}

std::string verbHelp(const VerbRow& verb) {
    std::string text =
        usageLine(verb) + "\n\n" + tr(verb.help) + "\n" + effectText(verb) + "\n\n" + tr("Options:") + "\n";
    for (const OptionRow& option : optionsOf(verb)) text += row(optionWords(option), tr(option.help));
    return text;
}

}  // namespace crv::ctl
