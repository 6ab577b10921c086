// test_table_open.cpp - opening and closing tables: which headers of which
// styles open, which are refused with which status, what a failed open
// leaves behind (nothing), and what the information calls report.
#include "tablea_util.h"
#include "xbtest.h"

#include <unistd.h>

using tablea::RawDbf;

namespace {

class TableOpen : public xbt::LibTest {
protected:
    // A plain two-field table: NAME C(10), QTY N(5,2), two records.
    RawDbf plain() const {
        RawDbf t;
        t.field("NAME", 'C', 10).field("QTY", 'N', 5, 2);
        t.records = {" alpha      1.50", "*beta      -2.00"};
        return t;
    }
    // Try to open `t` written to a file; on failure the file must be as it
    // was and the handle -1.
    int tryOpen(const RawDbf &t, int mode, int *handle) {
        const std::string p = path("t.dbf");
        t.write(p);
        const std::vector<uint8_t> before = xbt::readFile(p);
        const int rc = tablea::open(handle, p, mode);
        if (rc < 0) {
            EXPECT_EQ(*handle, -1);
            EXPECT_EQ(xbt::readFile(p), before) << "a refused open changed the file";
        }
        return rc;
    }
    int openStatus(const RawDbf &t, int mode) {
        int h = 0;
        const int rc = tryOpen(t, mode, &h);
        if (rc >= 0) EXPECT_EQ(DBCloseFile(h), 0);
        return rc;
    }
};

TEST_F(TableOpen, OpensAndReports) {
    const std::string p = path("t.dbf");
    plain().write(p);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    EXPECT_EQ(h, 3);
    DBFILEINFO info{};
    ASSERT_EQ(DBGetFileInfo(h, &info), 0);
    EXPECT_EQ(info.style, 1);
    EXPECT_EQ(info.memo, 0);
    EXPECT_EQ(info.mdx, 0);
    EXPECT_STREQ(info.fname, p.c_str());
    EXPECT_EQ(info.flags.isreadonly, 0);
    EXPECT_EQ(info.flags.isshareable, 0);
    EXPECT_EQ(info.flags.isunbuffered, 0);
    EXPECT_EQ(info.lockt, 0);
    int32_t n = -1;
    ASSERT_EQ(DBGetRecordCount(h, &n), 0);
    EXPECT_EQ(n, 2);
    DBRECINFO ri{};
    ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
    EXPECT_EQ(ri.reclen, 16);
    EXPECT_EQ(ri.numflds, 2);
    EXPECT_EQ(std::string(ri.bfr, 16), std::string(16, ' ')) << "record buffer starts as spaces";
    char date[16];
    ASSERT_EQ(DBGetLastUpdate(h, date, 4), 0);
    EXPECT_STREQ(date, "20240517");
    ASSERT_EQ(DBGetLastUpdate(h, date, 1), 0);
    EXPECT_STREQ(date, "05/17/24");
    EXPECT_EQ(DBGetLastUpdate(h, date, 16), DBE_BADCOMMAND);
    EXPECT_EQ(DBGetLastUpdate(h, nullptr, 4), DBE_NULLPARAM);
    EXPECT_EQ(DBGetFileInfo(h, nullptr), DBE_NULLPARAM);
    ASSERT_EQ(DBCloseFile(h), 0);
    EXPECT_EQ(DBCloseFile(h), DBE_BADHANDLE) << "a closed handle is gone";
    // The slot is free again for the next open.
    int h2 = 0;
    ASSERT_EQ(tablea::open(&h2, p, DBO_READONLY | DBO_UNBUFFERED | 1), 0);
    EXPECT_EQ(h2, 3);
    ASSERT_EQ(DBGetFileInfo(h2, &info), 0);
    EXPECT_EQ(info.flags.isreadonly, 1);
    EXPECT_EQ(info.flags.isunbuffered, 1);
    EXPECT_EQ(DBCloseFile(h2), 0);
}

TEST_F(TableOpen, ModeBits) {
    const std::string p = path("t.dbf");
    plain().write(p);
    struct Case {
        int mode;
        int ro, shared, unbuf;
    } cases[] = {
        {1, 0, 0, 0},
        {1 | DBO_FLUSH, 0, 0, 1},
        {1 | DBO_UNBUFFERED, 0, 0, 1},
        {1 | DBO_SHARED, 0, 1, 0},
        {1 | DBO_AUTOLOCK, 0, 1, 1},                  // automatic locks imply shared, write-through
        {1 | DBO_AUTOLOCK | DBO_READONLY, 1, 1, 1},
    };
    for (const Case &c : cases) {
        int h = 0;
        ASSERT_EQ(tablea::open(&h, p, c.mode), 0) << c.mode;
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.flags.isreadonly, c.ro) << std::hex << c.mode;
        EXPECT_EQ(info.flags.isshareable, c.shared) << std::hex << c.mode;
        EXPECT_EQ(info.flags.isunbuffered, c.unbuf) << std::hex << c.mode;
        int nrecs = -1;
        ASSERT_GE(DBGetSetCacheSize(h, &nrecs, 1), 0);
        EXPECT_EQ(nrecs, c.unbuf ? 0 : 512 / 16) << "write-through tables have no cache";
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableOpen, StylesAndVersionBytes) {
    struct Case {
        int style;
        uint8_t version;
        int expect;
    } cases[] = {
        {0, 0x03, 0},    {1, 0x43, 0},    {1, 0x63, 0},    {1, 0x83, 0},   {1, 0xF5, DBE_BADVERSION},
        {1, 0x8B, DBE_BADVERSION},        {3, 0x03, 0},    {5, 0x83, 0},   {6, 0x63, 0},
        {7, 0x03, 0},    {9, 0x43, 0},    {2, 0x03, 0},    {2, 0x8B, 0},   {2, 0x43, DBE_BADVERSION},
        {4, 0xF5, 0},    {4, 0x83, DBE_BADVERSION},        {8, 0x03, 0},   {8, 0x8B, DBE_BADVERSION},
        {10, 0x03, DBE_BADVERSION},       {1, 0x30, DBE_BADVERSION},       {11, 0x03, DBE_BADCOMMAND},
        {0xFF, 0x03, DBE_BADCOMMAND},
    };
    for (const Case &c : cases) {
        RawDbf t = plain();
        t.version = c.version;
        int h = 0;
        const int rc = tryOpen(t, c.style, &h);
        EXPECT_EQ(rc, c.expect) << "style " << c.style << " version " << std::hex << int(c.version);
        if (rc == 0) {
            DBFILEINFO info{};
            ASSERT_EQ(DBGetFileInfo(h, &info), 0);
            EXPECT_EQ(info.style, c.style == 0 ? 1 : c.style) << "style 0 is kept as 1";
            EXPECT_EQ(DBCloseFile(h), 0);
        }
    }
}

TEST_F(TableOpen, VisualFoxProForm) {
    // '0'..'2' tables: the descriptors end at the slot that begins with
    // 0x0D, and 263 more bytes follow before the records.
    for (uint8_t v : {uint8_t('0'), uint8_t('1'), uint8_t('2')}) {
        RawDbf t;
        t.version = v;
        t.field("NAME", 'C', 4).field("NOTES", 'M', 4).field("N", 'I', 4);
        t.hlen = 32 + 32 * 3 + 1 + 263;
        t.mdx = 2;
        std::string rec = " abcd";
        rec += std::string("\x07\x00\x00\x00", 4);
        rec += std::string("\x01\x02\x00\x00", 4);
        t.records = {rec};
        int h = 0;
        ASSERT_EQ(tryOpen(t, 10, &h), 0) << int(v);
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.style, 10);
        EXPECT_EQ(info.memo, 0) << "Visual FoxPro tables carry no memo style bit";
        EXPECT_EQ(info.mdx, 0) << "an mdx byte of 2 reads as 0";
        DBRECINFO ri{};
        ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
        EXPECT_EQ(ri.numflds, 3);
        ASSERT_EQ(DBGetRecord(h, 1), 0);
        int32_t block = -1;
        ASSERT_EQ(DBGetFieldData(h, 1, &block), 0);
        EXPECT_EQ(block, 7) << "memo pointers are 4-byte integers";
        EXPECT_EQ(DBCloseFile(h), 0);
    }
    // No terminator in the first slots of the header: corrupt.
    RawDbf t;
    t.version = '0';
    for (int i = 0; i < 300; i++) t.field("F" + std::to_string(i), 'C', 1);
    t.hlen = 32 + 32 * 300 + 8;
    t.rlen = 301;
    EXPECT_EQ(openStatus(t, 10), DBE_CORRUPT);
}

TEST_F(TableOpen, HeaderLengthForms) {
    struct Case {
        int hlen;
        bool termSlot;  // a whole 32-byte terminator slot after the fields
        int expect;
        int style;      // style reported after the open
    } cases[] = {
        {97, false, 0, 1},                 // terminator only
        {98, false, 0, 1},                 // terminator and one pad byte
        {104, false, 0, 1},                // the 263-byte form's remainder
        {128, true, 0, 9},                 // terminator slot: the dBASE 7 form
        {99, false, DBE_HDRLEN, 0},
        {100, false, DBE_HDRLEN, 0},
        {127, false, DBE_HDRLEN, 0},
        {31, false, DBE_HDRLEN, 0},
        {0, false, DBE_HDRLEN, 0},
    };
    for (const Case &c : cases) {
        RawDbf t = plain();
        t.hlen = c.hlen;
        if (c.termSlot) t.fields.push_back({"\x0d", 0, 0, 0});
        int h = 0;
        const int rc = tryOpen(t, 1, &h);
        EXPECT_EQ(rc, c.expect) << "header length " << c.hlen;
        if (rc != 0) continue;
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.style, c.style) << "header length " << c.hlen;
        DBRECINFO ri{};
        ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
        EXPECT_EQ(ri.numflds, 2);
        // Records start where the header says.
        ASSERT_EQ(DBGetRecord(h, 1), 0);
        char name[16];
        EXPECT_EQ(DBGetStrField(h, 0, name), 0);
        EXPECT_STREQ(name, "alpha     ");
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableOpen, UpdateDateAndMdxByte) {
    struct Case {
        uint8_t y, m, d;
        int expect;
    } dates[] = {
        {0x77, 1, 1, 0},  {0x78, 1, 1, DBE_BADUPDATE},  {0x7F, 1, 1, DBE_BADUPDATE},
        {0x80, 1, 1, 0},  {0xFF, 12, 31, 0},            {26, 0, 1, DBE_BADUPDATE},
        {26, 13, 1, DBE_BADUPDATE},                     {26, 1, 0, DBE_BADUPDATE},
        {26, 1, 32, DBE_BADUPDATE},                     {26, 0x81, 1, DBE_BADUPDATE},
    };
    for (const auto &c : dates) {
        RawDbf t = plain();
        t.y = c.y;
        t.m = c.m;
        t.d = c.d;
        EXPECT_EQ(openStatus(t, 1), c.expect) << int(c.y) << "-" << int(c.m) << "-" << int(c.d);
    }
    struct MdxCase {
        int style;
        uint8_t mdx;
        int expect;
        int reported;
    } mdx[] = {
        {2, 0, 0, 0}, {2, 1, 0, 1}, {2, 2, DBE_MDXFLAG, 0}, {8, 2, DBE_MDXFLAG, 0}, {8, 1, 0, 1}, {1, 2, 0, 2},
    };
    for (const auto &c : mdx) {
        RawDbf t = plain();
        t.mdx = c.mdx;
        int h = 0;
        const int rc = tryOpen(t, c.style, &h);
        EXPECT_EQ(rc, c.expect) << "style " << c.style << " mdx " << int(c.mdx);
        if (rc != 0) continue;
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.mdx, c.reported);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableOpen, FieldTypesAndMemoVersion) {
    struct Case {
        char type;
        int style;
        uint8_t version;
        int expect;
        char held;  // type as held after the open
        int memo;
    } cases[] = {
        {'C', 1, 0x03, 0, 'C', 0},  {'c', 1, 0x03, 0, 'C', 0},  {'Q', 1, 0x03, 0, 'C', 0},
        {'V', 1, 0x03, 0, 'C', 0},  {'I', 1, 0x03, 0, 'I', 0},  {'T', 1, 0x03, 0, 'T', 0},
        {'0', 1, 0x03, 0, '0', 0},  {1, 1, 0x03, 0, 1, 0},      {13, 1, 0x03, 0, 13, 0},
        {'X', 1, 0x03, DBE_FIELDTYPE, 0, 0},   {'P', 1, 0x03, DBE_FIELDTYPE, 0, 0},
        {5, 1, 0x03, DBE_FIELDTYPE, 0, 0},
        {'M', 1, 0x03, DBE_BADVERSION, 0, 0},  {'M', 1, 0x83, 0, 'M', 1},
        {'G', 2, 0x8B, 0, 'G', 1},  {'W', 1, 0x83, 0, 'G', 1},  {'m', 3, 0x83, 0, 'M', 1},
        {'M', 4, 0x03, DBE_BADVERSION, 0, 0},  {'M', 4, 0xF5, 0, 'M', 1},
        {'M', 8, 0xF5, 0, 'M', 1},
    };
    for (const Case &c : cases) {
        RawDbf t;
        t.version = c.version;
        t.field("A", 'C', 3).field("B", c.type, 4);
        t.records = {" abcdefg"};
        int h = 0;
        const int rc = tryOpen(t, c.style, &h);
        EXPECT_EQ(rc, c.expect) << "type " << int(c.type) << " style " << c.style;
        if (rc != 0) continue;
        DBFIELD f{};
        ASSERT_EQ(DBGetFieldDescription(h, 1, &f), 0);
        EXPECT_EQ(f.type, static_cast<unsigned char>(c.held)) << int(c.type);
        EXPECT_EQ(f.len, 4);
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.memo, c.memo) << int(c.type);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableOpen, FieldLengthsOffsetsAndNames) {
    RawDbf t;
    t.field("name", 'C', 0x2C, 1)             // 300 bytes: the high byte sits in the decimals
        .field("ABCDEFGHIJK", 'N', 7, 2)       // no terminator in 11 bytes: cut to 10
        .field("flag", 'L', 1);
    t.records = {" " + std::string(300, 'x') + "  12.50T"};
    int h = 0;
    ASSERT_EQ(tryOpen(t, 1, &h), 0);
    DBRECINFO ri{};
    ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
    EXPECT_EQ(ri.reclen, 309);
    DBFIELD f{};
    ASSERT_EQ(DBGetFieldDescription(h, 0, &f), 0);
    EXPECT_STREQ(f.name, "NAME");
    EXPECT_EQ(f.len, 300);
    EXPECT_EQ(f.decpl, 0);
    char name[12];
    ASSERT_EQ(DBGetFieldName(h, name, 1), 0);
    EXPECT_STREQ(name, "ABCDEFGHIJ");
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    double v = 0;
    ASSERT_EQ(DBGetFieldData(h, 1, &v), 0);
    EXPECT_DOUBLE_EQ(v, 12.5) << "offsets follow the 300-byte field";
    char b = 9;
    ASSERT_EQ(DBGetFieldData(h, 2, &b), 0);
    EXPECT_EQ(b, 1);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableOpen, DamagedHeadersAreRefused) {
    struct Case {
        const char *what;
        RawDbf t;
        int expect;
        size_t cut = 0;  // file cut to this many bytes (0: not cut)
    };
    std::vector<Case> cases;
    {
        RawDbf t = plain();
        t.rlen = 17;
        cases.push_back({"record length one too long", t, DBE_RECLEN});
        t.rlen = 15;
        cases.push_back({"record length one too short", t, DBE_RECLEN});
        t.rlen = 0;
        cases.push_back({"record length 0", t, DBE_RECLEN});
    }
    {
        RawDbf t;
        t.hlen = 33;
        t.rlen = 1;
        cases.push_back({"no fields at all", t, DBE_NUMFIELDS});
    }
    {
        RawDbf t = plain();
        t.hlen = 32 * 2000 + 33;  // thousands of fields claimed, 2 present
        cases.push_back({"descriptors past the end of the file", t, DBE_READ, 200});
    }
    {
        RawDbf t = plain();
        t.count = -5;
        cases.push_back({"negative record count", t, DBE_CORRUPT});
    }
    {
        RawDbf t = plain();
        t.fields[1].type = 'N';
        t.fields[1].w = 0xF0;  // lengths add up past the record
        t.rlen = 16;
        cases.push_back({"field running past the record", t, DBE_RECLEN});
    }
    for (Case &c : cases) {
        if (!c.cut) {
            EXPECT_EQ(openStatus(c.t, 1), c.expect) << c.what;
            continue;
        }
        std::vector<uint8_t> b = c.t.bytes();
        b.resize(c.cut);
        xbt::writeFile(path("cut.dbf"), b);
        int h = 0;
        EXPECT_EQ(tablea::open(&h, path("cut.dbf"), 1), c.expect) << c.what;
        EXPECT_EQ(h, -1);
        EXPECT_EQ(xbt::readFile(path("cut.dbf")), b);
    }

    // Files cut inside the 32-byte header.
    const std::string p = path("short.dbf");
    for (size_t len : {size_t(0), size_t(1), size_t(20), size_t(31), size_t(40)}) {
        std::vector<uint8_t> b = plain().bytes();
        b.resize(len);
        xbt::writeFile(p, b);
        int h = 0;
        EXPECT_EQ(tablea::open(&h, p, 1), DBE_READ) << len << " bytes";
        EXPECT_EQ(h, -1);
        EXPECT_EQ(xbt::readFile(p), b);
    }
}

TEST_F(TableOpen, ThousandsOfFields) {
    RawDbf t;
    for (int i = 0; i < 2000; i++) t.field("F" + std::to_string(i), 'C', 1);
    t.records = {" " + std::string(2000, 'z')};
    int h = 0;
    ASSERT_EQ(tryOpen(t, 6, &h), 0);
    DBRECINFO ri{};
    ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
    EXPECT_EQ(ri.numflds, 2000);
    int n = -1;
    ASSERT_EQ(DBGetFieldNumber(h, &n, const_cast<char *>("f1999")), 0);
    EXPECT_EQ(n, 1999);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableOpen, FileLengthWarning) {
    // Three 10-byte records after a 65-byte header.
    struct Case {
        int extra;  // bytes after the header, records included
        int expect;
    } cases[] = {{30, 0}, {31, 0}, {40, 0}, {35, DBW_BADFILELEN}, {29, DBW_BADFILELEN}, {200, DBW_BADFILELEN}};
    for (const Case &c : cases) {
        RawDbf t;
        t.field("A", 'C', 9);
        t.count = 3;
        t.endMark = false;
        std::vector<uint8_t> b = t.bytes();
        ASSERT_EQ(b.size(), 65u);
        b.resize(65 + c.extra, ' ');
        const std::string p = path("len.dbf");
        xbt::writeFile(p, b);
        int h = 0;
        EXPECT_EQ(tablea::open(&h, p, 1), c.expect) << 65 + c.extra << " bytes";
        ASSERT_GE(h, 3) << "the warning leaves the table open";
        EXPECT_EQ(DBCloseFile(h), 0);
        EXPECT_EQ(xbt::readFile(p), b) << "open and close of a clean table write nothing";
    }
}

TEST_F(TableOpen, FailedOpenLeavesNothing) {
    int h = 7;
    EXPECT_EQ(DBOpenFile(nullptr, const_cast<char *>("x"), 1), DBE_NULLPARAM);
    EXPECT_EQ(DBOpenFile(&h, nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(tablea::open(&h, path("missing.dbf"), 1), DBE_NOTFOUND);
    EXPECT_EQ(h, -1);
    // A system error without a code of its own comes back as the bare
    // errno on this path.
    const std::string loop = path("loop.dbf");
    ASSERT_EQ(symlink(loop.c_str(), loop.c_str()), 0);
    EXPECT_EQ(tablea::open(&h, loop, 1), ELOOP);
    EXPECT_EQ(h, -1);
    // Many failed opens in a row cost no slot.
    RawDbf bad = plain();
    bad.rlen = 3;
    bad.write(path("bad.dbf"));
    for (int i = 0; i < 100; i++) ASSERT_EQ(tablea::open(&h, path("bad.dbf"), 1), DBE_RECLEN);
    plain().write(path("good.dbf"));
    ASSERT_EQ(tablea::open(&h, path("good.dbf"), 1), 0);
    EXPECT_EQ(h, 3);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableOpen, HandlesAreChecked) {
    plain().write(path("t.dbf"));
    int h = 0;
    ASSERT_EQ(tablea::open(&h, path("t.dbf"), 1), 0);
    DBFILEINFO info{};
    for (int bad : {-1, 0, 2, h + 1, 59, 60, 1000}) {
        EXPECT_EQ(DBGetFileInfo(bad, &info), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBCloseFile(bad), DBE_BADHANDLE) << bad;
        EXPECT_EQ(DBGetRecord(bad, 1), DBE_BADHANDLE) << bad;
    }
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableOpen, TerminateClosesAndWrites) {
    plain().write(path("t.dbf"));
    int h = 0;
    ASSERT_EQ(tablea::open(&h, path("t.dbf"), 1), 0);
    ASSERT_EQ(DBPutStrField(h, 0, const_cast<char *>("gamma")), 0);
    int32_t rec = 0;
    ASSERT_EQ(DBPutRecord(h, &rec, DB_APPEND), 0);
    EXPECT_EQ(rec, 3);
    DBTerminate();
    const std::vector<uint8_t> b = xbt::readFile(path("t.dbf"));
    EXPECT_EQ(tablea::get32(b, 4), 3u) << "the pending append reached the file";
    ASSERT_EQ(b.size(), 97u + 3 * 16 + 1);
    EXPECT_EQ(std::string(b.begin() + 97 + 32, b.begin() + 97 + 48), " gamma          ");
    EXPECT_EQ(b.back(), 0x1A);
    ASSERT_EQ(DBInitialize(64, 1), 0);  // for the fixture's TearDown
}

}  // namespace
