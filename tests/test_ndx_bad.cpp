// Bad input to the NDX family: damaged headers (each check in its order),
// cut files, damaged nodes, cycles, wrong arguments and handles. Each gives
// its status; none crashes, hangs or writes to the file.
#include "ndx_util.h"

using idx::cs;

namespace {

using Edits = std::vector<std::pair<size_t, std::vector<uint8_t>>>;

std::vector<uint8_t> le16(int v) { return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)}; }
std::vector<uint8_t> le32(int64_t v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 24)};
}

class NdxBad : public xbt::LibTest {
protected:
    void SetUp() override {
        LibTest::SetUp();
        // 300 keys of 40 bytes, 10 a node: three levels.
        base_ = path("base.ndx");
        ASSERT_EQ(DBd3CreateIndex(cs(base_.c_str()), 'C', cs("NAME"), 40, 0), 0);
        short h = -1;
        ASSERT_EQ(DBd3OpenIndex(&h, cs(base_.c_str()), 0), 0);
        for (int i = 0; i < 300; i++) {
            char k[48];
            std::snprintf(k, sizeof k, "K%05d", (i * 7) % 300);
            ASSERT_EQ(DBd3AddKey(h, k, i + 1), 0);
        }
        ASSERT_EQ(DBd3CloseIndex(h), 0);
        orig_ = xbt::readFile(base_);
        root_ = static_cast<size_t>(orig_[0] | orig_[1] << 8) * 512;
    }
    std::string damaged(const Edits &edits, long size = -1) {
        std::vector<uint8_t> b = orig_;
        for (const auto &e : edits)
            for (size_t i = 0; i < e.second.size(); i++) b[e.first + i] = e.second[i];
        if (size >= 0) b.resize(static_cast<size_t>(size));
        const std::string f = path("bad.ndx");
        xbt::writeFile(f, b);
        return f;
    }
    // Walk both ways and search; the first failure's status (0 if none).
    int use(short h) {
        char key[64];
        int32_t rec = 0;
        int rc = DBd3GoFirstKey(h, key, &rec);
        for (int n = 0; rc == 0 && n < 1000; n++) rc = DBd3GoNextKey(h, key, &rec);
        if (rc < 0) return rc;
        rc = DBd3GoLastKey(h, key, &rec);
        for (int n = 0; rc == 0 && n < 1000; n++) rc = DBd3GoPreviousKey(h, key, &rec);
        if (rc < 0) return rc;
        std::strcpy(key, "K001");
        rc = DBd3KeySearch(h, key, &rec, 1);
        return rc < 0 ? rc : 0;
    }
    std::string base_;
    std::vector<uint8_t> orig_;
    size_t root_ = 0;
};

// The header's checks, in their order: with two faults, the first wins.
TEST_F(NdxBad, HeaderChecksInOrder) {
    const long blocks = static_cast<long>(orig_.size() / 512);
    const struct Case { const char *what; Edits edits; int rc; } cases[] = {
        {"key length 0", {{12, le16(0)}, {18, le16(1)}}, DBE_KEYLEN},
        {"key length 245", {{12, le16(245)}}, DBE_KEYLEN},
        {"key type 2", {{16, le16(2)}, {18, le16(3)}}, DBE_KEYTYPE},
        {"numeric key of 40 bytes", {{16, le16(1)}}, DBE_KEYTYPE},
        {"item length unrounded", {{18, le16(42)}, {0, le32(0)}}, DBE_ITEMLEN},
        {"item length", {{18, le16(52)}}, DBE_ITEMLEN},
        {"root 0", {{0, le32(0)}, {14, le16(1)}}, DBE_ROOTPAGE},
        {"root past the end", {{0, le32(blocks)}}, DBE_ROOTPAGE},
        {"root past 2 GiB", {{0, le32(0x7FFFFFFF)}}, DBE_ROOTPAGE},
        {"root negative", {{0, le32(-3)}}, DBE_ROOTPAGE},
        {"max keys 1", {{14, le16(1)}, {24, {0}}}, DBE_MAXKEYS},
        {"max keys past the block", {{14, le16(11)}}, DBE_MAXKEYS},
        {"expression unterminated", {{24, std::vector<uint8_t>(488, 'A')}}, DBE_BADEXPR},
        {"expression empty", {{24, {0}}}, DBE_BADEXPR},
    };
    for (const auto &c : cases) {
        const std::string f = damaged(c.edits);
        const std::vector<uint8_t> before = xbt::readFile(f);
        short h = 99;
        EXPECT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), 0), c.rc) << c.what;
        EXPECT_EQ(h, -1) << c.what;
        EXPECT_EQ(xbt::readFile(f), before) << c.what;
    }
    // Fewer keys a node than the block holds is another writer's choice:
    // accepted, and our splits keep to it.
    short h = -1;
    const std::string f = damaged({{14, le16(3)}});
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), 0), 0);
    DBINDEXCHECK chk;
    EXPECT_EQ(DBd3CheckIndex(h, &chk, 0), 0) << chk.msg;
    EXPECT_EQ(DBd3CheckIndex(h, &chk, 1), DBE_CORRUPT);  // our nodes hold more
    EXPECT_EQ(DBd3CloseIndex(h), 0);
    // Access codes 0, 5 and 6 only.
    EXPECT_EQ(DBd3OpenIndex(&h, cs(base_.c_str()), 1), DBE_BADVERSION);
    ASSERT_EQ(DBd3OpenIndex(&h, cs(base_.c_str()), 5), 0);
    EXPECT_EQ(DBd3CloseIndex(h), 0);
    // Cut files: inside the header, and at a length that is no multiple of
    // 512 (open, with a warning; the missing nodes are read failures).
    EXPECT_EQ(DBd3OpenIndex(&h, cs(damaged({}, 200).c_str()), 0), DBE_READ);
    EXPECT_EQ(DBd3OpenIndex(&h, cs(damaged({}, static_cast<long>(root_)).c_str()), 0), DBE_ROOTPAGE);
    ASSERT_EQ(DBd3OpenIndex(&h, cs(damaged({}, static_cast<long>(orig_.size()) - 100).c_str()), 0), DBW_BADFILELEN);
    EXPECT_LT(use(h), 0);
    EXPECT_EQ(DBd3CloseIndex(h), 0);
    EXPECT_EQ(DBd3OpenIndex(&h, cs(path("missing.ndx").c_str()), 0), DBE_NOTFOUND);
    EXPECT_EQ(DBd3OpenIndex(&h, cs(std::string(600, 'a').c_str()), 0), DBE_BADFILENAME);
}

// Damaged nodes: the walk stops with a status, the check names the fault,
// adds and deletes refuse rather than spread it, and the file is not written.
TEST_F(NdxBad, DamagedNodesGiveStatuses) {
    auto block = [&](size_t at) { return static_cast<size_t>(orig_[at] | orig_[at + 1] << 8) * 512; };
    const size_t c0 = block(root_ + 4), leaf0 = block(c0 + 4);
    // A key that goes down the root's second child: just above its first key.
    std::string second(reinterpret_cast<const char *>(&orig_[root_ + 4 + 8]), 40);
    second[6] = '!';
    const struct Case { const char *what; Edits edits; int rc; std::string probe; } cases[] = {
        {"count past the block", {{root_, le32(11)}}, DBE_CORRUPT, "K00000"},
        {"count negative", {{root_, le32(-1)}}, DBE_CORRUPT, "K00000"},
        {"child past the end", {{root_ + 4, le32(1 << 20)}}, DBE_SEEK, "K00000"},
        {"child past 2 GiB", {{root_ + 4, le32(0x40000000)}}, DBE_SEEK, "K00000"},
        {"child pointing at the root", {{root_ + 4, le32(static_cast<int64_t>(root_ / 512))}}, DBE_CORRUPT, "K00000"},
        {"child 0 in the middle", {{root_ + 4 + 48, le32(0)}}, DBE_SEEK, second},
        {"a leaf below the root without keys", {{leaf0, le32(0)}}, DBE_CORRUPT, "K00000"},
        {"a cycle below the root", {{c0 + 4, le32(static_cast<int64_t>(c0 / 512))}}, DBE_CORRUPT, "K00000"},
    };
    for (const auto &c : cases) {
        const std::string f = damaged(c.edits);
        const std::vector<uint8_t> before = xbt::readFile(f);
        for (int mode : {0, DBO_FLUSH, DBO_SHARED}) {
            short h = -1;
            ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), mode), 0) << c.what;
            EXPECT_LT(use(h), 0) << c.what;
            DBINDEXCHECK chk;
            EXPECT_EQ(DBd3CheckIndex(h, &chk, 0), DBE_CORRUPT) << c.what;
            EXPECT_NE(chk.msg[0], '\0') << c.what;
            EXPECT_LT(DBd3AddKey(h, cs(c.probe.c_str()), 1), 0) << c.what;
            EXPECT_LT(DBd3DeleteKey(h, cs(c.probe.c_str()), 2), 0) << c.what;
            EXPECT_EQ(DBd3CloseIndex(h), 0);
        }
        EXPECT_EQ(xbt::readFile(f), before) << c.what;
    }
    // The first status each damage gives, by the operation that meets it.
    for (const auto &c : cases) {
        short h = -1;
        ASSERT_EQ(DBd3OpenIndex(&h, cs(damaged(c.edits).c_str()), 0), 0);
        char key[64];
        int32_t rec = 0;
        std::strcpy(key, c.probe.c_str());
        EXPECT_EQ(DBd3KeySearch(h, key, &rec, 1), c.rc) << c.what;
        EXPECT_EQ(DBd3CloseIndex(h), 0);
    }
    // Interior keys that are too small hide keys from a search: the check
    // finds them (a greater one is only loose, and searches still work).
    const std::string f = damaged({{root_ + 4 + 8, std::vector<uint8_t>(6, '!')}});
    short h = -1;
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), 0), 0);
    DBINDEXCHECK chk;
    EXPECT_EQ(DBd3CheckIndex(h, &chk, 0), DBE_CORRUPT);
    EXPECT_NE(std::string(chk.msg).find("greatest"), std::string::npos) << chk.msg;
    EXPECT_EQ(DBd3CloseIndex(h), 0);
    ASSERT_EQ(DBd3OpenIndex(&h, cs(damaged({{root_ + 4 + 8, std::vector<uint8_t>(second.begin(), second.end())}}).c_str()), 0), 0);
    EXPECT_EQ(DBd3CheckIndex(h, &chk, 0), 0) << chk.msg;
    EXPECT_EQ(DBd3CheckIndex(h, &chk, 1), DBE_CORRUPT);
    EXPECT_EQ(use(h), 0);
    EXPECT_EQ(DBd3CloseIndex(h), 0);
}

// Wrong arguments and handles; read-only refusals; termination closes.
TEST_F(NdxBad, ArgumentsAndHandles) {
    short h = -1;
    ASSERT_EQ(DBd3OpenIndex(&h, cs(base_.c_str()), DBO_READONLY), 0);
    char key[64] = "K";
    int32_t rec = 0;
    int p = 0;
    short sz = 0;
    char *made = nullptr;
    DBD3INDEXINFO info;
    DBINDEXCHECK chk;
    const struct Call { const char *what; int rc; } nulls[] = {
        {"open handle", DBd3OpenIndex(nullptr, cs(base_.c_str()), 0)},
        {"open name", DBd3OpenIndex(&h, nullptr, 0)},
        {"search key", DBd3KeySearch(h, nullptr, &rec, 1)},
        {"search recno", DBd3KeySearch(h, key, nullptr, 1)},
        {"first", DBd3GoFirstKey(h, nullptr, &rec)},
        {"last", DBd3GoLastKey(h, key, nullptr)},
        {"next", DBd3GoNextKey(h, nullptr, &rec)},
        {"previous", DBd3GoPreviousKey(h, key, nullptr)},
        {"current", DBd3GetCurrentKey(h, nullptr, &rec)},
        {"add", DBd3AddKey(h, nullptr, 1)},
        {"delete", DBd3DeleteKey(h, nullptr, 1)},
        {"percent", DBd3GetKeyPercent(h, nullptr, key, 0)},
        {"percent key", DBd3GetKeyPercent(h, &p, nullptr, 0)},
        {"at percent", DBd3GetKeyAtPercent(h, 5, nullptr, &rec)},
        {"cache", DBd3GetSetCacheSize(h, nullptr, 1)},
        {"info", DBd3GetIndexInfo(h, nullptr)},
        {"expr", DBd3GetIndexKeyExpr(h, nullptr)},
        {"check", DBd3CheckIndex(h, nullptr, 0)},
        {"make key", DBd3MakeKey(3, h, nullptr)},
        {"double to key", DBd3DoubleToKey(h, nullptr, 1.0)},
        {"key to double", DBd3KeyToDouble(nullptr, key)},
        {"date to key", DBd3DateToKey(key, nullptr, 2)},
        {"key to date", DBd3KeyToDate(nullptr, 2, key)},
        {"create", DBd3CreateIndex(cs("x.ndx"), 'C', nullptr, 10, 0)},
        {"create name", DBd3CreateIndex(nullptr, 'C', cs("A"), 10, 0)},
    };
    for (const Call &c : nulls) EXPECT_EQ(c.rc, DBE_NULLPARAM) << c.what;
    EXPECT_EQ(DBd3AddKey(h, key, 1), DBE_READONLY);
    EXPECT_EQ(DBd3DeleteKey(h, key, 1), DBE_READONLY);
    EXPECT_EQ(DBd3FlushIndex(h), DBE_READONLY);
    ASSERT_EQ(DBd3GetIndexInfo(h, &info), 0);
    EXPECT_EQ(info.flags.isreadonly, 1);
    // Handles: out of range, never given, another family's.
    const std::string t = path("t.dbf");
    DBFIELD f[1] = {{"NAME", 'C', 10, 0}};
    ASSERT_EQ(DBCreateFile(cs(t.c_str()), 1, f, 1), 0);
    int th = -1;
    ASSERT_EQ(DBOpenFile(&th, cs(t.c_str()), 1), 0);
    short nh = -1;
    ASSERT_EQ(DBclCreateIndex(cs(path("x.ntx").c_str()), 'C', cs("NAME"), 10, 0), 0);
    ASSERT_EQ(DBclOpenIndex(&nh, cs(path("x.ntx").c_str()), 0), 0);
    for (int bad : {-1, 0, 2, 58, 59, 1000, th, static_cast<int>(nh)}) {
        EXPECT_EQ(DBd3GoFirstKey(bad, key, &rec), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBd3AddKey(bad, key, 1), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBd3GetSetCacheSize(bad, &sz, 1), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBd3GetIndexInfo(bad, &info), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBd3CheckIndex(bad, &chk, 0), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBd3LockIndex(bad), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBd3CloseIndex(bad), DBE_BADHANDLE) << bad;
    }
    EXPECT_EQ(DBd3MakeKey(h, h, &made), DBE_BADHANDLE);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(DBd3BuildIndex(h, cs(path("b.ndx").c_str()), 'C', cs("NAME"), 10, 0), DBE_BADHANDLE);
    // A key expression the evaluator refuses.
    const std::string e = path("e.ndx");
    ASSERT_EQ(DBd3CreateIndex(cs(e.c_str()), 'C', cs("UPPER(NAME"), 10, 0), 0);
    short eh = -1;
    ASSERT_EQ(DBd3OpenIndex(&eh, cs(e.c_str()), 0), 0);
    char *buf = nullptr;
    ASSERT_EQ(DBSetBufferAddress(th, &buf), 0);
    std::memcpy(buf, " ALICE     ", 11);
    int32_t r = 0;
    ASSERT_EQ(DBPutRecord(th, &r, DB_APPEND), 0);
    EXPECT_EQ(DBd3MakeKey(th, eh, &made), DBE_BADEXPR);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(DBd3CloseIndex(eh), 0);
    EXPECT_EQ(DBd3CloseIndex(h), 0);
    EXPECT_EQ(DBd3GoFirstKey(h, key, &rec), DBE_BADHANDLE);
    // Termination closes what is left open, writing what was pending.
    ASSERT_EQ(DBd3OpenIndex(&h, cs(base_.c_str()), 0), 0);
    ASSERT_EQ(DBd3AddKey(h, cs("Zzz"), 301), 0);
    DBTerminate();
    ASSERT_EQ(DBInitialize(64, 2), 0);
    ASSERT_EQ(DBd3OpenIndex(&h, cs(base_.c_str()), 0), 0);
    std::strcpy(key, "Zzz");
    EXPECT_EQ(DBd3KeySearch(h, key, &rec, 1), 0);
    EXPECT_EQ(rec, 301);
    ASSERT_EQ(DBd3CheckIndex(h, &chk, 1), 0) << chk.msg;
}

}  // namespace
