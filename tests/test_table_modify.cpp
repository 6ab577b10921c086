// test_table_modify.cpp - DBModifyFile: every conversion between field
// types, records and deleted marks kept, memo files of each kind rewritten,
// gained and dropped, python3-dbfread reading the result, and the change
// killed or failed after each of its steps.
#include "memo_util.h"
#include "seams.h"
#include "tablea_util.h"

#include <dirent.h>

#include <cmath>
#include <functional>
#include <map>
#include <set>

using tablea::cs;
using tablea::fld;

namespace {

using Bytes = std::vector<uint8_t>;
using Files = std::map<std::string, Bytes>;

template <class T>
std::string raw(T v) {
    return std::string(reinterpret_cast<const char *>(&v), sizeof v);
}

// The bytes of field `field` of record `rec` (1-based) of a DBF file, and
// its deletion byte.
std::string fieldBytes(const std::string &path, int rec, int field, char *mark = nullptr) {
    const Bytes b = xbt::readFile(path);
    const int h = b[8] | b[9] << 8, r = b[10] | b[11] << 8;
    size_t at = static_cast<size_t>(h + (rec - 1) * r);
    if (mark) *mark = static_cast<char>(b.at(at));
    at++;
    for (int i = 0; i < field; i++) at += b[32 + 32 * i + 11] == 'C' ? b[48 + 32 * i] + 256 * b[49 + 32 * i] : b[48 + 32 * i];
    const int w = b[32 + 32 * field + 11] == 'C' ? b[48 + 32 * field] + 256 * b[49 + 32 * field] : b[48 + 32 * field];
    return std::string(b.begin() + static_cast<long>(at), b.begin() + static_cast<long>(at) + w);
}

class Modify : public xbt::LibTest {
protected:
    std::set<std::string> names() {
        std::set<std::string> out;
        DIR *d = opendir(tmp_.dir().c_str());
        for (dirent *e; d && (e = readdir(d));)
            if (e->d_name[0] != '.') out.insert(e->d_name);
        if (d) closedir(d);
        return out;
    }
    Files all() {
        Files out;
        for (const std::string &n : names()) out[n] = xbt::readFile(path(n));
        return out;
    }
    void restore(const Files &f) {
        for (const std::string &n : names()) std::remove(path(n).c_str());
        for (const auto &[n, bytes] : f) xbt::writeFile(path(n), bytes);
    }
    std::string t() const { return path("t.dbf"); }
};

// One field of each case, alone in a style-2 table (which has 'F' and
// 20-digit numbers), one record, changed to the new field: the new bytes
// and the status. Dates are read in the default style 1 (mm/dd/yy).
TEST_F(Modify, EveryConversion) {
    const struct {
        int ot, ol, od;
        std::string in;
        int nt, nl, nd;
        std::string want;
        int st;
    } cases[] = {
        {'C', 10, 0, "abc       ", 'C', 5, 0, "abc  ", 0},
        {'C', 10, 0, "abcdefgh  ", 'C', 5, 0, "abcde", DBW_TRUNCATED},
        {'C', 5, 0, "  abc", 'C', 8, 0, "  abc   ", 0},
        {'C', 8, 0, " 12.345 ", 'N', 8, 2, "   12.35", DBW_ROUNDED},
        {'C', 8, 0, "-0.125  ", 'N', 5, 2, "-0.13", DBW_ROUNDED},
        {'C', 6, 0, "  0.5 ", 'N', 4, 2, "0.50", 0},
        {'C', 6, 0, " -0.5 ", 'F', 4, 2, "-.50", 0},
        {'C', 8, 0, "abc     ", 'N', 5, 0, "     ", DBW_TRUNCATED},
        {'C', 8, 0, "1e5     ", 'N', 8, 0, "        ", DBW_TRUNCATED},
        {'C', 8, 0, "123456  ", 'N', 5, 0, "     ", DBW_TRUNCATED},
        {'C', 5, 0, "     ", 'N', 3, 0, "   ", 0},
        {'N', 8, 2, "   12.50", 'C', 6, 0, "12.50 ", 0},
        {'N', 8, 2, "-1234.50", 'C', 5, 0, "     ", DBW_TRUNCATED},
        {'N', 6, 2, "  1.25", 'N', 4, 1, " 1.3", DBW_ROUNDED},
        {'N', 6, 2, " -1.25", 'N', 4, 1, "-1.3", DBW_ROUNDED},
        {'N', 6, 2, "  1.20", 'N', 5, 0, "    1", DBW_ROUNDED},
        {'N', 6, 2, "  1.00", 'N', 3, 0, "  1", 0},
        {'N', 8, 3, "   9.999", 'N', 5, 2, "10.00", DBW_ROUNDED},
        {'N', 5, 0, "12345", 'N', 4, 0, "    ", DBW_TRUNCATED},
        {'N', 5, 0, "  -12", 'N', 6, 2, "-12.00", 0},
        {'N', 20, 0, "12345678901234567890", 'N', 20, 2, std::string(20, ' '), DBW_TRUNCATED},
        {'N', 5, 0, "*****", 'N', 5, 0, "*****", 0},
        {'N', 5, 0, "*****", 'N', 6, 0, "      ", DBW_TRUNCATED},
        {'N', 6, 1, "  -2.5", 1, 2, 0, raw<int16_t>(-3), DBW_ROUNDED},
        {'N', 8, 0, "  100000", 1, 2, 0, "  ", DBW_TRUNCATED},
        {'N', 8, 0, " -100000", 3, 4, 0, raw<int32_t>(-100000), 0},
        {'N', 6, 2, "  0.10", 13, 8, 0, raw(0.1), 0},
        {3, 4, 0, raw<int32_t>(-42), 'N', 5, 0, "  -42", 0},
        {13, 8, 0, raw(2.5), 'N', 5, 1, "  2.5", 0},
        {13, 8, 0, raw(0.1), 'C', 10, 0, "0.1       ", 0},
        {13, 8, 0, raw(1e300), 'N', 20, 0, std::string(20, ' '), DBW_TRUNCATED},
        {1, 2, 0, raw<int16_t>(7), 'C', 3, 0, "7  ", 0},
        {'D', 8, 0, "20240517", 'C', 8, 0, "20240517", 0},
        {'D', 8, 0, "20240517", 'C', 6, 0, "      ", DBW_TRUNCATED},
        {'D', 8, 0, "20240517", 'N', 8, 0, "20240517", 0},
        {'C', 8, 0, "20240229", 'D', 8, 0, "20240229", 0},
        {'C', 8, 0, "05/17/24", 'D', 8, 0, "20240517", 0},
        {'C', 8, 0, "20240230", 'D', 8, 0, "        ", DBW_TRUNCATED},
        {'C', 8, 0, "hello   ", 'D', 8, 0, "        ", DBW_TRUNCATED},
        {'N', 8, 0, "20240517", 'D', 8, 0, "20240517", 0},
        {'L', 1, 0, "T", 'C', 1, 0, "T", 0},
        {'L', 1, 0, "y", 'C', 3, 0, "T  ", 0},
        {'L', 1, 0, "?", 'C', 3, 0, "   ", 0},
        {'C', 5, 0, "false", 'L', 1, 0, "F", 0},
        {'C', 5, 0, ".t.  ", 'L', 1, 0, "T", 0},
        {'C', 5, 0, "maybe", 'L', 1, 0, " ", DBW_TRUNCATED},
        {'C', 1, 0, "?", 'L', 1, 0, " ", 0},
        {'L', 1, 0, "T", 'N', 1, 0, " ", DBW_TRUNCATED},
        {'D', 8, 0, "20240517", 'L', 1, 0, " ", DBW_TRUNCATED},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(1, static_cast<char>(c.ot)) + " '" + c.in + "' -> " + std::to_string(c.nt) + "," +
                     std::to_string(c.nl) + "," + std::to_string(c.nd));
        tablea::RawDbf r;
        r.field("V", c.ot, c.ol, c.od);
        r.records.push_back(" " + c.in);
        r.write(t());
        int h = -1;
        ASSERT_EQ(tablea::open(&h, t(), 2), 0);
        const int before = h;
        std::vector<DBFIELD> f = {fld("v", c.nt, c.nl, c.nd)};
        EXPECT_EQ(DBModifyFile(&h, 1, f.data()), c.st);
        EXPECT_EQ(h, before);
        ASSERT_EQ(DBCloseFile(h), 0);
        EXPECT_EQ(fieldBytes(t(), 1, 0), c.want);
        EXPECT_EQ(xbt::readFile(path("t.BAK")), r.bytes());
    }
}

}  // namespace
