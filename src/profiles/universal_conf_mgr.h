// The typed path/value store behind the profile list files. The file's syntax is described in docs/formats.md.
#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "misc/atomic_write.h"
#include "misc/nothing.h"
#include "profiles/profile_media.h"

namespace crv {

/// Type of a node; Key is an inner node, which is never stored but derived from the paths of the values below it.
enum class UCMNodeType { Key = 1, Long = 2, String = 4, Binary = 8 };

/// A value with its type.
struct NodeDesc {
    std::variant<long, std::string, std::vector<char>, Nothing> value;
    size_t line = 0;  ///< of the list that it was read from, from 1; 0 for one that was set

    [[nodiscard]] UCMNodeType type() const;
    bool operator==(const NodeDesc& other) const { return value == other.value; }
};

/// Ordered map from a path, such as \DEMO\TYPE, to a typed value. Paths fold ASCII letters to upper case on every way
/// in, so they come out upper-cased. A store is a passing object: load, look or change, save.
class UniversalConfMgr {
  public:
    class Iterator;
    struct ConfItem {
        const char* path;
        UCMNodeType type;
    };
    /// Characters of a line that a list keeps; the writer refuses what would not fit.
    static constexpr size_t kMaxLine = 1025;

    explicit UniversalConfMgr(ProfileMedia media = ProfileMedia::File) : media_(media) {}

    /// Replaces the contents by those of the file ("~/" is expanded). Throws StoreError with the text of an
    /// open, read, syntax or double-definition error, the latter two with the line's number; the store is then empty.
    void loadFromFile(const std::string& path);
    /// The same, but a file that does not exist leaves an empty store and answers false.
    bool loadIfExists(const std::string& path);
    /// The same from the text of a list; the path only stands in the error texts.
    void loadFromText(std::string_view text, const std::string& path);
    /// Replaces the file ("~/" expanded) in one step by the whole store and clears the mark of pending changes. A list
    /// that was written by hand is kept first, as "<list>~", where that is taken as "<list>~1~" and so on (mode 0600).
    /// A new common list gets mode 0644, any other new list 0600, as does one of the user's own with passwords in it;
    /// where no file can be made beside it, the list is rewritten in place. Throws CrvApiException (ECRV_API_INV_PAR)
    /// for a value that a reader could not read back, and StoreError when the hand-written list cannot be kept, both
    /// before anything is touched, and StoreError for a failed open or write, after which the old file is still there.
    void seveToFile(const std::string& path);
    /// Path of the first node that a reader could not read back; null when all of them could.
    [[nodiscard]] const std::string* findUnwritable() const;
    /// The lines of the list, one a node in the order of the paths.
    [[nodiscard]] std::string toText() const;

    /// Value at a path. False: no such path, unless it is demanded, which throws StoreError as a value of
    /// another type does.
    bool getData(const std::string& path, long& value, bool demanded = false) const;
    bool getData(const std::string& path, std::string& value, bool demanded = false) const;
    bool getData(const std::string& path, std::vector<char>& value, bool demanded = false) const;
    /// As above for a value that may be written as binary or as string.
    bool getBinaryOrString(const std::string& path, std::vector<char>& value, bool demanded = false) const;

    /// Creates or replaces a value and marks pending changes. Throws StoreError when the path is null or does
    /// not begin with a backslash. A null string counts as empty.
    void setData(const char* path, long value);
    void setData(const char* path, const char* value);
    void setData(const char* path, const char* data, long len);
    void setNode(const char* path, NodeDesc node);
    const NodeDesc* findNode(std::string_view path) const;

    /// Removes the node and every node under it: \A and \A\ both take \A\B and leave \AB.
    void remove(std::string_view path);
    /// Whether a value stands at the path or under it, for \A\ as for \A: what remove() would take.
    [[nodiscard]] bool doesPathExist(std::string_view path) const;

    /// Places the iterator before the nodes of a type under the prefix; throws StoreError for an empty prefix.
    void getIterator(Iterator& iterator, std::string_view prefix, UCMNodeType type) const;

    /// Whether a path holds a value of the type (Key: values below it).
    [[nodiscard]] bool checkConfItem(std::string_view path, UCMNodeType type) const;
    [[nodiscard]] bool checkConf(std::span<const ConfItem> items) const;

    [[nodiscard]] bool isPendingChanges() const { return pendingChanges_; }
    void setPendingChanges(bool pending) { pendingChanges_ = pending; }
    [[nodiscard]] ProfileMedia media() const { return media_; }
    [[nodiscard]] size_t size() const { return nodes_.size(); }

  private:
    friend class ListReader;
    using Nodes = std::map<std::string, NodeDesc, std::less<>>;

    template <class T>
    bool getTyped(const std::string& path, T& value, bool demanded, const char* typeName) const;

    [[nodiscard]] WriteMode writeMode(const std::string& path) const;

    Nodes nodes_;
    ProfileMedia media_;
    bool pendingChanges_ = false;
};

/// Walks the nodes under a prefix in the order of their paths. Over values it meets every depth; over keys it meets the
/// inner nodes right under the prefix, each once. It becomes invalid when the store changes.
class UniversalConfMgr::Iterator {
  public:
    /// True while the iterator stands on a node.
    explicit operator bool() const { return store_ && at_ != store_->nodes_.end(); }
    Iterator& operator++();
    /// Path relative to the prefix, upper-cased; that of a key ends with a backslash.
    [[nodiscard]] std::string getDescr() const;
    /// Value of the node; for a key the first value below it.
    [[nodiscard]] const NodeDesc& getData() const { return at_->second; }

  private:
    friend class UniversalConfMgr;
    void settle();

    const UniversalConfMgr* store_ = nullptr;
    std::string prefix_;  // ends with a backslash
    UCMNodeType type_ = UCMNodeType::Key;
    Nodes::const_iterator at_;
};

/// Whether a path lies at or under a prefix: it begins with it, and the match ends at a backslash or the path's end.
/// Throws StoreError for an empty prefix or path.
bool pathMatches(std::string_view prefix, std::string_view path);

}  // namespace crv
