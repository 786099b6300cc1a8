// A table in a folder of its own for the fuzz targets, and a use of all that a table can do.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "db/database.h"
#include "db/table_check.h"
#include "misc/file_ops.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace crv::fuzz {

/// For LLVMFuzzerCustomMutator, files of numbers of eight octets: one number becomes another one of the file or its
/// neighbour, or a run of octets (a page, a record) is put over or between others. One in four mutations is of octets.
inline size_t mutateTable(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    constexpr size_t kNumber = 8;
    std::mt19937 random(seed);
    if (random() % 4 == 0 || size < 2 * kNumber) return LLVMFuzzerMutate(data, size, maxSize);
    const auto anyNumber = [&] { return random() % (size / kNumber) * kNumber; };
    const size_t to = anyNumber(), from = anyNumber();
    const size_t length = std::min({size - to, size - from, (random() % 64 + 1) * kNumber});
    switch (random() % 4) {
        case 0:
            std::memmove(data + to, data + from, kNumber);
            break;
        case 1:
            data[to] = static_cast<uint8_t>(data[to] + (random() % 2 == 0 ? 1 : -1));
            break;
        case 2:
            std::memmove(data + to, data + from, length);
            break;
        default:
            if (size + length > maxSize) break;
            std::memmove(data + to + length, data + to, size - to);
            std::memmove(data + to, data + (from < to ? from : from + length), length);
            return size + length;
    }
    return size;
}

/// Nothing is waited for: the files are gone after each input.
class UnsyncedOps : public FileOps {
  public:
    int fsync(int) override { return 0; }
};

class TableFiles {
  public:
    TableFiles() : use_(ops_) {
        const std::filesystem::path memory("/dev/shm");
        std::string pattern =
            ((std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path()) / "crvfuzz.XXXXXX")
                .string();
        if (!mkdtemp(pattern.data())) std::abort();
        folder_ = pattern;
        DataBase table;
        const IndexDesc descs[] = {{17, 32 + 4 * 33}, {5, 32 + 4 * 21}};
        if (table.create(name(), 2, descs) != kDbOk || table.open(name()) != kDbOk) std::abort();
        for (int i = 0; i < 30; ++i) {
            const std::string first = std::to_string(i * 7 % 30), second = std::to_string(i % 3);
            const std::string_view keys[] = {first, second};
            int64_t recNo = 0;
            if (table.insert(keys, asBytes("body"), recNo) != kDbOk) std::abort();
        }
        table.close();
        std::filesystem::copy_file(name() + kDataExtension, folder_ + "/good");
    }
    ~TableFiles() { std::filesystem::remove_all(folder_); }
    TableFiles(const TableFiles&) = delete;
    TableFiles& operator=(const TableFiles&) = delete;

    [[nodiscard]] std::string name() const { return folder_ + "/t"; }
    void restoreData() const {
        std::filesystem::copy_file(folder_ + "/good", name() + kDataExtension,
                                   std::filesystem::copy_options::overwrite_existing);
    }
    void put(const char* extension, ByteView octets) const {
        File file;
        if (!file.create(name() + extension) || !file.writeAt(0, octets)) std::abort();
    }

  private:
    UnsyncedOps ops_;
    ScopedFileOps use_;
    std::string folder_;
};

inline void exercise(const std::string& name) {
    (void)checkTable(name);
    DataBase table;
    if (table.open(name) != kDbOk) return;
    TableRecord record;
    for (int i = 0; i < table.indexFile().numIndexes(); ++i) {
        table.selectIndex(i);
        for (const int direction : {1, -1}) {
            int answer = direction > 0 ? table.top() : table.bottom();
            for (int steps = 0; answer == kDbOk && steps < 100; ++steps) {
                (void)table.data(record);
                answer = table.skip(direction);
            }
        }
        (void)table.seek("11");
        (void)table.skip(3);
        (void)table.setRec(56);
    }
    const std::vector<std::string_view> keys(static_cast<size_t>(table.indexFile().numIndexes()), "12");
    int64_t recNo = 0;
    for (int i = 0; i < 6; ++i) (void)table.insert(keys, asBytes("new"), recNo);
    (void)table.update(asBytes("u"));
    (void)table.remove();
    table.close();
}

}  // namespace crv::fuzz

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    return crv::fuzz::mutateTable(data, size, maxSize, seed);
}
