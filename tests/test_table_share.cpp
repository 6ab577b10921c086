// test_table_share.cpp - buffered tables shared between processes: what one
// process writes under its locks is neither lost to nor hidden from another
// process's record cache.
#include "tablea_util.h"

#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <set>

namespace {

// ID C(10), CNT N(8): header 97 bytes, records of 19.
std::string row(const std::string &id, int cnt) {
    char r[32];
    return std::snprintf(r, sizeof r, " %-10s%8d", id.c_str(), cnt), r;
}

class SharedTable : public xbt::LibTest {
protected:
    std::string table(int rows) {
        tablea::RawDbf t;
        t.field("ID", 'C', 10).field("CNT", 'N', 8);
        for (int i = 1; i <= rows; i++) t.records.push_back(row("R" + std::to_string(i), 0));
        t.write(path("s.dbf"));
        return path("s.dbf");
    }
    std::string ondisk(int k) {  // record k as the file holds it
        const std::vector<uint8_t> b = xbt::readFile(path("s.dbf"));
        return b.size() >= 97u + 19 * k ? std::string(b.begin() + 97 + 19 * (k - 1), b.begin() + 97 + 19 * k) : "";
    }
};

// Spin on a lock another process may hold for a moment.
template <class F>
int retry(F lock) {
    for (int i = 0; i < 200000; i++) {
        if (lock() == 0) return 0;
        usleep(50);
    }
    return -1;
}
// An append under the header lock; with automatic locks, the append takes it.
int appendRow(int h, const std::string &id, bool autolock = false) {
    int32_t recno = 0;
    char *b = nullptr;
    if ((!autolock && retry([&] { return DBLockHeader(h); })) || DBSetBufferAddress(h, &b)) return -1;
    std::memcpy(b, row(id, 0).data(), 19);
    if (autolock) return retry([&] { return DBPutRecord(h, &(recno = 0), DB_APPEND); });
    return DBPutRecord(h, &recno, DB_APPEND) || DBUnLockHeader(h) ? -1 : 0;
}
// Add one to record k's CNT; the caller holds its lock.
int bump(int h, int32_t k) {
    double v = 0;
    char text[16];
    if (DBGetRecord(h, k) != 0 || DBGetFieldData(h, 1, &v) != 0) return -1;
    std::snprintf(text, sizeof text, "%8d", static_cast<int>(v) + 1);
    return DBPutFieldData(h, 1, text) == 0 && DBPutRecord(h, &k, DB_REWRITE) == 0 ? 0 : -1;
}
int lockedBump(int h, int32_t k) {
    return retry([&] { return DBLockRecord(h, k); }) || bump(h, k) || DBUnLockRecord(h, k) ? -1 : 0;
}

// Run fn on a shared handle of p (with `mode`) in a child process.
pid_t child(const std::string &p, int mode, const std::function<int(int)> &fn) {
    return xbt::spawn([&] {
        int h = -1;
        if (DBOpenFile(&h, tablea::cs(p.c_str()), mode | DBO_SHARED) < 0) return 10;
        return fn(h) == 0 && DBCloseFile(h) == 0 ? 0 : 11;
    });
}
bool exited0(pid_t pid) { return xbt::waitFor(pid) == 0; }

// The three ways a record cache used to undo another process's work: a
// flush writing a record count read before that process appended, a flush
// writing neighbours of a changed record back as they were cached, and a
// record read under a fresh lock served from a cache filled before it.
TEST_F(SharedTable, AnotherProcessesWritesSurviveOurCache) {
    const std::string p = table(3);
    int h = -1;
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_SHARED), 0);
    // P1 rewrites record 1 under its lock; P2 appends; P1's unlock flushes.
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(bump(h, 1), 0);
    ASSERT_TRUE(exited0(child(p, 1, [](int c) { return appendRow(c, "CHILD"); })));
    ASSERT_EQ(DBUnLockRecord(h, 1), 0);
    EXPECT_EQ(xbt::readFile(p)[4], 4);  // the count, not the 3 read before the child's append
    ASSERT_EQ(appendRow(h, "MINE"), 0);  // the next append goes after it
    EXPECT_EQ(ondisk(4) + ondisk(5), row("CHILD", 0) + row("MINE", 0));
    // P1 caches records 1..5 without a lock; P2 changes record 2; P1 changes 1.
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    ASSERT_TRUE(exited0(child(p, 1, [](int c) { return lockedBump(c, 2); })));
    ASSERT_EQ(lockedBump(h, 1), 0);
    EXPECT_EQ(ondisk(1) + ondisk(2), row("R1", 2) + row("R2", 1));
    // P1 reads record 3 from its cache, P2 changes it, P1 locks and changes it.
    ASSERT_EQ(DBGetRecord(h, 3), 0);
    ASSERT_TRUE(exited0(child(p, 1, [](int c) { return lockedBump(c, 3); })));
    ASSERT_EQ(lockedBump(h, 3), 0);
    EXPECT_EQ(ondisk(3), row("R3", 2));
    // The same with a read lock: record 4 read, changed elsewhere, read-locked and read again.
    ASSERT_EQ(DBGetRecord(h, 4), 0);
    ASSERT_TRUE(exited0(child(p, 1, [](int c) { return lockedBump(c, 4); })));
    char cnt[16];
    ASSERT_EQ(DBReadLockRecord(h, 4) | DBGetRecord(h, 4) | DBGetStrField(h, 1, cnt), 0);
    EXPECT_STREQ(cnt, "       1");
    ASSERT_EQ(DBCloseFile(h), 0);
}

// Four writers append and add to counters under the documented locks while a
// reader reads without locks, in every lock style: every append is there
// once, no addition is lost, and the reader never sees the count go down.
// The last writer appends with automatic locks, straight to the file. Groups
// F and C also run with xHarbour's lock addresses.
TEST_F(SharedTable, FourWritersAndAReaderLoseNothing) {
    constexpr int kRows = 16, kWriters = 4, kAppends = 500, kBumps = 1000;
    for (int variant = 0; variant < 6; variant++) {
        const int style = "125454"[variant] - '0';  // the last two with xHarbour's addresses
        SCOPED_TRACE("style " + std::to_string(style) + (variant > 3 ? " xHarbour" : ""));
        DBTerminate();
        variant > 3 ? setenv("DB_XHARBOUR", "yes", 1) : unsetenv("DB_XHARBOUR");
        ASSERT_EQ(DBInitialize(64, 1), 0);
        const std::string p = table(kRows);
        int stop[2];
        ASSERT_EQ(pipe(stop), 0);
        const pid_t reader = child(p, style, [&](int h) {
            close(stop[1]);
            fcntl(stop[0], F_SETFL, O_NONBLOCK);
            unsigned seed = 7;
            char c;
            for (int32_t last = 0, n = 0; read(stop[0], &c, 1) != 0; last = n) {
                if (DBGetRecordCount(h, &n) != 0 || n < last) return -1;
                if (DBGetRecord(h, 1 + static_cast<int32_t>(rand_r(&seed) % static_cast<unsigned>(n))) < 0) return -1;
            }
            return 0;
        });
        close(stop[0]);
        std::vector<pid_t> writers;
        for (int w = 0; w < kWriters; w++)
            writers.push_back(child(p, style | (w == kWriters - 1 ? DBO_AUTOLOCK : 0), [&](int h) {
                unsigned seed = static_cast<unsigned>(w + 1);
                for (int i = 0; i < kBumps; i++) {
                    int32_t n = 0;
                    const std::string id = "W" + std::to_string(w) + "-" + std::to_string(i / 2);
                    if (i % 2 == 0 && appendRow(h, id, w == kWriters - 1) != 0) return -1;
                    // An unlocked read first fills the cache with neighbours.
                    if (DBGetRecordCount(h, &n) != 0 || DBGetRecord(h, 1 + rand_r(&seed) % n) < 0) return -1;
                    if (lockedBump(h, 1 + rand_r(&seed) % n) != 0) return -1;
                }
                return 0;
            }));
        for (pid_t w : writers) EXPECT_TRUE(exited0(w));
        close(stop[1]);
        EXPECT_TRUE(exited0(reader));
        int h = -1;
        int32_t n = 0;
        ASSERT_EQ(tablea::open(&h, p, style), 0);  // no 207 either
        ASSERT_EQ(DBGetRecordCount(h, &n), 0);
        ASSERT_EQ(n, kRows + kWriters * kAppends);
        std::multiset<std::string> ids;
        long sum = 0;
        for (int32_t k = 1; k <= n; k++) {
            char id[16];
            double v = 0;
            ASSERT_EQ(DBGetRecord(h, k) | DBGetStrField(h, 0, id) | DBGetFieldData(h, 1, &v), 0);
            ids.insert(tablea::trim(id));
            sum += static_cast<long>(v);
        }
        for (int w = 0; w < kWriters; w++)
            for (int i = 0; i < kAppends; i++)
                EXPECT_EQ(ids.count("W" + std::to_string(w) + "-" + std::to_string(i)), 1u) << w << " " << i;
        EXPECT_EQ(sum, kWriters * kBumps);
        ASSERT_EQ(DBCloseFile(h), 0);
    }
    unsetenv("DB_XHARBOUR");
}

}  // namespace
