// NTX indexes we create and fill: the file's bytes against the format, the
// sort's spill path, the key makers. (Builds over the Harbour table, checked
// record by record against keys made as Harbour's own indexes hold them:
// XbTool.CheckReindexAndPack.)
#include "index_util.h"

#include "btree.h"

using idx::cs;

namespace {

class NtxBuild : public xbt::LibTest {
protected:
    void SetUp() override {
        LibTest::SetUp();
        const std::string table = idx::openableTable(*this, path("hbntx.dbf"), "hbntx.dbf");
        ASSERT_EQ(DBOpenFile(&t_, cs(table.c_str()), 1), 0);
    }
    void TearDown() override {
        DBsort_budget = static_cast<size_t>(64) << 20;
        LibTest::TearDown();
    }
    int t_ = -1;
};

// A new file's bytes: header fields at their offsets, the empty root page
// with its offsets in slot order, nothing else.
TEST_F(NtxBuild, CreatedFileFollowsTheLayout) {
    struct Case { int type, len, dec; int item, max, u; } cases[] = {
        {'C', 20, 0, 28, 32, 0}, {'c' | 0x80, 1, 0, 9, 90, 1}, {'C', 200, 0, 208, 2, 0},
        {'N', 10, 2, 18, 50, 0}, {'D', 3, 5, 16, 54, 0}};
    for (const Case &c : cases) {
        const std::string f = path("new.ntx");
        ASSERT_EQ(DBclCreateIndex(cs(f.c_str()), c.type, cs("upper( name ) "), c.len, c.dec), 0);
        const int dec = (c.type & ~0xA0) == 'N' ? c.dec : 0;
        std::vector<uint8_t> want(2048, 0);
        for (const auto &[at, v] : {std::pair{0, 6}, {2, 1}, {4, 1024}, {12, c.item}, {14, c.item - 8}, {16, dec},
                                    {18, c.max}, {20, c.max / 2}, {278, c.u}})
            idx::put16(want, static_cast<size_t>(at), static_cast<uint32_t>(v));
        std::memcpy(&want[22], "UPPER(NAME)", 11);
        for (int i = 0; i <= c.max; i++)
            idx::put16(want, static_cast<size_t>(1026 + 2 * i), static_cast<uint32_t>(2 * c.max + 4 + i * c.item));
        EXPECT_EQ(xbt::readFile(f), want);
    }
    const std::string f = path("bad.ntx");
    EXPECT_EQ(DBclCreateIndex(cs(f.c_str()), 'X', cs("NAME"), 10, 0), DBE_KEYTYPE);
    EXPECT_EQ(DBclCreateIndex(cs(f.c_str()), 'C', cs("NAME"), 201, 0), DBE_KEYLEN);
    EXPECT_EQ(DBclCreateIndex(cs(f.c_str()), 'N', cs("NAME"), 20, 0), DBE_KEYLEN);
    EXPECT_EQ(DBclCreateIndex(cs(f.c_str()), 'N', cs("NAME"), 10, 9), DBE_DECIMALS);
    EXPECT_EQ(DBclCreateIndex(cs(f.c_str()), 'C', cs(std::string(256, 'A').c_str()), 10, 0), DBE_BADEXPR);
    EXPECT_FALSE(xbt::fileExists(f));
}

// An index is the same file, byte for byte, whether its keys were sorted in
// memory or through runs spilled to a temporary file (about 45 keys a run:
// seven runs of 300 records), and no temporary file is left behind.
TEST_F(NtxBuild, SpilledSortBuildsTheSameFileInEveryFamily) {
    const struct { const char *file; int (*build)(int, char *, int, char *, int, int); int type; const char *expr; int len; } cases[] = {
        {"c.ntx", DBclBuildIndex, 'C', "UPPER(CITY)+NAME", 35}, {"u.ntx", DBclBuildIndex, 'C' | 0x80, "CITY", 15},
        {"c.ndx", DBd3BuildIndex, 'C', "UPPER(CITY)+NAME", 35}, {"n.ndx", DBd3BuildIndex, 'N', "AMOUNT", 8},
        {"c.idx", nullptr, 'C' | 0x400, "UPPER(CITY)+NAME", 35}};
    for (const auto &c : cases) {
        std::vector<uint8_t> files[2];
        for (int spill = 0; spill < 2; spill++) {
            DBsort_budget = spill ? 2000 : static_cast<size_t>(64) << 20;
            const std::string f = path(std::to_string(spill) + c.file);
            int h = -1;
            if (c.build) {
                ASSERT_EQ(c.build(t_, cs(f.c_str()), c.type, cs(c.expr), c.len, 0), 0) << c.file;
            } else {
                ASSERT_EQ(DBfbCreateIndex(cs(f.c_str()), c.type, cs(c.expr), c.len, nullptr), 0);
                ASSERT_EQ(DBfbOpenIndex(&h, cs(f.c_str()), 0) | DBfbBuildIndex(t_, h) | DBfbCloseIndex(h), 0);
            }
            EXPECT_FALSE(xbt::fileExists(path("STKS0.TMP"))) << c.file;
            files[spill] = xbt::readFile(f);
        }
        EXPECT_EQ(files[0], files[1]) << c.file;
    }
}

// Keys of every kind through the key makers: dates before 2000 stay in
// their century with a four-digit style; numbers and dates round-trip.
TEST_F(NtxBuild, KeyConversions) {
    const std::string f = path("n.ntx");
    ASSERT_EQ(DBclCreateIndex(cs(f.c_str()), 'N', cs("AMOUNT"), 6, 2), 0);
    const short h = idx::openIndex(idx::kNtx, f);
    char key[64];
    // Negative numbers are stored complemented; too many digits are cut.
    const struct { double v; const char *key; double back; } numbers[] = {
        {-1.5, ",,+.',", -1.5}, {123.456, "123.45", 123.45}};
    for (const auto &n : numbers) {
        ASSERT_EQ(DBclDoubleToKey(h, key, n.v), 0);
        EXPECT_STREQ(key, n.key);
        double v = 0;
        ASSERT_EQ(DBclKeyToDouble(&v, key), 0);
        EXPECT_EQ(v, n.back) << n.key;
    }
    // Keys of numbers sort as the numbers.
    std::string prev;
    for (double x : {-999.99, -12.5, -1.5, -0.25, 0.0, 0.25, 1.5, 12.5, 999.99}) {
        ASSERT_EQ(DBclDoubleToKey(h, key, x), 0);
        EXPECT_LT(prev, std::string(key)) << x;
        prev = key;
    }
    EXPECT_EQ(DBclCloseIndex(h), 0);
    // Dates before 2000 keep their century in a four-digit style; an empty
    // date is a blank key, and a blank key leaves the date alone.
    char date[16] = "xxxxxxxxxx";
    ASSERT_EQ(DBclDateToKey(key, cs("07/04/1969"), 2), 0);
    EXPECT_STREQ(key, "19690704");
    ASSERT_EQ(DBclKeyToDate(date, 7, key), 0);
    EXPECT_STREQ(date, "04.07.1969");
    std::memset(key, 'x', sizeof key);
    ASSERT_EQ(DBclDateToKey(key, cs("  /  /    "), 2), 0);
    EXPECT_EQ(std::string(key, 10), std::string("        x") + '\0');
    std::strcpy(date, "unchanged");
    std::strcpy(key, "        ");
    ASSERT_EQ(DBclKeyToDate(date, 2, key), 0);
    EXPECT_STREQ(date, "unchanged");
    EXPECT_EQ(DBclDateToKey(key, cs("13/45/2000"), 2), DBE_BADDATE);
}

}  // namespace
