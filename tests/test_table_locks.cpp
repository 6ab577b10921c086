// test_table_locks.cpp - table locks between processes: each lock's byte range per style group and
// switch as another process sees it, lock bits, refusals after retries, shared appends and writes.
#include "xbtest.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "os.h"

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
        _DBsys = saved_;
        DBSetLockRetryCount(0);  // not reset by DBInitialize
        unsetenv("DB_SAMBA");
        unsetenv("DB_XHARBOUR");
        LibTest::TearDown();
    }
    // A table of n rows "AROW", "BROW", ..., opened with mode.
    int table(const std::string &p, int mode, uint8_t mdx = 0, uint8_t n = 3) {
        std::string b(97, '\0');
        b[0] = 3, b[1] = 26, b[2] = 1, b[3] = 15, b[4] = n, b[8] = 97, b[10] = 50, b[28] = mdx, b[96] = 0x0D;
        b.replace(32, 17, "NAME\0\0\0\0\0\0\0C\0\0\0\0\x28", 17).replace(64, 17, "QTY\0\0\0\0\0\0\0\0N\0\0\0\0\x09", 17);
        for (int i = 0; i < n; i++) b += record(std::string(1, static_cast<char>('A' + i)) + "ROW", i);
        xbt::writeFile(p, b + '\x1A');
        int h = -1;
        EXPECT_EQ(DBOpenFile(&h, const_cast<char *>(p.c_str()), mode), 0) << p << " mode " << mode;
        return h;
    }
    int bits(int h) {  // lock bits * 10 + lock count
        DBFILEINFO fi{};
        return DBGetFileInfo(h, &fi) == 0 ? fi.lockt * 10 + fi.numlcks : -1;
    }
    DBSYSCALLS saved_ = _DBsys;
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

int gAttempts = 0, gSleeps = 0;
int countingSetlk(int fd, struct flock *fl) { return gAttempts++, fcntl(fd, F_SETLK, fl); }
unsigned countingSleep(unsigned) { return gSleeps++, 0u; }

// A lock another process holds is refused with the mapped status after exactly the retry count, and changes
// nothing of ours.
TEST_F(TableLockTest, ALockHeldByAnotherProcessIsRefusedAfterTheRetries) {
    const std::string p = path("held.dbf");
    const int h = table(p, 1 | DBO_SHARED | DBO_MULTILOCK);
    const int refused = static_cast<int>(EAGAIN | 0xC0000000u);  // F_SETLK's answer, mapped
    ASSERT_EQ(DBLockRecord(h, 3), 0);
    _DBsys.setlk = countingSetlk;
    _DBsys.sleep = countingSleep;
    xbt::ChildLock child(p, 4, 193);  // header bytes 4..7 and records 1 and 2
    ASSERT_TRUE(child.ok());
    for (int retries : {0, 3}) {
        DBSetLockRetryCount(retries);
        gAttempts = gSleeps = 0;
        EXPECT_EQ(DBLockRecord(h, 2), refused);
        EXPECT_TRUE(gAttempts == (retries ? retries : 1) && gSleeps == retries) << gAttempts << " " << gSleeps;
    }
    EXPECT_EQ(DBLockHeader(h), refused);
    EXPECT_EQ(bits(h), 11);
}

// A child appending rows "P<proc>-<i>" under header locks (else automatic locks); its exit status is 0 or says
// where it failed.
pid_t appender(const std::string &p, bool headerLocks, int proc, int rows) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    int h = -1;
    if (DBOpenFile(&h, const_cast<char *>(p.c_str()), 1 | (headerLocks ? DBO_SHARED : DBO_AUTOLOCK)) < 0) _exit(10);
    for (int i = 0, tries = 0; i < rows; i++, tries = 0) {
        while (headerLocks && DBLockHeader(h) != 0)
            if (++tries > 100000) _exit(11);
        char *buf = nullptr;
        if (DBSetBufferAddress(h, &buf) != 0) _exit(12);
        std::memcpy(buf, record("P" + std::to_string(proc) + "-" + std::to_string(i), i).data(), 50);
        for (int32_t recno = 0; DBPutRecord(h, &recno, DB_APPEND) != 0; recno = 0)
            if (headerLocks || ++tries > 100000) _exit(13);
        if (headerLocks && (DBFlushFile(h) != 0 || DBUnLockHeader(h) != 0)) _exit(14);
    }
    _exit(DBCloseFile(h) == 0 ? 0 : 15);
}

void expectExit0(pid_t pid) {
    int st = 0;
    EXPECT_TRUE(waitpid(pid, &st, 0) == pid && WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
}

// Two processes appending to one shared table lose no row, and the result opens without warning.
TEST_F(TableLockTest, TwoProcessesAppendingLoseNothing) {
    for (bool headerLocks : {true, false}) {
        const std::string p = path(headerLocks ? "two.dbf" : "auto.dbf");
        ASSERT_EQ(DBCloseFile(table(p, 1, 0, 0)), 0);
        for (pid_t kid : {appender(p, headerLocks, 0, 400), appender(p, headerLocks, 1, 400)}) expectExit0(kid);
        int h = -1;
        ASSERT_EQ(DBOpenFile(&h, const_cast<char *>(p.c_str()), 1), 0);  // no warning
        ASSERT_EQ(DBCloseFile(h), 0);
        const std::vector<uint8_t> b = xbt::readFile(p);
        ASSERT_EQ(b.size(), 97 + 800 * 50 + 1u);
        std::multiset<std::string> want, got;
        for (int i = 0; i < 800; i++) want.insert(record("P" + std::to_string(i % 2) + "-" + std::to_string(i / 2), i / 2));
        for (size_t at = 97; at < b.size() - 1; at += 50) got.insert(std::string(b.begin() + at, b.begin() + at + 50));
        EXPECT_EQ(got, want) << headerLocks;
    }
}

// In a shared table, writes without their record's lock (and without automatic locks) are refused and leave the
// file as it was; rows another process appends are seen through the header reread.
TEST_F(TableLockTest, ASharedTableNeedsLocksAndSeesOthersAppends) {
    const std::string p = path("need.dbf");
    const int h = table(p, 1 | DBO_SHARED);
    const std::vector<uint8_t> before = xbt::readFile(p);
    int32_t two = 2, zero = 0, count = 0;
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
    ASSERT_EQ(DBGetRecord(h, 3), 0);  // the cache holds the old end
    expectExit0(appender(p, true, 9, 2));
    DBRECINFO ri{};
    ASSERT_EQ(DBGetRecordCount(h, &count) | DBGetRecordInfo(h, &ri), 0);
    EXPECT_EQ(count, 5);
    ASSERT_EQ(DBGetRecord(h, 5), 0);
    EXPECT_EQ(std::string(ri.bfr, 50), record("P9-1", 1));
    ASSERT_EQ(DBLockAppend(h), 0);
    ASSERT_EQ(DBLockHeader(h), 0);
    ASSERT_EQ(DBUnLockHeader(h), 0);
    expectLocked(p, {4, 4}, true, "the append lock on the header lock's bytes");
}

}  // namespace
