// A walk through a data file from its first record to its last, in large reads.
#pragma once

#include <string_view>

#include "db/datafile.h"

namespace crv {

/// Shows every record, deleted ones too, without copying it: the views are good until the next step. The file stays
/// open and unchanged meanwhile.
class DataScan {
  public:
    enum class Result { Record, End, Damaged, Unreadable };

    /// Begins with the record at that position.
    explicit DataScan(DataFile& file, int64_t from = data_format::kHeadSize);

    /// Goes on to the next record. damaged: at recNo() there is no record, or it does not end within the file;
    /// unreadable: the file cannot be read.
    [[nodiscard]] Result next();

    [[nodiscard]] int64_t recNo() const { return recNo_; }
    [[nodiscard]] bool deleted() const { return head_.deleted; }
    [[nodiscard]] const RecordHead& head() const { return head_; }
    [[nodiscard]] std::string_view key(int index) const;
    [[nodiscard]] ByteView body() const;
    /// All keys of the record.
    void keys(std::vector<std::string_view>& all) const;

  private:
    const uint8_t* need(int64_t position, int64_t size);

    DataFile* file_;
    Bytes buffer_;
    int64_t start_ = 0;  // position of the buffer in the file
    int64_t have_ = 0;   // octets in it
    int64_t recNo_ = 0;
    int64_t following_;
    RecordHead head_;
    const uint8_t* record_ = nullptr;
};

}  // namespace crv
