// UTCTime and GeneralizedTime (X.680 46, 47).
#pragma once

#include <cstdint>
#include <optional>

#include "asn/asn_primitives.h"

namespace crv {

/// A point in time as text: what both time types share. Kept as read; `seconds` understands the forms of BER, too
/// (without seconds, with a fraction, with an offset from UTC). Seconds are counted from 1970-01-01 00:00:00 UTC.
class ASNtimeString : public ASNoctstr {
  public:
    /// Nothing when the text is no point in time.
    [[nodiscard]] std::optional<int64_t> seconds() const;

  protected:
    ASNtimeString(unsigned char tag, int yearDigits) : ASNoctstr(tag), yearDigits_(yearDigits) { setFlag(kSegments); }

    int yearDigits_;
};

/// UTCTime: years 1950 to 2049 (RFC 5280 4.1.2.5.1), written as YYMMDDHHMMSSZ.
class ASNutcTime : public ASNtimeString {
  public:
    static constexpr unsigned char kTag = 23;
    ASNutcTime() : ASNtimeString(kTag, 2) {}
    /// False when the year is outside.
    [[nodiscard]] bool setSeconds(int64_t seconds);
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }
};

/// GeneralizedTime: years 0 to 9999, written as YYYYMMDDHHMMSSZ.
class ASNgenTime : public ASNtimeString {
  public:
    static constexpr unsigned char kTag = 24;
    ASNgenTime() : ASNtimeString(kTag, 4) {}
    [[nodiscard]] bool setSeconds(int64_t seconds);
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }
};

/// A point in time in the proleptic Gregorian calendar, UTC.
struct CivilTime {
    int64_t year;
    int month, day, hour, minute, second;
};
[[nodiscard]] CivilTime toCivil(int64_t seconds);
/// Nothing when a field is outside its range (second 60 counts as the next minute's first).
[[nodiscard]] std::optional<int64_t> fromCivil(const CivilTime& time);
/// "YYYY-MM-DD HH:MM:SS" in UTC.
[[nodiscard]] std::string timeText(int64_t seconds);

}  // namespace crv
