// test_table_fixtures.cpp - tables written by Harbour, python3-dbf and
// shapelib, every field of every record compared with the producers' dumps.
#include "tablea_util.h"

#include <random>

namespace {

class TableFixtures : public xbt::LibTest {};

// Dump columns: '*' deletion mark, 'C' text as stored, 'c' text trimmed,
// 'N' number text as stored and its value, 'n' its value only, 'D' date,
// 'L' logical, 'M' memo block (as dbfread reads it). Year byte 126: -220.
TEST_F(TableFixtures, EveryRecordMatchesTheDump) {
    ASSERT_EQ(DBSetDefaultDateStyle(4), 0);
    const char *hb = "*CCNNDLM", *py = "cnDLM", *nov22 = "20261122";
    struct Case { const char *name; int style; bool patch; const char *cols, *date; int rows, dels, memo; } cases[] = {
        {"hbntx", 1, true, hb, nov22, 300, 21, 10}, {"hbcdx", 4, true, hb, nov22, 300, 21, 10},
        {"hbcdx", 8, true, hb, nov22, 300, 21, 10}, {"py_db3", 1, true, py, nov22, 50, 0, 10},
        {"py_vfp", 10, false, py, nov22, 50, 0, 4},  // memo pointers as 4-byte integers
        {"sl_plain", 1, false, "cnn", "20950726", 3, 0, 0}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string p = fixture(std::string(c.name) + ".dbf");
        std::vector<uint8_t> b = xbt::readFile(p);
        int h = 0, deleted = 0, nf = static_cast<int>(std::strlen(c.cols)) - (c.cols[0] == '*');
        int32_t n = 0;
        DBFIELD last{};
        char updated[16];
        if (c.patch) {
            EXPECT_EQ(tablea::open(&h, p, c.style), DBE_BADUPDATE);
            EXPECT_EQ(xbt::readFile(p), b);
            b[1] = 26;
            xbt::writeFile(p, b);
        }
        std::vector<std::vector<std::string>> rows, seen = tablea::dbfread(p);
        if (!c.memo)  // shapelib's rows, as the fixtures' README gives them
            rows = {{"1", "first", "1", "1.5"}, {"2", "", "0", "0"}, {"3", "third one", "-42", "-0.125"}};
        for (const std::string &l : xbt::readLines(xbt::fixturePath(std::string(c.name) + ".records.txt")))
            if (l[0] != '#') rows.push_back(tablea::split(l, '|'));
        ASSERT_EQ(tablea::open(&h, p, c.style), 0);
        ASSERT_EQ(DBGetRecordCount(h, &n) + DBGetFieldDescription(h, nf - 1, &last), 0);
        ASSERT_EQ(DBGetLastUpdate(h, updated, 4), 0);
        ASSERT_EQ(std::vector<size_t>({static_cast<size_t>(n), rows.size(), seen.size()}),
                  std::vector<size_t>({static_cast<size_t>(c.rows), static_cast<size_t>(n), n + nf + 2u}));
        EXPECT_EQ(c.memo ? last.len : 0, c.memo);
        EXPECT_STREQ(updated, c.date);
        std::shuffle(rows.begin(), rows.end(), std::mt19937(42));  // any order of reads, through the cache
        for (std::vector<std::string> &r : rows) {
            const int k = std::stoi(r[0]), rc = DBGetRecord(h, k);
            std::vector<std::string> got = {r[0]};
            for (int col = 1, f = c.cols[0] == '*' ? -1 : 0; col < static_cast<int>(r.size()); col++, f++) {
                const char kind = c.cols[col - 1];
                char buf[64] = "?";
                double v = 0;
                int32_t block = -1;
                if (kind == 'C' || kind == 'c' || kind == 'N') EXPECT_GE(DBGetStrField(h, f, buf), 0);
                if (kind == 'D' || kind == 'L') EXPECT_GE(DBGetFieldData(h, f, buf), 0);
                if (kind == 'N' || kind == 'n') EXPECT_EQ(DBGetFieldData(h, f, &v), 0);
                if (kind == 'N' || kind == 'n') EXPECT_DOUBLE_EQ(v, std::stod(r[col])) << k;
                if (kind == 'M') EXPECT_GE(DBGetFieldData(h, f, &block), 0);
                if (kind == 'M') EXPECT_EQ(std::to_string(block), seen[nf + static_cast<size_t>(k)].back()) << k;
                std::string s = kind == '*' ? (rc == DBW_DELETED ? "*" : rc == 0 ? " " : std::to_string(rc)) : buf;
                if (kind == 'c' || kind == 'D') s = tablea::trim(s), r[col] = tablea::trim(r[col]);
                if (kind == 'L') s = buf[0] == 1 ? "T" : buf[0] == 0 ? "F" : "?";
                if (kind == 'n' || kind == 'M') s = r[col];  // compared above: the value, the block
                got.push_back(s);
                deleted += s == "*";
            }
            EXPECT_EQ(got, r);
            if (c.cols[0] != '*') EXPECT_EQ(rc, 0) << k;
        }
        EXPECT_EQ(deleted, c.dels);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

}  // namespace
