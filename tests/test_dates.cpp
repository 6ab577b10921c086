// test_dates.cpp - the calendar: day numbers by the average-year rule, the
// fifteen date styles in both directions, the composites and their
// handling of blank dates, the default style, and hostile input.
#include "xbtest.h"

#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using xbt::LibTest;

struct Ymd {
    int y, m, d;
    bool operator==(const Ymd &o) const { return y == o.y && m == o.m && d == o.d; }
};

bool trueLeap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }
int trueMonthLen(int y, int m) {
    static const int len[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && trueLeap(y) ? 29 : len[m];
}
int trueDayOfYear(int y, int m, int d) {
    for (int i = 1; i < m; ++i) d += trueMonthLen(y, i);
    return d;
}
// Whole days in `years` average years of 365.2425 days, in exact integer
// arithmetic. The library works in binary floating point with a constant a
// hair above 365.2425; truncation agrees with the exact value because the
// exact product is either a whole number (every 400 years) or at least
// 1/400 away from one.
int64_t yearDays(int64_t years) { return years * 3652425 / 10000; }
int64_t ruleDayNumber(int y, int m, int d) { return yearDays(y - 1) + trueDayOfYear(y, m, d); }

// A caller's buffer of exactly n bytes on the heap, so the sanitizer build
// reports any byte written past it.
struct Exact {
    explicit Exact(size_t n) : p(new char[n]), n(n) { std::memset(p.get(), 'X', n); }
    char *get() { return p.get(); }
    std::string str() const { return std::string(p.get(), strnlen(p.get(), n)); }
    std::unique_ptr<char[]> p;
    size_t n;
};

// A text in a heap block of exactly its length plus the NUL.
struct Text {
    explicit Text(const std::string &s) : p(new char[s.size() + 1]) {
        std::memcpy(p.get(), s.c_str(), s.size() + 1);
    }
    char *get() { return p.get(); }
    std::unique_ptr<char[]> p;
};

// ---------------------------------------------------------------------------
// Day numbers
// ---------------------------------------------------------------------------

TEST_F(LibTest, ReferenceDayNumbersBothWays) {
    struct Case {
        Ymd date;
        int32_t n;
    };
    const Case cases[] = {
        {{1, 1, 1}, 1},           {{1900, 1, 1}, 693596},   {{1970, 1, 1}, 719163},
        {{2000, 1, 1}, 730120},   {{9999, 12, 31}, 3652059}, {{2024, 12, 31}, 739251},
        {{2025, 1, 1}, 739251},   {{4, 12, 31}, 1461},      {{5, 1, 1}, 1461},
        {{1, 12, 31}, 365},       {{2, 1, 1}, 366},          {{2000, 12, 31}, 730485},
    };
    for (const Case &c : cases) {
        int32_t n = -1;
        EXPECT_EQ(DBDate3ToLong(&n, c.date.y, c.date.m, c.date.d), 0);
        EXPECT_EQ(n, c.n) << c.date.y << "-" << c.date.m << "-" << c.date.d;
        EXPECT_EQ(DBerrno, 0);
    }
    // The inverse: where two dates share a number, the 1 January wins.
    const Case back[] = {
        {{2025, 1, 1}, 739251}, {{1, 12, 31}, 365},   {{2, 1, 1}, 366},
        {{1, 1, 1}, 1},         {{9999, 12, 31}, 3652059}, {{2000, 12, 31}, 730485},
        {{5, 1, 1}, 1461},      {{2000, 1, 1}, 730120},
    };
    for (const Case &c : back) {
        Ymd got{-1, -1, -1};
        EXPECT_EQ(DBLongDateTo3(&got.y, &got.m, &got.d, c.n), 0) << c.n;
        EXPECT_TRUE(got == c.date) << c.n << " -> " << got.y << "-" << got.m << "-" << got.d;
    }
}

TEST_F(LibTest, WholeMultipleOf400YearsClosesTheYearWithoutALeapTest) {
    // 730485 is exactly 2000 average years: the remainder is 0 and the
    // answer is 31 December 2000 without a leap-year test, so DBdpm[2]
    // keeps what the last test left.
    EXPECT_EQ(DBIsLeapYear(2001), 0);
    ASSERT_EQ(DBdpm[2], 28);
    int y = 0, m = 0, d = 0;
    ASSERT_EQ(DBLongDateTo3(&y, &m, &d, 730485), 0);
    EXPECT_EQ(y, 2000);
    EXPECT_EQ(m, 12);
    EXPECT_EQ(d, 31);
    EXPECT_EQ(DBdpm[2], 28);
    // The day before goes through the month walk of the leap year 2000.
    ASSERT_EQ(DBLongDateTo3(&y, &m, &d, 730484), 0);
    EXPECT_EQ(d, 30);
    EXPECT_EQ(DBdpm[2], 29);
}

// Every day number of the range, and every date of years 1 to 9999. The
// expectations come from the average-year rule computed independently in
// integers: where it gives a 31 December and the next 1 January the same
// number, the number reads back as the 1 January and the 31 December has
// no number of its own; where it skips a number, that number is refused.
TEST_F(LibTest, FullRangeWalkMatchesTheAverageYearRule) {
    const int32_t top = 3652059;
    std::vector<uint8_t> hits(top + 2, 0);
    std::vector<Ymd> last(top + 2, Ymd{0, 0, 0});
    long forwardMismatch = 0, triples = 0;
    for (int y = 1; y <= 9999; ++y)
        for (int m = 1; m <= 12; ++m)
            for (int d = 1, len = trueMonthLen(y, m); d <= len; ++d) {
                const int64_t want = ruleDayNumber(y, m, d);
                int32_t n = -1;
                if (DBDate3ToLong(&n, y, m, d) != 0 || n != want || want < 1 || want > top) {
                    ++forwardMismatch;
                    continue;
                }
                ++triples;
                ++hits[n];
                last[n] = Ymd{y, m, d};
            }
    EXPECT_EQ(forwardMismatch, 0);
    EXPECT_EQ(triples, top);  // as many dates in years 1..9999 as numbers

    long collisions = 0, gaps = 0, oddCollision = 0, oddGap = 0, backMismatch = 0;
    for (int32_t n = 1; n <= top; ++n) {
        Ymd got{-1, -1, -1};
        const int rc = DBLongDateTo3(&got.y, &got.m, &got.d, n);
        if (hits[n] == 0) {
            ++gaps;
            // Only between the last number of a common year and the next
            // year's first.
            const Ymd &before = last[n - 1];
            if (!(before.m == 12 && before.d == 31 && !trueLeap(before.y) && hits[n + 1] &&
                  last[n + 1] == (Ymd{before.y + 1, 1, 1})))
                ++oddGap;
            if (rc != DBE_BADDATE) ++backMismatch;
            continue;
        }
        if (hits[n] == 2) {
            ++collisions;
            // A leap year's 31 December meeting the next 1 January.
            const Ymd &jan1 = last[n];
            if (!(jan1.m == 1 && jan1.d == 1 && trueLeap(jan1.y - 1) && last[n - 1].y == jan1.y - 1 &&
                  last[n - 1].m == 12 && last[n - 1].d == 30))
                ++oddCollision;
        } else if (hits[n] != 1) {
            ++oddCollision;
        }
        if (rc != 0 || !(got == last[n])) ++backMismatch;
    }
    EXPECT_EQ(backMismatch, 0);
    EXPECT_EQ(oddGap, 0);
    EXPECT_EQ(oddCollision, 0);
    // Every collision loses one number and every gap skips one; both ends
    // are fixed (1 and 3652059), so they balance.
    EXPECT_EQ(collisions, gaps);
    EXPECT_GT(collisions, 0);
    EXPECT_EQ(hits[739251], 2);
    EXPECT_EQ(hits[1461], 2);
}

TEST_F(LibTest, DayNumberBounds) {
    const int32_t bad[] = {0, -1, 3652060, INT32_MIN, INT32_MAX};
    for (int32_t n : bad) {
        int y = 7, m = 7, d = 7, dow = 9;
        EXPECT_EQ(DBLongDateTo3(&y, &m, &d, n), DBE_BADDATE) << n;
        EXPECT_EQ(y, 7);
        EXPECT_EQ(DBLongDateToDayOfWeek(&dow, n), DBE_BADDATE) << n;
        EXPECT_EQ(dow, 9);
        Exact out(11);
        EXPECT_EQ(DBLongDateToStr(out.get(), 4, n), DBE_BADDATE) << n;
    }
    int y, m, d, dow;
    EXPECT_EQ(DBLongDateToDayOfWeek(&dow, 1), 0);
    EXPECT_EQ(dow, 1);  // 1 January 1 is a Monday
    EXPECT_EQ(DBLongDateToDayOfWeek(&dow, 3652059), 0);
    EXPECT_EQ(DBLongDateTo3(nullptr, &m, &d, 5), DBE_NULLPARAM);
    EXPECT_EQ(DBLongDateTo3(&y, nullptr, &d, 5), DBE_NULLPARAM);
    EXPECT_EQ(DBLongDateTo3(&y, &m, nullptr, 5), DBE_NULLPARAM);
    EXPECT_EQ(DBLongDateToDayOfWeek(nullptr, 5), DBE_NULLPARAM);
    EXPECT_EQ(DBDate3ToLong(nullptr, 2000, 1, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBLongDateToStr(nullptr, 4, 5), DBE_NULLPARAM);
}

TEST_F(LibTest, DayOfWeekFollowsTheRuleNotTheCalendar) {
    // The weekday is the rule's day number modulo 7. Where the rule's
    // number equals the true day count (1 January 1970 is 719163 in both)
    // that is the true weekday; where the rule lags the true count by a
    // day (from 1 January 2025, for one), the weekday lags with it.
    // The true count comes from the C library's own calendar.
    long mismatch = 0, lagging = 0;
    for (int y = 1970; y <= 2037; ++y)
        for (int m = 1; m <= 12; ++m) {
            struct tm t {};
            t.tm_year = y - 1900;
            t.tm_mon = m - 1;
            t.tm_mday = 15;
            t.tm_hour = 12;
            const int64_t trueDay = 719163 + static_cast<int64_t>(timegm(&t)) / 86400;
            const int64_t lag = ruleDayNumber(y, m, 15) - trueDay;
            if (lag != 0) ++lagging;
            if (lag != 0 && lag != -1) ++mismatch;
            const int want = static_cast<int>(((t.tm_wday + lag) % 7 + 7) % 7);
            char text[11];
            std::snprintf(text, sizeof text, "%04d%02d15", y, m);
            int dow = -1;
            if (DBStrDateToIntDayWeek(&dow, text, 4) != 0 || dow != want) ++mismatch;
        }
    EXPECT_EQ(mismatch, 0);
    EXPECT_GT(lagging, 0);
}

// ---------------------------------------------------------------------------
// Triples
// ---------------------------------------------------------------------------

TEST_F(LibTest, TripleValidity) {
    struct Case {
        Ymd date;
        int rc;
    };
    const Case cases[] = {
        {{2024, 2, 29}, 0},          {{2023, 2, 29}, DBE_BADDATE}, {{1900, 2, 29}, DBE_BADDATE},
        {{2000, 2, 29}, 0},          {{0, 2, 29}, 0},              {{0, 1, 1}, 0},
        {{-1, 1, 1}, DBE_BADDATE},   {{10000, 1, 1}, DBE_BADDATE}, {{2000, 0, 1}, DBE_BADDATE},
        {{2000, 13, 1}, DBE_BADDATE}, {{2000, 1, 0}, DBE_BADDATE}, {{2000, 4, 31}, DBE_BADDATE},
        {{2000, 12, 32}, DBE_BADDATE}, {{INT32_MIN, INT32_MIN, INT32_MIN}, DBE_BADDATE},
        {{9999, 12, 31}, 0},         {{2000, INT32_MAX, 1}, DBE_BADDATE},
    };
    for (const Case &c : cases) {
        int32_t n = 0;
        EXPECT_EQ(DBDate3ToLong(&n, c.date.y, c.date.m, c.date.d), c.rc)
            << c.date.y << "-" << c.date.m << "-" << c.date.d;
        Exact out(11);
        EXPECT_EQ(DBDate3ToStr(out.get(), 4, c.date.y, c.date.m, c.date.d), c.rc);
    }
    // Year 0 counts back from 1 January 1: -365.2425 truncates to -365.
    int32_t n = 0;
    ASSERT_EQ(DBDate3ToLong(&n, 0, 1, 1), 0);
    EXPECT_EQ(n, -364);
}

TEST_F(LibTest, TripleToStringInEveryStyle) {
    const char *want[16] = {nullptr,      "02/09/24",   "02/09/2024", "2024/040",
                            "20240209",   "090224",     "09.02.24",   "09.02.2024",
                            "09/02/24",   "09/02/2024", "09/02/24",   "09/02/2024",
                            "09-02-24",   "09-02-2024", "24.02.09",   "2024.02.09"};
    for (int style = 1; style <= 15; ++style) {
        Exact out(11);
        EXPECT_EQ(DBDate3ToStr(out.get(), style, 2024, 2, 9), 0) << style;
        EXPECT_EQ(out.str(), want[style]) << style;
        // Nothing written past the NUL.
        const size_t len = std::strlen(want[style]);
        for (size_t i = len + 1; i < 11; ++i) EXPECT_EQ(out.get()[i], 'X') << style;
    }
    struct Case {
        int style;
        Ymd date;
        const char *text;
    };
    const Case more[] = {
        {3, {2000, 12, 31}, "2000/366"}, {3, {1999, 12, 31}, "1999/365"},
        {3, {0, 3, 1}, "0000/061"},      {1, {2007, 1, 1}, "01/01/07"},
        {1, {1900, 1, 1}, "01/01/00"},   {5, {9999, 12, 31}, "311299"},
        {2, {99, 1, 1}, "01/01/0099"},   {14, {2105, 3, 4}, "05.03.04"},
    };
    for (const Case &c : more) {
        Exact out(11);
        EXPECT_EQ(DBDate3ToStr(out.get(), c.style, c.date.y, c.date.m, c.date.d), 0);
        EXPECT_EQ(out.str(), c.text);
    }
    Exact out(11);
    EXPECT_EQ(DBDate3ToStr(out.get(), 0, 2024, 2, 9), DBE_BADCOMMAND);
    EXPECT_EQ(DBDate3ToStr(out.get(), 16, 2024, 2, 9), DBE_BADCOMMAND);
    EXPECT_EQ(DBDate3ToStr(out.get(), -1, 2024, 2, 9), DBE_BADCOMMAND);
    // The date is judged before the style.
    EXPECT_EQ(DBDate3ToStr(out.get(), 0, 2024, 2, 30), DBE_BADDATE);
    EXPECT_EQ(DBDate3ToStr(nullptr, 4, 2024, 2, 9), DBE_NULLPARAM);
}

TEST_F(LibTest, StylesRoundTripThroughTheParser) {
    // Every 37th day number, in every style; two-digit styles only hold
    // 2000..2099. Conversions between styles go through the same triple.
    long mismatch = 0, checked = 0;
    for (int32_t n = 1; n <= 3652059; n += 37) {
        Ymd t{};
        if (DBLongDateTo3(&t.y, &t.m, &t.d, n) != 0) continue;
        for (int style = 1; style <= 15; ++style) {
            const bool two = style == 1 || style == 5 || style == 6 || style == 8 || style == 10 ||
                             style == 12 || style == 14;
            if (two && (t.y < 2000 || t.y > 2099)) continue;
            char text[11];
            Ymd back{-1, -1, -1};
            int32_t n2 = 0;
            char conv[11], want[11];
            ++checked;
            if (DBDate3ToStr(text, style, t.y, t.m, t.d) != 0 ||
                DBStrDateTo3(&back.y, &back.m, &back.d, text, style) != 0 || !(back == t) ||
                DBStrDateToLong(&n2, text, style) != 0 || n2 != n ||
                DBConvertDateStr(conv, 4, text, style) != 0 ||
                DBDate3ToStr(want, 4, t.y, t.m, t.d) != 0 || std::strcmp(conv, want) != 0)
                ++mismatch;
        }
    }
    EXPECT_GT(checked, 100000);
    EXPECT_EQ(mismatch, 0);
}

// ---------------------------------------------------------------------------
// The parser
// ---------------------------------------------------------------------------

TEST_F(LibTest, ParserPerStyleRules) {
    struct Case {
        const char *text;
        int style;
        int rc;
        Ymd date;  // checked when rc is 0 or 202
    };
    const Case cases[] = {
        // blank dates
        {"  /  /  ", 1, DBW_EMPTY, {0, 0, 0}},
        {"", 1, DBW_EMPTY, {0, 0, 0}},
        {"        ", 4, DBW_EMPTY, {0, 0, 0}},
        {"   ", 99, DBW_EMPTY, {0, 0, 0}},  // blank is seen before the style
        {"  ..  ", 6, DBW_EMPTY, {0, 0, 0}},
        {"  --    ", 13, DBW_EMPTY, {0, 0, 0}},
        {"    /   ", 3, DBW_EMPTY, {0, 0, 0}},
        {"  \\  \\  ", 1, DBW_EMPTY, {0, 0, 0}},  // backslashes are slashes in style 1
        {"  \\  \\  ", 8, DBE_BADDATE, {}},       // but not in style 8
        {"..", 6, DBE_BADDATE, {}},                // too short before anything else
        // two-digit years: always 20yy
        {"12/31/99", 1, 0, {2099, 12, 31}},
        {"01/01/00", 1, 0, {2000, 1, 1}},
        {"12/31/1999", 2, 0, {1999, 12, 31}},
        {"01/01/0099", 2, 0, {99, 1, 1}},
        {"01/01/-1", 1, DBE_BADDATE, {}},
        // Julian
        {"1999/365", 3, 0, {1999, 12, 31}},
        {"2000/366", 3, 0, {2000, 12, 31}},
        {"2000/060", 3, 0, {2000, 2, 29}},
        {"1999/060", 3, 0, {1999, 3, 1}},
        {"1999\\001", 3, 0, {1999, 1, 1}},
        {"1999/366", 3, DBE_BADDATE, {}},
        {"1999/000", 3, DBE_BADDATE, {}},
        {"1999/-01", 3, DBE_BADDATE, {}},
        {"9999/999", 3, DBE_BADDATE, {}},
        {"99/00001", 3, 0, {99, 1, 1}},
        // backslashes
        {"02\\29\\00", 1, 0, {2000, 2, 29}},
        {"02\\29\\2000", 2, 0, {2000, 2, 29}},
        {"02\\29\\00", 8, DBE_BADDATE, {}},
        // forgiving forms
        {"1/2/03", 1, 0, {2003, 1, 2}},
        {"01/ 2/03", 1, 0, {2003, 1, 2}},
        {"  1/1/01", 1, 0, {2001, 1, 1}},
        {"1/2/3/4", 1, 0, {2003, 1, 2}},  // atoi stops at the extra slash
        {"1 . 2.03", 6, 0, {2003, 2, 1}},
        {"1 . 2 .03", 6, DBE_BADDATE, {}},  // blanks count in the length
        // fixed positions
        {"20240229", 4, 0, {2024, 2, 29}},
        {"20230229", 4, DBE_BADDATE, {}},
        {"2024010", 4, DBE_BADDATE, {}},
        {"202401011", 4, DBE_BADDATE, {}},
        {"2024 1 1", 4, 0, {2024, 1, 1}},  // atoi skips a piece's leading blank
        {"2024-1-1", 4, DBE_BADDATE, {}},
        {"    1231", 4, 0, {0, 12, 31}},
        {"290224", 5, 0, {2024, 2, 29}},
        {"290223", 5, DBE_BADDATE, {}},
        {"2902245", 5, DBE_BADDATE, {}},
        // the separated European and ENSI styles
        {"29.02.24", 6, 0, {2024, 2, 29}},
        {"29.02.2024", 7, 0, {2024, 2, 29}},
        {"29/02/24", 8, 0, {2024, 2, 29}},
        {"29/02/2024", 9, 0, {2024, 2, 29}},
        {"29/02/24", 10, 0, {2024, 2, 29}},
        {"29/02/2024", 11, 0, {2024, 2, 29}},
        {"29-02-24", 12, 0, {2024, 2, 29}},
        {"29-02-2024", 13, 0, {2024, 2, 29}},
        {"24.02.29", 14, 0, {2024, 2, 29}},
        {"2024.02.29", 15, 0, {2024, 2, 29}},
        {"29.02.2023", 7, DBE_BADDATE, {}},
        {"29/02/2024", 7, DBE_BADDATE, {}},  // wrong separator
        // lengths, separators, garbage
        {"1/1/1", 1, DBE_BADDATE, {}},
        {"     1/1/01", 1, DBE_BADDATE, {}},
        {"01/01/2001x", 2, DBE_BADDATE, {}},
        {"01-01-01", 1, DBE_BADDATE, {}},
        {"0101/01", 1, DBE_BADDATE, {}},
        {"19990365", 3, DBE_BADDATE, {}},
        {"ab/cd/ef", 1, DBE_BADDATE, {}},
        {"13/01/01", 1, DBE_BADDATE, {}},
        {"-1/01/01", 8, DBE_BADDATE, {}},
        {"01/01/01", 0, DBE_BADCOMMAND, {}},
        {"01/01/01", 16, DBE_BADCOMMAND, {}},
        {"01/01/01", -3, DBE_BADCOMMAND, {}},
    };
    for (const Case &c : cases) {
        Text t(c.text);
        Ymd got{-7, -7, -7};
        EXPECT_EQ(DBStrDateTo3(&got.y, &got.m, &got.d, t.get(), c.style), c.rc)
            << "\"" << c.text << "\" style " << c.style;
        EXPECT_EQ(DBerrno, c.rc);
        if (c.rc >= 0)
            EXPECT_TRUE(got == c.date) << "\"" << c.text << "\" style " << c.style << " -> " << got.y
                                       << "-" << got.m << "-" << got.d;
        // The validity check reports exactly the parser's status.
        EXPECT_EQ(DBIsValidDateStr(t.get(), c.style), c.rc) << c.text;
        // The text is the caller's: never changed.
        EXPECT_STREQ(t.get(), c.text);
    }
}

TEST_F(LibTest, ParserNullArguments) {
    int y, m, d;
    char text[] = "20240101";
    EXPECT_EQ(DBStrDateTo3(nullptr, &m, &d, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBStrDateTo3(&y, nullptr, &d, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBStrDateTo3(&y, &m, nullptr, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBStrDateTo3(&y, &m, &d, nullptr, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBIsValidDateStr(nullptr, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBIsStrLeapYear(nullptr, 4), DBE_NULLPARAM);
    int32_t n;
    char name[10];
    EXPECT_EQ(DBStrDateToLong(&n, nullptr, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBStrDateToLong(nullptr, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBStrDateToIntDayWeek(nullptr, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBStrDateToDayOfWeek(nullptr, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBStrDateToMonth(nullptr, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBConvertDateStr(nullptr, 1, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBConvertDateStr(name, 1, nullptr, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBDaysInMonthStr(nullptr, text, 4), DBE_NULLPARAM);
    // The output is checked before either text is read.
    EXPECT_EQ(DBDaysBetweenStr(nullptr, nullptr, 99, text, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBDaysBetweenStr(&n, text, 4, nullptr, 4), DBE_NULLPARAM);
}

// ---------------------------------------------------------------------------
// Composites and the blank date
// ---------------------------------------------------------------------------

TEST_F(LibTest, CompositesOnTheSameDates) {
    struct Case {
        const char *text;
        int style;
        int32_t n;
        const char *dayName;
        const char *monthName;
        int monthDays;
        int leap;
        const char *asStyle2;
    };
    const Case cases[] = {
        {"20000101", 4, 730120, "Saturday", "January", 31, 1, "01/01/2000"},
        {"12/31/24", 1, 739251, "Tuesday", "December", 31, 1, "12/31/2024"},
        // Truly a Wednesday; by the rule it shares its number with the day before.
        {"01.01.2025", 7, 739251, "Tuesday", "January", 31, 0, "01/01/2025"},
        {"1900/060", 3, 693655, "Thursday", "March", 31, 0, "03/01/1900"},
        {"29-02-2024", 13, 738945, "Thursday", "February", 29, 1, "02/29/2024"},
        {"23.02.01", 14, 738552, "Wednesday", "February", 28, 0, "02/01/2023"},
    };
    for (const Case &c : cases) {
        Text t(c.text);
        int32_t n = 0;
        ASSERT_EQ(DBStrDateToLong(&n, t.get(), c.style), 0) << c.text;
        // The expected number comes from the rule, the table only names it.
        Ymd p{};
        ASSERT_EQ(DBStrDateTo3(&p.y, &p.m, &p.d, t.get(), c.style), 0);
        EXPECT_EQ(n, ruleDayNumber(p.y, p.m, p.d)) << c.text;
        EXPECT_EQ(n, c.n) << c.text;
        int dow = -1;
        EXPECT_EQ(DBStrDateToIntDayWeek(&dow, t.get(), c.style), 0);
        EXPECT_EQ(dow, c.n % 7);
        Exact day(10), month(10), conv(11);
        EXPECT_EQ(DBStrDateToDayOfWeek(day.get(), t.get(), c.style), 0);
        EXPECT_EQ(day.str(), c.dayName);
        EXPECT_EQ(DBStrDateToMonth(month.get(), t.get(), c.style), 0);
        EXPECT_EQ(month.str(), c.monthName);
        int days = 0;
        EXPECT_EQ(DBDaysInMonthStr(&days, t.get(), c.style), 0);
        EXPECT_EQ(days, c.monthDays);
        EXPECT_EQ(DBIsStrLeapYear(t.get(), c.style), c.leap);
        EXPECT_EQ(DBConvertDateStr(conv.get(), 2, t.get(), c.style), 0);
        EXPECT_EQ(conv.str(), c.asStyle2);
    }
}

TEST_F(LibTest, BlankDateThroughTheComposites) {
    char blank[] = "  /  /  ";
    int32_t n = 5;
    int dow = 5, days = 5;
    Exact out(11), name(10);
    EXPECT_EQ(DBIsValidDateStr(blank, 1), DBW_EMPTY);
    EXPECT_EQ(DBStrDateToLong(&n, blank, 1), DBE_BADDATE);
    EXPECT_EQ(n, 5);
    EXPECT_EQ(DBerrno, DBE_BADDATE);
    EXPECT_EQ(DBStrDateToIntDayWeek(&dow, blank, 1), DBE_BADDATE);
    EXPECT_EQ(DBStrDateToDayOfWeek(name.get(), blank, 1), DBE_BADDATE);
    EXPECT_EQ(DBStrDateToMonth(name.get(), blank, 1), DBE_BADDATE);
    EXPECT_EQ(DBConvertDateStr(out.get(), 4, blank, 1), DBE_BADDATE);
    EXPECT_EQ(DBDaysInMonthStr(&days, blank, 1), DBE_BADDATE);
    char good[] = "20240101";
    EXPECT_EQ(DBDaysBetweenStr(&n, good, 4, blank, 1), DBE_BADDATE);
    // Year 0 is leap; the parser's warning stays in DBerrno.
    EXPECT_EQ(DBIsStrLeapYear(blank, 1), 1);
    EXPECT_EQ(DBerrno, DBW_EMPTY);
    char bad[] = "2024132X";
    EXPECT_EQ(DBIsStrLeapYear(bad, 4), DBE_BADDATE);
}

TEST_F(LibTest, DaysBetweenStrings) {
    struct Case {
        const char *a;
        int sa;
        const char *b;
        int sb;
        int32_t days;
    };
    const Case cases[] = {
        {"12/31/2024", 2, "20250101", 4, 0},  // the two dates share a number
        {"20000101", 4, "20001231", 4, 365},
        {"01/01/00", 1, "01/01/01", 1, 366},
        {"00010101", 4, "99991231", 4, 3652058},
        {"1999/365", 3, "01.01.2000", 7, 1},
    };
    for (const Case &c : cases) {
        Text a(c.a), b(c.b);
        int32_t d = -1;
        EXPECT_EQ(DBDaysBetweenStr(&d, a.get(), c.sa, b.get(), c.sb), 0) << c.a;
        EXPECT_EQ(d, c.days) << c.a;
        EXPECT_EQ(DBDaysBetweenStr(&d, b.get(), c.sb, a.get(), c.sa), 0);
        EXPECT_EQ(d, c.days) << c.a << " reversed";
    }
    char good[] = "20240101", bad[] = "20241301";
    int32_t d = 0;
    EXPECT_EQ(DBDaysBetweenStr(&d, bad, 4, good, 4), DBE_BADDATE);
    EXPECT_EQ(DBDaysBetweenStr(&d, good, 4, good, 0), DBE_BADCOMMAND);
}

// ---------------------------------------------------------------------------
// Leap years, month lengths, names, default style
// ---------------------------------------------------------------------------

TEST_F(LibTest, LeapYearsRewriteTheMonthTable) {
    struct Case {
        int year, leap;
    };
    const Case cases[] = {{2024, 1}, {2023, 0}, {1900, 0}, {2000, 1}, {0, 1},
                          {4, 1},    {100, 0},  {400, 1},  {9999, 0}, {-4, 1}};
    DBSetErrorCode(12345);
    for (const Case &c : cases) {
        EXPECT_EQ(DBIsLeapYear(c.year), c.leap) << c.year;
        EXPECT_EQ(DBdpm[2], c.leap ? 29 : 28) << c.year;
    }
    EXPECT_EQ(DBerrno, 12345);  // the predicate leaves the status alone
    const int8_t rest[13] = {0, 31, 0, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int m = 0; m <= 12; ++m)
        if (m != 2) EXPECT_EQ(DBdpm[m], rest[m]) << m;
}

TEST_F(LibTest, DaysInMonth) {
    struct Case {
        int year, month, rc, days;
    };
    const Case cases[] = {
        {2024, 2, 0, 29},           {2023, 2, 0, 28},           {1900, 2, 0, 28},
        {2000, 2, 0, 29},           {2023, 4, 0, 30},           {2023, 12, 0, 31},
        {1, 1, 0, 31},              {9999, 2, 0, 28},           {0, 1, DBE_BADDATE, 0},
        {10000, 1, DBE_BADDATE, 0}, {2023, 0, DBE_BADDATE, 0},  {2023, 13, DBE_BADDATE, 0},
        {-1, 2, DBE_BADDATE, 0},    {2023, INT32_MIN, DBE_BADDATE, 0},
    };
    for (const Case &c : cases) {
        int days = -1;
        EXPECT_EQ(DBDaysInMonth(&days, c.year, c.month), c.rc) << c.year << "-" << c.month;
        if (c.rc == 0) EXPECT_EQ(days, c.days) << c.year << "-" << c.month;
    }
    EXPECT_EQ(DBDaysInMonth(nullptr, 2024, 2), DBE_NULLPARAM);
    // Only February tests the year: a March lookup leaves DBdpm[2] alone.
    DBIsLeapYear(2024);
    int days;
    ASSERT_EQ(DBDaysInMonth(&days, 2023, 3), 0);
    EXPECT_EQ(DBdpm[2], 29);
}

TEST_F(LibTest, DayAndMonthNames) {
    const char *days[7] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
    for (int i = 0; i < 7; ++i) {
        Exact out(10);
        EXPECT_EQ(DBDayOfWeek(out.get(), i), 0);
        EXPECT_EQ(out.str(), days[i]);
    }
    const char *months[12] = {"January", "February", "March",     "April",   "May",      "June",
                              "July",    "August",   "September", "October", "November", "December"};
    for (int i = 1; i <= 12; ++i) {
        Exact out(10);
        EXPECT_EQ(DBMonthToStr(out.get(), i), 0);
        EXPECT_EQ(out.str(), months[i - 1]);
    }
    Exact out(10);
    for (int bad : {7, -1, INT32_MIN, INT32_MAX}) EXPECT_EQ(DBDayOfWeek(out.get(), bad), DBE_BADDATE);
    for (int bad : {0, 13, INT32_MIN}) EXPECT_EQ(DBMonthToStr(out.get(), bad), DBE_BADDATE);
    EXPECT_EQ(DBDayOfWeek(nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBMonthToStr(nullptr, 1), DBE_NULLPARAM);
}

TEST_F(LibTest, DefaultDateStyle) {
    const char *names[16] = {
        nullptr, "Gregorian (mm/dd/yy)", "Gregorian (mm/dd/yyyy)", "Julian (yyyy/ddd)",
        "dBASE (yyyymmdd)", "DMY (ddmmyy)", "German (dd.mm.yy)", "German (dd.mm.yyyy)",
        "British (dd/mm/yy)", "British (dd/mm/yyyy)", "French (dd/mm/yy)", "French (dd/mm/yyyy)",
        "Italian (dd-mm-yy)", "Italian (dd-mm-yyyy)", "ENSI (yy.mm.dd)", "ENSI (yyyy.mm.dd)"};
    for (int s = 1; s <= 15; ++s) {
        DBSetErrorCode(777);
        EXPECT_EQ(DBSetDefaultDateStyle(s), 0);
        EXPECT_EQ(DBdate_style, s);
        int got = 0;
        Exact name(23);
        EXPECT_EQ(DBGetDefaultDateStyle(&got, name.get()), 0);
        EXPECT_EQ(got, s);
        EXPECT_EQ(name.str(), names[s]);
        EXPECT_EQ(DBerrno, 777);  // success leaves the status alone
    }
    ASSERT_EQ(DBSetDefaultDateStyle(9), 0);
    for (int bad : {0, 16, -1}) {
        EXPECT_EQ(DBSetDefaultDateStyle(bad), DBE_BADCOMMAND);
        EXPECT_EQ(DBerrno, DBE_BADCOMMAND);
        EXPECT_EQ(DBdate_style, 9);
    }
    int got;
    char name[23];
    EXPECT_EQ(DBGetDefaultDateStyle(nullptr, name), DBE_NULLPARAM);
    EXPECT_EQ(DBGetDefaultDateStyle(&got, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBerrno, DBE_NULLPARAM);
    // A style with no name (as before initialisation) gets no table read.
    DBdate_style = 0;
    name[0] = 'X';
    EXPECT_EQ(DBGetDefaultDateStyle(&got, name), DBE_BADCOMMAND);
    EXPECT_EQ(got, 0);
    EXPECT_STREQ(name, "");
}

// ---------------------------------------------------------------------------
// Today
// ---------------------------------------------------------------------------

TEST_F(LibTest, TodayMatchesTheLocalClock) {
    // Read the clock on both sides of the call; retry if midnight fell
    // between them.
    for (int attempt = 0; attempt < 3; ++attempt) {
        const time_t before = time(nullptr);
        int y, m, d, dow;
        Exact out(11);
        ASSERT_EQ(DBGetDate3(&y, &m, &d, &dow), 0);
        ASSERT_EQ(DBGetDateStr(out.get(), 4), 0);
        const time_t after = time(nullptr);
        struct tm a, b;
        localtime_r(&before, &a);
        localtime_r(&after, &b);
        if (a.tm_mday != b.tm_mday) continue;
        EXPECT_EQ(y, a.tm_year + 1900);
        EXPECT_EQ(m, a.tm_mon + 1);
        EXPECT_EQ(d, a.tm_mday);
        EXPECT_EQ(dow, a.tm_wday);
        char want[16];
        strftime(want, sizeof want, "%Y%m%d", &a);
        EXPECT_EQ(out.str(), want);
        return;
    }
    FAIL() << "the date kept changing";
}

TEST_F(LibTest, TodayBadArguments) {
    int y, m, d, dow;
    EXPECT_EQ(DBGetDate3(nullptr, &m, &d, &dow), DBE_NULLPARAM);
    EXPECT_EQ(DBGetDate3(&y, nullptr, &d, &dow), DBE_NULLPARAM);
    EXPECT_EQ(DBGetDate3(&y, &m, nullptr, &dow), DBE_NULLPARAM);
    EXPECT_EQ(DBGetDate3(&y, &m, &d, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBGetDateStr(nullptr, 4), DBE_NULLPARAM);
    char out[11];
    EXPECT_EQ(DBGetDateStr(out, 0), DBE_BADCOMMAND);
}

// ---------------------------------------------------------------------------
// The error log
// ---------------------------------------------------------------------------

TEST_F(LibTest, FailuresAreLoggedByEveryStepWarningsAreNot) {
    char logname[30] = {};
    const std::string p = path("d.log");
    ASSERT_LT(p.size(), sizeof logname);
    std::strcpy(logname, p.c_str());
    DBErrorLog(1, logname);

    char bad[] = "20241301", blank[] = "  /  /  ";
    int32_t n;
    EXPECT_EQ(DBStrDateToLong(&n, bad, 4), DBE_BADDATE);
    EXPECT_EQ(DBIsValidDateStr(blank, 1), DBW_EMPTY);
    EXPECT_EQ(DBSetDefaultDateStyle(16), DBE_BADCOMMAND);
    int s;
    EXPECT_EQ(DBGetDefaultDateStyle(&s, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBDaysBetweenStr(&n, bad, 4, bad, 4), DBE_BADDATE);
    DBErrorLog(0, nullptr);

    const auto lines = xbt::readLines(p);
    ASSERT_EQ(lines.size(), 5u);
    auto source = [](const std::string &l) { return l.substr(0, l.find('\t')); };
    auto code = [](const std::string &l) { return l.substr(l.rfind('\t') + 1); };
    EXPECT_EQ(source(lines[0]), "rdd/xbase/cds2i");
    EXPECT_EQ(source(lines[1]), "rdd/xbase/cds2l");
    EXPECT_EQ(source(lines[2]), "rdd/xbase/cds2i");
    EXPECT_EQ(source(lines[3]), "rdd/xbase/cds2l");
    EXPECT_EQ(source(lines[4]), "rdd/xbase/cdsdiff");
    // Each failure point has a line of its own.
    EXPECT_NE(lines[0], lines[1]);
    for (const auto &l : lines) EXPECT_EQ(code(l), "-215");
}

// ---------------------------------------------------------------------------
// Hostile input
// ---------------------------------------------------------------------------

// Random and over-long texts in every style, and out-of-range styles, into
// outputs of exactly the documented sizes. Every answer is a known status,
// and every accepted text names a date that prints and parses back.
TEST_F(LibTest, GarbageTextsInEveryStyle) {
    std::mt19937 rng(20240229);
    const char alphabet[] = "0123456789/.-\\ :+xA\t\x80\xff";
    std::vector<std::string> texts = {
        std::string(1000, '1'), std::string(1000, '/'), std::string(11, ' ') + "1",
        "99999999", "99/99/99", "99.99.9999", "-2147483648", "9999/9999", "0000/0000",
        "2147483647/1/1", "1/1/99999999", "\x01\x02\x03", "0/0/0000", "////////",
    };
    for (int i = 0; i < 20000; ++i) {
        std::string s;
        const int len = static_cast<int>(rng() % 14);
        for (int k = 0; k < len; ++k) s += alphabet[rng() % (sizeof alphabet - 1)];
        texts.push_back(s);
    }
    long unexpected = 0, accepted = 0;
    for (const std::string &s : texts) {
        Text t(s);
        for (int style = -1; style <= 17; ++style) {
            Ymd got{};
            const int rc = DBStrDateTo3(&got.y, &got.m, &got.d, t.get(), style);
            if (rc != 0 && rc != DBW_EMPTY && rc != DBE_BADDATE && rc != DBE_BADCOMMAND) ++unexpected;
            Exact out(11), name(10);
            int32_t n;
            int v;
            const int rl = DBStrDateToLong(&n, t.get(), style);
            DBStrDateToDayOfWeek(name.get(), t.get(), style);
            DBStrDateToMonth(name.get(), t.get(), style);
            DBDaysInMonthStr(&v, t.get(), style);
            DBIsStrLeapYear(t.get(), style);
            DBDaysBetweenStr(&n, t.get(), style, t.get(), style);
            const int rcv = DBConvertDateStr(out.get(), style >= 1 && style <= 15 ? style : 4, t.get(), style);
            if (rc == 0) {
                ++accepted;
                int32_t want;
                if (rl != 0 || DBDate3ToLong(&want, got.y, got.m, got.d) != 0 || rcv != 0) ++unexpected;
                Ymd again{};
                if (DBStrDateTo3(&again.y, &again.m, &again.d, out.get(),
                                 style >= 1 && style <= 15 ? style : 4) != 0)
                    ++unexpected;
            } else if (rl >= 0 || rcv >= 0) {
                ++unexpected;
            }
        }
    }
    EXPECT_EQ(unexpected, 0);
    EXPECT_GT(accepted, 0);
}

}  // namespace
