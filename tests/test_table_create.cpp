// test_table_create.cpp - DBCreateFile: the limits of each style, the
// rewriting of the caller's field list, and the exact bytes of the new file.
#include "seams.h"
#include "tablea_util.h"

#include <cstdio>
#include <functional>
#include <tuple>

using tablea::fld;

namespace {

std::vector<DBFIELD> many(int n, int len = 1) {
    std::vector<DBFIELD> f;
    for (int i = 0; i < n; i++) f.push_back(fld(("F" + std::to_string(i)).c_str(), 'C', len));
    return f;
}

class TableCreate : public xbt::LibTest {};

// Limits on both sides: a refused description creates no file, an accepted
// one opens with all its fields.
TEST_F(TableCreate, Limits) {
    std::vector<DBFIELD> exactly4000 = many(15, 254);
    exactly4000.push_back(fld("LAST", 'C', 189));
    const int NF = DBE_NUMFIELDS, FN = DBE_FIELDNAME, FT = DBE_FIELDTYPE, FL = DBE_FIELDLEN, DP = DBE_DECIMALS;
    struct Case { std::vector<DBFIELD> f; int mode, expect; } cases[] = {
        {{fld("A", 'C', 5)}, 10, DBE_BADVERSION}, {many(129), 0, NF}, {many(128), 0, 0}, {many(129), 2, 0},
        {many(256), 2, NF}, {many(1024), 5, NF}, {many(1023), 6, 0}, {many(513), 7, NF}, {many(512), 7, 0},
        {{fld("ABCDEFGHIJK", 'C', 5)}, 1, FN}, {{fld("", 'C', 5)}, 1, FN}, {{fld("A", 'I', 4)}, 1, FT},
        {{fld("A", 'F', 8, 2)}, 1, FT}, {{fld("A", 'C', 254)}, 1, 0}, {{fld("A", 'C', 255)}, 1, FL},
        {{fld("A", 'C', 2048)}, 6, 0}, {{fld("A", 'C', 2049)}, 6, FL}, {{fld("A", 'N', 0)}, 1, FL},
        {{fld("A", 'N', 19, 15)}, 1, 0}, {{fld("A", 'N', 20)}, 1, FL}, {{fld("A", 'N', 20, 18)}, 4, 0},
        {{fld("A", 'N', 5, -1)}, 1, DP}, {{fld("A", 'N', 5, 4)}, 1, DP}, {{fld("A", 'N', 19, 16)}, 3, DP},
        {{fld("A", 'F', 20, 16)}, 2, 0}, {exactly4000, 1, 0}, {many(16, 250), 1, DBE_RECLEN},
        {many(5, 2000), 6, DBE_RECLEN}, {{fld("A", 'C', 5), fld("B", 'Q', 3)}, 1, FT}};
    for (Case &c : cases) {
        int h = 0;
        DBRECINFO ri{};
        std::remove(path("new.dbf").c_str());
        ASSERT_EQ(tablea::create(path("new.dbf"), c.f, c.mode), c.expect) << c.f.size() << " fields, " << c.f[0].name;
        EXPECT_EQ(xbt::fileExists(path("new.dbf")), c.expect == 0);
        if (c.expect) continue;
        ASSERT_EQ(tablea::open(&h, path("new.dbf"), c.mode) + DBGetRecordInfo(h, &ri), 0);
        EXPECT_EQ(ri.numflds, static_cast<int>(c.f.size()));
        EXPECT_EQ(DBCloseFile(h), 0);
    }
    std::vector<DBFIELD> f = {fld("A", 'C', 5)};
    EXPECT_EQ(DBCreateFile(tablea::cs(path("n.dbf").c_str()), 1, nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBCreateFile(tablea::cs(path("n.dbf").c_str()), 0, f.data(), 1), DBE_NUMFIELDS);
    EXPECT_EQ(tablea::create(path("no/such/dir/x.dbf"), f, 1), DBE_NOPATH);
}

// The whole file, byte for byte, in styles 9 (terminator block), 0 (version
// 3 despite the memo), 1, 2 (index flags), 6 (a 300-byte 'C' field); the
// caller's list comes back upper-cased with the fixed lengths set.
TEST_F(TableCreate, BytesOfNewTables) {
    int y = 0, m = 0, d = 0, dow = 0;
    ASSERT_EQ(DBGetDate3(&y, &m, &d, &dow), 0);
    for (int mode : {9, 0, 1, 2 | 0x200, 6}) {  // each file replaces a longer or equal one
        const int style = mode & 0xFF, c = style == 6 ? 300 : 10;
        std::vector<DBFIELD> f = {fld("name", 'c' | 0x100, c), fld("amount", 'n', 8, 2), fld("hired", 'D', 99, 3),
                                  fld("ok", 'l', 7), fld("notes", 'M'), fld("b2", 2, 9)};
        ASSERT_EQ(tablea::create(path("t.dbf"), f, mode), 0) << mode;
        tablea::RawDbf t;
        t.version = style == 2 ? 0x8B : style ? 0x83 : 3, t.mdx = mode & 0x200 ? 1 : 0;
        t.y = static_cast<uint8_t>(y + 48), t.m = static_cast<uint8_t>(m), t.d = static_cast<uint8_t>(d);
        t.field("NAME", 'C', c & 0xFF, c >> 8).field("AMOUNT", 'N', 8, 2).field("HIRED", 'D', 8).field("OK", 'L', 1);
        t.field("NOTES", 'M', 10).field("B2", 2, 2);
        if (style == 9) t.fields.push_back({"\x0d", 0, 0, 0}), t.hlen = 32 * 6 + 64;
        std::vector<uint8_t> want = t.bytes();
        if (style == 2) want[32 + 31] = 1;  // the index flag asked for by bit 0x100 of the type
        EXPECT_EQ(xbt::readFile(path("t.dbf")), want) << mode;
        const int len[] = {c, 8, 8, 1, 10, 2}, type[] = {'C' | 0x100, 'N', 'D', 'L', 'M', 2};
        for (int i = 0; i < 6; i++)
            EXPECT_EQ(std::tuple(f[i].len, f[i].type, f[i].decpl), std::tuple(len[i], type[i], i == 1 ? 2 : 0)) << i;
        EXPECT_STREQ(f[0].name, "NAME");
    }
}

// A create of a table or memo file that runs out of memory or cannot write fails and leaves no file behind.
TEST_F(TableCreate, FailedCreatesLeaveNoFile) {
    std::vector<DBFIELD> f = {fld("A", 'C', 5)};
    std::string p = path("x");
    const std::function<int()> creates[] = {
        [&] { return tablea::create(p, f, 1); }, [&] { return DBfpCreateMemo(p.data(), 1); },
        [&] { return DBxbCreateMemo(p.data(), 1, 3); }, [&] { return DBxbCreateMemo(p.data(), 4, 2); }};
    for (const auto &create : creates)
        for (bool memory : {true, false}) {
            xbt::Seams seams;
            (memory ? seams.allocsLeft : seams.writesLeft) = 0;
            const int rc = create();
            EXPECT_TRUE(rc == (memory ? DBE_NOMEMORY : DBE_WRITE) || (memory && rc == 0)) << rc;
            EXPECT_EQ(xbt::fileExists(p), rc == 0) << rc;
            std::remove(p.c_str());
        }
}

}  // namespace
