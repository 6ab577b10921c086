// test_memo_dbt.cpp - DBT memo files in the dBASE III and dBASE IV layouts.
#include "memo_util.h"

#include <tuple>
#include <utility>

namespace {
using Dbt = xbt::LibTest;
using Runs = std::vector<std::pair<uint32_t, uint32_t>>;

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

}  // namespace
