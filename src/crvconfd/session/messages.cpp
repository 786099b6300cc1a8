#include "crvconfd/session/messages.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "context/crvctx.h"
#include "corvane/crvapi.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/session/context.h"
#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "db_sql/db_manager.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"

namespace crv {

namespace {

std::string farewell;
std::string lastNote;

constexpr CodeText kReasons[] = {
    {ENOENT, "nie ma takiego pliku"},   {EACCES, "brak praw dostępu"},
    {EPERM, "brak praw dostępu"},       {EISDIR, "to jest katalog"},
    {ENOTDIR, "nie ma katalogu"},       {ENOSPC, "brak miejsca na dysku"},
    {EDQUOT, "przekroczony przydział"}, {EROFS, "system plików tylko do odczytu"},
    {EFBIG, "plik byłby za duży"},      {ENAMETOOLONG, "nazwa jest za długa"},
    {ELOOP, "pętla dowiązań"},          {EIO, "błąd urządzenia"},
};

const CodeText* findRow(std::span<const CodeText> table, int code) {
    const auto found = std::find_if(table.begin(), table.end(), [code](const auto& row) { return row.code == code; });
    return found == table.end() ? nullptr : &*found;
}

}  // namespace

const char* findText(std::span<const CodeText> table, int code) {
    const CodeText* row = findRow(table, code);
    return row ? row->text : nullptr;
}

void showCode(std::span<const CodeText> table, int code, const char* place) {
    const CodeText* row = findRow(table, code);
    if (!row) failAssertion("0", place, __LINE__);
    note(row->text + (" (" + std::to_string(code) + ")"));
    if (row->stays) return warnInfo(kMessageRow, "%s", row->text);
    errInfo(kMessageRow, "%s", row->text);
}

void warnOfFile(const std::string& text, const std::string& path, int error) {
    const std::string failure = systemReason(error) + ": " + path;
    note(text + ": " + failure);
    const ScreenKeeper keeper;
    const auto lines = wrapText(printable(failure), static_cast<size_t>(shownColumns()));
    int row = kFooterRow - static_cast<int>(lines.size());
    for (const std::string& line : lines) {
        clrToEol(++row, 0);
        displLine(row, 0, line);
    }
    warnInfo(kMessageRow, "%s", text.c_str());
}

void sayAtEnd(const std::string& text) {
    farewell = text;
}

std::string takeFarewell() {
    return std::exchange(farewell, {});
}

std::string reasonFirst(const std::string& text) {
    constexpr std::string_view kFile = "Plik: ";
    const size_t reason = text.rfind(": ", text.rfind(" w linii: "));
    if (!text.starts_with(kFile) || reason == std::string::npos || reason < kFile.size()) return text;
    return text.substr(reason + 2) + ", plik: " + text.substr(kFile.size(), reason - kFile.size());
}

std::string systemReason(int error) {
    const char* text = findText(kReasons, error);
    return text ? text : std::system_category().message(error);
}

int openError(const std::string& path) {
    const FileDescriptor file(fileOps().open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid()) return errno;
    struct stat info {};
    return fileOps().fstat(file.get(), &info) == 0 && S_ISDIR(info.st_mode) ? EISDIR : 0;
}

void showFileFailure(const char* format, const std::string& name, int error) {
    std::string text = format;
    if (const size_t mark = text.find("%s"); mark != std::string::npos) text.replace(mark, 2, name);
    const std::string reason = error == 0 ? std::string() : " (" + systemReason(error) + ")";
    note(text + reason + " (" + std::to_string(error) + ")");
    if (columnsOf(text + reason) <= static_cast<size_t>(shownColumns()))
        return errInfo(kMessageRow, "%s%s", text.c_str(), reason.c_str());
    constexpr BottomRow kReasonAbove{22};
    clrToEol(kReasonAbove, 0);
    displCentText(kReasonAbove, "%s", systemReason(error).c_str());
    errInfo(kMessageRow, "%s", text.c_str());
    clrToEol(kReasonAbove, 0);
}

void note(const std::string& line) {
    lastNote = printable(line);
    if (crvCtx) crvCtx->state.report(lastNote);
}

void noteMessage(const std::string& text) {
    if (!lastNote.starts_with(printable(text))) note(text);
    lastNote.clear();
}

void showDatabaseFailure(const char* text, const char* noMemoryText) {
    static constexpr struct {
        StoreCause cause;
        const char* text;
    } kCauses[] = {
        {StoreCause::NotOpened, " (brak pliku lub praw)"},
        {StoreCause::Damaged, " (uszkodzony plik, użyj crvdb)"},
        {StoreCause::NotLocked, " (nie można założyć blokady)"},
        {StoreCause::NeedsMending, " (baza wymaga naprawy, użyj crvdb)"},
        {StoreCause::Refused, " (baza nie przyjmuje tych danych)"},
        {StoreCause::Unreachable, " (brak połączenia z serwerem bazy)"},
    };
    note(std::string(text) + ": " + dbManager->lastFailure());
    if (dbManager->lastCause() == StoreCause::NoMemory) return errInfo(kMessageRow, "%s", noMemoryText);
    const auto found = std::find_if(std::begin(kCauses), std::end(kCauses),
                                    [](const auto& row) { return row.cause == dbManager->lastCause(); });
    errInfo(kMessageRow, "%s%s", text, found == std::end(kCauses) ? "" : found->text);
}

std::string failureText(const std::exception& failure) {
    if (dynamic_cast<const std::bad_alloc*>(&failure)) return crvErrorTextAPI(nullptr, ECRV_MEM);
    const auto* library = dynamic_cast<const CrvApiException*>(&failure);
    return library && !library->hasText() ? crvErrorTextAPI(nullptr, library->code()) : failure.what();
}

}  // namespace crv
