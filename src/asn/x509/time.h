// Time (RFC 5280 4.1.2.5).
#pragma once

#include "asn/asn_choice.h"
#include "asn/asn_sequence.h"
#include "asn/asn_time.h"

namespace crv {

/// UTCTime or GeneralizedTime.
class Time : public ASNchoiceOf<ASNutcTime, ASNgenTime> {
  public:
    Time() = default;
    explicit Time(int64_t seconds) { setSeconds(seconds); }

    /// Seconds since 1970 UTC; nothing when the text is no point in time.
    [[nodiscard]] std::optional<int64_t> seconds() const;
    /// UTCTime for the years 1950 to 2049, else GeneralizedTime; years outside 0 to 9999 become the nearest in it.
    void setSeconds(int64_t seconds);
};

/// Validity: first and last second of a certificate.
class Validity : public ASNsequenceF {
  public:
    Time notBefore;
    Time notAfter;

    /// Whether the moment lies within, both ends included; false when an end is no point in time.
    [[nodiscard]] bool includes(int64_t seconds) const;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

}  // namespace crv
