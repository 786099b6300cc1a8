#include "crvconfd/screens/file_prompt.h"

#include "config/configuration_manager.h"
#include "crvconfd/engines/entry.h"
#include "crvconfd/engines/name_keys.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/current_profile.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/path.h"
#include "ops/file_guard.h"

namespace crv {

std::optional<TypedFile> askForFile(const char* prompt, bool word, size_t longest) {
    NameKeys keys(word);
    const auto name =
        askLine(prompt, longest, word, {}, [&](int key, LineEditor& line) { return keys.take(key, line); });
    if (!name) return std::nullopt;
    NameKeys::remember(*name);
    return TypedFile{*name, expandHome(*name)};
}

bool mayWrite(const TypedFile& file) {
    FileGuard guard({currentProfileSource.file});
    guard.add(*cfgManager->profile());
    const FileVerdict verdict = guard.judge(file.path);
    const char* name = file.typed.c_str();
    switch (verdict.claim) {
        case FileClaim::Profile:
            if (verdict.owner.empty()) {
                errInfo(kMessageRow, "To jest lista profili, podaj inną nazwę: %s", name);
            } else {
                errInfo(kMessageRow, "Plik należy do profilu %s, podaj inną nazwę: %s", verdict.owner.c_str(), name);
            }
            return false;
        case FileClaim::Keys:
            errInfo(kMessageRow, "Plik zawiera klucze (PKCS#12), podaj inną nazwę: %s", name);
            return false;
        case FileClaim::None:
            break;
    }
    return !verdict.exists || askOfLoss("Plik już istnieje. Czy chcesz go zastąpić (t/n)?");
}

void showWriteFailure(const WriteResult& result, const std::string& name) {
    const bool opening = result.failed == WriteStep::Open;
    showFileFailure(opening ? "Nie mogę otworzyć pliku: %s" : "Błąd zapisu pliku: %s", name, result.error);
}

}  // namespace crv
