#include "messages/armour.h"

#include <string_view>

#include "corvane/crverrors.h"
#include "misc/ascii.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr uint8_t kSequenceTag = 0x30;
constexpr size_t kLongestLine = 1024;
constexpr std::string_view kBegin = "-----BEGIN ", kEnd = "-----END ";

[[noreturn]] void failArmour() {
    throw CrvApiException(ECRV_INV_CRV_MSG, "the message is no Base64");
}

bool isSpace(uint8_t letter) {
    return letter == ' ' || letter == '\t' || letter == '\r' || letter == '\n';
}

int valueOf(uint8_t letter) {
    if (letter >= 'A' && letter <= 'Z') return letter - 'A';
    if (letter >= 'a' && letter <= 'z') return letter - 'a' + 26;
    if (letter >= '0' && letter <= '9') return letter - '0' + 52;
    if (letter == '+') return 62;
    return letter == '/' ? 63 : -1;
}

}  // namespace

ByteView MessageArmour::take(ByteView piece) {
    if (form_ == Form::Unknown && !piece.empty()) {
        if (piece[0] == kSequenceTag) {
            form_ = Form::Binary;
        } else {
            form_ = piece[0] == 'M' ? Form::Base64 : Form::Before;
            pem_ = form_ == Form::Before;
        }
    }
    if (form_ == Form::Binary) return piece;
    out_.clear();
    for (const uint8_t letter : piece) {
        if (broken_) break;
        if (letter == '\n') {
            takeLine();
        } else if (inLine_ || (lineStart_ && pem_ && letter == '-') || form_ == Form::Before) {
            inLine_ = true;
            if (line_.size() < kLongestLine) line_ += static_cast<char>(letter);
        } else if (form_ == Form::Base64 && !isSpace(letter)) {
            takeLetter(letter);
        }
        lineStart_ = letter == '\n';
    }
    return out_;
}

/// A line that is no Base64 has ended.
void MessageArmour::takeLine() {
    const std::string_view line = line_;
    if (form_ == Form::Before && line.starts_with(kBegin)) {
        form_ = Form::Base64;
    } else if (form_ == Form::Base64 && inLine_) {
        broken_ = !line.starts_with(kEnd);
        form_ = Form::Behind;
    }
    line_.clear();
    inLine_ = false;
}

void MessageArmour::takeLetter(uint8_t letter) {
    const int value = valueOf(letter);
    broken_ = letter == '=' ? letters_ < 2 : value < 0 || padding_ > 0;
    if (broken_) return;
    if (letter == '=') ++padding_;
    group_ = group_ << 6 | static_cast<uint32_t>(letter == '=' ? 0 : value);
    if (++letters_ < 4) return;
    for (int i = 0; i < 3 - padding_; ++i) out_.push_back(static_cast<uint8_t>(group_ >> (16 - 8 * i)));
    letters_ = padding_ == 0 ? 0 : 4;  // nothing but white space follows a padding
    group_ = 0;
}

void MessageArmour::demandSound() const {
    if (broken_) failArmour();
}

void MessageArmour::finish() const {
    if (form_ == Form::Unknown || form_ == Form::Before)
        throw CrvApiException(ECRV_NO_CRV_MSG, "there is no CMS message in it, in DER, BER, PEM or Base64");
    const bool ended = form_ == Form::Behind || line_.starts_with(kEnd);
    if (form_ != Form::Binary && ((letters_ != 0 && padding_ == 0) || (pem_ && !ended))) failArmour();
}

}  // namespace crv
