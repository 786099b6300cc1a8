#include "pki/cert_file_reader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "asn/known_oids.h"
#include "asn/pkcs/signed_data.h"
#include "asn/tlv_view.h"
#include "misc/base64_file.h"
#include "misc/exceptions.h"
#include "misc/memory_file.h"
#include "misc/whole_file.h"

namespace crv {

namespace {

constexpr uint8_t kSequenceTag = 0x30;
/// Octets of a file that are read at a time.
constexpr size_t kPiece = size_t{1} << 20;

constexpr std::array kCertificateLabels{"CERTIFICATE", "X509 CERTIFICATE", "TRUSTED CERTIFICATE"};
constexpr std::array kBundleLabels{"PKCS7", "PKCS #7 SIGNED DATA", "CMS"};
constexpr std::array kCrlLabels{"X509 CRL", "CRL"};

template <class Labels>
bool isOneOf(const std::string& label, const Labels& labels) {
    return std::ranges::find(labels, label) != labels.end();
}

bool isSpace(uint8_t octet) {
    return octet == ' ' || octet == '\t' || octet == '\r' || octet == '\n' || octet == 0;
}

/// Octets of the SEQUENCE at the front; 0 when there is none that ends within the octets.
size_t sequenceSize(ByteView octets) {
    MemoryFile in(octets);
    if (octets.empty() || octets[0] != kSequenceTag) return 0;
    in.consume(1);
    long length = 0;
    const int head = read_length(in, length);
    if (head <= 0 || length < 0 || length > static_cast<long>(octets.size()) - 1 - head) return 0;
    return static_cast<size_t>(1 + head + length);
}

/// Whether PEM blocks are to be looked for: text may begin like a SEQUENCE ("01 Root CA"), but hardly holds elements.
bool isPemText(ByteView octets) {
    return asText(octets).find("-----BEGIN ") != std::string_view::npos && !beginsWithSequence(octets);
}

/// As an element does that is no bundle, whose contents begin with an identifier.
bool beginsLikeCertificate(ByteView octets) {
    const size_t size = sequenceSize(octets);
    if (size == 0 || !beginsWithSequence(octets.first(size))) return false;
    const auto whole = takeTlv(octets);
    return whole && !whole->body.empty() && whole->body[0] == kSequenceTag;
}

/// Calls `take` with label and octets of each PEM block until it answers false. False when a block is malformed.
template <class Take>
bool eachBlock(std::string_view text, Take take) {
    MemoryFile file(asBytes(text));
    for (;;) {
        Base64Reader block(file, Base64Armour::Pem);
        if (!block.findBlock()) return true;
        SecretBytes octets;
        if (!readAll(block, octets)) return false;
        if (!take(block.label(), ByteView(octets))) return true;
    }
}

}  // namespace

CertFileReader CertFileReader::open(const std::string& path) {
    FileDescriptor file(fileOps().open(path, O_RDONLY | O_CLOEXEC));
    if (!file.valid()) throw StoreError(StoreCause::NotOpened, "readFile(): Blad otwarcia bliku: " + path);
    Bytes first(kPiece);
    const ssize_t count = readUpTo(file.get(), first.data(), first.size(), -1);
    if (count < 0) throw StoreError(StoreCause::Failed, "readFile: blad odczytu pliku");
    first.resize(static_cast<size_t>(count));
    if (first.size() < kPiece || !beginsLikeCertificate(first)) {
        return CertFileReader(readRest(file.get(), std::move(first)));
    }
    CertFileReader reader;
    reader.file_ = std::move(file);
    reader.content_ = std::move(first);
    reader.addElements(reader.content_);
    return reader;
}

void CertFileReader::readOn() {
    Bytes piece(rest_.begin(), rest_.end());
    const size_t begun = piece.size();
    piece.resize(begun + std::max(kPiece, begun));  // more each time for an element that ends in no piece
    const bool fits = piece.size() <= kMaxWholeFile;
    const ssize_t count = fits ? readUpTo(file_.get(), piece.data() + begun, piece.size() - begun, -1) : -1;
    if (count < 0) throw StoreError(StoreCause::Failed, "readFile: blad odczytu pliku");
    if (count == 0) return file_.reset();
    piece.resize(begun + static_cast<size_t>(count));
    content_ = std::move(piece);
    elements_.clear();
    at_ = 0;
    addElements(content_);
}

CertFileReader::CertFileReader(Bytes content) : content_(std::move(content)) {
    const auto first = std::ranges::find_if_not(content_, isSpace);
    const ByteView octets(first, content_.end());
    if (octets.empty()) return;
    if (isPemText(octets)) {
        addBlocks(asText(octets));
    } else if (octets[0] == kSequenceTag && sequenceSize(octets) != 0) {
        if (!addBundle(octets)) addElements(octets);
    } else if (std::optional<Bytes> decoded = fromBase64(asText(octets))) {
        const ByteView kept = decoded_.emplace_back(std::move(*decoded));
        if (!addBundle(kept)) addElements(kept);
    } else if (octets[0] == kSequenceTag && addBundle(octets)) {  // of indefinite length
    } else {
        cut_ = true;
    }
}

void CertFileReader::addElements(ByteView octets) {
    for (size_t size; !ended_ && (size = sequenceSize(octets)) != 0; octets = octets.subspan(size)) {
        elements_.push_back(octets.first(size));
    }
    // Nothing but spaces may follow now; what begins an element that does not end may go on in the next piece.
    ended_ = ended_ || (!octets.empty() && octets[0] != kSequenceTag);
    if (ended_) {
        cut_ = cut_ || !std::ranges::all_of(octets, isSpace);
        octets = {};
    }
    rest_ = octets;
}

bool CertFileReader::addBundle(ByteView octets) {
    ContentInfo content;
    SignedData bundle;
    if (content.readFromBuff(octets, ASN_FLAG_CONST) <= 0 || !content.get(OID_PKCS7_SIGNED_DATA, bundle)) return false;
    for (const SignedCertificate& certificate : bundle.certificateList()) {
        elements_.emplace_back(decoded_.emplace_back(certificate.encoded()));
    }
    return true;
}

void CertFileReader::addBlock(const std::string& label, Bytes octets) {
    const ByteView kept = decoded_.emplace_back(std::move(octets));
    if (isOneOf(label, kBundleLabels)) {
        cut_ = !addBundle(kept);
    } else if (isOneOf(label, kCertificateLabels)) {
        // A trusted certificate carries more behind itself.
        const size_t size = sequenceSize(kept);
        cut_ = size == 0;
        if (!cut_) elements_.push_back(kept.first(size));
    }
}

void CertFileReader::addBlocks(std::string_view text) {
    const bool whole = eachBlock(text, [this](const std::string& label, ByteView octets) {
        addBlock(label, toBytes(octets));
        return !cut_;
    });
    cut_ = cut_ || !whole;
}

bool CertFileReader::next(ByteView& der) {
    while (at_ == elements_.size() && file_.valid()) readOn();
    if (at_ == elements_.size()) {
        stoppedEarly_ = cut_ || !rest_.empty();
        return false;
    }
    der = elements_[at_++];
    return true;
}

std::optional<Bytes> crlFromFile(Bytes content) {
    if (!content.empty() && content[0] == kSequenceTag && !isPemText(content)) {
        while (content.size() > sequenceSize(content) && isSpace(content.back())) content.pop_back();
        return content;
    }
    if (!isPemText(content)) return fromBase64(asText(content));
    std::optional<Bytes> found;
    static_cast<void>(eachBlock(asText(content), [&](const std::string& label, ByteView octets) {
        if (isOneOf(label, kCrlLabels)) found = toBytes(octets);
        return !found;
    }));
    return found;
}

}  // namespace crv
