#include "crvctl/arguments.h"

#include <algorithm>
#include <charconv>

#include "asn/asn_object_id.h"
#include "misc/hex.h"

namespace crv::ctl {
namespace {

constexpr long kMaxPort = 65535;

bool isNumber(const std::string& text, long most) {
    long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number >= 0 && number <= most;
}

bool fits(ValueKind kind, const char* words, const std::string& text) {
    switch (kind) {
        case ValueKind::Number:
            return isNumber(text, INT64_MAX);
        case ValueKind::Port:
            return isNumber(text, kMaxPort);
        case ValueKind::Oid:
            return ASNobjectId::fromText(text).has_value();
        case ValueKind::Choice: {
            const auto all = choices(words);
            return std::ranges::find(all, text) != all.end();
        }
        case ValueKind::Hex:
            return fromHex(text).has_value();
        case ValueKind::File:
        case ValueKind::NewFile:
        case ValueKind::Folder:
            return !text.empty();
        default:
            return text.find('\0') == std::string::npos;
    }
}

bool isSecret(std::string_view name) {
    return std::ranges::any_of(secretKinds(), [&](const char* kind) { return name == kind; });
}

/// The options that may stand anywhere before the verb is known, too.
std::vector<OptionRow> allowed(const VerbRow* verb) {
    return verb ? optionsOf(*verb) : earlyOptions();
}

class Reader {
  public:
    Reader(const std::vector<std::string>& arguments, Call& call) : arguments_(arguments), call_(call) {}

    void run() {
        chooseVerb();
        for (at_ = 0; at_ < arguments_.size(); ++at_) {
            const std::string& argument = arguments_[at_];
            if (literal_ || argument == "-" || !argument.starts_with('-')) {
                word(argument);
            } else if (argument == "--") {
                literal_ = true;
            } else {
                option(argument);
            }
        }
        checkOperands();
    }

  private:
    /// The words are found first, so that the options before them are known.
    void chooseVerb() {
        std::vector<std::string> words;
        const auto options = earlyOptions();
        for (size_t i = 0; i < arguments_.size() && words.size() < 2; ++i) {
            const std::string& argument = arguments_[i];
            if (argument == "--") break;
            if (!argument.starts_with('-')) {
                words.push_back(argument);
            } else if (const OptionRow* known = find(argument.substr(0, argument.find('=')), options);
                       known && known->kind != ValueKind::Flag && argument.find('=') == std::string::npos) {
                ++i;
            }
        }
        if (words.empty()) return;
        call_.verb = findVerb({}, words[0]);
        skip_ = 1;
        if (call_.verb) return;
        const bool isGroup =
            std::ranges::any_of(groups(), [&](const GroupRow& group) { return words[0] == group.name; });
        if (!isGroup) return note("unknown command", words[0]);
        skip_ = 2;
        if (words.size() > 1) call_.verb = findVerb(words[0], words[1]);
        if (call_.verb) return;
        if (words.size() > 1) return note("unknown command", words[0] + " " + words[1]);
        note("a command is missing after", words[0]);
    }

    static const OptionRow* find(const std::string& name, const std::vector<OptionRow>& options) {
        for (const OptionRow& option : options) {
            const bool isLetter = name.size() == 2 && option.letter == name[1];
            if (isLetter || (name.starts_with("--") && name.substr(2) == option.name)) return &option;
        }
        return nullptr;
    }

    void word(const std::string& argument) {
        if (skip_ > 0) {
            --skip_;
        } else {
            call_.operands.push_back(argument);
        }
    }

    void option(const std::string& argument) {
        const size_t equals = argument.starts_with("--") ? argument.find('=') : std::string::npos;
        const std::string name = argument.substr(0, equals);
        const auto options = allowed(call_.verb), early = earlyOptions();
        const OptionRow* known = find(name, options);
        // Scripts begin each call alike: before the verb a secret may stand that the verb does not need.
        if (!known && skip_ > 0) known = find(name, early);
        if (!known && isSecret(name.substr(std::min<size_t>(2, name.size()))))
            return fault_.emplace("a secret is never taken from the command line; see --password-fd", name), void();
        if (!known) return note("unknown option", name);
        std::string value;
        if (known->kind == ValueKind::Flag) {
            if (equals != std::string::npos) return note("the option takes no value", name);
        } else if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (++at_ < arguments_.size()) {
            value = arguments_[at_];
        } else {
            return note("the option needs a value", name);
        }
        if (!fits(known->kind, known->value, value))
            return note("the value does not fit the option", name + " " + value);
        call_.options[known->name].push_back(value);
    }

    /// The first fault is told; the rest of the line is still read for the form of the answer.
    void note(const char* text, const std::string& about) {
        if (!fault_) fault_.emplace(text, about);
    }

    void checkOperands() {
        if (fault_ && !(call_.has("help") || call_.has("version"))) throw CallError(*fault_);
        if (!call_.verb || call_.has("help") || call_.has("version")) return;
        const auto& expected = call_.verb->operands;
        for (size_t i = 0; i < expected.size(); ++i) {
            if (i >= call_.operands.size() && !expected[i].optional) throw CallError("missing", expected[i].name);
        }
        const bool many = !expected.empty() && expected.back().many;
        if (call_.operands.size() > expected.size() && !many)
            throw CallError("too many arguments", call_.operands[expected.size()]);
        for (size_t i = 0; i < call_.operands.size(); ++i) {
            const OperandRow& operand = expected[std::min(i, expected.size() - 1)];
            if (!fits(operand.kind, operand.value, call_.operands[i]))
                throw CallError("the value does not fit", call_.operands[i]);
        }
    }

    const std::vector<std::string>& arguments_;
    Call& call_;
    size_t at_ = 0;
    size_t skip_ = 0;
    bool literal_ = false;
    std::optional<CallError> fault_;
};

}  // namespace

std::optional<std::string> Call::value(std::string_view name) const {
    const auto found = options.find(name);
    return found == options.end() ? std::nullopt : std::optional(found->second.back());
}

std::string Call::operand(size_t index) const {
    return index < operands.size() ? operands[index] : std::string();
}

void readCall(const std::vector<std::string>& arguments, Call& call) {
    Reader(arguments, call).run();
}

}  // namespace crv::ctl
