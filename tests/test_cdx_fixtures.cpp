// The compound index Harbour wrote over hbcdx.dbf, read through the public
// calls. (Each record's key made as Harbour made it: CdxBuild.)
#include "cdx_util.h"

#include <cstdarg>
#include <map>

extern int g_logging;

namespace {
// What the host's diagnostic hook below was given.
std::string g_debug;
}  // namespace

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

class CdxFixture : public cdx::Suite {
protected:
    void SetUp() override {
        cdx::Suite::SetUp();
        file = fixture("hbcdx.cdx");
        ASSERT_EQ(DBfpOpenIndex(&h, cs(file.c_str()), 0), 0);
    }
    std::string file;
    int h = -1;
};

// What each mode answers for a key whose equal entries are [lo, hi) of the
// n in index order (lo == hi: absent, lo the first greater entry, or n
// when the key is past every one and the position stays on the last).
std::vector<idx::ModeAnswer> modeAnswers(size_t lo, size_t hi, size_t n) {
    const bool found = hi > lo, past = lo == n;
    const size_t at = past ? n - 1 : lo, after = hi < n ? hi : n - 1;
    return {{1, found ? 0 : DBW_KEYNOTFOUND, at},
            {3, DBW_KEYNOTFOUND, after},
            // 11: the entry before the one found, else the greater entry.
            {11, found ? (lo > 0 ? 0 : DBW_NOMOREKEYS) : past ? DBW_NOMOREKEYS : 0, found && lo > 0 ? lo - 1 : at},
            {12, past ? DBW_NOMOREKEYS : 0, at},
            {13, found ? 0 : past ? DBW_NOMOREKEYS : DBW_KEYNOTFOUND, at},
            // 14: the entry found, else the one after the greater entry.
            {14, found || past || lo + 1 < n ? 0 : DBW_NOMOREKEYS, found || past || lo + 1 == n ? at : lo + 1},
            {15, hi < n ? DBW_KEYNOTFOUND : 0, after}};
}

// Every tag opened by number, in order of creation (its expression and
// unique flag the ones kTags lists), walking like its dump both ways; a tag open already is not
// opened again, by number or by name. Each entry by key and record; each
// key, and a key just above it (last byte + 1), in every mode, the current
// entry left where the mode says; a prefix finds the first key that begins
// with it; percentages.
TEST_F(CdxFixture, EveryTagByNumberWalksAndSearchesInEveryMode) {
    for (int number = 1; number <= 6; number++) {
        const cdx::Tag &t = cdx::kTags[number - 1];
        SCOPED_TRACE(t.name);
        int tag = -1, again = 12345;
        ASSERT_EQ(DBfpOpenTag(&tag, h, number), 0);
        EXPECT_EQ(tag >> 16, number);
        char expr[256];
        ASSERT_EQ(DBfpGetIndexKeyExpr(tag, expr), 0);
        EXPECT_STREQ(expr, t.expr);
        DBFBINDEXINFO info;
        ASSERT_EQ(DBfbGetIndexInfo(tag, &info), 0);
        EXPECT_EQ(info.ftype & 1, t.unique);
        EXPECT_EQ(DBfpOpenTag(&again, h, number), 0);
        EXPECT_EQ(again, 12345);
        EXPECT_EQ(DBfpOpenNamedTag(&again, h, cs(t.name)), DBE_TAGINUSE);
        ASSERT_EQ(DBfpSetDefaultKeyType(tag, t.type), 0);
        int p = -1;
        ASSERT_EQ(DBfpGetKeyPercent(tag, &p), DBW_KEYNOTFOUND) << "no current key yet";
        const size_t k = static_cast<size_t>(cdx::keylen(tag));
        const std::vector<KeyLine> want = cdx::expected(t);
        EXPECT_TRUE(idx::same(cdx::walk(tag, true), want)) << "forward";
        EXPECT_TRUE(idx::same(cdx::walk(tag, false), want)) << "backward";
        cdx::expectSound(tag, want.size(), t.name, 0);
        const size_t n = want.size();
        idx::expectFound(cdx::kFam, tag, want, k, 1);
        for (size_t i = 0; i < n; i++) {
            for (bool above : {false, true}) {
                std::string key = want[i].key;
                if (above && static_cast<uint8_t>(key.back()) >= 0xFE) continue;
                if (above) key.back() = static_cast<char>(key.back() + 1);
                size_t lo = 0;
                while (lo < n && want[lo].key < key) lo++;
                size_t hi = lo;
                while (hi < n && want[hi].key == key) hi++;
                for (const idx::ModeAnswer &m : modeAnswers(lo, hi, n)) {
                    const idx::Hit got = idx::search(DBfpKeySearch, tag, key, m.mode, k);
                    const std::string what = "mode " + std::to_string(m.mode) + " entry " + std::to_string(i) +
                                             (above ? " and above" : "");
                    ASSERT_EQ(got.rc, m.rc) << what;
                    EXPECT_EQ(got.rec, want[m.at].rec) << what;
                    EXPECT_EQ(got.key, want[m.at].key) << what;
                    char buf[256];
                    int32_t cur = 0;
                    ASSERT_EQ(DBfpGetCurrentKey(tag, buf, &cur), 0);
                    EXPECT_EQ(cur, want[m.at].rec) << what;
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
        for (int i = 0, prev = 0; i < static_cast<int>(n); i++, prev = p) {
            ASSERT_EQ((i ? DBfpGoNextKey : DBfpGoFirstKey)(tag, key, &rec), 0);
            ASSERT_EQ(DBfpGetKeyPercent(tag, &p), 0);
            EXPECT_TRUE(i == 0 ? p == 0 : i + 1 == static_cast<int>(n) ? p == 100 : p >= prev) << i << ": " << p;
        }
        ASSERT_EQ(DBfpGoNextKey(tag, key, &rec), DBW_NOMOREKEYS);
        size_t last = 0;
        for (int q = 0; q <= 100; q += 5) {
            ASSERT_EQ(DBfpGetKeyAtPercent(tag, q, key, &rec), 0);
            size_t at = 0;
            while (at < n && want[at].rec != rec) at++;
            ASSERT_LT(at, n);
            EXPECT_GE(at, last) << "percent " << q;
            last = at;
            ASSERT_EQ(DBfpGetKeyPercent(tag, &p), 0);
            EXPECT_NEAR(p, q, 12);
            if (q % 100 == 0) EXPECT_EQ(rec, q ? want.back().rec : want.front().rec);
        }
        ASSERT_EQ(DBfpCloseTag(tag), 0);
    }
    int tag = -1;
    EXPECT_EQ(DBfpOpenTag(&tag, h, 7), DBE_TAGCOUNT);
}

// Every leaf of every tag, found by reading the file, decoded with the leaf
// routines: the entries are the dump's, and the stored lengths add up with
// the free-space field. Then the leaf dump and the lock trace.
TEST_F(CdxFixture, LeafRoutinesDecodeEveryLeafAndTheDumpsPrintThroughTheHostHook) {
    const std::vector<uint8_t> f = xbt::readFile(file);
    // The directory: tag names and header offsets.
    std::map<std::string, uint32_t> headers;
    for (const KeyLine &l : cdx::walk(h)) headers[l.key.substr(0, l.key.find(' '))] = static_cast<uint32_t>(l.rec);
    ASSERT_EQ(headers.size(), 6u);
    for (const cdx::Tag &t : cdx::kTags) {
        const int tag = cdx::openTag(h, t.name, t.type);
        const uint32_t hdr = headers[cdx::upper(t.name)];
        const int k = idx::le16(f, hdr + 12);
        std::vector<uint32_t> pages;
        cdx::leaves(f, idx::le32(f, hdr), k, pages);
        std::vector<KeyLine> got;
        for (uint32_t p : pages) {
            char page[512], key[256];
            std::memcpy(page, f.data() + p, 512);
            const int n = idx::le16(f, p + 2), B = f[p + 23];
            int sum = 0;
            ASSERT_EQ(DBfpCalculateCurrentKeyLengthsInBuffer(tag, page, &sum), 0);
            EXPECT_EQ(idx::le16(f, p + 12), 488 - n * B - sum) << t.name << " page " << p;
            char *next = nullptr;
            ASSERT_EQ(DBfpCalculateNextKeyPositionInBuffer(tag, page, &next), 0);
            EXPECT_EQ(next, page + 512 - sum);
            // Masks agree with widths in every leaf Harbour wrote.
            EXPECT_EQ(idx::le32(f, p + 14), (1u << f[p + 20]) - 1);
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
    // The leaf dump prints through the host's vorn_debugf; so does the lock
    // trace while g_logging is on.
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
    EXPECT_EQ(DBfpLockIndex(h, 0, cs("caller.c"), 42), 0);
    EXPECT_NE(g_debug.find("caller.c:42"), std::string::npos) << g_debug;
    g_logging = 0;
    EXPECT_EQ(DBfpUnLockIndex(h, nullptr, 0), 0);
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

}  // namespace
