// test_pack_crash.cpp - a table pack or memo pack killed after any one of its
// steps (each write, rename, link and unlink): the next open of the table
// finds, under the original names, the old pair of files or the new pair.
#include "memo_util.h"
#include "seams.h"
#include "tablea_util.h"

#include <functional>
#include <set>

namespace {

using xbt::Files;

class PackCrash : public xbt::LibTest {
protected:
    // Stop the pack after each of its steps in turn. The next open of the
    // table must leave the pair of files as they were or as a whole pack
    // makes them, and nothing else but the names in `litter`. Where a memo
    // pack's marker stands but its backup name is still free, another file
    // takes that name first: the repair must leave it alone.
    void everyStep(const std::set<std::string> &pair, const std::set<std::string> &litter,
                   const std::function<int()> &pack, const std::string &backup = "") {
        const Files before = all(), old = undated(pair);
        const long steps = xbt::runKilledAt(0, pack);
        ASSERT_TRUE(steps > 3 && steps < 255) << steps;
        const Files packed = undated(pair);
        ASSERT_NE(packed, old);
        for (long stop = 1; stop <= steps; stop++) {
            restore(before);
            ASSERT_EQ(xbt::runKilledAt(stop, pack), -1) << stop;
            const bool marked = xbt::fileExists(path("t.MPK")), hasBackup = xbt::fileExists(path(backup));
            // Killed between removing the marker and the backup: the backup stays, a stray file.
            const bool stray = !marked && hasBackup, intruder = !backup.empty() && marked && !hasBackup;
            if (intruder) xbt::writeFile(path(backup), std::string("another file"));
            int h = -1;
            ASSERT_EQ(DBOpenFile(&h, tablea::cs(path("t.dbf").c_str()), style_), 0) << "stopped after step " << stop;
            ASSERT_EQ(DBCloseFile(h), 0);
            const Files now = undated(pair);
            EXPECT_TRUE(now == old || now == packed) << "neither pair after step " << stop << " of " << steps;
            const std::vector<uint8_t> other = intruder ? xbt::readFile(path(backup)) : std::vector<uint8_t>{};
            if (intruder) EXPECT_EQ(std::string(other.begin(), other.end()), "another file") << stop;
            for (const std::string &n : names())
                EXPECT_TRUE(pair.count(n) || litter.count(n) || (n == backup && (stray || intruder)))
                    << n << " left after step " << stop;
        }
    }
    int style_ = 1;
};

// NAME C(10): twenty rows, every third deleted.
TEST_F(PackCrash, TablePack) {
    tablea::RawDbf t;
    t.field("NAME", 'C', 10);
    for (int i = 1; i <= 20; i++) t.records.push_back((i % 3 ? " row " : "*row ") + std::to_string(100 + i) + "   ");
    t.write(path("t.dbf"));
    everyStep({"t.dbf"}, {"0.DBF", "t.BAK"}, [&] {
        int h = -1;
        return DBOpenFile(&h, tablea::cs(path("t.dbf").c_str()), 1) == 0 ? DBPackFile(&h) : -1;
    });
}

// NAME C(10), NOTES M: twelve rows with memos, half of them rewritten so
// that the old texts are dead and the pack moves the rest; for DBT (dBASE
// III) and FPT, the table shared.
TEST_F(PackCrash, MemoPack) {
    const struct { bool fpt; int size, version, style; const char *memo, *work, *backup; } families[] = {
        {false, 1, 3, 1, "t.dbt", "0.DBT", "1.DBT"}, {true, 1, 0, 4, "t.fpt", "0.FPT", "1.FPT"}};
    for (const auto &f : families) {
        SCOPED_TRACE(f.style);
        restore({});
        style_ = f.style;
        DBFIELD fields[2] = {{"NAME", 'C', 10, 0}, {"NOTES", 'M', 10, 0}};
        ASSERT_EQ(DBCreateFile(tablea::cs(path("t.dbf").c_str()), 2, fields, f.style), 0);
        auto m = mt::made(f.fpt, path(f.memo), f.size, f.version, f.version);
        int h = -1;
        ASSERT_EQ(DBOpenFile(&h, tablea::cs(path("t.dbf").c_str()), f.style), 0);
        for (int i = 1; i <= 12; i++) {
            int32_t rec = 0, blk = m.put(std::string(100 * i, static_cast<char>('a' + i)));
            if (i % 2 == 0) blk = m.put(std::string(700, static_cast<char>('A' + i)));  // a new copy; the old text is dead
            ASSERT_EQ(DBClearBuffer(h) | DBPutFieldData(h, 1, &blk), 0);
            ASSERT_EQ(DBPutRecord(h, &rec, DB_APPEND), 0);
        }
        ASSERT_EQ(DBCloseFile(h) | m.close(), 0);
        everyStep({"t.dbf", f.memo}, {f.work}, [&] {
            int t = -1;
            return DBOpenFile(&t, tablea::cs(path("t.dbf").c_str()), f.style | DBO_SHARED) == 0 && m.open(f.version) == 0
                       ? m.pack(t)
                       : -1;
        }, f.backup);
    }
}

}  // namespace
