// test_eval.cpp - the key-expression evaluator on real tables: terms, built-ins and their corners,
// the parse-entry table and host functions. (Every key of the Harbour NTX fixtures, recomputed
// through the evaluator, is test_ntx_build's BuildsGiveTheDumpsSequences.)
#include "xbtest.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "eval.h"

namespace {

std::string times(const std::string &s, int n) { std::string r; while (n-- > 0) r += s; return r; }
std::string pad(const std::string &s, size_t n) { return s.substr(0, n) + std::string(n - std::min(n, s.size()), ' '); }
// A value as the tests compare it: its type letter, then its bytes (a number printed exactly).
std::string C(const std::string &s) { return "C" + s; }
std::string N(double d) { char b[40]; std::snprintf(b, sizeof b, "N%.17g", d); return b; }
using V = std::vector<int>;
const std::string kName = pad("Ada Lovelace", 20), kCity = pad("London", 15), kUp = pad("ADA LOVELACE", 20);

// Evaluate expr on table h into "status|value". A failure must hand back no value (not even the
// previous one); a number is 8 bytes, a string ends in NUL at elen.
std::string evaluate(int h, std::string expr) {
    DBEVAL out{reinterpret_cast<char *>(1), 'X', -1};
    std::string v = std::to_string(DBEvaluateStr(h, expr.data(), &out)) + "|";
    if (v[0] == '-' || !out.eval) return v + (out.eval ? "stale value" : "");
    double d = 0;
    if (out.etyp == 'N') std::memcpy(&d, out.eval, sizeof d);
    v += out.etyp == 'N' ? N(d) : static_cast<char>(out.etyp) + std::string(out.eval, std::max<int>(out.elen, 0));
    EXPECT_TRUE(out.etyp == 'N' ? out.elen == 8 : std::strchr("LM", out.etyp) || !out.eval[out.elen]) << expr;
    DBFreeMemory(out.eval, "test", __LINE__);
    return v;
}

// Leave a fresh copy of n bytes as a host function's value.
int32_t give(DBEVALTEMP *t, int type, const void *v, size_t n) {
    void *out = nullptr;
    if (DBAllocateMemoryLog(&out, n, "test", __LINE__) != 0) return -203;
    *t = {std::memcpy(out, v, n), static_cast<int16_t>(type), static_cast<int16_t>(n), t->xprsn};
    return 0;
}

struct Case { std::string expr; int status; std::string want = ""; };

// A table of three rows (ordinary, blank, bytes above 127) whose numbers are exact in binary.
class EvalTest : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        DBFIELD f[] = {{"NAME", 'C', 20, 0}, {"CITY", 'C', 15, 0}, {"AMOUNT", 'N', 10, 2}, {"TAX", 'N', 8, 2},
                       {"QTY", 'N', 5, 0},   {"HIREDATE", 'D', 8, 0}, {"ACTIVE", 'L', 1, 0}, {"NOTES", 'M', 10, 0}};
        const char *vals[] = {"Ada Lovelace", "London", "1234.50", "12.25", "42", "19870217", "T", "17",
                              "", "Paris", "-7.50", "0.00", "0", "", "F", "",
                              "j\xF6rg m\xFCller", "K\xF6ln", "0.25", "0.50", "7", "20240229", "F", "3"};
        std::string file = path("people.dbf");
        ASSERT_EQ(DBCreateFile(file.data(), 8, f, 4), 0);
        ASSERT_EQ(DBOpenFile(&h_, file.data(), 4), 0);
        for (int i = 0; i < 24; i++) {
            ASSERT_GE(DBPutStrField(h_, i % 8, std::string(vals[i]).data()), 0) << i;
            if (i % 8 == 7) ASSERT_EQ(DBPutRecord(h_, &recno_, DB_APPEND), 0);
        }
        ASSERT_EQ(DBGetRecord(h_, 1), 0);
    }
    void check(std::initializer_list<Case> cases) {
        for (const Case &c : cases)
            EXPECT_EQ(evaluate(h_, c.expr), std::to_string(c.status) + "|" + c.want) << c.expr.substr(0, 60);
    }
    int h_ = -1, recno_ = 0;
};

}  // namespace

// The rules and their quirks: "-" joins strings too, a first term's operator means nothing, later
// dates/logicals/memos vanish, UPPE( and LOWER( cross over, a misspelt field is its own text; a
// blank field is a value (0, not 212), a blank date's key eight blanks; only ASCII changes case.
TEST_F(EvalTest, TermsOperatorsAndBuiltins) {
    const std::string low = pad("ada lovelace", 20);
    check({{"", 0, " "}, {"name", 0, C(kName)}, {"NAME+CITY", 0, C(kName + kCity)}, {"NAME-CITY", 0, C(kName + kCity)},
           {"AMOUNT+TAX", 0, N(1246.75)}, {"AMOUNT+12.5-TAX", 0, N(1234.75)}, {"-AMOUNT", 0, N(1234.5)},
           {"NAME+HIREDATE+ACTIVE+NOTES", 0, C(kName)}, {"AMOUNT+HIREDATE", 0, N(1234.5)}, {"HIREDATE", 0, "D02/17/87"},
           {"ACTIVE", 0, "L\1"}, {"NOTES", 0, std::string("M\x11\0\0\0", 5)}, {"UPPE(NAME)", 0, C(low)},
           {"LOWER(NAME)", 0, C(kUp)}, {"UPPER(NAME)", 0, C(kUp)}, {"LOWE(NAME)", 0, C(low)}, {"12.5+AMOUNT", 0, N(1247)},
           {"STR(AMOUNT,8,2)", 0, C(" 1234.50")}, {"DTOC(HIREDATE)", 0, C("02/17/87")}, {"STR(QTY)", 0, C("        42")},
           {"DTOC(HIREDATE,1)", 0, C("20870217")},  // the century is lost: 87 is 2087
           {"SUBSTR(NAME,3)", 0, C(kName.substr(2))}, {"SUBSTR(NAME,3,2)", 0, C("a ")}, {"SUBS(NAME,5,4)", 0, C("Love")},
           {"SUBST(NAME,5,4)", 0, C("Love")}, {"LEFT(NAME,3)", 0, C("Ada")}, {"RIGHT(LEFT(NAME,12),4)", 0, C("lace")},
           {"RIGH(LEFT(NAME,12),8)", 0, C("Lovelace")}, {"PADR(CITY,20)", 0, C(pad("London", 20))}, {"XYZ", 0, C("XYZ")},
           {"PADR(CITY,3)", 0, C("Lon")}, {"LEFT(NAME,3)CITY", 0, C("Ada" + kCity)}, {"ABCDEFGHIJ", 0, C("ABCDEFGHIJ")},
           {"upper(left(name,3))+str(qty,5)", 0, C("ADA   42")}});
    for (const char *e : {"AMOUNT+NAME", "NAME+AMOUNT", "AMOUNT+STR(QTY)", "HIREDATE+NAME", "HIREDATE+AMOUNT",
                          "UPPER(AMOUNT)", "STR(AMOUNT,8,2,1)", "STR(NAME)", "DTOC(NAME)", "ABCDEFGHIJK", "NAME+",
                          "NAME,3", "LEFT(NAME)", "LEFT(NAME,)", "UPPER(NAME", "DTOC(HIREDATE,1", "SUBSTR(NAME,3,2",
                          "STR(AMOUNT,-5)", "STR(AMOUNT,5,-1)", "LEFT(NAME,99999)", "PADR(NAME,30000)+PADR(NAME,9999)"})
        check({{e, -207}});
    ASSERT_EQ(DBSetDefaultDateStyle(7), 0);  // a four-digit style keeps the century
    check({{"DTOC(HIREDATE,1)", 0, C("19870217")}, {"DTOC(HIREDATE)", 0, C("17.02.1987")}});
    ASSERT_EQ(DBSetDefaultDateStyle(1), 0);
    ASSERT_EQ(DBGetRecord(h_, 2), 0);
    check({{"NAME", 0, C(pad("", 20))}, {"HIREDATE", 0, "D  /  /  "}, {"DTOC(HIREDATE,1)", 0, C(pad("", 8))}});
    ASSERT_EQ(DBGetRecord(h_, 3), 0);
    check({{"UPPER(NAME)", 0, C(pad("J\xF6RG M\xFCLLER", 20))}, {"LOWE(UPPER(CITY))", 0, C(pad("k\xF6ln", 15))}});
}

// Lengths that come from the text, not the field, stay inside the buffers (the sanitizer build
// watches): numbers wider than STR's width print whole, counts past the end take what there is,
// negative ones nothing, deep nesting fails. STR( prints as the C library's "%w.df" does.
TEST_F(EvalTest, LengthsLeftToTheText) {
    check({{"PADR(NAME,300)", 0, C(pad("Ada Lovelace", 300))}, {"UPPER(PADR(NAME,40))+CITY", 0, C(pad(kUp, 40) + kCity)},
           {"STR(AMOUNT,3,2)+NAME", 0, C("1234.50" + kName)}, {"UPPER(STR(AMOUNT,2,1))", 0, C("1234.5")},
           {"STR(AMOUNT,5,300)", 0, C("1234.5" + times("0", 299))}, {"LEFT(NAME,50)", 0, C(kName)},
           {"RIGHT(NAME,50)", 0, C(kName)}, {"SUBSTR(NAME,30)+CITY", 0, C(kCity)}, {"RIGHT(NAME,-2)", 0, "C"},
           {"SUBSTR(NAME,3,99)", 0, C(kName.substr(2))}, {"LEFT(NAME,-1)+CITY", 0, C(kCity)}, {"PADR(NAME,-3)", 0, "C"},
           {"SUBSTR(NAME,0,3)", 0, C("Ada")}, {"SUBSTR(NAME,2,-1)", 0, "C"}, {"UPPER(LEFT(NAME,2))", 0, C("AD")},
           {times("LOWER(", 20) + "NAME" + times(")", 20), 0, C(kUp)},
           {times("UPPER(", 5000) + "NAME" + times(")", 5000), -207}});
    // Whole numbers are printed by the evaluator itself; up to 5 characters go through QTY.
    for (std::string num : {"0", "7", "-7", "42", "99999", "-9999", "-0", "2.5", "-3.5", "1e4", "9999999999", "0.5"}) {
        if (num.size() <= 5) ASSERT_EQ(DBPutStrField(h_, 4, num.data()), 0);
        for (int k = 0; k < 12; k++) {  // widths 0 to 15, no or one decimal
            char expr[40], want[64];
            std::snprintf(expr, sizeof expr, "STR(%s,%d,%d)", num.size() > 5 ? num.c_str() : "QTY", k / 2 * 3, k % 2);
            std::snprintf(want, sizeof want, "%*.*f", k / 2 * 3, k % 2, std::stod(num));
            check({{expr, 0, C(want)}});
        }
    }
}

// REPT(term,n): the term's string n times, from its own arguments. On failure fval names a
// freed block, which the evaluator must leave alone.
static int32_t rept(DBEVALTEMP *t) {
    int rc = DBProcessTable();
    if (rc < 0) return rc;
    char *arg = static_cast<char *>(t->fval);
    int16_t n = 0;
    if (t->ftyp != 'C' || (rc = DBGetValue(&n)) < 0 || *t->xprsn++ != ')') rc = rc < 0 ? rc : -207;
    const std::string s = rc < 0 ? "" : times(arg, n);
    DBFreeMemory(arg, "test", __LINE__);
    return rc < 0 ? rc : give(t, 'C', s.c_str(), s.size() + 1);
}

// Null arguments and bad handles give their status and no value; the cursor functions refuse to
// work outside an evaluation.
TEST_F(EvalTest, BadArguments) {
    char expr[] = "NAME";
    int16_t v = 5;
    for (int bad : {-1, 0, 2, 63, 64, 1000}) EXPECT_EQ(evaluate(bad, expr), "-213|") << bad;
    EXPECT_EQ(V({DBEvaluateStr(h_, expr, nullptr), DBAddParseEntry(expr, nullptr), DBGetTableInfo(&recno_, nullptr),
                 DBProcessTable(), DBGetValue(&v), v}),
              V({-221, -221, -221, -212, -212, 5}));
}

// The parse-entry table stays sorted by unsigned bytes whatever the order of registration and
// deletion, a text that begins with a name is that name, and the table goes with its last row.
TEST_F(EvalTest, ParseTableKeepsSortedRows) {
    auto nop = [](DBEVALTEMP *) -> int32_t { return 0; };
    std::vector<std::string> names = {"fun(", "\xC4X("}, sorted;
    auto expectRows = [&] {
        char b[64];
        for (size_t i = 0; i <= sorted.size(); i++) {
            EXPECT_EQ(DBGetEntryStr(b, static_cast<int>(i)), i < sorted.size() ? 0 : 203) << i;
            if (i < sorted.size()) EXPECT_EQ(b, sorted[i]);
        }
    };
    int n = -1, longest = -1;
    char missing[] = "X(", dup[] = "F07(X", shorter[] = "F07", empty[] = "";
    EXPECT_EQ(V({DBGetTableInfo(&n, &longest), DBDeleteParseEntry(missing)}), V({202, 204}));
    for (int i = 0; i < 43; i++) names.push_back("F" + std::to_string(100 + i * 17 % 43).substr(1) + "(");
    for (std::string &s : names) ASSERT_EQ(DBAddParseEntry(s.data(), nop), 0) << s;
    sorted = names;
    std::sort(sorted.begin(), sorted.end());
    expectRows();
    EXPECT_EQ(V({DBGetTableInfo(&n, &longest), n, longest, DBAddParseEntry(dup, nop), DBDeleteParseEntry(shorter),
                 DBAddParseEntry(empty, nop)}), V({0, 45, 4, 211, 204, -207}));
    for (size_t i = 0; i < names.size(); i++) {
        std::string s = names[i * 7 % names.size()];
        ASSERT_EQ(DBDeleteParseEntry(s.data()), 0) << s;
        sorted.erase(std::find(sorted.begin(), sorted.end(), s));
        if (i % 11 == 0) expectRows();
    }
    EXPECT_EQ(DBGetTableInfo(&n, &longest), 202);
    EXPECT_EQ(DBeval_tbl, nullptr);
}

// A host function's value joins built-ins and "+" sequences; deleted, its name is plain text
// again. A row named like a field wins while registered. Failing, valueless, backward-stepping
// (endless) and nested (the state is global) functions end in a status; the evaluator goes on.
TEST_F(EvalTest, HostFunctions) {
    const struct { const char *name; DBPTEF f; } fns[] = {
        {"REPT(", rept}, {"NOVAL(", [](DBEVALTEMP *t) -> int32_t { return t->xprsn++, 0; }},
        {"LOOP(", [](DBEVALTEMP *t) -> int32_t { return t->xprsn -= 5, give(t, 'N', "\0\0\0\0\0\0\0", 8); }},
        {"TINY()", [](DBEVALTEMP *t) -> int32_t { const double v = 0x1p-53 + 0x1p-105; return give(t, 'N', &v, 8); }},
        {"FAIL(", [](DBEVALTEMP *t) -> int32_t {
             return (DBProcessTable() == 0 ? DBFreeMemory(t->fval, "test", __LINE__) : 0), t->fval = nullptr, -233; }},
        {"NEST(", [](DBEVALTEMP *) -> int32_t { return evaluate(3, "NAME") == "-212|" ? -212 : -1; }},
        {"TAX", [](DBEVALTEMP *t) -> int32_t { return give(t, 'C', "HOST", 5); }}};  // named like a field
    for (const auto &f : fns) ASSERT_EQ(DBAddParseEntry(std::string(f.name).data(), f.f), 0) << f.name;
    // 1+TINY() rounds once, to 1 + 2^-52, in every build; x87's double rounding would give 1.
    check({{"REPT(CITY,2)", 0, C(kCity + kCity)}, {"UPPER(REPT(LEFT(CITY,3),2))", 0, C("LONLON")}, {"TAX", 0, "CHOST"},
           {"LEFT(REPT(CITY,2),18)", 0, C(kCity + "Lon")}, {"NAME+REPT(LEFT(CITY,3),2)", 0, C(kName + "LonLon")},
           {"REPT(REPT(LEFT(NAME,1),2),3)", 0, C("AAAAAA")}, {"REPT(NAME,0)+CITY", 0, C(kCity)},
           {"1+TINY()", 0, N(1 + 0x1p-52)}, {"REPT(AMOUNT,2)", -207}, {"REPT(CITY)", -207}, {"rept(CITY,2)", -207},
           {"NAME+FAIL(CITY)", -233}, {"UPPER(FAIL(CITY))", -233}, {"NOVAL()", -207}, {"1+LOOP()", -207}, {"NEST()", -212}});
    for (const auto &f : fns) ASSERT_EQ(DBDeleteParseEntry(std::string(f.name).data()), 0) << f.name;
    check({{"REPT(CITY,2)", -207}, {"TAX", 0, N(12.25)}, {"UPPER(NAME)", 0, C(kUp)}});
}
