// NTX and NDX trees under change: long runs of random adds and deletes
// against an ordered model, the whole tree checked every few operations
// (key order, page fill, interior keys, reachability, the pages held for
// reuse), unique and not, short and long character keys, numeric NDX keys,
// buffered and write-through, across close and reopen, then emptied; every
// search mode against the model, and navigation at the ends.
#include "ndx_util.h"

using idx::cs;
using idx::Fam;
using idx::KeyLine;

namespace {

class IndexTree : public xbt::LibTest {};

struct TreeRun {
    const Fam *f;
    const char *name;
    int type, keylen;
    bool unique;
    int mode, ops;
    uint32_t values;  // distinct key values drawn from
    int digits;       // printed with this many digits, cut to the key length
    int every, reopen;  // whole-tree check and close/reopen every so many operations
};

// Long keys make two keys an NTX page and four an NDX node, so splits,
// rotations, merges and root changes come within a few hundred operations;
// short keys make wide pages and long runs of duplicates across them.
TEST_F(IndexTree, RandomAddsAndDeletesMatchTheModel) {
    const Fam *X = &idx::kNtx, *D = &idx::kNdx;
    const TreeRun runs[] = {
        {X, "k200 non-unique", 'C', 200, false, 0, 3000, 300, 7, 25, 1000},
        {X, "k200 unique write-through", 'C', 200, true, DBO_FLUSH, 3000, 400, 7, 25, 1000},
        {X, "k6 duplicates", 'C', 6, false, 0, 20000, 40, 7, 500, 1000},
        {D, "k100 unique write-through", 'C', 100, true, DBO_FLUSH, 2000, 400, 4, 20, 2500},
        {D, "k4 duplicates", 'C', 4, false, 0, 30000, 40, 4, 600, 2500},
        {D, "numeric unique", 'N', 8, true, 0, 20000, 4000, 0, 600, 2500},
    };
    for (const TreeRun &r : runs) {
        const Fam &f = *r.f;
        SCOPED_TRACE(std::string(f.name) + " " + r.name);
        const std::string p = path(std::string("tree") + f.ext);
        short h = idx::newIndex(f, p, r.keylen, r.mode, r.type | (r.unique ? 0x80 : 0));
        const bool num = r.type == 'N';
        const int k = num ? 8 : r.keylen;
        idx::Model model(r.unique);
        idx::Rng rng(static_cast<uint64_t>(r.keylen) * 31 + static_cast<uint64_t>(r.ops) + (num ? 7 : 0));
        int32_t nextRec = 1;
        // Numbers live in the model in a byte-orderable form.
        auto stored = [&](const std::string &m) { return num ? ndxt::dbl(ndxt::unordered(m)) : m; };
        for (int op = 0; op < r.ops; op++) {
            // Grow for the first half, shrink towards empty in the second.
            const bool grow = op < r.ops / 2 ? rng.below(10) < 7 : rng.below(10) < 3;
            if (grow || model.empty()) {
                std::string key;
                if (num) {
                    key = ndxt::ordered((static_cast<double>(rng.below(r.values)) - r.values / 2.0) * 0.25);
                } else {
                    char v[16];
                    std::snprintf(v, sizeof v, "%0*u", r.digits, rng.below(r.values));
                    key = v;
                    key.resize(static_cast<size_t>(r.keylen), '.');
                }
                const int32_t rec = rng.below(4) == 0 && !model.empty() ? model.pick(rng.next()).rec : nextRec++;
                const bool fresh = model.add(key, rec);
                ASSERT_EQ(f.add(h, cs(stored(key).c_str()), rec), fresh ? 0 : DBW_EXISTS) << "op " << op;
            } else {
                const KeyLine e = model.pick(rng.next());
                const std::string s = stored(e.key);
                ASSERT_EQ(f.del(h, cs(s.c_str()), e.rec), 0) << "op " << op;
                model.del(e.key, e.rec);
                if (op % 97 == 0)
                    EXPECT_EQ(f.del(h, cs(s.c_str()), e.rec), model.empty() ? DBW_EMPTY : DBW_KEYNOTFOUND) << "op " << op;
            }
            if (op % r.every == 0) idx::check(f, h, "op " + std::to_string(op));
            if (op % r.reopen == r.reopen - 1) {
                ASSERT_EQ(f.close(h), 0);
                h = idx::openIndex(f, p, r.mode);
            }
        }
        idx::check(f, h, "end");
        std::vector<KeyLine> want = model.entries();
        for (KeyLine &l : want) l.key = stored(l.key);
        EXPECT_TRUE(idx::same(idx::walk(f, h, k, false), want));
        ASSERT_EQ(f.close(h), 0);
        h = idx::openIndex(f, p, DBO_READONLY);
        EXPECT_TRUE(idx::same(idx::walk(f, h, k), want)) << "reopened";
        idx::expectFound(f, h, want, static_cast<size_t>(k), 1 + want.size() / 300);
        ASSERT_EQ(f.close(h), 0);
        // Every NDX node by the layout, as the adds and deletes left it.
        if (&f == &idx::kNdx) EXPECT_TRUE(idx::same(ndxt::Layout().read(p), want));
        // Emptied, the tree is one root leaf and every other page is given
        // back; adds take those pages before the file grows. Every page of an
        // NTX file is in the tree or on its free list (NDX has no free list
        // on disk: what is given back is reused while the index is open).
        const long size = xbt::fileSize(p);
        h = idx::openIndex(f, p, r.mode);
        const DBINDEXCHECK full = idx::check(f, h, "full");
        if (&f == &idx::kNtx) EXPECT_EQ((full.pages + full.free + 1) * f.page, size);
        for (const KeyLine &l : want) ASSERT_EQ(f.del(h, cs(l.key.c_str()), l.rec), 0);
        EXPECT_TRUE(idx::walk(f, h, k).empty());
        const DBINDEXCHECK c = idx::check(f, h, "emptied");
        EXPECT_EQ(c.pages, 1);
        EXPECT_EQ(c.free, full.pages + full.free - 1);
        for (size_t i = 0; i < want.size(); i += 3) ASSERT_EQ(f.add(h, cs(want[i].key.c_str()), want[i].rec), 0);
        for (size_t i = 0; i < want.size(); i += 3) ASSERT_EQ(f.del(h, cs(want[i].key.c_str()), want[i].rec), 0);
        ASSERT_EQ(f.close(h), 0);
        EXPECT_EQ(xbt::fileSize(p), size);
        // An emptied NDX root is a node of zeros.
        if (&f == &idx::kNdx) EXPECT_TRUE(ndxt::Layout().read(p).empty());
    }
}

// Search modes against the model on a non-unique tree with runs of equal
// keys across leaves; navigation edges; keys longer than the key length;
// the cache size calls, buffered and write-through. (Prefixes and
// percentages: NtxFixture, against Harbour's files.)
TEST_F(IndexTree, SearchModesAndNavigation) {
    for (const Fam *fp : {&idx::kNtx, &idx::kNdx}) {
        const Fam &f = *fp;
        SCOPED_TRACE(f.name);
        const std::string p = path(std::string("nav") + f.ext);
        short h = idx::newIndex(f, p, 4);
        char key[32];
        int32_t rec = 0;
        EXPECT_EQ(f.current(h, key, &rec), DBW_KEYNOTFOUND);
        auto text = [](int v) {
            char b[8];
            std::snprintf(b, sizeof b, "%04d", v);
            return std::string(b);
        };
        std::vector<KeyLine> want;
        for (int i = 0; i < 600; i++) {
            ASSERT_EQ(f.add(h, cs(text((i % 50) * 2).c_str()), i + 1), 0);
            want.push_back({i + 1, text((i % 50) * 2)});
        }
        std::stable_sort(want.begin(), want.end(), [](const KeyLine &a, const KeyLine &b) { return a.key < b.key; });
        EXPECT_TRUE(idx::same(idx::walk(f, h, 4), want));
        idx::check(f, h, "built by adds");
        // Every mode for each key, absent ones between and above them, and
        // one below them all; each entry by key and record (mode 2), runs of
        // 12 equal keys among them.
        idx::expectModes(f, h, want, "!!!!", 4);
        for (int v = 0; v <= 100; v++) idx::expectModes(f, h, want, text(v), 4);
        idx::expectFound(f, h, want, 4, 1);
        // Mode 2 for a record that is not there: left on the last entry of
        // that key.
        const idx::Hit miss = idx::search(f.search, h, "0014", 2, 4, 9);
        EXPECT_EQ(miss.rc, DBW_KEYNOTFOUND);
        EXPECT_EQ(miss.rec, 558);
        ASSERT_EQ(f.next(h, key, &rec), 0);
        EXPECT_STREQ(key, "0016");
        // Ends: a step off either end stays on the last entry.
        ASSERT_EQ(f.last(h, key, &rec), 0);
        EXPECT_EQ(f.next(h, key, &rec), DBW_NOMOREKEYS);
        EXPECT_EQ(rec, 600);
        ASSERT_EQ(f.current(h, key, &rec), 0);
        EXPECT_EQ(rec, 600);
        ASSERT_EQ(f.first(h, key, &rec), 0);
        EXPECT_EQ(f.prev(h, key, &rec), DBW_NOMOREKEYS);
        EXPECT_EQ(rec, 1);
        // Keys longer than the key length are cut to it, in adds, searches
        // and deletes.
        ASSERT_EQ(f.add(h, cs("0101-and-more"), 601), 0);
        char longer[] = "0101-something-else";
        ASSERT_EQ(f.search(h, longer, &rec, 1), 0);
        EXPECT_STREQ(longer, "0101");
        EXPECT_EQ(rec, 601);
        ASSERT_EQ(f.del(h, cs("0101xyz"), 601), 0);
        // The cache: 100 pages, at least 3, other operations refused; a
        // small one serves the same tree. Write-through keeps 3.
        short size = 0;
        ASSERT_EQ(f.cache(h, &size, 1), 0);
        EXPECT_EQ(size, 100);
        size = 2;
        EXPECT_EQ(f.cache(h, &size, 0), DBE_BADCOMMAND);
        size = 3;
        ASSERT_EQ(f.cache(h, &size, 0), 0);
        EXPECT_EQ(f.cache(h, &size, 9), DBE_BADCOMMAND);
        EXPECT_TRUE(idx::same(idx::walk(f, h, 4, false), want));
        size = 150;
        ASSERT_EQ(f.cache(h, &size, 0) | f.cache(h, &(size = 0), 1), 0);
        EXPECT_EQ(size, 150);
        EXPECT_EQ(f.flush(h), 0);
        ASSERT_EQ(f.close(h), 0);
        ASSERT_EQ(f.open(&h, cs(p.c_str()), DBO_FLUSH), 0);
        EXPECT_EQ(f.flush(h), DBW_UNBUFFERED);
        size = 50;
        ASSERT_EQ(f.cache(h, &size, 0) | f.cache(h, &(size = 0), 1), 0);
        EXPECT_EQ(size, 3);
        idx::Info info;
        ASSERT_EQ(f.info(h, &info), 0);
        EXPECT_EQ(info.flags.isunbuffered, 1);
        EXPECT_EQ(info.expr, "K");
        ASSERT_EQ(f.close(h), 0);
    }
}

}  // namespace
