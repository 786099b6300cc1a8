#include "profiles/attr_set.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "misc/ascii.h"
#include "profiles/universal_conf_mgr.h"

namespace crv {
namespace {

bool isNumeric(AttrForm form) {
    return form == AttrForm::Number || form == AttrForm::OpenNumber || form == AttrForm::Flag;
}

/// Decimal text, 8 bytes in the machine's order, or one byte 0 or 1.
bool readNumber(std::string_view value, long& number) {
    auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error == std::errc() && end == value.data() + value.size()) return true;
    if (value.size() == sizeof number) {
        std::memcpy(&number, value.data(), sizeof number);
        return true;
    }
    if (value.size() != 1 || value[0] < 0 || value[0] > 1) return false;
    number = value[0];
    return true;
}

bool fitText(const AttrRow& row, std::string& text) {
    if (text.empty()) return true;
    if (row.form == AttrForm::Octets) return row.size == 0 || text.size() == row.size;
    if (!fitsList(text)) return false;
    if (row.form == AttrForm::Text) return true;
    if (text.size() > row.size) return false;
    text.resize(row.size, ' ');
    return true;
}

std::string statusKey(const std::string& path) {
    return path + "Status";
}

}  // namespace

int copyAttr(std::string_view value, char* buf, long* len) {
    if (!len || (buf && *len < 0)) return kAttrBadArgument;
    const bool fits = !buf || static_cast<size_t>(*len) >= value.size();
    *len = static_cast<long>(value.size());
    if (!fits) return kAttrTooShort;
    if (buf) value.copy(buf, value.size());
    return kAttrOk;
}

int copyNumber(long value, char* buf, long* len) {
    if (buf && len && *len > static_cast<long>(sizeof value)) std::memset(buf, 0, static_cast<size_t>(*len));
    return copyAttr({reinterpret_cast<const char*>(&value), sizeof value}, buf, len);
}

int copyOpenNumber(long value, char* buf, long* len) {
    constexpr long kSize = sizeof value;
    if (len && (*len < 0 || *len > kSize)) *len = kSize;
    return copyNumber(value, buf, len);
}

bool fitsList(std::string_view text) {
    return text.find_first_of(std::string_view("\"\r\n\0", 4)) == std::string_view::npos;
}

bool fitsListName(std::string_view name) {
    return fitsList(name) && name.find_first_of("[\\") == std::string_view::npos;
}

size_t AttrSet::find(long id) const {
    if (id == kNoAttr) return rows_.size();
    auto row =
        std::ranges::find_if(rows_, [id](const AttrRow& r) { return std::ranges::count(r.ids, id) || r.textId == id; });
    return static_cast<size_t>(row - rows_.begin());
}

bool AttrSet::knows(long id) const {
    return find(id) < rows_.size();
}

int AttrSet::get(long id, char* buf, long* len) const {
    const size_t at = find(id);
    if (at == rows_.size() || !len) return kAttrBadArgument;
    const AttrRow& row = rows_[at];
    const Value& value = values_[at];
    if (id == row.textId) return copyAttr(std::to_string(value.number), buf, len);
    if (row.form == AttrForm::OpenNumber) return copyOpenNumber(value.number, buf, len);
    if (row.form == AttrForm::Flag)
        return copyAttr(value.number ? std::string_view("\1", 1) : std::string_view("\0", 1), buf, len);
    if (isNumeric(row.form)) return copyNumber(value.number, buf, len);
    if (buf && *len < 0) return kAttrBadArgument;
    if (!value.isDefault && !value.text.empty()) return copyAttr(value.text, buf, len);
    *len = 0;
    return value.isDefault ? kAttrDefault : kAttrNoValue;
}

int AttrSet::set(long id, const char* value, long len) {
    const size_t at = find(id);
    if (at == rows_.size() || len < 0 || (!value && len > 0)) return kAttrBadArgument;
    const AttrRow& row = rows_[at];
    Value fresh;
    fresh.isDefault = !value && row.hasStatus;
    if (value) fresh.text.assign(value, static_cast<size_t>(len));
    if (isNumeric(row.form)) {
        if (!readNumber(fresh.text, fresh.number)) return kAttrBadArgument;
        if (row.form == AttrForm::Flag) fresh.number = fresh.number != 0;
        fresh.text.clear();
    } else if (!fitText(row, fresh.text)) {
        return kAttrBadArgument;
    }
    values_[at] = std::move(fresh);
    return kAttrOk;
}

bool AttrSet::writes(std::string_view key) const {
    return std::ranges::any_of(rows_, [&](const AttrRow& row) {
        if (!row.key) return false;
        const std::string name = asciiUpper(row.key);
        return key == name || (row.hasStatus && key == name + "STATUS");
    });
}

void AttrSet::load(const UniversalConfMgr& store, const std::string& prefix) {
    for (size_t i = 0; i < rows_.size(); ++i) {
        const AttrRow& row = rows_[i];
        if (!row.key) continue;
        const std::string path = prefix + row.key;
        Value fresh;
        long status = 0;
        if (isNumeric(row.form)) {
            store.getData(path, fresh.number);
        } else if (row.form == AttrForm::Octets) {
            std::vector<char> octets;
            store.getBinaryOrString(path, octets);
            fresh.text.assign(octets.begin(), octets.end());
        } else if (store.getData(path, fresh.text) && row.form == AttrForm::Label && !fresh.text.empty()) {
            fresh.text.resize(row.size, ' ');
        }
        fresh.isDefault = row.hasStatus && store.getData(statusKey(path), status) && status != 0;
        values_[i] = std::move(fresh);
    }
}

void AttrSet::save(UniversalConfMgr& store, const std::string& prefix) const {
    for (size_t i = 0; i < rows_.size(); ++i) {
        const AttrRow& row = rows_[i];
        if (!row.key) continue;
        const std::string path = prefix + row.key;
        const Value& value = values_[i];
        if (isNumeric(row.form)) {
            store.setData(path.c_str(), value.number);
        } else if (!value.text.empty()) {
            if (row.form == AttrForm::Octets) {
                store.setData(path.c_str(), value.text.data(), static_cast<long>(value.text.size()));
            } else {
                store.setData(path.c_str(), value.text.c_str());
            }
        }
        if (row.hasStatus) store.setData(statusKey(path).c_str(), static_cast<long>(value.isDefault));
    }
}

}  // namespace crv
