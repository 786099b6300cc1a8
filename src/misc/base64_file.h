// Base64 (RFC 4648) and PEM (RFC 7468): as streams over another stream and as texts in memory.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "misc/generic_file.h"
#include "misc/secret.h"

namespace crv {

/// Whether the text is plain Base64 or stands between "-----BEGIN x-----" and "-----END x-----" lines.
enum class Base64Armour { None, Pem };

/// Reads the octets that another stream holds in Base64. White space between the letters is skipped; any other
/// character, wrong padding or an END line with another label is a failure of the stream. Of a PEM text it takes the
/// source up to and with the END line, so the next block can be read from the same source by another object.
class Base64Reader final : public BufferedFile {
  public:
    explicit Base64Reader(GenericFile& source, Base64Armour armour = Base64Armour::None)
        : source_(source), armour_(armour) {}

    /// Skips text up to the next BEGIN line and takes that. False when there is none. Called by the first reading when
    /// the caller did not.
    [[nodiscard]] bool findBlock();
    /// Label of the BEGIN line, such as "CERTIFICATE".
    [[nodiscard]] const std::string& label() const { return label_; }

  private:
    enum class Letter { Value, Padding, End, Wrong };

    [[nodiscard]] long readSome(uint8_t* out, size_t count) override;
    [[nodiscard]] Letter nextLetter(uint8_t& value);
    [[nodiscard]] int decodeGroup(std::array<uint8_t, 3>& out);
    [[nodiscard]] bool takeEndLine();
    [[nodiscard]] bool readLine(std::string& line);

    GenericFile& source_;
    Base64Armour armour_;
    std::string label_;
    bool begun_ = false;
    bool ended_ = false;
};

/// Writes octets as Base64 in lines of 64 letters onto another stream; with a label as a PEM block. `finish` writes the
/// rest and the END line and must be called once at the end.
class Base64Writer final : public GenericFile {
  public:
    explicit Base64Writer(GenericFile& target, std::string label = {}) : target_(target), label_(std::move(label)) {}

    [[nodiscard]] bool write(ByteView octets) override;
    [[nodiscard]] bool finish();

  private:
    [[nodiscard]] bool begin();

    GenericFile& target_;
    std::string label_;
    Bytes line_;
    bool begun_ = false;
};

/// Base64 of the octets without line ends.
[[nodiscard]] std::string toBase64(ByteView octets);
/// Octets of a Base64 text (white space allowed); nothing when it is malformed.
[[nodiscard]] std::optional<Bytes> fromBase64(std::string_view text);
/// One PEM block with the label.
[[nodiscard]] std::string toPem(std::string_view label, ByteView octets);
/// Octets of the first PEM block, maybe a private key; nothing when there is none or it is malformed. The label is
/// handed out when asked for.
[[nodiscard]] std::optional<SecretBytes> fromPem(std::string_view text, std::string* label = nullptr);

}  // namespace crv
