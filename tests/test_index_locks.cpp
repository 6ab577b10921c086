// NTX and NDX indexes shared between processes. Both lock one byte at
// 1,000,000,000 to write and one at 2,147,483,647 to read, where Clipper
// and Harbour look: the bytes as another process sees them with F_GETLK, a
// reader that finds a sound tree at every lock while a writer changes it
// (an NDX header has no change counter, so a buffered reader must not trust
// a node it cached before the lock), two writers that lose no key, and a
// shared walk that keeps its place by key while keys arrive.
#include "index_util.h"

#include <sys/wait.h>
#include <unistd.h>

using idx::cs;
using idx::Fam;

namespace {

constexpr uint32_t kWriteByte = 1000000000u, kReadByte = 2147483647u;

class IndexLocks : public xbt::LibTest {
protected:
    std::string make(const Fam &f, const std::string &stem, int keylen) {
        const std::string p = path(stem + f.ext);
        EXPECT_EQ(f.create(cs(p.c_str()), 'C', cs("K"), keylen, 0), 0);
        return p;
    }
};

// Retries a call another process may refuse for a moment.
template <class F>
int retry(F call) {
    int rc;
    while ((rc = call()) < 0) usleep(200);
    return rc;
}

TEST_F(IndexLocks, LockBytesSeenFromAnotherProcess) {
    for (const Fam *fp : idx::kFams) {
        const Fam &f = *fp;
        SCOPED_TRACE(f.name);
        const std::string p = make(f, "l", 10);
        short h = -1;
        ASSERT_EQ(f.open(&h, cs(p.c_str()), DBO_SHARED), 0);
        EXPECT_FALSE(xbt::probeLock(p, 0, 0).blocked);
        ASSERT_EQ(f.lock(h) | f.lock(h), 0);  // held already: nothing more
        const xbt::LockSeen w = xbt::probeLock(p, 0, 0);
        EXPECT_TRUE(w.blocked && w.start == kWriteByte && w.len == 1) << w.start << "+" << w.len;
        idx::Info info;
        ASSERT_EQ(f.info(h, &info), 0);
        EXPECT_EQ(info.lockt * 10 + info.flags.isshareable, 41);
        ASSERT_EQ(f.unlock(h), 0);
        EXPECT_FALSE(xbt::probeLock(p, 0, 0).blocked);
        // The read lock is shared and outlives the unlock until the close.
        ASSERT_EQ(f.rlock(h), 0);
        const xbt::LockSeen r = xbt::probeLock(p, 0, 0);
        EXPECT_TRUE(r.blocked && r.start == kReadByte && r.len == 1) << r.start << "+" << r.len;
        ASSERT_EQ(f.unlock(h), 0);
        EXPECT_TRUE(xbt::probeLock(p, kReadByte, 1).blocked);
        EXPECT_FALSE(xbt::probeLock(p, kWriteByte, 1).blocked);
        ASSERT_EQ(f.close(h), 0);
        EXPECT_FALSE(xbt::probeLock(p, 0, 0).blocked);
        // Another process holds the write byte: our lock and the self-locking
        // add and delete are refused; the add goes through once it is free,
        // and lets go of the lock again.
        ASSERT_EQ(f.open(&h, cs(p.c_str()), DBO_AUTOLOCK), 0);
        {
            xbt::ChildLock other(p, kWriteByte, 1);
            ASSERT_TRUE(other.ok());
            EXPECT_LT(f.lock(h), 0);
            EXPECT_LT(f.add(h, cs("A"), 1), 0);
            EXPECT_LT(f.del(h, cs("A"), 1), 0);
        }
        EXPECT_EQ(f.add(h, cs("A"), 1), 0);
        EXPECT_FALSE(xbt::probeLock(p, 0, 0).blocked);
        ASSERT_EQ(f.close(h), 0);
        // An exclusive index takes no locks at all.
        ASSERT_EQ(f.open(&h, cs(p.c_str()), 0), 0);
        ASSERT_EQ(f.lock(h), 0);
        EXPECT_FALSE(xbt::probeLock(p, 0, 0).blocked);
        ASSERT_EQ(f.close(h), 0);
    }
}

// A child adds keys one by one under its own locks; this process, shared
// (NTX write-through, NDX buffered), takes the lock now and again and must
// find a sound tree holding every key added so far, never fewer than the
// time before, the last of them found by search.
TEST_F(IndexLocks, ReaderSeesASoundTreeAtEveryLock) {
    const struct { const Fam *f; int keylen, mode; } runs[] = {{&idx::kNtx, 60, DBO_SHARED | DBO_FLUSH},
                                                               {&idx::kNdx, 40, DBO_SHARED}};
    constexpr int kKeys = 1500;
    auto key = [](int i) { return std::to_string(10000000 + (i * 7919) % 100000); };
    for (const auto &run : runs) {
        const Fam &f = *run.f;
        SCOPED_TRACE(f.name);
        const std::string p = make(f, "rw", run.keylen);
        const pid_t pid = xbt::spawn([&] {
            DBInitialize(64, 1);
            short w = -1;
            if (f.open(&w, cs(p.c_str()), DBO_AUTOLOCK) != 0) return 2;
            for (int i = 1; i <= kKeys; i++)
                if (retry([&] { return f.add(w, cs(key(i).c_str()), i); }) != 0) return 3;
            return f.close(w) == 0 ? 0 : 4;
        });
        short h = -1;
        ASSERT_EQ(f.open(&h, cs(p.c_str()), run.mode), 0);
        int32_t seen = 0, looks = 0;
        for (bool done = false; !done; looks++) {
            int st = 0;
            done = waitpid(pid, &st, WNOHANG) == pid;
            ASSERT_TRUE(!done || (WIFEXITED(st) && WEXITSTATUS(st) == 0)) << st;
            retry([&] { return f.lock(h); });
            const DBINDEXCHECK c = idx::check(f, h, "at a lock");
            ASSERT_GE(c.keys, seen);
            // The search writes the key it reaches back (the full key
            // length): it gets a buffer of that size.
            if (c.keys > 0) {
                const idx::Hit last = idx::search(f.search, h, key(c.keys), 1, 8);
                EXPECT_EQ(last.rc, 0) << c.keys;
                EXPECT_EQ(last.rec, c.keys);
            }
            seen = c.keys;
            ASSERT_EQ(f.unlock(h), 0);
            usleep(2000);
        }
        EXPECT_EQ(seen, kKeys);
        EXPECT_GT(looks, 2);
        ASSERT_EQ(f.close(h), 0);
    }
}

// Two processes add and delete interleaved keys (so both split the same
// pages) under the write lock: every key of both is there afterwards, and
// none that was deleted.
TEST_F(IndexLocks, TwoWritersLoseNoKey) {
    constexpr int kEach = 1000;
    for (const Fam *fp : idx::kFams) {
        const Fam &f = *fp;
        SCOPED_TRACE(f.name);
        const std::string p = make(f, "ww", 12);
        auto key = [](int n) { return std::to_string(100000 + n); };
        pid_t kids[2];
        for (int c = 0; c < 2; c++)
            kids[c] = xbt::spawn([&] {
                DBInitialize(64, 1);
                short w = -1;
                if (f.open(&w, cs(p.c_str()), DBO_AUTOLOCK) != 0) return 2;
                for (int i = 0; i < kEach; i++) {
                    const int n = 2 * i + c, gone = n - 2;
                    if (retry([&] { return f.add(w, cs(key(n).c_str()), n + 1); }) != 0) return 3;
                    if (i % 3 == 2 && retry([&] { return f.del(w, cs(key(gone).c_str()), gone + 1); }) != 0) return 5;
                }
                return f.close(w) == 0 ? 0 : 4;
            });
        for (pid_t k : kids) EXPECT_EQ(xbt::waitFor(k), 0);
        std::vector<idx::KeyLine> want;
        for (int n = 0; n < 2 * kEach; n++)
            if (!(n / 2 % 3 == 1 && n / 2 + 1 < kEach)) want.push_back({n + 1, key(n) + "      "});
        short h = -1;
        ASSERT_EQ(f.open(&h, cs(p.c_str()), 0), 0);
        EXPECT_TRUE(idx::same(idx::walk(f, h, 12), want));
        idx::check(f, h, "both writers");
        ASSERT_EQ(f.close(h), 0);
    }
}

// A shared reader (NTX write-through, NDX buffered: the two that keep their
// place by key) walks while another handle, standing in for another
// process, adds keys between its steps: each step goes on from the key it
// stood on, found again by value.
TEST_F(IndexLocks, SharedWalkKeepsItsPlaceByKey) {
    for (const auto &[fp, mode] : {std::pair{&idx::kNtx, DBO_SHARED | DBO_FLUSH}, {&idx::kNdx, DBO_SHARED}}) {
        const Fam &f = *fp;
        SCOPED_TRACE(f.name);
        const std::string p = make(f, "walk", 8);
        short w = -1, r = -1;
        ASSERT_EQ(f.open(&w, cs(p.c_str()), DBO_SHARED | DBO_FLUSH), 0);
        auto key = [](int i) { return std::to_string(10000000 + i); };
        for (int i = 0; i < 400; i += 2) ASSERT_EQ(f.add(w, cs(key(i).c_str()), i + 1), 0);
        ASSERT_EQ(f.open(&r, cs(p.c_str()), mode), 0);
        char k[16];
        int32_t rec = 0;
        EXPECT_EQ(f.current(r, k, &rec), DBW_KEYNOTFOUND);
        // NDX: a step from no place yet goes to the first key.
        ASSERT_EQ((fp == &idx::kNdx ? f.next : f.first)(r, k, &rec), 0);
        int prev = std::atoi(k) - 10000000, steps = 1;
        EXPECT_EQ(prev, 0);
        while (f.next(r, k, &rec) == 0) {
            const int now = std::atoi(k) - 10000000;
            EXPECT_GT(now, prev);
            prev = now, steps++;
            // Odd keys arrive ahead of the reader: it meets each of them.
            if (now % 2 == 0) ASSERT_EQ(f.add(w, cs(key(now + 1).c_str()), now + 2), 0);
        }
        EXPECT_EQ(steps, 399);  // 0, then 2..399: key 1 never arrives
        EXPECT_EQ(prev, 399);
        ASSERT_EQ(f.close(r) | f.close(w), 0);
    }
}

}  // namespace
