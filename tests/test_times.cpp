// test_times.cpp - time texts in both styles: the reprint-and-compare parser, printing, seconds between two
// texts, every time of day, and the local clock that dates and times read.
#include <cstdlib>
#include <ctime>

#include "xbtest.h"

namespace {
using xbt::LibTest;
using V = std::vector<int>;
constexpr int BAD = DBE_BADTIME, CMD = DBE_BADCOMMAND, NUL = DBE_NULLPARAM;

// Texts sit in heap blocks of exactly their length and NUL: the sanitizer build reports any read past them.
std::vector<char> text(const std::string &s) { return std::vector<char>(s.c_str(), s.c_str() + s.size() + 1); }

// The parser keeps what it read even when it refuses the text (-7: nothing read) and the validity check
// agrees; accepted texts print back the same (a blank may stand for the hour's zero); seconds to noon either
// way round, the texts parsed before the output pointer is looked at. Printing judges the time before the
// style, and style 2 drops the seconds.
TEST_F(LibTest, TimeTextsPrintingAndNullPointers) {
    const struct { const char *text; int style, rc, h, m, s; } cases[] = {
        {"09:05:00", 1, 0, 9, 5, 0},      {" 9:05:00", 1, 0, 9, 5, 0},       {"9:05:00 ", 1, BAD, 9, 5, 0},
        {"23:59:59", 1, 0, 23, 59, 59},   {"24:00:00", 1, BAD, 24, 0, 0},    {"12:60:00", 1, BAD, 12, 60, 0},
        {"12:00:60", 1, BAD, 12, 0, 60},  {"12:3:456", 1, BAD, 12, 3, 456},  {"+9:05:00", 1, BAD, 9, 5, 0},
        {"  :  :  ", 1, BAD, 0, 0, 0},    {"1:2345:6", 1, BAD, 1, 2345, 6},  {"09 05 00", 1, BAD, -7, -7, -7},
        {"123456:7", 1, BAD, -7, -7, -7}, {"1:23456:", 1, BAD, -7, -7, -7},  {"9:05:00", 1, BAD, -7, -7, -7},
        {"09:05:000", 1, BAD, -7, -7, -7}, {"0930", 2, 0, 9, 30, 0},         {"2400", 2, BAD, 24, 0, 0},
        {"0960", 2, BAD, 9, 60, 0},       {" 930", 2, BAD, 9, 30, 0},        {"9:30", 2, BAD, 9, 30, 0},
        {"09300", 2, BAD, -7, -7, -7},    {"09:05:00", 3, CMD, -7, -7, -7}};
    char noon[] = "12:00:00", out[9];
    for (const auto &c : cases) {
        auto t = text(c.text);
        int h = -7, m = -7, s = -7, ab = -1, ba = -1;
        EXPECT_EQ(V({DBStrTimeTo3(&h, &m, &s, t.data(), c.style), DBerrno, h, m, s, DBIsValidTimeStr(t.data(), c.style),
                     DBSecondsBetweenStr(nullptr, noon, 1, t.data(), c.style)}),
                  V({c.rc, c.rc, c.h, c.m, c.s, c.rc, c.rc ? c.rc : NUL})) << "\"" << c.text << "\" " << c.style;
        EXPECT_STREQ(t.data(), c.text);
        if (c.rc) continue;
        const int secs = std::abs(c.h * 3600 + c.m * 60 + c.s - 43200);
        EXPECT_EQ(V({DBTime3ToStr(out, c.style, h, m, s), DBSecondsBetweenStr(&ab, t.data(), c.style, noon, 1),
                     DBSecondsBetweenStr(&ba, noon, 1, t.data(), c.style), ab, ba}), V({0, 0, 0, secs, secs}));
        EXPECT_EQ((c.text[0] == ' ' ? " " : "") + std::string(out + (c.text[0] == ' ')), c.text);
    }
    EXPECT_EQ(V({DBTime3ToStr(out, 1, 24, 0, 0), DBTime3ToStr(out, 1, 0, 60, 0), DBTime3ToStr(out, 1, 0, 0, 60),
                 DBTime3ToStr(out, 2, -1, 0, 0), DBTime3ToStr(out, 1, 0, 0, INT32_MIN), DBTime3ToStr(out, 3, 24, 0, 0),
                 DBTime3ToStr(out, 3, 12, 0, 0), DBTime3ToStr(out, 0, 12, 0, 0), DBGetTimeStr(out, 3),
                 DBTime3ToStr(out, 2, 23, 59, 59)}), V({BAD, BAD, BAD, BAD, BAD, BAD, CMD, CMD, CMD, 0}));
    EXPECT_STREQ(out, "2359");
    int v, i = 0;
    for (int rc : {DBTime3ToStr(nullptr, 1, 1, 1, 1), DBStrTimeTo3(&v, &v, &v, nullptr, 1),
                   DBSecondsBetweenStr(&v, noon, 1, nullptr, 1), DBGetTime3(&v, &v, &v, nullptr),
                   DBGetTimeStr(nullptr, 1)})
        EXPECT_EQ(rc, NUL) << "call " << i++;
}

// Today's date and the time of day against the C library's clock, retried if the second changes in between.
TEST_F(LibTest, ClockMatchesTheLocalTime) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t before = time(nullptr);
        int y, mo, d, dow, h, m, s, hs = -1;
        char date[11], t1[9], t2[9], want[64], got[64];
        const V rcs = {DBGetDate3(&y, &mo, &d, &dow), DBGetDateStr(date, 2), DBGetTime3(&h, &m, &s, &hs),
                       DBGetTimeStr(t1, 1), DBGetTimeStr(t2, 2)};
        struct tm a;
        if (before != time(nullptr)) continue;
        strftime(want, sizeof want, "%Y %m %d %w %m/%d/%Y %H %M %S 0 %H:%M:%S %H%M", localtime_r(&before, &a));
        std::snprintf(got, sizeof got, "%04d %02d %02d %d %s %02d %02d %02d %d %s %s", y, mo, d, dow, date, h, m, s,
                      hs, t1, t2);
        EXPECT_EQ(rcs, V(5, 0));
        EXPECT_STREQ(got, want);
        return;
    }
    FAIL() << "the clock kept moving";
}

// Every time of day parses to itself in both styles.
TEST_F(LibTest, EveryTimeOfDay) {
    long unexpected = 0;
    for (int t = 0; t < 86400; ++t) {
        char s1[16], s2[16];
        int h, m, s;
        std::snprintf(s1, sizeof s1, "%02d:%02d:%02d", t / 3600, t / 60 % 60, t % 60);
        std::snprintf(s2, sizeof s2, "%02d%02d", t / 3600, t / 60 % 60);
        unexpected += DBStrTimeTo3(&h, &m, &s, s1, 1) != 0 || h * 3600 + m * 60 + s != t ||
                      DBStrTimeTo3(&h, &m, &s, s2, 2) != 0 || h * 3600 + m * 60 + s != t - t % 60;
    }
    EXPECT_EQ(unexpected, 0);
}
}  // namespace
