// The compound index Harbour wrote over hbcdx.dbf: every tag, opened by name
// and by number, walked both ways, searched in every mode, positioned by
// percentage; its leaves decoded with the public leaf routines. (The key of
// every record made as Harbour made it: CdxBuild, which builds each tag
// afresh from the table.)
#include "cdx_util.h"

#include <cstdarg>
#include <map>
#include <set>

extern int g_logging;

namespace {
extern std::string g_debug;
}

// The host's diagnostic hook, as a program that wants the dumps supplies it.
extern "C" int vorn_debugf(const char *fmt, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    const int n = std::vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    g_debug += buf;
    return n;
}

using cdx::cs;
using cdx::KeyLine;

namespace {

class CdxFixture : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        DBSetDefaultDateStyle(4);
        file = fixture("hbcdx.cdx");
        ASSERT_EQ(DBfpOpenIndex(&h, cs(file.c_str()), 0), 0);
    }
    int openTag(const cdx::Tag &t, bool lower = false) {
        int tag = -1;
        const std::string name = lower ? std::string(t.name) : cdx::upper(t.name);
        EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs(name.c_str())), 0) << t.name;
        EXPECT_EQ(DBfpSetDefaultKeyType(tag, t.type), 0);
        return tag;
    }
    std::string file;
    int h = -1;
};

TEST_F(CdxFixture, WalksEveryTagBothWaysOpenedByNameAndByNumber) {
    std::map<std::string, const cdx::Tag *> byExpr;  // expression, "u" when unique: the tag
    for (const cdx::Tag &t : cdx::kTags) {
        const int tag = openTag(t, true);
        const std::vector<KeyLine> want = cdx::expected(t);
        EXPECT_TRUE(idx::same(cdx::walk(tag, true), want)) << std::string(t.name) + " forward";
        EXPECT_TRUE(idx::same(cdx::walk(tag, false), want)) << std::string(t.name) + " backward";
        cdx::expectSound(tag, want.size(), t.name, 0);
        char expr[256];
        const idx::KeyDump d = idx::readDump(std::string("hbcdx_") + t.name + ".keys.txt");
        ASSERT_EQ(DBfpGetIndexKeyExpr(tag, expr), 0);
        EXPECT_EQ(std::string(expr), d.expr);
        byExpr[d.expr + (d.unique ? "u" : "")] = &t;
        ASSERT_EQ(DBfpCloseTag(tag), 0);
    }
    // By number, in order of creation: six different tags, each as its dump;
    // a tag open already is not opened again.
    std::set<const cdx::Tag *> seen;
    for (int n = 1; n <= 6; n++) {
        int tag = -1, again = 12345;
        ASSERT_EQ(DBfpOpenTag(&tag, h, n), 0) << n;
        EXPECT_EQ(tag >> 16, n);
        DBFBINDEXINFO info;
        ASSERT_EQ(DBfbGetIndexInfo(tag, &info), 0);
        const cdx::Tag *t = byExpr[std::string(info.expr) + ((info.ftype & 1) ? "u" : "")];
        ASSERT_TRUE(t && seen.insert(t).second) << info.expr;
        ASSERT_EQ(DBfpSetDefaultKeyType(tag, t->type), 0);
        EXPECT_TRUE(idx::same(cdx::walk(tag), cdx::expected(*t))) << std::string(t->name) + " by number";
        EXPECT_EQ(DBfpOpenTag(&again, h, n), 0);
        EXPECT_EQ(again, 12345);
    }
    int tag = -1;
    EXPECT_EQ(DBfpOpenTag(&tag, h, 7), DBE_TAGCOUNT);
    EXPECT_EQ(DBfpCloseIndex(h), 0);
}

// What each mode answers for an entry of the list: the search key is
// present from index first to end - 1 (first == end: absent, first is then
// the first greater entry). Returns the status and the index reached.
std::pair<int, size_t> modeAnswer(int mode, size_t first, size_t end, size_t n) {
    const bool found = first < end, past = first >= n;
    const size_t last = n - 1;
    switch (mode) {
    case 1: case 13:
        if (found) return {0, first};
        if (past) return {mode == 1 ? DBW_KEYNOTFOUND : DBW_NOMOREKEYS, last};
        return {DBW_KEYNOTFOUND, first};
    case 3:
        return {DBW_KEYNOTFOUND, end < n ? end : last};
    case 11:
        if (found) return first > 0 ? std::make_pair(0, first - 1) : std::make_pair(DBW_NOMOREKEYS, first);
        if (past) return {DBW_NOMOREKEYS, last};
        return {0, first};
    case 12:
        if (past) return {DBW_NOMOREKEYS, last};
        return {0, first};
    case 14:
        if (found) return {0, first};
        if (past) return {0, last};
        return first + 1 < n ? std::make_pair(0, first + 1) : std::make_pair(DBW_NOMOREKEYS, first);
    case 15:
        return end < n ? std::make_pair(DBW_KEYNOTFOUND, end) : std::make_pair(0, last);
    }
    return {-1, 0};
}

// Each entry by key and record; each key, and a key just above it (last
// byte + 1), in every mode, the current entry left where the mode says; a
// prefix finds the first key that begins with it; percentages.
TEST_F(CdxFixture, SearchesEveryModeForEveryKeyAndPercentages) {
    for (const cdx::Tag &t : cdx::kTags) {
        SCOPED_TRACE(t.name);
        const int tag = openTag(t);
        int p = -1, prev = -1;
        ASSERT_EQ(DBfpGetKeyPercent(tag, &p), DBW_KEYNOTFOUND) << "no current key yet";
        const size_t k = static_cast<size_t>(cdx::keylen(tag));
        const std::vector<KeyLine> want = cdx::expected(t);
        const size_t n = want.size();
        for (size_t i = 0; i < n; i++) {
            const idx::Hit both = idx::search(DBfpKeySearch, tag, want[i].key, 2, k, want[i].rec);
            ASSERT_EQ(both.rc, 0) << i;
            EXPECT_EQ(both.rec, want[i].rec) << i;
            EXPECT_EQ(both.key, want[i].key) << i;
            for (int variant = 0; variant < 2; variant++) {
                std::string key = want[i].key;
                if (variant == 1 && static_cast<uint8_t>(key.back()) >= 0xFE) continue;
                if (variant == 1) key.back() = static_cast<char>(key.back() + 1);
                size_t first = 0;
                while (first < n && want[first].key < key) first++;
                size_t end = first;
                while (end < n && want[end].key == key) end++;
                for (int mode : {1, 3, 11, 12, 13, 14, 15}) {
                    const auto [rc, at] = modeAnswer(mode, first, end, n);
                    const idx::Hit got = idx::search(DBfpKeySearch, tag, key, mode, k);
                    const std::string what = "mode " + std::to_string(mode) + " entry " + std::to_string(i) +
                                             (variant ? " and above" : "");
                    ASSERT_EQ(got.rc, rc) << what;
                    EXPECT_EQ(got.rec, want[at].rec) << what;
                    EXPECT_EQ(got.key, want[at].key) << what;
                    char buf[256];
                    int32_t cur = 0;
                    ASSERT_EQ(DBfpGetCurrentKey(tag, buf, &cur), 0);
                    EXPECT_EQ(cur, want[at].rec) << what;
                }
            }
            if (t.type != 'C' || i % 5 != 0) continue;
            for (size_t len : {size_t{1}, size_t{3}, k - 1}) {
                const std::string pre = want[i].key.substr(0, len);
                size_t at = 0;
                while (want[at].key.compare(0, len, pre) != 0) at++;
                const idx::Hit got = idx::search(DBfpKeySearch, tag, pre, 1, k);
                ASSERT_EQ(got.rc, 0) << "prefix '" << pre << "'";
                EXPECT_EQ(got.rec, want[at].rec) << "prefix '" << pre << "'";
            }
        }
        // Below every key.
        const idx::Hit low = idx::search(DBfpKeySearch, tag, t.type == 'C' ? "\x01" : std::string(k, '\0'), 1, k);
        ASSERT_EQ(low.rc, DBW_KEYNOTFOUND);
        EXPECT_EQ(low.rec, want.front().rec);
        // Percentages run from 0 to 100 along the walk, and a key reached by
        // percentage reads back close to it.
        char key[256];
        int32_t rec = 0;
        int rc = DBfpGoFirstKey(tag, key, &rec);
        for (size_t i = 0; rc == 0; i++) {
            ASSERT_EQ(DBfpGetKeyPercent(tag, &p), 0);
            if (i == 0) EXPECT_EQ(p, 0);
            if (i + 1 == want.size()) EXPECT_EQ(p, 100);
            EXPECT_GE(p, prev) << "entry " << i;
            prev = p;
            rc = DBfpGoNextKey(tag, key, &rec);
        }
        ASSERT_EQ(rc, DBW_NOMOREKEYS);
        size_t last = 0;
        for (int q = 0; q <= 100; q += 5) {
            ASSERT_EQ(DBfpGetKeyAtPercent(tag, q, key, &rec), 0);
            size_t at = 0;
            while (at < want.size() && want[at].rec != rec) at++;
            ASSERT_LT(at, want.size());
            EXPECT_GE(at, last) << "percent " << q;
            last = at;
            // Read back, the percentage is close to the one asked for.
            ASSERT_EQ(DBfpGetKeyPercent(tag, &p), 0);
            EXPECT_NEAR(p, q, 12);
            if (q == 0) EXPECT_EQ(rec, want.front().rec);
            if (q == 100) EXPECT_EQ(rec, want.back().rec);
        }
        ASSERT_EQ(DBfpCloseTag(tag), 0);
    }
}

// Every leaf of every tag, found by reading the file, decoded with the leaf
// routines: the entries are the dump's, and the stored lengths add up with
// the free-space field.
TEST_F(CdxFixture, LeafRoutinesDecodeEveryLeafAndAccountForItsBytes) {
    const std::vector<uint8_t> f = xbt::readFile(file);
    // The directory: tag names and header offsets.
    std::map<std::string, uint32_t> headers;
    {
        char key[64];
        int32_t rec = 0;
        for (int rc = DBfpGoFirstKey(h, key, &rec); rc == 0; rc = DBfpGoNextKey(h, key, &rec)) {
            std::string name(key);
            while (!name.empty() && name.back() == ' ') name.pop_back();
            headers[name] = static_cast<uint32_t>(rec);
        }
    }
    ASSERT_EQ(headers.size(), 6u);
    for (const cdx::Tag &t : cdx::kTags) {
        const int tag = openTag(t);
        const uint32_t hdr = headers[cdx::upper(t.name)];
        const int k = cdx::le16(f, hdr + 12);
        std::vector<uint32_t> pages;
        cdx::leaves(f, cdx::le32(f, hdr), k, pages);
        std::vector<KeyLine> got;
        for (uint32_t p : pages) {
            char page[512], key[256];
            std::memcpy(page, f.data() + p, 512);
            const int n = cdx::le16(f, p + 2), B = f[p + 23];
            int sum = 0;
            ASSERT_EQ(DBfpCalculateCurrentKeyLengthsInBuffer(tag, page, &sum), 0);
            EXPECT_EQ(cdx::le16(f, p + 12), 488 - n * B - sum) << t.name << " page " << p;
            char *next = nullptr;
            ASSERT_EQ(DBfpCalculateNextKeyPositionInBuffer(tag, page, &next), 0);
            EXPECT_EQ(next, page + 512 - sum);
            // Masks agree with widths in every leaf Harbour wrote.
            EXPECT_EQ(cdx::le32(f, p + 14), (1u << f[p + 20]) - 1);
            DBfpib = nullptr;
            int32_t rec = 0;
            int count = 0, rc;
            char prev[256] = {};
            while ((rc = DBfpGetCurKeyFromPage(tag, page, key, &rec)) == 0) {
                got.push_back({rec, std::string(key, static_cast<size_t>(k))});
                EXPECT_EQ(DBfplen, k - DBfpdup - DBfptrail);
                // Packing the counts and the record again gives the entry's
                // bytes; the counts are the ones a key after its
                // predecessor gets.
                const int16_t dup = DBfpdup, trail = DBfptrail;
                char *entry = DBfpib;
                ASSERT_EQ(DBfpBuildDupTrail2(tag, page, rec), 0);
                EXPECT_EQ(std::memcmp(DBfpitem.keydupcnt, entry, static_cast<size_t>(B)), 0) << t.name << " entry " << count;
                const int32_t be = static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(rec)));
                ASSERT_EQ(DBfpBuildDupTrail(tag, page, be), 0);
                EXPECT_EQ(std::memcmp(DBfpitem.keydupcnt, entry, static_cast<size_t>(B)), 0);
                if (count > 0) {
                    ASSERT_EQ(DBfpGetDupTrail(tag, prev, key, 0), 0);
                    EXPECT_EQ(DBfpdup, dup) << t.name << " entry " << count;
                    EXPECT_EQ(DBfptrail, trail);
                    EXPECT_EQ(DBfpnodup, 0);
                }
                DBfpdup = dup;
                DBfptrail = trail;
                std::memcpy(prev, key, sizeof prev);
                count++;
            }
            EXPECT_EQ(rc, DBW_NOMOREKEYS);
            EXPECT_EQ(count, n);
            EXPECT_EQ(DBfpkt, page + 512 - sum);
            if (n > 0) {
                // The insert position of the page's first key is 0, of a key
                // above every one the count.
                DBFPINSERTPOS pos;
                ASSERT_EQ(DBfpFIndInsertPosition(tag, page, cs(got[got.size() - static_cast<size_t>(n)].key.c_str()), &pos), 0);
                EXPECT_EQ(pos.index, 0);
                std::string top(static_cast<size_t>(k), '\xFF');
                ASSERT_EQ(DBfpFIndInsertPosition(tag, page, cs(top.c_str()), &pos), 0);
                EXPECT_EQ(pos.index, n);
                EXPECT_EQ(pos.before, sum);
                EXPECT_EQ(pos.keyarea, 512 - sum);
            }
        }
        EXPECT_TRUE(idx::same(got, cdx::expected(t))) << std::string(t.name) + " leaves";
        ASSERT_EQ(DBfpCloseTag(tag), 0);
    }
}

// Keys and values: numbers order as bytes and come back, dates count days as
// FoxPro does, at the ends of their range. (The stored forms of the values
// in between are the ones Harbour wrote: every walk above compares them.)
TEST(CdxKeys, NumbersAndDatesInKeyForm) {
    ASSERT_EQ(DBInitialize(20, 4), 0);
    const double values[] = {-1e300, -0.5, -0.0, 0.0, 1e-300, 12345.5, 1e300};
    std::string prev;
    for (double v : values) {
        char k[9];
        ASSERT_EQ(DBfpDoubleToKey(k, v), 0);
        double back = 7;
        ASSERT_EQ(DBfpKeyToDouble(&back, k), 0);
        EXPECT_EQ(std::signbit(back), std::signbit(v));
        EXPECT_EQ(back, v);
        const std::string s(k, 8);
        EXPECT_LT(prev, s) << v;
        prev = s;
    }
    char k[9];
    struct { const char *date; double day; } dates[] = {
        {"20000101", 2451545}, {"00010101", 1721411}, {"99991231", 5373544}, {"", 0}};
    for (const auto &d : dates) {
        ASSERT_EQ(DBfpDateToKey(k, cs(d.date)), 0) << d.date;
        double v = -1;
        DBfpKeyToDouble(&v, k);
        EXPECT_EQ(v, d.day) << d.date;
        char back[16] = "x";
        ASSERT_EQ(DBfpKeyToDate(back, k), 0);
        EXPECT_STREQ(back, d.date);
    }
    EXPECT_EQ(DBfpDateToKey(k, cs("20260230")), DBE_BADDATE);
    DBfpDoubleToKey(k, 2.5);
    char out[16];
    EXPECT_EQ(DBfpKeyToDate(out, k), DBE_BADDATE);
    EXPECT_EQ(DBfpDoubleToKey(nullptr, 1.0), DBE_NULLPARAM);
    EXPECT_EQ(DBfpKeyToDate(nullptr, k), DBE_NULLPARAM);
    DBTerminate();
}

// The leaf dump prints through the host's vorn_debugf; so does the lock
// trace while g_logging is on.
std::string g_debug;

TEST_F(CdxFixture, LeafDumpAndLockTracePrintThroughTheHostHook) {
    int tag = openTag(cdx::kTags[0]);
    const std::vector<uint8_t> f = xbt::readFile(file);
    char page[512];
    std::memcpy(page, f.data() + 0x400, 512);  // the directory's root leaf
    g_debug.clear();
    ASSERT_EQ(DBfpDumpLeaf(h, page), 0);
    EXPECT_NE(g_debug.find("numberofkeys=6\n"), std::string::npos) << g_debug;
    EXPECT_NE(g_debug.find("recnummask=ffff\n"), std::string::npos);
    EXPECT_NE(g_debug.find("numberofbytesfor_recnum_duplicate_trailing=3\n"), std::string::npos);
    EXPECT_NE(g_debug.find("key='BYAMOUNT  '"), std::string::npos);
    std::memcpy(page, f.data(), 512);
    EXPECT_EQ(DBfpDumpLeaf(h, page), DBE_CORRUPT) << "a header is no leaf";
    g_logging = 1;
    g_debug.clear();
    EXPECT_EQ(DBfpLockIndex(tag, 0, cs("caller.c"), 42), 0);
    EXPECT_NE(g_debug.find("caller.c:42"), std::string::npos) << g_debug;
    g_logging = 0;
    EXPECT_EQ(DBfpUnLockIndex(tag, nullptr, 0), 0);
}

}  // namespace
