#include "db/data_scan.h"

#include <algorithm>

namespace crv {

using namespace data_format;

namespace {

constexpr int64_t kPieceSize = 128 * 1024;

}  // namespace

DataScan::DataScan(DataFile& file, int64_t from) : file_(&file), following_(from) {}

/// Octets of the file in memory; null when they cannot be read.
const uint8_t* DataScan::need(int64_t position, int64_t size) {
    if (position < start_ || position + size > start_ + have_) {
        const int64_t piece = std::min(std::max(kPieceSize, size), file_->length() - position);
        buffer_.resize(std::max(buffer_.size(), static_cast<size_t>(piece)));
        have_ = 0;
        if (!file_->readAt(position, buffer_.data(), static_cast<size_t>(piece))) return nullptr;
        start_ = position;
        have_ = piece;
    }
    return buffer_.data() + (position - start_);
}

DataScan::Result DataScan::next() {
    if (following_ >= file_->length()) return Result::End;
    recNo_ = following_;
    if (file_->length() - recNo_ < static_cast<int64_t>(kRecordHead)) return Result::Damaged;
    const uint8_t* head = need(recNo_, kRecordHead);
    if (!head) return Result::Unreadable;
    if (!file_->decodeHead(head, recNo_, head_)) return Result::Damaged;
    record_ = need(recNo_, file_->recordSize(head_.length));
    if (!record_) return Result::Unreadable;
    following_ = recNo_ + file_->recordSize(head_.capacity);
    return Result::Record;
}

std::string_view DataScan::key(int index) const {
    const char* from = reinterpret_cast<const char*>(record_) + kRecordHead;
    for (int i = 0; i < index; ++i) from += file_->descs()[i].keyLen;
    return keyText({from, static_cast<size_t>(file_->descs()[index].keyLen)});
}

ByteView DataScan::body() const {
    return {record_ + file_->recordSize(0), static_cast<size_t>(head_.length)};
}

void DataScan::keys(std::vector<std::string_view>& all) const {
    all.clear();
    const char* from = reinterpret_cast<const char*>(record_) + kRecordHead;
    for (int i = 0; i < file_->numIndexes(); from += file_->descs()[i++].keyLen) {
        all.push_back(keyText({from, static_cast<size_t>(file_->descs()[i].keyLen)}));
    }
}

}  // namespace crv
