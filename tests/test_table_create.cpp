// test_table_create.cpp - DBCreateFile: the limits of each style, the
// rewriting of the caller's field list, and the exact bytes of the new file.
#include "tablea_util.h"
#include "xbtest.h"

using tablea::fld;

namespace {

class TableCreate : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        int y = 0, m = 0, d = 0, dow = 0;
        ASSERT_EQ(DBGetDate3(&y, &m, &d, &dow), 0);
        year48_ = static_cast<uint8_t>((y + 48) & 0xFF);
        month_ = static_cast<uint8_t>(m);
        day_ = static_cast<uint8_t>(d);
    }
    static std::vector<DBFIELD> many(int n, int type = 'C', int len = 1) {
        std::vector<DBFIELD> f;
        for (int i = 0; i < n; i++) f.push_back(fld(("F" + std::to_string(i)).c_str(), type, len));
        return f;
    }
    uint8_t year48_ = 0, month_ = 0, day_ = 0;
};

TEST_F(TableCreate, RefusedDescriptionsCreateNothing) {
    struct Case {
        const char *what;
        std::vector<DBFIELD> fields;
        int mode;
        int expect;
    };
    DBFIELD noTerm = fld("X", 'C', 5);
    std::memset(noTerm.name, 'A', sizeof noTerm.name);
    std::vector<Case> cases = {
        {"style 10", {fld("A", 'C', 5)}, 10, DBE_BADVERSION},
        {"style 11 with the index bit", {fld("A", 'C', 5)}, 11 | 0x200, DBE_BADVERSION},
        {"129 fields in style 0", many(129), 0, DBE_NUMFIELDS},
        {"129 fields in style 4", many(129), 4, DBE_NUMFIELDS},
        {"256 fields in style 2", many(256), 2, DBE_NUMFIELDS},
        {"1024 fields in style 5", many(1024), 5, DBE_NUMFIELDS},
        {"513 fields in style 7", many(513), 7, DBE_NUMFIELDS},
        {"11-character name", {fld("ABCDEFGHIJK", 'C', 5)}, 1, DBE_FIELDNAME},
        {"empty name", {fld("", 'C', 5)}, 1, DBE_FIELDNAME},
        {"name without terminator", {noTerm}, 1, DBE_FIELDNAME},
        {"unknown type", {fld("A", 'X', 5)}, 1, DBE_FIELDTYPE},
        {"type above 'n'", {fld("A", 'o', 5)}, 1, DBE_FIELDTYPE},
        {"'I' cannot be created", {fld("A", 'I', 4)}, 1, DBE_FIELDTYPE},
        {"binary code 5", {fld("A", 5, 4)}, 1, DBE_FIELDTYPE},
        {"'F' outside styles 2, 4, 8", {fld("A", 'F', 8, 2)}, 1, DBE_FIELDTYPE},
        {"'f' in style 9", {fld("A", 'f', 8, 2)}, 9, DBE_FIELDTYPE},
        {"character length 0", {fld("A", 'C', 0)}, 1, DBE_FIELDLEN},
        {"character length 255", {fld("A", 'C', 255)}, 1, DBE_FIELDLEN},
        {"character length 300 outside style 6", {fld("A", 'C', 300)}, 5, DBE_FIELDLEN},
        {"character length 2049 in style 6", {fld("A", 'C', 2049)}, 6, DBE_FIELDLEN},
        {"numeric length 0", {fld("A", 'N', 0)}, 1, DBE_FIELDLEN},
        {"numeric length 20 in style 1", {fld("A", 'N', 20)}, 1, DBE_FIELDLEN},
        {"numeric length 21 in style 2", {fld("A", 'N', 21)}, 2, DBE_FIELDLEN},
        {"negative decimals", {fld("A", 'N', 5, -1)}, 1, DBE_DECIMALS},
        {"decimals above length - 2", {fld("A", 'N', 5, 4)}, 1, DBE_DECIMALS},
        {"16 decimals in style 3", {fld("A", 'N', 19, 16)}, 3, DBE_DECIMALS},
        {"record longer than 4000", many(16, 'C', 250), 1, DBE_RECLEN},
        {"record longer than 8192 in style 6", many(5, 'C', 2000), 6, DBE_RECLEN},
        {"a bad field after good ones", {fld("A", 'C', 5), fld("B", 'D'), fld("C", 'Q', 3)}, 1, DBE_FIELDTYPE},
    };
    const std::string p = path("new.dbf");
    for (Case &c : cases) {
        EXPECT_EQ(tablea::create(p, c.fields, c.mode), c.expect) << c.what;
        EXPECT_FALSE(xbt::fileExists(p)) << c.what;
    }
    std::vector<DBFIELD> f = {fld("A", 'C', 5)};
    EXPECT_EQ(DBCreateFile(nullptr, 1, f.data(), 1), DBE_NULLPARAM);
    EXPECT_EQ(DBCreateFile(const_cast<char *>(p.c_str()), 1, nullptr, 1), DBE_NULLPARAM);
    EXPECT_EQ(DBCreateFile(const_cast<char *>(p.c_str()), -3, f.data(), 1), DBE_NUMFIELDS);
    EXPECT_EQ(DBCreateFile(const_cast<char *>(p.c_str()), 0, f.data(), 1), DBE_NUMFIELDS);
    EXPECT_FALSE(xbt::fileExists(p));
    EXPECT_EQ(tablea::create(path("no/such/dir/x.dbf"), f, 1), DBE_NOPATH);
}

TEST_F(TableCreate, LimitsThatAreAllowed) {
    struct Case {
        const char *what;
        std::vector<DBFIELD> fields;
        int mode;
    };
    std::vector<Case> cases = {
        {"128 fields in style 0", many(128), 0},
        {"129 fields in style 2", many(129), 2},
        {"255 fields in style 8", many(255), 8},
        {"1023 fields in style 6", many(1023), 6},
        {"512 fields in style 7", many(512), 7},
        {"character length 254", {fld("A", 'C', 254)}, 1},
        {"character length 2048 in style 6", {fld("A", 'C', 2048)}, 6},
        {"numeric length 19 in style 1", {fld("A", 'N', 19, 15)}, 1},
        {"numeric length 20 in style 4", {fld("A", 'N', 20, 18)}, 4},
        {"16 decimals in style 0", {fld("A", 'N', 19, 16)}, 0},
        {"16 decimals in style 2", {fld("A", 'F', 20, 16)}, 2},
        {"record of exactly 4000", [] {
             std::vector<DBFIELD> f = many(15, 'C', 254);
             f.push_back(fld("LAST", 'C', 189));
             return f;
         }(), 1},
        {"10-character name", {fld("ABCDEFGHIJ", 'N', 1)}, 9},
    };
    for (Case &c : cases) {
        const std::string p = path("ok.dbf");
        ASSERT_EQ(tablea::create(p, c.fields, c.mode), 0) << c.what;
        int h = 0;
        ASSERT_EQ(tablea::open(&h, p, c.mode), 0) << c.what;
        DBRECINFO ri{};
        ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
        EXPECT_EQ(ri.numflds, static_cast<int>(c.fields.size())) << c.what;
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableCreate, BytesOfANewTable) {
    std::vector<DBFIELD> f = {fld("name", 'C', 10), fld("amount", 'N', 8, 2), fld("hired", 'D'),
                              fld("ok", 'L'), fld("notes", 'M')};
    const std::string p = path("new.dbf");
    ASSERT_EQ(tablea::create(p, f, 1), 0);
    const std::vector<uint8_t> b = xbt::readFile(p);
    ASSERT_EQ(b.size(), 32u * 5 + 33 + 1);
    EXPECT_EQ(b[0], 0x83);
    EXPECT_EQ(b[1], year48_);
    EXPECT_EQ(b[2], month_);
    EXPECT_EQ(b[3], day_);
    EXPECT_EQ(tablea::get32(b, 4), 0u);
    EXPECT_EQ(tablea::get16(b, 8), 193u);
    EXPECT_EQ(tablea::get16(b, 10), 38u);
    for (size_t i = 12; i < 32; i++) EXPECT_EQ(b[i], 0) << "header byte " << i;
    struct Want {
        const char *name;
        char type;
        int len, dec;
    } want[] = {{"NAME", 'C', 10, 0}, {"AMOUNT", 'N', 8, 2}, {"HIRED", 'D', 8, 0}, {"OK", 'L', 1, 0},
                {"NOTES", 'M', 10, 0}};
    for (int i = 0; i < 5; i++) {
        const size_t at = 32 + 32 * static_cast<size_t>(i);
        std::vector<uint8_t> d(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at) + 32);
        std::vector<uint8_t> expect(32, 0);
        std::memcpy(expect.data(), want[i].name, std::strlen(want[i].name));
        expect[11] = static_cast<uint8_t>(want[i].type);
        expect[16] = static_cast<uint8_t>(want[i].len);
        expect[17] = static_cast<uint8_t>(want[i].dec);
        EXPECT_EQ(d, expect) << want[i].name;
    }
    EXPECT_EQ(b[192], 0x0D);
    EXPECT_EQ(b[193], 0x1A);
    // The new table opens cleanly and is empty.
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    int32_t n = -1;
    ASSERT_EQ(DBGetRecordCount(h, &n), 0);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableCreate, CallersArrayIsRewritten) {
    std::vector<DBFIELD> f = {fld("d", 'd', 99, 3),  fld("l", 'l', 7, 1),    fld("m", 'm', 1),
                              fld("c", 'c' | 0x100, 12, 5), fld("n", 'n', 6, 2), fld("b1", 1, 9, 9),
                              fld("b3", 3, 1),       fld("b11", 11, 0),      fld("b13", 13, 2),
                              fld("b2", 2, 0)};
    ASSERT_EQ(tablea::create(path("a.dbf"), f, 2), 0);
    struct Want {
        const char *name;
        int type, len, dec;
    } want[] = {{"D", 'D', 8, 0},      {"L", 'L', 1, 0},  {"M", 'M', 10, 0}, {"C", 'C' | 0x100, 12, 0},
                {"N", 'N', 6, 2},      {"B1", 1, 2, 0},   {"B3", 3, 4, 0},   {"B11", 11, 4, 0},
                {"B13", 13, 8, 0},     {"B2", 2, 2, 0}};
    for (size_t i = 0; i < f.size(); i++) {
        EXPECT_STREQ(f[i].name, want[i].name);
        EXPECT_EQ(f[i].type, want[i].type) << want[i].name;
        EXPECT_EQ(f[i].len, want[i].len) << want[i].name;
        EXPECT_EQ(f[i].decpl, want[i].dec) << want[i].name;
    }
    const std::vector<uint8_t> b = xbt::readFile(path("a.dbf"));
    EXPECT_EQ(tablea::get16(b, 10), 1u + 8 + 1 + 10 + 12 + 6 + 2 + 4 + 4 + 8 + 2);
    EXPECT_EQ(b[32 + 3 * 32 + 11], 'C');
    EXPECT_EQ(b[32 + 5 * 32 + 11], 1) << "binary codes are stored as they are";
}

TEST_F(TableCreate, VersionByteByStyle) {
    // Version byte without and with a memo field, styles 0..9.
    const uint8_t memo[10] = {0x03, 0x83, 0x8B, 0x83, 0xF5, 0x83, 0x83, 0x83, 0xF5, 0x83};
    for (int style = 0; style <= 9; style++) {
        const std::string p = path("v.dbf");
        ASSERT_EQ(tablea::create(p, {fld("A", 'C', 3)}, style), 0);
        EXPECT_EQ(xbt::readFile(p)[0], 0x03) << style;
        ASSERT_EQ(tablea::create(p, {fld("A", 'C', 3), fld("NOTE", 'M')}, style), 0);
        EXPECT_EQ(xbt::readFile(p)[0], memo[style]) << style;
        int h = 0;
        // Style 0 keeps the plain byte, which the memo rule of the open then
        // refuses.
        EXPECT_EQ(tablea::open(&h, p, style), style == 0 ? DBE_BADVERSION : 0) << style;
        if (style != 0) {
            DBFILEINFO info{};
            ASSERT_EQ(DBGetFileInfo(h, &info), 0);
            EXPECT_EQ(info.memo, 1) << style;
            EXPECT_EQ(DBCloseFile(h), 0);
        }
    }
}

TEST_F(TableCreate, StyleNineTerminatorBlock) {
    const std::string p = path("s9.dbf");
    ASSERT_EQ(tablea::create(p, {fld("A", 'C', 3), fld("B", 'N', 4)}, 9), 0);
    const std::vector<uint8_t> b = xbt::readFile(p);
    ASSERT_EQ(b.size(), 32u * 2 + 64 + 1);
    EXPECT_EQ(tablea::get16(b, 8), 128u);
    EXPECT_EQ(b[96], 0x0D);
    for (size_t i = 97; i < 128; i++) EXPECT_EQ(b[i], 0) << i;
    EXPECT_EQ(b[128], 0x1A);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 1), 0);
    DBFILEINFO info{};
    ASSERT_EQ(DBGetFileInfo(h, &info), 0);
    EXPECT_EQ(info.style, 9) << "the terminator block marks the table's style";
    DBRECINFO ri{};
    ASSERT_EQ(DBGetRecordInfo(h, &ri), 0);
    EXPECT_EQ(ri.numflds, 2);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableCreate, LongCharacterField) {
    const std::string p = path("c.dbf");
    ASSERT_EQ(tablea::create(p, {fld("TEXT", 'C', 300), fld("N", 'N', 3)}, 6), 0);
    const std::vector<uint8_t> b = xbt::readFile(p);
    EXPECT_EQ(b[32 + 16], 44);
    EXPECT_EQ(b[32 + 17], 1);
    EXPECT_EQ(tablea::get16(b, 10), 304u);
    int h = 0;
    ASSERT_EQ(tablea::open(&h, p, 6), 0);
    DBFIELD f{};
    ASSERT_EQ(DBGetFieldDescription(h, 0, &f), 0);
    EXPECT_EQ(f.len, 300);
    EXPECT_EQ(DBCloseFile(h), 0);
}

TEST_F(TableCreate, ProductionIndexFlags) {
    struct Case {
        int style;
        int mode;
        uint8_t mdx;
        uint8_t idx0, idx1;
    } cases[] = {
        {2, 2 | 0x200, 1, 1, 0}, {2, 2, 0, 0, 0}, {4, 4 | 0x200, 1, 0, 0}, {8, 8 | 0x200, 1, 0, 0},
        {1, 1 | 0x200, 1, 0, 0},
    };
    for (const Case &c : cases) {
        const std::string p = path("x.dbf");
        ASSERT_EQ(tablea::create(p, {fld("A", 'C' | 0x100, 3), fld("B", 'N', 4)}, c.mode), 0);
        const std::vector<uint8_t> b = xbt::readFile(p);
        EXPECT_EQ(b[28], c.mdx) << std::hex << c.mode;
        EXPECT_EQ(b[32 + 31], c.idx0) << std::hex << c.mode;
        EXPECT_EQ(b[64 + 31], c.idx1) << std::hex << c.mode;
        int h = 0;
        ASSERT_EQ(tablea::open(&h, p, c.style), 0);
        DBFILEINFO info{};
        ASSERT_EQ(DBGetFileInfo(h, &info), 0);
        EXPECT_EQ(info.mdx, c.mdx);
        EXPECT_EQ(DBCloseFile(h), 0);
    }
}

TEST_F(TableCreate, ReplacesAnExistingFile) {
    const std::string p = path("old.dbf");
    xbt::writeFile(p, std::string(5000, 'z'));
    ASSERT_EQ(tablea::create(p, {fld("A", 'C', 3)}, 1), 0);
    EXPECT_EQ(xbt::fileSize(p), 32 + 33 + 1);
}

}  // namespace
