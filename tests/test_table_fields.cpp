// test_table_fields.cpp - field access on the record buffer: every conversion
// between stored bytes and the caller's types, names, numbers, blank tests.
#include "tablea_util.h"

#include <tuple>

using tablea::cs;
using namespace std::string_literals;

namespace {

enum { NAME, AMOUNT, RATE, HIRED, OK, NOTES, ID, STAMP, PRICE, DBL, S16, S32, D13, EMPTY, NF };
const struct { const char *name; int type, len, dec; } kFields[NF] = {
    {"NAME", 'C', 8, 0}, {"AMOUNT", 'N', 8, 2}, {"RATE", 'F', 10, 3}, {"HIRED", 'D', 8, 0}, {"OK", 'L', 1, 0},
    {"NOTES", 'M', 10, 0}, {"ID", 'I', 4, 0}, {"STAMP", 'T', 8, 0}, {"PRICE", 'Y', 8, 0}, {"DBL", 'B', 8, 0},
    {"S16", 1, 2, 0}, {"S32", 3, 4, 0}, {"D13", 13, 8, 0}, {"EMPTY", 'C', 0, 0}};

using xbt::raw;

class TableFields : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        tablea::RawDbf t;
        t.version = 0x83;
        for (const auto &f : kFields) t.field(f.name, f.type, f.len, f.dec);
        t.records = {std::string(88, ' ')};
        t.write(path("f.dbf"));
        ASSERT_EQ(tablea::open(&h_, path("f.dbf"), 1), 0);
        ASSERT_EQ(DBSetBufferAddress(h_, &rec_), 0);
        for (int i = 1; i < NF; i++) off_[i] = off_[i - 1] + kFields[i - 1].len;
    }
    void set(int f, const std::string &b) { std::memcpy(rec_ + off_[f], b.data(), b.size()); }
    std::string stored(int f) const { return std::string(rec_ + off_[f], static_cast<size_t>(kFields[f].len)); }
    int h_ = -1, off_[NF] = {1};
    char *rec_ = nullptr;
};

// Get by the field's type or as text: the bytes handed back, nothing past
// them, 212 for blank fields (numbers never blank, zero 'B' bytes blank).
TEST_F(TableFields, Get) {
    const int E = DBW_FIELDEMPTY;
    struct Case { int field; bool text; std::string stored, out; int status; } cases[] = {
        {NAME, true, "        ", "        \0"s, E}, {AMOUNT, false, "        ", raw(0.0), 0},
        {RATE, false, "     2.500", "     2.5", 0},  // the stored bytes, not the value
        {DBL, false, raw(1.5), raw(1.5), 0},       {DBL, false, "\0\0\0\0\0\0\0\0"s, raw(0.0), E},
        {D13, false, "        ", raw(0.0), E},     {NOTES, false, "          ", raw(0), E},
        {NOTES, false, "4294967295", raw(-1), 0},  {ID, true, raw(-2), raw(-2), 0}, {ID, false, "    ", raw(0), E},
        {S16, false, "\x34\x92", raw(static_cast<int16_t>(0x9234)), 0}, {S32, false, "\1\2\3\4", raw(0x04030201), 0},
        {STAMP, true, "\1\2\3\4\5\6\7\x08", "\4\3\2\1\x08\7\6\5\0"s, 0},
        {PRICE, false, "\1\2\3\4\5\6\7\x08", "\4\3\2\1\x08\7\6\5", 0},
        {OK, false, "y", "\1", 0}, {OK, false, "f", "\0"s, 0}, {OK, false, "?", "?", E},
        {OK, false, "X", "#", 0},  // the caller's byte stays
    };
    for (const Case &c : cases) {
        set(c.field, c.stored);
        char out[32];
        std::memset(out, '#', sizeof out);
        EXPECT_EQ(c.text ? DBGetStrField(h_, c.field, out) : DBGetFieldData(h_, c.field, out), c.status)
            << kFields[c.field].name << " '" << c.stored << "'";
        EXPECT_EQ(std::string(out, c.out.size() + 1), c.out + '#') << kFields[c.field].name << " '" << c.stored << "'";
    }
}

// Put by the field's type or as text: the whole record afterwards (only the
// field changed; a refused put changes nothing), 205 for a cut text.
TEST_F(TableFields, Put) {
    const int T = DBW_TRUNCATED, BD = DBE_BADDATA;
    struct Case { int field; bool text; std::string in, stored; int status; } cases[] = {
        {NAME, true, "hello", "hello   ", 0}, {NAME, true, "far too long", "far too ", T}, {EMPTY, true, "x", "", T},
        {AMOUNT, true, "12.5", "12.5    ", 0}, {AMOUNT, false, "12.5", "    12.5", 0},
        {RATE, false, "7", "         7", 0}, {NOTES, false, raw(2147483647), "2147483647", 0},
        {NOTES, false, raw(-1), "##########", BD},  // would not read back
        {ID, false, raw(-2), "\xfe\xff\xff\xff", 0}, {S16, false, raw<int16_t>(0x1234), "\x34\x12", 0},
        {DBL, false, "\0\1\0\2\0\3\0\4"s, "\0\1\0\2\0\3\0\4"s, 0},
        {PRICE, false, "\4\3\2\1\x08\7\6\5", "\1\2\3\4\5\6\7\x08", 0},
        {OK, false, "t", "T", 0}, {OK, false, "\0"s, "F", 0}, {OK, false, "?", " ", 0}, {OK, false, "1", "#", BD},
    };
    for (const Case &c : cases) {
        std::memset(rec_, '#', 88);
        std::string in = c.in + '\0', want(88, '#');
        want.replace(static_cast<size_t>(off_[c.field]), c.stored.size(), c.stored);
        EXPECT_EQ(c.text ? DBPutStrField(h_, c.field, in.data()) : DBPutFieldData(h_, c.field, in.data()), c.status)
            << kFields[c.field].name << " '" << c.in << "'";
        EXPECT_EQ(std::string(rec_, 88), want) << kFields[c.field].name << " '" << c.in << "'";
    }
}

// Dates in the default style both ways (a two-digit, a day-of-year and a
// four-digit style; every style's own text: test_dates); a blank date gives
// the style's empty picture and 212; impossible dates (month 13) fail, field unchanged.
TEST_F(TableFields, Dates) {
    const struct { int style; std::string full, empty; } styles[] = {
        {1, "02/29/24", "  /  /  "}, {3, "2024/060", "    /   "}, {15, "2024.02.29", "    .  .  "}};
    char out[16];
    for (const auto &[style, full, empty] : styles) {
        ASSERT_EQ(DBSetDefaultDateStyle(style), 0);
        for (const std::string &in : {full, empty}) {
            const std::string stored8 = in == full ? "20240229" : "        ";
            set(HIRED, stored8);
            EXPECT_EQ(DBGetFieldData(h_, HIRED, out), stored8[0] == ' ' ? DBW_FIELDEMPTY : 0) << style;
            EXPECT_EQ(out, in) << style;
            set(HIRED, "19991231");
            EXPECT_EQ(DBPutFieldData(h_, HIRED, cs(in.c_str())), 0) << style;
            EXPECT_EQ(stored(HIRED), stored8) << style;
        }
    }
    ASSERT_EQ(DBSetDefaultDateStyle(1), 0);
    for (const char *s : {"2024AB01", "20241301", "20230229"}) {
        set(HIRED, s);
        EXPECT_EQ(DBGetFieldData(h_, HIRED, out), DBE_BADDATE) << s;
        EXPECT_EQ(DBPutFieldData(h_, HIRED, cs("13/01/24")), DBE_BADDATE);
        EXPECT_EQ(DBPutFieldData(h_, HIRED, cs("02/30/24")), DBE_BADDATE);
        EXPECT_EQ(stored(HIRED), s);
    }
}

// Names in any letter case (unknown: -228, output the field count), field
// numbers -227, null pointers -221, blank tests; none of it reaches the file.
TEST_F(TableFields, NamesNumbersAndBlanks) {
    const std::vector<uint8_t> before = xbt::readFile(path("f.dbf"));
    for (auto [name, number] : {std::pair{"NaMe", int(NAME)}, {"d13", D13}, {"NAM", NF}, {"NAME ", NF}, {"", NF}}) {
        int n = -1;
        EXPECT_EQ(DBGetFieldNumber(h_, &n, cs(name)), number == NF ? DBE_FIELDNAME : 0) << name;
        EXPECT_EQ(n, number) << name;
    }
    char out[32];
    int32_t b = 5;
    ASSERT_EQ(DBPutNamedData(h_, cs("notes"), &b), 0);
    ASSERT_EQ(DBPutNamedStr(h_, cs("Name"), cs("other")), 0);
    ASSERT_EQ(DBGetNamedStr(h_, cs("name"), out), 0);
    EXPECT_STREQ(out, "other   ");
    ASSERT_EQ(DBGetNamedData(h_, cs("NOTES"), &b), 0);
    EXPECT_EQ(b, 5);
    EXPECT_EQ(DBIsNamedBlank(h_, cs("hired")), 1);
    EXPECT_EQ(DBPutNamedData(h_, cs("NONE"), out), DBE_FIELDNAME);
    for (int bad : {-1, int(NF), 1000})
        for (int rc : {DBGetFieldData(h_, bad, out), DBPutStrField(h_, bad, out), DBIsFieldBlank(h_, bad),
                       DBGetFieldName(h_, out, bad)})
            EXPECT_EQ(rc, DBE_NUMFIELDS) << bad;
    for (int rc : {DBGetStrField(h_, 0, nullptr), DBGetNamedStr(h_, nullptr, out)}) EXPECT_EQ(rc, DBE_NULLPARAM);
    // Blank: all spaces and at least one byte; zero bytes of a 'B' field are a value here.
    for (auto [f, s, blank] : {std::tuple{int(NAME), "       x"s, 0}, {DBL, "\0\0\0\0\0\0\0\0"s, 0},
                               {AMOUNT, "        "s, 1}, {DBL, "        "s, 1}, {EMPTY, ""s, 0}}) {
        set(f, s);
        EXPECT_EQ(DBIsFieldBlank(h_, f), blank) << kFields[f].name;
    }
    ASSERT_EQ(DBFlushFile(h_), 0);
    EXPECT_EQ(xbt::readFile(path("f.dbf")), before);
}

}  // namespace
