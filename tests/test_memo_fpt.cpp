// test_memo_fpt.cpp - FPT memo files: create, open checks, reading whole and
// in pieces, writing with and without reuse, locks and bad input.
#include "xbtest.h"

#include <cstring>
#include <string>
#include <vector>

using xbt::readFile;
using xbt::writeFile;

namespace {

uint32_t be32(const std::vector<uint8_t> &b, size_t at) {
    return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) | b[at + 3];
}
void putBe32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; i++) b[at + i] = uint8_t(v >> (24 - 8 * i));
}

class Fpt : public xbt::LibTest {
protected:
    int make(int code, int mode = 0) {
        file = path("m.fpt");
        EXPECT_EQ(DBfpCreateMemo(&file[0], code), 0);
        int h = -1;
        EXPECT_EQ(DBfpOpenMemo(&h, &file[0], mode), 0);
        return h;
    }
    int32_t put(int h, std::string d, int32_t block = 0, int flags = 0) {
        EXPECT_EQ(DBfpPutMemoRecord(h, &block, &d[0], int32_t(d.size()), 0, flags), 0);
        return block;
    }
    std::string get(int h, int32_t block) {
        char *out = nullptr;
        EXPECT_EQ(DBfpGetMemoRecord(h, block, &out, 0x7FFFFFFF, 0), 0);
        std::string s = out ? out : "<null>";
        DBFreeMemory(out, "test", 0);
        return s;
    }
    std::string file;
};

TEST_F(Fpt, CreateCodesGiveBlockSizeAndFirstFreeBlock) {
    struct { int code; uint32_t bs, ff; } cases[] = {{1, 512, 1}, {32, 16384, 1}, {33, 33, 16}, {64, 64, 8}, {511, 511, 2}};
    for (auto c : cases) {
        std::string p = path("c" + std::to_string(c.code) + ".fpt");
        ASSERT_EQ(DBfpCreateMemo(&p[0], c.code), 0);
        auto b = readFile(p);
        EXPECT_EQ(b.size(), size_t(c.bs * c.ff)) << c.code;
        EXPECT_EQ(be32(b, 0), c.ff) << c.code;
        EXPECT_EQ(be32(b, 4), c.bs) << c.code;
    }
    std::string p = path("bad.fpt");
    for (int code : {0, 512}) EXPECT_EQ(DBfpCreateMemo(&p[0], code), DBE_PAGESIZE);
    EXPECT_FALSE(xbt::fileExists(p));
}

TEST_F(Fpt, OpenChecksModeLengthAndHeader) {
    int h = make(64);
    ASSERT_EQ(DBfpCloseMemo(h), 0);
    EXPECT_EQ(DBfpCloseMemo(h), DBE_BADHANDLE);
    for (int style : {1, 2, 11}) EXPECT_EQ(DBfpOpenMemo(&h, &file[0], style), DBE_BADVERSION);
    EXPECT_EQ(DBfpOpenMemo(nullptr, &file[0], 0), DBE_NULLPARAM);
    auto good = readFile(file);
    struct { size_t size; uint32_t ff, bs; int want; } bad[] = {
        {511, 8, 64, DBE_NOTMEMO}, {512, 8, 0, DBE_PAGESIZE}, {512, 8, 1u << 20, DBE_PAGESIZE},
        {512, 0, 64, DBE_CORRUPT}, {512, 0x02000000, 64, DBE_CORRUPT}};
    for (auto c : bad) {
        auto b = good;
        b.resize(c.size);
        putBe32(b, 0, c.ff);
        putBe32(b, 4, c.bs);
        writeFile(file, b);
        EXPECT_EQ(DBfpOpenMemo(&h, &file[0], 0), c.want) << c.size << " " << c.ff << " " << c.bs;
        EXPECT_EQ(h, -1);
    }
    // Every failed open gave its slot back; a DBT handle is not an FPT one.
    std::string d = path("x.dbt");
    ASSERT_EQ(DBxbCreateMemo(&d[0], 1, 3), 0);
    ASSERT_EQ(DBxbOpenMemo(&h, &d[0], 3), 0);
    EXPECT_EQ(h, 3);
    EXPECT_EQ(DBfpGetMemoHeader(h), DBE_BADHANDLE);
}

TEST_F(Fpt, WriteAppendsReadsBackAndKeepsTheType) {
    int h = make(64);  // 64-byte blocks, first free block 8
    EXPECT_EQ(put(h, "hello"), 8);
    EXPECT_EQ(put(h, std::string(120, 'x')), 9);  // 128 with its header: 2 blocks
    std::string bin("\x00\x01\x00z", 4);
    EXPECT_EQ(put(h, bin, 0, 1), 11);
    EXPECT_EQ(get(h, 9), std::string(120, 'x'));
    int32_t len = 0;
    int isbin = -1;
    ASSERT_EQ(DBfpGetMemoType(h, 11, &len, &isbin), 0);
    EXPECT_EQ(len, 4);
    EXPECT_EQ(isbin, 1);
    ASSERT_EQ(DBfpGetMemoType(h, 8, &len, &isbin), 0);
    EXPECT_EQ(isbin, 0);
    char buf[8] = {};
    ASSERT_EQ(DBfpGetMemoToBuffer(h, 11, buf, 7, 0), 0);
    EXPECT_EQ(std::memcmp(buf, bin.data(), 5), 0);
    auto f = readFile(file);
    EXPECT_EQ(be32(f, 0), 12u);
    EXPECT_EQ(f.size(), 12u * 64);  // the last memo's block is filled out
    EXPECT_EQ(be32(f, 8 * 64), 1u);
    EXPECT_EQ(be32(f, 8 * 64 + 4), 5u);
    EXPECT_EQ(be32(f, 11 * 64), 0u);
}

TEST_F(Fpt, ReuseOptionRewritesInPlaceOnlyWhileItFits) {
    int h = make(64);
    int32_t a = put(h, std::string(100, 'a'));  // 108 bytes: owns 2 blocks
    int32_t after = put(h, "next");
    struct { size_t len; int flags; bool same; } cases[] = {{120, 256, true}, {10, 256, true}, {121, 256, false}, {1, 0, false}};
    for (auto c : cases) {
        int32_t blk = put(h, std::string(c.len, 'b'), a, c.flags);
        EXPECT_EQ(blk == a, c.same) << c.len << " " << c.flags;
        EXPECT_EQ(get(h, blk), std::string(c.len, 'b'));
    }
    EXPECT_EQ(get(h, after), "next");
    // A reuse request for a block whose length is damaged appends.
    ASSERT_EQ(DBfpCloseMemo(h), 0);
    auto f = readFile(file);
    putBe32(f, size_t(after) * 64 + 4, 0x7FFFFFF0);
    writeFile(file, f);
    ASSERT_EQ(DBfpOpenMemo(&h, &file[0], 0), 0);
    EXPECT_GT(put(h, "x", after, 256), after);
}

TEST_F(Fpt, InPlaceRewriteReachingPastNextFreeMovesIt) {
    // Another program's file: a 600-byte memo at block 1 runs into block 2,
    // but ff says 2. Rewritten in place, ff must move past it.
    file = path("past.fpt");
    ASSERT_EQ(DBfpCreateMemo(&file[0], 1), 0);
    auto f = readFile(file);
    f.resize(512 + 8 + 600, 'o');
    putBe32(f, 0, 2);
    putBe32(f, 512, 1);
    putBe32(f, 516, 600);
    writeFile(file, f);
    int h = -1;
    ASSERT_EQ(DBfpOpenMemo(&h, &file[0], 0), 0);
    EXPECT_EQ(put(h, std::string(700, 'n'), 1, 256), 1);
    EXPECT_EQ(be32(readFile(file), 0), 3u);
    EXPECT_EQ(put(h, "after"), 3);
}

TEST_F(Fpt, PiecewiseWriteAndRead) {
    int h = make(64);
    std::string text = "0123456789abcdefghijklmnopqrstuvwxyz";
    int32_t blk = 0;
    for (int i = 0; i < 3; i++) ASSERT_EQ(DBfpPutMemoRecord(h, &blk, &text[size_t(i) * 12], 36, 12, 2), 0);
    EXPECT_EQ(get(h, blk), text);
    std::string got;
    int rc = 1, calls = 0;
    for (; rc == 1 && calls < 10; calls++) {
        char *out = nullptr;
        rc = DBfpGetMemoRecord(h, blk, &out, 10, 2);
        ASSERT_GE(rc, 0);
        EXPECT_EQ(rc, calls < 3 ? 1 : 0);
        got += out;
        DBFreeMemory(out, "test", 0);
    }
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(got, text);
    int32_t b2 = 0;
    ASSERT_EQ(DBfpPutMemoRecord(h, &b2, &text[0], 10, 6, 2), 0);
    EXPECT_EQ(DBfpPutMemoRecord(h, &b2, &text[0], 10, 5, 2), DBE_BADDATA);  // more than remains
}

TEST_F(Fpt, BadArgumentsBlocksAndLengths) {
    int h = make(64);
    int32_t a = put(h, "abc");
    std::string d = "x";
    struct { int flags; int32_t total; int want; } w[] = {
        {4, 1, DBE_BADCOMMAND}, {512, 1, DBE_BADCOMMAND}, {0, 0, DBE_BADDATA}, {0, -5, DBE_BADDATA}};
    for (auto c : w) {
        int32_t blk = 0;
        EXPECT_EQ(DBfpPutMemoRecord(h, &blk, &d[0], c.total, 0, c.flags), c.want) << c.flags;
    }
    EXPECT_EQ(DBfpPutMemoRecord(h, nullptr, &d[0], 1, 0, 0), DBE_NULLPARAM);
    char *out = reinterpret_cast<char *>(1);
    for (int32_t b : {0, -1, 9, 100}) EXPECT_EQ(DBfpGetMemoRecord(h, b, &out, 100, 0), DBE_SEEK) << b;
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(DBfpGetMemoRecord(h, a, &out, 0, 2), DBE_BADCOMMAND);
    EXPECT_EQ(DBfpGetMemoRecord(h, a, &out, 10, 4), DBE_BADCOMMAND);
    ASSERT_EQ(DBfpCloseMemo(h), 0);
    // A length past the end is refused before it sizes an allocation.
    auto f = readFile(file);
    putBe32(f, size_t(a) * 64 + 4, 0x7FFFFFF0);
    writeFile(file, f);
    ASSERT_EQ(DBfpOpenMemo(&h, &file[0], 0), 0);
    EXPECT_EQ(DBfpGetMemoRecord(h, a, &out, 0x7FFFFFFF, 0), DBE_CORRUPT);
    int32_t len = 0;
    int bin = 0;
    EXPECT_EQ(DBfpGetMemoType(h, a, &len, &bin), DBE_CORRUPT);
}

TEST_F(Fpt, ReadOnlySharedAndLocks) {
    int h = make(1, DBO_READONLY);
    std::string d = "data";
    int32_t blk = 0;
    EXPECT_EQ(DBfpPutMemoRecord(h, &blk, &d[0], 4, 0, 0), DBE_READONLY);
    EXPECT_EQ(DBfpLockMemo(h), DBE_READONLY);
    ASSERT_EQ(DBfpCloseMemo(h), 0);
    ASSERT_EQ(DBfpOpenMemo(&h, &file[0], DBO_SHARED), 0);
    EXPECT_EQ(DBfpPutMemoRecord(h, &blk, &d[0], 4, 0, 0), DBE_NOTLOCKED);
    ASSERT_EQ(DBfpLockMemo(h), 0);
    ASSERT_EQ(DBfpLockMemo(h), 0);  // still one lock
    int used = 0, max = 0;
    DBGetLockCount(&used, &max);
    EXPECT_EQ(used, 1);
    auto seen = xbt::probeLock(file, 0, 512);  // another process sees byte 0 only
    EXPECT_TRUE(seen.blocked);
    EXPECT_EQ(seen.start, 0);
    EXPECT_EQ(seen.len, 1);
    ASSERT_EQ(DBfpPutMemoRecord(h, &blk, &d[0], 4, 0, 0), 0);
    ASSERT_EQ(DBfpUnLockMemo(h), 0);
    EXPECT_FALSE(xbt::probeLock(file, 0, 512).blocked);
    ASSERT_EQ(DBfpCloseMemo(h), 0);
    // Automatic locks: taken for the write and given back; refused while
    // another process holds the byte.
    ASSERT_EQ(DBfpOpenMemo(&h, &file[0], DBO_AUTOLOCK), 0);
    {
        xbt::ChildLock child(file, 0, 1);
        ASSERT_TRUE(child.ok());
        int32_t b2 = 0;
        EXPECT_LT(DBfpPutMemoRecord(h, &b2, &d[0], 4, 0, 0), 0);
    }
    // What another handle appends, a shared reader sees.
    int w = -1;
    ASSERT_EQ(DBfpOpenMemo(&w, &file[0], DBO_AUTOLOCK), 0);
    int32_t nb = put(w, "appended elsewhere");
    DBGetLockCount(&used, &max);
    EXPECT_EQ(used, 0);
    EXPECT_EQ(get(h, nb), "appended elsewhere");
}

}  // namespace
