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

/// Whether the line of a node reads as the same node.
bool canReadBack(const std::string& path, const NodeDesc& node) {
    const std::string line = formatListLine(path, node);
    std::string readPath;
    NodeDesc read;
    return line.size() <= UniversalConfMgr::kMaxLine && line.find_first_of("\r\n") == std::string::npos &&
           parseListLine(line, readPath, read) == ListLine::Value && readPath == path && read == node;
}

}  // namespace

UCMNodeType NodeDesc::type() const {
    static constexpr std::array kTypes = {UCMNodeType::Long, UCMNodeType::String, UCMNodeType::Binary};
    return kTypes[value.index()];
}

bool pathMatches(std::string_view prefix, std::string_view path) {
    if (prefix.empty() || path.empty()) throw StoreError(StoreCause::Refused, "Niepoprawna sciezka");
    if (path.size() < prefix.size() || !equalIgnoreCase(prefix, path.substr(0, prefix.size()))) return false;
    return prefix.back() == '\\' || path.size() == prefix.size() || path[prefix.size()] == '\\';
}

/// Cuts the chunks of a file into lines, of which it keeps the first kMaxLine characters, and stores their values.
class ListReader {
  public:
    ListReader(UniversalConfMgr& store, const std::string& path) : store_(store), path_(path) {}

    void feed(std::string_view chunk) {
        for (size_t end; (end = chunk.find('\n')) != std::string_view::npos; chunk.remove_prefix(end + 1)) {
            append(chunk.substr(0, end));
            finishLine();
        }
        append(chunk);
    }

    void finish() {
        if (!line_.empty()) finishLine();
    }

  private:
    void append(std::string_view part) {
        for (size_t cr; (cr = part.find('\r')) != std::string_view::npos; part.remove_prefix(cr + 1))
            appendClean(part.substr(0, cr));
        appendClean(part);
    }

    void appendClean(std::string_view part) { line_.append(part.substr(0, UniversalConfMgr::kMaxLine - line_.size())); }

    void finishLine() {
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (++number_ == 1 && line_.starts_with(kByteOrderMark)) line_.erase(0, kByteOrderMark.size());
        std::string name;
        NodeDesc node;
        ListLine kind = parseListLine(line_, name, node);
        line_.clear();
        if (kind == ListLine::Comment) return;
        if (kind == ListLine::Broken) fail(": Blad skladni w linii: %d");
        node.line = number_;
        // Lists are written in the order of their paths, so the end is the likely place.
        size_t before = store_.nodes_.size();
        store_.nodes_.emplace_hint(store_.nodes_.end(), std::move(name), std::move(node));
        if (store_.nodes_.size() == before) fail(": Podwojna definicja wartosci w linii: %d");
    }

    [[noreturn]] void fail(std::string_view text) const {
        throw StoreError(StoreCause::Malformed, "Plik: " + path_ + withNumber(text, number_));
    }

    UniversalConfMgr& store_;
    const std::string& path_;
    std::string line_;
    size_t number_ = 0;
};

void UniversalConfMgr::loadFromFile(const std::string& path) {
    // The broken letters of the text are kept: programs compare it.
    if (!loadIfExists(path)) throw StoreError(StoreCause::NotOpened, "BĹ‚Ä…d otwarcia pliku konfiguracyjnego: " + path);
}

namespace {
constexpr size_t kLongestList = size_t{16} << 20;
}

bool UniversalConfMgr::loadIfExists(const std::string& path) {
    UniversalConfMgr fresh(media_);
    ListReader reader(fresh, path);
    nodes_.clear();
    pendingChanges_ = false;
    FileDescriptor file(fileOps().open(expandHome(path), O_RDONLY | O_CLOEXEC));
    if (!file.valid() && errno == ENOENT) return false;
    if (!file.valid()) throw StoreError(StoreCause::NotOpened, "BĹ‚Ä…d otwarcia pliku konfiguracyjnego: " + path);
    std::vector<char> chunk(1 << 16);
    size_t total = 0;
    for (ssize_t got; (got = readUpTo(file.get(), chunk.data(), chunk.size(), -1)) != 0;) {
        if (got < 0) throw StoreError(StoreCause::Failed, "Blad odczytu pliku: " + path);
        reader.feed({chunk.data(), static_cast<size_t>(got)});
        total += static_cast<size_t>(got);
        // A device may have no end; a list is finished even by a program that is to end.
        if (total > kLongestList && processEnding())
            throw StoreError(StoreCause::Failed, "Przerwano odczyt pliku: " + path);
    }
    reader.finish();
    nodes_ = std::move(fresh.nodes_);
    return true;
}

void UniversalConfMgr::loadFromText(std::string_view text, const std::string& path) {
    UniversalConfMgr fresh(media_);
    ListReader reader(fresh, path);
    nodes_.clear();
    pendingChanges_ = false;
    reader.feed(text);
    reader.finish();
    nodes_ = std::move(fresh.nodes_);
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
    const bool secret = std::ranges::any_of(nodes_, [](const auto& entry) { return entry.first.ends_with("PASS"); });
    if (!secret) return WriteMode::KeepOrSecret;
    if (isOwn(path, media_)) return WriteMode::Private;
    // Somebody else's, or a list in a place that programs of others read: who may is its owner's to say.
    return media_ == ProfileMedia::User ? WriteMode::Secret : WriteMode::KeepOrSecret;
}

void UniversalConfMgr::seveToFile(const std::string& path) {
    if (const std::string* name = findUnwritable())
        throw CrvApiException(ECRV_API_INV_PAR, "Niepoprawna wartosc parametru konfiguracyjnego: " + *name);
    const std::string file = expandHome(path);
    keepHandWritten(file);
    const WriteResult result = writeFileAtomically(file, asBytes(toText()), {writeMode(file), true});
    if (result.failed == WriteStep::Open) throw StoreError(StoreCause::NotOpened, "Blad otwarcia pliku: " + path);
    if (result.failed == WriteStep::Write) throw StoreError(StoreCause::Failed, "Błąd zapisu pliku: " + path);
    pendingChanges_ = false;
}

const std::string* UniversalConfMgr::findUnwritable() const {
    const auto bad =
        std::ranges::find_if(nodes_, [](const auto& entry) { return !canReadBack(entry.first, entry.second); });
    return bad == nodes_.end() ? nullptr : &bad->first;
}

std::string UniversalConfMgr::toText() const {
    std::string text;
    for (const auto& [path, node] : nodes_) text.append(formatListLine(path, node)).push_back('\n');
    return text;
}

template <class T>
bool UniversalConfMgr::getTyped(const std::string& path, T& value, bool demanded, const char* typeName) const {
    const NodeDesc* node = findNode(path);
    if (!node) {
        if (demanded) throw StoreError(StoreCause::NotFound, "getData(): opcja nie znaleziona: " + path);
        return false;
    }
    const T* stored = std::get_if<T>(&node->value);
    if (!stored)
        throw StoreError(StoreCause::Malformed, std::string("getData( ") + typeName + " ): niezgodny typ: " + path);
    value = *stored;
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
    nodes_.insert_or_assign(asciiUpper(path), std::move(node));
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

const NodeDesc* UniversalConfMgr::findNode(std::string_view path) const {
    auto found = nodes_.find(asciiUpper(path));
    return found == nodes_.end() ? nullptr : &found->second;
}

void UniversalConfMgr::remove(std::string_view path) {
    std::string folder = asFolder(path);
    size_t before = nodes_.size();
    nodes_.erase(nodes_.lower_bound(folder), nodes_.lower_bound(pastFolder(folder)));
    folder.pop_back();
    nodes_.erase(folder);
    pendingChanges_ |= nodes_.size() != before;
}

bool UniversalConfMgr::doesPathExist(std::string_view path) const {
    if (checkConfItem(path, UCMNodeType::Key)) return true;
    std::string node = asFolder(path);
    node.pop_back();
    return findNode(node);
}

bool UniversalConfMgr::checkConfItem(std::string_view path, UCMNodeType type) const {
    if (type == UCMNodeType::Key) {
        std::string folder = asFolder(path);
        auto first = nodes_.lower_bound(folder);
        return first != nodes_.end() && first->first.starts_with(folder);
    }
    const NodeDesc* node = findNode(path);
    return node && node->type() == type;
}

bool UniversalConfMgr::checkConf(std::span<const ConfItem> items) const {
    return std::ranges::all_of(items, [this](const ConfItem& item) { return checkConfItem(item.path, item.type); });
}

void UniversalConfMgr::getIterator(Iterator& iterator, std::string_view prefix, UCMNodeType type) const {
    iterator.store_ = this;
    iterator.prefix_ = asFolder(prefix);
    iterator.type_ = type;
    iterator.at_ = nodes_.lower_bound(iterator.prefix_);
    iterator.settle();
}

/// Moves on to the next node of the type, or to the end when the prefix no longer matches.
void UniversalConfMgr::Iterator::settle() {
    const auto end = store_->nodes_.end();
    for (; at_ != end; ++at_) {
        if (!pathMatches(prefix_, at_->first)) {
            at_ = end;
            return;
        }
        bool inner = at_->first.find('\\', prefix_.size()) != std::string::npos;
        if (type_ == UCMNodeType::Key ? inner : at_->second.type() == type_) return;
    }
}

UniversalConfMgr::Iterator& UniversalConfMgr::Iterator::operator++() {
    if (type_ == UCMNodeType::Key) {
        at_ = store_->nodes_.lower_bound(pastFolder(prefix_ + getDescr()));
    } else {
        ++at_;
    }
    settle();
    return *this;
}

std::string UniversalConfMgr::Iterator::getDescr() const {
    std::string_view relative = std::string_view{at_->first}.substr(prefix_.size());
    if (type_ == UCMNodeType::Key) relative = relative.substr(0, relative.find('\\') + 1);
    return std::string(relative);
}

}  // namespace crv
