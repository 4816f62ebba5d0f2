#include <DataType/DateTime.h>

#include <tuple>

namespace WDataType {
namespace {

constexpr long long SECONDS_A_DAY = 86400;
constexpr long long NANOSECONDS_A_SECOND = 1000000000;
constexpr long long DAYS_IN_400_YEARS = 146097;
/// From 1 March of the year 0 to 1 January 1970.
constexpr long long DAYS_TO_EPOCH = 719468;

constexpr long long FloorDivide(long long dividend, long long divisor) noexcept {
    return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
}

constexpr long long FloorRemainder(long long dividend, long long divisor) noexcept {
    return dividend - FloorDivide(dividend, divisor) * divisor;
}

// Years are counted from March, so that the leap day comes last and the months' lengths follow one formula.
constexpr long long DaysBeforeMonth(long long monthFromMarch) noexcept {
    return (153 * monthFromMarch + 2) / 5;
}

constexpr long long DaysBeforeYear(long long yearFromMarch) noexcept {
    return 365 * yearFromMarch + FloorDivide(yearFromMarch, 4) - FloorDivide(yearFromMarch, 100) +
           FloorDivide(yearFromMarch, 400);
}

struct Date {
    int year;
    int month;
    int day;
};

Date DateOf(long long daysSinceEpoch) noexcept {
    long long const days = daysSinceEpoch + DAYS_TO_EPOCH;
    // At most one year too late, since a year has at least 365.2425 days less one.
    long long year = FloorDivide(days * 400, DAYS_IN_400_YEARS) + 1;
    while (DaysBeforeYear(year) > days) {
        --year;
    }
    long long const dayOfYear = days - DaysBeforeYear(year);
    long long const month = (5 * dayOfYear + 2) / 153;
    bool const isAfterNewYear = month >= 10;
    return {
        static_cast<int>(year + (isAfterNewYear ? 1 : 0)), static_cast<int>(isAfterNewYear ? month - 9 : month + 3),
        static_cast<int>(dayOfYear - DaysBeforeMonth(month) + 1)};
}

} // namespace

TimeSpan::TimeSpan(int days, int hours, int minutes, int seconds, int milliseconds) noexcept
    : milliseconds_(
          (((static_cast<long long>(days) * 24 + hours) * 60 + minutes) * 60 + seconds) * 1000 + milliseconds) {}

DateTime::DateTime(
    int year, int month, int day, int hour, int minute, int second, int milliseconds, int microseconds,
    int nanoseconds) noexcept {
    long long const monthsFromMarch = static_cast<long long>(month) - 3;
    long long const yearFromMarch = year + FloorDivide(monthsFromMarch, 12);
    long long const days = DaysBeforeYear(yearFromMarch) + DaysBeforeMonth(FloorRemainder(monthsFromMarch, 12)) +
                           (static_cast<long long>(day) - 1) - DAYS_TO_EPOCH;
    seconds_ =
        days * SECONDS_A_DAY + static_cast<long long>(hour) * 3600 + static_cast<long long>(minute) * 60 + second;
    AddNanoseconds(milliseconds * 1000000LL + microseconds * 1000LL + nanoseconds);
}

DateTime DateTime::operator+(TimeSpan const& span) const noexcept {
    DateTime result = *this;
    result.seconds_ += FloorDivide(span.GetTotalMilliseconds(), 1000);
    result.AddNanoseconds(FloorRemainder(span.GetTotalMilliseconds(), 1000) * 1000000);
    return result;
}

void DateTime::AddNanoseconds(long long nanoseconds) noexcept {
    nanoseconds_ += nanoseconds;
    seconds_ += FloorDivide(nanoseconds_, NANOSECONDS_A_SECOND);
    nanoseconds_ = FloorRemainder(nanoseconds_, NANOSECONDS_A_SECOND);
}

int DateTime::GetYear() const noexcept {
    return DateOf(FloorDivide(seconds_, SECONDS_A_DAY)).year;
}

int DateTime::GetMonth() const noexcept {
    return DateOf(FloorDivide(seconds_, SECONDS_A_DAY)).month;
}

int DateTime::GetDay() const noexcept {
    return DateOf(FloorDivide(seconds_, SECONDS_A_DAY)).day;
}

int DateTime::GetHour() const noexcept {
    return static_cast<int>(FloorRemainder(seconds_, SECONDS_A_DAY) / 3600);
}

int DateTime::GetMinute() const noexcept {
    return static_cast<int>(FloorRemainder(seconds_, 3600) / 60);
}

int DateTime::GetSecond() const noexcept {
    return static_cast<int>(FloorRemainder(seconds_, 60));
}

int DateTime::GetMillisecond() const noexcept {
    return static_cast<int>(nanoseconds_ / 1000000);
}

bool DateTime::operator==(DateTime const& other) const noexcept {
    return seconds_ == other.seconds_ && nanoseconds_ == other.nanoseconds_;
}

bool DateTime::operator<(DateTime const& other) const noexcept {
    return std::tie(seconds_, nanoseconds_) < std::tie(other.seconds_, other.nanoseconds_);
}

} // namespace WDataType
