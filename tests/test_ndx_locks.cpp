// NDX indexes shared between processes: the lock bytes (the NTX ones) seen
// from another process with F_GETLK, a reader that sees a sound tree at
// every lock while a writer changes it (the header has no change counter,
// so the reader must not trust a node it cached before), two writers that
// lose no key, and a shared reader whose walk survives another's changes.
#include "ndx_util.h"

#include <sys/wait.h>
#include <unistd.h>

using idx::cs;

namespace {

constexpr uint32_t kWriteByte = 1000000000u, kReadByte = 2147483647u;

class NdxLocks : public xbt::LibTest {
protected:
    std::string make(const char *name, int keylen) {
        const std::string f = path(name);
        EXPECT_EQ(DBd3CreateIndex(cs(f.c_str()), 'C', cs("K"), keylen, 0), 0);
        return f;
    }
};

TEST_F(NdxLocks, LockBytesAreTheNtxBytes) {
    const std::string f = make("l.ndx", 10);
    short h = -1;
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), DBO_SHARED), 0);
    EXPECT_FALSE(xbt::probeLock(f, 0, 0).blocked);
    ASSERT_EQ(DBd3LockIndex(h), 0);
    const xbt::LockSeen w = xbt::probeLock(f, 0, 0);
    EXPECT_TRUE(w.blocked);
    EXPECT_EQ(w.start, kWriteByte);
    EXPECT_EQ(w.len, 1);
    DBD3INDEXINFO info;
    ASSERT_EQ(DBd3GetIndexInfo(h, &info), 0);
    EXPECT_EQ(info.lockt, 4);
    EXPECT_EQ(info.flags.isshareable, 1);
    ASSERT_EQ(DBd3LockIndex(h), 0);  // held already: nothing more
    ASSERT_EQ(DBd3UnLockIndex(h), 0);
    EXPECT_FALSE(xbt::probeLock(f, 0, 0).blocked);
    // The read lock is shared and outlives the unlock until the close.
    ASSERT_EQ(DBd3RLockIndex(h), 0);
    const xbt::LockSeen r = xbt::probeLock(f, 0, 0);
    EXPECT_TRUE(r.blocked);
    EXPECT_EQ(r.start, kReadByte);
    EXPECT_EQ(r.len, 1);
    ASSERT_EQ(DBd3UnLockIndex(h), 0);
    EXPECT_TRUE(xbt::probeLock(f, kReadByte, 1).blocked);
    EXPECT_FALSE(xbt::probeLock(f, kWriteByte, 1).blocked);
    ASSERT_EQ(DBd3CloseIndex(h), 0);
    EXPECT_FALSE(xbt::probeLock(f, 0, 0).blocked);
    // Another process holds the write byte: our lock and a self-locking add
    // are refused, and the add goes through once it is free.
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), DBO_AUTOLOCK), 0);
    {
        xbt::ChildLock other(f, kWriteByte, 1);
        ASSERT_TRUE(other.ok());
        EXPECT_LT(DBd3LockIndex(h), 0);
        EXPECT_LT(DBd3AddKey(h, cs("A"), 1), 0);
        EXPECT_LT(DBd3DeleteKey(h, cs("A"), 1), 0);
    }
    EXPECT_EQ(DBd3AddKey(h, cs("A"), 1), 0);
    EXPECT_FALSE(xbt::probeLock(f, 0, 0).blocked);  // the add let go of it
    ASSERT_EQ(DBd3CloseIndex(h), 0);
    // An exclusive index takes no locks at all.
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), 0), 0);
    ASSERT_EQ(DBd3LockIndex(h), 0);
    EXPECT_FALSE(xbt::probeLock(f, 0, 0).blocked);
    ASSERT_EQ(DBd3CloseIndex(h), 0);
}

// A child adds keys one by one under its own locks; this process, buffered
// and shared, takes the lock now and again and must find a sound tree with
// every key added so far, never fewer than the time before, and the keys
// it finds by search.
TEST_F(NdxLocks, ReaderSeesASoundTreeAtEveryLock) {
    const std::string f = make("rw.ndx", 40);
    constexpr int kKeys = 1500;
    const pid_t pid = fork();
    if (pid == 0) {
        DBInitialize(64, 1);
        short w = -1;
        if (DBd3OpenIndex(&w, cs(f.c_str()), DBO_AUTOLOCK) != 0) _exit(2);
        for (int i = 1; i <= kKeys; i++) {
            char k[64];
            std::snprintf(k, sizeof k, "%08d", (i * 7919) % 100000);
            int rc;
            while ((rc = DBd3AddKey(w, k, i)) < 0) usleep(200);
            if (rc != 0) _exit(3);
        }
        _exit(DBd3CloseIndex(w) == 0 ? 0 : 4);
    }
    short h = -1;
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), DBO_SHARED), 0);
    int32_t seen = 0, looks = 0;
    for (;;) {
        int st = 0;
        const bool done = waitpid(pid, &st, WNOHANG) == pid;
        while (DBd3LockIndex(h) != 0) usleep(100);
        DBINDEXCHECK c;
        ASSERT_EQ(DBd3CheckIndex(h, &c, 1), 0) << c.msg;
        EXPECT_GE(c.keys, seen);
        if (c.keys > 0) {
            // The last key added so far is there.
            char k[64];
            std::snprintf(k, sizeof k, "%08d", (c.keys * 7919) % 100000);
            int32_t rec = 0;
            EXPECT_EQ(DBd3KeySearch(h, k, &rec, 1), 0);
            EXPECT_EQ(rec, c.keys);
        }
        seen = c.keys;
        looks++;
        ASSERT_EQ(DBd3UnLockIndex(h), 0);
        if (done) {
            ASSERT_TRUE(WIFEXITED(st));
            ASSERT_EQ(WEXITSTATUS(st), 0);
            break;
        }
        usleep(2000);
    }
    EXPECT_EQ(seen, kKeys);
    EXPECT_GT(looks, 2);
    ASSERT_EQ(DBd3CloseIndex(h), 0);
}

// Two processes add and delete disjoint keys under the write lock: every
// key of both is there afterwards, and none that was deleted.
TEST_F(NdxLocks, TwoWritersLoseNoKey) {
    const std::string f = make("ww.ndx", 12);
    constexpr int kEach = 1000;
    pid_t kids[2];
    for (int c = 0; c < 2; c++) {
        kids[c] = fork();
        if (kids[c] == 0) {
            DBInitialize(64, 1);
            short w = -1;
            if (DBd3OpenIndex(&w, cs(f.c_str()), DBO_AUTOLOCK) != 0) _exit(2);
            for (int i = 0; i < kEach; i++) {
                char k[32];
                std::snprintf(k, sizeof k, "%06d", 2 * i + c);  // interleaved: both split the same nodes
                int rc;
                while ((rc = DBd3AddKey(w, k, 2 * i + c + 1)) < 0) usleep(200);
                if (rc != 0) _exit(3);
                if (i % 3 == 2) {
                    std::snprintf(k, sizeof k, "%06d", 2 * (i - 1) + c);
                    while ((rc = DBd3DeleteKey(w, k, 2 * (i - 1) + c + 1)) < 0) usleep(200);
                    if (rc != 0) _exit(5);
                }
            }
            _exit(DBd3CloseIndex(w) == 0 ? 0 : 4);
        }
    }
    for (pid_t p : kids) {
        int st = 0;
        ASSERT_EQ(waitpid(p, &st, 0), p);
        ASSERT_TRUE(WIFEXITED(st));
        EXPECT_EQ(WEXITSTATUS(st), 0);
    }
    short h = -1;
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), 0), 0);
    std::vector<int> want;
    for (int i = 0; i < kEach; i++)
        if (!(i % 3 == 1 && i + 1 < kEach)) want.push_back(i);
    std::vector<int> got;
    char key[32];
    int32_t rec = 0;
    for (int rc = DBd3GoFirstKey(h, key, &rec); rc == 0; rc = DBd3GoNextKey(h, key, &rec)) {
        ASSERT_EQ(rec, std::atoi(key) + 1);
        got.push_back(std::atoi(key));
    }
    std::vector<int> both;
    for (int i : want) both.push_back(2 * i), both.push_back(2 * i + 1);
    std::sort(both.begin(), both.end());
    EXPECT_EQ(got, both);
    DBINDEXCHECK c;
    EXPECT_EQ(DBd3CheckIndex(h, &c, 1), 0) << c.msg;
    ASSERT_EQ(DBd3CloseIndex(h), 0);
}

// A shared reader walks while another handle (standing in for another
// process: it writes through at once) adds keys between its steps: each
// step goes on from the key it stood on, found again by value.
TEST_F(NdxLocks, SharedWalkKeepsItsPlaceByKey) {
    const std::string f = make("walk.ndx", 8);
    short w = -1, r = -1;
    ASSERT_EQ(DBd3OpenIndex(&w, cs(f.c_str()), DBO_SHARED | DBO_FLUSH), 0);
    for (int i = 0; i < 400; i += 2) {
        char k[16];
        std::snprintf(k, sizeof k, "%08d", i);
        ASSERT_EQ(DBd3AddKey(w, k, i + 1), 0);
    }
    ASSERT_EQ(DBd3OpenIndex(&r, cs(f.c_str()), DBO_SHARED), 0);
    char key[16];
    int32_t rec = 0;
    EXPECT_EQ(DBd3GetCurrentKey(r, key, &rec), DBW_KEYNOTFOUND);
    ASSERT_EQ(DBd3GoNextKey(r, key, &rec), 0);  // no place yet: the first key
    int prev = std::atoi(key), steps = 1;
    EXPECT_EQ(prev, 0);
    while (DBd3GoNextKey(r, key, &rec) == 0) {
        const int now = std::atoi(key);
        EXPECT_GT(now, prev);
        prev = now;
        steps++;
        if (now % 2 == 0) {
            // Odd keys arrive ahead of the reader: it meets each of them.
            char k[16];
            std::snprintf(k, sizeof k, "%08d", now + 1);
            ASSERT_EQ(DBd3AddKey(w, k, now + 2), 0);
        }
    }
    EXPECT_EQ(steps, 399);  // 0, then 2..399: key 1 never arrives
    EXPECT_EQ(prev, 399);
    ASSERT_EQ(DBd3CloseIndex(r), 0);
    ASSERT_EQ(DBd3CloseIndex(w), 0);
}

}  // namespace
