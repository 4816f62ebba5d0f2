#ifndef WFILESYSTEM_DATATYPE_DATETIME_H
#define WFILESYSTEM_DATATYPE_DATETIME_H

/// \file
/// \brief A calendar time and a duration.

#include <Defines/Export.h>

namespace WDataType {

/// A duration, to the millisecond.
class WFILESYSTEM_EXPORT TimeSpan {
public:
    /// The sum of the five fields, each of which may be negative or beyond its usual range.
    TimeSpan(int days, int hours, int minutes, int seconds, int milliseconds) noexcept;

    /// The whole duration in milliseconds.
    long long GetTotalMilliseconds() const noexcept { return milliseconds_; }

private:
    long long milliseconds_;
};

/// A time of the Gregorian calendar, extended to all years, without a time zone and without leap seconds.
class WFILESYSTEM_EXPORT DateTime {
public:
    /// 1 January 1970, 00:00:00.
    DateTime() noexcept = default;

    /// A month counts from 1, and so does a day. A field beyond its range carries over into the next greater one.
    DateTime(
        int year, int month, int day, int hour, int minute, int second, int milliseconds, int microseconds,
        int nanoseconds) noexcept;

    /// The time so much later, or earlier where the span is negative.
    DateTime operator+(TimeSpan const& span) const noexcept;

    int GetYear() const noexcept;        ///< any, also 0 and below
    int GetMonth() const noexcept;       ///< 1 to 12
    int GetDay() const noexcept;         ///< 1 to 31
    int GetHour() const noexcept;        ///< 0 to 23
    int GetMinute() const noexcept;      ///< 0 to 59
    int GetSecond() const noexcept;      ///< 0 to 59
    int GetMillisecond() const noexcept; ///< 0 to 999

    /// Compares to the nanosecond.
    /// \{
    bool operator==(DateTime const& other) const noexcept;
    bool operator!=(DateTime const& other) const noexcept { return !(*this == other); }
    bool operator<(DateTime const& other) const noexcept;
    /// \}

private:
    /// Adds nanoseconds, of any size and sign.
    void AddNanoseconds(long long nanoseconds) noexcept;

    long long seconds_ = 0;     // since the epoch
    long long nanoseconds_ = 0; // 0 to 999,999,999
};

} // namespace WDataType

#endif
