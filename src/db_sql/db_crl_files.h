// The files of the CRL store and the tags that make a torn or foreign write detectable.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "db_sql/crl_index.h"
#include "misc/bytes.h"

namespace crv {

/// The tag of a file: its length (32 bits, big-endian) and its last four octets, with zeros after a shorter content.
Bytes makeDataForIntChk(ByteView content);

enum class Integrity {
    Sound = 0,   ///< the tag file matches the file
    Broken = 1,  ///< it does not, is not 8 octets long or the file cannot be opened
    NoTag = 2    ///< the tag cannot be read
};
[[nodiscard]] Integrity checkIntegrity(const std::string& file, const std::string& tag);

/// Writes and reads "crl_idx.asn" and the numbered CRL files of one directory. The caller holds the exclusive lock to
/// write, with its mark set, and the shared one to read.
///
/// The index and its tag stand in ".bak" files, too, which are made to agree before a change and again after it: only
/// the index knows which CRLs verified. What either says of a CRL counts when the file is still that CRL.
class CrlFileGuard {
  public:
    explicit CrlFileGuard(std::string directory) : directory_(std::move(directory)) {}

    /// Writes the empty index (30 00) with its tag.
    void create();

    /// Stores CRL number n (1 and up) with the index that names it. The file of number n - 1 and the index are checked
    /// against their tags first; damage is put right as far as it goes and the call fails with StoreError: "Naruszona
    /// integralność bazy CRL (plik CRL). Wykonano operację restore" or "... (plik indeksu CRL-i) ...".
    void write(long n, ByteView index, ByteView crl);
    /// Deletes CRL number n and stores the index without it.
    void erase(long n, ByteView index);

    [[nodiscard]] Bytes readIndex() const;
    [[nodiscard]] Bytes readCrl(long n) const;
    [[nodiscard]] Integrity checkIndex() const;
    [[nodiscard]] Integrity checkCrl(long n) const;
    /// Whether the index agrees with its tag and can be read.
    [[nodiscard]] bool isIndexSound() const;
    /// Puts a damaged index right and fails as write() does; n is the number for the log.
    void checkIndexOrRollback(long n);

    /// Makes index, tags and CRL files agree and adds a line to "crl_rollback_log.txt".
    void rollback(long n);

    /// Makes index, tags and CRL files agree: keeps every CRL that is what a row of the index, or else of its copy,
    /// says; takes up others that can be read, as not verified; deletes damaged ones. Says what it did, nothing for
    /// files that agree.
    std::vector<std::string> mend();

    /// Numbers of the CRL files, ascending.
    [[nodiscard]] std::vector<long> numbers() const;
    [[nodiscard]] std::string crlPath(long n) const;
    [[nodiscard]] std::string tagPath(long n) const;

  private:
    [[nodiscard]] std::string pathOf(std::string_view name) const { return directory_ + std::string(name); }
    void keepBackup();
    void storeIndex(ByteView index);
    void writeTag(long n, ByteView crl);
    [[nodiscard]] std::optional<CrlIndexEntry> settle(long n, std::initializer_list<const CrlIndex*> indexes,
                                                      std::vector<std::string>& notes);

    std::string directory_;
};

}  // namespace crv
