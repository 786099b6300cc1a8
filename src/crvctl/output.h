// What a verb answers: the result on standard output as text or JSON, messages on standard error.
#pragma once

#include <string>
#include <vector>

#include "crvctl/value.h"
#include "ops/op_error.h"

namespace crv::ctl {

struct VerbRow;

/// The name of a library code, "CRV_OK".
std::string codeName(int code);

enum class OutputForm { Text, Json, JsonLines };

/// Collects and writes. Everything that is written is checked; a reader who went away ends the run with OpStopped.
class Output {
  public:
    void setForm(OutputForm form) { form_ = form; }
    [[nodiscard]] OutputForm form() const { return form_; }
    void setVerb(const VerbRow* verb) { verb_ = verb; }

    /// An item of the result; in lines mode and as text it is written at once.
    void item(Fields fields);
    [[nodiscard]] size_t count() const { return count_; }
    /// A field of the result.
    void field(const std::string& key, Value value) { result_.emplace_back(key, std::move(value)); }
    /// Text that is the result itself (help, completion scripts), as it is.
    void raw(const std::string& text) { raw_ += text; }
    /// Something that was changed, or would be.
    void change(const char* action, const char* what, const std::string& name);
    /// `text` is translated for people and stands in English in JSON.
    void warn(const char* text, const std::string& about) { warnings_.emplace_back(text, about); }
    /// The answer is no: status 1, or another one, with a library code.
    void no(int code, OpStatus status = OpStatus::No);

    /// Writes what is left; answers the exit status.
    int finish();
    int fail(const OpError& error, const std::string& text);
    /// Writes everything to a descriptor; false with errno.
    static bool write(int fd, const std::string& text);

  private:
    void print(const std::string& text);
    void flush();
    [[nodiscard]] std::string labelOf(const std::string& key, bool item) const;
    void printSheet(const Fields& fields);
    void printField(const std::string& key, const Value& value);
    void printText();
    [[nodiscard]] std::string warningText() const;
    void printSummary(bool ok, int code, const std::string& fault, const std::string& message);

    OutputForm form_ = OutputForm::Text;
    const VerbRow* verb_ = nullptr;
    Values items_;
    size_t count_ = 0;
    Fields result_;
    Values changes_;
    std::vector<std::pair<const char*, std::string>> warnings_;
    std::string raw_;
    std::string pending_;
    int code_ = 0;
    OpStatus no_{};
};

}  // namespace crv::ctl
