// CDX and IDX files shared between processes: lock bytes as another process
// sees them, a reader that keeps its place, writers that lose no key while a
// reader never meets a torn tree.
#include "cdx_util.h"

#include <unistd.h>

#include <ctime>

using cdx::cs;

namespace {

// Lock refusals are statuses: a process that must wait retries.
bool refused(int rc) { return rc == DBE_LOCKVIOLATION || (static_cast<uint32_t>(rc) & 0xC0000000u) == 0xC0000000u; }

std::string keyOf(int i) {
    char b[16];
    std::snprintf(b, sizeof b, "K%07d", i);
    return b;
}

class CdxShare : public xbt::LibTest {
protected:
    // A compound file with one character tag "KEYS" of key length 8 holding
    // n keys, i * step for record i + 1.
    std::string make(const std::string &name, int n, int step = 1) {
        const std::string f = path(name);
        int h = -1;
        const int tag = cdx::newTag(f, "keys", 'C', 8, &h);
        for (int i = 0; i < n; i++) EXPECT_EQ(DBfpAddKey(tag, cs(keyOf(i * step).c_str()), i + 1), 0);
        EXPECT_EQ(DBfpCloseIndex(h), 0);
        return f;
    }
};

TEST_F(CdxShare, LockBytesSeenFromAnotherProcess) {
    const std::string c = make("l.cdx", 3);
    const std::string i = path("l.idx");
    ASSERT_EQ(DBfbCreateIndex(cs(i.c_str()), 'C', cs("NAME"), 8, nullptr), 0);
    const std::pair<std::string, uint32_t> cases[] = {{c, 0x7FFFFFFEu}, {i, 0x40000000u}};
    for (const auto &[file, byte] : cases) {
        int h = -1;
        ASSERT_EQ(DBfpOpenIndex(&h, cs(file.c_str()), DBO_SHARED), 0);
        EXPECT_FALSE(xbt::probeLock(file, byte, 1).blocked);
        for (int type : {0, 2}) {
            ASSERT_EQ(DBfpLockIndex(h, type, cs(__FILE__), __LINE__), 0);
            const xbt::LockSeen seen = xbt::probeLock(file, 0, 0x80000000u);
            EXPECT_TRUE(seen.blocked) << file << " type " << type;
            EXPECT_EQ(seen.start, static_cast<int64_t>(byte));
            EXPECT_EQ(seen.len, 1);
            DBFPINDEXINFO info;
            ASSERT_EQ(DBfpGetIndexInfo(h, &info), 0);
            EXPECT_EQ(info.lockt, 4);
            ASSERT_EQ(DBfpUnLockIndex(h, nullptr, 0), 0);
            EXPECT_FALSE(xbt::probeLock(file, byte, 1).blocked);
        }
        // Held by another process: refused, not waited for.
        {
            xbt::ChildLock other(file, byte, 1);
            ASSERT_TRUE(other.ok());
            EXPECT_TRUE(refused(DBfpLockIndex(h, 0, nullptr, 0)));
        }
        ASSERT_EQ(DBfpCloseIndex(h), 0);
        // An exclusive open does not lock at all.
        ASSERT_EQ(DBfpOpenIndex(&h, cs(file.c_str()), 0), 0);
        ASSERT_EQ(DBfpLockIndex(h, 0, nullptr, 0), 0);
        EXPECT_FALSE(xbt::probeLock(file, byte, 1).blocked);
        ASSERT_EQ(DBfpCloseIndex(h), 0);
        // A header that cannot be read (another process cut the file short)
        // fails the lock, and the byte is given back: kept, the handle would
        // take itself for locked from then on.
        ASSERT_EQ(DBfpOpenIndex(&h, cs(file.c_str()), DBO_SHARED), 0);
        ASSERT_EQ(truncate(file.c_str(), 0), 0);
        for (int round = 0; round < 2; round++) {
            EXPECT_LT(DBfpLockIndex(h, 0, nullptr, 0), 0) << file << " round " << round;
            EXPECT_FALSE(xbt::probeLock(file, byte, 1).blocked) << file << " round " << round;
        }
        EXPECT_EQ(DBfpCloseIndex(h), 0);
    }
}

// Another process changes the tree under the lock while a shared reader
// stands on an entry: the reader's next step finds its place again by key in
// the new tree, not by the position it had in pages that have since moved.
TEST_F(CdxShare, SharedReaderKeepsItsPlaceWhenAnotherProcessChangesTheTree) {
    const std::string f = make("r.cdx", 2000, 2);
    int h = -1;
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), DBO_SHARED), 0);
    const int tag = cdx::openTag(h, "keys", 'C');
    char key[16];
    int32_t rec = 0;
    std::strcpy(key, keyOf(2000).c_str());
    ASSERT_EQ(DBfpKeySearch(tag, key, &rec, 1), 0);
    // 500 keys just below the reader's split its leaf; the entry after it goes.
    ASSERT_EQ(xbt::waitFor(xbt::spawn([&] {
        DBInitialize(20, 4);
        int w = -1, t = -1;
        if (DBfpOpenIndex(&w, cs(f.c_str()), DBO_SHARED | DBO_AUTOLOCK) != 0 || DBfpOpenNamedTag(&t, w, cs("keys")) != 0)
            return 2;
        DBfpSetDefaultKeyType(t, 'C');
        for (int i = 1001; i < 2000; i += 2)
            if (DBfpAddKey(t, cs(keyOf(i).c_str()), 5000 + i) != 0) return 3;
        if (DBfpDeleteKey(t, cs(keyOf(2002).c_str()), 1002) != 0) return 4;
        return DBfpCloseIndex(w) != 0 ? 5 : 0;
    })), 0);
    ASSERT_EQ(DBfpGoNextKey(tag, key, &rec), 0);
    EXPECT_EQ(std::string(key), keyOf(2004));
    EXPECT_EQ(rec, 1003);
    cdx::expectSound(tag, 2499, "after the other process");
    ASSERT_EQ(DBfpCloseIndex(h), 0);
}

// Two processes add disjoint keys with automatic locks; a third reads
// under the shared lock the whole time: every walk it makes is in order,
// sound, and never shorter than the one before, and the last one holds
// every key of both writers with its record.
TEST_F(CdxShare, TwoWritersLoseNothingAndAReaderNeverSeesATornTree) {
    const std::string f = make("w.cdx", 0);
    const int per = 1200;
    pid_t writers[2];
    for (int w = 0; w < 2; w++)
        writers[w] = xbt::spawn([&] {
            DBInitialize(20, 4);
            int h = -1, tag = -1;
            if (DBfpOpenIndex(&h, cs(f.c_str()), DBO_AUTOLOCK) != 0 || DBfpOpenNamedTag(&tag, h, cs("keys")) != 0) return 2;
            DBfpSetDefaultKeyType(tag, 'C');
            for (int i = 0, rc; i < per; i++) {
                while (refused(rc = DBfpAddKey(tag, cs(keyOf(i * 2 + w).c_str()), i * 2 + w + 1))) usleep(200);
                if (rc != 0) return 4;
            }
            return DBfpCloseIndex(h) != 0 ? 5 : 0;
        });
    const pid_t reader = xbt::spawn([&] {
        DBInitialize(20, 4);
        int h = -1, tag = -1;
        if (DBfpOpenIndex(&h, cs(f.c_str()), DBO_SHARED | DBO_READONLY) != 0 || DBfpOpenNamedTag(&tag, h, cs("keys")) != 0) return 2;
        DBfpSetDefaultKeyType(tag, 'C');
        size_t last = 0;
        for (const time_t until = time(nullptr) + 120; last < 2 * per && time(nullptr) < until; usleep(300)) {
            int rc;
            while (refused(rc = DBfpLockIndex(h, 2, nullptr, 0))) usleep(100);
            if (rc != 0) return 4;
            char key[16], prev[16] = "";
            int32_t rec = 0;
            size_t n = 0;
            for (rc = DBfpGoFirstKey(tag, key, &rec); rc == 0; rc = DBfpGoNextKey(tag, key, &rec), n++) {
                if (std::strcmp(prev, key) >= 0 || rec != std::atoi(key + 1) + 1) return 5;
                std::strcpy(prev, key);
            }
            DBINDEXCHECK chk;
            if ((rc != DBW_NOMOREKEYS && rc != DBW_EMPTY) || DBfpCheckTag(tag, &chk, 1) != 0 || static_cast<size_t>(chk.keys) != n)
                return 6;
            if (DBfpUnLockIndex(h, nullptr, 0) != 0 || n < last) return 7;
            last = n;  // the usleep gives the writers room between walks
        }
        return last == 2 * per ? 0 : 10;
    });
    for (pid_t p : writers) EXPECT_EQ(xbt::waitFor(p), 0) << "writer";
    EXPECT_EQ(xbt::waitFor(reader), 0) << "reader";
}

}  // namespace
