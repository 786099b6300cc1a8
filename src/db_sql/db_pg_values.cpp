#include "db_sql/db_pg_values.h"

#include <string_view>

#include "misc/byte_order.h"

namespace crv {

namespace {

constexpr int32_t kByteaType = 17, kBigintType = 20;
/// Signature, flags and length of the extension of a binary COPY; its end is a row of -1 values.
constexpr std::string_view kCopyHead{"PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19};
constexpr std::string_view kCopyEnd{"\377\377", 2};

template <class Number>
void append(Bytes& data, Number value) {
    data.resize(data.size() + sizeof value);
    storeBe(data.data() + data.size() - sizeof value, value);
}

void append(Bytes& data, ByteView octets) {
    data.insert(data.end(), octets.begin(), octets.end());
}

/// Of an array: dimensions, whether there are nulls, type; of the one dimension its length and first subscript.
void appendArrayHead(Bytes& data, int32_t type, size_t length) {
    append<int32_t>(data, length == 0 ? 0 : 1);
    append<int32_t>(data, 0);
    append(data, type);
    if (length == 0) return;
    append(data, static_cast<int32_t>(length));
    append<int32_t>(data, 1);
}

}  // namespace

void PgValues::place(size_t from) {
    places_.push_back({from, static_cast<int>(data_.size() - from)});
}

PgValues& PgValues::octets(ByteView value) {
    const size_t from = data_.size();
    append(data_, value);
    place(from);
    return *this;
}

PgValues& PgValues::number(int64_t value) {
    const size_t from = data_.size();
    append(data_, value);
    place(from);
    return *this;
}

PgValues& PgValues::flag(bool value) {
    const size_t from = data_.size();
    data_.push_back(value ? 1 : 0);
    place(from);
    return *this;
}

PgValues& PgValues::list(std::span<const Bytes> values) {
    const size_t from = data_.size();
    appendArrayHead(data_, kByteaType, values.size());
    for (const Bytes& value : values) {
        append(data_, static_cast<int32_t>(value.size()));
        append(data_, ByteView(value));
    }
    place(from);
    return *this;
}

PgValues& PgValues::list(std::span<const int64_t> values) {
    const size_t from = data_.size();
    appendArrayHead(data_, kBigintType, values.size());
    for (const int64_t value : values) {
        append(data_, static_cast<int32_t>(sizeof value));
        append(data_, value);
    }
    place(from);
    return *this;
}

PgValues& PgValues::null() {
    places_.push_back({data_.size(), -1});
    return *this;
}

PgValues& PgValues::clear() {
    data_.clear();
    places_.clear();
    return *this;
}

PgValues::Pointers PgValues::pointers() const {
    Pointers out;
    for (const Place& one : places_) {
        // A null pointer would be no value; an empty one is told by its length.
        const char* begin = data_.empty() ? "" : reinterpret_cast<const char*>(data_.data()) + one.at;
        out.values.push_back(one.length < 0 ? nullptr : begin);
        out.lengths.push_back(one.length < 0 ? 0 : one.length);
        out.formats.push_back(1);
    }
    return out;
}

void PgValues::beginRows(Bytes& rows) {
    append(rows, asBytes(kCopyHead));
}

void PgValues::endRows(Bytes& rows) {
    append(rows, asBytes(kCopyEnd));
}

void PgValues::appendRow(Bytes& rows) const {
    append(rows, static_cast<int16_t>(places_.size()));
    for (const Place& one : places_) {
        append(rows, static_cast<int32_t>(one.length));
        if (one.length > 0) append(rows, ByteView(data_).subspan(one.at, static_cast<size_t>(one.length)));
    }
}

int PgResult::rows() const {
    return result_ ? result_.get_deleter().functions->ntuples(result_.get()) : 0;
}

bool PgResult::isNull(int row, int column) const {
    return row >= rows() || result_.get_deleter().functions->getisnull(result_.get(), row, column) != 0;
}

ByteView PgResult::octets(int row, int column) const {
    if (row >= rows()) return {};
    const PgFunctions& pq = *result_.get_deleter().functions;
    return {reinterpret_cast<const uint8_t*>(pq.getvalue(result_.get(), row, column)),
            static_cast<size_t>(pq.getlength(result_.get(), row, column))};
}

int64_t PgResult::number(int row, int column) const {
    const ByteView value = octets(row, column);
    if (value.size() != 2 && value.size() != 4 && value.size() != 8) return 0;
    uint64_t number = (value[0] & 0x80) != 0 ? UINT64_MAX : 0;
    for (const uint8_t octet : value) number = number << 8 | octet;
    return static_cast<int64_t>(number);
}

bool PgResult::flag(int row, int column) const {
    const ByteView value = octets(row, column);
    return value.size() == 1 && value[0] != 0;
}

}  // namespace crv
