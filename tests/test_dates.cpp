// test_dates.cpp - day numbers by the average-year rule, the fifteen date styles both ways, the composites
// and blank dates, the default style, and the error log of dates and times. (Random and hostile texts:
// fuzz/fuzz_dates.cpp.)
#include <cstdlib>
#include <cstring>

#include "xbtest.h"

namespace {
using xbt::LibTest;
using Buf = std::vector<char>;
using V = std::vector<int>;
constexpr int BAD = DBE_BADDATE, CMD = DBE_BADCOMMAND, BLANK = DBW_EMPTY, NUL = DBE_NULLPARAM;

// Texts sit in heap blocks of exactly their size: the sanitizer build reports any byte read past them.
Buf text(const std::string &s) { return Buf(s.c_str(), s.c_str() + s.size() + 1); }
int ymd(int y, int m, int d) { return y * 10000 + m * 100 + d; }
bool leap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

// Counts the composites that disagree with the parser's status rc: a failure passes on, a blank date (202)
// fails in the second step, and the leap test answers 1 for the blank date's year 0.
int compositesDisagree(char *s, int style, int rc, int y) {
    char out[11], name[10];
    int n, v;
    int bad = DBIsStrLeapYear(s, style) != (rc < 0 ? rc : leap(y));
    if (rc == 0 && y == 0) return bad;  // year 0 has no day of week nor month length
    for (int r : {DBStrDateToLong(&n, s, style), DBStrDateToIntDayWeek(&v, s, style), DBStrDateToMonth(name, s, style),
                  DBStrDateToDayOfWeek(name, s, style), DBDaysInMonthStr(&v, s, style),
                  DBConvertDateStr(out, 4, s, style), DBDaysBetweenStr(&n, s, style, s, style)})
        bad += r != (rc == BLANK ? BAD : rc);
    return bad;
}

// Reference numbers both ways by the average-year rule: a leap year's 31 December can share its number with the
// next 1 January (which the inverse returns), and a common year's end can skip one (which the inverse refuses).
TEST_F(LibTest, DayNumbersFollowTheAverageYearRule) {
    const int ref[][2] = {{10101, 1},         {19000101, 693596}, {19700101, 719163}, {20000101, 730120},
                          {99991231, 3652059}, {20241231, 739251}, {20250101, 739251}, {41231, 1461},
                          {50101, 1461},       {11231, 365},       {20101, 366},       {20001231, 730485}, {101, -364},
                          {51231, 1825},       {60101, 1827}};
    for (int n = 0; const auto &c : ref)
        EXPECT_EQ(V({DBDate3ToLong(&n, c[0] / 10000, c[0] / 100 % 100, c[0] % 100), n}), V({0, c[1]})) << c[0];
    const int back[][2] = {{1, 10101},       {365, 11231},  {1461, 50101},      {1825, 51231},
                           {1826, 0},        {1827, 60101}, {739251, 20250101}, {3652059, 99991231}};  // 0: refused
    for (const auto &c : back) {
        int y = 0, m = 0, d = 0;
        const int rc = DBLongDateTo3(&y, &m, &d, c[0]);
        EXPECT_EQ(V({rc, rc ? 0 : ymd(y, m, d)}), V({c[1] ? 0 : BAD, c[1]})) << c[0];
    }
}

// The triple check of both triple functions, DBDaysInMonth (which refuses year 0) and the leap test, which
// rewrites DBdpm[2] and leaves DBerrno alone.
TEST_F(LibTest, TripleValidityLeapYearsAndMonthLengths) {
    const int cases[][6] = {  // year, month, day, leap, status, days in the month (or its status)
        {2024, 2, 29, 1, 0, 29},   {2023, 2, 29, 0, BAD, 28},  {1900, 2, 29, 0, BAD, 28},  {2000, 2, 29, 1, 0, 29},
        {0, 2, 29, 1, 0, BAD},     {-4, 1, 1, 1, BAD, BAD},    {10000, 1, 1, 1, BAD, BAD}, {9999, 12, 31, 0, 0, 31},
        {100, 2, 1, 0, 0, 28},     {2000, 0, 1, 1, BAD, BAD},  {2000, 13, 1, 1, BAD, BAD}, {2001, 1, 0, 0, BAD, 31},
        {2001, 4, 31, 0, BAD, 30}, {2001, 12, 32, 0, BAD, 31}, {2001, INT32_MAX, 1, 0, BAD, BAD},
        {INT32_MIN, INT32_MIN, INT32_MIN, 1, BAD, BAD}};
    for (const auto &c : cases) {
        int n, days = -1;
        char out[11];
        DBSetErrorCode(12345);
        EXPECT_TRUE(DBIsLeapYear(c[0]) == c[3] && DBdpm[2] == 28 + c[3] && DBerrno == 12345) << c[0];
        const int rc = DBDaysInMonth(&days, c[0], c[1]);
        EXPECT_EQ(V({DBDate3ToLong(&n, c[0], c[1], c[2]), DBDate3ToStr(out, 4, c[0], c[1], c[2]), rc < 0 ? rc : days}),
                  V({c[4], c[4], c[5]})) << c[0] << "-" << c[1] << "-" << c[2];
    }
}

// The parser: blank dates, 20yy with no pivot, Julian days, backslashes only in styles 1-3, single digits and
// inner blanks, fixed positions, lengths as passed, separators. The validity check and the composites agree,
// the caller's text is never changed, a canonical text (p) prints back exactly with nothing past its NUL, and
// for some the composites' values: day number, weekday, day and month names into buffers of exactly the
// longest name, month length, leap year, style 2, and the days to 1 January 2025 either way round.
TEST_F(LibTest, ParserAndComposites) {
    const struct { const char *text; int style, rc, date; bool p = false; const char *want = nullptr; } cases[] = {
        {"  /  /  ", 1, BLANK, 0},         {"   ", 99, BLANK, 0},            {"    /   ", 3, BLANK, 0},
        {"  \\  \\  ", 1, BLANK, 0},        {"  \\  \\  ", 8, BAD, 0},         {"..", 6, BAD, 0},
        {"12/31/99", 1, 0, 20991231, 1},   {"12/31/1999", 2, 0, 19991231, 1}, {"01/01/0099", 2, 0, 990101, 1},
        {"01/01/-1", 1, BAD, 0},           {"1999/365", 3, 0, 19991231, 1},   {"2000/366", 3, 0, 20001231, 1},
        {"1999\\001", 3, 0, 19990101},     {"0000/061", 3, 0, 301, 1},        {"1999/000", 3, BAD, 0},
        {"1999/366", 3, BAD, 0},           {"02\\29\\00", 1, 0, 20000229},    {"02\\29\\00", 8, BAD, 0},
        {"1/2/03", 1, 0, 20030102},        {"01/ 2/03", 1, 0, 20030102},      {"1/2/3/4", 1, 0, 20030102},
        {"1 . 2 .03", 6, BAD, 0},          {"20230229", 4, BAD, 0},           {"2024010", 4, BAD, 0},
        {"202401011", 4, BAD, 0},          {"2024 1 1", 4, 0, 20240101},      {"    1231", 4, 0, 1231},
        {"99991231", 4, 0, 99991231, 1},   {"1/1/1", 1, BAD, 0},              {"     1/1/01", 1, BAD, 0},
        {"01-01-01", 1, BAD, 0},           {"13/01/01", 1, BAD, 0},           {"01/01/01", 0, CMD, 0},
        {"01/01/01", 16, CMD, 0},          {"2024/060", 3, 0, 20240229, 1},   {"290224", 5, 0, 20240229, 1},
        {"29.02.24", 6, 0, 20240229, 1},   {"29.02.2024", 7, 0, 20240229, 1}, {"29/02/24", 8, 0, 20240229, 1},
        {"29/02/2024", 9, 0, 20240229, 1}, {"29/02/24", 10, 0, 20240229, 1},  {"29/02/2024", 11, 0, 20240229, 1},
        {"29-02-24", 12, 0, 20240229, 1},  {"24.02.29", 14, 0, 20240229, 1},  {"2024.02.29", 15, 0, 20240229, 1},
        {"29-02-2024", 13, 0, 20240229, 1, "738945 4 Thursday February 29 1 02/29/2024 306"},
        {"20000101", 4, 0, 20000101, 1, "730120 6 Saturday January 31 1 01/01/2000 9131"},
        {"12/31/24", 1, 0, 20241231, 1, "739251 2 Tuesday December 31 1 12/31/2024 0"},
        {"01.01.2025", 7, 0, 20250101, 1, "739251 2 Tuesday January 31 0 01/01/2025 0"},  // truly a Wednesday
        {"1900/060", 3, 0, 19000301, 1, "693655 4 Thursday March 31 0 03/01/1900 45596"},
        {"23.09.06", 14, 0, 20230906, 1, "738769 3 Wednesday September 30 0 09/06/2023 482"}};
    for (const auto &c : cases) {
        Buf t = text(c.text), out(11, 'X'), day(10), month(10);
        int y = -7, m = -7, d = -7, n, dow, days, ab, ba;
        char *s = t.data(), ref[] = "20250101", got[80];
        EXPECT_EQ(V({DBStrDateTo3(&y, &m, &d, s, c.style), DBerrno, DBIsValidDateStr(s, c.style),
                     c.rc < 0 ? 0 : ymd(y, m, d), compositesDisagree(s, c.style, c.rc, y)}),
                  V({c.rc, c.rc, c.rc, c.date, 0})) << c.text << " " << c.style;
        EXPECT_STREQ(s, c.text);
        if (!c.p) continue;
        EXPECT_EQ(DBDate3ToStr(out.data(), c.style, y, m, d), 0);
        EXPECT_EQ(std::string(out.data(), 11), c.text + std::string(1, 0) + std::string(10 - strlen(c.text), 'X'));
        if (!c.want) continue;
        EXPECT_EQ(V({DBStrDateToLong(&n, s, c.style), DBStrDateToIntDayWeek(&dow, s, c.style),
                     DBStrDateToDayOfWeek(day.data(), s, c.style), DBStrDateToMonth(month.data(), s, c.style),
                     DBDaysInMonthStr(&days, s, c.style), DBConvertDateStr(out.data(), 2, s, c.style),
                     DBDaysBetweenStr(&ab, s, c.style, ref, 4), DBDaysBetweenStr(&ba, ref, 4, s, c.style), ab - ba}),
                  V(9, 0));
        std::snprintf(got, sizeof got, "%d %d %s %s %d %d %s %d", n, dow, day.data(), month.data(), days,
                      DBIsStrLeapYear(s, c.style), out.data(), ab);
        EXPECT_STREQ(got, c.want);
    }
}

// Out-of-range day numbers, names and styles refused with nothing written; NULL pointers.
TEST_F(LibTest, BadNumbersAndNullPointers) {
    for (int n : {0, -1, 3652060, INT32_MIN, INT32_MAX}) {
        int v = 7;
        Buf out(11, 'X');
        EXPECT_EQ(V({DBLongDateTo3(&v, &v, &v, n), DBLongDateToDayOfWeek(&v, n), DBLongDateToStr(out.data(), 4, n),
                     v, out == Buf(11, 'X')}), V({BAD, BAD, BAD, 7, 1})) << n;
    }
    char o[23], s[] = "20240101";
    int v, i = 0;
    EXPECT_EQ(V({DBDayOfWeek(o, 7), DBDayOfWeek(o, -1), DBMonthToStr(o, 0), DBMonthToStr(o, 13), DBGetDateStr(o, 0),
                 DBDate3ToStr(o, 0, 2024, 2, 9), DBDate3ToStr(o, 16, 2024, 2, 9), DBDate3ToStr(o, 0, 2024, 2, 30)}),
              V({BAD, BAD, BAD, BAD, CMD, CMD, CMD, BAD}));  // the date is judged before the style
    // NULL pointers: a few representative calls (each kind of argument, the NULL first or last).
    for (int rc : {DBDate3ToLong(nullptr, 2000, 1, 1), DBLongDateTo3(&v, &v, nullptr, 5),
                   DBStrDateTo3(&v, &v, &v, nullptr, 4), DBDaysBetweenStr(nullptr, nullptr, 99, s, 4),
                   DBConvertDateStr(o, 1, nullptr, 4), DBGetDefaultDateStyle(&v, nullptr), DBGetDateStr(nullptr, 4)})
        EXPECT_EQ(rc, NUL) << "call " << i++;
}

// Every style's name into a buffer of exactly the longest name; success leaves DBerrno alone, a refusal keeps
// the default, and a stored style out of range has no name.
TEST_F(LibTest, DefaultStyle) {
    std::string got;
    for (int s = 1, style = 0; s <= 15; ++s) {
        Buf name(23, 'X');
        DBSetErrorCode(777);
        EXPECT_EQ(V({DBSetDefaultDateStyle(s), DBGetDefaultDateStyle(&style, name.data()), style, DBerrno}),
                  V({0, 0, s, 777}));
        got += std::string(name.data(), strnlen(name.data(), 23)) + ",";
    }
    EXPECT_EQ(got, "Gregorian (mm/dd/yy),Gregorian (mm/dd/yyyy),Julian (yyyy/ddd),dBASE (yyyymmdd),DMY (ddmmyy),"
                   "German (dd.mm.yy),German (dd.mm.yyyy),British (dd/mm/yy),British (dd/mm/yyyy),French (dd/mm/yy),"
                   "French (dd/mm/yyyy),Italian (dd-mm-yy),Italian (dd-mm-yyyy),ENSI (yy.mm.dd),ENSI (yyyy.mm.dd),");
    for (int bad : {0, 16, -1}) EXPECT_TRUE(DBSetDefaultDateStyle(bad) == CMD && DBerrno == CMD && DBdate_style == 15);
    int style = 9;
    char name[23] = "X";
    DBdate_style = 0;  // as before initialisation
    EXPECT_EQ(V({DBGetDefaultDateStyle(&style, name), style, name[0]}), V({CMD, 0, 0}));
}

// A failing step logs under its own file and each composite, date or time, adds an entry under its own;
// warnings and the default-style functions log nothing.
TEST_F(LibTest, FailuresAreLoggedUnderEachFunctionsOwnName) {
    char bad[] = "20241301", blank[] = "  /  /  ", good[] = "20240101", noon[] = "12:00:00", late[] = "25:00:00", o[11];
    const std::string p = logTo("d.log");
    int v;
    const V rcs = {DBStrDateToDayOfWeek(o, bad, 4), DBStrDateToMonth(o, blank, 1), DBDaysInMonthStr(&v, bad, 4),
                   DBConvertDateStr(o, 0, good, 4), DBLongDateToStr(o, 4, 0), DBIsStrLeapYear(bad, 4),
                   DBDaysBetweenStr(&v, good, 4, bad, 4), DBGetDateStr(o, 16), DBIsValidDateStr(blank, 1),
                   DBSetDefaultDateStyle(16), DBGetDefaultDateStyle(&v, nullptr), DBIsValidTimeStr(noon, 1),
                   DBSecondsBetweenStr(nullptr, noon, 1, late, 1), DBSecondsBetweenStr(nullptr, noon, 1, noon, 1),
                   DBGetTimeStr(o, 3)};
    DBErrorLog(0, nullptr);
    EXPECT_EQ(rcs, V({BAD, BAD, BAD, CMD, BAD, BAD, BAD, CMD, BLANK, CMD, NUL, 0, DBE_BADTIME, NUL, CMD}));
    std::string got;
    for (const std::string &l : xbt::readLines(p))
        got += (l.rfind("rdd/xbase/", 0) ? "?" : "") + l.substr(10, l.find('\t') - 10) + l.substr(l.rfind('\t')) + " ";
    EXPECT_EQ(got, "cds2i\t-215 cds2l\t-215 cds2dow\t-215 cds2day\t-215 cdsmonth\t-215 cds2mon\t-215 cds2i\t-215 "
                   "cdsperm\t-215 cdi2s\t-212 cds2s\t-212 cdl2i\t-215 cdl2s\t-215 cds2i\t-215 cdsleap\t-215 "
                   "cds2i\t-215 cds2l\t-215 cdsdiff\t-215 cdi2s\t-212 cdsget\t-212 cts2i\t-216 ctsdiff\t-216 "
                   "ctsdiff\t-221 cti2s\t-212 ctsget\t-212 ");
}

}  // namespace
