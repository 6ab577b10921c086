// NTX and NDX indexes shared between processes. Both lock one byte at
// 1,000,000,000 to write and one at 2,147,483,647 to read, where Clipper
// and Harbour look: the bytes as another process sees them with F_GETLK, a
// reader that finds a sound tree at every lock while two writers change it
// (an NDX header has no change counter, so a buffered reader must not trust
// a node it cached before the lock) and no key lost, and a
// shared walk that keeps its place by key while keys arrive.
#include "index_util.h"

#include <sys/wait.h>
#include <unistd.h>

using idx::cs;
using idx::Fam;

namespace {

constexpr uint32_t kWriteByte = 1000000000u, kReadByte = 2147483647u;

class IndexLocks : public xbt::LibTest {};

// Retries a call another process may refuse for a moment.
template <class F>
int retry(F call) {
    int rc;
    while ((rc = call()) < 0) usleep(200);
    return rc;
}

// The bytes and the lock calls are one implementation for both families:
// NTX stands for both.
TEST_F(IndexLocks, LockBytesSeenFromAnotherProcess) {
    const Fam &f = idx::kNtx;
    const std::string p = path("l.ntx");
    // The lock another process finds on the byte range asked about: its
    // "start+length", or "none".
    auto seen = [&](uint32_t start = 0, uint32_t len = 0) {
        const xbt::LockSeen s = xbt::probeLock(p, start, len);
        return s.blocked ? std::to_string(s.start) + "+" + std::to_string(s.len) : std::string("none");
    };
    short h = idx::newIndex(f, p, 10, DBO_SHARED);
    EXPECT_EQ(seen(), "none");
    ASSERT_EQ(f.lock(h), 0);
    ASSERT_EQ(f.lock(h), 0) << "held already: nothing more";
    EXPECT_EQ(seen(), "1000000000+1");
    idx::Info info;
    ASSERT_EQ(f.info(h, &info), 0);
    EXPECT_EQ(info.lockt, 4);
    EXPECT_EQ(info.flags.isshareable, 1);
    ASSERT_EQ(f.unlock(h), 0);
    EXPECT_EQ(seen(), "none");
    // The read lock is shared and outlives the unlock until the close.
    ASSERT_EQ(f.rlock(h), 0);
    EXPECT_EQ(seen(), "2147483647+1");
    ASSERT_EQ(f.unlock(h), 0);
    EXPECT_EQ(seen(kReadByte, 1), "2147483647+1");
    EXPECT_EQ(seen(kWriteByte, 1), "none");
    ASSERT_EQ(f.close(h), 0);
    EXPECT_EQ(seen(), "none");
    // Another process holds the write byte: our lock and the self-locking
    // add and delete are refused; the add goes through once it is free,
    // and lets go of the lock again.
    h = idx::openIndex(f, p, DBO_AUTOLOCK);
    {
        xbt::ChildLock other(p, kWriteByte, 1);
        ASSERT_TRUE(other.ok());
        EXPECT_LT(f.lock(h), 0);
        EXPECT_LT(f.add(h, cs("A"), 1), 0);
        EXPECT_LT(f.del(h, cs("A"), 1), 0);
    }
    EXPECT_EQ(f.add(h, cs("A"), 1), 0);
    EXPECT_EQ(seen(), "none");
    ASSERT_EQ(f.close(h), 0);
    // An exclusive index takes no locks at all.
    h = idx::openIndex(f, p);
    ASSERT_EQ(f.lock(h), 0);
    EXPECT_EQ(seen(), "none");
    ASSERT_EQ(f.close(h), 0);
    // A header that cannot be read (another process cut the file short)
    // fails the lock, and the byte is given back: kept, the handle would
    // take itself for locked from then on.
    h = idx::openIndex(f, p, DBO_SHARED);
    ASSERT_EQ(truncate(p.c_str(), 0), 0);
    for (int (*lock)(int) : {f.lock, f.lock, f.rlock}) {
        EXPECT_LT(lock(h), 0);
        EXPECT_EQ(seen(), "none");
    }
    EXPECT_EQ(f.close(h), 0);
}

// Two children add interleaved keys (so both split the same pages) under
// their own locks; this process, shared (NTX write-through, NDX buffered),
// takes the lock now and again and must find a sound tree, each entry the
// key of its record, never fewer than the time before; at the end every key
// of both writers is there.
TEST_F(IndexLocks, TwoWritersAndAReaderThatSeesASoundTreeAtEveryLock) {
    const struct { const Fam *f; int keylen, mode; } runs[] = {{&idx::kNtx, 60, DBO_SHARED | DBO_FLUSH},
                                                               {&idx::kNdx, 40, DBO_SHARED}};
    constexpr int kEach = 750;
    auto key = [](int32_t rec) { return std::to_string(10000000 + (rec * 7919) % 100000); };
    for (const auto &run : runs) {
        const Fam &f = *run.f;
        SCOPED_TRACE(f.name);
        const std::string p = path(std::string("rw") + f.ext);
        ASSERT_EQ(f.create(cs(p.c_str()), 'C', cs("K"), run.keylen, 0), 0);
        pid_t kids[2];
        for (int c = 0; c < 2; c++)
            kids[c] = xbt::spawn([&] {
                DBInitialize(64, 1);
                short w = -1;
                if (f.open(&w, cs(p.c_str()), DBO_AUTOLOCK) != 0) return 2;
                for (int i = 0; i < kEach; i++) {
                    const int32_t rec = 2 * i + c + 1;
                    if (retry([&] { return f.add(w, cs(key(rec).c_str()), rec); }) != 0) return 3;
                }
                return f.close(w) == 0 ? 0 : 4;
            });
        const short h = idx::openIndex(f, p, run.mode);
        int32_t seen = 0;
        for (int running = 2; running > 0;) {
            int st = 0;
            for (pid_t &k : kids) {
                if (k <= 0 || waitpid(k, &st, WNOHANG) != k) continue;
                ASSERT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << st;
                k = 0;
                running--;
            }
            retry([&] { return f.lock(h); });
            const DBINDEXCHECK c = idx::check(f, h, "at a lock");
            ASSERT_GE(c.keys, seen);
            for (const idx::KeyLine &l : idx::walk(f, h, 8)) ASSERT_EQ(l.key, key(l.rec)) << "record " << l.rec;
            seen = c.keys;
            ASSERT_EQ(f.unlock(h), 0);
            usleep(2000);
        }
        idx::Model want(false);
        for (int32_t rec = 1; rec <= 2 * kEach; rec++) want.add(key(rec), rec);
        EXPECT_TRUE(idx::same(idx::walk(f, h, 8), want.entries())) << "both writers";
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
        const std::string p = path(std::string("walk") + f.ext);
        const short w = idx::newIndex(f, p, 8, DBO_SHARED | DBO_FLUSH);
        auto key = [](int i) { return std::to_string(10000000 + i); };
        for (int i = 0; i < 400; i += 2) ASSERT_EQ(f.add(w, cs(key(i).c_str()), i + 1), 0);
        const short r = idx::openIndex(f, p, mode);
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
