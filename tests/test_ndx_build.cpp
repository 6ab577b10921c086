// NDX files we write, against the layout drawn in ndx.h, read here by a
// reader of the test's own: the header of a new file byte by byte; bulk
// builds over a table (character, numeric and date keys, unique and not)
// node by node; trees changed by adds and deletes node by node; the key
// conversions.
#include "ndx_util.h"

using idx::cs;
using idx::KeyLine;

namespace {

// An independent reading of an NDX file by the documented layout. Fails the
// test at the first byte that disagrees; returns the leaf entries left to
// right, which the callers compare with the entries in key order.
struct Layout {
    std::vector<uint8_t> b;
    int k = 0, m = 0, il = 0;
    int leafDepth = -1;
    long minFill = 1 << 30;
    uint32_t le32(size_t at) const { return idx::le32(b, at); }
    int le16(size_t at) const { return idx::le16(b, at); }
    // Greatest key of the subtree at block, after checking it.
    std::string node(uint32_t block, int depth, bool root, std::vector<KeyLine> &out) {
        EXPECT_GT(block, 0u);
        EXPECT_LT(static_cast<size_t>(block) * 512 + 512, b.size() + 1);
        if (block == 0 || static_cast<size_t>(block) * 512 + 512 > b.size() || depth > 40) return {};
        const size_t at = static_cast<size_t>(block) * 512;
        const uint32_t n = le32(at);
        const bool leaf = le32(at + 4) == 0;
        if (!root) minFill = std::min<long>(minFill, leaf ? n : n + 1);
        EXPECT_LE(n, static_cast<uint32_t>(m)) << "block " << block;
        size_t used = 4 + n * il + (leaf ? 0 : 4);
        for (size_t i = used; i < 512; i++) EXPECT_EQ(b[at + i], 0) << "block " << block << " unused byte " << i;
        std::string top;
        for (uint32_t i = 0; i < n + (leaf ? 0 : 1); i++) {
            const size_t it = at + 4 + i * il;
            const std::string key(reinterpret_cast<const char *>(&b[it + 8]), static_cast<size_t>(k));
            if (i < n)
                for (int p = 8 + k; p < il; p++) EXPECT_EQ(b[it + static_cast<size_t>(p)], 0) << "block " << block << " item " << i << " pad";
            if (leaf) {
                EXPECT_EQ(le32(it), 0u) << "block " << block;
                out.push_back({static_cast<int32_t>(le32(it + 4)), key});
                top = key;
                continue;
            }
            EXPECT_NE(le32(it), 0u) << "block " << block << " child " << i;
            if (i < n) EXPECT_EQ(le32(it + 4), 0u) << "block " << block << " record of interior item " << i;
            const std::string sub = node(le32(it), depth + 1, false, out);
            // The interior key is the greatest key of its child's subtree.
            if (i < n) EXPECT_EQ(sub, key) << "block " << block << " interior key " << i;
            top = sub;
        }
        if (leaf) {
            if (leafDepth < 0) leafDepth = depth;
            EXPECT_EQ(depth, leafDepth) << "block " << block;
        }
        return top;
    }
    std::vector<KeyLine> read(const std::string &f) {
        b = xbt::readFile(f);
        std::vector<KeyLine> out;
        EXPECT_GE(b.size(), 1024u);
        if (b.size() < 1024) return out;
        k = le16(12), m = le16(14), il = le16(18);
        EXPECT_EQ(il, (k + 8 + 3) / 4 * 4);
        EXPECT_EQ(m, (512 - 8) / il);
        EXPECT_EQ(static_cast<size_t>(le32(4)) * 512, b.size()) << "block count";
        for (size_t i : {8, 9, 10, 11, 20, 21, 22}) EXPECT_EQ(b[i], 0) << "header byte " << i;
        const size_t elen = std::strlen(reinterpret_cast<const char *>(&b[24]));
        for (size_t i = 24 + elen; i < 512; i++) EXPECT_EQ(b[i], 0) << "header byte " << i;
        node(le32(0), 0, true, out);
        return out;
    }
};

class NdxBuild : public xbt::LibTest {
protected:
    void SetUp() override {
        LibTest::SetUp();
        ASSERT_EQ(DBSetDefaultDateStyle(2), 0);
        ndxt::makeTable(path("t.dbf"), &t_, kRows);
    }
    static constexpr int kRows = 5000;
    int t_ = -1;
};

// A new file: the header's every byte, and an empty root leaf.
TEST_F(NdxBuild, NewFileByteByByte) {
    struct Case { int type; int len; const char *expr, *stored; int k, t, il, u; } cases[] = {
        {'C', 20, "name + city", "NAME+CITY", 20, 0, 28, 0},
        {'c' | 0x80, 1, "code", "CODE", 1, 0, 12, 1},
        {'C', 100, "UPPER(NAME)", "UPPER(NAME)", 100, 0, 108, 0},
        {'N', 19, "AMOUNT", "AMOUNT", 8, 1, 16, 0},
        {'D' | 0x80, 3, "hired", "HIRED", 8, 1, 16, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.expr);
        const std::string f = path("new.ndx");
        ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), c.type, cs(c.expr), c.len, 2), 0);
        // Root block 1, 2 blocks, key length, keys a node, type, item, unique.
        std::vector<uint8_t> want(1024, 0);
        for (const auto &[at, v] : {std::pair{0, 1}, {4, 2}, {12, c.k}, {14, 504 / c.il}, {16, c.t}, {18, c.il}, {23, c.u}})
            want[static_cast<size_t>(at)] = static_cast<uint8_t>(v);
        std::memcpy(&want[24], c.stored, std::strlen(c.stored));
        EXPECT_EQ(xbt::readFile(f), want);
        const short h = idx::openIndex(idx::kNdx, f);
        char expr[512];
        ASSERT_EQ(DBd3GetIndexKeyExpr(h, expr), 0);
        EXPECT_STREQ(expr, c.stored);
        ASSERT_EQ(DBd3CloseIndex(h), 0);
        EXPECT_EQ(xbt::readFile(f), want);  // nothing written by open and close
    }
    // What create refuses.
    struct Bad { int type, len, dec; const char *expr; int rc; } bad[] = {
        {'C', 0, 0, "A", DBE_KEYLEN}, {'C', 101, 0, "A", DBE_KEYLEN}, {'X', 10, 0, "A", DBE_KEYTYPE},
        {'N', 8, 16, "A", DBE_DECIMALS}, {'N', 8, -1, "A", DBE_DECIMALS}, {'C', 10, 0, "   ", DBE_BADEXPR},
        {'C', 10, 0, nullptr, DBE_BADEXPR}};
    const std::string longExpr(256, 'A');
    for (const Bad &c : bad) {
        const std::string f = path("bad.ndx");
        EXPECT_EQ(DBd3CreateIndex(cs(f.c_str()), c.type, cs(c.expr ? c.expr : longExpr.c_str()), c.len, c.dec), c.rc) << c.type << " " << c.len;
        EXPECT_FALSE(xbt::fileExists(f));
    }
}

// Builds over the table: the entries the table gives, in key order and for
// equal keys by record; every node by the layout; nodes but the root at
// least half full. (DBd3MakeKey against stored keys: NdxXbase64.)
TEST_F(NdxBuild, BuildsAgainstTheTableAndTheLayout) {
    struct Case { const char *name; int type; int len; const char *expr; char kind; bool unique; } cases[] = {
        {"name", 'C', 20, "NAME", 'C', false}, {"uname", 'C' | 0x80, 20, "NAME", 'C', true},
        {"amount", 'N', 10, "AMOUNT", 'N', false}, {"uamount", 'N' | 0x80, 10, "AMOUNT", 'N', true},
        {"hired", 'D', 8, "HIRED", 'D', false}, {"code", 'C', 10, "CODE", 'K', false}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string f = path(std::string(c.name) + ".ndx");
        ASSERT_EQ(DBd3BuildIndex(t_, cs(f.c_str()), c.type, cs(c.expr), c.len, 2), 0);
        const std::vector<KeyLine> want = ndxt::tableKeys(kRows, c.kind, c.unique);
        Layout lay;
        EXPECT_TRUE(idx::same(lay.read(f), want));
        EXPECT_GE(lay.minFill, (lay.m + 1) / 2);
        const short h = idx::openIndex(idx::kNdx, f);
        EXPECT_TRUE(idx::same(idx::walk(idx::kNdx, h, lay.k), want));
        EXPECT_EQ(idx::check(idx::kNdx, h, "built").keys, static_cast<int32_t>(want.size()));
        ASSERT_EQ(DBd3CloseIndex(h), 0);
    }
    // A table without records gives the empty index create wrote.
    int eh = -1;
    ndxt::makeTable(path("empty.dbf"), &eh, 0);
    ASSERT_EQ(DBd3BuildIndex(eh, cs(path("e.ndx").c_str()), 'C', cs("NAME"), 20, 0), 0);
    EXPECT_EQ(xbt::fileSize(path("e.ndx")), 1024);
}

// A built tree changed by adds and deletes, buffered and write-through:
// still every byte by the layout, interior keys exact, entries the model's;
// and both ways of writing give the same file.
TEST_F(NdxBuild, ChangedTreesStayByTheLayout) {
    std::vector<uint8_t> files[2];
    for (int mode : {0, DBO_FLUSH}) {
        SCOPED_TRACE(mode);
        const std::string f = path(mode ? "w.ndx" : "b.ndx");
        ASSERT_EQ(DBd3BuildIndex(t_, cs(f.c_str()), 'C', cs("NAME"), 20, 0), 0);
        const short h = idx::openIndex(idx::kNdx, f, mode);
        idx::Model model(false);
        for (const KeyLine &l : ndxt::tableKeys(kRows, 'C', false)) model.add(l.key, l.rec);
        idx::Rng rng(3);
        for (int i = 0; i < 4000; i++) {
            if (rng.below(3) == 0 || model.empty()) {
                std::string key = "M" + std::to_string(rng.below(4000));
                key.resize(20, ' ');
                model.add(key, kRows + 1 + i);
                ASSERT_EQ(DBd3AddKey(h, cs(key.c_str()), kRows + 1 + i), 0) << i;
            } else {
                const KeyLine e = model.pick(rng.next());
                model.del(e.key, e.rec);
                ASSERT_EQ(DBd3DeleteKey(h, cs(e.key.c_str()), e.rec), 0) << i;
            }
        }
        ASSERT_EQ(DBd3CloseIndex(h), 0);
        files[mode ? 1 : 0] = xbt::readFile(f);
        if (mode) continue;
        Layout lay;
        EXPECT_TRUE(idx::same(lay.read(f), model.entries()));
    }
    EXPECT_EQ(files[0], files[1]);
}

// The key forms: numbers as little-endian doubles, dates as Julian days.
TEST_F(NdxBuild, KeyConversions) {
    const std::string f = path("n.ndx");
    ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), 'N', cs("AMOUNT"), 8, 0), 0);
    short h = idx::openIndex(idx::kNdx, f);
    char key[16];
    for (double v : {0.0, -0.0, 1.5, -1.5, 1e300, -2.25e-10}) {
        ASSERT_EQ(DBd3DoubleToKey(h, key, v), 0);
        EXPECT_EQ(std::string(key, 8), ndxt::dbl(v == 0 ? 0.0 : v)) << v;  // -0 is stored as 0
        EXPECT_EQ(key[8], '\0');
        double back = 1;
        ASSERT_EQ(DBd3KeyToDouble(&back, key), 0);
        EXPECT_EQ(back, v);
    }
    struct D { const char *date; int style; int32_t day; } dates[] = {
        {"20000101", 4, 2451545}, {"31.12.1999", 7, 2451544}, {"01/01/0001", 2, 1721426},
        {"12/31/9999", 2, 5373484}, {"  /  /    ", 2, 0}};
    for (const D &d : dates) {
        ASSERT_EQ(DBd3DateToKey(key, cs(d.date), d.style), 0) << d.date;
        EXPECT_EQ(ndxt::val(std::string(key, 8)), d.day) << d.date;
        char back[32] = "x";
        ASSERT_EQ(DBd3KeyToDate(back, d.style, key), 0) << d.date;
        EXPECT_STREQ(back, d.day ? d.date : "") << d.date;
    }
    EXPECT_EQ(DBd3DateToKey(key, cs("02/30/2024"), 2), DBE_BADDATE);
    EXPECT_EQ(DBd3DateToKey(key, cs("01/01/2000"), 16), DBE_BADCOMMAND);
    char back[32];
    for (double v : {0.5, 1721425.0, 5373485.0}) {
        ASSERT_EQ(DBd3DoubleToKey(h, key, v), 0);
        EXPECT_EQ(DBd3KeyToDate(back, 2, key), DBE_BADDATE) << v;
    }
    ASSERT_EQ(DBd3CloseIndex(h), 0);
    // A character index has no numeric key form, and over a number it is no
    // key at all; nor is a numeric index over a name.
    ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), 'C', cs("AMOUNT"), 10, 0), 0);
    h = idx::openIndex(idx::kNdx, f);
    EXPECT_EQ(DBd3DoubleToKey(h, key, 1.0), DBE_KEYTYPE);
    ASSERT_GE(DBGetRecord(t_, 1), 0);
    char *made = nullptr;
    EXPECT_EQ(DBd3MakeKey(t_, h, &made), DBE_BADEXPR);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(DBd3BuildIndex(t_, cs(path("bad.ndx").c_str()), 'N', cs("NAME"), 8, 0), DBE_BADEXPR);
    EXPECT_FALSE(xbt::fileExists(path("bad.ndx")));
    ASSERT_EQ(DBd3CloseIndex(h), 0);
}

}  // namespace
