// Certificates and CRLs out of files in any usual form.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "misc/bytes.h"
#include "misc/file_ops.h"

namespace crv {

/// Hands out the certificates of a file one after another: one or more in DER one behind another, PEM blocks
/// (CERTIFICATE and its older labels, PKCS7, CMS) with any text between them, a PKCS#7 bundle in DER, or Base64 without
/// lines around it. Elements are told apart by their lengths; whether one is a certificate shows when it is parsed.
class CertFileReader {
  public:
    /// Throws StoreError with readFile's texts. Of a file of certificates in DER only a piece is kept in memory at a
    /// time, so next() may throw as this does.
    static CertFileReader open(const std::string& path);
    explicit CertFileReader(Bytes content);

    /// The octets of the next certificate, valid until the next call; false at the end and at what cannot be one.
    /// Throws StoreError when the file cannot be read any further, or its next element is longer than a file may be.
    [[nodiscard]] bool next(ByteView& der);
    /// Whether next() stopped before the end.
    [[nodiscard]] bool stoppedEarly() const { return stoppedEarly_; }

  private:
    CertFileReader() = default;
    void addElements(ByteView octets);
    void readOn();
    void addBlocks(std::string_view text);
    void addBlock(const std::string& label, Bytes octets);
    [[nodiscard]] bool addBundle(ByteView octets);

    FileDescriptor file_;  // with more behind the content
    Bytes content_;
    ByteView rest_;               // of the content, behind the elements
    std::vector<Bytes> decoded_;  // what the elements refer to besides the content
    std::vector<ByteView> elements_;
    size_t at_ = 0;
    bool stoppedEarly_ = false;
    bool ended_ = false;  // no element may follow any more
    bool cut_ = false;    // octets behind the last element that are none
};

/// The DER octets of the CRL in a file's content: DER, PEM (X509 CRL) or Base64; nothing when there is none.
[[nodiscard]] std::optional<Bytes> crlFromFile(Bytes content);

}  // namespace crv
