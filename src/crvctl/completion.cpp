#include "crvctl/completion.h"

#include <algorithm>
#include <iterator>

#include "crvctl/arguments.h"
#include "crvctl/run.h"
#include "crvctl/texts.h"

namespace crv::ctl {
namespace {

// Names may hold anything but line ends; %q quotes them as bash reads them.
constexpr const char* kBash = R"(# bash completion for crvctl; made by "crvctl completion bash"
_crvctl() {
  local current=${COMP_WORDS[COMP_CWORD]} line word
  COMPREPLY=()
  while IFS= read -r line; do
    case $line in
      @file) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
      @folder) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$current"); return ;;
    esac
    printf -v word '%q' "${line%%$'\t'*}"
    COMPREPLY+=("$word")
  done < <(crvctl completion words -- "${COMP_WORDS[@]:0:COMP_CWORD+1}" 2>/dev/null)
}
complete -F _crvctl crvctl
)";

constexpr const char* kZsh = R"(#compdef crvctl
# zsh completion for crvctl; made by "crvctl completion zsh"
_crvctl() {
  local line
  local -a found shown
  for line in "${(@f)$(crvctl completion words -- "${(@Q)words[1,CURRENT]}" 2>/dev/null)}"; do
    case $line in
      '') ;;
      @file) _files; return ;;
      @folder) _files -/; return ;;
      *) found+=("${line%%$'\t'*}"); shown+=("${line/$'\t'/  -- }") ;;
    esac
  done
  compadd -l -d shown -- "${found[@]}"
}
compdef _crvctl crvctl
)";

constexpr const char* kFish = R"(# fish completion for crvctl; made by "crvctl completion fish"
function __crvctl_words
    set -l words (commandline -opc) (commandline -ct)
    for line in (crvctl completion words -- $words 2>/dev/null)
        switch $line
            case @file
                __fish_complete_path (commandline -ct)
            case @folder
                __fish_complete_directories (commandline -ct)
            case '*'
                echo $line
        end
    end
end
complete -c crvctl -f -a '(__crvctl_words)'
)";

/// What fits the value's kind and begins with the text.
class Candidates {
  public:
    Candidates(const Call& call, std::string begin) : call_(call), begin_(std::move(begin)) {}

    void add(const std::string& word, const char* help = "") {
        if (word.starts_with(begin_)) text_ += word + (*help ? std::string("\t") + tr(help) : std::string()) + "\n";
    }

    void addValues(ValueKind kind, const char* words) {
        switch (kind) {
            case ValueKind::Choice:
                for (const std::string& word : choices(words)) add(word);
                return;
            case ValueKind::File:
            case ValueKind::NewFile:
                text_ += "@file\n";
                return;
            case ValueKind::Folder:
                text_ += "@folder\n";
                return;
            case ValueKind::Profile:
            case ValueKind::Server:
                return addNames(kind);
            default:
                return;
        }
    }

    [[nodiscard]] const std::string& text() const { return text_; }

  private:
    void addNames(ValueKind kind) {
        try {
            Call call = call_;
            Output none;
            const Run run(call, none);
            if (kind == ValueKind::Profile) {
                eachProfile(run.place, [&](const CrvProfile& profile, ProfileMedia) { add(profile.name()); });
            } else {
                const auto found = findProfile(run.place, namedProfile(call));
                for (const auto& [number, server] : found.profile->servers()) add(server.name);
            }
        } catch (const OpError&) {  // no list, no names
        }
    }

    const Call& call_;
    std::string begin_;
    std::string text_;
};

void addVerbs(const std::string& group, Candidates& candidates) {
    if (group.empty()) {
        for (const GroupRow& known : groups()) candidates.add(known.name, known.help);
        for (const VerbRow& verb : verbs())
            if (!*verb.group) candidates.add(verb.verb, verb.help);
    } else {
        for (const VerbRow& verb : verbs())
            if (*verb.group && verb.group == group) candidates.add(verb.verb, verb.help);
    }
}

void addOptions(const Call& call, Candidates& candidates) {
    for (const OptionRow& option : call.verb ? optionsOf(*call.verb) : globalOptions())
        candidates.add(std::string("--") + option.name, option.help);
}

/// The option whose value the last word is; null when it is none.
const OptionRow* awaited(const VerbRow* verb, const std::string& before, std::vector<OptionRow>& options) {
    options = verb ? optionsOf(*verb) : globalOptions();
    for (const OptionRow& option : options) {
        const bool same =
            before == std::string("--") + option.name || (option.letter && before == std::string("-") + option.letter);
        if (same && option.kind != ValueKind::Flag) return &option;
    }
    return nullptr;
}

}  // namespace

std::string completionScript(const std::string& shell) {
    if (shell == "bash") return kBash;
    return shell == "zsh" ? kZsh : kFish;
}

std::string completeWords(const std::vector<std::string>& words) {
    if (words.size() < 2) return {};
    Call call;
    try {
        readCall({words.begin() + 1, words.end() - 1}, call);
    } catch (const CallError&) {  // the line is not complete yet
    }
    Candidates candidates(call, words.back());
    std::vector<OptionRow> options;
    if (const OptionRow* option = awaited(call.verb, words[words.size() - 2], options)) {
        candidates.addValues(option->kind, option->value);
    } else if (words.back().starts_with('-')) {
        addOptions(call, candidates);
    } else if (!call.verb) {
        std::vector<std::string> plain;
        std::copy_if(words.begin() + 1, words.end() - 1, std::back_inserter(plain),
                     [](const std::string& word) { return !word.starts_with('-'); });
        const bool inGroup = !plain.empty() && std::ranges::any_of(groups(), [&](const GroupRow& group) {
            return plain.back() == group.name;
        });
        addVerbs(inGroup ? plain.back() : std::string(), candidates);
    } else if (!call.verb->operands.empty()) {
        const auto& operands = call.verb->operands;
        const size_t at = std::min(call.operands.size(), operands.size() - 1);
        if (call.operands.size() < operands.size() || operands.back().many)
            candidates.addValues(operands[at].kind, operands[at].value);
    }
    return candidates.text();
}

}  // namespace crv::ctl
