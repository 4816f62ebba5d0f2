#include <DataType/DateTime.h>

#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <ostream>
#include <random>
#include <tuple>

namespace WDataType {

// For the messages of assertions.
void PrintTo(DateTime const& time, std::ostream* out) {
    *out << time.GetYear() << '-' << time.GetMonth() << '-' << time.GetDay() << ' ' << time.GetHour() << ':'
         << time.GetMinute() << ':' << time.GetSecond() << '.' << time.GetMillisecond();
}

} // namespace WDataType

namespace {

using WDataType::DateTime;
using WDataType::TimeSpan;

DateTime Date(int year, int month, int day) {
    return DateTime(year, month, day, 0, 0, 0, 0, 0, 0);
}

DateTime Time(int hour, int minute, int second, int milliseconds = 0, int microseconds = 0, int nanoseconds = 0) {
    return DateTime(2000, 6, 15, hour, minute, second, milliseconds, microseconds, nanoseconds);
}

using Fields = std::tuple<int, int, int, int, int, int, int>;

Fields FieldsOf(DateTime const& time) {
    return {time.GetYear(),   time.GetMonth(),  time.GetDay(),        time.GetHour(),
            time.GetMinute(), time.GetSecond(), time.GetMillisecond()};
}

// ---- The calendar

bool IsLeapYear(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int DaysIn(int year, int month) {
    constexpr int DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : DAYS[month - 1];
}

// The days from 1 January of the year 0 to that of 1970.
int DaysToEpoch() {
    int days = 0;
    for (int year = 0; year < 1970; ++year) {
        days += IsLeapYear(year) ? 366 : 365;
    }
    return days;
}

TEST(DateTimeTest, DaysFollowEachOtherAsInTheCalendar) {
    DateTime const epoch = Date(1970, 1, 1);
    int day = -DaysToEpoch();
    for (int year = 0; year < 2401; ++year) {
        for (int month = 1; month <= 12; ++month) {
            for (int dayOfMonth = 1; dayOfMonth <= DaysIn(year, month); ++dayOfMonth, ++day) {
                DateTime const date = epoch + TimeSpan(day, 0, 0, 0, 0);
                ASSERT_EQ(FieldsOf(date), Fields(year, month, dayOfMonth, 0, 0, 0, 0));
                ASSERT_EQ(date, Date(year, month, dayOfMonth));
            }
        }
    }
}

TEST(DateTimeTest, AnyMomentHasTheFieldsThatTheSystemGivesIt) {
    std::mt19937_64 random(1);
    std::uniform_int_distribution<int> anyDay(-700'000'000, 700'000'000); // almost two million years each way
    std::uniform_int_distribution<int> anySecond(0, 86399);
    for (int i = 0; i < 50'000; ++i) {
        int const day = anyDay(random);
        int const second = anySecond(random);
        std::time_t const moment = day * 86400L + second;
        std::tm fields = {};
        ASSERT_NE(::gmtime_r(&moment, &fields), nullptr);
        DateTime const time = DateTime() + TimeSpan(day, 0, 0, second, 0);
        Fields const expected(
            fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec, 0);
        ASSERT_EQ(FieldsOf(time), expected);
        ASSERT_EQ(
            DateTime(
                fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
                0, 0, 0),
            time);
    }
}

TEST(DateTimeTest, LeapDaysComeInLeapYearsOnly) {
    TimeSpan const oneDay(1, 0, 0, 0, 0);
    EXPECT_EQ(Date(2024, 2, 28) + oneDay, Date(2024, 2, 29));
    EXPECT_EQ(Date(2023, 2, 28) + oneDay, Date(2023, 3, 1));
    EXPECT_EQ(Date(1900, 2, 28) + oneDay, Date(1900, 3, 1));
    EXPECT_EQ(Date(2000, 2, 28) + oneDay, Date(2000, 2, 29));
    EXPECT_EQ(Date(-4, 2, 28) + oneDay, Date(-4, 2, 29));
    EXPECT_EQ(Date(-100, 2, 28) + oneDay, Date(-100, 3, 1));
}

TEST(DateTimeTest, TheDefaultIsTheEpoch) {
    EXPECT_EQ(DateTime(), Date(1970, 1, 1));
    EXPECT_EQ(FieldsOf(DateTime()), Fields(1970, 1, 1, 0, 0, 0, 0));
}

// ---- The fields

TEST(DateTimeTest, FieldsAreGivenBack) {
    DateTime const time(2024, 2, 29, 23, 59, 58, 999, 998, 997);
    EXPECT_EQ(FieldsOf(time), Fields(2024, 2, 29, 23, 59, 58, 999));
}

TEST(DateTimeTest, FieldsBeyondTheirRangeCarryOver) {
    EXPECT_EQ(Date(2023, 13, 1), Date(2024, 1, 1));
    EXPECT_EQ(Date(2023, 27, 1), Date(2025, 3, 1));
    EXPECT_EQ(Date(2023, 0, 1), Date(2022, 12, 1));
    EXPECT_EQ(Date(2023, -12, 1), Date(2021, 12, 1));
    EXPECT_EQ(Date(2023, 3, 0), Date(2023, 2, 28));
    EXPECT_EQ(Date(2023, 2, 30), Date(2023, 3, 2));
    EXPECT_EQ(Date(2023, 1, 366), Date(2024, 1, 1));
    EXPECT_EQ(Time(24, 0, 0), DateTime(2000, 6, 16, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(Time(-1, 0, 0), DateTime(2000, 6, 14, 23, 0, 0, 0, 0, 0));
    EXPECT_EQ(Time(0, 60, 0), Time(1, 0, 0));
    EXPECT_EQ(Time(1, -1, 0), Time(0, 59, 0));
    EXPECT_EQ(Time(0, 0, 60), Time(0, 1, 0));
    EXPECT_EQ(Time(0, 1, -1), Time(0, 0, 59));
}

TEST(DateTimeTest, FractionsBeyondTheirRangeCarryOver) {
    EXPECT_EQ(Time(0, 0, 0, 1000), Time(0, 0, 1));
    EXPECT_EQ(Time(0, 0, 1, -1), Time(0, 0, 0, 999));
    EXPECT_EQ(Time(0, 0, 0, 0, 1000), Time(0, 0, 0, 1));
    EXPECT_EQ(Time(0, 0, 1, 0, -1), Time(0, 0, 0, 999, 999));
    EXPECT_EQ(Time(0, 0, 0, 0, 0, 1000), Time(0, 0, 0, 0, 1));
    EXPECT_EQ(Time(0, 0, 1, 0, 0, -1), Time(0, 0, 0, 999, 999, 999));
    EXPECT_EQ(Time(23, 59, 59, 999, 999, 1000), DateTime(2000, 6, 16, 0, 0, 0, 0, 0, 0));
}

TEST(DateTimeTest, FieldsOfTheGreatestSizeAreAddedUp) {
    TimeSpan const most(0, INT_MAX, INT_MAX, INT_MAX, 0);
    EXPECT_EQ(DateTime(1970, 1, 1, INT_MAX, INT_MAX, INT_MAX, 0, 0, 0), DateTime() + most);
    TimeSpan const least(0, INT_MIN, INT_MIN, INT_MIN, 0);
    EXPECT_EQ(DateTime(1970, 1, 1, INT_MIN, INT_MIN, INT_MIN, 0, 0, 0), DateTime() + least);
    EXPECT_EQ(DateTime(1970, 1, 1, 0, 0, 0, INT_MAX, 0, 0), DateTime() + TimeSpan(0, 0, 0, 0, INT_MAX));
}

TEST(DateTimeTest, TimesBeforeTheEpochHaveFieldsWithinTheirRange) {
    DateTime const time = DateTime() + TimeSpan(0, 0, 0, 0, -1);
    EXPECT_EQ(FieldsOf(time), Fields(1969, 12, 31, 23, 59, 59, 999));
    EXPECT_EQ(time, DateTime(1969, 12, 31, 23, 59, 59, 999, 0, 0));
}

// ---- Durations

TEST(DateTimeTest, ADurationIsTheSumOfItsFields) {
    EXPECT_EQ(TimeSpan(0, 0, 0, 0, 0).GetTotalMilliseconds(), 0);
    EXPECT_EQ(TimeSpan(1, 2, 3, 4, 5).GetTotalMilliseconds(), 93784005);
    EXPECT_EQ(TimeSpan(-1, 0, 0, 0, 1).GetTotalMilliseconds(), -86399999);
    EXPECT_EQ(TimeSpan(1, -24, 60, -3600, 0).GetTotalMilliseconds(), 0);
    EXPECT_EQ(TimeSpan(INT_MAX, 0, 0, 0, 0).GetTotalMilliseconds(), INT_MAX * 86400000LL);
    EXPECT_EQ(TimeSpan(0, INT_MAX, INT_MAX, INT_MAX, INT_MAX).GetTotalMilliseconds(), INT_MAX * 3661001LL);
}

TEST(DateTimeTest, ADurationIsAddedWithItsMilliseconds) {
    EXPECT_EQ(Time(1, 2, 3, 4) + TimeSpan(0, 1, 1, 1, 1), Time(2, 3, 4, 5));
    EXPECT_EQ(Time(23, 59, 59, 999) + TimeSpan(0, 0, 0, 0, 1), DateTime(2000, 6, 16, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(Time(0, 0, 0) + TimeSpan(0, 0, 0, 0, -1), DateTime(2000, 6, 14, 23, 59, 59, 999, 0, 0));
    EXPECT_EQ(Time(0, 0, 0, 0, 0, 7) + TimeSpan(0, 0, 0, 0, -1001), Time(0, 0, -2, 999, 0, 7));
}

TEST(DateTimeTest, ToAddLeavesTheTimeItself) {
    DateTime const time = Date(2000, 1, 1);
    EXPECT_EQ(time + TimeSpan(1, 0, 0, 0, 0), Date(2000, 1, 2));
    EXPECT_EQ(time, Date(2000, 1, 1));
}

// ---- Comparison

TEST(DateTimeTest, TimesAreOrderedToTheNanosecond) {
    DateTime const ascending[] = {Date(-1, 12, 31), Date(0, 1, 1),    Date(1969, 12, 31),     Date(1970, 1, 1),
                                  Time(0, 0, 0),    Time(0, 0, 0, 1), Time(0, 0, 0, 1, 0, 1), Time(0, 0, 1)};
    for (DateTime const& left : ascending) {
        for (DateTime const& right : ascending) {
            EXPECT_EQ(left < right, &left < &right);
            EXPECT_EQ(left == right, &left == &right);
            EXPECT_EQ(left != right, &left != &right);
        }
    }
}

TEST(DateTimeTest, TimesCanBeCopiedAndAssigned) {
    DateTime const time(2024, 2, 29, 1, 2, 3, 4, 5, 6);
    DateTime copy(time);
    EXPECT_EQ(copy, time);
    copy = DateTime();
    EXPECT_EQ(copy, DateTime());
}

} // namespace
