#include "crvctl/output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "context/error_table.h"
#include "crvctl/table.h"
#include "crvctl/texts.h"
#include "misc/ascii.h"
#include "misc/hex.h"
#include "misc/utf8.h"
#include "ops/op_error.h"

namespace crv::ctl {
namespace {

constexpr size_t kPiece = size_t{32} << 10;

std::string lowerHex(std::string_view octets) {
    std::string digits = toHex(asBytes(octets));
    std::ranges::transform(digits, digits.begin(), asciiLower<char>);
    return digits;
}

void append(std::string& json, const Value& value);

bool needsEscape(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '"' || c == '\\';
}

/// Octets that are no UTF-8 become U+FFFD. Most texts are as they are to be: a tenth of the time of the library's way.
void append(std::string& json, const std::string& text) {
    if (isUtf8(text) && std::ranges::none_of(text, needsEscape)) {
        ((json += '"') += text) += '"';
    } else {
        json += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
}

void append(std::string& json, const Values& values) {
    char separator = '[';
    for (const Value& value : values) {
        json += std::exchange(separator, ',');
        append(json, value);
    }
    json += values.empty() ? "[]" : "]";
}

/// Text that is no UTF-8 comes with its octets: "name" and "nameHex".
void append(std::string& json, const Fields& fields) {
    char separator = '{';
    for (const auto& [key, value] : fields) {
        ((json += std::exchange(separator, ',')) += '"').append(key) += "\":";
        append(json, value);
        const auto* text = std::get_if<std::string>(&value.held);
        if (text && !isUtf8(*text)) (((json += ",\"") += key) += "Hex\":\"").append(lowerHex(*text)) += '"';
    }
    json += fields.empty() ? "{}" : "}";
}

void append(std::string& json, const Value& value) {
    std::visit(
        [&json](const auto& held) {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Nothing>) {
                json += "null";
            } else if constexpr (std::is_same_v<Held, bool>) {
                json += held ? "true" : "false";
            } else if constexpr (std::is_same_v<Held, int64_t>) {
                json += std::to_string(held);
            } else {
                append(json, held);
            }
        },
        value.held);
}

std::string lineOf(const Fields& fields) {
    std::string line;
    append(line, fields);
    return line += '\n';
}

/// What a person need not read.
bool saysNothing(const std::string& text) {
    return text.empty() || text == "-";
}

std::string textOf(const Value& value) {
    return std::visit(
        [](const auto& held) -> std::string {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Nothing>) {
                return "-";
            } else if constexpr (std::is_same_v<Held, bool>) {
                return tr(held ? "yes" : "no");
            } else if constexpr (std::is_same_v<Held, int64_t>) {
                return std::to_string(held);
            } else if constexpr (std::is_same_v<Held, std::string>) {
                return harmlessUtf8(held);
            } else {
                std::string text;
                for (const auto& one : held) {
                    std::string part;
                    if constexpr (std::is_same_v<Held, Fields>) {
                        part = textOf(one.second);
                        part = saysNothing(part) ? "" : one.first + "=" + part;
                    } else {
                        part = textOf(one);
                    }
                    text += (text.empty() || part.empty() ? "" : ", ") + part;
                }
                return text;
            }
        },
        value.held);
}

}  // namespace

std::string codeName(int code) {
    const ErrorRow* row = findErrorRow(code);
    return row ? row->name : std::to_string(code);
}

bool Output::write(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) done += static_cast<size_t>(count);
    }
    return true;
}

void Output::print(const std::string& text) {
    pending_ += text;
    if (pending_.size() >= kPiece) flush();
}

void Output::flush() {
    const std::string text = std::exchange(pending_, {});
    if (write(STDOUT_FILENO, text)) return;
    if (errno == EPIPE) throw OpStopped();
    throw OpError(OpFault::OutputFailed, std::strerror(errno));
}

void Output::item(Fields fields) {
    ++count_;
    if (form_ == OutputForm::Json || (form_ == OutputForm::Text && verb_->sheets)) {
        items_.emplace_back(std::move(fields));
        return;
    }
    if (form_ == OutputForm::JsonLines) {
        print(lineOf(fields));
    } else {
        std::string line;
        for (const auto& [key, value] : fields) line += (line.empty() ? "" : "\t") + textOf(value);
        print(forTerminal(line) + "\n");
    }
    // A reader of the first line is not to wait for the last.
    if (count_ == 1) flush();
}

void Output::change(const char* action, const char* what, const std::string& name) {
    changes_.emplace_back(Fields{{"action", action}, {"what", what}, {"name", name}});
}

void Output::no(int code, OpStatus status) {
    no_ = status;
    code_ = code;
}

std::string Output::labelOf(const std::string& key, bool item) const {
    for (const FieldRow& field : verb_->fields)
        if (field.key == key && field.item == item) return tr(field.label);
    return key;
}

void Output::printSheet(const Fields& fields) {
    std::string sheet = "\n";
    for (const auto& [key, value] : fields) {
        const std::string text = textOf(value);
        if (!saysNothing(text)) sheet += labelOf(key, true) + ": " + text + "\n";
    }
    print(forTerminal(sheet));
}

void Output::printField(const std::string& key, const Value& value) {
    const auto* list = std::get_if<Values>(&value.held);
    const bool ofObjects = list && !list->empty() && std::holds_alternative<Fields>(list->front().held);
    const std::string text = ofObjects ? "" : textOf(value);
    if (!ofObjects && saysNothing(text)) return;
    print(forTerminal(labelOf(key, false) + ": " + text) + "\n");
    for (size_t i = 0; ofObjects && i < list->size(); ++i) print(forTerminal("  " + textOf((*list)[i])) + "\n");
}

void Output::printText() {
    for (const auto& [key, value] : result_) printField(key, value);
    for (const Value& item : items_) printSheet(std::get<Fields>(item.held));
    std::string told;
    for (const Value& change : changes_) {
        const auto& fields = std::get<Fields>(change.held);
        told += std::string(tr(std::get<std::string>(fields[0].second.held).c_str())) + ": " +
                textOf(fields[2].second) + "\n";
    }
    write(STDERR_FILENO, forTerminal(told + warningText()));
}

std::string Output::warningText() const {
    std::string told;
    for (const auto& [text, about] : warnings_)
        told += std::string(tr("warning")) + ": " + tr(text) + ": " + harmlessUtf8(about) + "\n";
    return told;
}

void Output::printSummary(bool ok, int code, const std::string& fault, const std::string& message) {
    Fields summary{
        {"v", 1}, {"command", verb_ ? verb_->words() : ""}, {"ok", ok}, {"code", code}, {"name", codeName(code)}};
    if (!fault.empty()) summary.emplace_back("fault", fault);
    if (!message.empty()) summary.emplace_back("detail", message);
    Fields result = result_;
    const bool lists = verb_ && std::ranges::any_of(verb_->fields, &FieldRow::item);
    if (lists && form_ == OutputForm::Json) result.emplace_back("items", std::move(items_));
    if (lists) result.emplace_back("count", count_);
    if (!raw_.empty()) result.emplace_back("text", raw_);
    summary.emplace_back("result", std::move(result));
    summary.emplace_back("changes", changes_);
    Values warnings;
    for (const auto& [text, about] : warnings_) warnings.emplace_back(std::string(text) + ": " + about);
    summary.emplace_back("warnings", std::move(warnings));
    print(lineOf(summary));
}

int Output::finish() {
    if (form_ != OutputForm::Text) {
        printSummary(no_ == OpStatus::Done, code_, {}, {});
    } else {
        print(raw_);
        flush();
        printText();
    }
    flush();
    return static_cast<int>(no_);
}

int Output::fail(const OpError& error, const std::string& text) {
    if (form_ != OutputForm::Text) {
        changes_.clear();
        printSummary(false, error.code(), faultName(error.fault()), error.what());
    }
    flush();
    // What was warned of may be the way out of it.
    write(STDERR_FILENO, forTerminal(warningText() + "crvctl: " + harmlessUtf8(text)) + "\n");
    return static_cast<int>(error.status());
}

}  // namespace crv::ctl
