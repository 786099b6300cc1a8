// Messages that come as PEM (RFC 7468) or Base64, a piece at a time.
#pragma once

#include <string>

#include "misc/bytes.h"

namespace crv {

/// Turns pieces of a message into its octets, whatever it is written in: one that begins with a SEQUENCE is taken as it
/// is. Throws CrvApiException (ECRV_NO_CRV_MSG) for what can be neither.
class MessageArmour {
  public:
    /// The octets that the piece brings; refers to the piece, or to memory that lives until the next call.
    [[nodiscard]] ByteView take(ByteView piece);
    /// ECRV_INV_CRV_MSG for broken Base64, told behind the octets before it however the pieces are cut.
    void demandSound() const;
    /// Nothing follows.
    void finish() const;

  private:
    enum class Form { Unknown, Binary, Before, Base64, Behind };

    void takeLetter(uint8_t letter);
    void takeLine();

    Form form_ = Form::Unknown;
    bool pem_ = false;
    bool lineStart_ = true, inLine_ = false;
    std::string line_;  // of dashes, as far as it came
    uint32_t group_ = 0;
    int letters_ = 0, padding_ = 0;
    bool broken_ = false;
    Bytes out_;
};

}  // namespace crv
