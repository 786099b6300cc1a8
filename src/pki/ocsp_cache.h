// OCSP answers that were accepted, kept for later: in the folder of the database, and in memory.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "misc/bytes.h"

namespace crv {

/// A file an answer, named by the SHA-256 of what it is about ("ocsp/<hexadecimal>"). Nothing here is believed: who
/// reads an answer verifies it again. A cache that cannot be read or written is an empty one.
class OcspCache {
  public:
    static constexpr size_t kMostFiles = 4096;
    static constexpr size_t kMaxAnswer = size_t{256} << 10;

    /// The folder of the database with its slash; empty: in memory only.
    void setFolder(const std::string& database);
    /// `certId` is the DER of a CertID. An answer of this run before one of a file.
    [[nodiscard]] std::optional<Bytes> find(ByteView certId) const;
    /// `onDisk`: whether it may outlive this run. Where there are too many files the oldest go.
    void store(ByteView certId, ByteView answer, bool onDisk);
    /// Forgets what is in memory.
    void forget() { fresh_.clear(); }
    /// Whether there may be any answer at all.
    [[nodiscard]] bool mayHold() const;

  private:
    void makeRoom() const;

    std::string folder_;
    std::map<std::string, Bytes> fresh_;
};

}  // namespace crv
