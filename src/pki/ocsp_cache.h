// OCSP answers that were accepted, kept for later: in the folder of the database, and in memory.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "misc/bytes.h"

namespace crv {

/// A file an answer, named by the SHA-256 of what it is about ("ocsp/<hexadecimal>"). Nothing here is believed: who
/// reads an answer verifies it again. A cache that cannot be read or written is an empty one.
class OcspCache {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t kMostFiles = 4096;
    static constexpr std::chrono::seconds kMoment{300};
    static constexpr size_t kMaxAnswer = size_t{256} << 10;

    /// The folder of the database with its slash; empty: in memory only.
    void setFolder(const std::string& database);
    /// `certId` is the DER of a CertID. What was kept for the moment comes before a file.
    [[nodiscard]] std::optional<Bytes> find(ByteView certId) const;
    /// `keeps`: whether it says until when it holds; one that does not counts for what is done at the moment, and is
    /// forgotten after kMoment. What was kept before goes in either case. Where there are too many the oldest go, in
    /// memory those that were to be held for the moment first.
    void store(ByteView certId, ByteView answer, bool keeps);
    void remove(ByteView certId);
    /// Forgets what is in memory.
    void forget() { held_.clear(); }
    /// Whether there may be any answer at all.
    [[nodiscard]] bool mayHold() const;

  private:
    struct Held {
        Bytes answer;
        Clock::time_point until;
    };
    [[nodiscard]] bool write(const std::string& name, ByteView answer) const;
    [[nodiscard]] bool makeFolder() const;
    void makeRoom() const;

    void makeRoomInMemory();

    std::string folder_;
    std::map<std::string, Held> held_;
};

}  // namespace crv
