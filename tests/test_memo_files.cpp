// test_memo_files.cpp - DBT memo files in the dBASE III and dBASE IV layouts,
// FPT memo files; creates, open checks and locks of both families.
#include "memo_util.h"

#include <sys/stat.h>

#include <tuple>
#include <utility>

namespace {
using Dbt = xbt::LibTest;
using Fpt = xbt::LibTest;
using Runs = std::vector<std::pair<uint32_t, uint32_t>>;
using mt::get32;

// The dBASE IV free chain on disk: (first block, length) per run.
Runs chain(const mt::Memo &m) {
    auto f = xbt::readFile(m.file);
    Runs runs;
    for (uint32_t n = mt::get32(f, 24, false); n != 0 && runs.size() < 100; n = mt::get32(f, size_t(n) * 512, false))
        runs.push_back({n, mt::get32(f, size_t(n) * 512 + 4, false)});
    return runs;
}

// dBASE III: end marks, in-place rewrites only while they fit, ff moved past a text put beyond it. A text
// without an end mark (-206 at the end of the file, -229 after 128 blocks) is refused and not rewritten in place.
TEST_F(Dbt, DBase3WritesRewritesAndDamagedTexts) {
    auto m = mt::made(false, path("m.dbt"), 1, 3, 3);
    EXPECT_EQ(m.put("hello", 1), 1);
    auto f = xbt::readFile(m.file);
    EXPECT_EQ(std::string(f.begin() + 512, f.end()), "hello\x1a\x1a");
    EXPECT_EQ(m.ff(), 2u);
    EXPECT_EQ(m.put("second"), 2);
    struct { int32_t from; size_t n; char c; int32_t want; uint32_t ff; } steps[] = {
        {1, 510, 'a', 1, 3}, {1, 511, 'b', 3, 5}, {3, 5, 's', 3, 5}, {3, 600, 'c', 5, 7}};
    for (auto s : steps) {
        const int32_t blk = m.put(std::string(s.n, s.c), s.from);
        EXPECT_EQ(std::make_pair(blk, m.ff()), std::make_pair(s.want, s.ff)) << s.n;
        EXPECT_EQ(m.get(blk), std::string(s.n, s.c));
    }
    EXPECT_EQ(m.get(1), std::string(510, 'a'));
    EXPECT_EQ(m.get(2), "second");
    EXPECT_EQ(m.get(m.put("one\x8d\ntwo\x8d\nthree"), 256), "onetwothree");
    struct { std::string t; int32_t blk; int option; int want; } bad[] = {
        {"abc", 1, 1, DBE_BADCOMMAND}, {"has\x1a" "mark", 1, 0, DBE_BADDATA},
        {"", 1, 0, DBE_BADDATA},       {"x", 1000, 0, DBE_SEEK}};
    for (auto &c : bad) EXPECT_EQ(m.write(&c.blk, c.t, c.option), c.want) << c.t;
    char *out = nullptr;
    for (int32_t b : {0, 100000}) EXPECT_EQ(DBxbGetMemoRecord(m.h, b, &out, 0), DBE_SEEK) << b;
    EXPECT_EQ(DBxbGetMemoRecord(m.h, 1, &out, 1), DBE_BADCOMMAND);
    ASSERT_EQ(m.close(), 0);
    f = xbt::readFile(m.file);
    f.resize(512 * 2);  // block 1 and nothing after it
    for (size_t blocks : {3, 130}) {
        auto d = f;
        d.insert(d.end(), blocks * 512, 'x');
        mt::set32(d, 0, uint32_t(2 + blocks), false);
        xbt::writeFile(m.file, d);
        ASSERT_EQ(m.open(3), 0);
        out = reinterpret_cast<char *>(1);
        EXPECT_EQ(DBxbGetMemoRecord(m.h, 2, &out, 0), blocks < 128 ? DBE_CORRUPT : DBE_FIELDLEN) << blocks;
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(m.get(1), std::string(510, 'a'));
        EXPECT_EQ(m.put("new", 2), int32_t(2 + blocks));
        ASSERT_EQ(m.close(), 0);
    }
}

// dBASE IV block header and 0x1F; a damaged length is refused, its blocks neither reused nor freed.
TEST_F(Dbt, DBase4TextsCarryTheirLength) {
    auto m = mt::made(false, path("m.dbt"), 1, 2, 2);
    EXPECT_EQ(m.put("hello"), 1);
    auto f = xbt::readFile(m.file);
    const mt::Bytes hello{0xFF, 0xFF, 8, 0, 13, 0, 0, 0, 'h', 'e', 'l', 'l', 'o', 0x1F};
    EXPECT_EQ(mt::Bytes(f.begin() + 512, f.begin() + 526), hello);
    EXPECT_EQ(m.put(std::string(503, 'a')), 2);  // 503 + 8 + 0x1F: one block
    EXPECT_EQ(m.put(std::string(504, 'b')), 3);
    EXPECT_EQ(m.ff(), 5u);
    EXPECT_EQ(m.get(3), std::string(504, 'b'));
    for (uint32_t len : {0x7FFFFFF0u, 7u, 0u}) {
        m.patch(512 + 4, len, 2);
        char *out = reinterpret_cast<char *>(1);
        EXPECT_EQ(DBxbGetMemoRecord(m.h, 1, &out, 0), DBE_CORRUPT) << len;
        EXPECT_EQ(out, nullptr);
        const int32_t blk = m.put("x", 1);
        EXPECT_EQ(blk, int32_t(m.ff()) - 1);  // appended
        EXPECT_TRUE(chain(m).empty());
    }
}

// The dBASE IV free chain: first fit, tails given back, neighbours joined, bad links ignored.
TEST_F(Dbt, DBase4FreeChainReusesSplitsAndJoins) {
    auto m = mt::made(false, path("m.dbt"), 1, 2, 2);
    auto text = [](size_t n, char c) { return std::string(n, c); };
    // Blocks needed, ceil((n + 9) / 512): 100 -> 1, 600 -> 2, 1000 -> 2, 1500 -> 3, 2000 -> 4.
    int32_t A = m.put(text(100, 'A')), B = m.put(text(600, 'B')), C = m.put(text(100, 'C')), D = m.put(text(100, 'D'));
    ASSERT_EQ(std::vector<int32_t>({A, B, C, D}), std::vector<int32_t>({1, 2, 4, 5}));
    int32_t E = 0, F = 0;
    struct Step { const char *what; int32_t *blk; std::string text; int32_t want; Runs runs; uint32_t ff; };
    const Step steps[] = {
        {"B grows: appended, its 2 blocks freed", &B, text(1500, 'b'), 6, {{2, 2}}, 9},
        {"new E splits the run", &E, text(100, 'E'), 2, {{3, 1}}, 9},
        {"C grows: run too small, C's block joins it", &C, text(1000, 'c'), 9, {{3, 2}}, 11},
        {"D grows into the joined run exactly", &D, text(1000, 'd'), 3, {{5, 1}}, 11},
        {"A grows: freed run at 1", &A, text(1000, 'a'), 11, {{1, 1}, {5, 1}}, 13},
        {"E grows: joins the run before it", &E, text(1000, 'e'), 13, {{1, 2}, {5, 1}}, 15},
        {"D grows: joins the runs on both sides", &D, text(2000, 'D'), 15, {{1, 5}}, 19},
        {"D shrinks in place: its tail is freed", &D, text(10, 'x'), 15, {{1, 5}, {16, 3}}, 19},
        {"F takes the first run that fits", &F, text(1500, 'F'), 1, {{4, 2}, {16, 3}}, 19},
    };
    for (auto &s : steps) {
        *s.blk = m.put(s.text, *s.blk);
        EXPECT_EQ(std::make_tuple(*s.blk, chain(m), m.ff()), std::make_tuple(s.want, s.runs, s.ff)) << s.what;
    }
    const std::pair<int32_t, std::string> live[] = {
        {A, text(1000, 'a')}, {B, text(1500, 'b')}, {C, text(1000, 'c')},
        {D, text(10, 'x')},   {E, text(1000, 'e')}, {F, text(1500, 'F')}};
    for (auto &l : live) EXPECT_EQ(m.get(l.first), l.second) << l.first;
    m.patch(24, 5000, 2);
    EXPECT_EQ(m.put(text(10, 'G')), 19);
    EXPECT_EQ(m.get(C), text(1000, 'c'));
}

// New files: DBT's dBASE III and IV layouts byte for byte, FPT's block size and first free block of each
// create code. A bad DBT version leaves an empty file, a bad block count or FPT code none.
TEST_F(Fpt, CreateInBothFamilies) {
    mt::Bytes three(513, 0), four{1, 0, 0, 0, 0, 0, 0, 0, 'M', 'Y', 'M', 'E', 'M', 'O', 'F', 'I', 0, 0, 2, 1, 0, 4};
    three.front() = 1;
    three.back() = 0x1A;
    four.resize(1024);
    for (int v : {1, 3, 5, 6, 7}) EXPECT_EQ(xbt::readFile(mt::made(false, path("3.dbt"), 4, v, -1).file), three) << v;
    ASSERT_EQ(mkdir(path("d.x").c_str(), 0700), 0);
    EXPECT_EQ(xbt::readFile(mt::made(false, path("d.x/MyMemoFile.dbt"), 2, 2, -1).file), four);
    struct { int code; uint32_t bs, ff; } codes[] = {
        {1, 512, 1}, {32, 16384, 1}, {33, 33, 16}, {64, 64, 8}, {511, 511, 2}};
    for (auto c : codes) {
        auto b = xbt::readFile(mt::made(true, path(std::to_string(c.code)), c.code, 0, -1).file);
        EXPECT_EQ(std::make_tuple(b.size(), get32(b, 0, true), get32(b, 4, true)),
                  std::make_tuple(size_t(c.bs * c.ff), c.ff, c.bs));
    }
    struct { bool fpt; int size, version, want; long left; } bad[] = {
        {false, 1, 4, DBE_BADVERSION, 0}, {false, 1, 0, DBE_BADVERSION, 0}, {false, 1, 8, DBE_BADVERSION, 0},
        {false, 0, 3, DBE_PAGESIZE, -1},  {false, 33, 3, DBE_PAGESIZE, -1}, {true, 0, 0, DBE_PAGESIZE, -1},
        {true, 512, 0, DBE_PAGESIZE, -1}};
    for (auto c : bad) {
        std::string e = path("bad" + std::to_string(c.size) + std::to_string(c.version));
        EXPECT_EQ(c.fpt ? DBfpCreateMemo(&e[0], c.size) : DBxbCreateMemo(&e[0], c.size, c.version), c.want) << e;
        EXPECT_EQ(xbt::fileSize(e), c.left) << e;
    }
}

// Appends at ff behind a (type, length) header; option 256 rewrites in place only what fits.
TEST_F(Fpt, WriteAppendsAndReusesOnlyWhatFits) {
    auto m = mt::made(true, path("m.fpt"), 64, 0, 0);
    const std::string bin("\x00\x01\x00z", 4);
    int32_t a = m.put(std::string(100, 'a')), next = m.put("next"), b = m.put(bin, 0, 1), len = 0;
    EXPECT_EQ(std::make_tuple(a, next, b), std::make_tuple(8, 10, 11));  // 108 bytes take 2 blocks
    auto f = xbt::readFile(m.file);
    EXPECT_EQ(std::make_tuple(f.size(), get32(f, 0, true), get32(f, 11 * 64, true)),
              std::make_tuple(size_t(12 * 64), 12u, 0u));
    EXPECT_EQ(mt::Bytes(f.begin() + 640, f.begin() + 652), (mt::Bytes{0, 0, 0, 1, 0, 0, 0, 4, 'n', 'e', 'x', 't'}));
    int isbin = -1;
    ASSERT_EQ(DBfpGetMemoType(m.h, b, &len, &isbin), 0);
    EXPECT_EQ(std::make_pair(len, isbin), std::make_pair(4, 1));
    char buf[8] = {};
    ASSERT_EQ(DBfpGetMemoToBuffer(m.h, b, buf, 7, 0), 0);
    EXPECT_EQ(std::string(buf, 5), bin + '\0');
    struct { int32_t from; size_t len; int flags; int32_t want; } cases[] = {
        {8, 120, 256, 8}, {8, 121, 256, 12}, {12, 10, 256, 12}, {12, 1, 0, 15}};
    for (auto c : cases) {
        EXPECT_EQ(m.put(std::string(c.len, 'b'), c.from, c.flags), c.want) << c.len << " " << c.flags;
        EXPECT_EQ(m.get(c.want), std::string(c.len, 'b'));
    }
    EXPECT_EQ(m.get(next), "next");
    m.patch(size_t(next) * 64 + 4, 0x7FFFFFF0, 0);  // a damaged length is not trusted to reuse
    EXPECT_GT(m.put("x", next, 256), next);
    m.patch(0, 9, 0);  // a damaged ff inside memo 8: its rewrite in place moves ff past it
    EXPECT_EQ(m.put(std::string(120, 'c'), 8, 256), 8);
    EXPECT_EQ(m.ff(), 10u);
}

// Pieces go on where the last call stopped; a piecewise read returns 1 until its last piece. Bad flags,
// lengths and blocks are refused; a length past the end of the file sizes no allocation.
TEST_F(Fpt, PiecewiseWriteAndReadAndBadArguments) {
    auto m = mt::made(true, path("m.fpt"), 64, 0, 0);
    std::string text = "0123456789abcdefghijklmnopqrstuvwxyz", got;
    int32_t a = m.put("abc"), blk = 0, none = 0, b2 = 0;
    for (int i = 0; i < 3; i++) ASSERT_EQ(DBfpPutMemoRecord(m.h, &blk, &text[size_t(i) * 12], 36, 12, 2), 0);
    EXPECT_EQ(m.get(blk), text);
    for (int call = 0; call < 4; call++) {
        char *out = nullptr;
        EXPECT_EQ(DBfpGetMemoRecord(m.h, blk, &out, 10, 2), call < 3 ? 1 : 0) << call;
        got += out ? out : "<null>";
        DBFreeMemory(out, "test", 0);
    }
    EXPECT_EQ(got, text);
    struct { int flags; int32_t total; int want; } w[] = {
        {4, 1, DBE_BADCOMMAND}, {512, 1, DBE_BADCOMMAND}, {0, 0, DBE_BADDATA}, {0, -5, DBE_BADDATA}};
    for (auto c : w) EXPECT_EQ(DBfpPutMemoRecord(m.h, &none, &text[0], c.total, 0, c.flags), c.want) << c.flags;
    char *out = reinterpret_cast<char *>(1);
    for (int32_t b : {0, int32_t(m.ff()), 100000}) EXPECT_EQ(DBfpGetMemoRecord(m.h, b, &out, 100, 0), DBE_SEEK) << b;
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(DBfpGetMemoRecord(m.h, a, &out, 0, 2), DBE_BADCOMMAND);
    m.patch(size_t(a) * 64 + 4, 0x7FFFFFF0, 0);
    EXPECT_EQ(DBfpGetMemoRecord(m.h, a, &out, 0x7FFFFFFF, 0), DBE_CORRUPT);
    ASSERT_EQ(DBfpPutMemoRecord(m.h, &b2, &text[0], 10, 6, 2), 0);  // a piece may not run past the total
    EXPECT_EQ(DBfpPutMemoRecord(m.h, &b2, &text[0], 10, 5, 2), DBE_BADDATA);
}

// Both families: damaged headers and unknown versions; a failed open gives its slot back.
TEST_F(Fpt, OpenRefusesDamagedHeadersInBothFamilies) {
    struct { bool fpt; size_t size; uint32_t ff, bs; int want; } cases[] = {
        {true, 511, 8, 64, DBE_NOTMEMO},          {false, 511, 1, 512, DBE_NOTMEMO},
        {true, 512, 8, 0, DBE_PAGESIZE},          {false, 512, 1, 0, DBE_PAGESIZE},
        {true, 512, 8, 1u << 20, DBE_PAGESIZE},   {false, 512, 1, 100, DBE_PAGESIZE},
        {true, 512, 0, 64, DBE_CORRUPT},          {false, 512, 0, 512, DBE_CORRUPT},
        {true, 512, 0x02000000, 64, DBE_CORRUPT}, {false, 512, 0x00400000, 512, DBE_CORRUPT}};
    for (auto c : cases) {
        auto m = mt::made(c.fpt, path("h"), c.fpt ? 64 : 1, 2, -1);
        auto b = xbt::readFile(m.file);
        b.resize(c.size);
        mt::set32(b, 0, c.ff, c.fpt);
        if (c.fpt) mt::set32(b, 4, c.bs, true);
        else b[20] = uint8_t(c.bs), b[21] = uint8_t(c.bs >> 8);
        xbt::writeFile(m.file, b);
        EXPECT_EQ(m.open(c.fpt ? 0 : 2), c.want) << c.fpt << " " << c.size << " " << c.ff << " " << c.bs;
        EXPECT_EQ(m.h, -1);
    }
    auto f = mt::made(true, path("v.fpt"), 64, 0, -1), d = mt::made(false, path("v.dbt"), 1, 3, -1);
    for (int style : {1, 2, 11}) EXPECT_EQ(f.open(style), DBE_BADVERSION) << style;
    for (int v : {4, 8, 9, 10, 11}) EXPECT_EQ(d.open(v), DBE_BADVERSION) << v;
    ASSERT_EQ(d.open(0), 0);
    EXPECT_EQ(d.h, 3);
    EXPECT_EQ(DBfpGetMemoHeader(d.h), DBE_BADHANDLE);
}

// Both families: read only, shared files need the lock (byte 0 alone), automatic locks.
TEST_F(Fpt, LocksReadOnlyAndSharingInBothFamilies) {
    for (bool fpt : {false, true}) {
        SCOPED_TRACE(fpt);
        const int v = fpt ? 0 : 2;
        auto m = mt::made(fpt, path(fpt ? "l.fpt" : "l.dbt"), 1, 2, v | DBO_READONLY), r = m;
        int32_t blk = 0;
        int used = 0, max = 0;
        EXPECT_EQ(m.write(&blk, "data"), DBE_READONLY);
        EXPECT_EQ(fpt ? DBfpLockMemo(m.h) : DBxbLockMemo(m.h), DBE_READONLY);
        ASSERT_EQ(m.close(), 0);
        ASSERT_EQ(m.open(v | DBO_SHARED), 0);
        EXPECT_EQ(m.write(&blk, "data"), DBE_NOTLOCKED);
        ASSERT_EQ(fpt ? DBfpLockMemo(m.h) : DBxbLockMemo(m.h), 0);
        auto seen = xbt::probeLock(m.file, 0, 512);
        EXPECT_EQ(std::make_tuple(seen.blocked, seen.start, seen.len), std::make_tuple(true, int64_t(0), int64_t(1)));
        ASSERT_EQ(m.write(&blk, "data"), 0);
        ASSERT_EQ(fpt ? DBfpUnLockMemo(m.h) : DBxbUnLockMemo(m.h), 0);
        EXPECT_FALSE(xbt::probeLock(m.file, 0, 512).blocked);
        ASSERT_EQ(m.close(), 0);
        ASSERT_EQ(m.open(v | DBO_AUTOLOCK), 0);
        {
            xbt::ChildLock child(m.file, 0, 1);
            ASSERT_TRUE(child.ok());
            EXPECT_LT(m.write(&blk, "data"), 0);
        }
        ASSERT_EQ(r.open(v | DBO_SHARED), 0);
        EXPECT_EQ(r.get(m.put("appended elsewhere")), "appended elsewhere");
        DBGetLockCount(&used, &max);
        EXPECT_EQ(used, 0);
    }
}

}  // namespace
