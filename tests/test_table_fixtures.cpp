// test_table_fixtures.cpp - tables written by other programs (Harbour,
// python3-dbf, shapelib): every field of every record compared with the
// producers' own text dumps, memo block numbers with python3-dbfread's.
#include "tablea_util.h"
#include "xbtest.h"

#include <algorithm>
#include <random>

namespace {

using tablea::split;

class TableFixtures : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        ASSERT_EQ(DBSetDefaultDateStyle(4), 0);
    }
    // A copy of a fixture with its header year byte set to 26.
    std::string patched(const std::string &name) {
        const std::string p = fixture(name);
        std::vector<uint8_t> b = xbt::readFile(p);
        b[1] = 26;
        xbt::writeFile(p, b);
        return p;
    }
    // Record lines of NAME.records.txt, split at '|'.
    static std::vector<std::vector<std::string>> dump(const std::string &name) {
        std::vector<std::vector<std::string>> rows;
        for (const std::string &line : xbt::readLines(xbt::fixturePath(name))) {
            if (line.empty() || line[0] == '#') continue;
            rows.push_back(split(line, '|'));
        }
        return rows;
    }
    // Memo block numbers as python3-dbfread reads them, by record.
    static std::vector<long> blocks(const std::string &path) {
        const tablea::Dump d = tablea::dbfread(path);
        EXPECT_EQ(d.check, "ok") << d.raw.substr(0, 400);
        std::vector<long> out;
        for (const auto &r : d.records) out.push_back(std::stol(r.values.back()));
        return out;
    }
    std::string str(int h, int field) {
        char buf[300];
        const int rc = DBGetStrField(h, field, buf);
        EXPECT_GE(rc, 0);
        return buf;
    }
    double num(int h, int field) {
        double v = -1e300;
        EXPECT_EQ(DBGetFieldData(h, field, &v), 0);
        return v;
    }
    // The date as the library converts it (style 4), "" for an empty date.
    std::string date(int h, int field) {
        char buf[16];
        const int rc = DBGetFieldData(h, field, buf);
        EXPECT_TRUE(rc == 0 || rc == DBW_FIELDEMPTY) << rc;
        return rc == DBW_FIELDEMPTY ? std::string() : std::string(buf);
    }
    std::string logical(int h, int field) {
        char c = 'x';
        EXPECT_EQ(DBGetFieldData(h, field, &c), 0);
        return c == 1 ? "T" : c == 0 ? "F" : "?";
    }
    int32_t memo(int h, int field) {
        int32_t b = -1;
        const int rc = DBGetFieldData(h, field, &b);
        EXPECT_TRUE(rc == 0 || rc == DBW_FIELDEMPTY) << rc;
        return b;
    }
};

TEST_F(TableFixtures, YearByte126IsRefused) {
    struct Case {
        const char *name;
        int style;
    } cases[] = {{"hbntx.dbf", 1}, {"hbcdx.dbf", 4}, {"hbcdx.dbf", 8}, {"py_db3.dbf", 1}};
    for (const Case &c : cases) {
        const std::string p = fixture(c.name);
        const std::vector<uint8_t> before = xbt::readFile(p);
        ASSERT_EQ(before[1], 126) << c.name;
        int h = 0;
        EXPECT_EQ(tablea::open(&h, p, c.style), DBE_BADUPDATE) << c.name;
        EXPECT_EQ(h, -1);
        EXPECT_EQ(xbt::readFile(p), before);
    }
}

// Harbour's DBFNTX and DBFCDX tables hold the same 300 records.
TEST_F(TableFixtures, HarbourTables) {
    struct Case {
        const char *dbf;
        const char *records;
        int style;
    } cases[] = {{"hbntx.dbf", "hbntx.records.txt", 1}, {"hbcdx.dbf", "hbcdx.records.txt", 4},
                 {"hbcdx.dbf", "hbcdx.records.txt", 8}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.dbf);
        const std::string p = patched(c.dbf);
        const std::vector<long> blk = blocks(p);
        const auto rows = dump(c.records);
        ASSERT_EQ(rows.size(), 300u);
        ASSERT_EQ(blk.size(), 300u);
        int h = 0;
        ASSERT_EQ(tablea::open(&h, p, c.style), 0);
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.memo, 1);
        EXPECT_EQ(info.style, c.style);
        char upd[16];
        ASSERT_EQ(DBGetLastUpdate(h, upd, 4), 0);
        EXPECT_STREQ(upd, "20261122");
        int32_t n = 0;
        ASSERT_EQ(DBGetRecordCount(h, &n), 0);
        ASSERT_EQ(n, 300);
        int deleted = 0;
        for (const auto &r : rows) {
            ASSERT_EQ(r.size(), 9u);
            const int k = std::stoi(r[0]);
            SCOPED_TRACE(k);
            const bool del = r[1] == "*";
            deleted += del;
            ASSERT_EQ(DBGetRecord(h, k), del ? DBW_DELETED : 0);
            EXPECT_EQ(DBIsRecordDeleted(h), del ? 1 : 0);
            EXPECT_EQ(str(h, 0), r[2]);
            EXPECT_EQ(str(h, 1), r[3]);
            EXPECT_EQ(str(h, 2), r[4]);
            EXPECT_DOUBLE_EQ(num(h, 2), std::stod(r[4]));
            EXPECT_EQ(str(h, 3), r[5]);
            EXPECT_DOUBLE_EQ(num(h, 3), std::stod(r[5]));
            EXPECT_EQ(date(h, 4), r[6] == "        " ? "" : r[6]);
            EXPECT_EQ(logical(h, 5), r[7]);
            const long len = std::stol(split(r[8], ':')[0]);
            EXPECT_EQ(memo(h, 6), blk[static_cast<size_t>(k - 1)]);
            EXPECT_EQ(memo(h, 6) == 0, len == 0) << "an empty memo has no block";
        }
        EXPECT_EQ(deleted, 21);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

// python3-dbf's dBASE III and Visual FoxPro tables: the same 50 rows, with
// the dumps read back through dbfread (text fields trimmed).
TEST_F(TableFixtures, PythonDbfTables) {
    struct Case {
        const char *dbf;
        const char *records;
        int style;
        bool patch;
    } cases[] = {{"py_db3.dbf", "py_db3.records.txt", 1, true}, {"py_vfp.dbf", "py_vfp.records.txt", 10, false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.dbf);
        const std::string p = c.patch ? patched(c.dbf) : fixture(c.dbf);
        const std::vector<long> blk = blocks(p);
        const auto rows = dump(c.records);
        ASSERT_EQ(rows.size(), 50u);
        int h = 0;
        ASSERT_EQ(tablea::open(&h, p, c.style), 0);
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.style, c.style);
        DBFIELD f{};
        ASSERT_EQ(DBGetFieldDescription(h, 4, &f), 0);
        EXPECT_EQ(f.len, c.style == 10 ? 4 : 10) << "memo pointer width";
        for (const auto &r : rows) {
            ASSERT_EQ(r.size(), 6u);
            const int k = std::stoi(r[0]);
            SCOPED_TRACE(k);
            ASSERT_EQ(DBGetRecord(h, k), 0);
            std::string name = str(h, 0);
            name.erase(name.find_last_not_of(' ') + 1);
            EXPECT_EQ(name, r[1]);
            EXPECT_DOUBLE_EQ(num(h, 1), std::stod(r[2]));
            EXPECT_EQ(date(h, 2), r[3]);
            EXPECT_EQ(logical(h, 3), r[4]);
            EXPECT_EQ(memo(h, 4), blk[static_cast<size_t>(k - 1)]);
            if (std::stol(split(r[5], ':')[0]) > 0) EXPECT_GT(memo(h, 4), 0);
        }
        EXPECT_EQ(DBGetRecord(h, 51), DBE_SEEK);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableFixtures, ShapelibTable) {
    const std::string p = fixture("sl_plain.dbf");
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    char upd[16];
    ASSERT_EQ(DBGetLastUpdate(h, upd, 4), 0);
    EXPECT_STREQ(upd, "20950726") << "year byte 95 counts from 2000";
    struct Row {
        const char *name;
        double qty, price;
    } rows[] = {{"first", 1, 1.5}, {"", 0, 0}, {"third one", -42, -0.125}};
    int k = 0;
    for (const Row &r : rows) {
        ASSERT_EQ(DBGetRecord(h, ++k), 0);
        std::string name = str(h, 0);
        EXPECT_EQ(name, std::string(r.name) + std::string(16 - std::strlen(r.name), ' '));
        EXPECT_DOUBLE_EQ(num(h, 1), r.qty);
        EXPECT_DOUBLE_EQ(num(h, 2), r.price);
    }
    EXPECT_EQ(DBIsFieldBlank(h, 0), 0);
    ASSERT_EQ(DBGetRecord(h, 2), 0);
    EXPECT_EQ(DBIsFieldBlank(h, 0), 1);
    EXPECT_EQ(DBCloseFile(h), 0);
}

// The cache serves any order of reads with the same answers.
TEST_F(TableFixtures, RandomOrderMatchesSequential) {
    const std::string p = patched("hbntx.dbf");
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    std::vector<std::string> seq(301);
    for (int k = 1; k <= 300; k++) {
        ASSERT_GE(DBGetRecord(h, k), 0);
        DBRECINFO ri{};
        ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
        seq[static_cast<size_t>(k)] = std::string(ri.bfr, static_cast<size_t>(ri.reclen));
    }
    std::vector<int> order(300);
    for (int i = 0; i < 300; i++) order[static_cast<size_t>(i)] = i + 1;
    std::mt19937 rng(42);
    std::shuffle(order.begin(), order.end(), rng);
    for (int cache : {1, 3, 8, 64}) {
        int n = cache;
        ASSERT_EQ(DBGetSetCacheSize(h, &n, 0), 0);
        for (int k : order) {
            ASSERT_GE(DBGetRecord(h, k), 0);
            DBRECINFO ri{};
            ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
            ASSERT_EQ(std::string(ri.bfr, static_cast<size_t>(ri.reclen)), seq[static_cast<size_t>(k)])
                << "cache " << cache << " record " << k;
        }
    }
    EXPECT_EQ(DBCloseFile(h), 0);
}

}  // namespace
