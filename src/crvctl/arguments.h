// The command line, read by the table.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "crvctl/table.h"
#include "ops/op_error.h"

namespace crv::ctl {

/// A call that the table does not allow. The reason is an English text for tr().
class CallError : public OpError {
  public:
    CallError(const char* reason, const std::string& about)
        : OpError(OpFault::WrongCall, std::string(reason) + ": " + about), reason_(reason), about_(about) {}
    [[nodiscard]] const char* reason() const noexcept { return reason_; }
    [[nodiscard]] const std::string& about() const noexcept { return about_; }

  private:
    const char* reason_;
    std::string about_;
};

struct Call {
    const VerbRow* verb = nullptr;
    std::vector<std::string> operands;
    std::map<std::string, std::vector<std::string>, std::less<>>
        options;  ///< values in their order; of a flag one empty

    [[nodiscard]] bool has(std::string_view name) const { return options.find(name) != options.end(); }
    /// The last value; nothing when the option is not there.
    [[nodiscard]] std::optional<std::string> value(std::string_view name) const;
    [[nodiscard]] std::string operand(size_t index) const;
};

/// Reads everything that can be read, so that a failure is told the way the call asks for: fills `call` as far as it
/// comes. Options may stand anywhere; "--" ends them. Throws CallError.
void readCall(const std::vector<std::string>& arguments, Call& call);

}  // namespace crv::ctl
