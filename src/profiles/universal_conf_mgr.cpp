#include "profiles/universal_conf_mgr.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "corvane/crverrors.h"
#include "misc/ascii.h"
#include "misc/atomic_write.h"
#include "misc/c_string.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/file_semaphore.h"
#include "misc/logger.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "profiles/list_line.h"

namespace crv {
namespace {

/// A number in a text with "%d".
std::string withNumber(std::string_view format, size_t number) {
    size_t at = format.find("%d");
    return std::string(format.substr(0, at)).append(std::to_string(number)).append(format.substr(at + 2));
}

/// A prefix that ends with a backslash, so that it matches whole components only.
std::string asFolder(std::string_view prefix) {
    if (prefix.empty()) throw StoreError(StoreCause::Refused, "Niepoprawna sciezka");
    std::string folder = asciiUpper(prefix);
    if (folder.back() != '\\') folder += '\\';
    return folder;
}

/// First text after every text that begins with the folder.
std::string pastFolder(std::string folder) {
    folder.back() = '\\' + 1;
    return folder;
}

}  // namespace

bool pathMatches(std::string_view prefix, std::string_view path) {
    if (prefix.empty() || path.empty()) throw StoreError(StoreCause::Refused, "Niepoprawna sciezka");
    if (path.size() < prefix.size() || !equalIgnoreCase(prefix, path.substr(0, prefix.size()))) return false;
    return prefix.back() == '\\' || path.size() == prefix.size() || path[prefix.size()] == '\\';
}

namespace {

/// Cuts the chunks of a file into lines, of which it keeps the first kMaxLine characters, and stores their values.
class ListReader {
  public:
    ListReader(ListNodes& nodes, const std::string& path) : nodes_(nodes), path_(path) {}

    void feed(std::string_view chunk) {
        const bool plain = chunk.find('\r') == std::string_view::npos;
        for (size_t end; (end = chunk.find('\n')) != std::string_view::npos; chunk.remove_prefix(end + 1)) {
            const std::string_view line = chunk.substr(0, end);
            if (plain && begun_.empty()) {
                readLine(line.substr(0, UniversalConfMgr::kMaxLine));
                continue;
            }
            append(line);
            readLine(begun_);
            begun_.clear();
        }
        append(chunk);
        // A device may repeat itself without end.
        if (nodes_.unsettled() > nodes_.settled()) settle();
    }

    void finish() {
        if (!begun_.empty()) readLine(begun_);
        settle();
    }

    /// Puts the nodes of the lines so far in order and throws StoreError for the first that was there already.
    void settle() {
        if (const auto line = nodes_.settle()) fail(": Podwojna definicja wartosci w linii: %d", *line);
    }

  private:
    void append(std::string_view part) {
        for (size_t cr; (cr = part.find('\r')) != std::string_view::npos; part.remove_prefix(cr + 1))
            appendClean(part.substr(0, cr));
        appendClean(part);
    }

    void appendClean(std::string_view part) {
        begun_.append(part.substr(0, UniversalConfMgr::kMaxLine - begun_.size()));
    }

    void readLine(std::string_view line) {
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (++number_ == 1 && line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
        const ListLine kind = parseListLine(line, entry_);
        if (kind == ListLine::Comment) return;
        if (kind == ListLine::Broken) {
            settle();
            fail(": Blad skladni w linii: %d", number_);
        }
        entry_.node.line = number_;
        static_assert(UniversalConfMgr::kMaxLine <= ListNodes::kMaxRead);
        nodes_.read(entry_.path, entry_.node);
    }

    [[noreturn]] void fail(std::string_view text, size_t line) const {
        throw StoreError(StoreCause::Malformed, "Plik: " + path_ + withNumber(text, line));
    }

    ListNodes& nodes_;
    const std::string& path_;
    std::string begun_;  // a line whose end is yet to come
    ListEntry entry_;
    size_t number_ = 0;
};

}  // namespace

void UniversalConfMgr::loadFromFile(const std::string& path) {
    // The broken letters of the text are kept: programs compare it.
    if (!loadIfExists(path)) throw StoreError(StoreCause::NotOpened, "BĹ‚Ä…d otwarcia pliku konfiguracyjnego: " + path);
}

namespace {
constexpr size_t kLongestList = size_t{16} << 20;
}

bool UniversalConfMgr::loadIfExists(const std::string& path) {
    ListNodes fresh;
    ListReader reader(fresh, path);
    nodes_ = {};
    pendingChanges_ = false;
    FileDescriptor file(fileOps().open(expandHome(path), O_RDONLY | O_CLOEXEC));
    if (!file.valid() && errno == ENOENT) return false;
    if (!file.valid()) throw StoreError(StoreCause::NotOpened, "BĹ‚Ä…d otwarcia pliku konfiguracyjnego: " + path);
    std::vector<char> chunk(1 << 16);
    size_t total = 0;
    for (ssize_t got; (got = readUpTo(file.get(), chunk.data(), chunk.size(), -1)) != 0;) {
        if (got < 0) {
            reader.settle();
            throw StoreError(StoreCause::Failed, "Blad odczytu pliku: " + path);
        }
        reader.feed({chunk.data(), static_cast<size_t>(got)});
        total += static_cast<size_t>(got);
        // A device may have no end; a list is finished even by a program that is to end.
        if (total > kLongestList && processEnding())
            throw StoreError(StoreCause::Failed, "Przerwano odczyt pliku: " + path);
    }
    reader.finish();
    nodes_ = std::move(fresh);
    return true;
}

void UniversalConfMgr::loadFromText(std::string_view text, const std::string& path) {
    ListNodes fresh;
    ListReader reader(fresh, path);
    nodes_ = {};
    pendingChanges_ = false;
    reader.feed(text);
    reader.finish();
    nodes_ = std::move(fresh);
}

namespace {

/// Whether a save would write the values of a list as they stand there.
bool isAsSaved(ByteView octets, const std::string& path) {
    UniversalConfMgr list;
    try {
        list.loadFromText(asText(octets), path);
    } catch (const StoreError&) {
        return false;
    }
    return list.toText() == asText(octets);
}

constexpr int kMostKept = 99;

bool holds(const std::string& path, const struct stat& info, ByteView octets) try {
    return S_ISREG(info.st_mode) && info.st_size == static_cast<int64_t>(octets.size()) &&
           std::ranges::equal(readFile(path), octets);
} catch (const StoreError&) {
    return false;
}

/// Where a hand-written list can be kept: the first name that is free; empty when one keeps it already.
std::string freeName(const std::string& path, ByteView octets) {
    for (int number = 0; number <= kMostKept; ++number) {
        std::string name = path + (number == 0 ? "~" : "~" + std::to_string(number) + "~");
        struct stat info {};
        if (fileOps().lstat(name, &info) != 0) {
            if (errno == ENOENT) return name;
            break;
        }
        if (holds(name, info, octets)) return {};
    }
    return path + "~";
}

/// Comments, order and letters of a list that somebody wrote do not survive a save: that list stays beside it. Others
/// own what has such a name already, or it is an earlier one of this list's, so nothing is ever written over.
void keepHandWritten(const std::string& path) {
    if (!fileExists(path)) return;
    const Bytes old = readFile(path);
    if (isAsSaved(old, path)) return;
    const std::string copy = freeName(path, old);
    struct stat info {};
    if (copy.empty()) return;
    const bool taken = fileOps().lstat(copy, &info) == 0;
    const WriteResult written =
        taken ? WriteResult{WriteStep::Open, EEXIST} : writeFileAtomically(copy, old, {WriteMode::Private});
    if (!written) {
        throw StoreError(StoreCause::Failed, "Nie zmieniono listy pisanej recznie, bo nie powstala jej kopia " + copy +
                                                 ": " + std::strerror(written.error));
    }
    // What root keeps of a user's list is the user's.
    const FileDescriptor kept(fileOps().open(copy, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (kept.valid() && fileOps().stat(path, &info) == 0)
        static_cast<void>(fileOps().fchown(kept.get(), info.st_uid, info.st_gid));
}

/// Whether a list is the user's alone: the process's own file, below HOME unless it is the user's by its kind.
bool isOwn(const std::string& path, ProfileMedia media) {
    struct stat info {};
    if (fileOps().stat(path, &info) != 0) return true;
    if (info.st_uid != ::geteuid()) return false;
    if (media == ProfileMedia::User) return true;
    std::error_code failed, none;
    const auto home = std::filesystem::canonical(expandHome("~/"), failed);
    const auto real = std::filesystem::canonical(path, none);
    return !failed && !none && std::ranges::mismatch(home, real).in1 == home.end();
}

}  // namespace

/// Lists hold passwords of servers, proxies and databases, which are hidden from a glance and no more.
WriteMode UniversalConfMgr::writeMode(const std::string& path) const {
    if (media_ == ProfileMedia::Common) return WriteMode::KeepOrCommon;
    ListNodes::Cursor secret = nodes_.begin();
    while (secret && !secret.path().ends_with("PASS")) ++secret;
    if (!secret) return WriteMode::KeepOrSecret;
    if (isOwn(path, media_)) return WriteMode::Private;
    // Somebody else's, or a list in a place that programs of others read: who may is its owner's to say.
    return media_ == ProfileMedia::User ? WriteMode::Secret : WriteMode::KeepOrSecret;
}

void UniversalConfMgr::seveToFile(const std::string& path) {
    if (const auto name = findUnwritable())
        throw CrvApiException(ECRV_API_INV_PAR, "Niepoprawna wartosc parametru konfiguracyjnego: " + *name);
    const std::string file = expandHome(path);
    keepHandWritten(file);
    const WriteResult result = writeFileAtomically(file, asBytes(toText()), {writeMode(file), true});
    if (result.failed == WriteStep::Open) throw StoreError(StoreCause::NotOpened, "Blad otwarcia pliku: " + path);
    if (result.failed == WriteStep::Write) throw StoreError(StoreCause::Failed, "Błąd zapisu pliku: " + path);
    pendingChanges_ = false;
}

std::optional<std::string> UniversalConfMgr::findUnwritable() const {
    std::string line;
    ListEntry read;
    for (ListNodes::Cursor at = nodes_.begin(); at; ++at) {
        line.clear();
        appendListLine(line, at.path(), at.node());
        const bool oneLine = line.find('\n') == std::string::npos && line.find('\r') == std::string::npos;
        if (!oneLine || line.size() > kMaxLine || parseListLine(line, read) != ListLine::Value ||
            read.path != at.path() || read.node != at.node())
            return std::string(at.path());
    }
    return std::nullopt;
}

std::string UniversalConfMgr::toText() const {
    std::string text;
    for (ListNodes::Cursor at = nodes_.begin(); at; ++at) {
        appendListLine(text, at.path(), at.node());
        text.push_back('\n');
    }
    return text;
}

size_t UniversalConfMgr::size() const {
    size_t count = 0;
    for (ListNodes::Cursor at = nodes_.begin(); at; ++at) ++count;
    return count;
}

template <class T>
bool UniversalConfMgr::getTyped(const std::string& path, T& value, bool demanded, const char* typeName) const {
    std::optional<NodeDesc> node = findNode(path);
    if (!node) {
        if (demanded) throw StoreError(StoreCause::NotFound, "getData(): opcja nie znaleziona: " + path);
        return false;
    }
    T* stored = std::get_if<T>(&node->value);
    if (!stored)
        throw StoreError(StoreCause::Malformed, std::string("getData( ") + typeName + " ): niezgodny typ: " + path);
    value = std::move(*stored);
    return true;
}

bool UniversalConfMgr::getData(const std::string& path, long& value, bool demanded) const {
    return getTyped(path, value, demanded, "long");
}

bool UniversalConfMgr::getData(const std::string& path, std::string& value, bool demanded) const {
    return getTyped(path, value, demanded, "string");
}

bool UniversalConfMgr::getData(const std::string& path, std::vector<char>& value, bool demanded) const {
    return getTyped(path, value, demanded, "binary");
}

bool UniversalConfMgr::getBinaryOrString(const std::string& path, std::vector<char>& value, bool demanded) const {
    if (!checkConfItem(path, UCMNodeType::String)) return getTyped(path, value, demanded, "binary|string");
    std::string text;
    getData(path, text, demanded);
    value.assign(text.begin(), text.end());
    return true;
}

void UniversalConfMgr::setNode(const char* path, NodeDesc node) {
    if (!path) throw StoreError(StoreCause::Refused, "parametr path nie moze byc NULL");
    if (*path != '\\') throw StoreError(StoreCause::Refused, "parametr path musi zaczynac sie znakiem \\");
    nodes_.set(asciiUpper(path), std::move(node));
    pendingChanges_ = true;
}

void UniversalConfMgr::setData(const char* path, long value) {
    setNode(path, {value});
}

void UniversalConfMgr::setData(const char* path, const char* value) {
    setNode(path, NodeDesc{orEmpty(value)});
}

void UniversalConfMgr::setData(const char* path, const char* data, long len) {
    setNode(path, {data && len > 0 ? std::vector<char>(data, data + len) : std::vector<char>()});
}

std::optional<NodeDesc> UniversalConfMgr::findNode(std::string_view path) const {
    const auto found = nodes_.find(asciiUpper(path));
    return found ? std::optional(NodeDesc::of(*found)) : std::nullopt;
}

void UniversalConfMgr::remove(std::string_view path) {
    std::string folder = asFolder(path);
    const bool below = nodes_.remove(folder, pastFolder(folder));
    folder.pop_back();
    // The first path behind a path is the one with a zero octet more.
    const bool node = nodes_.remove(folder, folder + '\0');
    pendingChanges_ |= below || node;
}

bool UniversalConfMgr::doesPathExist(std::string_view path) const {
    if (checkConfItem(path, UCMNodeType::Key)) return true;
    std::string node = asFolder(path);
    node.pop_back();
    return nodes_.find(node).has_value();
}

bool UniversalConfMgr::checkConfItem(std::string_view path, UCMNodeType type) const {
    if (type == UCMNodeType::Key) {
        std::string folder = asFolder(path);
        const ListNodes::Cursor first = nodes_.from(folder);
        return first && first.path().starts_with(folder);
    }
    const auto node = nodes_.find(asciiUpper(path));
    return node && node->type == type;
}

bool UniversalConfMgr::checkConf(std::span<const ConfItem> items) const {
    return std::ranges::all_of(items, [this](const ConfItem& item) { return checkConfItem(item.path, item.type); });
}

UniversalConfMgr UniversalConfMgr::below(std::string_view path) const {
    const std::string folder = asFolder(path);
    UniversalConfMgr list(media_);
    list.nodes_ = nodes_.between(folder, pastFolder(folder));
    return list;
}

void UniversalConfMgr::getIterator(Iterator& iterator, std::string_view prefix, UCMNodeType type) const {
    iterator.prefix_ = asFolder(prefix);
    iterator.type_ = type;
    iterator.at_ = nodes_.from(iterator.prefix_);
    iterator.settle();
}

/// Moves on to the next node of the type, or to the end when the prefix no longer matches.
void UniversalConfMgr::Iterator::settle() {
    for (; at_ && at_.path().starts_with(prefix_); ++at_) {
        const bool inner = relative().find('\\') != std::string_view::npos;
        if (type_ == UCMNodeType::Key ? inner : at_.node().type == type_) return;
    }
    at_ = {};
}

UniversalConfMgr::Iterator& UniversalConfMgr::Iterator::operator++() {
    if (type_ == UCMNodeType::Key) {
        at_.seek(pastFolder(prefix_ + getDescr()));
    } else {
        ++at_;
    }
    settle();
    return *this;
}

std::string_view UniversalConfMgr::Iterator::relative() const {
    return at_.path().substr(prefix_.size());
}

std::string UniversalConfMgr::Iterator::getDescr() const {
    const std::string_view whole = relative();
    return std::string(type_ == UCMNodeType::Key ? whole.substr(0, whole.find('\\') + 1) : whole);
}

std::optional<NodeDesc> UniversalConfMgr::Iterator::findBelow(std::string_view name) const {
    const std::string path = (prefix_ + getDescr()).append(name);
    ListNodes::Cursor at = at_;
    at.seek(path);
    return at && at.path() == path ? std::optional(NodeDesc::of(at.node())) : std::nullopt;
}

}  // namespace crv
