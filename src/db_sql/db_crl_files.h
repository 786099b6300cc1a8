// The files of the CRL store and the tags that make a torn or foreign write detectable.
#pragma once

#include <string>

#include "misc/bytes.h"

namespace crv {

/// The tag of a file: its length (32 bits, big-endian) and its last four octets, with zeros after a shorter content.
Bytes makeDataForIntChk(ByteView content);

/// 0 when the tag file matches the file; 1 when it does not, is not 8 octets long or the file cannot be opened; 2 when
/// the tag cannot be read.
int checkIntegrity(const std::string& file, const std::string& tag);

/// Writes and reads "crl_idx.asn" and the numbered CRL files of one directory. What the index holds is the caller's
/// business. The caller holds the exclusive lock to write, the shared one to read.
///
/// Before a change the index and its tag are copied to ".bak" files. They stay until the next change, so a rollback
/// leads back to the index before the last change, also when its CRL file turns out damaged later.
class CrlFileGuard {
  public:
    explicit CrlFileGuard(std::string directory) : directory_(std::move(directory)) {}

    /// Writes the empty index (30 00) with its tag.
    void create();

    /// Stores CRL number n (1 and up) with the index that names it. The file of number n - 1 and the index are checked
    /// against their tags first; a damaged one is rolled back and the call fails with StoreError: "Naruszona
    /// integralność bazy CRL (plik CRL). Wykonano operację restore" or "... (plik indeksu CRL-i) ...".
    void write(long n, ByteView index, ByteView crl);
    /// Replaces the index alone, after the same check of the index.
    void writeIndex(ByteView index);

    /// Makes the tag of a CRL anew.
    void writeTag(long n, ByteView crl);

    [[nodiscard]] Bytes readIndex() const;
    [[nodiscard]] Bytes readCrl(long n) const;
    /// Answers of checkIntegrity for the index and for the CRL of that number.
    [[nodiscard]] int checkIndex() const;
    [[nodiscard]] int checkCrl(long n) const;

    /// Puts the ".bak" copy of the index back, when there is a sound one, and adds a line to "crl_rollback_log.txt".
    void rollback(long n);

    [[nodiscard]] std::string crlPath(long n) const;
    [[nodiscard]] std::string tagPath(long n) const;

  private:
    [[nodiscard]] std::string pathOf(std::string_view name) const { return directory_ + std::string(name); }
    void checkIndexOrRollback(long n);
    void keepBackup();
    [[nodiscard]] bool restoreBackup();
    void storeIndex(ByteView index);

    std::string directory_;
};

}  // namespace crv
