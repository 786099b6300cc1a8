// SoftHSM with a folder of tokens of its own, and the mock module in front of it.
#pragma once

#include <map>
#include <string>

#include "support/temp_dir.h"

namespace crv::test {

/// Tokens live as long as the object; tools and modules of this process and its children see them. The PIN is 1234
/// unless given otherwise.
class SoftHsm {
  public:
    static constexpr const char* kModule = "/usr/lib/softhsm/libsofthsm2.so";
    static constexpr const char* kPin = "1234";

    SoftHsm();
    ~SoftHsm();

    void initToken(const std::string& label, const std::string& pin = kPin);
    void deleteToken(const std::string& label) const;
    /// A key pair made by OpenSC's tool; `more` are further options ("--usage-sign").
    void generateKey(const std::string& label, const std::string& type, const std::string& id,
                     const std::string& more = {}) const;
    /// What the tool says, logged in to the token.
    std::string tool(const std::string& label, const std::string& options) const;

    /// The mock in the program's folder.
    [[nodiscard]] static std::string mock();
    /// Gives the mock its script and empties its log.
    void script(const std::string& lines) const;
    [[nodiscard]] std::string mockLog() const { return readFile(dir_.file("mock.log")); }
    /// How often the mock was asked for the call (a whole line of its log) since the last script.
    [[nodiscard]] int calls(const std::string& line) const;

    [[nodiscard]] const TempDir& dir() const { return dir_; }

  private:
    TempDir dir_;
    std::map<std::string, std::string> pins_;
};

}  // namespace crv::test
