// test_memo_fixtures.cpp - the memo files other programs wrote (Harbour's
// DBT and FPT, python3-dbf's DBT and VFP FPT), read through the table
// engine and compared with the producers' dumps; then packed, and packed
// with a damaged memo to show that a failed pack changes nothing.
#include "xbtest.h"

#include "os.h"

#include <dirent.h>
#include <errno.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

using xbt::readFile;
using xbt::writeFile;

namespace {

struct Fixture {
    const char *stem;   // NAME.dbf, NAME.records.txt
    const char *memo;   // the memo file
    bool fpt;
    int style;          // table style (and memo version for DBT)
};

const Fixture kFixtures[] = {
    {"hbntx", "hbntx.dbt", false, 1},
    {"py_db3", "py_db3.dbt", false, 1},
    {"hbcdx", "hbcdx.fpt", true, 4},
    {"py_vfp", "py_vfp.fpt", true, 10},
};

// "length:md5" of every record, by record number, from the dump.
std::vector<std::string> expectedMemos(const std::string &stem) {
    std::vector<std::string> out;
    for (const auto &line : xbt::readLines(xbt::fixturePath(stem + ".records.txt"))) {
        if (line.empty() || line[0] == '#') continue;
        out.push_back(line.substr(line.rfind('|') + 1));
    }
    return out;
}

std::set<std::string> listDir(const std::string &dir) {
    std::set<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.') names.insert(e->d_name);
        closedir(d);
    }
    return names;
}

// Writes to one descriptor fail (EIO) while failsLeft counts down.
int failFd = -1;
int failsLeft = 0;
long (*realWrite)(int, const void *, size_t) = nullptr;
long failingWrite(int fd, const void *buf, size_t len) {
    if (fd == failFd && failsLeft > 0) {
        failsLeft--;
        errno = EIO;
        return -1;
    }
    return realWrite(fd, buf, len);
}

class MemoFixtures : public xbt::LibTest {
protected:
    // Copy a fixture pair in (the Harbour and python3-dbf tables keep the
    // year as year - 1900, which the table engine refuses: set it to 26)
    // and open both.
    void open(const Fixture &f, int memoMode = 0) {
        dbfPath = fixture(std::string(f.stem) + ".dbf");
        memoPath = fixture(f.memo);
        auto d = readFile(dbfPath);
        if (d[1] > 119) d[1] = 26;
        writeFile(dbfPath, d);
        ASSERT_GE(DBOpenFile(&dbf, &dbfPath[0], f.style), 0) << f.stem;
        fpt = f.fpt;
        if (fpt) ASSERT_EQ(DBfpOpenMemo(&memo, &memoPath[0], f.style | memoMode), 0);
        else ASSERT_EQ(DBxbOpenMemo(&memo, &memoPath[0], 3 | memoMode), 0);
        char name[] = "NOTES";
        ASSERT_EQ(DBGetFieldNumber(dbf, &notes, name), 0);
    }
    // Record rec's memo as this library reads it.
    std::string memoOf(int32_t rec, int32_t *blockOut = nullptr) {
        int rc = DBGetRecord(dbf, rec);
        EXPECT_TRUE(rc == 0 || rc == DBW_DELETED) << rec << " " << rc;
        int32_t block = -1;
        rc = DBGetFieldData(dbf, notes, &block);
        EXPECT_TRUE(rc == 0 || rc == DBW_FIELDEMPTY) << rec << " " << rc;
        if (blockOut) *blockOut = block;
        std::string bytes;
        if (block > 0) {
            char *out = nullptr;
            if (fpt) {
                int32_t len = 0;
                int bin = 0;
                EXPECT_EQ(DBfpGetMemoType(memo, block, &len, &bin), 0) << rec;
                EXPECT_EQ(DBfpGetMemoRecord(memo, block, &out, 0x7FFFFFFF, 0), 0) << rec;
                if (out) bytes.assign(out, size_t(len));
            } else {
                EXPECT_EQ(DBxbGetMemoRecord(memo, block, &out, 0), 0) << rec;
                if (out) bytes = out;
            }
            DBFreeMemory(out, "test", 0);
        }
        return bytes;
    }
    // Every memo against the dump's "length:md5" (hashed by one python3
    // run over all of them).
    void expectAllMemos(const Fixture &f) {
        auto want = expectedMemos(f.stem);
        int32_t count = 0;
        ASSERT_EQ(DBGetRecordCount(dbf, &count), 0);
        ASSERT_EQ(size_t(count), want.size()) << f.stem;
        std::string all;
        for (int32_t rec = 1; rec <= count; rec++) {
            std::string m = memoOf(rec);
            all += std::to_string(m.size()) + "\n" + m;
        }
        std::string blob = path("memos.bin");
        writeFile(blob, all);
        int st = -1;
        auto got = xbt::run("/usr/bin/python3 -c 'import hashlib,sys\nd=open(sys.argv[1],\"rb\").read()\n"
                            "while d:\n n,d=d.split(b\"\\n\",1);n=int(n)\n"
                            " print(\"%d:%s\"%(n,hashlib.md5(d[:n]).hexdigest()));d=d[n:]' " + blob,
                            &st);
        ASSERT_EQ(st, 0);
        std::string expect;
        for (const auto &w : want) expect += w + "\n";
        EXPECT_EQ(got, expect) << f.stem;
        std::remove(blob.c_str());
    }
    // Give the pack something to drop and renumber: record 2's memo is
    // written again at the end and its old blocks abandoned.
    void orphanRecord2() {
        int32_t block = 0;
        memoOf(2, &block);
        ASSERT_NE(block, 0);
        char *text = nullptr;
        std::string copy;
        if (fpt) {
            int32_t len = 0;
            int bin = 0;
            ASSERT_EQ(DBfpGetMemoType(memo, block, &len, &bin), 0);
            ASSERT_EQ(DBfpGetMemoRecord(memo, block, &text, 0x7FFFFFFF, 0), 0);
            copy.assign(text, size_t(len));
            ASSERT_EQ(DBfpPutMemoRecord(memo, &block, &copy[0], len, 0, bin), 0);
        } else {
            ASSERT_EQ(DBxbGetMemoRecord(memo, block, &text, 0), 0);
            copy = text;
            block = 0;  // a new text: the old one becomes dead
            ASSERT_EQ(DBxbPutMemoRecord(memo, &block, &copy[0], 0), 0);
        }
        DBFreeMemory(text, "test", 0);
        ASSERT_EQ(DBPutFieldData(dbf, notes, &block), 0);
        int32_t rec = 2;
        ASSERT_EQ(DBPutRecord(dbf, &rec, DB_REWRITE), 0);
    }
    void closeAll() {
        EXPECT_EQ(DBCloseFile(dbf), 0);
        EXPECT_EQ(fpt ? DBfpCloseMemo(memo) : DBxbCloseMemo(memo), 0);
    }
    int pack() { return fpt ? DBfpPackMemo(dbf, &memo) : DBxbPackMemo(dbf, &memo); }

    std::string dbfPath, memoPath;
    int dbf = -1, memo = -1, notes = -1;
    bool fpt = false;
};

TEST_F(MemoFixtures, EveryMemoMatchesTheDump) {
    for (const auto &f : kFixtures) {
        open(f);
        expectAllMemos(f);
        closeAll();
    }
}

TEST_F(MemoFixtures, PackKeepsEveryMemoAndRenumbers) {
    for (const auto &f : kFixtures) {
        SCOPED_TRACE(f.stem);
        open(f);
        const auto before = listDir(tmp_.dir());
        const long oldSize = xbt::fileSize(memoPath);
        orphanRecord2();
        ASSERT_EQ(pack(), 0);
        expectAllMemos(f);
        // Nothing dead is left (python3-dbf's files do not fill their last
        // block; ours do), and no temporary file.
        EXPECT_LE(xbt::fileSize(memoPath), (oldSize + 511) / 512 * 512);
        EXPECT_EQ(listDir(tmp_.dir()), before);
        // Record 2's pointer as stored (NOTES is the last field): 4-byte
        // binary in style 10, else "%10ld".
        int32_t block = 0;
        memoOf(2, &block);
        closeAll();
        auto d = readFile(dbfPath);
        const size_t h = d[8] | (d[9] << 8), r = d[10] | (d[11] << 8);
        const size_t w = f.style == 10 ? 4 : 10;
        std::string field(d.begin() + long(h + 2 * r - w), d.begin() + long(h + 2 * r));
        char want[16];
        std::snprintf(want, sizeof want, "%10ld", long(block));
        if (f.style == 10) std::memcpy(want, &block, 4);
        EXPECT_EQ(field, std::string(want, w));
    }
}

TEST_F(MemoFixtures, FailedPackChangesNothing) {
    for (const auto &f : kFixtures) {
        SCOPED_TRACE(f.stem);
        open(f);
        // Damage record 2's memo: a length past the end (FPT), or no end
        // mark up to the end of the file (dBASE III).
        int32_t block = 0;
        memoOf(2, &block);
        ASSERT_EQ(DBFlushFile(dbf), 0);
        auto m = readFile(memoPath);
        if (fpt) m[size_t(block) * ((m[6] << 8) | m[7]) + 4] = 0x7F;
        else std::replace(m.begin() + block * 512, m.end(), uint8_t(0x1A), uint8_t('x'));
        writeFile(memoPath, m);
        const auto dbfBytes = readFile(dbfPath);
        const auto before = listDir(tmp_.dir());
        const int oldHandle = memo;
        const int rc = pack();
        EXPECT_TRUE(rc == DBE_CORRUPT || rc == DBE_FIELDLEN) << rc;
        EXPECT_EQ(readFile(memoPath), m);
        EXPECT_EQ(readFile(dbfPath), dbfBytes);
        EXPECT_EQ(listDir(tmp_.dir()), before);
        EXPECT_EQ(memo, oldHandle);  // still open and usable
        const std::string first = expectedMemos(f.stem)[0];
        EXPECT_EQ(std::to_string(memoOf(1).size()), first.substr(0, first.find(':')));
        // A read-only memo handle is refused before anything is touched.
        EXPECT_EQ(fpt ? DBfpCloseMemo(memo) : DBxbCloseMemo(memo), 0);
        if (fpt) ASSERT_EQ(DBfpOpenMemo(&memo, &memoPath[0], f.style | DBO_READONLY), 0);
        else ASSERT_EQ(DBxbOpenMemo(&memo, &memoPath[0], 3 | DBO_READONLY), 0);
        EXPECT_EQ(pack(), DBE_READONLY);
        EXPECT_EQ(listDir(tmp_.dir()), before);
        closeAll();
    }
}

TEST_F(MemoFixtures, FailureAfterTheSwapPutsEverythingBack) {
    // The copy is complete and the files are renamed when the table's
    // pointers are written; that write fails once. The old pointers go back,
    // the old memo file returns under its name, the new one is removed.
    for (const auto &f : {kFixtures[0], kFixtures[2]}) {
        SCOPED_TRACE(f.stem);
        open(f);
        orphanRecord2();
        ASSERT_EQ(DBFlushFile(dbf), 0);
        const auto memoBytes = readFile(memoPath);
        const auto dbfBytes = readFile(dbfPath);
        const auto before = listDir(tmp_.dir());
        realWrite = _DBsys.write;
        _DBsys.write = failingWrite;
        failFd = DBGetFileDescriptor(dbf);
        failsLeft = 1;
        const int rc = pack();
        _DBsys.write = realWrite;
        EXPECT_EQ(rc, DBE_WRITE);
        EXPECT_EQ(failsLeft, 0);
        EXPECT_EQ(readFile(memoPath), memoBytes);
        auto now = readFile(dbfPath);  // records as they were (the date may be today's)
        ASSERT_EQ(now.size(), dbfBytes.size());
        EXPECT_TRUE(std::equal(now.begin() + 4, now.end(), dbfBytes.begin() + 4));
        EXPECT_EQ(listDir(tmp_.dir()), before);
        ASSERT_GE(memo, 3);  // reopened on the old file
        expectAllMemos(f);
        closeAll();
    }
}

}  // namespace
