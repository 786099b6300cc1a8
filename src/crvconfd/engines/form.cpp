#include "crvconfd/engines/form.h"

#include <algorithm>
#include <charconv>

#include "crvconfd/engines/entry.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/toolkit/toolkit.h"
#include "profiles/universal_conf_mgr.h"

namespace crv {

namespace {

/// No value of a profile list is longer, so that editing cuts none.
constexpr size_t kLongestText = UniversalConfMgr::kMaxLine;
constexpr size_t kLongestPassword = 255;
constexpr size_t kStars = 8;

std::string prompt(const char* label) {
    return std::string(label) + ": ";
}

bool editText(const char* label, std::string& value) {
    auto typed = askLine(prompt(label).c_str(), kLongestText, false, value);
    if (!typed || *typed == value) return false;
    value = std::move(*typed);
    return true;
}

/// The number as it is shown and edited: nothing for 0.
std::string digits(long value) {
    return value == 0 ? std::string() : std::to_string(value);
}

bool editNumber(const char* label, long& value, long maximum) {
    std::string typed = digits(value);
    if (!editText(label, typed)) return false;
    if (typed.empty()) typed = "0";
    long number = 0;
    const char* end = typed.data() + typed.size();
    const auto [rest, failed] = std::from_chars(typed.data(), end, number);
    if (failed != std::errc() || rest != end || number < 0 || number > maximum) {
        errInfo(kMessageRow, "Dopuszczalne wartości: od 0 do %ld", maximum);
        return false;
    }
    const bool changed = value != number;
    value = number;
    return changed;
}

bool editPassword(const char* label, SecretText& value) {
    auto entered = askPassword(prompt(label).c_str(), kLongestPassword);
    if (!entered || *entered == value) return false;
    value = std::move(*entered);
    return true;
}

}  // namespace

FormField textField(const char* label, std::string& value) {
    return {label, [&value] { return value; }, [label, &value] { return editText(label, value); }};
}

FormField numberField(const char* label, long& value, long maximum) {
    return {label, [&value] { return digits(value); },
            [label, &value, maximum] { return editNumber(label, value, maximum); }};
}

FormField passwordField(const char* label, SecretText& value) {
    return {label, [&value] { return std::string(value.empty() ? 0 : kStars, '*'); },
            [label, &value] { return editPassword(label, value); }};
}

FormField choiceField(const char* label, long& value, std::span<const FormChoice> choices) {
    const auto find = [choices, &value] {
        return std::find_if(choices.begin(), choices.end(), [&](const auto& choice) { return choice.value == value; });
    };
    return {label, [choices, find] { return std::string(find() == choices.end() ? "" : find()->text); },
            [choices, find, &value] {
                const auto at = find();
                const auto next = at == choices.end() || at + 1 == choices.end() ? choices.begin() : at + 1;
                value = next->value;
                return true;
            }};
}

FormField flagField(const char* label, bool& value) {
    return {label, [&value] { return std::string(value ? "tak" : "nie"); },
            [&value] {
                value = !value;
                return true;
            }};
}

bool runForm(const std::string& title, const std::vector<FormField>& fields, const std::function<bool()>& save,
             const FormEnd& end) {
    size_t width = 0;
    for (const auto& field : fields) width = std::max(width, columnsOf(field.label));
    bool changed = false;
    bool saved = false;
    bool leaving = false;
    const auto items = [&] {
        std::vector<std::string> rows;
        for (const auto& field : fields) rows.push_back(fitText(field.label + ":", width + 2) + field.value());
        return rows;
    };
    const auto edit = [&](size_t index) { changed = fields[index].edit() || changed; };
    const auto store = [&](size_t) {
        saved = save();
        leaving = saved;
        if (saved && end.done) displCentInfo(kMessageRow, end.done, 2);
    };
    const auto mayLeave = [&] {
        if (!changed || !end.question || !askOfLoss(end.question)) return true;
        store(0);
        return leaving;
    };
    runScreen({.draw = drawTitle(title),
               .items = items,
               .actions = {{0, "Enter: zmień", true, edit}, {end.key, end.label, false, store}},
               .mayLeave = mayLeave,
               .done = [&] { return leaving; }});
    return saved;
}

}  // namespace crv
