// test_table_open.cpp - which headers of which styles open, which are refused
// with which status, and that a refused open leaves nothing behind.
#include "tablea_util.h"

#include <unistd.h>

using tablea::RawDbf;

namespace {

class TableOpen : public xbt::LibTest {
protected:
    // NAME C(10), QTY N(5,2) (its name cut to 10 at open), two records.
    static RawDbf plain() {
        RawDbf t;
        t.field("NAME", 'C', 10).field("QTYABCDEFGH", 'N', 5, 2).records = {" alpha      1.50", "*beta      -2.00"};
        return t;
    }
    // Writes t (or the image given) and opens it; a refused open must leave
    // handle -1 and the file as it was.
    int tryOpen(const RawDbf &t, int mode, int *h, const std::vector<uint8_t> *image = nullptr) {
        const std::vector<uint8_t> b = image ? *image : t.bytes();
        xbt::writeFile(path("t.dbf"), b);
        const int rc = tablea::open(h, path("t.dbf"), mode);
        if (rc < 0) EXPECT_EQ(*h, -1);
        if (rc < 0) EXPECT_EQ(xbt::readFile(path("t.dbf")), b) << "a refused open changed the file";
        return rc;
    }
};

// Version bytes by style, header length forms, date and mdx bytes, field
// types and the memo rule; what an accepted header reports and reads.
TEST_F(TableOpen, HeaderChecks) {
    enum { VER, HLEN, DATE, MDX, TYPE };
    const int BV = DBE_BADVERSION, BU = DBE_BADUPDATE, HL = DBE_HDRLEN, FT = DBE_FIELDTYPE, C = 'C';
    struct Case { int what, style, a, b = 0, c = 0, expect = 0, style2 = -1, mdx = 0, memo = 0, type = C; } cases[] = {
        {VER, 0, 3, 0, 0, 0, 1}, {VER, 1, 0x43}, {VER, 8, 3}, {VER, 1, 0xF5, 0, 0, BV}, {VER, 2, 0x43, 0, 0, BV},
        {VER, 4, 0x83, 0, 0, BV}, {VER, 10, 3, 0, 0, BV}, {VER, 11, 3, 0, 0, DBE_BADCOMMAND}, {HLEN, 1, 98},
        {HLEN, 1, 104}, {HLEN, 1, 128, 1, 0, 0, 9}, {HLEN, 1, 99, 0, 0, HL}, {HLEN, 1, 127, 0, 0, HL},
        {HLEN, 1, 31, 0, 0, HL}, {DATE, 1, 0x77, 1, 1}, {DATE, 1, 0x80, 1, 1}, {DATE, 1, 0x78, 1, 1, BU},
        {DATE, 1, 26, 13, 1, BU}, {DATE, 1, 26, 0, 1, BU}, {DATE, 1, 26, 1, 32, BU}, {MDX, 2, 1, 0, 0, 0, -1, 1},
        {MDX, 1, 2, 0, 0, 0, -1, 2}, {MDX, 2, 2, 0, 0, DBE_MDXFLAG}, {MDX, 8, 2, 0, 0, DBE_MDXFLAG},
        {TYPE, 1, 3, 'Q'}, {TYPE, 1, 3, 'v'}, {TYPE, 1, 3, 'T', 0, 0, -1, 0, 0, 'T'},
        {TYPE, 1, 3, 13, 0, 0, -1, 0, 0, 13}, {TYPE, 1, 0x83, 'M', 0, 0, -1, 0, 1, 'M'},
        {TYPE, 2, 0x8B, 'W', 0, 0, -1, 0, 1, 'G'}, {TYPE, 4, 0xF5, 'm', 0, 0, -1, 0, 1, 'M'},
        {TYPE, 1, 3, 'M', 0, BV}, {TYPE, 4, 3, 'M', 0, BV}, {TYPE, 1, 3, 'X', 0, FT}, {TYPE, 1, 3, 5, 0, FT}};
    for (const Case &c : cases) {
        RawDbf t = plain();
        const auto a = static_cast<uint8_t>(c.a), b = static_cast<uint8_t>(c.b);
        if (c.what == VER || c.what == TYPE) t.version = a;
        if (c.what == TYPE) t.fields[0].type = b;
        if (c.what == HLEN) t.hlen = c.a;
        if (c.what == HLEN && c.b) t.fields.push_back({"\x0d", 0, 0, 0});
        if (c.what == DATE) t.y = a, t.m = b, t.d = static_cast<uint8_t>(c.c);
        if (c.what == MDX) t.mdx = a;
        int h = 0;
        char text[16] = "";
        DBFILEINFO i{};
        DBFIELD f{};
        const int rc = tryOpen(t, c.style, &h);
        EXPECT_EQ(rc, c.expect) << "kind " << c.what << " style " << c.style << ": " << c.a << " " << c.b << " " << c.c;
        if (rc != 0) continue;
        ASSERT_EQ(DBGetFileInfo(h, &i) + DBGetFieldDescription(h, 0, &f), 0);
        EXPECT_EQ(std::vector<int>({i.style, i.mdx, i.memo, f.type}),
                  std::vector<int>({c.style2 < 0 ? c.style : c.style2, c.mdx, c.memo, c.type}));
        ASSERT_EQ(DBGetRecord(h, 1), 0);
        EXPECT_EQ(DBGetStrField(h, 1, text), 0);
        EXPECT_STREQ(text, " 1.50") << "records and fields start where the header says";
        EXPECT_EQ(DBGetFieldName(h, text, 1), 0);
        EXPECT_STREQ(text, "QTYABCDEFG");
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

// Damaged, cut and missing files, null arguments and closed handles are
// refused without a crash, a write or a lost slot; files of the wrong
// length open with a warning; 2000 real fields open.
TEST_F(TableOpen, BadInput) {
    const int64_t A = INT64_MIN;
    struct Case { const char *what; int version, rlen, hlen; int64_t count; long cut; int style, expect; } cases[] = {
        {"record length too long", 3, 17, -1, A, -1, 1, DBE_RECLEN}, {"too short", 3, 15, -1, A, -1, 1, DBE_RECLEN},
        {"record length 0", 3, 0, -1, A, -1, 1, DBE_RECLEN},         {"no fields", 3, 1, 33, A, -1, 1, DBE_NUMFIELDS},
        {"2000 descriptors claimed, file ends", 3, -1, 32 * 2000 + 33, A, 200, 1, DBE_READ},
        {"no terminator in 256 slots", '0', 301, 32 * 300 + 40, A, -1, 10, DBE_CORRUPT},
        {"negative record count", 3, -1, -1, -5, -1, 1, DBE_CORRUPT}, {"empty file", 3, -1, -1, A, 0, 1, DBE_READ},
        {"records ending past 2^31 - 1", 3, -1, -1, (INT32_MAX - 97) / 16 + 1, -1, 1, DBE_CORRUPT},
        {"31 bytes", 3, -1, -1, A, 31, 1, DBE_READ}, {"40 bytes", 3, -1, -1, A, 40, 1, DBE_READ},
        // Two 16-byte records after a 97-byte header: 129, 130 and 145 bytes open silently, other lengths with 207.
        {"no end mark", 3, -1, -1, A, 129, 1, 0}, {"a record more", 3, -1, -1, A, 145, 1, 0},
        {"a byte short", 3, -1, -1, A, 128, 1, DBW_BADFILELEN}, {"4 bytes more", 3, -1, -1, A, 134, 1, DBW_BADFILELEN}};
    RawDbf wide;
    for (int i = 0; i < 2000; i++) wide.field("F" + std::to_string(i), 'C', 1);
    int h = 7, n = -1;
    for (const Case &c : cases) {
        RawDbf t = c.version == '0' ? wide : plain();
        t.version = static_cast<uint8_t>(c.version), t.rlen = c.rlen, t.hlen = c.hlen, t.count = c.count;
        std::vector<uint8_t> b = t.bytes();
        if (c.cut >= 0) b.resize(static_cast<size_t>(c.cut), ' ');
        ASSERT_EQ(tryOpen(t, c.style, &h, &b), c.expect) << c.what;
        if (c.expect < 0) continue;
        int32_t appended = 0;  // to a file that ends before its records: refused
        if (c.cut >= 0 && c.cut < 129) EXPECT_EQ(DBPutRecord(h, &appended, DB_APPEND), DBE_CORRUPT) << c.what;
        EXPECT_EQ(DBCloseFile(h), 0);
        EXPECT_EQ(xbt::readFile(path("t.dbf")), b) << "open and close of a clean table write nothing";
    }
    EXPECT_EQ(DBOpenFile(nullptr, tablea::cs("x"), 1), DBE_NULLPARAM);
    EXPECT_EQ(DBOpenFile(&h, nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(tablea::open(&h, path("missing.dbf"), 1), DBE_NOTFOUND);
    ASSERT_EQ(symlink(path("loop.dbf").c_str(), path("loop.dbf").c_str()), 0);
    EXPECT_EQ(tablea::open(&h, path("loop.dbf"), 1), ELOOP) << "a system error is the bare errno on this path";
    wide.records = {" " + std::string(2000, 'z')};
    ASSERT_EQ(tryOpen(wide, 6, &h), 0);
    EXPECT_EQ(h, 3) << "refused opens leave no slot taken";
    ASSERT_EQ(DBGetFieldNumber(h, &n, tablea::cs("f1999")), 0);
    EXPECT_EQ(n, 1999);
    EXPECT_EQ(DBGetFileInfo(h, nullptr), DBE_NULLPARAM);
    ASSERT_EQ(DBCloseFile(h), 0);  // shared, it rereads a count another process damaged
    ASSERT_EQ(tablea::open(&h, path("t.dbf"), 6 | DBO_SHARED), 0);
    std::vector<uint8_t> b = xbt::readFile(path("t.dbf"));
    b[4] = b[5] = b[6] = 0xFF, b[7] = 0x00;
    xbt::writeFile(path("t.dbf"), b);
    int32_t count = 0;
    EXPECT_EQ(DBGetRecordCount(h, &count), DBE_CORRUPT);
    EXPECT_EQ(DBGetLastUpdate(h, nullptr, 4), DBE_NULLPARAM);
    ASSERT_EQ(DBCloseFile(h), 0);
    for (int bad : {h, -1, 0, 2, 60, 1000})
        EXPECT_EQ(std::vector<int>({DBGetRecord(bad, 1), DBCloseFile(bad)}), std::vector<int>(2, DBE_BADHANDLE)) << bad;
}

}  // namespace
