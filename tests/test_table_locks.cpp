// test_table_locks.cpp - table locks between processes: each lock's byte range per style group and
// switch as another process sees it, lock bits, writes that need locks.
#include "tablea_util.h"

namespace {

constexpr uint32_t G = 1000000000u;
struct Range { uint32_t start, len; };

// A row of the test table NAME C(40), QTY N(9): header 97 bytes, record 50.
std::string record(const std::string &name, long qty) {
    char r[64];
    return std::snprintf(r, sizeof r, " %-40s%9ld", name.c_str(), qty), r;
}

// Another process sees exactly this range locked (neither neighbour), or nothing of it.
void expectLocked(const std::string &p, Range e, bool held, const std::string &what) {
    const xbt::LockSeen in = xbt::probeLock(p, e.start, e.len);
    EXPECT_EQ(in.blocked, held) << what;
    if (!held) return;
    EXPECT_TRUE(in.start == e.start && in.len == e.len) << what << ": " << in.start << "+" << in.len;
    if (e.start > 0) EXPECT_FALSE(xbt::probeLock(p, e.start - 1, 1).blocked) << what << ": byte before";
    EXPECT_FALSE(xbt::probeLock(p, e.start + e.len, 1).blocked) << what << ": byte after";
}

class TableLockTest : public xbt::LibTest {
protected:
    void TearDown() override {
        unsetenv("DB_SAMBA");
        unsetenv("DB_XHARBOUR");
        LibTest::TearDown();
    }
    // A table of n rows "AROW", "BROW", ..., opened with mode.
    int table(const std::string &p, int mode, uint8_t mdx = 0, uint8_t n = 3) {
        tablea::RawDbf t;
        t.mdx = mdx, t.field("NAME", 'C', 40).field("QTY", 'N', 9);
        for (int i = 0; i < n; i++) t.records.push_back(record(std::string(1, static_cast<char>('A' + i)) + "ROW", i));
        t.write(p);
        int h = -1;
        EXPECT_EQ(DBOpenFile(&h, const_cast<char *>(p.c_str()), mode), 0) << p << " mode " << mode;
        return h;
    }
    int bits(int h) {  // lock bits * 10 + lock count
        DBFILEINFO fi{};
        return DBGetFileInfo(h, &fi) == 0 ? fi.lockt * 10 + fi.numlcks : -1;
    }
};

// Record 5, header, append and file lock of every group and switch, each seen from another process as exactly its
// range, and gone after release.
TEST_F(TableLockTest, EveryKindInEveryGroupAsAnotherProcessSeesIt) {
    const struct { int style, mdx; bool samba, xharbour; Range r[4]; } groups[] = {  // record 5, header, append, file
        {7, 1, 1, 1, {{297, 50}, {4, 4}, {4, 4}, {0, 0x7FFFFFFF}}},  // the switches do not touch groups O and D
        {2, 1, 1, 1, {{0xEFFFFFF9, 1}, {0xEFFFFFFE, 1}, {0xEFFFFFFE, 1}, {0x40000000, 2}}},
        {5, 1, 1, 0, {{G + 5, 1}, {G, 1}, {G, 1}, {G, G}}},
        {6, 0, 0, 1, {{G + 5, 1}, {G + 1, G}, {G, 1}, {0x7FFFFFFF, 1}}},
        {4, 0, 0, 0, {{0x40000129, 1}, {0x40000000, 1}, {0x40000000, 1}, {0x3FFFFFFE, 1}}},
        {4, 1, 0, 0, {{0x7FFFFFF9, 1}, {0x7FFFFFFE, 1}, {0x7FFFFFFE, 1}, {0x3FFFFFFE, 1}}},
        {3, 0, 1, 0, {{0x40000129, 1}, {0x40000000, 1}, {0x40000000, 1}, {0x3FFFFFFF, 1}}},
        {8, 0, 0, 1, {{G + 50, 1}, {0x40000000, 1}, {0x40000000, 1}, {0x7FFFFFFF, 1}}},  // record length
        {8, 1, 1, 1, {{G + 50, 1}, {0x7FFFFFFE, 1}, {0x7FFFFFFE, 1}, {0x3FFFFFFF, 1}}},
    };
    for (const auto &g : groups) {
        DBTerminate();  // the switches are read from the environment
        if (g.samba) setenv("DB_SAMBA", "YES", 1); else unsetenv("DB_SAMBA");
        if (g.xharbour) setenv("DB_XHARBOUR", "yes", 1); else unsetenv("DB_XHARBOUR");
        ASSERT_EQ(DBInitialize(64, 1), 0);
        const std::string p = path("g.dbf");
        const int h = table(p, g.style | DBO_SHARED, static_cast<uint8_t>(g.mdx));
        int (*const lock[4])(int) = {[](int t) { return DBLockRecord(t, 5); }, DBLockHeader, DBLockAppend, DBLockFile};
        for (int k = 0; k < 4; k++) {
            const std::string what = std::string("RHAF").substr(k, 1) + " row " + std::to_string(&g - groups);
            ASSERT_EQ(lock[k](h), 0) << what;  // record 5 lies past the end: allowed
            expectLocked(p, g.r[k], true, what);
            ASSERT_EQ(DBUnLockAll(h), 0);
            expectLocked(p, g.r[k], false, what + " released");
        }
        ASSERT_EQ(DBCloseFile(h), 0);
    }
}

// In a shared table, writes without their record's lock (and without automatic locks) are refused and leave the
// file as it was. (Rows another process appends, seen through the header reread: test_table_share.)
TEST_F(TableLockTest, ASharedTableNeedsLocks) {
    const std::string p = path("need.dbf");
    const int h = table(p, 1 | DBO_SHARED);
    const std::vector<uint8_t> before = xbt::readFile(p);
    int32_t two = 2, zero = 0;
    ASSERT_EQ(DBGetRecord(h, 2), 0);
    EXPECT_EQ(DBPutRecord(h, &two, DB_REWRITE), DBE_NOTLOCKED);
    EXPECT_EQ(DBPutRecord(h, &zero, DB_APPEND), DBE_NOTLOCKED);
    ASSERT_EQ(DBLockRecord(h, 1), 0);  // another record's lock does not cover it
    EXPECT_EQ(DBMarkRecordInActive(h, 2), DBE_NOTLOCKED);
    ASSERT_EQ(DBFlushFile(h), 0);
    EXPECT_EQ(xbt::readFile(p), before);
    ASSERT_EQ(DBLockRecord(h, 2), 0);
    EXPECT_TRUE(bits(h) == 11 && !xbt::probeLock(p, 97, 50).blocked);  // one record lock at a time
    ASSERT_EQ(DBMarkRecordInActive(h, 2), 0);
    ASSERT_EQ(DBFlushFile(h), 0);
    ASSERT_EQ(DBLockFile(h), 0);
    EXPECT_TRUE(bits(h) == 41 && !DBIsRecordLocked(h, 2));  // the file lock replaces the rest
    ASSERT_EQ(DBUnLockAll(h), 0);
    EXPECT_EQ(xbt::readFile(p)[147], '*');
    ASSERT_EQ(DBLockAppend(h), 0);
    ASSERT_EQ(DBLockHeader(h), 0);
    ASSERT_EQ(DBUnLockHeader(h), 0);
    expectLocked(p, {4, 4}, true, "the append lock on the header lock's bytes");
}

}  // namespace
