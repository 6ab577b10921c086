// test_table_dbfread.cpp - tables this library creates and writes, read by
// an independent reader (python3-dbfread through tests/support/
// dbfread_dump.py): every style 0-9, every field type the style can create,
// records appended, rewritten, marked deleted and recalled, buffered and
// write-through.
#include "tablea_util.h"
#include "xbtest.h"

#include <cmath>

using tablea::fld;
using tablea::jstr;

namespace {

// What dbfread should print for one field: a JSON literal compared as text,
// or a number compared as a value.
struct Want {
    bool numeric;
    std::string v;  // JSON text; for numbers the value or "null"
};

Want text(const std::string &s) { return {false, jstr(s)}; }
Want lit(const std::string &s) { return {false, s}; }
Want number(double d) {
    char b[64];
    std::snprintf(b, sizeof b, "%.10g", d);
    return {true, b};
}
Want nothing(bool numeric) { return {numeric, "null"}; }

std::string hex(const void *p, size_t n) {
    static const char *digits = "0123456789abcdef";
    std::string s = "\"";
    for (size_t i = 0; i < n; i++) {
        const auto c = static_cast<const uint8_t *>(p)[i];
        s += digits[c >> 4];
        s += digits[c & 15];
    }
    return s + "\"";
}

// The field list for a style: every type it can create.
std::vector<DBFIELD> fieldsFor(int style) {
    std::vector<DBFIELD> f = {fld("NAME", 'C', 12), fld("AMOUNT", 'N', 10, 2), fld("QTY", 'N', 5),
                              fld("HIRED", 'D'),    fld("ACTIVE", 'L')};
    // Style 0 keeps the plain version byte with memo fields, which the
    // library cannot reopen; its memo table is checked on its own.
    if (style != 0) f.push_back(fld("NOTES", 'M'));
    if (style == 2 || style == 4 || style == 8) f.push_back(fld("RATE", 'F', 12, 4));
    if (style == 6) f.push_back(fld("LONGTEXT", 'C', 300));
    f.push_back(fld("BIN1", 1));
    f.push_back(fld("BIN3", 3));
    f.push_back(fld("BIN13", 13));
    return f;
}

class TableDbfread : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        ASSERT_EQ(DBSetDefaultDateStyle(4), 0);
    }

    // Fill the record buffer with the values of row i and remember what
    // dbfread should read back.
    std::vector<Want> fill(int h, const std::vector<DBFIELD> &fields, int i, const std::string &tag) {
        std::vector<Want> want;
        EXPECT_EQ(DBClearBuffer(h), 0);
        for (size_t f = 0; f < fields.size(); f++) {
            const std::string name = fields[f].name;
            const int fn = static_cast<int>(f);
            char buf[400];
            if (name == "NAME") {
                std::string s = i % 5 == 0 ? "" : tag + std::to_string(i);
                if (i == 7) s = "  leading and far too long";
                const int rc = DBPutStrField(h, fn, const_cast<char *>(s.c_str()));
                EXPECT_EQ(rc, s.size() > 12 ? DBW_TRUNCATED : 0);
                s = s.substr(0, 12);
                s.erase(s.find_last_not_of(' ') + 1);
                want.push_back(text(s));
            } else if (name == "AMOUNT") {
                if (i % 7 == 0) {
                    want.push_back(nothing(true));
                    continue;
                }
                const double v = i * 12.34 - 50;
                std::snprintf(buf, sizeof buf, "%10.2f", v);
                EXPECT_EQ(DBPutFieldData(h, fn, buf), 0);
                want.push_back(number(std::round(v * 100) / 100));
            } else if (name == "QTY") {
                std::snprintf(buf, sizeof buf, "%d", i * 3 - 20);
                EXPECT_EQ(DBPutFieldData(h, fn, buf), 0);
                want.push_back(number(i * 3 - 20));
            } else if (name == "HIRED") {
                if (i % 4 == 0) {
                    EXPECT_EQ(DBPutFieldData(h, fn, const_cast<char *>("")), 0);
                    want.push_back(nothing(false));
                    continue;
                }
                std::snprintf(buf, sizeof buf, "%04d%02d%02d", 1990 + i, 1 + i % 12, 1 + i % 28);
                EXPECT_EQ(DBPutFieldData(h, fn, buf), 0);
                want.push_back(lit(jstr(buf)));
            } else if (name == "ACTIVE") {
                const char v = "TF "[i % 3];
                char in = v;
                EXPECT_EQ(DBPutFieldData(h, fn, &in), 0);
                want.push_back(lit(v == 'T' ? "true" : v == 'F' ? "false" : "null"));
            } else if (name == "NOTES") {
                int32_t block = i % 3 == 0 ? 0 : i * 8 + 1;
                EXPECT_EQ(DBPutFieldData(h, fn, &block), 0);
                want.push_back(lit(std::to_string(block)));
            } else if (name == "RATE") {
                std::snprintf(buf, sizeof buf, "%12.4f", i / 8.0);
                EXPECT_EQ(DBPutFieldData(h, fn, buf), 0);
                want.push_back(number(i / 8.0));
            } else if (name == "LONGTEXT") {
                std::string s(290, static_cast<char>('a' + i % 26));
                EXPECT_EQ(DBPutStrField(h, fn, const_cast<char *>(s.c_str())), 0);
                want.push_back(text(s));
            } else if (name == "BIN1") {
                int16_t v = static_cast<int16_t>(i * -100);
                EXPECT_EQ(DBPutFieldData(h, fn, &v), 0);
                want.push_back(lit(hex(&v, 2)));
            } else if (name == "BIN3") {
                int32_t v = i * 100000 + 7;
                EXPECT_EQ(DBPutFieldData(h, fn, &v), 0);
                want.push_back(lit(hex(&v, 4)));
            } else if (name == "BIN13") {
                double v = i / 4.0 - 1;
                EXPECT_EQ(DBPutFieldData(h, fn, &v), 0);
                want.push_back(lit(hex(&v, 8)));
            }
        }
        return want;
    }

    // Compare what dbfread read with the expected rows (and marks).
    void compare(const std::string &p, const std::vector<DBFIELD> &fields, const std::vector<std::vector<Want>> &rows,
                 const std::vector<bool> &deleted, uint8_t version) {
        const tablea::Dump d = tablea::dbfread(p);
        ASSERT_EQ(d.check, "ok") << d.raw.substr(0, 600);
        char v[8];
        std::snprintf(v, sizeof v, "%02x", version);
        EXPECT_EQ(d.version, v);
        EXPECT_EQ(d.count, static_cast<long>(rows.size()));
        ASSERT_EQ(d.fields.size(), fields.size());
        for (size_t f = 0; f < fields.size(); f++) {
            EXPECT_EQ(d.fields[f][0], fields[f].name);
            EXPECT_EQ(std::stoi(d.fields[f][1], nullptr, 16), fields[f].type & 0xFF);
            EXPECT_EQ(std::stoi(d.fields[f][2]), fields[f].len);
            EXPECT_EQ(std::stoi(d.fields[f][3]), fields[f].decpl);
        }
        ASSERT_EQ(d.records.size(), rows.size());
        for (size_t r = 0; r < rows.size(); r++) {
            const auto &got = d.records[r];
            EXPECT_EQ(got.number, static_cast<int>(r + 1));
            EXPECT_EQ(got.deleted, deleted[r]) << "record " << r + 1;
            ASSERT_EQ(got.values.size(), rows[r].size());
            for (size_t f = 0; f < rows[r].size(); f++) {
                const Want &w = rows[r][f];
                if (w.numeric && w.v != "null" && got.values[f] != "null") {
                    EXPECT_NEAR(std::stod(got.values[f]), std::stod(w.v), 1e-9)
                        << "record " << r + 1 << " field " << fields[f].name;
                } else {
                    EXPECT_EQ(got.values[f], w.v) << "record " << r + 1 << " field " << fields[f].name;
                }
            }
        }
    }
};

TEST_F(TableDbfread, EveryStyleAndFieldType) {
    const uint8_t memoVersion[10] = {0x03, 0x83, 0x8B, 0x83, 0xF5, 0x83, 0x83, 0x83, 0xF5, 0x83};
    for (int style = 0; style <= 9; style++) {
        for (int mode : {0, DBO_UNBUFFERED}) {
            SCOPED_TRACE("style " + std::to_string(style) + (mode ? " write-through" : " buffered"));
            const std::string p = path("s" + std::to_string(style) + ".dbf");
            std::vector<DBFIELD> fields = fieldsFor(style);
            ASSERT_EQ(tablea::create(p, fields, style), 0);
            int h = 0;
            ASSERT_EQ(tablea::open(&h, p, style | mode), 0);
            std::vector<std::vector<Want>> rows;
            std::vector<bool> deleted;
            // Enough records to fill several cache blocks.
            for (int i = 1; i <= 40; i++) {
                rows.push_back(fill(h, fields, i, "row"));
                int32_t k = 0;
                ASSERT_EQ(DBPutRecord(h, &k, DB_APPEND), 0);
                ASSERT_EQ(k, i);
                deleted.push_back(false);
            }
            // Rewrites, near and far from the last block.
            for (int i : {2, 33, 40}) {
                ASSERT_EQ(DBGetRecord(h, i), 0);
                rows[static_cast<size_t>(i - 1)] = fill(h, fields, i + 100, "new");
                int32_t k = i;
                ASSERT_EQ(DBPutRecord(h, &k, DB_REWRITE), 0);
            }
            // Marks, one recalled again.
            for (int i : {3, 5, 39}) {
                ASSERT_EQ(DBMarkRecordInActive(h, i), 0);
                deleted[static_cast<size_t>(i - 1)] = true;
            }
            ASSERT_EQ(DBMarkRecordActive(h, 5), 0);
            deleted[4] = false;
            // And appends after all of that.
            for (int i = 41; i <= 45; i++) {
                rows.push_back(fill(h, fields, i, "late"));
                int32_t k = 0;
                ASSERT_EQ(DBPutRecord(h, &k, DB_APPEND), 0);
                deleted.push_back(false);
            }
            ASSERT_EQ(DBCloseFile(h), 0);
            const bool memo = style != 0;
            compare(p, fields, rows, deleted, memo ? memoVersion[style] : 0x03);
            // The library reads its own file back the same way.
            ASSERT_EQ(tablea::open(&h, p, style), 0);
            int32_t n = 0;
            ASSERT_EQ(DBGetRecordCount(h, &n), 0);
            EXPECT_EQ(n, 45);
            EXPECT_EQ(DBCloseFile(h), 0);
        }
    }
}

TEST_F(TableDbfread, StyleZeroMemoTable) {
    const std::string p = path("m0.dbf");
    std::vector<DBFIELD> fields = {fld("NAME", 'C', 4), fld("NOTES", 'M')};
    ASSERT_EQ(tablea::create(p, fields, 0), 0);
    compare(p, fields, {}, {}, 0x03);
}

TEST_F(TableDbfread, CallerBufferRecords) {
    const std::string p = path("b.dbf");
    std::vector<DBFIELD> fields = {fld("NAME", 'C', 6), fld("HIRED", 'D'), fld("AMOUNT", 'N', 9, 3),
                                   fld("ACTIVE", 'L'), fld("NOTES", 'M')};
    ASSERT_EQ(tablea::create(p, fields, 1), 0);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    std::vector<std::vector<Want>> rows;
    for (int i = 1; i <= 12; i++) {
        char buf[64] = {};
        buf[0] = ' ';
        std::snprintf(buf + 1, 7, "b%d", i);
        std::snprintf(buf + 8, 11, "2001%02d%02d", i, i + 10);
        const double amount = i * -1.125;
        std::memcpy(buf + 19, &amount, 8);
        buf[27] = i % 2 ? 'T' : 'F';
        const int32_t block = i * 2;
        std::memcpy(buf + 28, &block, 4);
        int32_t k = 0;
        ASSERT_EQ(DBPutRecordFromBuffer(h, buf, &k, DB_APPEND), 0);
        char date[16];
        std::snprintf(date, sizeof date, "2001%02d%02d", i, i + 10);
        rows.push_back({text("b" + std::to_string(i)), lit(jstr(date)), number(amount),
                        lit(i % 2 ? "true" : "false"), lit(std::to_string(block))});
    }
    ASSERT_EQ(DBCloseFile(h), 0);
    compare(p, fields, rows, std::vector<bool>(12, false), 0x83);
}

}  // namespace
