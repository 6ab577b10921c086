// test_memo_dbt.cpp - DBT memo files in the dBASE III and dBASE IV layouts:
// create, open checks, reading, rewriting, the dBASE IV free chain, locks
// and bad input.
#include "xbtest.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

using xbt::readFile;
using xbt::writeFile;

namespace {

uint32_t le32(const std::vector<uint8_t> &b, size_t at) {
    return b[at] | (uint32_t(b[at + 1]) << 8) | (uint32_t(b[at + 2]) << 16) | (uint32_t(b[at + 3]) << 24);
}
void putLe32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; i++) b[at + i] = uint8_t(v >> (8 * i));
}

class Dbt : public xbt::LibTest {
protected:
    int make(int version, int blocks = 1, const std::string &name = "m.dbt", int mode = -1) {
        file = path(name);
        EXPECT_EQ(DBxbCreateMemo(&file[0], blocks, version), 0);
        int h = -1;
        EXPECT_EQ(DBxbOpenMemo(&h, &file[0], mode < 0 ? version : mode), 0);
        return h;
    }
    int32_t put(int h, const std::string &text, int32_t block = 0) {
        std::string t = text;
        EXPECT_EQ(DBxbPutMemoRecord(h, &block, &t[0], 0), 0) << text.size();
        return block;
    }
    std::string get(int h, int32_t block, int option = 0) {
        char *out = nullptr;
        int rc = DBxbGetMemoRecord(h, block, &out, option);
        EXPECT_EQ(rc, 0) << block;
        std::string s = out ? out : "<null>";
        DBFreeMemory(out, "test", 0);
        return s;
    }
    // The free chain as it stands on disk: (first block, length) per run.
    std::vector<std::pair<uint32_t, uint32_t>> chain(uint32_t bs = 512) {
        auto f = readFile(file);
        std::vector<std::pair<uint32_t, uint32_t>> runs;
        uint32_t next = le32(f, 24);
        while (next != 0 && runs.size() < 100) {
            runs.push_back({next, le32(f, size_t(next) * bs + 4)});
            next = le32(f, size_t(next) * bs);
        }
        return runs;
    }
    uint32_t ff() { return le32(readFile(file), 0); }
    std::string file;
};

using Runs = std::vector<std::pair<uint32_t, uint32_t>>;

TEST_F(Dbt, CreateWritesBothLayouts) {
    for (int v : {1, 3, 5, 6, 7}) {
        std::string p = path("three" + std::to_string(v) + ".dbt");
        ASSERT_EQ(DBxbCreateMemo(&p[0], 4, v), 0);
        std::vector<uint8_t> want(513, 0);
        want[0] = 1;
        want[512] = 0x1A;
        EXPECT_EQ(readFile(p), want) << v;
    }
    ASSERT_EQ(std::system(("mkdir -p '" + path("d.x") + "'").c_str()), 0);
    std::string p = path("d.x/MyMemoFile.dbt");
    ASSERT_EQ(DBxbCreateMemo(&p[0], 2, 2), 0);
    std::vector<uint8_t> want(1024, 0);
    const uint8_t head[] = {1, 0, 0, 0, 0, 0, 0, 0, 'M', 'Y', 'M', 'E', 'M', 'O', 'F', 'I', 0, 0, 2, 1, 0, 4};
    std::memcpy(want.data(), head, sizeof head);
    EXPECT_EQ(readFile(p), want);
    // Bad versions leave the empty file behind; bad page sizes make nothing.
    for (int v : {4, 0, 8}) {
        std::string e = path("v" + std::to_string(v) + ".dbt");
        EXPECT_EQ(DBxbCreateMemo(&e[0], 1, v), DBE_BADVERSION) << v;
        EXPECT_EQ(xbt::fileSize(e), 0) << v;
    }
    for (int blocks : {0, 33}) {
        std::string e = path("b" + std::to_string(blocks) + ".dbt");
        EXPECT_EQ(DBxbCreateMemo(&e[0], blocks, 3), DBE_PAGESIZE);
        EXPECT_FALSE(xbt::fileExists(e));
    }
}

TEST_F(Dbt, OpenChecks) {
    std::string p3 = path("iii.dbt"), p4 = path("iv.dbt");
    ASSERT_EQ(DBxbCreateMemo(&p3[0], 1, 3), 0);
    ASSERT_EQ(DBxbCreateMemo(&p4[0], 1, 2), 0);
    int h = -1;
    for (int v : {4, 8, 9, 10, 11}) EXPECT_EQ(DBxbOpenMemo(&h, &p3[0], v), DBE_BADVERSION) << v;
    ASSERT_EQ(DBxbOpenMemo(&h, &p3[0], 0), 0);
    ASSERT_EQ(DBxbCloseMemo(h), 0);
    // A dBASE III file has no block size at offset 20: opened as dBASE IV
    // it is a damaged header.
    EXPECT_EQ(DBxbOpenMemo(&h, &p3[0], 2), DBE_PAGESIZE);
    EXPECT_EQ(h, -1);

    auto good = readFile(p4);
    struct { const char *what; size_t size; uint32_t ff; int bsa; int want; } bad[] = {
        {"511 bytes", 511, 1, 512, DBE_NOTMEMO}, {"block size 0", 512, 1, 0, DBE_PAGESIZE},
        {"block size 100", 512, 1, 100, DBE_PAGESIZE}, {"next free 0", 512, 0, 512, DBE_CORRUPT},
        {"next free past 2 GiB", 512, 0x00400000, 512, DBE_CORRUPT}};
    for (auto c : bad) {
        std::vector<uint8_t> b = good;
        b.resize(c.size);
        putLe32(b, 0, c.ff);
        b[20] = uint8_t(c.bsa);
        b[21] = uint8_t(c.bsa >> 8);
        writeFile(p4, b);
        EXPECT_EQ(DBxbOpenMemo(&h, &p4[0], 2), c.want) << c.what;
        EXPECT_EQ(h, -1) << c.what;
    }
    writeFile(p4, good);
    ASSERT_EQ(DBxbOpenMemo(&h, &p4[0], 2), 0);
    EXPECT_EQ(h, 3);  // every failed open gave its slot back
    DBDBTHDR hdr{};
    ASSERT_EQ(DBxbGetMemoHeader(h, &hdr), 0);
    EXPECT_EQ(hdr.ff, 1);
    EXPECT_EQ(hdr.bsa, 512);
    EXPECT_EQ(DBxbGetMemoHeader(h + 1, &hdr), DBE_BADHANDLE);
}

TEST_F(Dbt, DBase3WritesRewritesAndGrows) {
    int h = make(3);
    int32_t a = put(h, "hello");
    EXPECT_EQ(a, 1);
    EXPECT_EQ(ff(), 2u);
    auto f = readFile(file);
    EXPECT_EQ(f.size(), 512u + 7);
    EXPECT_EQ(std::string(f.begin() + 512, f.end()), "hello\x1a\x1a");
    int32_t b = put(h, "second");
    EXPECT_EQ(b, 2);
    // 510 bytes and two end marks fill the one block exactly: in place.
    EXPECT_EQ(put(h, std::string(510, 'a'), a), a);
    EXPECT_EQ(get(h, b), "second");
    EXPECT_EQ(ff(), 3u);
    // One byte more no longer fits: the next free block, and ff moves on.
    int32_t moved = put(h, std::string(511, 'b'), a);
    EXPECT_EQ(moved, 3);
    EXPECT_EQ(ff(), 5u);
    EXPECT_EQ(get(h, moved), std::string(511, 'b'));
    EXPECT_EQ(get(h, a), std::string(510, 'a'));  // the old text is left as it was
    // A two-block text shrinks in place and grows back into its blocks.
    EXPECT_EQ(put(h, "short", moved), moved);
    EXPECT_EQ(get(h, moved), "short");
    // "short" now owns one block by its end mark; 600 bytes move again.
    EXPECT_EQ(put(h, std::string(600, 'c'), moved), 5);

    std::string t = "abc";
    EXPECT_EQ(DBxbPutMemoRecord(h, &a, &t[0], 1), DBE_BADCOMMAND);
    t = std::string("has\x1a" "mark");  // would come back cut short
    EXPECT_EQ(DBxbPutMemoRecord(h, &a, &t[0], 0), DBE_BADDATA);
    t = "";
    EXPECT_EQ(DBxbPutMemoRecord(h, &a, &t[0], 0), DBE_BADDATA);
    int32_t far = 1000;
    t = "x";
    EXPECT_EQ(DBxbPutMemoRecord(h, &far, &t[0], 0), DBE_SEEK);
}

TEST_F(Dbt, DBase3DamagedTexts) {
    int h = make(3);
    int32_t a = put(h, "ok");
    ASSERT_EQ(DBxbCloseMemo(h), 0);
    auto base = readFile(file);
    struct { const char *what; size_t blocks; int want; } cases[] = {
        {"end of file before an end mark", 3, DBE_CORRUPT},
        {"no end mark in 128 blocks", 130, DBE_FIELDLEN},
    };
    for (auto c : cases) {
        auto f = base;
        f.resize(512 * 2);
        f.insert(f.end(), c.blocks * 512, 'x');
        putLe32(f, 0, uint32_t(2 + c.blocks));
        writeFile(file, f);
        ASSERT_EQ(DBxbOpenMemo(&h, &file[0], 3), 0);
        char *out = reinterpret_cast<char *>(1);
        EXPECT_EQ(DBxbGetMemoRecord(h, 2, &out, 0), c.want) << c.what;
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(get(h, a), "ok");
        // A text whose end cannot be found is not overwritten: the new one
        // goes to the end.
        int32_t blk = 2;
        std::string t = "new";
        ASSERT_EQ(DBxbPutMemoRecord(h, &blk, &t[0], 0), 0);
        EXPECT_EQ(blk, int32_t(2 + c.blocks));
        ASSERT_EQ(DBxbCloseMemo(h), 0);
    }
    ASSERT_EQ(DBxbOpenMemo(&h, &file[0], 3), 0);
    char *out = nullptr;
    for (int32_t b : {0, -3, 100000}) EXPECT_EQ(DBxbGetMemoRecord(h, b, &out, 0), DBE_SEEK) << b;
    EXPECT_EQ(DBxbGetMemoRecord(h, a, &out, 1), DBE_BADCOMMAND);
}

TEST_F(Dbt, TextWrittenAtAStrayBlockMovesNextFree) {
    // Block 1 of a new dBASE III file holds only the file's end mark: a
    // rewrite of "block 1" lands there, and ff must move past it, or the
    // next program to append at ff would overwrite it.
    int h = make(3);
    EXPECT_EQ(put(h, "stray", 1), 1);
    EXPECT_EQ(ff(), 2u);
    EXPECT_EQ(put(h, "next"), 2);
    EXPECT_EQ(get(h, 1), "stray");
}

TEST_F(Dbt, SoftReturnsGoWithOption256) {
    for (int version : {3, 2}) {
        int h = make(version, 1, "soft" + std::to_string(version) + ".dbt");
        int32_t b = put(h, "one\x8d\ntwo\x8d\nthree");
        EXPECT_EQ(get(h, b, 256), "onetwothree") << version;
        EXPECT_EQ(get(h, b, 0), "one\x8d\ntwo\x8d\nthree") << version;
    }
}

TEST_F(Dbt, DBase4TextsCarryTheirLength) {
    int h = make(2, 1);
    int32_t a = put(h, "hello");
    EXPECT_EQ(a, 1);
    auto f = readFile(file);
    const uint8_t hdr[] = {0xFF, 0xFF, 0x08, 0x00, 13, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&f[512], hdr, 8), 0);
    EXPECT_EQ(std::string(f.begin() + 520, f.begin() + 525), "hello");
    EXPECT_EQ(f[525], 0x1F);
    // 503 bytes + 8 + 0x1F is 512: one block; 504 needs two.
    EXPECT_EQ(put(h, std::string(503, 'a')), 2);
    EXPECT_EQ(put(h, std::string(504, 'b')), 3);
    EXPECT_EQ(ff(), 5u);
    EXPECT_EQ(get(h, 3), std::string(504, 'b'));
    ASSERT_EQ(DBxbCloseMemo(h), 0);

    // Damaged lengths: past the end, or shorter than the block header.
    for (uint32_t len : {0x7FFFFFF0u, 7u, 0u}) {
        auto g = f;
        putLe32(g, 512 + 4, len);
        writeFile(file, g);
        ASSERT_EQ(DBxbOpenMemo(&h, &file[0], 2), 0);
        char *out = reinterpret_cast<char *>(1);
        EXPECT_EQ(DBxbGetMemoRecord(h, 1, &out, 0), DBE_CORRUPT) << len;
        EXPECT_EQ(out, nullptr);
        // Its blocks are not trusted either: a rewrite goes elsewhere and
        // frees nothing.
        int32_t blk = 1;
        std::string t = "x";
        ASSERT_EQ(DBxbPutMemoRecord(h, &blk, &t[0], 0), 0);
        EXPECT_NE(blk, 1);
        EXPECT_TRUE(chain().empty());
        ASSERT_EQ(DBxbCloseMemo(h), 0);
    }
}

TEST_F(Dbt, DBase4FreeChainReusesSplitsAndJoins) {
    int h = make(2, 1);
    auto text = [](size_t n, char c) { return std::string(n, c); };
    // need(n) = ceil((n + 9) / 512): 100 -> 1, 600 -> 2, 1000 -> 2, 1500 -> 3, 2000 -> 4.
    int32_t A = put(h, text(100, 'A')), B = put(h, text(600, 'B'));
    int32_t C = put(h, text(100, 'C')), D = put(h, text(100, 'D'));
    ASSERT_EQ(std::vector<int32_t>({A, B, C, D}), std::vector<int32_t>({1, 2, 4, 5}));
    EXPECT_EQ(ff(), 6u);

    struct Step { const char *what; int32_t *blk; std::string text; int32_t want; Runs runs; uint32_t ff; };
    int32_t E = 0, F = 0;
    std::vector<Step> steps = {
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
        *s.blk = put(h, s.text, *s.blk);
        EXPECT_EQ(*s.blk, s.want) << s.what;
        EXPECT_EQ(chain(), s.runs) << s.what;
        EXPECT_EQ(ff(), s.ff) << s.what;
    }
    // Every live text is intact after all of it.
    EXPECT_EQ(get(h, A), text(1000, 'a'));
    EXPECT_EQ(get(h, B), text(1500, 'b'));
    EXPECT_EQ(get(h, C), text(1000, 'c'));
    EXPECT_EQ(get(h, D), text(10, 'x'));
    EXPECT_EQ(get(h, E), text(1000, 'e'));
    EXPECT_EQ(get(h, F), text(1500, 'F'));
    ASSERT_EQ(DBxbCloseMemo(h), 0);

    // A chain link that breaks the rules (pointing past the end) ends the
    // walk: the run is not handed out, the new text goes to the end.
    auto f = readFile(file);
    putLe32(f, 24, 5000);
    writeFile(file, f);
    ASSERT_EQ(DBxbOpenMemo(&h, &file[0], 2), 0);
    int32_t G = put(h, text(10, 'G'));
    EXPECT_EQ(G, 19);
    EXPECT_EQ(get(h, C), text(1000, 'c'));
}

TEST_F(Dbt, LocksSharedFilesAndReadOnly) {
    int h = make(2, 1, "l.dbt", 2 | DBO_READONLY);
    std::string t = "text";
    int32_t blk = 0;
    EXPECT_EQ(DBxbPutMemoRecord(h, &blk, &t[0], 0), DBE_READONLY);
    EXPECT_EQ(DBxbLockMemo(h), DBE_READONLY);
    ASSERT_EQ(DBxbCloseMemo(h), 0);
    ASSERT_EQ(DBxbOpenMemo(&h, &file[0], 2 | DBO_SHARED), 0);
    EXPECT_EQ(DBxbPutMemoRecord(h, &blk, &t[0], 0), DBE_NOTLOCKED);
    ASSERT_EQ(DBxbLockMemo(h), 0);
    auto seen = xbt::probeLock(file, 0, 512);  // another process sees byte 0 only
    EXPECT_TRUE(seen.blocked);
    EXPECT_EQ(seen.start, 0);
    EXPECT_EQ(seen.len, 1);
    ASSERT_EQ(DBxbPutMemoRecord(h, &blk, &t[0], 0), 0);
    DBXBMEMOINFO info{};
    ASSERT_EQ(DBxbGetMemoInfo(h, &info), 0);
    EXPECT_EQ(info.lockt, 4);
    EXPECT_EQ(info.style, 2);
    ASSERT_EQ(DBxbCloseMemo(h), 0);  // closing lets the lock go
    EXPECT_FALSE(xbt::probeLock(file, 0, 512).blocked);
    int used = 0, max = 0;
    DBGetLockCount(&used, &max);
    EXPECT_EQ(used, 0);
    ASSERT_EQ(DBxbOpenMemo(&h, &file[0], 2 | DBO_AUTOLOCK), 0);
    {
        xbt::ChildLock child(file, 0, 1);
        ASSERT_TRUE(child.ok());
        int32_t b2 = 0;
        EXPECT_LT(DBxbPutMemoRecord(h, &b2, &t[0], 0), 0);
    }
    // A second shared handle reads what the first writes after it opened.
    int r = -1;
    ASSERT_EQ(DBxbOpenMemo(&r, &file[0], 2 | DBO_SHARED), 0);
    int32_t b4 = put(h, "later text");
    EXPECT_EQ(get(r, b4), "later text");
}

}  // namespace
