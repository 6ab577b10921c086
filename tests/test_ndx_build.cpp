// NDX files we write, against the layout drawn in ndx.h, read by the
// test's own reader (ndx_util.h): the header of a new file byte by byte;
// bulk builds over a table (character, numeric and date keys, unique and
// not) node by node; the key conversions. (Trees changed by adds and
// deletes, node by node: IndexTree.RandomAddsAndDeletesMatchTheModel.)
#include "ndx_util.h"

using idx::cs;
using idx::KeyLine;

namespace {

class NdxBuild : public xbt::LibTest {
protected:
    void SetUp() override {
        LibTest::SetUp();
        ASSERT_EQ(DBSetDefaultDateStyle(2), 0);
        ndxt::makeTable(path("t.dbf"), &t_, kRows);
    }
    static constexpr int kRows = 5000;
    int t_ = -1;
};

// A new file: the header's every byte, and an empty root leaf.
TEST_F(NdxBuild, NewFileByteByByte) {
    struct Case { int type; int len; const char *expr, *stored; int k, t, il, u; } cases[] = {
        {'C', 20, "name + city", "NAME+CITY", 20, 0, 28, 0},
        {'c' | 0x80, 1, "code", "CODE", 1, 0, 12, 1},
        {'C', 100, "UPPER(NAME)", "UPPER(NAME)", 100, 0, 108, 0},
        {'N', 19, "AMOUNT", "AMOUNT", 8, 1, 16, 0},
        {'D' | 0x80, 3, "hired", "HIRED", 8, 1, 16, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.expr);
        const std::string f = path("new.ndx");
        ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), c.type, cs(c.expr), c.len, 2), 0);
        // Root block 1, 2 blocks, key length, keys a node, type, item, unique.
        std::vector<uint8_t> want(1024, 0);
        for (const auto &[at, v] : {std::pair{0, 1}, {4, 2}, {12, c.k}, {14, 504 / c.il}, {16, c.t}, {18, c.il}, {23, c.u}})
            want[static_cast<size_t>(at)] = static_cast<uint8_t>(v);
        std::memcpy(&want[24], c.stored, std::strlen(c.stored));
        EXPECT_EQ(xbt::readFile(f), want);
        const short h = idx::openIndex(idx::kNdx, f);
        char expr[512];
        ASSERT_EQ(DBd3GetIndexKeyExpr(h, expr), 0);
        EXPECT_STREQ(expr, c.stored);
        ASSERT_EQ(DBd3CloseIndex(h), 0);
        EXPECT_EQ(xbt::readFile(f), want);  // nothing written by open and close
    }
    // What create refuses.
    struct Bad { int type, len, dec; const char *expr; int rc; } bad[] = {
        {'C', 0, 0, "A", DBE_KEYLEN}, {'C', 101, 0, "A", DBE_KEYLEN}, {'X', 10, 0, "A", DBE_KEYTYPE},
        {'N', 8, 16, "A", DBE_DECIMALS}, {'N', 8, -1, "A", DBE_DECIMALS}, {'C', 10, 0, "   ", DBE_BADEXPR},
        {'C', 10, 0, nullptr, DBE_BADEXPR}};
    const std::string longExpr(256, 'A');
    for (const Bad &c : bad) {
        const std::string f = path("bad.ndx");
        EXPECT_EQ(DBd3CreateIndex(cs(f.c_str()), c.type, cs(c.expr ? c.expr : longExpr.c_str()), c.len, c.dec), c.rc) << c.type << " " << c.len;
        EXPECT_FALSE(xbt::fileExists(f));
    }
}

// Builds over the table: the entries the table gives, in key order and for
// equal keys by record; every node by the layout; nodes but the root at
// least half full. (DBd3MakeKey against stored keys: NdxXbase64. Our walks
// and the whole-tree check read trees like these in every NDX suite.)
TEST_F(NdxBuild, BuildsAgainstTheTableAndTheLayout) {
    struct Case { const char *name; int type; int len; const char *expr; char kind; bool unique; } cases[] = {
        {"name", 'C', 20, "NAME", 'C', false}, {"uname", 'C' | 0x80, 20, "NAME", 'C', true},
        {"amount", 'N', 10, "AMOUNT", 'N', false}, {"uamount", 'N' | 0x80, 10, "AMOUNT", 'N', true},
        {"hired", 'D', 8, "HIRED", 'D', false}, {"code", 'C', 10, "CODE", 'K', false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string f = path(std::string(c.name) + ".ndx");
        ASSERT_EQ(DBd3BuildIndex(t_, cs(f.c_str()), c.type, cs(c.expr), c.len, 2), 0);
        const std::vector<KeyLine> want = ndxt::tableKeys(kRows, c.kind, c.unique);
        ndxt::Layout lay;
        EXPECT_TRUE(idx::same(lay.read(f), want));
        EXPECT_GE(lay.minFill, (lay.m + 1) / 2);
    }
    // A table without records gives the empty index create wrote.
    int eh = -1;
    ndxt::makeTable(path("empty.dbf"), &eh, 0);
    ASSERT_EQ(DBd3BuildIndex(eh, cs(path("e.ndx").c_str()), 'C', cs("NAME"), 20, 0), 0);
    EXPECT_EQ(xbt::fileSize(path("e.ndx")), 1024);
}

// The key forms: numbers as little-endian doubles, dates as Julian days.
TEST_F(NdxBuild, KeyConversions) {
    const std::string f = path("n.ndx");
    ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), 'N', cs("AMOUNT"), 8, 0), 0);
    short h = idx::openIndex(idx::kNdx, f);
    char key[16];
    for (double v : {0.0, -0.0, 1.5, -1.5, 1e300, -2.25e-10}) {
        ASSERT_EQ(DBd3DoubleToKey(h, key, v), 0);
        EXPECT_EQ(std::string(key, 8), ndxt::dbl(v == 0 ? 0.0 : v)) << v;  // -0 is stored as 0
        EXPECT_EQ(key[8], '\0');
        double back = 1;
        ASSERT_EQ(DBd3KeyToDouble(&back, key), 0);
        EXPECT_EQ(back, v);
    }
    struct D { const char *date; int style; int32_t day; } dates[] = {
        {"20000101", 4, 2451545}, {"31.12.1999", 7, 2451544}, {"01/01/0001", 2, 1721426},
        {"12/31/9999", 2, 5373484}, {"  /  /    ", 2, 0}};
    for (const D &d : dates) {
        ASSERT_EQ(DBd3DateToKey(key, cs(d.date), d.style), 0) << d.date;
        EXPECT_EQ(ndxt::val(std::string(key, 8)), d.day) << d.date;
        char back[32] = "x";
        ASSERT_EQ(DBd3KeyToDate(back, d.style, key), 0) << d.date;
        EXPECT_STREQ(back, d.day ? d.date : "") << d.date;
    }
    EXPECT_EQ(DBd3DateToKey(key, cs("02/30/2024"), 2), DBE_BADDATE);
    EXPECT_EQ(DBd3DateToKey(key, cs("01/01/2000"), 16), DBE_BADCOMMAND);
    char back[32];
    for (double v : {0.5, 1721425.0, 5373485.0}) {
        ASSERT_EQ(DBd3DoubleToKey(h, key, v), 0);
        EXPECT_EQ(DBd3KeyToDate(back, 2, key), DBE_BADDATE) << v;
    }
    ASSERT_EQ(DBd3CloseIndex(h), 0);
    // A character index has no numeric key form, and over a number it is no
    // key at all; nor is a numeric index over a name.
    ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), 'C', cs("AMOUNT"), 10, 0), 0);
    h = idx::openIndex(idx::kNdx, f);
    EXPECT_EQ(DBd3DoubleToKey(h, key, 1.0), DBE_KEYTYPE);
    ASSERT_GE(DBGetRecord(t_, 1), 0);
    char *made = nullptr;
    EXPECT_EQ(DBd3MakeKey(t_, h, &made), DBE_BADEXPR);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(DBd3BuildIndex(t_, cs(path("bad.ndx").c_str()), 'N', cs("NAME"), 8, 0), DBE_BADEXPR);
    EXPECT_FALSE(xbt::fileExists(path("bad.ndx")));
    ASSERT_EQ(DBd3CloseIndex(h), 0);
}

}  // namespace
