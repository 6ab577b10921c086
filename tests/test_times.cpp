// test_times.cpp - time texts in both styles: printing, the reprint-and-
// compare parser, the distance between two texts, the local clock, and
// hostile input.
#include "xbtest.h"

#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using xbt::LibTest;

// A caller's buffer of exactly n bytes on the heap, so the sanitizer build
// reports any byte written past it.
struct Exact {
    explicit Exact(size_t n) : p(new char[n]), n(n) { std::memset(p.get(), 'X', n); }
    char *get() { return p.get(); }
    std::string str() const { return std::string(p.get(), strnlen(p.get(), n)); }
    std::unique_ptr<char[]> p;
    size_t n;
};

struct Text {
    explicit Text(const std::string &s) : p(new char[s.size() + 1]) {
        std::memcpy(p.get(), s.c_str(), s.size() + 1);
    }
    char *get() { return p.get(); }
    std::unique_ptr<char[]> p;
};

TEST_F(LibTest, TripleToTimeText) {
    struct Case {
        int style, h, m, s, rc;
        const char *text;
    };
    const Case cases[] = {
        {1, 9, 5, 0, 0, "09:05:00"},
        {1, 23, 59, 59, 0, "23:59:59"},
        {1, 0, 0, 0, 0, "00:00:00"},
        {2, 9, 30, 0, 0, "0930"},
        {2, 23, 59, 59, 0, "2359"},  // style 2 has no seconds
        {1, 24, 0, 0, DBE_BADTIME, nullptr},
        {1, 12, 60, 0, DBE_BADTIME, nullptr},
        {1, 12, 0, 60, DBE_BADTIME, nullptr},
        {2, -1, 0, 0, DBE_BADTIME, nullptr},
        {1, 0, -1, 0, DBE_BADTIME, nullptr},
        {1, 0, 0, INT32_MIN, DBE_BADTIME, nullptr},
        {3, 24, 0, 0, DBE_BADTIME, nullptr},  // the time is judged before the style
        {3, 12, 0, 0, DBE_BADCOMMAND, nullptr},
        {0, 12, 0, 0, DBE_BADCOMMAND, nullptr},
        {-1, 12, 0, 0, DBE_BADCOMMAND, nullptr},
    };
    for (const Case &c : cases) {
        Exact out(9);
        EXPECT_EQ(DBTime3ToStr(out.get(), c.style, c.h, c.m, c.s), c.rc)
            << c.style << " " << c.h << ":" << c.m << ":" << c.s;
        EXPECT_EQ(DBerrno, c.rc);
        if (c.text) {
            EXPECT_EQ(out.str(), c.text);
            for (size_t i = std::strlen(c.text) + 1; i < 9; ++i) EXPECT_EQ(out.get()[i], 'X');
        }
    }
    EXPECT_EQ(DBTime3ToStr(nullptr, 1, 1, 1, 1), DBE_NULLPARAM);
}

TEST_F(LibTest, TimeParser) {
    struct Case {
        const char *text;
        int style, rc;
        int h, m, s;  // checked whenever the pieces were read
        bool read;
    };
    const Case cases[] = {
        {"09:05:00", 1, 0, 9, 5, 0, true},
        {" 9:05:00", 1, 0, 9, 5, 0, true},  // a blank for the hour's leading zero
        {"9:05:00 ", 1, DBE_BADTIME, 9, 5, 0, true},
        {"23:59:59", 1, 0, 23, 59, 59, true},
        {"00:00:00", 1, 0, 0, 0, 0, true},
        {"24:00:00", 1, DBE_BADTIME, 24, 0, 0, true},  // values stay in the outputs
        {"12:60:00", 1, DBE_BADTIME, 12, 60, 0, true},
        {"12:00:60", 1, DBE_BADTIME, 12, 0, 60, true},
        {"12:3:456", 1, DBE_BADTIME, 12, 3, 456, true},
        {"+9:05:00", 1, DBE_BADTIME, 9, 5, 0, true},
        {"  :  :  ", 1, DBE_BADTIME, 0, 0, 0, true},
        {"09 05 00", 1, DBE_BADTIME, 0, 0, 0, false},
        {"12:00-00", 1, DBE_BADTIME, 0, 0, 0, false},
        {"123456:7", 1, DBE_BADTIME, 0, 0, 0, false},  // no second colon after the first
        {"1:23456:", 1, DBE_BADTIME, 0, 0, 0, false},  // the second colon is 6 beyond
        {"1:2345:6", 1, DBE_BADTIME, 1, 2345, 6, true},  // 5 beyond is still found
        {"1:234:56", 1, DBE_BADTIME, 1, 234, 56, true},
        {"9:05:00", 1, DBE_BADTIME, 0, 0, 0, false},
        {"09:05:000", 1, DBE_BADTIME, 0, 0, 0, false},
        {"", 1, DBE_BADTIME, 0, 0, 0, false},
        {"0930", 2, 0, 9, 30, 0, true},
        {"2359", 2, 0, 23, 59, 0, true},
        {"2400", 2, DBE_BADTIME, 24, 0, 0, true},
        {"0960", 2, DBE_BADTIME, 9, 60, 0, true},
        {" 930", 2, DBE_BADTIME, 9, 30, 0, true},  // style 2 allows no blank
        {"9:30", 2, DBE_BADTIME, 9, 30, 0, true},
        {"09300", 2, DBE_BADTIME, 0, 0, 0, false},
        {"930", 2, DBE_BADTIME, 0, 0, 0, false},
        {"09:30:00", 2, DBE_BADTIME, 0, 0, 0, false},
        {"0930", 1, DBE_BADTIME, 0, 0, 0, false},
        {"09:05:00", 3, DBE_BADCOMMAND, 0, 0, 0, false},
        {"0930", 0, DBE_BADCOMMAND, 0, 0, 0, false},
    };
    for (const Case &c : cases) {
        Text t(c.text);
        int h = -7, m = -7, s = -7;
        EXPECT_EQ(DBStrTimeTo3(&h, &m, &s, t.get(), c.style), c.rc) << "\"" << c.text << "\" " << c.style;
        EXPECT_EQ(DBerrno, c.rc);
        if (c.read) {
            EXPECT_EQ(h, c.h) << c.text;
            EXPECT_EQ(m, c.m) << c.text;
            EXPECT_EQ(s, c.s) << c.text;
        }
        EXPECT_EQ(DBIsValidTimeStr(t.get(), c.style), c.rc) << c.text;
        EXPECT_STREQ(t.get(), c.text);
    }
    int h, m, s;
    char text[] = "09:05:00";
    EXPECT_EQ(DBStrTimeTo3(nullptr, &m, &s, text, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBStrTimeTo3(&h, nullptr, &s, text, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBStrTimeTo3(&h, &m, nullptr, text, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBStrTimeTo3(&h, &m, &s, nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBIsValidTimeStr(nullptr, 1), DBE_NULLPARAM);
}

TEST_F(LibTest, EveryTimeOfDayRoundTrips) {
    long mismatch = 0;
    for (int t = 0; t < 86400; ++t) {
        const int h = t / 3600, m = t / 60 % 60, s = t % 60;
        char text[9];
        int h2 = -1, m2 = -1, s2 = -1;
        if (DBTime3ToStr(text, 1, h, m, s) != 0 || DBStrTimeTo3(&h2, &m2, &s2, text, 1) != 0 ||
            h2 != h || m2 != m || s2 != s)
            ++mismatch;
        if (s == 0 && (DBTime3ToStr(text, 2, h, m, s) != 0 ||
                       DBStrTimeTo3(&h2, &m2, &s2, text, 2) != 0 || h2 != h || m2 != m || s2 != 0))
            ++mismatch;
    }
    EXPECT_EQ(mismatch, 0);
}

TEST_F(LibTest, SecondsBetweenTimeTexts) {
    struct Case {
        const char *a;
        int sa;
        const char *b;
        int sb;
        int32_t seconds;
    };
    const Case cases[] = {
        {"23:00:00", 1, "01:00:00", 1, 79200},
        {"0930", 2, "09:30:15", 1, 15},
        {"00:00:00", 1, "23:59:59", 1, 86399},
        {" 1:02:03", 1, "01:02:03", 1, 0},
    };
    for (const Case &c : cases) {
        Text a(c.a), b(c.b);
        int32_t d = -1;
        EXPECT_EQ(DBSecondsBetweenStr(&d, a.get(), c.sa, b.get(), c.sb), 0) << c.a;
        EXPECT_EQ(d, c.seconds);
        d = -1;
        EXPECT_EQ(DBSecondsBetweenStr(&d, b.get(), c.sb, a.get(), c.sa), 0) << c.a;
        EXPECT_EQ(d, c.seconds);
    }
    char good[] = "12:00:00", bad[] = "12:00:0x";
    int32_t d = 5;
    // The texts are parsed before the output is checked.
    EXPECT_EQ(DBSecondsBetweenStr(nullptr, bad, 1, good, 1), DBE_BADTIME);
    EXPECT_EQ(DBSecondsBetweenStr(nullptr, good, 1, bad, 1), DBE_BADTIME);
    EXPECT_EQ(DBSecondsBetweenStr(nullptr, good, 1, good, 5), DBE_BADCOMMAND);
    EXPECT_EQ(DBSecondsBetweenStr(nullptr, good, 1, good, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBSecondsBetweenStr(&d, nullptr, 1, good, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBSecondsBetweenStr(&d, good, 1, nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(d, 5);
}

TEST_F(LibTest, SecondsBetweenLogsItsOwnFailure) {
    char logname[30] = {};
    const std::string p = path("t.log");
    ASSERT_LT(p.size(), sizeof logname);
    std::strcpy(logname, p.c_str());
    DBErrorLog(1, logname);
    char good[] = "12:00:00", bad[] = "25:00:00";
    EXPECT_EQ(DBSecondsBetweenStr(nullptr, good, 1, bad, 1), DBE_BADTIME);
    EXPECT_EQ(DBIsValidTimeStr(good, 1), 0);
    EXPECT_EQ(DBSecondsBetweenStr(nullptr, good, 1, good, 1), DBE_NULLPARAM);
    DBErrorLog(0, nullptr);
    const auto lines = xbt::readLines(p);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].rfind("rdd/xbase/cts2i\t", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind("rdd/xbase/ctsdiff\t", 0), 0u) << lines[1];
    EXPECT_EQ(lines[2].rfind("rdd/xbase/ctsdiff\t", 0), 0u) << lines[2];
    EXPECT_EQ(lines[0].substr(lines[0].rfind('\t') + 1), "-216");
    EXPECT_EQ(lines[2].substr(lines[2].rfind('\t') + 1), "-221");
    EXPECT_NE(lines[1], lines[2]);  // distinct failure points
}

TEST_F(LibTest, NowMatchesTheLocalClock) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t before = time(nullptr);
        int h, m, s, hs = -1;
        Exact t1(9), t2(9);
        ASSERT_EQ(DBGetTime3(&h, &m, &s, &hs), 0);
        const int r1 = DBGetTimeStr(t1.get(), 1);
        const int r2 = DBGetTimeStr(t2.get(), 2);
        const time_t after = time(nullptr);
        if (before != after) continue;  // the second changed under us
        struct tm a;
        localtime_r(&before, &a);
        if (a.tm_sec > 59) continue;  // a leap second cannot be printed
        ASSERT_EQ(r1, 0);
        ASSERT_EQ(r2, 0);
        EXPECT_EQ(h, a.tm_hour);
        EXPECT_EQ(m, a.tm_min);
        EXPECT_EQ(s, a.tm_sec);
        EXPECT_EQ(hs, 0);
        char w1[16], w2[16];
        strftime(w1, sizeof w1, "%H:%M:%S", &a);
        strftime(w2, sizeof w2, "%H%M", &a);
        EXPECT_EQ(t1.str(), w1);
        EXPECT_EQ(t2.str(), w2);
        return;
    }
    FAIL() << "the clock kept moving";
}

TEST_F(LibTest, NowBadArguments) {
    int h, m, s, hs;
    EXPECT_EQ(DBGetTime3(nullptr, &m, &s, &hs), DBE_NULLPARAM);
    EXPECT_EQ(DBGetTime3(&h, nullptr, &s, &hs), DBE_NULLPARAM);
    EXPECT_EQ(DBGetTime3(&h, &m, nullptr, &hs), DBE_NULLPARAM);
    EXPECT_EQ(DBGetTime3(&h, &m, &s, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBGetTimeStr(nullptr, 1), DBE_NULLPARAM);
    char out[9];
    EXPECT_EQ(DBGetTimeStr(out, 3), DBE_BADCOMMAND);
}

// Random, over-long and extreme texts: every answer is a known status, and
// every accepted text reprints to itself (with a blank standing for the
// hour's leading zero).
TEST_F(LibTest, GarbageTimeTexts) {
    std::mt19937 rng(86399);
    const char alphabet[] = "0123456789:: -+x\t\xff";
    std::vector<std::string> texts = {
        std::string(1000, ':'), std::string(1000, '9'), "-9999:::", "99999:0:", ":::::::0",
        "2147483647", "-2147483648:0:0", "0:0:0:0:", "1:1:1111", "0000", "-1-1", "\x01\x02\x03\x04",
    };
    for (int i = 0; i < 40000; ++i) {
        std::string s;
        const int len = static_cast<int>(rng() % 11);
        for (int k = 0; k < len; ++k) s += alphabet[rng() % (sizeof alphabet - 1)];
        texts.push_back(s);
    }
    long unexpected = 0, accepted = 0;
    for (const std::string &s : texts) {
        Text t(s);
        for (int style = -1; style <= 3; ++style) {
            int h, m, sec;
            const int rc = DBStrTimeTo3(&h, &m, &sec, t.get(), style);
            if (rc != 0 && rc != DBE_BADTIME && rc != DBE_BADCOMMAND) ++unexpected;
            int32_t d;
            const int rd = DBSecondsBetweenStr(&d, t.get(), style, t.get(), style);
            if ((rc == 0) != (rd == 0) || (rd == 0 && d != 0)) ++unexpected;
            if (rc != 0) continue;
            ++accepted;
            Exact out(9);
            if (DBTime3ToStr(out.get(), style, h, m, sec) != 0) {
                ++unexpected;
                continue;
            }
            std::string again = out.str();
            if (s[0] == ' ') again[0] = ' ';
            if (again != s) ++unexpected;
        }
    }
    EXPECT_EQ(unexpected, 0);
    EXPECT_GT(accepted, 0);
}

}  // namespace
