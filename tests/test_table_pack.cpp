// test_table_pack.cpp - DBPackFile: the packed table (through the library and python3-dbfread), backup
// and work file names, the open mode kept, a failed pack leaving the old table as it was. (Table and
// memo packs killed after each step: test_table_modify.)
#include "seams.h"
#include "tablea_util.h"

#include <algorithm>
#include <functional>

namespace {

// Person i: NAME C(20), QTY N(6), header 97 bytes, records of 27, so the copy's 16384-byte block holds 606 records
// and 1500 take three blocks; seen() is what dbfread_dump.py prints for person i as record k.
std::string name(int i) { return "PERSON " + std::to_string(1000 + i); }
std::string qty(int i) { return std::to_string(i * 7 - 300); }
std::string seen(int k, int i) { return std::to_string(k) + "\t0\t\"" + name(i) + "\"\t" + qty(i); }

class PackTest : public xbt::LibTest {
protected:
    void append(int h, int i) {
        int32_t recno = 0;
        ASSERT_EQ(DBClearBuffer(h), 0);
        ASSERT_EQ(DBPutStrField(h, 0, name(i).data()) | DBPutStrField(h, 1, qty(i).data()), 0);
        ASSERT_EQ(DBPutRecord(h, &recno, DB_APPEND), 0);
    }
    // Persons 1..n, gone(i) marked deleted; mode 0x200 (write-through) also asks the create for the mdx flag.
    int people(const std::string &p, int n, std::function<bool(int)> gone, int mode = 1) {
        DBFIELD f[2] = {{"NAME", 'C', 20, 0}, {"QTY", 'N', 6, 0}};
        int h = -1;
        EXPECT_EQ(DBCreateFile(tablea::cs(p.c_str()), 2, f, mode & 0x2FF), 0);
        EXPECT_EQ(tablea::open(&h, p, mode), 0);
        for (int i = 1; i <= n; i++) append(h, i);
        for (int i = 1; i <= n; i++) EXPECT_EQ(gone(i) ? DBMarkRecordInActive(h, i) : 0, 0) << i;
        return h;
    }
    int32_t count(int h) {
        int32_t n = -1;
        return DBGetRecordCount(h, &n) == 0 ? n : -2;
    }
    // While the pack writes copied records (large writes): whether 1.DBF exists and another process sees t.dbf
    // wholly locked; with `fail`, the disk is full then.
    void watch(xbt::Seams &seams, bool fail) {
        seams.failErrno = ENOSPC, sawWork1_ = locked_ = false;
        seams.watch = [this, fail](int, size_t n) {
            if (n <= 1000) return false;
            const xbt::LockSeen s = xbt::probeLock(path("t.dbf"), 0, 0x7FFFFFFF);
            sawWork1_ = xbt::fileExists(path("1.DBF")), locked_ = s.blocked && s.start == 0 && s.len == 0x7FFFFFFF;
            return fail;
        };
    }
    bool sawWork1_ = false, locked_ = false;
};

// python3-dbfread's records of a table, as dbfread_dump.py prints them.
std::vector<std::string> dbfread(const std::string &p) {
    std::vector<std::string> recs;
    for (const auto &l : tablea::dbfread(p))
        if (l[0] == "record") recs.push_back(l[1] + "\t" + l[2] + "\t" + l[3] + "\t" + l[4]);
    return recs;
}

// Deleted records go and the rest keep their order across three cache blocks (one all deleted but its last),
// changes still only in the cache are packed too, and the old file becomes the backup, whose name replaces the
// extension (or adds one) and an older backup; the cache size is kept. A table with nothing to keep, or with no
// records at all (style 2 with the mdx flag, which it keeps), becomes a valid empty table that takes a new record.
// A pack whose first flush cannot write the appends still in the cache fails and keeps them, the count and the
// cache as they were, for the next pack.
TEST_F(PackTest, DropsTheDeletedRecordsAndKeepsTheRestInOrder) {
    // cache: a capacity set before the pack (which flushes the cache), 0 for none.
    const struct { const char *file, *backup; int n, mode, cache; std::function<bool(int)> gone; bool flushFails = false; }
    cases[] = {
        {"p.dbf", "p.BAK", 1500, 1, 0, [](int i) { return i % 3 == 0 || i <= 10 || i > 1495 || (i >= 607 && i < 1212); }},
        {"SALES", "SALES.BAK", 40, 1, 21, [](int) { return true; }},
        {"data.v1.dbf", "data.v1.BAK", 0, 2 | DBO_FLUSH, 0, [](int) { return true; }},
        {"t.dbf", "t.BAK", 6, 1, 0, [](int i) { return i == 2; }, true}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.file);
        const std::string p = path(c.file), backup = path(c.backup);
        xbt::writeFile(backup, std::string("old backup"));
        int h = people(p, c.n, c.gone, c.mode), cache = c.cache;
        if (cache) ASSERT_EQ(DBGetSetCacheSize(h, &cache, 0), 0);
        std::vector<std::string> want;
        for (int i = 1; i <= c.n; i++)
            if (!c.gone(i)) want.push_back(seen(static_cast<int>(want.size()) + 1, i));
        if (c.flushFails) {
            xbt::Seams seams;
            seams.writesLeft = 0, seams.failErrno = EFBIG;  // a file-size limit
            EXPECT_EQ(DBPackFile(&h), DBE_WRITE);
            EXPECT_EQ(count(h), c.n);
        }
        ASSERT_EQ(DBPackFile(&h), 0);
        ASSERT_EQ(DBGetSetCacheSize(h, &cache, 1), 0);
        if (c.cache) EXPECT_EQ(cache, c.cache);
        EXPECT_EQ(count(h), static_cast<int32_t>(want.size()));
        const std::vector<uint8_t> now = xbt::readFile(p), bak = xbt::readFile(backup);
        EXPECT_EQ(now.size(), 97 + want.size() * 27 + 1);
        EXPECT_EQ(now[28], c.mode & DBO_FLUSH ? 1 : 0);
        ASSERT_EQ(bak.size(), 97 + c.n * 27 + 1u);
        for (int i = 1; i <= c.n; i++) EXPECT_EQ(bak[97 + 27 * (i - 1)], c.gone(i) ? '*' : ' ') << i;
        if (want.empty()) {
            EXPECT_EQ(DBGetRecord(h, 1), DBE_SEEK);
            append(h, 77);
            want.push_back(seen(1, 77));
        }
        ASSERT_EQ(DBCloseFile(h), 0);
        EXPECT_EQ(dbfread(p), want);
    }
}

// A pack that fails before the renames leaves the old table open with its file and records as they were, and no
// work file or backup behind. The work file is the first free number in the table's directory (0.DBF is another
// program's file here); a shared table is file-locked while its records are copied, and after a pack that failed
// or worked, it is shared, write-through and unlocked.
TEST_F(PackTest, FailuresAndTheWorkFile) {
    const std::string p = path("t.dbf");
    const std::vector<uint8_t> notOurs(8, 'n');
    xbt::writeFile(path("0.DBF"), notOurs);
    int h = people(p, 700, [](int i) { return i % 4 == 0; }, 1 | DBO_AUTOLOCK);
    const int old = h;
    const std::vector<uint8_t> bytes = xbt::readFile(p);
    auto asBefore = [&](const std::string &what) {
        DBFILEINFO fi{};
        ASSERT_EQ(DBGetFileInfo(h, &fi), 0);
        EXPECT_TRUE(fi.flags.isshareable && fi.flags.isunbuffered && fi.lockt == 0) << what;
        EXPECT_FALSE(xbt::fileExists(path("1.DBF")) || xbt::probeLock(p, 0, 0x7FFFFFFF).blocked) << what;
        EXPECT_EQ(xbt::readFile(path("0.DBF")), notOurs) << what;
    };
    auto untouched = [&](const char *what) {
        DBRECINFO ri{};
        asBefore(what);
        EXPECT_TRUE(h == old && DBGetRecordInfo(h, &ri) == 0 && xbt::readFile(p) == bytes && count(h) == 700) << what;
        for (int i = 1; i <= 700; i++) {  // through the cache block that the copy borrowed
            EXPECT_EQ(DBGetRecord(h, i), i % 4 ? 0 : DBW_DELETED) << what << i;
            EXPECT_TRUE(std::equal(ri.bfr, ri.bfr + 27, bytes.begin() + 97 + 27 * (i - 1))) << what << i;
        }
        EXPECT_FALSE(xbt::fileExists(path("t.BAK"))) << what;
    };
    EXPECT_EQ(DBPackFile(nullptr), DBE_NULLPARAM);
    int ro = -1;
    ASSERT_EQ(DBOpenFile(&ro, const_cast<char *>(p.c_str()), 1 | DBO_READONLY), 0);
    EXPECT_EQ(DBPackFile(&ro), DBE_READONLY);
    untouched("bad arguments");
    {
        xbt::Seams seams;
        watch(seams, true);  // the disk fills up while the records are copied
        EXPECT_EQ(DBPackFile(&h), DBE_WRITE);
    }
    untouched("disk full");
    {
        xbt::ChildLock child(p, 97 + 27 * 9, 27);  // another process holds record 10
        ASSERT_TRUE(child.ok());
        EXPECT_EQ(DBPackFile(&h), static_cast<int>(EAGAIN | 0xC0000000u));
    }
    untouched("file lock refused");
    xbt::Seams seams;
    watch(seams, false);
    ASSERT_EQ(DBPackFile(&h), 0);  // after all that, the pack works
    EXPECT_TRUE(sawWork1_ && locked_);
    EXPECT_EQ(count(h), 525);
    asBefore("packed");
}

}  // namespace
