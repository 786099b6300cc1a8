// Keys of a prompt for file names: Tab completes, Tab again lists; Up and Down bring back names entered before.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "crvconfd/toolkit/line_editor.h"

namespace crv {

/// For one prompt.
class NameKeys {
  public:
    /// Without names with spaces when word is set.
    explicit NameKeys(bool word) : word_(word) {}

    /// Whether the key was one of these.
    bool take(int key, LineEditor& line);
    /// Keeps a name for the prompts to come, as long as the program runs.
    static void remember(const std::string& name);

  private:
    void complete(LineEditor& line);
    void recall(LineEditor& line, bool older);
    [[nodiscard]] std::vector<std::string> candidates(std::string_view folder, std::string_view begun) const;

    bool word_;
    bool twice_ = false;      // the last key completed nothing
    size_t back_ = 0;         // names back from the one that is being typed
    std::string unfinished_;  // that one
};

}  // namespace crv
