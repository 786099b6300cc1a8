// Attributes of a profile record, driven by one table: what each is called in the list, how it is kept and answered.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace crv {

class UniversalConfMgr;

/// Results of the attribute calls.
enum ProfileResult : int {
    kAttrOk = 0,
    kAttrBadArgument = 33,  // unknown attribute or bad argument
    kAttrTooShort = 34,     // the length is set to the size needed
    kAttrDefault = 37,      // the attribute holds its default
    kAttrNoValue = 38,
};

/// How an attribute is kept in the list and answered.
enum class AttrForm {
    Text,        // string; answered as it is
    Label,       // string of exactly `size` characters, padded on the right with spaces
    Octets,      // binary; of exactly `size` octets unless that is 0
    Number,      // long; answered as 8 bytes in the machine's order
    OpenNumber,  // the same, but any buffer length outside 0 to 7, also a negative one, counts as enough
    Flag,        // long 0 or 1; answered as one byte
};

constexpr long kNoAttr = -1;

struct AttrRow {
    const char* key;  // key below the record's path; null: kept in memory only
    AttrForm form;
    std::array<long, 2> ids;  // attribute numbers that mean this value, kNoAttr for none
    long textId = kNoAttr;    // attribute number that answers a number as decimal text
    bool hasStatus = false;   // a companion key, named with "Status" behind, marks the default
    size_t size = 0;
};

/// Copies a value by the buffer rule: null buffer - only the length; too short - kAttrTooShort with the length needed.
int copyAttr(std::string_view value, char* buf, long* len);
/// Copies a number as 8 bytes; the rest of a longer buffer is zeroed.
int copyNumber(long value, char* buf, long* len);
/// The same for attributes for which every length outside 0 to 7 counts as 8: such a length says nothing about the
/// buffer, so only the 8 bytes are written.
int copyOpenNumber(long value, char* buf, long* len);
/// Whether a list can hold the text as a value: no double quote, CR, LF or zero byte.
bool fitsList(std::string_view text);
/// Whether it can be a component of a path, too: no "[" and no backslash.
bool fitsListName(std::string_view name);

/// The values of one table. Copies freely.
class AttrSet {
  public:
    /// The table must outlive the object.
    explicit AttrSet(std::span<const AttrRow> rows) : rows_(rows), values_(rows.size()) {}

    [[nodiscard]] bool knows(long id) const;
    /// Answers kAttrOk, kAttrBadArgument (null or negative length too), kAttrTooShort, kAttrDefault or kAttrNoValue.
    int get(long id, char* buf, long* len) const;
    /// Stores a value. Numbers and flags come as decimal text, as 8 bytes in the machine's order or as one byte 0 or 1.
    /// A null value makes an attribute with a status its default; length 0 takes the value of any text away.
    int set(long id, const char* value, long len);

    /// Whether a key below a record's path, in capitals, is one of the table or its companion.
    [[nodiscard]] bool writes(std::string_view key) const;
    void load(const UniversalConfMgr& store, const std::string& prefix);
    void save(UniversalConfMgr& store, const std::string& prefix) const;

  private:
    struct Value {
        std::string text;
        long number = 0;
        bool isDefault = false;
    };

    [[nodiscard]] size_t find(long id) const;

    std::span<const AttrRow> rows_;
    std::vector<Value> values_;
};

}  // namespace crv
