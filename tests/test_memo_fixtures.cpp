// test_memo_fixtures.cpp - memo files other programs wrote, read and packed.
#include "memo_util.h"
#include "seams.h"

#include <algorithm>
#include <cstdio>

using xbt::readFile;
using xbt::writeFile;

namespace {

struct MemoFixtures : xbt::LibTest {
    std::string memoOf(int32_t rec, int32_t *block) {
        EXPECT_GE(DBGetRecord(dbf, rec), 0) << rec;
        EXPECT_GE(DBGetFieldData(dbf, notes, block), 0) << rec;
        return *block > 0 ? m.get(*block) : "";
    }
    // Every memo as this library reads it, hashed by python3, against the
    // dump's "length:md5" of every record.
    void expectAllMemos(const std::string &stem) {
        std::string all, want, blob = path("memos.bin");
        for (const auto &line : xbt::readLines(xbt::fixturePath(stem + ".records.txt")))
            if (!line.empty() && line[0] != '#') want += line.substr(line.rfind('|') + 1) + "\n";
        int32_t count = 0, block = 0;
        ASSERT_EQ(DBGetRecordCount(dbf, &count), 0);
        for (int32_t rec = 1; rec <= count; rec++) {
            const std::string s = memoOf(rec, &block);
            all += std::to_string(s.size()) + "\n" + s;
        }
        writeFile(blob, all);
        int st = -1;
        auto got = xbt::run("/usr/bin/python3 -c 'import hashlib,sys\nd=open(sys.argv[1],\"rb\").read()\n"
                            "while d:\n n,d=d.split(b\"\\n\",1);n=int(n)\n"
                            " print(\"%d:%s\"%(n,hashlib.md5(d[:n]).hexdigest()));d=d[n:]' " + blob, &st);
        EXPECT_EQ(st, 0);
        EXPECT_EQ(got, want);
        std::remove(blob.c_str());
    }
    mt::Memo m;
    int dbf = -1, notes = -1;
};

// Every memo matches the dump, before and after a pack; a failed pack changes nothing.
TEST_F(MemoFixtures, EveryMemoMatchesTheDumpAndSurvivesPacks) {
    struct { const char *stem, *memo; bool fpt; int style; } fixtures[] = {
        {"hbntx", "hbntx.dbt", false, 1}, {"py_db3", "py_db3.dbt", false, 1},
        {"hbcdx", "hbcdx.fpt", true, 4},  {"py_vfp", "py_vfp.fpt", true, 10}};
    for (const auto &f : fixtures) {
        SCOPED_TRACE(f.stem);
        std::string dbfPath = openableFixture(std::string(f.stem) + ".dbf"), name = "NOTES";
        ASSERT_GE(DBOpenFile(&dbf, &dbfPath[0], f.style), 0);
        ASSERT_EQ(DBGetFieldNumber(dbf, &notes, &name[0]), 0);
        m = mt::Memo{f.fpt, fixture(f.memo)};
        ASSERT_EQ(m.open(f.fpt ? f.style : 3), 0);
        expectAllMemos(f.stem);

        const std::set<std::string> dir = names();
        const long oldSize = xbt::fileSize(m.file);
        int32_t rec = 2, blk = 0;
        blk = m.put(memoOf(2, &blk));  // record 2's old memo is now dead
        ASSERT_EQ(DBPutFieldData(dbf, notes, &blk), 0);
        ASSERT_EQ(DBPutRecord(dbf, &rec, DB_REWRITE), 0);
        ASSERT_EQ(DBFlushFile(dbf), 0);
        auto memoBytes = readFile(m.file);
        const xbt::Files records = undated({f.stem + std::string(".dbf")});
        int fails = 0, rc = 0;
        {
            xbt::Seams seams;  // the table cannot be written once
            seams.watch = [&, fd = DBGetFileDescriptor(dbf)](int to, size_t) { return to == fd && fails++ == 0; };
            rc = m.pack(dbf);
        }
        EXPECT_EQ(std::make_pair(rc, fails > 0), std::make_pair(DBE_WRITE, true));
        EXPECT_EQ(readFile(m.file), memoBytes);
        EXPECT_EQ(undated({f.stem + std::string(".dbf")}), records);  // the date may be today's
        EXPECT_EQ(names(), dir);

        ASSERT_EQ(m.pack(dbf), 0);
        expectAllMemos(f.stem);
        EXPECT_LE(xbt::fileSize(m.file), (oldSize + 511) / 512 * 512);
        EXPECT_EQ(names(), dir);

        memoOf(2, &blk);
        ASSERT_EQ(DBFlushFile(dbf), 0);
        memoBytes = readFile(m.file);
        const auto dbfBytes = readFile(dbfPath);
        // Record 2's new pointer as stored (NOTES is the last field): binary in VFP, else "%10ld".
        char text[16];
        std::snprintf(text, sizeof text, "%10ld", long(blk));
        const std::string want = f.style == 10 ? xbt::raw(blk) : text;
        const size_t end = (dbfBytes[8] | dbfBytes[9] << 8) + 2 * (dbfBytes[10] | dbfBytes[11] << 8);
        EXPECT_EQ(std::string(dbfBytes.begin() + long(end - want.size()), dbfBytes.begin() + long(end)), want);
        // Damage record 2's memo: a length past the end, or no end mark.
        if (f.fpt) memoBytes[size_t(blk) * mt::get32(memoBytes, 4, true) + 4] = 0x7F;
        else std::replace(memoBytes.begin() + blk * 512, memoBytes.end(), uint8_t(0x1A), uint8_t('x'));
        writeFile(m.file, memoBytes);
        const int handle = m.h, rc2 = m.pack(dbf);
        EXPECT_TRUE(rc2 == DBE_CORRUPT || rc2 == DBE_FIELDLEN) << rc2;
        EXPECT_EQ(readFile(m.file), memoBytes);
        EXPECT_EQ(readFile(dbfPath), dbfBytes);
        EXPECT_EQ(names(), dir);
        EXPECT_EQ(m.h, handle);
        ASSERT_EQ(m.close(), 0);  // still open; read only, it is not packed at all
        ASSERT_EQ(m.open((f.fpt ? f.style : 3) | DBO_READONLY), 0);
        EXPECT_EQ(m.pack(dbf), DBE_READONLY);
    }
}

}  // namespace
