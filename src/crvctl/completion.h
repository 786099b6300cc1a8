// Completion: thin scripts of the shells that ask the program, which knows the table and the profiles.
#pragma once

#include <string>
#include <vector>

namespace crv::ctl {

/// The script of "bash", "zsh" or "fish".
std::string completionScript(const std::string& shell);

/// What may stand in place of the last of the words of a line ("crvctl" first): a line each, for options and verbs with
/// a tab and the help behind it. "@file" and "@folder" ask the shell for names of files.
std::string completeWords(const std::vector<std::string>& words);

}  // namespace crv::ctl
