// test_table_records.cpp - the record buffer and cache: reads, appends,
// rewrites, deletion marks and flushes, checked by the bytes they leave in
// the file (records, header date and count, end mark) and by when they are
// written.
#include "tablea_util.h"
#include "xbtest.h"

#include "os.h"

#include <errno.h>
#include <memory>
#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>

using tablea::RawDbf;

namespace {

// Counts the writes that reach the system, and can make them fail.
struct WriteSpy {
    static inline std::vector<size_t> sizes;
    static inline bool failing = false;
    static long write(int fd, const void *buf, size_t len) {
        if (failing) {
            errno = EIO;
            return -1;
        }
        sizes.push_back(len);
        return static_cast<long>(::write(fd, buf, len));
    }
    decltype(_DBsys.write) saved;
    WriteSpy() : saved(_DBsys.write) {
        sizes.clear();
        failing = false;
        _DBsys.write = &WriteSpy::write;
    }
    ~WriteSpy() { _DBsys.write = saved; }
};

// DB_XBASE80_COMPAT set for the lifetime of the object.
struct Compat {
    Compat() { setenv("DB_XBASE80_COMPAT", "1", 1); }
    ~Compat() { unsetenv("DB_XBASE80_COMPAT"); }
};

class TableRecords : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        unsetenv("DB_XBASE80_COMPAT");
        int y = 0, m = 0, d = 0, dow = 0;
        ASSERT_EQ(DBGetDate3(&y, &m, &d, &dow), 0);
        year48_ = static_cast<uint8_t>((y + 48) & 0xFF);
        month_ = static_cast<uint8_t>(m);
        day_ = static_cast<uint8_t>(d);
    }
    // NAME C(10), QTY N(5,0): 16-byte records after a 97-byte header, with
    // records "r1".."rN" and an old date in the header.
    std::string table(int records, int style = 1) {
        const std::string p = path("t.dbf");
        RawDbf t;
        t.y = 90;
        t.m = 1;
        t.d = 2;
        t.field("NAME", 'C', 10).field("QTY", 'N', 5);
        for (int i = 1; i <= records; i++) t.records.push_back(rec(i));
        t.write(p);
        (void)style;
        return p;
    }
    static std::string rec(int i, char mark = ' ') {
        char b[32];
        std::snprintf(b, sizeof b, "%cr%-9d%5d", mark, i, i * 10);
        return b;
    }
    static std::string recordAt(const std::vector<uint8_t> &f, int k) {
        const size_t at = 97 + static_cast<size_t>(k - 1) * 16;
        if (f.size() < at + 16) return "<missing>";
        return std::string(f.begin() + static_cast<long>(at), f.begin() + static_cast<long>(at) + 16);
    }
    int put(int h, int i) {
        char name[16];
        std::snprintf(name, sizeof name, "r%d", i);
        EXPECT_EQ(DBPutStrField(h, 0, name), 0);
        char qty[8];
        std::snprintf(qty, sizeof qty, "%5d", i * 10);
        EXPECT_EQ(DBPutFieldData(h, 1, qty), 0);
        int32_t n = 0;
        const int rc = DBPutRecord(h, &n, DB_APPEND);
        if (rc == 0) EXPECT_EQ(n, i);
        return rc;
    }
    uint8_t year48_ = 0, month_ = 0, day_ = 0;
};

TEST_F(TableRecords, CacheCapacityFollowsRecordLength) {
    struct Case {
        int reclen;
        int records;
    } cases[] = {{100, 8}, {40, 12}, {3000, 5}, {16, 32}, {512, 8}, {2048, 8}, {2049, 7}, {20000, 1}, {600, 8}};
    for (const Case &c : cases) {
        RawDbf t;
        const int len = c.reclen - 1;
        t.field("A", 'C', len & 0xFF, len >> 8);
        t.records = {" " + std::string(static_cast<size_t>(len), 'q')};
        t.write(path("c.dbf"));
        int h = 0;
        ASSERT_EQ(tablea::open(&h, path("c.dbf"), 6), 0) << c.reclen;
        int n = -1;
        ASSERT_EQ(DBGetSetCacheSize(h, &n, 1), 0);
        EXPECT_EQ(n, c.records) << "record length " << c.reclen;
        ASSERT_EQ(DBGetRecord(h, 1), 0);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableRecords, ReadsAndRanges) {
    RawDbf t;
    t.field("NAME", 'C', 10).field("QTY", 'N', 5);
    for (int i = 1; i <= 20; i++) t.records.push_back(rec(i, i % 7 == 0 ? '*' : ' '));
    t.write(path("t.dbf"));
    for (int mode : {1, 1 | DBO_UNBUFFERED}) {
        int h = 0;
        ASSERT_EQ(tablea::open(&h, path("t.dbf"), mode), 0);
        // Out of order, backwards and repeated reads all land on the record.
        for (int k : {1, 2, 20, 9, 8, 7, 14, 3, 3, 19, 10, 11}) {
            const int rc = DBGetRecord(h, k);
            EXPECT_EQ(rc, k % 7 == 0 ? DBW_DELETED : 0) << k;
            DBRECINFO ri{};
            ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
            EXPECT_EQ(std::string(ri.bfr, 16), rec(k, k % 7 == 0 ? '*' : ' ')) << k;
            EXPECT_EQ(DBIsRecordDeleted(h), k % 7 == 0 ? 1 : 0);
            int32_t cur = 0;
            ASSERT_EQ(DBGetRecordNumber(h, &cur), 0);
            EXPECT_EQ(cur, k);
        }
        for (int32_t k : {0, 21, -1, INT32_MAX, INT32_MIN}) {
            EXPECT_EQ(DBGetRecord(h, k), DBE_SEEK) << k;
            int32_t cur = 0;
            ASSERT_EQ(DBGetRecordNumber(h, &cur), 0);
            EXPECT_EQ(cur, 11) << "a refused read keeps the current record";
        }
        EXPECT_EQ(DBGetRecordNumber(h, nullptr), DBE_NULLPARAM);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableRecords, BeginningAndEnd) {
    table(3);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, path("t.dbf"), 1), 0);
    struct Case {
        int32_t k;
        int bof, eof;
    } cases[] = {{1, 1, 0}, {2, 0, 0}, {3, 0, 1}};
    for (const Case &c : cases) {
        ASSERT_EQ(DBGetRecord(h, c.k), 0);
        EXPECT_EQ(DBIsBeginningOfFile(h), c.bof) << c.k;
        EXPECT_EQ(DBIsEndOfFile(h), c.eof) << c.k;
    }
    EXPECT_EQ(DBCloseFile(h), 0);
    table(0);
    ASSERT_EQ(tablea::open(&h, path("t.dbf"), 1), 0);
    EXPECT_EQ(DBIsBeginningOfFile(h), 1);
    EXPECT_EQ(DBIsEndOfFile(h), 1);
    EXPECT_EQ(DBGetRecord(h, 1), DBE_SEEK);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableRecords, BufferedAppendsWaitForTheFlush) {
    const std::string p = table(2);
    const std::vector<uint8_t> before = xbt::readFile(p);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    int cap = 0;
    ASSERT_EQ(DBGetSetCacheSize(h, &cap, 1), 0);
    ASSERT_EQ(cap, 32);
    WriteSpy spy;
    for (int i = 3; i <= 5; i++) ASSERT_EQ(put(h, i), 0);
    EXPECT_TRUE(spy.sizes.empty()) << "appends stay in the cache";
    EXPECT_EQ(xbt::readFile(p), before);
    int32_t n = 0;
    ASSERT_EQ(DBGetRecordCount(h, &n), 0);
    EXPECT_EQ(n, 5);
    // Records still in the cache read back like any other.
    ASSERT_EQ(DBGetRecord(h, 4), 0);
    char name[16];
    ASSERT_EQ(DBGetStrField(h, 0, name), 0);
    EXPECT_STREQ(name, "r4        ");
    ASSERT_EQ(DBFlushFile(h), 0);
    // One block, the header's date and count, one end mark.
    EXPECT_EQ(spy.sizes, (std::vector<size_t>{3 * 16, 7, 1}));
    const std::vector<uint8_t> f = xbt::readFile(p);
    ASSERT_EQ(f.size(), 97u + 5 * 16 + 1);
    for (int k = 1; k <= 5; k++) EXPECT_EQ(recordAt(f, k), rec(k)) << k;
    EXPECT_EQ(f.back(), 0x1A);
    EXPECT_EQ(tablea::get32(f, 4), 5u);
    EXPECT_EQ(f[1], year48_) << "the flush writes the year as year + 48";
    EXPECT_EQ(f[2], month_);
    EXPECT_EQ(f[3], day_);
    spy.sizes.clear();
    ASSERT_EQ(DBFlushFile(h), 0);
    EXPECT_TRUE(spy.sizes.empty()) << "nothing pending, nothing written";
    EXPECT_EQ(DBCloseFile(h), 0);
    EXPECT_TRUE(spy.sizes.empty());
}

TEST_F(TableRecords, AppendsAreWrittenABlockAtATime) {
    const std::string p = table(0);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    int cap = 8;
    ASSERT_EQ(DBGetSetCacheSize(h, &cap, 0), 0);
    WriteSpy spy;
    for (int i = 1; i <= 20; i++) ASSERT_EQ(put(h, i), 0);
    // Blocks 1-8 and 9-16 went out when they filled; 17-20 wait.
    EXPECT_EQ(spy.sizes, (std::vector<size_t>{128, 7, 1, 128, 7, 1}));
    ASSERT_EQ(DBCloseFile(h), 0);
    const std::vector<uint8_t> f = xbt::readFile(p);
    ASSERT_EQ(f.size(), 97u + 20 * 16 + 1);
    for (int k = 1; k <= 20; k++) EXPECT_EQ(recordAt(f, k), rec(k)) << k;
    EXPECT_EQ(tablea::get32(f, 4), 20u);
}

TEST_F(TableRecords, AppendAfterReadingElsewhere) {
    // The cache holds records 1..8 when the append comes: the new record
    // must not be taken for record 9.
    const std::string p = table(20);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    int cap = 8;
    ASSERT_EQ(DBGetSetCacheSize(h, &cap, 0), 0);
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    ASSERT_EQ(put(h, 21), 0);
    ASSERT_EQ(DBGetRecord(h, 5), 0);
    DBRECINFO ri{};
    ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
    EXPECT_EQ(std::string(ri.bfr, 16), rec(5));
    ASSERT_EQ(DBGetRecord(h, 21), 0);
    EXPECT_EQ(std::string(ri.bfr, 16), rec(21));
    ASSERT_EQ(put(h, 22), 0);
    ASSERT_EQ(DBCloseFile(h), 0);
    const std::vector<uint8_t> f = xbt::readFile(p);
    ASSERT_EQ(f.size(), 97u + 22 * 16 + 1);
    for (int k = 1; k <= 22; k++) EXPECT_EQ(recordAt(f, k), rec(k)) << k;
}

TEST_F(TableRecords, UnbufferedWritesGoStraightOut) {
    const std::string p = table(2);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_UNBUFFERED), 0);
    WriteSpy spy;
    ASSERT_EQ(put(h, 3), 0);
    // The record, its end mark, then the header's date and count.
    EXPECT_EQ(spy.sizes, (std::vector<size_t>{16, 1, 7}));
    std::vector<uint8_t> f = xbt::readFile(p);
    EXPECT_EQ(recordAt(f, 3), rec(3));
    EXPECT_EQ(f.size(), 97u + 3 * 16 + 1);
    EXPECT_EQ(tablea::get32(f, 4), 3u);
    EXPECT_EQ(f[1], 'w') << "an append writes the fixed year byte unless DB_XBASE80_COMPAT is set";
    EXPECT_EQ(f[2], month_);
    EXPECT_EQ(f[3], day_);

    // A rewrite writes the record and the three date bytes, year + 48.
    spy.sizes.clear();
    ASSERT_EQ(DBGetRecord(h, 2), 0);
    ASSERT_EQ(DBPutStrField(h, 0, const_cast<char *>("changed")), 0);
    int32_t k = 2;
    ASSERT_EQ(DBPutRecord(h, &k, DB_REWRITE), 0);
    EXPECT_EQ(spy.sizes, (std::vector<size_t>{16, 3}));
    f = xbt::readFile(p);
    EXPECT_EQ(recordAt(f, 2), " changed      20");
    EXPECT_EQ(f[1], year48_);
    spy.sizes.clear();
    EXPECT_EQ(DBFlushFile(h), 0);
    EXPECT_EQ(DBCloseFile(h), 0);
    EXPECT_TRUE(spy.sizes.empty());
}

TEST_F(TableRecords, YearByteFormsAreOpposite) {
    // DB_XBASE80_COMPAT turns the append's year byte to year + 48 and the
    // flush's to 'w'; the rewrite of a write-through table ignores it.
    struct Case {
        bool compat;
        int mode;
        bool rewrite;
        bool expectW;
    } cases[] = {
        {false, DBO_UNBUFFERED, false, true}, {true, DBO_UNBUFFERED, false, false},
        {false, 0, false, false},             {true, 0, false, true},
        {false, 0, true, false},              {true, 0, true, true},
        {false, DBO_UNBUFFERED, true, false}, {true, DBO_UNBUFFERED, true, false},
    };
    for (const Case &c : cases) {
        const std::string p = table(2);
        int h = 0;
        ASSERT_EQ(tablea::open(&h, p, 1 | c.mode), 0);
        {
            std::unique_ptr<Compat> env(c.compat ? new Compat : nullptr);
            int32_t k = 1;
            if (c.rewrite) {
                ASSERT_EQ(DBGetRecord(h, 1), 0);
                ASSERT_EQ(DBPutRecord(h, &k, DB_REWRITE), 0);
            } else {
                ASSERT_EQ(put(h, 3), 0);
            }
            ASSERT_EQ(DBFlushFile(h), 0);
        }
        ASSERT_EQ(DBCloseFile(h), 0);
        const std::vector<uint8_t> f = xbt::readFile(p);
        EXPECT_EQ(f[1], c.expectW ? 'w' : year48_)
            << "compat " << c.compat << " unbuffered " << (c.mode != 0) << " rewrite " << c.rewrite;
    }
}

TEST_F(TableRecords, StyleSevenEndsWithARecordOfMarks) {
    for (int mode : {7, 7 | DBO_UNBUFFERED}) {
        const std::string p = table(1);
        int h = 0;
        ASSERT_EQ(tablea::open(&h, p, mode), 0);
        ASSERT_EQ(put(h, 2), 0);
        ASSERT_EQ(DBCloseFile(h), 0);
        const std::vector<uint8_t> f = xbt::readFile(p);
        ASSERT_EQ(f.size(), 97u + 3 * 16) << mode;
        EXPECT_EQ(recordAt(f, 2), rec(2));
        EXPECT_EQ(recordAt(f, 3), std::string(16, '\x1a'));
        // The file length is one the open accepts silently.
        ASSERT_EQ(tablea::open(&h, p, 7), 0);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableRecords, BufferedRewriteAndAppendTogether) {
    const std::string p = table(3);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    ASSERT_EQ(DBGetRecord(h, 2), 0);
    ASSERT_EQ(DBPutStrField(h, 0, const_cast<char *>("two")), 0);
    int32_t k = 2;
    ASSERT_EQ(DBPutRecord(h, &k, DB_REWRITE), 0);
    ASSERT_EQ(put(h, 4), 0);
    // Rewrite a record that so far lives only in the cache.
    ASSERT_EQ(DBGetRecord(h, 4), 0);
    ASSERT_EQ(DBPutStrField(h, 0, const_cast<char *>("four")), 0);
    k = 4;
    ASSERT_EQ(DBPutRecord(h, &k, DB_REWRITE), 0);
    ASSERT_EQ(DBCloseFile(h), 0);
    const std::vector<uint8_t> f = xbt::readFile(p);
    ASSERT_EQ(f.size(), 97u + 4 * 16 + 1);
    EXPECT_EQ(recordAt(f, 1), rec(1));
    EXPECT_EQ(recordAt(f, 2), " two          20");
    EXPECT_EQ(recordAt(f, 3), rec(3));
    EXPECT_EQ(recordAt(f, 4), " four         40");
    EXPECT_EQ(f.back(), 0x1A) << "the end mark survives a rewrite after the append";
    EXPECT_EQ(tablea::get32(f, 4), 4u);
}

TEST_F(TableRecords, PutRecordArguments) {
    const std::string p = table(2);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    int32_t k = 1;
    EXPECT_EQ(DBPutRecord(h, nullptr, DB_APPEND), DBE_NULLPARAM);
    EXPECT_EQ(DBPutRecord(h, &k, 1), DBE_BADCOMMAND);
    EXPECT_EQ(DBPutRecord(h, &k, 512), DBE_BADCOMMAND);
    for (int32_t bad : {0, 3, -1}) {
        k = bad;
        EXPECT_EQ(DBPutRecord(h, &k, DB_REWRITE), DBE_SEEK) << bad;
    }
    EXPECT_EQ(DBPutRecord(99, &k, DB_APPEND), DBE_BADHANDLE);
    ASSERT_EQ(DBCloseFile(h), 0);
    const std::vector<uint8_t> before = xbt::readFile(p);
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_READONLY), 0);
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    k = 1;
    EXPECT_EQ(DBPutRecord(h, &k, DB_REWRITE), DBE_READONLY);
    EXPECT_EQ(DBPutRecord(h, &k, DB_APPEND), DBE_READONLY);
    EXPECT_EQ(DBMarkRecordInActive(h, 1), DBE_READONLY);
    EXPECT_EQ(DBCloseFile(h), 0);
    EXPECT_EQ(xbt::readFile(p), before);
}

TEST_F(TableRecords, DeletionMarks) {
    const std::string p = table(3);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_UNBUFFERED), 0);
    WriteSpy spy;
    ASSERT_EQ(DBMarkRecordInActive(h, 2), 0);
    EXPECT_EQ(spy.sizes, (std::vector<size_t>{16, 3}));
    EXPECT_EQ(recordAt(xbt::readFile(p), 2), rec(2, '*'));
    EXPECT_EQ(DBIsRecordDeleted(h), 1) << "the marked record is now the current one";
    spy.sizes.clear();
    ASSERT_EQ(DBMarkRecordInActive(h, 2), 0);
    EXPECT_TRUE(spy.sizes.empty()) << "a record already marked is not written again";
    EXPECT_EQ(DBGetRecord(h, 2), DBW_DELETED);
    ASSERT_EQ(DBMarkRecordActive(h, 2), 0);
    EXPECT_EQ(recordAt(xbt::readFile(p), 2), rec(2));
    EXPECT_EQ(DBIsRecordDeleted(h), 0);
    spy.sizes.clear();
    ASSERT_EQ(DBMarkRecordActive(h, 3), 0);
    EXPECT_TRUE(spy.sizes.empty());
    for (int32_t bad : {0, 4, -7}) {
        EXPECT_EQ(DBMarkRecordInActive(h, bad), DBE_SEEK) << bad;
        EXPECT_EQ(DBMarkRecordActive(h, bad), DBE_SEEK) << bad;
    }
    EXPECT_TRUE(spy.sizes.empty());
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableRecords, CallerBufferForm) {
    // NAME C(5), HIRED D, AMOUNT N(8,2), RATE F(10,3), ID I, NOTES M(10), OK L
    RawDbf t;
    t.version = 0x83;
    t.field("NAME", 'C', 5).field("HIRED", 'D', 8).field("AMOUNT", 'N', 8, 2).field("RATE", 'F', 10, 3);
    t.field("ID", 'I', 4).field("NOTES", 'M', 10).field("OK", 'L', 1);
    std::string r = "*abc  20240229 -123.45     2.500";
    r += std::string("\x2a\x00\x00\x00", 4);
    r += "        17T";
    t.records = {r};
    t.write(path("b.dbf"));
    int h = 0;
    ASSERT_EQ(tablea::open(&h, path("b.dbf"), 1), 0);
    ASSERT_EQ(DBSetDefaultDateStyle(4), 0);
    const size_t size = 1 + 6 + 11 + 8 + 8 + 4 + 4 + 1;
    std::vector<char> buf(size + 8, '#');
    ASSERT_EQ(DBGetRecordToBuffer(h, buf.data(), 1), DBW_DELETED);
    EXPECT_EQ(buf[0], '*');
    EXPECT_STREQ(&buf[1], "abc  ");
    EXPECT_STREQ(&buf[7], "20240229");
    double amount = 0, rate = 0;
    std::memcpy(&amount, &buf[18], 8);
    std::memcpy(&rate, &buf[26], 8);
    EXPECT_DOUBLE_EQ(amount, -123.45);
    EXPECT_DOUBLE_EQ(rate, 2.5);
    int32_t id = 0, block = 0;
    std::memcpy(&id, &buf[34], 4);
    std::memcpy(&block, &buf[38], 4);
    EXPECT_EQ(id, 42);
    EXPECT_EQ(block, 17);
    EXPECT_EQ(buf[42], 'T');
    EXPECT_EQ(buf[43], '#') << "nothing written past the record's form";

    // The same form written back gives the same record bytes.
    int32_t k = 1;
    ASSERT_EQ(DBPutRecordFromBuffer(h, buf.data(), &k, DB_REWRITE), 0);
    ASSERT_EQ(DBFlushFile(h), 0);
    std::vector<uint8_t> f = xbt::readFile(path("b.dbf"));
    EXPECT_EQ(std::string(f.begin() + 257, f.begin() + 257 + 47), r);
    // Changed values are converted into the field formats.
    std::memcpy(&buf[1], "xy\0", 3);
    std::memcpy(&buf[7], "20001231", 9);
    amount = 7.25;
    std::memcpy(&buf[18], &amount, 8);
    block = 123456;
    std::memcpy(&buf[38], &block, 4);
    buf[0] = ' ';
    ASSERT_EQ(DBPutRecordFromBuffer(h, buf.data(), &k, DB_APPEND), 0);
    EXPECT_EQ(k, 2);
    ASSERT_EQ(DBCloseFile(h), 0);
    f = xbt::readFile(path("b.dbf"));
    std::string want = " xy   20001231    7.25     2.500";
    want += std::string("\x2a\x00\x00\x00", 4);
    want += "    123456T";
    EXPECT_EQ(std::string(f.begin() + 257 + 47, f.begin() + 257 + 94), want);
}

TEST_F(TableRecords, CacheSizeCalls) {
    const std::string p = table(40);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    int n = 0;
    EXPECT_EQ(DBGetSetCacheSize(h, nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBGetSetCacheSize(h, &n, 2), DBE_BADCOMMAND);
    struct Case {
        int ask, got;
    } cases[] = {{3, 3}, {0, 1}, {-5, 1}, {40, 40}, {100000, 32767 / 16 + 1}, {8, 8}};
    for (const Case &c : cases) {
        n = c.ask;
        ASSERT_EQ(DBGetSetCacheSize(h, &n, 0), 0) << c.ask;
        EXPECT_EQ(n, c.got) << c.ask;
        ASSERT_EQ(DBGetSetCacheSize(h, &n, 1), 0);
        EXPECT_EQ(n, c.got);
        for (int k : {1, 40, 17, 2, 33}) {
            ASSERT_EQ(DBGetRecord(h, k), 0);
            DBRECINFO ri{};
            ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
            EXPECT_EQ(std::string(ri.bfr, 16), rec(k)) << "capacity " << c.got << " record " << k;
        }
    }
    // Resizing writes pending changes first.
    ASSERT_EQ(put(h, 41), 0);
    n = 4;
    ASSERT_EQ(DBGetSetCacheSize(h, &n, 0), 0);
    EXPECT_EQ(recordAt(xbt::readFile(p), 41), rec(41));
    EXPECT_EQ(DBCloseFile(h), 0);
    // A write-through table has no cache.
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_FLUSH), 0);
    n = 5;
    EXPECT_EQ(DBGetSetCacheSize(h, &n, 1), 0);
    EXPECT_EQ(n, 0);
    n = 5;
    EXPECT_EQ(DBGetSetCacheSize(h, &n, 0), DBW_UNBUFFERED);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableRecords, FailedFlushIsRetried) {
    const std::string p = table(1);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    ASSERT_EQ(put(h, 2), 0);
    const std::vector<uint8_t> before = xbt::readFile(p);
    {
        WriteSpy spy;
        spy.failing = true;
        EXPECT_EQ(DBFlushFile(h), DBE_WRITE);
        EXPECT_EQ(DBCloseFile(h), DBE_WRITE) << "a close that cannot write keeps the table open";
    }
    EXPECT_EQ(xbt::readFile(p), before);
    ASSERT_EQ(DBCloseFile(h), 0);
    const std::vector<uint8_t> f = xbt::readFile(p);
    EXPECT_EQ(recordAt(f, 2), rec(2));
    EXPECT_EQ(tablea::get32(f, 4), 2u);
    EXPECT_EQ(f.back(), 0x1A);
}

TEST_F(TableRecords, FileCutShortAfterOpen) {
    const std::string p = table(10);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    // Another program cuts the file inside record 7.
    ASSERT_EQ(truncate(p.c_str(), 97 + 6 * 16 + 5), 0);
    for (int k = 1; k <= 6; k++) {
        EXPECT_EQ(DBGetRecord(h, k), 0) << k;
        DBRECINFO ri{};
        ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
        EXPECT_EQ(std::string(ri.bfr, 16), rec(k));
    }
    for (int k = 7; k <= 10; k++) EXPECT_EQ(DBGetRecord(h, k), DBE_READ) << k;
    EXPECT_EQ(DBCloseFile(h), 0);
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_UNBUFFERED), DBW_BADFILELEN);
    EXPECT_EQ(DBGetRecord(h, 6), 0);
    EXPECT_EQ(DBGetRecord(h, 7), DBE_READ);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableRecords, BuildingARecordInPlace) {
    const std::string p = table(1);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    char *b = nullptr;
    EXPECT_EQ(DBSetBufferAddress(h, nullptr), DBE_NULLPARAM);
    ASSERT_EQ(DBSetBufferAddress(h, &b), 0);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(std::string(b, 16), std::string(16, ' '));
    std::memcpy(b + 1, "direct       77", 15);
    int32_t k = 0;
    ASSERT_EQ(DBPutRecord(h, &k, DB_APPEND), 0);
    EXPECT_EQ(k, 2);
    std::memcpy(b, "*xxxxxxxxxxxxxxx", 16);
    ASSERT_EQ(DBClearBuffer(h), 0);
    EXPECT_EQ(std::string(b, 16), std::string(16, ' '));
    EXPECT_EQ(DBClearBuffer(77), DBE_BADHANDLE);
    ASSERT_EQ(DBCloseFile(h), 0);
    EXPECT_EQ(recordAt(xbt::readFile(p), 2), " direct       77");
}

TEST_F(TableRecords, SharedWritesNeedLocks) {
    const std::string p = table(3);
    const std::vector<uint8_t> before = xbt::readFile(p);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_SHARED), 0);
    ASSERT_EQ(DBGetRecord(h, 2), 0);
    int32_t k = 2;
    EXPECT_EQ(DBPutRecord(h, &k, DB_REWRITE), DBE_NOTLOCKED);
    EXPECT_EQ(DBPutRecord(h, &k, DB_APPEND), DBE_NOTLOCKED);
    EXPECT_EQ(DBMarkRecordInActive(h, 2), DBE_NOTLOCKED);
    EXPECT_EQ(DBFlushFile(h), 0);
    EXPECT_EQ(xbt::readFile(p), before) << "refused writes leave the file alone";
    // With the record's lock the rewrite goes through; with the header's
    // the append does.
    ASSERT_EQ(DBLockRecord(h, 2), 0);
    ASSERT_EQ(DBMarkRecordInActive(h, 2), 0);
    EXPECT_EQ(DBPutRecord(h, &k, DB_APPEND), DBE_NOTLOCKED);
    ASSERT_EQ(DBLockHeader(h), 0);
    ASSERT_EQ(put(h, 4), 0);
    ASSERT_EQ(DBFlushFile(h), 0);
    ASSERT_EQ(DBUnLockAll(h), 0);
    EXPECT_EQ(DBCloseFile(h), 0);
    const std::vector<uint8_t> f = xbt::readFile(p);
    EXPECT_EQ(recordAt(f, 2), rec(2, '*'));
    EXPECT_EQ(recordAt(f, 4), rec(4));
    EXPECT_EQ(tablea::get32(f, 4), 4u);
}

TEST_F(TableRecords, AppendAfterAnotherWriterAppended) {
    // Our cache holds a changed record 1..3 block when another writer adds
    // record 4; our next append is record 5 and must not land on record 4.
    const std::string p = table(3);
    int mine = 0, other = 0;
    ASSERT_EQ(tablea::open(&mine, p, 1 | DBO_SHARED), 0);
    ASSERT_EQ(tablea::open(&other, p, 1), 0);
    ASSERT_EQ(DBLockRecord(mine, 1), 0);
    ASSERT_EQ(DBGetRecord(mine, 1), 0);
    ASSERT_EQ(DBPutStrField(mine, 0, const_cast<char *>("one")), 0);
    int32_t k = 1;
    ASSERT_EQ(DBPutRecord(mine, &k, DB_REWRITE), 0);
    ASSERT_EQ(put(other, 4), 0);
    ASSERT_EQ(DBFlushFile(other), 0);
    ASSERT_EQ(DBLockHeader(mine), 0);
    ASSERT_EQ(put(mine, 5), 0);
    ASSERT_EQ(DBFlushFile(mine), 0);
    ASSERT_EQ(DBUnLockAll(mine), 0);
    EXPECT_EQ(DBCloseFile(other), 0);
    EXPECT_EQ(DBCloseFile(mine), 0);
    const std::vector<uint8_t> f = xbt::readFile(p);
    ASSERT_EQ(f.size(), 97u + 5 * 16 + 1);
    EXPECT_EQ(recordAt(f, 1), " one          10");
    for (int i = 2; i <= 5; i++) EXPECT_EQ(recordAt(f, i), rec(i)) << i;
    EXPECT_EQ(tablea::get32(f, 4), 5u);
}

TEST_F(TableRecords, AutomaticLocksAreGivenBack) {
    const std::string p = table(3);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1 | DBO_AUTOLOCK), 0);
    ASSERT_EQ(put(h, 4), 0);
    ASSERT_EQ(DBMarkRecordInActive(h, 1), 0);
    ASSERT_EQ(DBGetRecord(h, 3), 0);
    int32_t k = 3;
    ASSERT_EQ(DBPutStrField(h, 0, const_cast<char *>("three")), 0);
    ASSERT_EQ(DBPutRecord(h, &k, DB_REWRITE), 0);
    DBFILEINFO info{};
    ASSERT_EQ(DBGetFileInfo(h, &info), 0);
    EXPECT_EQ(info.lockt, 0);
    EXPECT_EQ(info.numlcks, 0);
    int used = -1, most = 0;
    ASSERT_EQ(DBGetLockCount(&used, &most), 0);
    EXPECT_EQ(used, 0) << "no lock outlives the write that took it";
    // Written at once: automatic locking implies write-through.
    const std::vector<uint8_t> f = xbt::readFile(p);
    EXPECT_EQ(recordAt(f, 1), rec(1, '*'));
    EXPECT_EQ(recordAt(f, 3), " three        30");
    EXPECT_EQ(recordAt(f, 4), rec(4));
    EXPECT_EQ(tablea::get32(f, 4), 4u);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableRecords, SharedReaderSeesAppends) {
    const std::string p = table(2);
    int reader = 0, writer = 0, stale = 0;
    ASSERT_EQ(tablea::open(&reader, p, 1 | DBO_SHARED | DBO_READONLY), 0);
    ASSERT_EQ(tablea::open(&stale, p, 1 | DBO_READONLY), 0);
    ASSERT_EQ(tablea::open(&writer, p, 1), 0);
    ASSERT_EQ(DBGetRecord(reader, 2), 0);
    ASSERT_EQ(DBGetRecord(stale, 2), 0);
    ASSERT_EQ(put(writer, 3), 0);
    ASSERT_EQ(DBFlushFile(writer), 0);
    int32_t n = 0;
    ASSERT_EQ(DBGetRecordCount(reader, &n), 0);
    EXPECT_EQ(n, 3) << "a shared table rereads its header";
    ASSERT_EQ(DBGetRecord(reader, 3), 0);
    char name[16];
    ASSERT_EQ(DBGetStrField(reader, 0, name), 0);
    EXPECT_STREQ(name, "r3        ");
    ASSERT_EQ(DBGetRecordCount(stale, &n), 0);
    EXPECT_EQ(n, 2) << "an exclusive table keeps the count it opened with";
    EXPECT_EQ(DBGetRecord(stale, 3), DBE_SEEK);
    EXPECT_EQ(DBCloseFile(writer), 0);
    EXPECT_EQ(DBCloseFile(stale), 0);
    EXPECT_EQ(DBCloseFile(reader), 0);
}

}  // namespace
