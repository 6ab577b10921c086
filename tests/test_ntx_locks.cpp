// NTX indexes shared between processes: the lock bytes where other
// programs look for them, a reader that sees a sound tree at every lock
// while a writer changes it, and two writers that lose no key.
#include "index_util.h"

#include <sys/wait.h>
#include <unistd.h>

using idx::cs;

namespace {

constexpr uint32_t kWriteByte = 1000000000u, kReadByte = 2147483647u;

class NtxLocks : public xbt::LibTest {
protected:
    std::string make(const char *name, int keylen) {
        const std::string f = path(name);
        EXPECT_EQ(DBclCreateIndex(cs(f.c_str()), 'C', cs("K"), keylen, 0), 0);
        return f;
    }
};

TEST_F(NtxLocks, LockBytesAreWhereOtherProgramsLook) {
    const std::string f = make("l.ntx", 10);
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), DBO_SHARED), 0);
    EXPECT_FALSE(xbt::probeLock(f, kWriteByte, 1).blocked);
    ASSERT_EQ(DBclLockIndex(h), 0);
    xbt::LockSeen w = xbt::probeLock(f, 0, 0x7FFFFFFF);
    EXPECT_TRUE(w.blocked);
    EXPECT_EQ(w.start, kWriteByte);
    EXPECT_EQ(w.len, 1);
    DBCLINDEXINFO info;
    ASSERT_EQ(DBclGetIndexInfo(h, &info), 0);
    EXPECT_EQ(info.lockt, 4);
    ASSERT_EQ(DBclUnLockIndex(h), 0);
    EXPECT_FALSE(xbt::probeLock(f, 0, 0).blocked);
    // The read lock is shared, and outlives the unlock until the close.
    ASSERT_EQ(DBclRLockIndex(h), 0);
    xbt::LockSeen r = xbt::probeLock(f, kReadByte, 1);
    EXPECT_TRUE(r.blocked);
    EXPECT_EQ(r.start, kReadByte);
    ASSERT_EQ(DBclUnLockIndex(h), 0);
    EXPECT_TRUE(xbt::probeLock(f, kReadByte, 1).blocked);
    EXPECT_FALSE(xbt::probeLock(f, kWriteByte, 1).blocked);
    ASSERT_EQ(DBclCloseIndex(h), 0);
    EXPECT_FALSE(xbt::probeLock(f, kReadByte, 1).blocked);
    // Held by another process: our lock is refused and nothing changes.
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), DBO_AUTOLOCK), 0);
    {
        xbt::ChildLock other(f, kWriteByte, 1);
        ASSERT_TRUE(other.ok());
        EXPECT_LT(DBclLockIndex(h), 0);
        EXPECT_LT(DBclAddKey(h, cs("A"), 1), 0);
    }
    EXPECT_EQ(DBclAddKey(h, cs("A"), 1), 0);
    // An exclusive index takes no locks at all.
    ASSERT_EQ(DBclCloseIndex(h), 0);
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 0), 0);
    ASSERT_EQ(DBclLockIndex(h), 0);
    EXPECT_FALSE(xbt::probeLock(f, 0, 0).blocked);
    ASSERT_EQ(DBclCloseIndex(h), 0);
}

// A child adds keys one by one under its own locks (auto_locks); this
// process takes the lock now and again and must find a sound tree holding
// every key added so far, in order, never fewer than the time before.
TEST_F(NtxLocks, ReaderSeesASoundTreeAtEveryLock) {
    const std::string f = make("rw.ntx", 60);
    constexpr int kKeys = 1500;
    const pid_t pid = fork();
    if (pid == 0) {
        DBInitialize(64, 1);
        short w = -1;
        if (DBclOpenIndex(&w, cs(f.c_str()), DBO_AUTOLOCK) != 0) _exit(2);
        idx::Rng rng(5);
        for (int i = 1; i <= kKeys; i++) {
            char k[64];
            std::snprintf(k, sizeof k, "%08u-%d", rng.below(100000000), i);
            int rc;
            while ((rc = DBclAddKey(w, k, i)) < 0) usleep(200);
            if (rc != 0) _exit(3);
        }
        _exit(DBclCloseIndex(w) == 0 ? 0 : 4);
    }
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), DBO_SHARED | DBO_FLUSH), 0);
    int32_t seen = 0, looks = 0;
    for (;;) {
        int st = 0;
        const bool done = waitpid(pid, &st, WNOHANG) == pid;
        while (DBclLockIndex(h) != 0) usleep(100);
        DBINDEXCHECK c;
        ASSERT_EQ(DBclCheckIndex(h, &c, 1), 0) << c.msg;
        EXPECT_GE(c.keys, seen);
        seen = c.keys;
        looks++;
        ASSERT_EQ(DBclUnLockIndex(h), 0);
        if (done) {
            ASSERT_TRUE(WIFEXITED(st));
            ASSERT_EQ(WEXITSTATUS(st), 0);
            break;
        }
        usleep(2000);
    }
    EXPECT_EQ(seen, kKeys);
    EXPECT_GT(looks, 2);
    ASSERT_EQ(DBclCloseIndex(h), 0);
}

// Two processes add disjoint keys to one index under the write lock: every
// key of both is there afterwards.
TEST_F(NtxLocks, TwoWritersLoseNoKey) {
    const std::string f = make("ww.ntx", 20);
    constexpr int kEach = 1200;
    pid_t kids[2];
    for (int c = 0; c < 2; c++) {
        kids[c] = fork();
        if (kids[c] == 0) {
            DBInitialize(64, 1);
            short w = -1;
            if (DBclOpenIndex(&w, cs(f.c_str()), DBO_AUTOLOCK) != 0) _exit(2);
            for (int i = 0; i < kEach; i++) {
                char k[32];
                // Interleaved keys, so both writers split the same pages.
                std::snprintf(k, sizeof k, "%06d", 2 * i + c);
                int rc;
                while ((rc = DBclAddKey(w, k, 2 * i + c + 1)) < 0) usleep(200);
                if (rc != 0) _exit(3);
            }
            _exit(DBclCloseIndex(w) == 0 ? 0 : 4);
        }
    }
    for (pid_t p : kids) {
        int st = 0;
        ASSERT_EQ(waitpid(p, &st, 0), p);
        ASSERT_TRUE(WIFEXITED(st));
        EXPECT_EQ(WEXITSTATUS(st), 0);
    }
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 0), 0);
    char key[32];
    int32_t rec = 0;
    int n = 0;
    for (int rc = DBclGoFirstKey(h, key, &rec); rc == 0; rc = DBclGoNextKey(h, key, &rec), n++) {
        ASSERT_EQ(std::atoi(key), n);
        ASSERT_EQ(rec, n + 1);
    }
    EXPECT_EQ(n, 2 * kEach);
    DBINDEXCHECK c;
    EXPECT_EQ(DBclCheckIndex(h, &c, 1), 0) << c.msg;
    ASSERT_EQ(DBclCloseIndex(h), 0);
}

}  // namespace
