// test_table_fields.cpp - field access on the record buffer: every
// conversion from stored bytes to the caller's types and back, names and
// numbers, descriptions and blank tests.
#include "tablea_util.h"
#include "xbtest.h"

#include <cmath>

using tablea::RawDbf;

namespace {

enum Field {
    NAME, AMOUNT, RATE, HIRED, OK, NOTES, ID, STAMP, PRICE, DBL, S16, S32, D13, EMPTY, NFIELDS
};

class TableFields : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        RawDbf t;
        t.version = 0x83;
        t.field("NAME", 'C', 8).field("AMOUNT", 'N', 8, 2).field("RATE", 'F', 10, 3).field("HIRED", 'D', 8);
        t.field("OK", 'L', 1).field("NOTES", 'M', 10).field("ID", 'I', 4).field("STAMP", 'T', 8);
        t.field("PRICE", 'Y', 8).field("DBL", 'B', 8).field("S16", 1, 2).field("S32", 3, 4);
        t.field("D13", 13, 8).field("EMPTY", 'C', 0);
        t.records = {" " + std::string(87, ' ')};
        t.write(path("f.dbf"));
        ASSERT_EQ(tablea::open(&h_, path("f.dbf"), 1), 0);
        ASSERT_EQ(DBSetBufferAddress(h_, &rec_), 0);
        int off = 1;
        for (int i = 0; i < NFIELDS; i++) {
            DBFIELD f{};
            ASSERT_EQ(DBGetFieldDescription(h_, i, &f), 0);
            off_[i] = off;
            len_[i] = f.len;
            off += f.len;
        }
        ASSERT_EQ(off, 88);
    }
    void TearDown() override {
        if (h_ >= 3) EXPECT_EQ(DBCloseFile(h_), 0);
        xbt::LibTest::TearDown();
    }
    // Store raw bytes into a field of the record buffer.
    void set(int f, const std::string &bytes) {
        ASSERT_EQ(static_cast<int>(bytes.size()), len_[f]) << "field " << f;
        std::memcpy(rec_ + off_[f], bytes.data(), bytes.size());
    }
    std::string stored(int f) const { return std::string(rec_ + off_[f], static_cast<size_t>(len_[f])); }
    int h_ = -1;
    char *rec_ = nullptr;
    int off_[NFIELDS] = {};
    int len_[NFIELDS] = {};
};

std::string bytes(std::initializer_list<int> b) {
    std::string s;
    for (int c : b) s += static_cast<char>(c);
    return s;
}

template <class T>
std::string raw(T v) {
    return std::string(reinterpret_cast<const char *>(&v), sizeof v);
}

TEST_F(TableFields, TextAndNumbersOut) {
    struct Case {
        int field;
        std::string stored;
        std::string text;  // DBGetStrField
        int status;
    } cases[] = {
        {NAME, "abc     ", "abc     ", 0},
        {NAME, "        ", "        ", DBW_FIELDEMPTY},
        {AMOUNT, "  -12.50", "  -12.50", 0},
        {AMOUNT, "        ", "        ", 0},  // numbers are never "empty"
        {HIRED, "20240229", "20240229", 0},
        {HIRED, "        ", "        ", DBW_FIELDEMPTY},
        {OK, "T", "T", 0},
        {NOTES, "        17", "        17", 0},
    };
    for (const Case &c : cases) {
        set(c.field, c.stored);
        char out[32];
        std::memset(out, '#', sizeof out);
        EXPECT_EQ(DBGetStrField(h_, c.field, out), c.status) << c.field << " '" << c.stored << "'";
        EXPECT_EQ(std::string(out), c.text);
        EXPECT_EQ(DBerrno, c.status);
    }
}

TEST_F(TableFields, ValuesOutByOwnType) {
    struct NumCase {
        int field;
        std::string stored;
        double value;
        int status;
    } nums[] = {
        {AMOUNT, "  -12.50", -12.5, 0},
        {AMOUNT, "        ", 0.0, 0},
        {AMOUNT, "   1e2  ", 100.0, 0},
        {DBL, raw(1.5), 1.5, 0},
        {DBL, std::string(8, '\0'), 0.0, DBW_FIELDEMPTY},
        {D13, raw(-2.25), -2.25, 0},
        {D13, std::string(8, ' '), 0.0, DBW_FIELDEMPTY},
    };
    for (const NumCase &c : nums) {
        set(c.field, c.stored);
        double v = 99;
        EXPECT_EQ(DBGetFieldData(h_, c.field, &v), c.status) << c.field;
        EXPECT_DOUBLE_EQ(v, c.value) << c.field << " '" << c.stored << "'";
    }
    // 'F' comes out as the stored bytes, not as the value of the text.
    set(RATE, "     2.500");
    double f = 0;
    ASSERT_EQ(DBGetFieldData(h_, RATE, &f), 0);
    EXPECT_EQ(raw(f), std::string("     2.5"));

    struct IntCase {
        int field;
        std::string stored;
        int32_t value;
        int status;
    } ints[] = {
        {NOTES, "        17", 17, 0},
        {NOTES, "         0", 0, 0},
        {NOTES, "          ", 0, DBW_FIELDEMPTY},
        {NOTES, "4294967295", -1, 0},  // the same on 32- and 64-bit builds
        {ID, bytes({0x2A, 0, 0, 0}), 42, 0},
        {ID, bytes({0xFE, 0xFF, 0xFF, 0xFF}), -2, 0},
        {ID, "    ", 0, DBW_FIELDEMPTY},
        {S32, bytes({1, 2, 3, 4}), 0x04030201, 0},
    };
    for (const IntCase &c : ints) {
        set(c.field, c.stored);
        int32_t v = 99;
        EXPECT_EQ(DBGetFieldData(h_, c.field, &v), c.status) << c.field;
        EXPECT_EQ(v, c.value) << c.field << " '" << c.stored << "'";
    }
    // An 'I' field read as text gives the integer too.
    set(ID, bytes({0x2A, 0, 0, 0}));
    int32_t id = 0;
    ASSERT_EQ(DBGetStrField(h_, ID, reinterpret_cast<char *>(&id)), 0);
    EXPECT_EQ(id, 42);

    set(S16, bytes({0x34, 0x92}));
    int16_t s = 0;
    ASSERT_EQ(DBGetFieldData(h_, S16, &s), 0);
    EXPECT_EQ(s, static_cast<int16_t>(0x9234));
    set(S16, "  ");
    ASSERT_EQ(DBGetFieldData(h_, S16, &s), DBW_FIELDEMPTY);
    EXPECT_EQ(s, 0);
}

TEST_F(TableFields, DateTimeAndCurrencyHalvesAreSwapped) {
    set(STAMP, bytes({1, 2, 3, 4, 5, 6, 7, 8}));
    char out[16];
    ASSERT_EQ(DBGetStrField(h_, STAMP, out), 0);
    EXPECT_EQ(std::string(out, 9), bytes({4, 3, 2, 1, 8, 7, 6, 5, 0}));
    char v[8];
    ASSERT_EQ(DBGetFieldData(h_, STAMP, v), 0);
    EXPECT_EQ(std::string(v, 8), bytes({4, 3, 2, 1, 8, 7, 6, 5}));
    // Put is the mirror image.
    ASSERT_EQ(DBPutFieldData(h_, PRICE, v), 0);
    EXPECT_EQ(stored(PRICE), bytes({1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(TableFields, DatesInEveryStyle) {
    const char *empty[] = {nullptr,      "  /  /  ", "  /  /    ", "    /   ", "        ", "      ",
                           "  .  .  ",   "  .  .    ", "  /  /  ", "  /  /    ", "  /  /  ",
                           "  /  /    ", "  -  -  ", "  -  -    ", "  .  .  ", "    .  .  "};
    const char *full[] = {nullptr,      "02/29/24",   "02/29/2024", "2024/060",   "20240229", "290224",
                          "29.02.24",   "29.02.2024", "29/02/24",   "29/02/2024", "29/02/24", "29/02/2024",
                          "29-02-24",   "29-02-2024", "24.02.29",   "2024.02.29"};
    for (int style = 1; style <= 15; style++) {
        ASSERT_EQ(DBSetDefaultDateStyle(style), 0);
        char out[16];
        set(HIRED, "        ");
        EXPECT_EQ(DBGetFieldData(h_, HIRED, out), DBW_FIELDEMPTY) << style;
        EXPECT_STREQ(out, empty[style]) << style;
        set(HIRED, "20240229");
        EXPECT_EQ(DBGetFieldData(h_, HIRED, out), 0) << style;
        EXPECT_STREQ(out, full[style]) << style;
        // And back: the style's text is stored as yyyymmdd.
        set(HIRED, "19991231");
        EXPECT_EQ(DBPutFieldData(h_, HIRED, const_cast<char *>(full[style])), 0) << style;
        EXPECT_EQ(stored(HIRED), "20240229") << style;
        // An empty picture stores an empty date.
        EXPECT_EQ(DBPutFieldData(h_, HIRED, const_cast<char *>(empty[style])), 0) << style;
        EXPECT_EQ(stored(HIRED), "        ") << style;
    }
    ASSERT_EQ(DBSetDefaultDateStyle(1), 0);
    struct Bad {
        const char *stored;
    } bad[] = {{"2024AB01"}, {"20241301"}, {"20230229"}, {"00000000"}};
    for (const Bad &b : bad) {
        set(HIRED, b.stored);
        char out[16] = "unchanged";
        EXPECT_EQ(DBGetFieldData(h_, HIRED, out), DBE_BADDATE) << b.stored;
    }
    set(HIRED, "20240101");
    for (const char *in : {"13/01/24", "02/30/24", "1/1/1", "garbage!"}) {
        EXPECT_EQ(DBPutFieldData(h_, HIRED, const_cast<char *>(in)), DBE_BADDATE) << in;
    }
    EXPECT_EQ(stored(HIRED), "20240101") << "a refused date leaves the field alone";
    EXPECT_EQ(DBPutFieldData(h_, HIRED, const_cast<char *>("")), 0);
    EXPECT_EQ(stored(HIRED), "        ");
}

TEST_F(TableFields, Logicals) {
    struct Get {
        char stored;
        char out;
        int status;
    } gets[] = {
        {'T', 1, 0}, {'t', 1, 0}, {'Y', 1, 0}, {'y', 1, 0}, {1, 1, 0},   {'F', 0, 0}, {'f', 0, 0},
        {'N', 0, 0}, {'n', 0, 0}, {0, 0, 0},   {' ', '?', DBW_FIELDEMPTY}, {'?', '?', DBW_FIELDEMPTY},
        {'X', 0x55, 0},  // not a logical: the caller's byte stays
    };
    for (const Get &g : gets) {
        set(OK, std::string(1, g.stored));
        char out = 0x55;
        EXPECT_EQ(DBGetFieldData(h_, OK, &out), g.status) << int(g.stored);
        EXPECT_EQ(out, g.out) << int(g.stored);
    }
    struct Put {
        char in;
        int status;
        char stored;
    } puts[] = {
        {'T', 0, 'T'}, {'t', 0, 'T'}, {'Y', 0, 'T'}, {'y', 0, 'T'}, {1, 0, 'T'},   {'F', 0, 'F'},
        {'f', 0, 'F'}, {'N', 0, 'F'}, {'n', 0, 'F'}, {0, 0, 'F'},   {' ', 0, ' '}, {'?', 0, ' '},
        {'X', DBE_BADDATA, 'Q'},      {'1', DBE_BADDATA, 'Q'},
    };
    for (const Put &p : puts) {
        set(OK, "Q");
        char in = p.in;
        EXPECT_EQ(DBPutFieldData(h_, OK, &in), p.status) << int(p.in);
        EXPECT_EQ(stored(OK)[0], p.stored) << int(p.in);
    }
}

TEST_F(TableFields, TextIn) {
    struct Case {
        int field;
        const char *in;
        int status;
        std::string stored;
    } cases[] = {
        {NAME, "hello", 0, "hello   "},
        {NAME, "exactly8", 0, "exactly8"},
        {NAME, "far too long", DBW_TRUNCATED, "far too "},
        {NAME, "", 0, "        "},
        // Any field takes text through DBPutStrField, left-aligned.
        {AMOUNT, "12.5", 0, "12.5    "},
        {HIRED, "20240101", 0, "20240101"},
        {EMPTY, "x", DBW_TRUNCATED, ""},
    };
    set(RATE, "##########");
    for (const Case &c : cases) {
        set(c.field, std::string(static_cast<size_t>(len_[c.field]), '#'));
        EXPECT_EQ(DBPutStrField(h_, c.field, const_cast<char *>(c.in)), c.status) << c.in;
        EXPECT_EQ(stored(c.field), c.stored) << c.in;
    }
    EXPECT_EQ(stored(RATE), "##########") << "nothing written past the field";
}

TEST_F(TableFields, ValuesInByOwnType) {
    // Numbers come in as the field's text, already formatted; a short text
    // is right-aligned.
    struct Text {
        int field;
        const char *in;
        std::string stored;
    } texts[] = {
        {AMOUNT, "  -12.50", "  -12.50"}, {AMOUNT, "12.5", "    12.5"}, {AMOUNT, "", "        "},
        {RATE, "   100.125", "   100.125"}, {RATE, "7", "         7"},
    };
    for (const Text &t : texts) {
        EXPECT_EQ(DBPutFieldData(h_, t.field, const_cast<char *>(t.in)), 0) << t.in;
        EXPECT_EQ(stored(t.field), t.stored) << t.in;
    }
    struct Memo {
        int32_t block;
        int status;
        std::string stored;
    } memos[] = {
        {17, 0, "        17"}, {0, 0, "         0"}, {2147483647, 0, "2147483647"},
        {-1, DBE_BADDATA, "keepthis!!"},
    };
    for (const Memo &m : memos) {
        set(NOTES, "keepthis!!");
        int32_t b = m.block;
        EXPECT_EQ(DBPutFieldData(h_, NOTES, &b), m.status) << m.block;
        EXPECT_EQ(stored(NOTES), m.stored) << m.block;
    }
    int32_t id = -2;
    ASSERT_EQ(DBPutFieldData(h_, ID, &id), 0);
    EXPECT_EQ(stored(ID), bytes({0xFE, 0xFF, 0xFF, 0xFF}));
    int16_t s = 0x1234;
    ASSERT_EQ(DBPutFieldData(h_, S16, &s), 0);
    EXPECT_EQ(stored(S16), bytes({0x34, 0x12}));
    int32_t l = 0x01020304;
    ASSERT_EQ(DBPutFieldData(h_, S32, &l), 0);
    EXPECT_EQ(stored(S32), bytes({4, 3, 2, 1}));
    double d = 3.75;
    ASSERT_EQ(DBPutFieldData(h_, D13, &d), 0);
    EXPECT_EQ(stored(D13), raw(d));
    const std::string b8 = bytes({0, 1, 0, 2, 0, 3, 0, 4});
    ASSERT_EQ(DBPutFieldData(h_, DBL, const_cast<char *>(b8.data())), 0);
    EXPECT_EQ(stored(DBL), b8) << "binary fields take the bytes as they are, zeros included";
}

TEST_F(TableFields, NamesAndNumbers) {
    int n = -1;
    struct Case {
        const char *name;
        int status;
        int number;
    } cases[] = {
        {"NAME", 0, NAME}, {"name", 0, NAME}, {"NaMe", 0, NAME}, {"d13", 0, D13}, {"Empty", 0, EMPTY},
        {"NAM", DBE_FIELDNAME, NFIELDS}, {"NAMEX", DBE_FIELDNAME, NFIELDS}, {"", DBE_FIELDNAME, NFIELDS},
    };
    for (const Case &c : cases) {
        n = -1;
        EXPECT_EQ(DBGetFieldNumber(h_, &n, const_cast<char *>(c.name)), c.status) << c.name;
        EXPECT_EQ(n, c.number) << c.name;
    }
    EXPECT_EQ(DBGetFieldNumber(h_, nullptr, const_cast<char *>("NAME")), DBE_NULLPARAM);
    EXPECT_EQ(DBGetFieldNumber(h_, &n, nullptr), DBE_NULLPARAM);
    char name[12];
    ASSERT_EQ(DBGetFieldName(h_, name, STAMP), 0);
    EXPECT_STREQ(name, "STAMP");
    EXPECT_EQ(DBGetFieldName(h_, name, NFIELDS), DBE_NUMFIELDS);
    EXPECT_EQ(DBGetFieldName(h_, name, -1), DBE_NUMFIELDS);
    EXPECT_EQ(DBGetFieldName(h_, nullptr, 0), DBE_NULLPARAM);

    // The by-name calls find the field first.
    set(NAME, "named   ");
    char out[16];
    ASSERT_EQ(DBGetNamedStr(h_, const_cast<char *>("name"), out), 0);
    EXPECT_STREQ(out, "named   ");
    ASSERT_EQ(DBPutNamedStr(h_, const_cast<char *>("Name"), const_cast<char *>("other")), 0);
    EXPECT_EQ(stored(NAME), "other   ");
    int32_t b = 5;
    ASSERT_EQ(DBPutNamedData(h_, const_cast<char *>("notes"), &b), 0);
    b = 0;
    ASSERT_EQ(DBGetNamedData(h_, const_cast<char *>("NOTES"), &b), 0);
    EXPECT_EQ(b, 5);
    EXPECT_EQ(DBIsNamedBlank(h_, const_cast<char *>("hired")), 1);
    for (const char *bad : {"NONE", "NAME "}) {
        EXPECT_EQ(DBGetNamedStr(h_, const_cast<char *>(bad), out), DBE_FIELDNAME);
        EXPECT_EQ(DBPutNamedStr(h_, const_cast<char *>(bad), out), DBE_FIELDNAME);
        EXPECT_EQ(DBGetNamedData(h_, const_cast<char *>(bad), out), DBE_FIELDNAME);
        EXPECT_EQ(DBPutNamedData(h_, const_cast<char *>(bad), out), DBE_FIELDNAME);
        EXPECT_EQ(DBIsNamedBlank(h_, const_cast<char *>(bad)), DBE_FIELDNAME);
    }
}

TEST_F(TableFields, FieldNumbersAndPointersAreChecked) {
    char out[32];
    for (int bad : {-1, int(NFIELDS), 1000}) {
        EXPECT_EQ(DBGetFieldData(h_, bad, out), DBE_NUMFIELDS) << bad;
        EXPECT_EQ(DBGetStrField(h_, bad, out), DBE_NUMFIELDS) << bad;
        EXPECT_EQ(DBPutFieldData(h_, bad, out), DBE_NUMFIELDS) << bad;
        EXPECT_EQ(DBPutStrField(h_, bad, out), DBE_NUMFIELDS) << bad;
        EXPECT_EQ(DBIsFieldBlank(h_, bad), DBE_NUMFIELDS) << bad;
        DBFIELD f{};
        EXPECT_EQ(DBGetFieldDescription(h_, bad, &f), DBE_NUMFIELDS) << bad;
    }
    EXPECT_EQ(DBGetFieldData(h_, 0, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBGetStrField(h_, 0, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBPutFieldData(h_, 0, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBPutStrField(h_, 0, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBGetFieldDescription(h_, 0, nullptr), DBE_NULLPARAM);
    EXPECT_EQ(DBGetFieldData(h_ + 1, 0, out), DBE_BADHANDLE);
}

TEST_F(TableFields, BlankTest) {
    struct Case {
        int field;
        std::string stored;
        int blank;
    } cases[] = {
        {NAME, "        ", 1},        {NAME, "       x", 0},          {AMOUNT, "        ", 1},
        {DBL, std::string(8, '\0'), 0},  // zero bytes hold a value here
        {DBL, std::string(8, ' '), 1}, {OK, " ", 1},                 {OK, "F", 0},
    };
    for (const Case &c : cases) {
        set(c.field, c.stored);
        EXPECT_EQ(DBIsFieldBlank(h_, c.field), c.blank) << c.field << " '" << c.stored << "'";
    }
    EXPECT_EQ(DBIsFieldBlank(h_, EMPTY), 0) << "a field of no bytes is not blank";
}

TEST_F(TableFields, Descriptions) {
    std::vector<DBFIELD> all(NFIELDS + 1);
    all[NFIELDS].len = 777;
    int count = 0;
    ASSERT_EQ(DBGetFileDescription(h_, &count, all.data()), 0);
    EXPECT_EQ(count, NFIELDS);
    EXPECT_EQ(all[NFIELDS].len, 777) << "nothing written past the fields";
    struct Want {
        const char *name;
        int type, len, dec;
    } want[] = {{"NAME", 'C', 8, 0},   {"AMOUNT", 'N', 8, 2}, {"RATE", 'F', 10, 3}, {"HIRED", 'D', 8, 0},
                {"OK", 'L', 1, 0},     {"NOTES", 'M', 10, 0}, {"ID", 'I', 4, 0},    {"STAMP", 'T', 8, 0},
                {"PRICE", 'Y', 8, 0},  {"DBL", 'B', 8, 0},    {"S16", 1, 2, 0},     {"S32", 3, 4, 0},
                {"D13", 13, 8, 0},     {"EMPTY", 'C', 0, 0}};
    for (int i = 0; i < NFIELDS; i++) {
        EXPECT_STREQ(all[i].name, want[i].name);
        EXPECT_EQ(all[i].type, want[i].type) << i;
        EXPECT_EQ(all[i].len, want[i].len) << i;
        EXPECT_EQ(all[i].decpl, want[i].dec) << i;
    }
    EXPECT_EQ(DBGetFileDescription(h_, nullptr, all.data()), DBE_NULLPARAM);
    EXPECT_EQ(DBGetFileDescription(h_, &count, nullptr), DBE_NULLPARAM);
}

TEST_F(TableFields, FieldCallsLeaveTheFileAlone) {
    const std::vector<uint8_t> before = xbt::readFile(path("f.dbf"));
    ASSERT_EQ(DBPutStrField(h_, NAME, const_cast<char *>("nowhere")), 0);
    ASSERT_EQ(DBFlushFile(h_), 0);
    EXPECT_EQ(xbt::readFile(path("f.dbf")), before);
    // Reading a record replaces the buffer, field changes and all.
    ASSERT_EQ(DBGetRecord(h_, 1), 0);
    EXPECT_EQ(stored(NAME), "        ");
}

}  // namespace
