// NDX trees under change: long runs of random adds and deletes against an
// ordered model, with the whole tree checked every few operations (key
// order, interior keys equal to their subtrees' greatest, reachability,
// the blocks held for reuse), for unique and non-unique indexes, character
// keys short and long, numeric keys, buffered and write-through, across
// close and reopen; the root at the edges; navigation and search modes.
#include "ndx_util.h"

using idx::cs;
using idx::KeyLine;
using ndxt::walk;

namespace {

class NdxTree : public xbt::LibTest {
protected:
    DBINDEXCHECK check(short h, const std::string &what) {
        DBINDEXCHECK c;
        EXPECT_EQ(DBd3CheckIndex(h, &c, 1), 0) << what << ": " << c.msg;
        return c;
    }
};

struct TreeRun {
    const char *name;
    int type;         // 'C' or 'N'
    int keylen;
    bool unique;
    int mode;
    int ops;
    uint32_t values;  // distinct key values drawn from
    int every;        // whole-tree check every so many operations
};

// Long keys make four keys a node, so splits, unlinked nodes and root
// changes come within a few hundred operations; short keys make wide nodes
// and long runs of duplicates that straddle leaves.
TEST_F(NdxTree, RandomAddsAndDeletesMatchTheModel) {
    const TreeRun runs[] = {
        {"k100 non-unique", 'C', 100, false, 0, 3000, 300, 20},
        {"k100 unique write-through", 'C', 100, true, DBO_FLUSH, 2000, 400, 20},
        {"k4 duplicates", 'C', 4, false, 0, 30000, 40, 600},
        {"k4 unique", 'C', 4, true, 0, 20000, 5000, 600},
        {"numeric duplicates", 'N', 8, false, 0, 20000, 300, 600},
        {"numeric unique write-through", 'N', 8, true, DBO_FLUSH, 6000, 4000, 300},
    };
    for (const TreeRun &r : runs) {
        SCOPED_TRACE(r.name);
        const std::string f = path("tree.ndx");
        ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), r.type | (r.unique ? 0x80 : 0), cs("K"), r.keylen, 0), 0);
        short h = -1;
        ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), r.mode), 0);
        const bool num = r.type == 'N';
        const int k = num ? 8 : r.keylen;
        idx::Model model(r.unique);
        idx::Rng rng(static_cast<uint64_t>(r.keylen) * 31 + static_cast<uint64_t>(r.ops) + (num ? 7 : 0));
        int32_t nextRec = 1;
        auto stored = [&](const std::string &m) { return num ? ndxt::dbl(ndxt::unordered(m)) : m; };
        for (int op = 0; op < r.ops; op++) {
            const bool grow = op < r.ops / 2 ? rng.below(10) < 7 : rng.below(10) < 3;
            if (grow || model.empty()) {
                std::string key;
                if (num) {
                    key = ndxt::ordered((static_cast<double>(rng.below(r.values)) - r.values / 2.0) * 0.25);
                } else {
                    char v[16];
                    std::snprintf(v, sizeof v, "%04u", rng.below(r.values) % 10000);
                    key = v;
                    key.resize(static_cast<size_t>(r.keylen), '.');
                }
                const int32_t rec = rng.below(4) == 0 && !model.empty() ? model.pick(rng.next()).rec : nextRec++;
                const bool fresh = model.add(key, rec);
                const std::string s = stored(key);
                ASSERT_EQ(DBd3AddKey(h, cs(s.c_str()), rec), fresh ? 0 : DBW_EXISTS) << "op " << op;
            } else {
                const KeyLine e = model.pick(rng.next());
                const std::string s = stored(e.key);
                ASSERT_EQ(DBd3DeleteKey(h, cs(s.c_str()), e.rec), 0) << "op " << op;
                model.del(e.key, e.rec);
                if (op % 97 == 0)
                    EXPECT_EQ(DBd3DeleteKey(h, cs(s.c_str()), e.rec), model.empty() ? DBW_EMPTY : DBW_KEYNOTFOUND) << "op " << op;
            }
            if (op % r.every == 0) check(h, "op " + std::to_string(op));
            if (op % 2500 == 2499) {
                ASSERT_EQ(DBd3CloseIndex(h), 0);
                ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), r.mode), 0);
            }
        }
        check(h, "end");
        std::vector<KeyLine> want = model.entries();
        for (KeyLine &l : want) l.key = stored(l.key);
        EXPECT_TRUE(ndxt::same(walk(h, k), want));
        EXPECT_TRUE(ndxt::same(walk(h, k, false), want));
        ASSERT_EQ(DBd3CloseIndex(h), 0);
        ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), DBO_READONLY), 0);
        EXPECT_TRUE(ndxt::same(walk(h, k), want)) << "reopened";
        check(h, "reopened");
        // Every entry is found by key and record, and the first of each key
        // by key alone.
        for (size_t i = 0; i < want.size(); i += 1 + want.size() / 300) {
            char key[512];
            std::memcpy(key, want[i].key.data(), static_cast<size_t>(k));
            key[k] = '\0';
            int32_t rec = want[i].rec;
            ASSERT_EQ(DBd3KeySearch(h, key, &rec, 2), 0) << i;
            EXPECT_EQ(rec, want[i].rec);
            size_t first = i;
            while (first > 0 && want[first - 1].key == want[i].key) first--;
            std::memcpy(key, want[i].key.data(), static_cast<size_t>(k));
            ASSERT_EQ(DBd3KeySearch(h, key, &rec, 1), 0) << i;
            EXPECT_EQ(rec, want[first].rec) << i;
        }
        ASSERT_EQ(DBd3CloseIndex(h), 0);
    }
}

// The tree at its edges: the first key goes into the root leaf; a root that
// splits gives a new root named in the header; deleting everything leaves an
// empty root leaf; blocks of unlinked nodes are reused before the file grows.
TEST_F(NdxTree, RootAndReusedBlocksAtTheEdges) {
    const std::string f = path("edge.ndx");
    ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), 'C', cs("K"), 100, 0), 0);
    short h = -1;
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), DBO_FLUSH), 0);
    auto le32 = [&](size_t at) {
        const std::vector<uint8_t> b = xbt::readFile(f);
        return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | b[at + 3] << 24;
    };
    auto key = [](int i) {
        std::string k = std::to_string(1000 + i);
        k.resize(100, ' ');
        return k;
    };
    char buf[512];
    int32_t rec = 0;
    EXPECT_EQ(DBd3GoFirstKey(h, buf, &rec), DBW_EMPTY);
    EXPECT_EQ(DBd3DeleteKey(h, cs(key(0).c_str()), 1), DBW_EMPTY);
    for (int i = 0; i < 4; i++) ASSERT_EQ(DBd3AddKey(h, cs(key(i).c_str()), i + 1), 0);
    EXPECT_EQ(le32(0), 1);  // four keys of 108 bytes fill the root leaf
    EXPECT_EQ(le32(4), 2);
    ASSERT_EQ(DBd3AddKey(h, cs(key(4).c_str()), 5), 0);
    EXPECT_EQ(le32(0), 3);  // the fifth splits it: the lower half in block 2, the root in 3
    EXPECT_EQ(le32(4), 4);
    EXPECT_EQ(xbt::fileSize(f), 4 * 512);
    for (int i = 5; i < 60; i++) ASSERT_EQ(DBd3AddKey(h, cs(key(i).c_str()), i + 1), 0);
    DBINDEXCHECK c = check(h, "grown");
    EXPECT_EQ(c.keys, 60);
    EXPECT_GE(c.height, 3);
    const long grown = xbt::fileSize(f);
    for (int i = 0; i < 50; i++) ASSERT_EQ(DBd3DeleteKey(h, cs(key(i).c_str()), i + 1), 0);
    c = check(h, "shrunk");
    EXPECT_EQ(c.keys, 10);
    EXPECT_GT(c.free, 5);
    // Growing again takes the emptied blocks first.
    for (int i = 0; i < 30; i++) ASSERT_EQ(DBd3AddKey(h, cs(key(i).c_str()), i + 1), 0);
    EXPECT_EQ(xbt::fileSize(f), grown);
    check(h, "regrown");
    for (int i = 0; i < 60; i++)
        if (i < 30 || i >= 50) ASSERT_EQ(DBd3DeleteKey(h, cs(key(i).c_str()), i + 1), 0) << i;
    EXPECT_EQ(DBd3GoFirstKey(h, buf, &rec), DBW_EMPTY);
    c = check(h, "emptied");
    EXPECT_EQ(c.pages, 1);
    EXPECT_EQ(c.keys, 0);
    // The emptied root is a leaf of zeros, wherever it now is.
    const std::vector<uint8_t> b = xbt::readFile(f);
    const size_t root = static_cast<size_t>(le32(0)) * 512;
    EXPECT_EQ(std::vector<uint8_t>(b.begin() + static_cast<long>(root), b.begin() + static_cast<long>(root) + 512), std::vector<uint8_t>(512, 0));
    ASSERT_EQ(DBd3CloseIndex(h), 0);
}

// Search modes against the model on a non-unique tree with runs of equal
// keys across leaves; navigation edges; the cache size calls.
TEST_F(NdxTree, SearchModesAndNavigation) {
    const std::string f = path("nav.ndx");
    ASSERT_EQ(DBd3CreateIndex(cs(f.c_str()), 'C', cs("K"), 4, 0), 0);
    short h = -1;
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), 0), 0);
    char key[16];
    int32_t rec = 0;
    EXPECT_EQ(DBd3GetCurrentKey(h, key, &rec), DBW_KEYNOTFOUND);
    std::vector<KeyLine> want;
    for (int i = 0; i < 600; i++) {
        char k[8];
        std::snprintf(k, sizeof k, "%04d", (i % 50) * 2);
        ASSERT_EQ(DBd3AddKey(h, k, i + 1), 0);
        want.push_back({i + 1, k});
    }
    std::stable_sort(want.begin(), want.end(), [](const KeyLine &a, const KeyLine &b) { return a.key < b.key; });
    EXPECT_TRUE(ndxt::same(walk(h, 4), want));
    check(h, "built by adds");
    // For each probe: the first key not below it, and what each mode gives.
    for (int v = -1; v <= 100; v++) {
        char probe[8];
        std::snprintf(probe, sizeof probe, "%04d", v < 0 ? 0 : v);
        if (v < 0) std::strcpy(probe, "!!!!");
        size_t lo = 0;
        while (lo < want.size() && want[lo].key < probe) lo++;
        size_t hi = lo;
        while (hi < want.size() && want[hi].key == probe) hi++;
        const bool found = hi > lo;
        struct Mode { int mode, rc; long at; } modes[] = {
            {1, found ? 0 : lo == 0 ? DBW_NOMOREKEYS : DBW_KEYNOTFOUND, found ? long(lo) : lo == 0 ? 0 : long(lo) - 1},
            {13, found ? 0 : DBW_KEYNOTFOUND, found ? long(lo) : lo == 0 ? 0 : long(lo) - 1},
            {12, lo == 0 && !found ? DBW_KEYNOTFOUND : 0, found ? long(lo) : lo == 0 ? 0 : long(lo) - 1},
            {11, lo == 0 ? DBW_KEYNOTFOUND : 0, lo == 0 ? 0 : long(lo) - 1},
            {14, lo == want.size() ? DBW_KEYNOTFOUND : 0, lo == want.size() ? long(lo) - 1 : long(lo)},
            {15, hi == want.size() ? DBW_KEYNOTFOUND : 0, hi == want.size() ? long(hi) - 1 : long(hi)},
        };
        for (const Mode &m : modes) {
            std::strcpy(key, probe);
            rec = 0;
            ASSERT_EQ(DBd3KeySearch(h, key, &rec, m.mode), m.rc) << probe << " mode " << m.mode;
            EXPECT_EQ(rec, want[static_cast<size_t>(m.at)].rec) << probe << " mode " << m.mode;
            EXPECT_EQ(std::string(key), want[static_cast<size_t>(m.at)].key) << probe << " mode " << m.mode;
        }
    }
    // A prefix finds the first key that begins with it.
    std::strcpy(key, "003");
    ASSERT_EQ(DBd3KeySearch(h, key, &rec, 1), 0);
    EXPECT_STREQ(key, "0030");
    EXPECT_EQ(rec, 16);
    // Mode 2 among 12 equal keys: each record, and one that is not there.
    for (int32_t r : {8, 58, 558}) {
        std::strcpy(key, "0014");
        rec = r;
        ASSERT_EQ(DBd3KeySearch(h, key, &rec, 2), 0) << r;
        EXPECT_EQ(rec, r);
    }
    std::strcpy(key, "0014");
    rec = 9;
    EXPECT_EQ(DBd3KeySearch(h, key, &rec, 2), DBW_KEYNOTFOUND);
    EXPECT_EQ(rec, 558);  // on the last entry of that key
    ASSERT_EQ(DBd3GoNextKey(h, key, &rec), 0);
    EXPECT_STREQ(key, "0016");
    // Ends.
    ASSERT_EQ(DBd3GoLastKey(h, key, &rec), 0);
    EXPECT_EQ(DBd3GoNextKey(h, key, &rec), DBW_NOMOREKEYS);
    EXPECT_EQ(rec, 600);
    ASSERT_EQ(DBd3GetCurrentKey(h, key, &rec), 0);
    EXPECT_EQ(rec, 600);
    ASSERT_EQ(DBd3GoFirstKey(h, key, &rec), 0);
    EXPECT_EQ(DBd3GoPreviousKey(h, key, &rec), DBW_NOMOREKEYS);
    EXPECT_EQ(rec, 1);
    // Percentages: the first key at 0, 100 the last, never backwards.
    int p = -1;
    ASSERT_EQ(DBd3GetKeyPercent(h, &p, cs("0000"), 1), 0);
    EXPECT_EQ(p, 0);
    ASSERT_EQ(DBd3GetKeyAtPercent(h, 100, key, &rec), 0);
    EXPECT_EQ(rec, 600);
    long prev = -1;
    for (int q = 0; q <= 100; q += 5) {
        ASSERT_EQ(DBd3GetKeyAtPercent(h, q, key, &rec), 0);
        long at = 0;
        while (want[static_cast<size_t>(at)].rec != rec) at++;
        EXPECT_GE(at, prev) << q;
        EXPECT_NEAR(static_cast<double>(at) / 6.0, q, 12.0) << q;
        int back = -1;
        ASSERT_EQ(DBd3GetKeyPercent(h, &back, key, rec), 0);
        EXPECT_NEAR(back, q, 6) << q;
        prev = at;
    }
    // The cache: get, set, too small, other ops; a small one serves the same.
    short size = 0;
    ASSERT_EQ(DBd3GetSetCacheSize(h, &size, 1), 0);
    EXPECT_EQ(size, 100);
    size = 2;
    EXPECT_EQ(DBd3GetSetCacheSize(h, &size, 0), DBE_BADCOMMAND);
    size = 3;
    ASSERT_EQ(DBd3GetSetCacheSize(h, &size, 0), 0);
    EXPECT_EQ(DBd3GetSetCacheSize(h, &size, 9), DBE_BADCOMMAND);
    EXPECT_TRUE(ndxt::same(walk(h, 4, false), want));
    EXPECT_EQ(DBd3FlushIndex(h), 0);
    ASSERT_EQ(DBd3CloseIndex(h), 0);
    ASSERT_EQ(DBd3OpenIndex(&h, cs(f.c_str()), DBO_FLUSH), 0);
    EXPECT_EQ(DBd3FlushIndex(h), DBW_UNBUFFERED);
    size = 50;
    EXPECT_EQ(DBd3GetSetCacheSize(h, &size, 0), 0);
    ASSERT_EQ(DBd3GetSetCacheSize(h, &size, 1), 0);
    EXPECT_EQ(size, 3);
    ASSERT_EQ(DBd3CloseIndex(h), 0);
}

}  // namespace
