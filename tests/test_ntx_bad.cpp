// Bad input to the NTX family: damaged headers (each check in its order),
// cut files, damaged pages, cycles, wrong arguments and handles. Each gives
// its status; none crashes, hangs or writes to the file.
#include "index_util.h"

using idx::cs;

namespace {

class NtxBad : public xbt::LibTest {
protected:
    // A copy of the Harbour name index with some bytes changed.
    std::string damaged(const std::vector<std::pair<size_t, std::vector<uint8_t>>> &edits, long size = -1) {
        std::vector<uint8_t> b = xbt::readFile(xbt::fixturePath("hbntx_byname.ntx"));
        for (const auto &e : edits)
            for (size_t i = 0; i < e.second.size(); i++) b[e.first + i] = e.second[i];
        if (size >= 0) b.resize(static_cast<size_t>(size));
        const std::string f = path("bad.ntx");
        xbt::writeFile(f, b);
        return f;
    }
    static std::vector<uint8_t> le16(int v) { return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)}; }
    static std::vector<uint8_t> le32(int64_t v) {
        return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 24)};
    }
    // Walk both ways and search; the first failure's status (0 if none).
    int use(short h) {
        char key[256];
        int32_t rec = 0;
        int rc = DBclGoFirstKey(h, key, &rec);
        for (int n = 0; rc == 0 && n < 1000; n++) rc = DBclGoNextKey(h, key, &rec);
        if (rc < 0) return rc;
        rc = DBclGoLastKey(h, key, &rec);
        for (int n = 0; rc == 0 && n < 1000; n++) rc = DBclGoPreviousKey(h, key, &rec);
        if (rc < 0) return rc;
        std::strcpy(key, "Q");
        rc = DBclKeySearch(h, key, &rec, 1);
        return rc < 0 ? rc : 0;
    }
};

// The header's checks, in their order: with two faults, the first wins.
TEST_F(NtxBad, HeaderChecksInOrder) {
    // Harbour's file: k 20 at 14, item 28 at 12, root 0x2C00 at 4, max 32 at
    // 18, min 16 at 20, 12288 bytes.
    struct Case { const char *what; std::vector<std::pair<size_t, std::vector<uint8_t>>> edits; int rc; } cases[] = {
        {"key length 0", {{14, le16(0)}, {12, le16(9)}}, DBE_KEYLEN},
        {"key length 201", {{14, le16(201)}}, DBE_KEYLEN},
        {"item length", {{12, le16(29)}, {4, le32(0)}}, DBE_ITEMLEN},
        {"root 0", {{4, le32(0)}, {18, le16(3)}}, DBE_ROOTPAGE},
        {"root 511", {{4, le32(511)}}, DBE_ROOTPAGE},
        {"root not a page", {{4, le32(1025)}}, DBE_ROOTPAGE},
        {"root at the end", {{4, le32(12288)}}, DBE_ROOTPAGE},
        {"max keys", {{18, le16(31)}, {20, le16(3)}}, DBE_MAXKEYS},
        {"min keys", {{20, le16(15)}}, DBE_MINKEYS},
        {"expression unterminated", {{22, std::vector<uint8_t>(256, 'A')}}, DBE_BADEXPR},
    };
    for (const auto &c : cases) {
        const std::string f = damaged(c.edits);
        const std::vector<uint8_t> before = xbt::readFile(f);
        short h = 99;
        EXPECT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 0), c.rc) << c.what;
        EXPECT_EQ(h, -1) << c.what;
        EXPECT_EQ(xbt::readFile(f), before) << c.what;
    }
    // The unrounded page capacity some producers store is accepted (34 for
    // an item of 28 bytes), with its own half as the minimum; Harbour's
    // pages, laid out for 32 keys, then no longer fit it.
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(damaged({{18, le16(34)}, {20, le16(17)}}).c_str()), 0), 0);
    EXPECT_EQ(use(h), DBE_CORRUPT);
    EXPECT_EQ(DBclCloseIndex(h), 0);
    // Access codes: 0, 5, 6.
    const std::string f = damaged({});
    EXPECT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 1), DBE_BADVERSION);
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 6), 0);
    EXPECT_EQ(DBclCloseIndex(h), 0);
    // Cut files: inside the header, and at a length that is no multiple of
    // 1024 (open, with a warning, and what is missing is a read failure).
    EXPECT_EQ(DBclOpenIndex(&h, cs(damaged({}, 200).c_str()), 0), DBE_READ);
    ASSERT_EQ(DBclOpenIndex(&h, cs(damaged({}, 12000).c_str()), 0), DBW_BADFILELEN);
    EXPECT_EQ(use(h), DBE_READ);  // the root, at 11264, is cut
    EXPECT_EQ(DBclCloseIndex(h), 0);
    EXPECT_EQ(DBclOpenIndex(&h, cs(path("missing.ntx").c_str()), 0), DBE_NOTFOUND);
    EXPECT_EQ(DBclOpenIndex(&h, cs(std::string(600, 'a').c_str()), 0), DBE_BADFILENAME);
}

// Damaged pages: the walk stops with a status, the file is not written,
// and adds and deletes refuse rather than spread the damage.
TEST_F(NtxBad, DamagedPagesGiveStatuses) {
    // The root is at 0x2C00 with 10 keys; page 1024 is its first child.
    const size_t root = 0x2C00;
    struct Case { const char *what; std::vector<std::pair<size_t, std::vector<uint8_t>>> edits; int rc; } cases[] = {
        {"count above the page's room", {{root, le16(33)}}, DBE_CORRUPT},
        {"offset outside the page", {{root + 2, le16(1020)}}, DBE_CORRUPT},
        {"offset inside the offsets", {{root + 4, le16(10)}}, DBE_CORRUPT},
        {"two offsets on one slot", {{root + 4, std::vector<uint8_t>{}}}, DBE_CORRUPT},
        {"child past the end", {{0, {}}}, DBE_SEEK},
        {"child pointing at the root", {{0, {}}}, DBE_CORRUPT},
        {"child not a page", {{0, {}}}, DBE_SEEK},
    };
    std::vector<uint8_t> orig = xbt::readFile(xbt::fixturePath("hbntx_byname.ntx"));
    auto off = [&](int i) { return static_cast<size_t>(orig[root + 2 + 2 * i] | orig[root + 3 + 2 * i] << 8); };
    cases[3].edits = {{root + 4, le16(static_cast<int>(off(0)))}};
    // Child pointers of the root's first key, whose subtree the smallest
    // keys go through.
    cases[4].edits = {{root + off(0), le32(1 << 20)}};
    cases[5].edits = {{root + off(0), le32(static_cast<int64_t>(root))}};
    cases[6].edits = {{root + off(0), le32(3000)}};
    for (const auto &c : cases) {
        const std::string f = damaged(c.edits);
        const std::vector<uint8_t> before = xbt::readFile(f);
        for (int mode : {0, DBO_FLUSH}) {
            short h = -1;
            ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), mode), 0) << c.what;
            EXPECT_EQ(use(h), c.rc) << c.what;
            DBINDEXCHECK chk;
            EXPECT_EQ(DBclCheckIndex(h, &chk, 0), DBE_CORRUPT) << c.what;
            EXPECT_NE(chk.msg[0], '\0') << c.what;
            EXPECT_LT(DBclAddKey(h, cs(" "), 1), 0) << c.what;
            EXPECT_LT(DBclDeleteKey(h, cs(" "), 5), 0) << c.what;
            EXPECT_EQ(DBclCloseIndex(h), 0);
        }
        EXPECT_EQ(xbt::readFile(f), before) << c.what;
    }
    // A free list that loops (the header names a page whose link names
    // itself) is found by the check; the tree itself is sound.
    std::vector<uint8_t> b = orig;
    b.resize(b.size() + 1024);
    const int64_t extra = static_cast<int64_t>(orig.size());
    for (int i = 0; i < 4; i++) b[8 + i] = le32(extra)[static_cast<size_t>(i)], b[static_cast<size_t>(extra) + i] = le32(extra)[static_cast<size_t>(i)];
    const std::string f = path("loop.ntx");
    xbt::writeFile(f, b);
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 0), 0);
    EXPECT_EQ(use(h), 0);
    DBINDEXCHECK chk;
    EXPECT_EQ(DBclCheckIndex(h, &chk, 0), DBE_CORRUPT);
    EXPECT_NE(std::string(chk.msg).find("free"), std::string::npos) << chk.msg;
    EXPECT_EQ(DBclCloseIndex(h), 0);
}

// Wrong arguments and handles.
TEST_F(NtxBad, ArgumentsAndHandles) {
    const std::string f = fixture("hbntx_byname.ntx");
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), DBO_READONLY), 0);
    char key[64] = "A";
    int32_t rec = 0;
    int p = 0;
    short sz = 0;
    char *made = nullptr;
    DBCLINDEXINFO info;
    DBINDEXCHECK chk;
    struct Call { const char *what; int rc; } nulls[] = {
        {"open handle", DBclOpenIndex(nullptr, cs(f.c_str()), 0)},
        {"open name", DBclOpenIndex(&h, nullptr, 0)},
        {"search key", DBclKeySearch(h, nullptr, &rec, 1)},
        {"search recno", DBclKeySearch(h, key, nullptr, 1)},
        {"first", DBclGoFirstKey(h, nullptr, &rec)},
        {"last", DBclGoLastKey(h, key, nullptr)},
        {"next", DBclGoNextKey(h, nullptr, &rec)},
        {"previous", DBclGoPreviousKey(h, key, nullptr)},
        {"current", DBclGetCurrentKey(h, nullptr, &rec)},
        {"add", DBclAddKey(h, nullptr, 1)},
        {"delete", DBclDeleteKey(h, nullptr, 1)},
        {"percent", DBclGetKeyPercent(h, nullptr, key, 0)},
        {"percent key", DBclGetKeyPercent(h, &p, nullptr, 0)},
        {"at percent", DBclGetKeyAtPercent(h, 5, nullptr, &rec)},
        {"cache", DBclGetSetCacheSize(h, nullptr, 1)},
        {"info", DBclGetIndexInfo(h, nullptr)},
        {"expr", DBclGetIndexKeyExpr(h, nullptr)},
        {"check", DBclCheckIndex(h, nullptr, 0)},
        {"make key", DBclMakeKey(3, h, nullptr)},
        {"double to key", DBclDoubleToKey(h, nullptr, 1.0)},
        {"key to double", DBclKeyToDouble(nullptr, key)},
        {"date to key", DBclDateToKey(key, nullptr, 2)},
        {"key to date", DBclKeyToDate(nullptr, 2, key)},
        {"create", DBclCreateIndex(cs("x.ntx"), 'C', nullptr, 10, 0)},
    };
    for (const Call &c : nulls) EXPECT_EQ(c.rc, DBE_NULLPARAM) << c.what;
    // Read only: adds and deletes refuse.
    EXPECT_EQ(DBclAddKey(h, key, 1), DBE_READONLY);
    EXPECT_EQ(DBclDeleteKey(h, key, 1), DBE_READONLY);
    EXPECT_EQ(DBclFlushIndex(h), DBE_READONLY);
    // Handles: out of range, free, another family's.
    const std::string t = idx::openableTable(*this, path("t.dbf"), "hbntx.dbf");
    int th = -1;
    ASSERT_EQ(DBOpenFile(&th, cs(t.c_str()), 1), 0);
    for (int bad : {-1, 0, 2, 58, 59, 1000, th}) {
        EXPECT_EQ(DBclGoFirstKey(bad, key, &rec), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBclAddKey(bad, key, 1), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBclGetSetCacheSize(bad, &sz, 1), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBclGetIndexInfo(bad, &info), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBclCheckIndex(bad, &chk, 0), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBclCloseIndex(bad), DBE_BADHANDLE) << bad;
    }
    EXPECT_EQ(DBclMakeKey(h, h, &made), DBE_BADHANDLE);
    EXPECT_EQ(made, nullptr);
    // A key expression the evaluator refuses.
    const std::string e = path("e.ntx");
    ASSERT_EQ(DBclCreateIndex(cs(e.c_str()), 'C', cs("UPPER(NAME"), 10, 0), 0);
    short eh = -1;
    ASSERT_EQ(DBclOpenIndex(&eh, cs(e.c_str()), 0), 0);
    ASSERT_GE(DBGetRecord(th, 1), 0);
    EXPECT_EQ(DBclMakeKey(th, eh, &made), DBE_BADEXPR);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(DBclCloseIndex(eh), 0);
    EXPECT_EQ(DBclCloseIndex(h), 0);
    // Closed handles are gone; termination closes what is left.
    EXPECT_EQ(DBclGoFirstKey(h, key, &rec), DBE_BADHANDLE);
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 0), 0);
    ASSERT_EQ(DBclAddKey(h, cs("Zzz"), 301), 0);
    DBTerminate();
    ASSERT_EQ(DBInitialize(64, 2), 0);
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 0), 0);
    std::strcpy(key, "Zzz");
    EXPECT_EQ(DBclKeySearch(h, key, &rec, 1), 0);
    EXPECT_EQ(rec, 301);
}

}  // namespace
