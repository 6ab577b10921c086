// test_table_records.cpp - the record buffer and cache: reads, appends,
// rewrites and flushes, checked by the bytes on disk and when they go out.
#include "tablea_util.h"
#include "seams.h"

#include <unistd.h>

using tablea::cs;
using namespace std::string_literals;

namespace {

// Records from..to: NAME "ri", QTY 10 * i; with `marks`, deleted when i % 7 == 0.
std::string recs(int from, int to, bool marks = false) {
    std::string s;
    char b[32];
    for (int i = from; i <= to; i++)
        s += (std::snprintf(b, sizeof b, "%cr%-9d%5d", marks && i % 7 == 0 ? '*' : ' ', i, i * 10), b);
    return s;
}

class TableRecords : public xbt::LibTest {
protected:
    // NAME C(10), QTY N(5): records 1..n (with marks) after a 97-byte header dated 2090.
    int table(int n, int mode) {
        tablea::RawDbf t;
        t.y = 90, t.count = n;
        t.field("NAME", 'C', 10).field("QTY", 'N', 5).records = {recs(1, n, true)};
        t.write(path("t.dbf"));
        int h = -1;
        EXPECT_EQ(tablea::open(&h, path("t.dbf"), mode), 0);
        return h;
    }
    std::string file(int first = 1) {  // the file from record `first` on
        const std::vector<uint8_t> f = xbt::readFile(path("t.dbf"));
        return std::string(f.begin() + 97 + (first - 1) * 16, f.end());
    }
    static std::string buffer(int h) {
        DBRECINFO ri{};
        return DBGetRecordInfo(h, &ri) == 0 ? std::string(ri.bfr, 16) : "?";
    }
    static int put(int h, int i) {  // appends record i through the field calls
        const std::string r = recs(i, i);
        int32_t n = 0;
        EXPECT_EQ(DBPutStrField(h, 0, cs(r.substr(1, 10).c_str())) + DBPutFieldData(h, 1, cs(r.substr(11).c_str())), 0);
        const int rc = DBPutRecord(h, &n, DB_APPEND);
        return rc == 0 && n != i ? -1 : rc;
    }
};

// Cache capacity: 8 records, or what fits in 512..16384 bytes; as set, at
// least 1 (a write-through table has none to set: 208). Reads in any order,
// write-through or through a cache of each capacity: 201 for deleted
// records, -204 outside 1..n; a file cut short after the open gives what it
// has, then -202.
TEST_F(TableRecords, CacheSizeAndReads) {
    for (auto [reclen, records] : {std::pair{100, 8}, {40, 12}, {3000, 5}, {16, 32}, {2049, 7}, {20000, 1}}) {
        tablea::RawDbf t;
        t.field("A", 'C', (reclen - 1) & 0xFF, (reclen - 1) >> 8).records = {std::string(reclen, ' ')};
        t.write(path("c.dbf"));
        int h = 0, n = -1;
        ASSERT_EQ(tablea::open(&h, path("c.dbf"), 6), 0) << reclen;
        ASSERT_EQ(DBGetSetCacheSize(h, &n, 1), 0);
        EXPECT_EQ(n, records) << "record length " << reclen;
        EXPECT_EQ(DBCloseFile(h), 0);
    }
    for (auto [mode, ask, got] :
         {std::tuple{1 | DBO_UNBUFFERED, 3, 0}, {1, 3, 3}, {1, 0, 1}, {1, -5, 1}, {1, 100000, 32767 / 16 + 1}}) {
        SCOPED_TRACE(::testing::Message() << "mode " << mode << ", capacity " << ask);
        int h = table(40, mode), n = ask;
        int32_t cur = 0;
        ASSERT_EQ(DBGetRecord(h, 5), 0);  // the cache already full: what it holds must fit the new capacity
        ASSERT_EQ(DBGetSetCacheSize(h, &n, 0), mode == 1 ? 0 : DBW_UNBUFFERED);
        if (mode == 1) EXPECT_EQ(n, got);
        for (int k : {1, 2, 40, 9, 8, 7, 14, 3, 3, 39, 17, 33, 11}) {
            EXPECT_EQ(DBGetRecord(h, k), k % 7 ? 0 : DBW_DELETED) << k;
            EXPECT_EQ(buffer(h), recs(k, k, true)) << k;
            EXPECT_EQ(std::vector<int>({DBIsRecordDeleted(h), DBIsBeginningOfFile(h), DBIsEndOfFile(h)}),
                      std::vector<int>({k % 7 == 0, k == 1, k == 40})) << k;
        }
        for (int32_t k : {0, 41, -1, INT32_MAX, INT32_MIN}) EXPECT_EQ(DBGetRecord(h, k), DBE_SEEK) << k;
        ASSERT_EQ(DBGetRecordNumber(h, &cur), 0);
        EXPECT_EQ(cur, 11);
        EXPECT_EQ(DBGetRecordNumber(h, nullptr), DBE_NULLPARAM);
        EXPECT_EQ(DBGetSetCacheSize(h, nullptr, 1), DBE_NULLPARAM);
        EXPECT_EQ(DBGetSetCacheSize(h, &n, 2), DBE_BADCOMMAND);
        EXPECT_EQ(DBCloseFile(h), 0);
        h = table(40, mode);
        DBGetSetCacheSize(h, &(n = ask), 0);
        ASSERT_EQ(truncate(path("t.dbf").c_str(), 97 + 16 * 16 + 5), 0);
        for (int k : {16, 17, 1, 20}) EXPECT_EQ(DBGetRecord(h, k), k > 16 ? DBE_READ : 0) << k;
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

// Buffered changes reach the file only at DBTerminate's flush; the year
// byte ('w' or year + 48: opposite ways for write-through appends and for
// flushes under DB_XBASE80_COMPAT), and style 7's record of end marks.
TEST_F(TableRecords, WritesAndTheYearByte) {
    int y = 0, m = 0, d = 0, dow = 0;
    ASSERT_EQ(DBGetDate3(&y, &m, &d, &dow), 0);
    const std::string w = "w", y48(1, static_cast<char>(y + 48)), md = {static_cast<char>(m), static_cast<char>(d)};
    struct Case { int style; bool compat, unbuf, rewrite; std::string year; } cases[] = {
        {1, false, true, false, w},   {1, true, true, false, y48},  {1, false, false, false, y48},
        {1, true, false, false, w},   {1, false, false, true, y48}, {1, true, false, true, w},
        {1, false, true, true, y48},  {1, true, true, true, y48},   {7, false, true, false, w},
        {7, false, false, false, y48}};
    for (const Case &c : cases) {
        SCOPED_TRACE(&c - cases);
        const int h = table(2, c.style | (c.unbuf ? DBO_UNBUFFERED : 0));
        int32_t k = 2;
        c.compat ? setenv("DB_XBASE80_COMPAT", "1", 1) : unsetenv("DB_XBASE80_COMPAT");
        if (c.rewrite) ASSERT_EQ(DBGetRecord(h, 2) + DBPutStrField(h, 0, cs("changed")), 0);
        const std::string before = file();
        ASSERT_EQ(c.rewrite ? DBPutRecord(h, &k, DB_REWRITE) : put(h, 3), 0);
        EXPECT_EQ(file() == before, !c.unbuf);
        DBTerminate();
        ASSERT_EQ(DBInitialize(64, 1), 0);
        unsetenv("DB_XBASE80_COMPAT");
        const std::vector<uint8_t> f = xbt::readFile(path("t.dbf"));
        EXPECT_EQ(std::string(f.begin() + 1, f.begin() + 8), c.year + md + char(c.rewrite ? 2 : 3) + std::string(3, 0));
        EXPECT_EQ(file(2), c.rewrite ? " changed      20\x1a" : recs(2, 3) + std::string(c.style == 7 ? 16 : 1, 26));
    }
}

// Refused writes leave the file alone: bad arguments, numbers outside 1..n,
// a read-only table (a shared one without locks: test_table_locks).
TEST_F(TableRecords, RefusedWrites) {
    int h = table(3, 1 | DBO_READONLY);
    int32_t k = 1;
    const std::vector<uint8_t> before = xbt::readFile(path("t.dbf"));
    for (int rc : {DBPutRecord(h, &k, DB_REWRITE), DBPutRecord(h, &k, DB_APPEND), DBMarkRecordInActive(h, 1)})
        EXPECT_EQ(rc, DBE_READONLY);
    EXPECT_EQ(DBCloseFile(h), 0);
    h = table(3, 1 | DBO_SHARED);
    EXPECT_EQ(DBPutRecord(h, nullptr, DB_APPEND), DBE_NULLPARAM);
    EXPECT_EQ(DBPutRecord(h, &k, 1), DBE_BADCOMMAND);
    for (int32_t bad : {0, 4, -1}) {
        k = bad;
        for (int rc : {DBPutRecord(h, &k, DB_REWRITE), DBMarkRecordInActive(h, bad), DBMarkRecordActive(h, bad)})
            EXPECT_EQ(rc, DBE_SEEK) << bad;
    }
    EXPECT_EQ(DBFlushFile(h) + DBCloseFile(h), 0);
    EXPECT_EQ(xbt::readFile(path("t.dbf")), before);
}

// A flush that cannot write fails, keeps the table open and its changes; when it never can, termination still frees
// everything the table owns.
TEST_F(TableRecords, FailedFlushIsRetried) {
    xbt::Seams seams;
    int h = table(1, 1);
    ASSERT_EQ(put(h, 2), 0);
    const std::vector<uint8_t> before = xbt::readFile(path("t.dbf"));
    seams.writesLeft = 0;
    EXPECT_EQ(DBFlushFile(h), DBE_WRITE);
    EXPECT_EQ(DBCloseFile(h), DBE_WRITE);
    seams.writesLeft = -1;
    EXPECT_EQ(xbt::readFile(path("t.dbf")), before);
    ASSERT_EQ(DBCloseFile(h), 0);
    EXPECT_EQ(file(), recs(1, 2) + "\x1a");
    h = table(1, 1);
    ASSERT_EQ(put(h, 2), 0);
    seams.writesLeft = 0;
    DBTerminate();
    EXPECT_TRUE(seams.live.empty()) << seams.live.size() << " blocks left";
    ASSERT_EQ(DBInitialize(64, 1), 0);
}

// The caller-buffer forms: deletion byte, then each field converted ('C'
// text and NUL, 'N' a double, 'D' an 11-byte date text, 'L' raw), both ways.
TEST_F(TableRecords, CallerBufferLayout) {
    std::string f = path("buf.dbf");
    DBFIELD fld[] = {{"NAME", 'C', 5, 0}, {"AMT", 'N', 7, 2}, {"DAY", 'D', 8, 0}, {"OK", 'L', 1, 0}};
    ASSERT_EQ(DBCreateFile(f.data(), 4, fld, 1), 0);
    int h;
    ASSERT_EQ(DBOpenFile(&h, f.data(), 1 | DBO_FLUSH), 0);
    std::string in = " Ab\0\0\0\0"s + xbt::raw(-12.5) + "02/29/24\0\0\0T"s, out(in.size(), 'x');
    int32_t rec = 0;
    ASSERT_EQ(DBPutRecordFromBuffer(h, in.data(), &rec, DB_APPEND), 0);
    std::vector<uint8_t> disk = xbt::readFile(f);
    EXPECT_EQ(std::string(disk.begin() + 161, disk.begin() + 161 + 22), " Ab    -12.5020240229T");
    ASSERT_EQ(DBGetRecordToBuffer(h, out.data(), 1), 0);
    EXPECT_EQ(out, " Ab   \0"s + xbt::raw(-12.5) + "02/29/24\0xxT"s);
    // A number too wide for its field is refused, the file unchanged.
    in.replace(7, 8, xbt::raw(123456.0));
    rec = 1;
    EXPECT_EQ(DBPutRecordFromBuffer(h, in.data(), &rec, DB_REWRITE), DBE_BADDATA);
    EXPECT_EQ(xbt::readFile(f), disk);
    DBCloseFile(h);
}

}  // namespace
