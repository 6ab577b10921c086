// test_eval.cpp - the key-expression evaluator against real tables: the
// built-in functions and their odd corners, buffers where lengths are left
// to the text, host-registered functions, and the keys of the Harbour NTX
// fixtures recomputed record by record.
#include "xbtest.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "eval.h"

namespace {

std::string pad(const std::string &s, size_t n) {
    std::string r = s.substr(0, n);
    r.resize(n, ' ');
    return r;
}

// One record of the test table, as text the way a DBF stores it.
struct Row {
    std::string name, city, amount, tax, qty, hired, active, notes;
};

// NAME C20, CITY C15, AMOUNT N10.2, TAX N8.2, QTY N5, HIREDATE D, ACTIVE L,
// NOTES M. The numbers are exact in binary, so sums compare exactly.
const Row kRows[] = {
    {"Ada Lovelace", "London", "   1234.50", "   12.25", "   42", "19870217", "T", "        17"},
    {"", "Paris", "     -7.50", "    0.00", "    0", "        ", "F", "          "},
    {"j\xF6rg m\xFCller", "K\xF6ln", "      0.25", "    0.50", "    7", "20240229", "F", "         3"},
};

class EvalTest : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        DBFIELD f[] = {{"NAME", 'C', 20, 0},  {"CITY", 'C', 15, 0},    {"AMOUNT", 'N', 10, 2},
                       {"TAX", 'N', 8, 2},    {"QTY", 'N', 5, 0},      {"HIREDATE", 'D', 8, 0},
                       {"ACTIVE", 'L', 1, 0}, {"NOTES", 'M', 10, 0}};
        std::string file = path("people.dbf");
        ASSERT_EQ(DBCreateFile(file.data(), 8, f, 4), 0);
        ASSERT_EQ(DBOpenFile(&h_, file.data(), 4), 0);
        for (const Row &r : kRows) {
            ASSERT_EQ(DBClearBuffer(h_), 0);
            const std::string *v[] = {&r.name, &r.city, &r.amount, &r.tax, &r.qty, &r.hired, &r.active, &r.notes};
            for (int i = 0; i < 8; i++) {
                std::string s = *v[i];
                ASSERT_GE(DBPutStrField(h_, i, s.data()), 0) << i;
            }
            int32_t recno = 0;
            ASSERT_EQ(DBPutRecord(h_, &recno, DB_APPEND), 0);
        }
        ASSERT_EQ(DBGetRecord(h_, 1), 0);
    }
    void TearDown() override {
        DBCloseFile(h_);
        xbt::LibTest::TearDown();
    }

    // Evaluate and keep the value; the caller-owned block is freed here.
    struct Result {
        int status;
        int type;
        int len;
        bool null;
        std::string text;  // elen bytes of a string value
        double num;
    };
    Result eval(const std::string &expr) {
        std::string e = expr;
        DBEVAL out{reinterpret_cast<char *>(1), 'X', -1};
        Result r{};
        r.status = DBEvaluateStr(h_, e.data(), &out);
        r.type = out.etyp;
        r.len = out.elen;
        r.null = out.eval == nullptr;
        if (out.eval) {
            if (out.etyp == 'N' || out.etyp == 'F') {
                std::memcpy(&r.num, out.eval, sizeof r.num);
            } else if (out.elen >= 0) {
                r.text.assign(out.eval, static_cast<size_t>(out.elen));
                if (out.etyp == 'C' || out.etyp == 'D' || out.etyp == ' ') EXPECT_EQ(out.eval[out.elen], '\0') << expr;
            }
            DBFreeMemory(out.eval, "test", __LINE__);
        }
        return r;
    }

    // A case: the expression and what it must give. Numbers compare
    // exactly; a failure must hand back no value.
    struct Case {
        const char *expr;
        int status;
        int type;
        std::string text;
        double num;
    };
    void expect(const Case &c) {
        SCOPED_TRACE(c.expr);
        Result r = eval(c.expr);
        ASSERT_EQ(r.status, c.status);
        if (c.status < 0) {
            EXPECT_TRUE(r.null);
            return;
        }
        ASSERT_FALSE(r.null);
        EXPECT_EQ(r.type, c.type);
        if (c.type == 'N') {
            EXPECT_EQ(r.len, 8);
            EXPECT_EQ(r.num, c.num);
        } else {
            EXPECT_EQ(r.len, static_cast<int>(c.text.size()));
            EXPECT_EQ(r.text, c.text);
        }
    }

    int h_ = -1;
};


const std::string kName = pad("Ada Lovelace", 20);
const std::string kCity = pad("London", 15);

}  // namespace

// The evaluation rules on record 1, quirks included.
TEST_F(EvalTest, TermsOperatorsAndBuiltins) {
    const Case cases[] = {
        // An empty expression: no value yet.
        {"", 0, ' ', "", 0},
        {"NAME", 0, 'C', kName, 0},
        {"name", 0, 'C', kName, 0},
        // "+" and "-" both concatenate strings, at full field widths.
        {"NAME+CITY", 0, 'C', kName + kCity, 0},
        {"NAME-CITY", 0, 'C', kName + kCity, 0},
        {"AMOUNT+TAX", 0, 'N', "", 1246.75},
        {"AMOUNT-TAX", 0, 'N', "", 1222.25},
        {"AMOUNT-TAX+QTY", 0, 'N', "", 1264.25},
        {"AMOUNT+12.5-TAX", 0, 'N', "", 1234.75},
        // The first term's operator means nothing.
        {"-AMOUNT", 0, 'N', "", 1234.5},
        {"AMOUNT+NAME", -207, 0, "", 0},
        {"NAME+AMOUNT", -207, 0, "", 0},
        {"AMOUNT+STR(QTY)", -207, 0, "", 0},
        // Dates, logicals and memos after the first term vanish silently.
        {"NAME+HIREDATE", 0, 'C', kName, 0},
        {"NAME+ACTIVE+NOTES", 0, 'C', kName, 0},
        {"AMOUNT+HIREDATE", 0, 'N', "", 1234.5},
        {"HIREDATE+NAME", -207, 0, "", 0},
        {"HIREDATE+AMOUNT", -207, 0, "", 0},
        // First terms of every other type, in their delivered form.
        {"HIREDATE", 0, 'D', "02/17/87", 0},
        {"ACTIVE", 0, 'L', std::string(1, '\1'), 0},
        {"NOTES", 0, 'M', std::string("\x11\0\0\0", 4), 0},
        // UPPE( lower-cases and LOWER( upper-cases.
        {"UPPE(NAME)", 0, 'C', pad("ada lovelace", 20), 0},
        {"LOWER(NAME)", 0, 'C', pad("ADA LOVELACE", 20), 0},
        {"UPPER(NAME)", 0, 'C', pad("ADA LOVELACE", 20), 0},
        {"LOWE(NAME)", 0, 'C', pad("ada lovelace", 20), 0},
        {"UPPER(AMOUNT)", -207, 0, "", 0},
        {"STR(AMOUNT,8,2)", 0, 'C', " 1234.50", 0},
        {"STR(QTY)", 0, 'C', "        42", 0},
        {"STR(TAX,6,1)", 0, 'C', "  12.2", 0},
        {"STR(AMOUNT,8,2,1)", -207, 0, "", 0},
        {"STR(NAME)", -207, 0, "", 0},
        {"STR(QTY,5)+NAME", 0, 'C', "   42" + kName, 0},
        {"DTOC(HIREDATE)", 0, 'C', "02/17/87", 0},
        // Two-digit default style: the century is gone before the
        // conversion to yyyymmdd, and the date parser puts 87 in 2087.
        {"DTOC(HIREDATE,1)", 0, 'C', "20870217", 0},
        {"DTOC(NAME)", -207, 0, "", 0},
        {"SUBSTR(NAME,3)", 0, 'C', kName.substr(2), 0},
        {"SUBSTR(NAME,3,2)", 0, 'C', "a ", 0},
        {"SUBST(NAME,5,4)", 0, 'C', "Love", 0},
        {"SUBS(NAME,5,4)", 0, 'C', "Love", 0},
        {"LEFT(NAME,3)", 0, 'C', "Ada", 0},
        {"RIGHT(LEFT(NAME,12),4)", 0, 'C', "lace", 0},
        {"RIGH(LEFT(NAME,12),8)", 0, 'C', "Lovelace", 0},
        {"PADR(CITY,20)", 0, 'C', pad("London", 20), 0},
        {"PADR(CITY,3)", 0, 'C', "Lon", 0},
        {"upper(left(name,3))+str(qty,5)", 0, 'C', "ADA   42", 0},
        // No operator after a function's ")": a string still joins.
        {"LEFT(NAME,3)CITY", 0, 'C', "Ada" + kCity, 0},
        // Literals: a misspelt field is its own text, digits make a number.
        {"XYZ", 0, 'C', "XYZ", 0},
        {"NAME+XYZ", 0, 'C', kName + "XYZ", 0},
        {"12.5", 0, 'N', "", 12.5},
        {"12.5+AMOUNT", 0, 'N', "", 1247.0},
        {"ABCDEFGHIJK", -207, 0, "", 0},
        {"ABCDEFGHIJ", 0, 'C', "ABCDEFGHIJ", 0},
        // Malformed texts.
        {"NAME+", -207, 0, "", 0},
        {"NAME,3", -207, 0, "", 0},
        {"LEFT(NAME)", -207, 0, "", 0},
        {"LEFT(NAME,)", -207, 0, "", 0},
        {"UPPER(NAME", -207, 0, "", 0},
        {"DTOC(HIREDATE,1", -207, 0, "", 0},
        {"SUBSTR(NAME,3,2", -207, 0, "", 0},
    };
    for (const Case &c : cases) expect(c);
}

// A blank record and one with bytes above 127.
// STR( prints whole numbers itself; the C library is the reference.
TEST_F(EvalTest, StrPrintsAsTheCLibraryDoes) {
    // Up to 5 characters through the QTY field, longer ones as literals.
    for (const char *num : {"0", "7", "-7", "42", "99999", "-9999", "-0", "2.5", "-3.5", "1e4", "9999999999",
                            "100000000.", "0.5", "1.5"}) {
        std::string q = num;
        const bool literal = q.size() > 5;
        if (!literal) ASSERT_EQ(DBPutStrField(h_, 4, q.data()), 0);
        const double v = std::atof(num);
        for (int w = 0; w <= 17; w += 3) {
            for (int dec : {0, 1}) {
                char expr[40], want[64];
                std::snprintf(expr, sizeof expr, "STR(%s,%d,%d)", literal ? num : "QTY", w, dec);
                std::snprintf(want, sizeof want, "%*.*f", w, dec, v);
                expect({expr, 0, 'C', want, 0});
            }
        }
    }
}

TEST_F(EvalTest, BlankFieldsAndHighBytes) {
    ASSERT_EQ(DBGetRecord(h_, 2), 0);
    const Case blank[] = {
        // A blank field is a value like any other: status 0, not 212.
        {"NAME", 0, 'C', std::string(20, ' '), 0},
        {"NAME+CITY", 0, 'C', std::string(20, ' ') + pad("Paris", 15), 0},
        {"HIREDATE", 0, 'D', "  /  /  ", 0},
        {"DTOC(HIREDATE)", 0, 'C', "  /  /  ", 0},
        {"DTOC(HIREDATE,1)", 0, 'C', "        ", 0},
        {"AMOUNT-TAX", 0, 'N', "", -7.5},
    };
    for (const Case &c : blank) expect(c);

    ASSERT_EQ(DBGetRecord(h_, 3), 0);
    const Case high[] = {
        {"UPPER(NAME)", 0, 'C', pad("J\xF6RG M\xFCLLER", 20), 0},
        {"LOWE(UPPER(CITY))", 0, 'C', pad("k\xF6ln", 15), 0},
        {"AMOUNT+TAX", 0, 'N', "", 0.75},
    };
    for (const Case &c : high) expect(c);

    // A four-digit default style keeps the century through DTOC(...,1).
    ASSERT_EQ(DBSetDefaultDateStyle(7), 0);
    expect({"HIREDATE", 0, 'D', "29.02.2024", 0});
    expect({"DTOC(HIREDATE,1)", 0, 'C', "20240229", 0});
    ASSERT_EQ(DBGetRecord(h_, 2), 0);
    expect({"DTOC(HIREDATE,1)", 0, 'C', "        ", 0});
}

// Where lengths come from the text rather than from the field: nothing may be
// written or read outside a buffer (the sanitizer build watches), and the
// values are the ones the rules give.
TEST_F(EvalTest, LengthsLeftToTheText) {
    const std::string wide(305, 'x');
    const Case cases[] = {
        {"PADR(NAME,40)+CITY", 0, 'C', pad("Ada Lovelace", 40) + kCity, 0},
        {"PADR(NAME,300)", 0, 'C', pad("Ada Lovelace", 300), 0},
        {"UPPER(PADR(NAME,40))+CITY", 0, 'C', pad("ADA LOVELACE", 40) + kCity, 0},
        {"CITY+PADR(LEFT(NAME,3),30)+CITY", 0, 'C', kCity + pad("Ada", 30) + kCity, 0},
        // Numbers wider than STR's width print whole.
        {"STR(AMOUNT,3,2)", 0, 'C', "1234.50", 0},
        {"STR(AMOUNT,3,2)+NAME", 0, 'C', "1234.50" + kName, 0},
        {"STR(QTY,0)", 0, 'C', "42", 0},
        {"UPPER(STR(AMOUNT,2,1))", 0, 'C', "1234.5", 0},
        {"STR(AMOUNT,-5)", -207, 0, "", 0},
        {"STR(AMOUNT,5,-1)", -207, 0, "", 0},
        // Counts past the end take what there is; negative counts nothing.
        {"LEFT(NAME,50)", 0, 'C', kName, 0},
        {"RIGHT(NAME,50)", 0, 'C', kName, 0},
        {"SUBSTR(NAME,21)", 0, 'C', "", 0},
        {"SUBSTR(NAME,30)+CITY", 0, 'C', kCity, 0},
        {"SUBSTR(NAME,3,99)", 0, 'C', kName.substr(2), 0},
        {"LEFT(NAME,-1)+CITY", 0, 'C', kCity, 0},
        {"RIGHT(NAME,-2)", 0, 'C', "", 0},
        {"PADR(NAME,-3)", 0, 'C', "", 0},
        {"SUBSTR(NAME,-1,3)", 0, 'C', "Ada", 0},
        {"SUBSTR(NAME,0,3)", 0, 'C', "Ada", 0},
        {"SUBSTR(NAME,2,-1)", 0, 'C', "", 0},
        {"UPPER(LEFT(NAME,2))+LEFT(CITY,2)", 0, 'C', "ADLo", 0},
        // Arguments beyond 16 bits and results beyond 32767 bytes.
        {"LEFT(NAME,99999)", -207, 0, "", 0},
        {"PADR(NAME,30000)+PADR(NAME,30000)", -207, 0, "", 0},
    };
    for (const Case &c : cases) expect(c);

    // A precision far beyond any buffer guess.
    Result r = eval("STR(AMOUNT,5,300)");
    ASSERT_EQ(r.status, 0);
    ASSERT_EQ(r.text.size(), wide.size());
    EXPECT_EQ(r.text.substr(0, 8), "1234.500");
    EXPECT_EQ(r.text.find_first_not_of('0', 6), std::string::npos);

    // Deep nesting ends in a status, not in a stack overflow.
    std::string deep;
    for (int i = 0; i < 5000; i++) deep += "UPPER(";
    deep += "NAME";
    for (int i = 0; i < 5000; i++) deep += ")";
    expect({deep.c_str(), -207, 0, "", 0});
    std::string ok;
    for (int i = 0; i < 20; i++) ok += "LOWER(";
    ok += "NAME";
    for (int i = 0; i < 20; i++) ok += ")";
    expect({ok.c_str(), 0, 'C', pad("ADA LOVELACE", 20), 0});
}

TEST_F(EvalTest, BadArgumentsAndTheErrorLog) {
    char logname[64];
    std::snprintf(logname, sizeof logname, "%s", path("e.log").c_str());
    ASSERT_LT(std::strlen(logname), 30u);
    DBErrorLog(1, logname);

    DBEVAL out{};
    char expr[] = "NAME";
    EXPECT_EQ(DBEvaluateStr(h_, nullptr, &out), -221);
    EXPECT_EQ(DBEvaluateStr(h_, expr, nullptr), -221);

    // A good evaluation, then failures: none of them may hand back the
    // previous (caller-owned, maybe freed) value.
    ASSERT_EQ(DBEvaluateStr(h_, expr, &out), 0);
    DBFreeMemory(out.eval, "test", __LINE__);
    for (int bad : {-1, 0, 2, 63, 64, 1000}) {
        out = DBEVAL{reinterpret_cast<char *>(1), 'X', 9};
        EXPECT_EQ(DBEvaluateStr(bad, expr, &out), -213) << bad;
        EXPECT_EQ(out.eval, nullptr) << bad;
        EXPECT_EQ(DBerrno, -213);
    }
    char bad[] = "NAME+AMOUNT";
    EXPECT_EQ(DBEvaluateStr(h_, bad, &out), -207);
    EXPECT_EQ(out.eval, nullptr);

    // Outside an evaluation there is no cursor to work on.
    int16_t v = 5;
    EXPECT_EQ(DBProcessTable(), -212);
    EXPECT_EQ(DBGetValue(&v), -212);
    EXPECT_EQ(v, 5);
    EXPECT_EQ(DBGetValue(nullptr), -221);
    DBErrorLog(0, nullptr);

    const std::vector<std::string> lines = xbt::readLines(logname);
    int bad207 = 0, null221 = 0;
    for (const std::string &l : lines) {
        if (l.rfind("rdd/xbase/eval\t", 0) == 0 && l.size() > 5 && l.substr(l.size() - 5) == "\t-207") bad207++;
        if (l.rfind("rdd/xbase/eval\t", 0) == 0 && l.substr(l.size() - 5) == "\t-221") null221++;
    }
    EXPECT_GE(bad207, 1);
    EXPECT_EQ(null221, 3);
}

// ---------------------------------------------------------------------------
// The parse-entry table
// ---------------------------------------------------------------------------

namespace {
int32_t nop(DBEVALTEMP *) { return 0; }

std::vector<std::string> rows() {
    std::vector<std::string> out;
    int n = 0, longest = 0;
    if (DBGetTableInfo(&n, &longest) != 0) return out;
    std::vector<char> buf(static_cast<size_t>(longest) + 1);
    for (int i = 0;; i++) {
        int rc = DBGetEntryStr(buf.data(), i);
        if (rc == 203) break;
        EXPECT_EQ(rc, 0);
        if (rc != 0 || i > n) break;
        out.emplace_back(buf.data());
    }
    return out;
}
}  // namespace

TEST_F(EvalTest, ParseTableKeepsSortedRowsAndGrowsByTen) {
    int n = -1, longest = -1;
    char buf[64];
    EXPECT_EQ(DBGetTableInfo(&n, &longest), 202);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(DBGetEntryStr(buf, 0), 203);
    char missing[] = "X(";
    EXPECT_EQ(DBDeleteParseEntry(missing), 204);

    // 45 names in a scrambled order, one with a byte above 127 (sorts last,
    // bytes are unsigned) and one in lower case (after the capitals).
    std::vector<std::string> names;
    for (int i = 0; i < 43; i++) {
        char s[16];
        std::snprintf(s, sizeof s, "F%02d(", (i * 17) % 43);
        names.push_back(s);
    }
    names.push_back("\xC4X(");
    names.push_back("fun(");
    // Rows allocated after the n-th registration: 20 first, then 10 more
    // each time the table is full.
    const std::map<int, int> sizes = {{1, 20}, {20, 20}, {21, 30}, {30, 30}, {31, 40}, {40, 40}, {41, 50}, {45, 50}};
    for (size_t i = 0; i < names.size(); i++) {
        std::string s = names[i];
        ASSERT_EQ(DBAddParseEntry(s.data(), nop), 0) << s;
        const int count = static_cast<int>(i + 1);
        EXPECT_EQ(DBeval_cnt, count);
        if (sizes.count(count)) EXPECT_EQ(DBeval_size, sizes.at(count)) << count;
    }
    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(rows(), sorted);
    EXPECT_EQ(sorted.back(), "\xC4X(");
    ASSERT_EQ(DBGetTableInfo(&n, &longest), 0);
    EXPECT_EQ(n, 45);
    EXPECT_EQ(longest, 4);
    EXPECT_EQ(DBGetEntryStr(buf, 45), 203);
    EXPECT_EQ(DBGetEntryStr(buf, -1), 203);

    // Already there, also as a prefix: a text that begins with a name is
    // that name.
    char dup[] = "F07(", longer[] = "F07(X", shorter[] = "F07";
    EXPECT_EQ(DBAddParseEntry(dup, nop), 211);
    EXPECT_EQ(DBAddParseEntry(longer, nop), 211);
    EXPECT_EQ(DBeval_cnt, 45);
    EXPECT_EQ(DBDeleteParseEntry(shorter), 204);

    // Bad arguments.
    char empty[] = "";
    EXPECT_EQ(DBAddParseEntry(nullptr, nop), -221);
    EXPECT_EQ(DBAddParseEntry(dup, nullptr), -221);
    EXPECT_EQ(DBAddParseEntry(empty, nop), -207);
    EXPECT_EQ(DBGetEntryStr(nullptr, 0), -221);
    EXPECT_EQ(DBGetTableInfo(nullptr, &longest), -221);

    // Delete in another order; the table is freed with its last row.
    for (size_t i = 0; i < names.size(); i++) {
        std::string s = names[(i * 7) % names.size()];
        ASSERT_EQ(DBDeleteParseEntry(s.data()), 0) << s;
        EXPECT_EQ(DBDeleteParseEntry(s.data()), 204) << s;
        sorted.erase(std::find(sorted.begin(), sorted.end(), s));
        if (i % 11 == 0) EXPECT_EQ(rows(), sorted);
    }
    EXPECT_EQ(DBeval_cnt, 0);
    EXPECT_EQ(DBeval_size, 0);
    EXPECT_EQ(DBeval_tbl, nullptr);
    EXPECT_EQ(DBGetTableInfo(&n, &longest), 202);
}

TEST_F(EvalTest, BinarySearchReportsTheInsertionPoint) {
    for (const char *s : {"D(", "B(", "F(", "H("}) {
        std::string n = s;
        ASSERT_EQ(DBAddParseEntry(n.data(), nop), 0);
    }
    const struct {
        const char *text;
        int found;
        int at;
    } probes[] = {
        {"A", 0, 0}, {"B", 0, 0}, {"B(", 1, 0}, {"B(NAME)", 1, 0}, {"C", 0, 1}, {"D(", 1, 1},
        {"E", 0, 2}, {"F(X", 1, 2}, {"G", 0, 3}, {"H(", 1, 3}, {"Z", 0, 4}, {"", 0, 0},
    };
    for (const auto &p : probes) {
        int at = -1;
        EXPECT_EQ(_DBFindParseEntry(p.text, &at), p.found) << p.text;
        EXPECT_EQ(at, p.at) << p.text;
    }
}

// ---------------------------------------------------------------------------
// Host-registered functions
// ---------------------------------------------------------------------------

namespace {
// REPT(term,n): the term's string n times. Evaluates its own argument.
int32_t rept(DBEVALTEMP *t) {
    int rc = DBProcessTable();
    if (rc < 0) return rc;
    char *arg = static_cast<char *>(t->fval);
    if (t->ftyp != 'C') {
        DBFreeMemory(arg, "test", __LINE__);
        return -207;  // fval still names the freed block: the evaluator must not free it again
    }
    int16_t n = 0;
    rc = DBGetValue(&n);
    if (rc < 0 || *t->xprsn != ')') {
        DBFreeMemory(arg, "test", __LINE__);
        return rc < 0 ? rc : -207;
    }
    t->xprsn++;
    const size_t len = std::strlen(arg);
    void *out = nullptr;
    if (DBAllocateMemoryLog(&out, len * n + 1, "test", __LINE__) != 0) return -203;
    char *o = static_cast<char *>(out);
    for (int i = 0; i < n; i++) std::memcpy(o + len * i, arg, len);
    o[len * n] = '\0';
    DBFreeMemory(arg, "test", __LINE__);
    t->fval = out;
    t->ftyp = 'C';
    t->flen = static_cast<int16_t>(len * n + 1);
    return 0;
}

// TWICE(term): a number doubled.
int32_t twice(DBEVALTEMP *t) {
    int rc = DBProcessTable();
    if (rc < 0) return rc;
    if (t->ftyp != 'N' || *t->xprsn != ')') {
        DBFreeMemory(t->fval, "test", __LINE__);
        t->fval = nullptr;
        return -207;
    }
    t->xprsn++;
    double v;
    std::memcpy(&v, t->fval, sizeof v);
    v *= 2;
    std::memcpy(t->fval, &v, sizeof v);
    return 0;
}

// TINY(): 2^-53 + 2^-105, the smallest number whose sum with 1 rounds up.
int32_t tiny(DBEVALTEMP *t) {
    if (*t->xprsn != ')') return -207;
    t->xprsn++;
    void *out = nullptr;
    if (DBAllocateMemoryLog(&out, 8, "test", __LINE__) != 0) return -203;
    const double v = std::ldexp(1.0, -53) + std::ldexp(1.0, -105);
    std::memcpy(out, &v, sizeof v);
    t->fval = out;
    t->ftyp = 'N';
    t->flen = 8;
    return 0;
}

int32_t fails(DBEVALTEMP *t) {
    // Evaluates its argument, gives up, and cleans up after itself.
    if (DBProcessTable() == 0) DBFreeMemory(t->fval, "test", __LINE__);
    t->fval = nullptr;
    return -233;
}
int32_t noValue(DBEVALTEMP *t) {
    t->xprsn++;
    return 0;
}
// Leave the string s as the function's value.
int32_t give(DBEVALTEMP *t, const char *s) {
    void *out = nullptr;
    if (DBAllocateMemoryLog(&out, std::strlen(s) + 1, "test", __LINE__) != 0) return -203;
    std::memcpy(out, s, std::strlen(s) + 1);
    t->fval = out;
    t->ftyp = 'C';
    t->flen = static_cast<int16_t>(std::strlen(s) + 1);
    return 0;
}
int32_t host(DBEVALTEMP *t) { return give(t, "HOST"); }
int32_t backwards(DBEVALTEMP *t) {
    t->xprsn -= 3;
    return give(t, "x");
}
int32_t nested(DBEVALTEMP *t) {
    DBEVAL out{reinterpret_cast<char *>(1), 'X', 1};
    char e[] = "NAME";
    int rc = DBEvaluateStr(3, e, &out);
    return out.eval == nullptr && rc == -212 ? -212 : -1;
}
}  // namespace

TEST_F(EvalTest, HostFunctionsEvaluateTheirOwnArguments) {
    char rname[] = "REPT(", tname[] = "TWICE(", zname[] = "TINY(";
    ASSERT_EQ(DBAddParseEntry(rname, rept), 0);
    ASSERT_EQ(DBAddParseEntry(tname, twice), 0);
    ASSERT_EQ(DBAddParseEntry(zname, tiny), 0);
    const Case cases[] = {
        {"REPT(CITY,2)", 0, 'C', kCity + kCity, 0},
        {"REPT(LEFT(CITY,3),3)", 0, 'C', "LonLonLon", 0},
        // Inside a built-in and inside a "+" sequence.
        {"UPPER(REPT(LEFT(CITY,3),2))", 0, 'C', "LONLON", 0},
        {"LEFT(REPT(CITY,2),18)", 0, 'C', kCity + "Lon", 0},
        {"NAME+REPT(LEFT(CITY,3),2)+CITY", 0, 'C', kName + "LonLon" + kCity, 0},
        {"REPT(REPT(LEFT(NAME,1),2),3)", 0, 'C', "AAAAAA", 0},
        {"REPT(NAME,0)+CITY", 0, 'C', kCity, 0},
        {"AMOUNT+TWICE(QTY)", 0, 'N', "", 1318.5},
        {"STR(TWICE(QTY),4)", 0, 'C', "  84", 0},
        {"REPT(AMOUNT,2)", -207, 0, "", 0},
        {"REPT(CITY)", -207, 0, "", 0},
        // Names are matched byte for byte: lower case is not the function.
        {"rept(CITY,2)", -207, 0, "", 0},
    };
    for (const Case &c : cases) expect(c);

    // 1 + (2^-53 + 2^-105) is just above the midpoint between 1 and the next
    // double: rounding once gives 1 + 2^-52, x87's double rounding gives 1.
    Result r = eval("1+TINY()");
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.num, 1.0 + std::ldexp(1.0, -52));

    // Deleted, the name is plain text again: "REPT(CITY" is a literal and
    // ",2)" a bad term.
    EXPECT_EQ(DBDeleteParseEntry(rname), 0);
    expect({"REPT(CITY,2)", -207, 0, "", 0});
    expect({"AMOUNT+TWICE(QTY)", 0, 'N', "", 1318.5});
}

TEST_F(EvalTest, HostFunctionsComeBeforeFieldsAndMisbehaveSafely) {
    // A row named like a field wins over the field while it is registered.
    char city[] = "CITY";
    ASSERT_EQ(DBAddParseEntry(city, host), 0);
    expect({"NAME+CITY", 0, 'C', kName + "HOST", 0});
    ASSERT_EQ(DBDeleteParseEntry(city), 0);
    expect({"NAME+CITY", 0, 'C', kName + kCity, 0});

    char f1[] = "FAIL(", f2[] = "NOVAL(", f3[] = "BACK(", f4[] = "NEST(";
    ASSERT_EQ(DBAddParseEntry(f1, fails), 0);
    ASSERT_EQ(DBAddParseEntry(f2, noValue), 0);
    ASSERT_EQ(DBAddParseEntry(f3, backwards), 0);
    ASSERT_EQ(DBAddParseEntry(f4, nested), 0);
    const Case cases[] = {
        {"NAME+FAIL(CITY)", -233, 0, "", 0},
        {"UPPER(FAIL(CITY))", -233, 0, "", 0},
        {"NOVAL()", -207, 0, "", 0},
        // Stepping the cursor back would loop for ever.
        {"NAME+BACK()", -207, 0, "", 0},
        // The evaluator's state is global: no evaluation inside another.
        {"NEST()", -212, 0, "", 0},
    };
    for (const Case &c : cases) expect(c);
    // And the evaluator still works afterwards.
    expect({"UPPER(NAME)", 0, 'C', pad("ADA LOVELACE", 20), 0});
}

// ---------------------------------------------------------------------------
// The keys Harbour wrote into its NTX indexes, recomputed
// ---------------------------------------------------------------------------

TEST(EvalFixture, KeysOfTheHarbourIndexes) {
    xbt::TempDir tmp;
    ASSERT_EQ(DBInitialize(64, 7), 0);  // dd.mm.yyyy: the century survives
    std::vector<uint8_t> bytes = xbt::readFile(xbt::fixturePath("hbntx.dbf"));
    ASSERT_GT(bytes.size(), 32u);
    bytes[1] = 26;
    std::string file = tmp.path("hbntx.dbf");
    xbt::writeFile(file, bytes);
    int h = -1;
    ASSERT_EQ(DBOpenFile(&h, file.data(), 1), 0);
    int32_t count = 0;
    ASSERT_EQ(DBGetRecordCount(h, &count), 0);
    ASSERT_EQ(count, 300);

    const struct {
        const char *tag;
        const char *expr;   // as the dump names it
        const char *eval;   // what the evaluator is given
        int type;
    } tags[] = {
        {"byname", "NAME", "NAME", 'C'},
        {"byamount", "AMOUNT", "AMOUNT", 'N'},
        {"byhired", "HIRED", "DTOC(HIRED,1)", 'C'},
        {"bycity", "UPPER(CITY)+NAME", "UPPER(CITY)+NAME", 'C'},
        {"ucity", "CITY", "CITY", 'C'},
        {"byqty", "STR(QTY,5)+NAME", "STR(QTY,5)+NAME", 'C'},
    };
    for (const auto &t : tags) {
        SCOPED_TRACE(t.tag);
        const std::vector<std::string> lines =
            xbt::readLines(xbt::fixturePath(std::string("hbntx_") + t.tag + ".keys.txt"));
        ASSERT_GT(lines.size(), 1u);
        std::istringstream head(lines[0]);
        std::string hash, word, tag, exprword, expr;
        head >> hash >> word >> tag >> exprword >> expr;
        ASSERT_EQ(expr, t.expr);
        const bool unique = lines[0].find(" unique ") != std::string::npos;

        std::map<int32_t, std::string> keys;
        for (size_t i = 1; i < lines.size(); i++) {
            const size_t bar = lines[i].find('|');
            ASSERT_NE(bar, std::string::npos);
            keys[std::atoi(lines[i].substr(0, bar).c_str())] = lines[i].substr(bar + 1);
        }
        if (!unique) ASSERT_EQ(keys.size(), 300u);
        std::set<std::string> distinct;
        for (auto &kv : keys) distinct.insert(kv.second);

        std::string e = t.eval;
        for (int32_t rec = 1; rec <= count; rec++) {
            const int g = DBGetRecord(h, rec);
            ASSERT_TRUE(g == 0 || g == 201) << rec;
            DBEVAL out{};
            ASSERT_EQ(DBEvaluateStr(h, e.data(), &out), 0) << rec;
            ASSERT_EQ(out.etyp, t.type) << rec;
            std::string got;
            if (t.type == 'N') {
                double v;
                std::memcpy(&v, out.eval, sizeof v);
                auto it = keys.find(rec);
                ASSERT_NE(it, keys.end());
                EXPECT_EQ(v, std::strtod(it->second.c_str(), nullptr)) << rec;
            } else {
                got.assign(out.eval, static_cast<size_t>(out.elen));
                if (unique) {
                    EXPECT_TRUE(distinct.count(got)) << rec << " [" << got << "]";
                    auto it = keys.find(rec);
                    if (it != keys.end()) EXPECT_EQ(got, it->second) << rec;
                } else {
                    EXPECT_EQ(got, keys[rec]) << rec;
                }
            }
            DBFreeMemory(out.eval, "test", __LINE__);
        }
    }
    // The date field itself is a date in the default style.
    ASSERT_EQ(DBGetRecord(h, 1), 0);
    char hired[] = "HIRED";
    DBEVAL out{};
    ASSERT_EQ(DBEvaluateStr(h, hired, &out), 0);
    EXPECT_EQ(out.etyp, 'D');
    EXPECT_EQ(std::string(out.eval, static_cast<size_t>(out.elen)), "03.10.1980");
    DBFreeMemory(out.eval, "test", __LINE__);
    DBCloseFile(h);
    DBTerminate();
}
