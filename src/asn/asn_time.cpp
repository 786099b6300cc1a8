#include "asn/asn_time.h"

#include <chrono>
#include <cstdio>

namespace crv {

namespace {

constexpr int64_t kDay = 86400;

/// Takes decimal digits off the front of a time text.
class Digits {
  public:
    explicit Digits(std::string_view text) : rest_(text) {}

    /// `count` digits into `value`; false when they are not there.
    bool take(int count, int& value) {
        value = 0;
        if (rest_.size() < static_cast<size_t>(count)) return false;
        for (int i = 0; i < count; ++i) {
            const char c = rest_[static_cast<size_t>(i)];
            if (c < '0' || c > '9') return false;
            value = value * 10 + (c - '0');
        }
        rest_.remove_prefix(static_cast<size_t>(count));
        return true;
    }
    bool takeChar(std::string_view any) {
        if (rest_.empty() || any.find(rest_.front()) == std::string_view::npos) return false;
        rest_.remove_prefix(1);
        return true;
    }
    [[nodiscard]] bool startsWithDigit() const { return !rest_.empty() && rest_[0] >= '0' && rest_[0] <= '9'; }
    [[nodiscard]] bool atEnd() const { return rest_.empty(); }
    [[nodiscard]] char front() const { return rest_.empty() ? '\0' : rest_.front(); }

  private:
    std::string_view rest_;
};

/// "Z", "+hhmm", "-hhmm" or, for a local time whose offset nobody knows, nothing: seconds east of UTC.
std::optional<int64_t> takeZone(Digits& digits) {
    if (digits.atEnd()) return 0;
    if (digits.takeChar("Z")) return digits.atEnd() ? std::optional<int64_t>(0) : std::nullopt;
    const int sign = digits.front() == '-' ? -1 : 1;
    int hours = 0;
    int minutes = 0;
    if (!digits.takeChar("+-") || !digits.take(2, hours) || !digits.take(2, minutes) || !digits.atEnd())
        return std::nullopt;
    if (hours > 23 || minutes > 59) return std::nullopt;
    return sign * (hours * 3600 + minutes * 60);
}

/// A fraction of the last field given, which takes `unit` seconds (X.680 46.2): whole seconds, 0 when there is none.
std::optional<int64_t> takeFraction(Digits& digits, int64_t unit) {
    constexpr int64_t kFinest = 1'000'000'000;
    if (!digits.takeChar(".,")) return 0;
    if (!digits.startsWithDigit()) return std::nullopt;
    int64_t parts = 0;
    int64_t whole = 1;
    for (int digit = 0; digits.take(1, digit);) {
        if (whole == kFinest) continue;
        parts = parts * 10 + digit;
        whole *= 10;
    }
    return parts * unit / whole;
}

}  // namespace

CivilTime toCivil(int64_t seconds) {
    const int64_t days = seconds / kDay - (seconds % kDay < 0 ? 1 : 0);
    const auto inDay = static_cast<int>(seconds - days * kDay);
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(days))};
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            inDay / 3600,
            inDay / 60 % 60,
            inDay % 60};
}

std::optional<int64_t> fromCivil(const CivilTime& time) {
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(time.year)),
                                           std::chrono::month(static_cast<unsigned>(time.month)),
                                           std::chrono::day(static_cast<unsigned>(time.day))};
    if (!date.ok() || time.hour > 23 || time.minute > 59 || time.second > 60) return std::nullopt;
    const int64_t days = std::chrono::sys_days{date}.time_since_epoch().count();
    return days * kDay + time.hour * 3600 + time.minute * 60 + time.second;
}

std::string timeText(int64_t seconds) {
    const CivilTime t = toCivil(seconds);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", static_cast<int>(t.year), t.month, t.day, t.hour,
                  t.minute, t.second);
    return text;
}

std::optional<int64_t> ASNtimeString::seconds() const {
    Digits digits(text());
    int year = 0;
    CivilTime t{};
    if (!digits.take(yearDigits_, year) || !digits.take(2, t.month) || !digits.take(2, t.day) ||
        !digits.take(2, t.hour))
        return std::nullopt;
    t.year = yearDigits_ == 4 ? year : year + (year < 50 ? 2000 : 1900);
    int64_t unit = 3600;
    for (int* field : {&t.minute, &t.second}) {
        if (!digits.startsWithDigit()) break;
        if (!digits.take(2, *field)) return std::nullopt;
        unit /= 60;
    }
    // A UTCTime has minutes at least and no fraction (X.680 47.3).
    if (yearDigits_ == 2 && unit == 3600) return std::nullopt;
    const auto fraction = yearDigits_ == 2 ? std::optional<int64_t>(0) : takeFraction(digits, unit);
    const auto zone = takeZone(digits);
    const auto local = fromCivil(t);
    if (!fraction || !zone || !local) return std::nullopt;
    return *local + *fraction - *zone;
}

bool ASNutcTime::setSeconds(int64_t seconds) {
    const CivilTime t = toCivil(seconds);
    if (t.year < 1950 || t.year > 2049) return false;
    char text[64];
    std::snprintf(text, sizeof text, "%02d%02d%02d%02d%02d%02dZ", static_cast<int>(t.year % 100), t.month, t.day,
                  t.hour, t.minute, t.second);
    build(std::string_view(text));
    return true;
}

bool ASNgenTime::setSeconds(int64_t seconds) {
    const CivilTime t = toCivil(seconds);
    if (t.year < 0 || t.year > 9999) return false;
    char text[64];
    std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02dZ", static_cast<int>(t.year), t.month, t.day, t.hour,
                  t.minute, t.second);
    build(std::string_view(text));
    return true;
}

}  // namespace crv
