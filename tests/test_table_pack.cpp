// test_table_pack.cpp - DBPackFile: what the packed table holds (read back
// through the library and by python3-dbfread), the files it leaves (backup,
// temporary name), what it keeps of the table's open mode, and that a pack
// that fails before the renames leaves the old table open and unchanged.
#include "xbtest.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "dbf.h"
#include "os.h"

namespace {

using xbt::fileExists;
using xbt::readFile;

// A row as the stored field texts, in field order.
using Row = std::vector<std::string>;

struct Spec {
    const char *name;
    int type;
    int len;
    int dec;
};

// NAME C(20), QTY N(6,0), HIRED D, OK L: 36-byte records, so the pack's
// 16384-byte block holds 455 of them and 1000 records take three blocks.
const std::vector<Spec> kPeople = {{"name", 'C', 20, 0}, {"QTY", 'n', 6, 0}, {"Hired", 'D', 8, 0}, {"OK", 'L', 1, 0}};

Row person(int i) {
    char name[32], qty[16], date[16];
    std::snprintf(name, sizeof name, "PERSON %04d", i);
    std::snprintf(qty, sizeof qty, "%6d", i * 7 - 300);
    std::snprintf(date, sizeof date, "%04d%02d%02d", 1990 + i % 30, 1 + i % 12, 1 + i % 28);
    return {name, qty, date, i % 2 ? "T" : "F"};
}

// What dbfread reports for such a row (see tests/support/dbfread_dump.py).
std::string personSeen(int i) {
    const Row r = person(i);
    return "\"" + r[0] + "\"\t" + std::to_string(i * 7 - 300) + "\t\"" + r[2] + "\"\t" + (i % 2 ? "true" : "false");
}

class PackTest : public xbt::LibTest {
protected:
    void TearDown() override {
        _DBsys = saved_;
        xbt::LibTest::TearDown();
    }

    void create(const std::string &p, const std::vector<Spec> &spec, int mode) {
        std::vector<DBFIELD> f(spec.size());
        for (size_t i = 0; i < spec.size(); i++) {
            std::snprintf(f[i].name, sizeof f[i].name, "%s", spec[i].name);
            f[i].type = spec[i].type;
            f[i].len = spec[i].len;
            f[i].decpl = spec[i].dec;
        }
        ASSERT_EQ(DBCreateFile(const_cast<char *>(p.c_str()), static_cast<int>(f.size()), f.data(), mode), 0) << p;
    }
    int open(const std::string &p, int mode) {
        int h = -1;
        EXPECT_EQ(DBOpenFile(&h, const_cast<char *>(p.c_str()), mode), 0) << p;
        return h;
    }
    void append(int h, const Row &row) {
        ASSERT_EQ(DBClearBuffer(h), 0);
        for (size_t i = 0; i < row.size(); i++)
            ASSERT_EQ(DBPutStrField(h, static_cast<int>(i), const_cast<char *>(row[i].c_str())), 0) << i;
        int32_t recno = 0;
        ASSERT_EQ(DBPutRecord(h, &recno, DB_APPEND), 0);
    }
    // The people table with records 1..n, those for which gone(i) marked
    // deleted; returns the open handle.
    template <class Gone>
    int people(const std::string &p, int n, Gone gone, int style = 1, int mode = 0) {
        create(p, kPeople, style);
        const int h = open(p, style | mode);
        for (int i = 1; i <= n; i++) append(h, person(i));
        for (int i = 1; i <= n; i++)
            if (gone(i)) EXPECT_EQ(DBMarkRecordInActive(h, i), 0);
        EXPECT_EQ(DBFlushFile(h), 0);
        return h;
    }
    int32_t count(int h) {
        int32_t n = -1;
        EXPECT_EQ(DBGetRecordCount(h, &n), 0);
        return n;
    }
    std::string field(int h, int i) {
        char buf[300] = {};
        const int rc = DBGetStrField(h, i, buf);
        EXPECT_TRUE(rc == 0 || rc == DBW_FIELDEMPTY) << rc;
        return buf;
    }
    DBSYSCALLS saved_ = _DBsys;
};

// python3-dbfread's view of a table: the "record" lines, the check line.
struct Seen {
    std::string header;
    std::vector<std::string> records;  // "<deleted>\t<values...>"
    std::string check;
};

Seen dbfread(const std::string &p) {
    Seen s;
    int status = -1;
    const std::string out = xbt::run("/usr/bin/python3 " XB_SOURCE_DIR "/tests/support/dbfread_dump.py '" + p + "' 2>&1", &status);
    EXPECT_EQ(status, 0) << out;
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("header\t", 0) == 0) s.header = line.substr(7);
        if (line.rfind("check\t", 0) == 0) s.check = line.substr(6);
        if (line.rfind("record\t", 0) == 0) {
            const size_t tab = line.find('\t', 7);
            s.records.push_back(line.substr(tab + 1));
        }
    }
    return s;
}

TEST_F(PackTest, DropsTheDeletedRecordsAndKeepsTheRestInOrder) {
    const std::string p = path("people.dbf");
    // Deleted: every third record, the first ten and the last five, and the
    // whole of the second block but its last record (456..909).
    auto gone = [](int i) { return i % 3 == 0 || i <= 10 || i > 995 || (i >= 456 && i < 910); };
    int h = people(p, 1000, gone);
    const std::vector<uint8_t> before = readFile(p);
    DBFILEINFO fi{};
    ASSERT_EQ(DBGetFileInfo(h, &fi), 0);
    const int style = fi.style;

    ASSERT_EQ(DBPackFile(&h), 0);
    ASSERT_GE(h, 3);

    std::vector<int> kept;
    for (int i = 1; i <= 1000; i++)
        if (!gone(i)) kept.push_back(i);
    ASSERT_EQ(count(h), static_cast<int32_t>(kept.size()));
    for (size_t k = 0; k < kept.size(); k++) {
        ASSERT_EQ(DBGetRecord(h, static_cast<int32_t>(k + 1)), 0) << k;
        EXPECT_EQ(DBIsRecordDeleted(h), 0);
        const Row want = person(kept[k]);
        for (int f = 0; f < 4; f++) {
            std::string w = want[static_cast<size_t>(f)];
            if (f == 0) w.resize(20, ' ');  // character fields come back as stored
            EXPECT_EQ(field(h, f), w) << "record " << k + 1;
        }
    }
    ASSERT_EQ(DBGetFileInfo(h, &fi), 0);
    EXPECT_EQ(fi.style, style);
    ASSERT_EQ(DBCloseFile(h), 0);

    // On disk: header count, length with one end mark, the old file kept
    // byte for byte as the backup, no work file left.
    const std::vector<uint8_t> after = readFile(p);
    const size_t hl = after[8] | (after[9] << 8);
    EXPECT_EQ(hl, 32u * 4 + 33);
    EXPECT_EQ(after.size(), hl + kept.size() * 36 + 1);
    EXPECT_EQ(after.back(), 0x1A);
    EXPECT_EQ(after[4] | (after[5] << 8), static_cast<int>(kept.size()));
    EXPECT_EQ(readFile(path("people.BAK")), before);
    EXPECT_FALSE(fileExists(path("0.DBF")));

    const Seen s = dbfread(p);
    EXPECT_EQ(s.check, "ok");
    ASSERT_EQ(s.records.size(), kept.size());
    for (size_t k = 0; k < kept.size(); k++) EXPECT_EQ(s.records[k], "0\t" + personSeen(kept[k])) << k;
}

TEST_F(PackTest, TablesWithNothingToKeepBecomeValidEmptyTables) {
    struct {
        const char *what;
        int n;
        bool deleteAll;
    } cases[] = {{"every record deleted", 40, true}, {"no records at all", 0, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const std::string p = path("empty.dbf");
        int h = people(p, c.n, [&](int) { return c.deleteAll; });
        ASSERT_EQ(DBPackFile(&h), 0);
        EXPECT_EQ(count(h), 0);
        EXPECT_EQ(DBGetRecord(h, 1), DBE_SEEK);
        // Still a working table: it takes a new record.
        append(h, person(77));
        ASSERT_EQ(DBCloseFile(h), 0);
        EXPECT_EQ(xbt::fileSize(p), 32 * 4 + 33 + 36 + 1);
        const Seen s = dbfread(p);
        EXPECT_EQ(s.check, "ok");
        ASSERT_EQ(s.records.size(), 1u);
        EXPECT_EQ(s.records[0], "0\t" + personSeen(77));
        std::remove(p.c_str());
        std::remove(path("empty.BAK").c_str());
    }
}

// Each style with the field types it can create, packed and read back by
// dbfread.
TEST_F(PackTest, EveryStyleSurvivesAPackThatDbfreadReads) {
    struct StyleCase {
        int style;
        bool floats;  // 'F' is allowed in styles 2, 4, 8
    };
    const StyleCase styles[] = {{0, false}, {1, false}, {2, true}, {3, false}, {4, true},
                                {5, false}, {6, false}, {7, false}, {8, true}, {9, false}};
    for (const StyleCase &sc : styles) {
        SCOPED_TRACE("style " + std::to_string(sc.style));
        const std::string p = path("s" + std::to_string(sc.style) + ".dbf");
        // Style 0 writes no memo mark in the version byte, so a memo field
        // there makes a table that no style opens: it gets none.
        const bool memo = sc.style != 0;
        std::vector<Spec> spec = {{"NAME", 'C', 12, 0}, {"AMOUNT", 'N', 10, 2}, {"DAY", 'D', 8, 0},
                                  {"FLAG", 'L', 1, 0}};
        if (memo) spec.push_back({"NOTES", 'M', 10, 0});
        if (sc.floats) spec.push_back({"RATE", 'F', 8, 3});
        create(p, spec, sc.style);
        int h = open(p, sc.style);
        const std::vector<Row> rows = {
            {"alpha", "   1234.50", "20240229", "T", "         3", "   1.250"},
            {"beta", "     -0.75", "19991231", "F", "          ", "  -2.000"},
            {"gamma", "      0.00", "        ", "?", "        17", "        "},
            {"delta", "  99999.99", "20000101", "T", "         1", "   0.001"},
            {"epsilon", "     12.00", "21000301", "F", "        42", "  12.500"},
        };
        for (Row r : rows) {
            if (!sc.floats) r.pop_back();
            if (!memo) r.erase(r.begin() + 4);
            append(h, r);
        }
        ASSERT_EQ(DBMarkRecordInActive(h, 2), 0);
        ASSERT_EQ(DBMarkRecordInActive(h, 4), 0);
        ASSERT_EQ(DBPackFile(&h), 0);
        ASSERT_EQ(count(h), 3);
        ASSERT_EQ(DBCloseFile(h), 0);

        const std::vector<uint8_t> bak = readFile(path("s" + std::to_string(sc.style) + ".BAK"));
        const std::vector<uint8_t> now = readFile(p);
        ASSERT_GT(now.size(), 32u);
        // Same version byte and header layout as the table that was packed.
        EXPECT_EQ(now[0], bak[0]);
        EXPECT_EQ(std::vector<uint8_t>(now.begin() + 8, now.begin() + 12),
                  std::vector<uint8_t>(bak.begin() + 8, bak.begin() + 12));
        const size_t hl = now[8] | (now[9] << 8), rl = now[10] | (now[11] << 8);
        // Style 7 ends with a whole record of end marks.
        EXPECT_EQ(now.size(), hl + 3 * rl + (sc.style == 7 ? rl : 1));

        const Seen s = dbfread(p);
        EXPECT_EQ(s.check, "ok");
        auto seen = [&](const char *head, const char *m, const char *f) {
            return std::string("0\t") + head + (memo ? std::string("\t") + m : "") + (sc.floats ? std::string("\t") + f : "");
        };
        const std::vector<std::string> want = {
            seen("\"alpha\"\t1234.5\t\"20240229\"\ttrue", "3", "1.25"),
            seen("\"gamma\"\t0.0\tnull\tnull", "17", "null"),
            seen("\"epsilon\"\t12.0\t\"21000301\"\tfalse", "42", "12.5"),
        };
        EXPECT_EQ(s.records, want);
    }
}

TEST_F(PackTest, KeepsTheProductionIndexFlagsAndTheOpenMode) {
    // Style 2 with the production-index flag: header byte 28 and each
    // field's byte 31 survive.
    const std::string p = path("flags.dbf");
    std::vector<DBFIELD> f(2);
    std::snprintf(f[0].name, sizeof f[0].name, "CODE");
    f[0].type = 'C' | 0x100;
    f[0].len = 8;
    std::snprintf(f[1].name, sizeof f[1].name, "QTY");
    f[1].type = 'N';
    f[1].len = 5;
    ASSERT_EQ(DBCreateFile(const_cast<char *>(p.c_str()), 2, f.data(), 2 | 0x200), 0);
    int h = open(p, 2 | DBO_SHARED | DBO_MULTILOCK);
    ASSERT_EQ(DBLockFile(h), 0);
    append(h, {"A", "    1"});
    append(h, {"B", "    2"});
    ASSERT_EQ(DBMarkRecordInActive(h, 1), 0);
    int cache = 21;
    ASSERT_EQ(DBGetSetCacheSize(h, &cache, 0), 0);
    ASSERT_EQ(DBPackFile(&h), 0);
    const std::vector<uint8_t> b = readFile(p);
    EXPECT_EQ(b[28], 1);
    EXPECT_EQ(b[32 + 31], 1);
    EXPECT_EQ(b[64 + 31], 0);
    // Reopened shared (multiple locks are not carried over), holding no
    // locks, with the cache size it had.
    DBFILEINFO fi{};
    ASSERT_EQ(DBGetFileInfo(h, &fi), 0);
    EXPECT_EQ(fi.flags.isshareable, 1);
    EXPECT_EQ(fi.flags.isunbuffered, 0);
    EXPECT_EQ(fi.lockt, 0);
    EXPECT_EQ(fi.numlcks, 0);
    EXPECT_EQ(fi.mdx, 1);
    EXPECT_EQ(xbt::probeLock(p, 0x40000000, 2).blocked, false);
    cache = 0;
    ASSERT_EQ(DBGetSetCacheSize(h, &cache, 1), 0);
    EXPECT_EQ(cache, 21);
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(DBGetFileInfo(h, &fi), 0);
    EXPECT_EQ(fi.numlcks, 1);
    DBCloseFile(h);

    // An unbuffered table comes back write-through.
    const std::string q = path("unbuf.dbf");
    h = people(q, 30, [](int i) { return i > 20; }, 1, DBO_UNBUFFERED);
    ASSERT_EQ(DBPackFile(&h), 0);
    ASSERT_EQ(DBGetFileInfo(h, &fi), 0);
    EXPECT_EQ(fi.flags.isunbuffered, 1);
    EXPECT_EQ(fi.flags.isshareable, 0);
    EXPECT_EQ(count(h), 20);
    ASSERT_EQ(DBGetRecord(h, 20), 0);
    EXPECT_EQ(field(h, 0), person(20)[0] + "         ");
    DBCloseFile(h);
}

TEST_F(PackTest, ChangesStillInTheCacheArePacked) {
    const std::string p = path("pending.dbf");
    create(p, kPeople, 1);
    int h = open(p, 1);
    for (int i = 1; i <= 12; i++) append(h, person(i));
    ASSERT_EQ(DBMarkRecordInActive(h, 12), 0);
    ASSERT_EQ(DBMarkRecordInActive(h, 1), 0);
    // Nothing flushed yet: the file still says 0 records.
    EXPECT_EQ(readFile(p)[4], 0);
    ASSERT_EQ(DBPackFile(&h), 0);
    ASSERT_EQ(count(h), 10);
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    EXPECT_EQ(field(h, 0), person(2)[0] + "         ");
    ASSERT_EQ(DBGetRecord(h, 10), 0);
    EXPECT_EQ(field(h, 0), person(11)[0] + "         ");
    DBCloseFile(h);
}

TEST_F(PackTest, BackupAndWorkFileNames) {
    struct {
        const char *table;
        const char *backup;
    } cases[] = {
        {"SALES", "SALES.BAK"},
        {"sales.dbf", "sales.BAK"},
        {"data.v1.dbf", "data.v1.BAK"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.table);
        const std::string p = path(c.table);
        // An older backup is replaced.
        xbt::writeFile(path(c.backup), std::string("old backup"));
        int h = people(p, 5, [](int i) { return i == 3; });
        const std::vector<uint8_t> before = readFile(p);
        ASSERT_EQ(DBPackFile(&h), 0);
        EXPECT_EQ(count(h), 4);
        DBCloseFile(h);
        EXPECT_EQ(readFile(path(c.backup)), before);
    }
    // A relative name works in the current directory.
    const std::string cwd = xbt::run("pwd");
    ASSERT_EQ(chdir(tmp_.dir().c_str()), 0);
    int h = people("rel.dbf", 4, [](int i) { return i == 1; });
    EXPECT_EQ(DBPackFile(&h), 0);
    EXPECT_EQ(count(h), 3);
    DBCloseFile(h);
    EXPECT_TRUE(fileExists(path("rel.BAK")));
    EXPECT_FALSE(fileExists(path("0.DBF")));
    ASSERT_EQ(chdir(cwd.substr(0, cwd.size() - 1).c_str()), 0);
}

// Observe the pack from inside its writes.
std::string gDir;
int gWrites = 0;
bool gSawWorkFile1 = false;
bool gFailBigWrites = false;
std::string gLockProbe;
bool gFileLockSeen = false;
long (*gRealWrite)(int, const void *, size_t) = nullptr;

long observingWrite(int fd, const void *buf, size_t len) {
    if (gWrites++ == 0) gSawWorkFile1 = xbt::fileExists(gDir + "/1.DBF");
    if (!gLockProbe.empty() && len > 1000) {
        const xbt::LockSeen s = xbt::probeLock(gLockProbe, 0, 0x7FFFFFFF);
        gFileLockSeen = s.blocked && s.start == 0 && s.len == 0x7FFFFFFF;
    }
    if (gFailBigWrites && len > 1000) {
        errno = ENOSPC;
        return -1;
    }
    return gRealWrite(fd, buf, len);
}

TEST_F(PackTest, TheWorkFileIsTheFirstFreeNumber) {
    const std::string p = path("work.dbf");
    int h = people(p, 10, [](int i) { return i % 2 == 0; });
    xbt::writeFile(path("0.DBF"), std::string("somebody else's file"));
    gDir = tmp_.dir();
    gWrites = 0;
    gSawWorkFile1 = false;
    gRealWrite = _DBsys.write;
    _DBsys.write = observingWrite;
    ASSERT_EQ(DBPackFile(&h), 0);
    _DBsys = saved_;
    EXPECT_TRUE(gSawWorkFile1);
    const std::vector<uint8_t> other = readFile(path("0.DBF"));
    EXPECT_EQ(std::string(other.begin(), other.end()), "somebody else's file");
    EXPECT_FALSE(fileExists(path("1.DBF")));
    EXPECT_EQ(count(h), 5);
    DBCloseFile(h);
}

TEST_F(PackTest, ASharedTableIsFileLockedForTheCopy) {
    const std::string p = path("shared.dbf");
    create(p, kPeople, 1);
    int h = open(p, 1 | DBO_SHARED);
    ASSERT_EQ(DBLockAppend(h), 0);
    for (int i = 1; i <= 600; i++) append(h, person(i));
    ASSERT_EQ(DBFlushFile(h), 0);
    ASSERT_EQ(DBUnLockAll(h), 0);
    ASSERT_EQ(DBLockRecord(h, 1), 0);
    ASSERT_EQ(DBMarkRecordInActive(h, 1), 0);
    ASSERT_EQ(DBUnLockAll(h), 0);
    gLockProbe = p;
    gFileLockSeen = false;
    gRealWrite = _DBsys.write;
    _DBsys.write = observingWrite;
    ASSERT_EQ(DBPackFile(&h), 0);
    _DBsys = saved_;
    gLockProbe.clear();
    EXPECT_TRUE(gFileLockSeen);
    EXPECT_EQ(count(h), 599);
    EXPECT_FALSE(xbt::probeLock(p, 0, 0x7FFFFFFF).blocked);
    DBCloseFile(h);
}

// The old table, as the library and the disk see it, must come through a
// failed pack unchanged.
void expectUntouched(int h, const std::string &p, const std::vector<uint8_t> &bytes, int n,
                     const std::vector<bool> &deleted) {
    EXPECT_EQ(readFile(p), bytes);
    int32_t c = -1;
    ASSERT_EQ(DBGetRecordCount(h, &c), 0);
    EXPECT_EQ(c, n);
    for (int i = 1; i <= n; i++) {
        const int rc = DBGetRecord(h, i);
        EXPECT_EQ(rc, deleted[static_cast<size_t>(i)] ? DBW_DELETED : 0) << i;
        char buf[32] = {};
        DBGetStrField(h, 0, buf);
        EXPECT_EQ(std::string(buf), person(i)[0] + std::string(20 - person(i)[0].size(), ' ')) << i;
    }
}

TEST_F(PackTest, AFailureBeforeTheRenamesLeavesTheOldTableAsItWas) {
    const std::string p = path("keep.dbf");
    auto gone = [](int i) { return i % 4 == 0; };
    int h = people(p, 700, gone, 1, DBO_SHARED | DBO_AUTOLOCK);
    const std::vector<uint8_t> bytes = readFile(p);
    std::vector<bool> deleted(701);
    for (int i = 1; i <= 700; i++) deleted[static_cast<size_t>(i)] = gone(i);
    const int old = h;

    // The disk fills up while the records are copied.
    gFailBigWrites = true;
    gRealWrite = _DBsys.write;
    _DBsys.write = observingWrite;
    EXPECT_EQ(DBPackFile(&h), DBE_WRITE);
    _DBsys = saved_;
    gFailBigWrites = false;
    EXPECT_EQ(h, old);
    expectUntouched(h, p, bytes, 700, deleted);
    EXPECT_FALSE(fileExists(path("0.DBF")));
    EXPECT_FALSE(fileExists(path("keep.BAK")));
    DBFILEINFO fi{};
    ASSERT_EQ(DBGetFileInfo(h, &fi), 0);
    EXPECT_EQ(fi.lockt, 0);
    EXPECT_EQ(fi.flags.isunbuffered, 1);
    EXPECT_FALSE(xbt::probeLock(p, 0, 0x7FFFFFFF).blocked);

    // Another process holds a record: the file lock is refused.
    {
        xbt::ChildLock child(p, 32 * 4 + 33 + 36 * 9, 36);  // record 10
        ASSERT_TRUE(child.ok());
        EXPECT_EQ(DBPackFile(&h), static_cast<int>(EAGAIN | 0xC0000000u));
        expectUntouched(h, p, bytes, 700, deleted);
        EXPECT_FALSE(fileExists(path("0.DBF")));
    }

    // Fields this style cannot create: refused by the create, nothing left.
    const std::string q = path("wide.dbf");
    {
        // A style-1 file with an N(20) field, which style 1 cannot create.
        std::vector<uint8_t> b(32 + 32 + 1, 0);
        b[0] = 0x03;
        b[1] = 24;
        b[2] = 1;
        b[3] = 1;
        b[8] = 65;
        b[10] = 21;
        std::memcpy(&b[32], "BIG", 3);
        b[43] = 'N';
        b[48] = 20;
        b[64] = 0x0D;
        const std::string rec = " " + std::string(19, ' ') + "1";
        b.insert(b.end(), rec.begin(), rec.end());
        b[4] = 1;
        b.push_back(0x1A);
        xbt::writeFile(q, b);
    }
    const std::vector<uint8_t> wide = readFile(q);
    int w = open(q, 1);
    EXPECT_EQ(DBPackFile(&w), DBE_FIELDLEN);
    EXPECT_EQ(readFile(q), wide);
    EXPECT_FALSE(fileExists(path("0.DBF")));
    EXPECT_EQ(DBGetRecord(w, 1), 0);
    DBCloseFile(w);

    // After all that, the pack still works.
    ASSERT_EQ(DBPackFile(&h), 0);
    EXPECT_EQ(count(h), 525);
    DBCloseFile(h);
}

TEST_F(PackTest, AVisualFoxProTableCannotBeRecreatedAndStaysAsItIs) {
    const std::string p = fixture("py_vfp.dbf");
    const std::vector<uint8_t> bytes = readFile(p);
    int h = open(p, 10);
    EXPECT_EQ(DBPackFile(&h), DBE_BADVERSION);
    EXPECT_EQ(readFile(p), bytes);
    EXPECT_FALSE(fileExists(path("0.DBF")));
    EXPECT_EQ(count(h), 50);
    DBCloseFile(h);
}

TEST_F(PackTest, BadArguments) {
    const std::string p = path("args.dbf");
    int h = people(p, 3, [](int i) { return i == 2; });
    ASSERT_EQ(DBCloseFile(h), 0);
    const std::vector<uint8_t> bytes = readFile(p);
    EXPECT_EQ(DBPackFile(nullptr), DBE_NULLPARAM);
    int bad = 2;
    EXPECT_EQ(DBPackFile(&bad), DBE_BADHANDLE);
    bad = 9999;
    EXPECT_EQ(DBPackFile(&bad), DBE_BADHANDLE);
    bad = 40;  // in range, not open
    EXPECT_EQ(DBPackFile(&bad), DBE_BADHANDLE);
    int ro = open(p, 1 | DBO_READONLY);
    const int was = ro;
    EXPECT_EQ(DBPackFile(&ro), DBE_READONLY);
    EXPECT_EQ(ro, was);
    DBCloseFile(ro);
    EXPECT_EQ(readFile(p), bytes);
    EXPECT_FALSE(fileExists(path("args.BAK")));
}

}  // namespace
