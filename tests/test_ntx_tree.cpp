// NTX trees under change: long runs of random adds and deletes against an
// ordered model, with the whole tree checked every few operations (key
// order, page fill, reachability, the free list), for unique and
// non-unique indexes, short and long keys, buffered and write-through,
// across close and reopen.
#include "index_util.h"

using idx::cs;
using idx::KeyLine;

namespace {

class NtxTree : public xbt::LibTest {
protected:
    std::vector<KeyLine> walk(short h, bool forward = true) {
        std::vector<KeyLine> out;
        char key[256];
        int32_t rec = 0;
        int rc = forward ? DBclGoFirstKey(h, key, &rec) : DBclGoLastKey(h, key, &rec);
        for (; rc == 0; rc = forward ? DBclGoNextKey(h, key, &rec) : DBclGoPreviousKey(h, key, &rec))
            out.push_back({rec, key});
        if (!forward) std::reverse(out.begin(), out.end());
        return out;
    }
    void expectModel(short h, const idx::Model &m, const std::string &what) {
        const std::vector<KeyLine> want = m.entries(), got = walk(h), back = walk(h, false);
        ASSERT_EQ(got.size(), want.size()) << what;
        for (size_t i = 0; i < got.size(); i++) {
            ASSERT_EQ(got[i].key, want[i].key) << what << " entry " << i;
            ASSERT_EQ(got[i].rec, want[i].rec) << what << " entry " << i;
            ASSERT_EQ(back[i].rec, want[i].rec) << what << " backward entry " << i;
        }
    }
    DBINDEXCHECK check(short h, const std::string &what) {
        DBINDEXCHECK c;
        EXPECT_EQ(DBclCheckIndex(h, &c, 1), 0) << what << ": " << c.msg;
        return c;
    }
};

struct TreeRun {
    const char *name;
    int keylen;
    bool unique;
    int mode;        // open mode
    int ops;
    uint32_t values; // distinct key values drawn from
};

// Long keys make two keys a page, so splits, rotations, merges and root
// collapse come within a few hundred operations; short keys make wide pages
// and long runs of duplicates.
TEST_F(NtxTree, RandomAddsAndDeletesMatchTheModel) {
    const TreeRun runs[] = {
        {"k200 non-unique", 200, false, 0, 3000, 300},
        {"k200 unique", 200, true, 0, 3000, 400},
        {"k200 write-through", 200, false, DBO_FLUSH, 1500, 200},
        {"k6 duplicates", 6, false, 0, 20000, 40},
        {"k6 unique", 6, true, 0, 20000, 5000},
        {"k40 write-through unique", 40, true, DBO_FLUSH, 6000, 3000},
    };
    for (const TreeRun &r : runs) {
        const std::string f = path("tree.ntx");
        ASSERT_EQ(DBclCreateIndex(cs(f.c_str()), 'C' | (r.unique ? 0x80 : 0), cs("K"), r.keylen, 0), 0);
        short h = -1;
        ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), r.mode), 0);
        idx::Model model(r.unique);
        idx::Rng rng(static_cast<uint64_t>(r.keylen) * 31 + r.ops);
        int32_t nextRec = 1;
        for (int op = 0; op < r.ops; op++) {
            // Grow for the first half, shrink towards empty in the second.
            const bool grow = op < r.ops / 2 ? rng.below(10) < 7 : rng.below(10) < 3;
            if (grow || model.empty()) {
                char v[16];
                std::snprintf(v, sizeof v, "%07u", rng.below(r.values));
                std::string key(v);
                key.resize(static_cast<size_t>(r.keylen), '.');
                const int32_t rec = rng.below(4) == 0 && !model.empty() ? model.pick(rng.next()).rec : nextRec++;
                const bool fresh = model.add(key, rec);
                ASSERT_EQ(DBclAddKey(h, cs(key.c_str()), rec), fresh ? 0 : DBW_EXISTS) << r.name << " op " << op;
            } else {
                const KeyLine e = model.pick(rng.next());
                ASSERT_EQ(DBclDeleteKey(h, cs(e.key.c_str()), e.rec), 0) << r.name << " op " << op;
                model.del(e.key, e.rec);
                // The entry just deleted is not there any more.
                if (op % 97 == 0 && !model.add(e.key, e.rec)) FAIL() << "model";
                if (op % 97 == 0) {
                    model.del(e.key, e.rec);
                    EXPECT_EQ(DBclDeleteKey(h, cs(e.key.c_str()), e.rec), model.empty() ? DBW_EMPTY : DBW_KEYNOTFOUND);
                }
            }
            if (op % (r.keylen == 200 ? 25 : 500) == 0) check(h, std::string(r.name) + " op " + std::to_string(op));
            if (op % 1000 == 999) {
                // The same tree after close and reopen.
                ASSERT_EQ(DBclCloseIndex(h), 0);
                ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), r.mode), 0);
            }
        }
        check(h, r.name);
        expectModel(h, model, r.name);
        ASSERT_EQ(DBclCloseIndex(h), 0);
        ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), DBO_READONLY), 0);
        expectModel(h, model, std::string(r.name) + " reopened");
        ASSERT_EQ(DBclCloseIndex(h), 0);
    }
}

// The tree's shape at its edges: the first key goes into the root leaf; a
// root that splits gives a new root; the last key deleted leaves an empty
// root leaf; a root left without keys hands over to its child; pages freed
// are reused before the file grows.
TEST_F(NtxTree, RootAndFreeListAtTheEdges) {
    const std::string f = path("edge.ntx");
    ASSERT_EQ(DBclCreateIndex(cs(f.c_str()), 'C', cs("K"), 200, 0), 0);
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), DBO_FLUSH), 0);
    auto root = [&] {
        const std::vector<uint8_t> b = xbt::readFile(f);
        return b[4] | b[5] << 8 | b[6] << 16 | b[7] << 24;
    };
    auto key = [](int i) {
        std::string k = std::to_string(1000 + i);
        k.resize(200, ' ');
        return k;
    };
    char buf[256];
    int32_t rec = 0;
    EXPECT_EQ(DBclGoFirstKey(h, buf, &rec), DBW_EMPTY);
    EXPECT_EQ(DBclDeleteKey(h, cs(key(0).c_str()), 1), DBW_EMPTY);
    ASSERT_EQ(DBclAddKey(h, cs(key(0).c_str()), 1), 0);
    EXPECT_EQ(root(), 1024);
    ASSERT_EQ(DBclAddKey(h, cs(key(1).c_str()), 2), 0);
    EXPECT_EQ(root(), 1024);  // two keys fill the root page
    ASSERT_EQ(DBclAddKey(h, cs(key(2).c_str()), 3), 0);
    EXPECT_NE(root(), 1024);  // the third splits it: a new root
    EXPECT_EQ(xbt::fileSize(f), 4 * 1024);
    for (int i = 3; i < 40; i++) ASSERT_EQ(DBclAddKey(h, cs(key(i).c_str()), i + 1), 0);
    const long grown = xbt::fileSize(f);
    // Delete most keys: merges free pages and the root collapses.
    for (int i = 0; i < 36; i++) ASSERT_EQ(DBclDeleteKey(h, cs(key(i).c_str()), i + 1), 0);
    DBINDEXCHECK c = check(h, "after deletes");
    EXPECT_GT(c.free, 5);
    EXPECT_EQ(xbt::fileSize(f), grown);
    // Growing again takes the freed pages first.
    for (int i = 0; i < 30; i++) ASSERT_EQ(DBclAddKey(h, cs(key(i).c_str()), i + 1), 0);
    EXPECT_EQ(xbt::fileSize(f), grown);
    check(h, "regrown");
    for (int i = 0; i < 40; i++)
        if (i < 30 || i >= 36) ASSERT_EQ(DBclDeleteKey(h, cs(key(i).c_str()), i + 1), 0) << i;
    EXPECT_EQ(DBclGoFirstKey(h, buf, &rec), DBW_EMPTY);
    c = check(h, "emptied");
    EXPECT_EQ(c.pages, 1);
    EXPECT_EQ(c.free * 1024 + 2048, xbt::fileSize(f));
    ASSERT_EQ(DBclCloseIndex(h), 0);
}

// Navigation edges on a small tree: next off the end stays on the last key;
// previous off the front stays on the first; next with no position starts
// at the first key; a duplicate in a non-unique index is found by record.
TEST_F(NtxTree, NavigationEdges) {
    const std::string f = path("nav.ntx");
    ASSERT_EQ(DBclCreateIndex(cs(f.c_str()), 'C', cs("K"), 4, 0), 0);
    short h = -1;
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), 0), 0);
    char key[16];
    int32_t rec = 0;
    EXPECT_EQ(DBclGetCurrentKey(h, key, &rec), DBW_KEYNOTFOUND);
    for (int i = 0; i < 200; i++) {
        char k[8];
        std::snprintf(k, sizeof k, "%04d", i % 50);
        ASSERT_EQ(DBclAddKey(h, k, i + 1), 0);
    }
    ASSERT_EQ(DBclGoNextKey(h, key, &rec), 0);
    EXPECT_STREQ(key, "0000");
    EXPECT_EQ(rec, 1);
    ASSERT_EQ(DBclGoLastKey(h, key, &rec), 0);
    EXPECT_EQ(DBclGoNextKey(h, key, &rec), DBW_NOMOREKEYS);
    EXPECT_STREQ(key, "0049");
    EXPECT_EQ(rec, 200);
    ASSERT_EQ(DBclGetCurrentKey(h, key, &rec), 0);
    EXPECT_EQ(rec, 200);
    ASSERT_EQ(DBclGoFirstKey(h, key, &rec), 0);
    EXPECT_EQ(DBclGoPreviousKey(h, key, &rec), DBW_NOMOREKEYS);
    EXPECT_EQ(rec, 1);
    std::strcpy(key, "0007");
    rec = 108;
    ASSERT_EQ(DBclKeySearch(h, key, &rec, 2), 0);
    EXPECT_EQ(rec, 108);
    ASSERT_EQ(DBclGoNextKey(h, key, &rec), 0);
    EXPECT_EQ(rec, 158);
    std::strcpy(key, "0007");
    rec = 109;
    EXPECT_EQ(DBclKeySearch(h, key, &rec, 2), DBW_KEYNOTFOUND);
    // Keys longer than the key length are cut to it, in adds and searches.
    ASSERT_EQ(DBclAddKey(h, cs("0100-and-more"), 201), 0);
    char longer[] = "0100-something-else";
    ASSERT_EQ(DBclKeySearch(h, longer, &rec, 1), 0);
    EXPECT_STREQ(longer, "0100");
    EXPECT_EQ(rec, 201);
    ASSERT_EQ(DBclDeleteKey(h, cs("0100xyz"), 201), 0);
    // The percentage of a key and the key at a percentage.
    int p = 0;
    ASSERT_EQ(DBclGetKeyPercent(h, &p, cs("0000"), 1), 0);
    EXPECT_EQ(p, 0);
    ASSERT_EQ(DBclGetKeyAtPercent(h, 100, key, &rec), 0);
    EXPECT_EQ(rec, 200);
    short size = 0;
    ASSERT_EQ(DBclGetSetCacheSize(h, &size, 1), 0);
    EXPECT_EQ(size, 100);
    size = 2;
    EXPECT_EQ(DBclGetSetCacheSize(h, &size, 0), DBE_BADCOMMAND);
    size = 5;
    ASSERT_EQ(DBclGetSetCacheSize(h, &size, 0), 0);
    ASSERT_EQ(DBclGetSetCacheSize(h, &size, 1), 0);
    EXPECT_EQ(size, 5);
    EXPECT_EQ(DBclGetSetCacheSize(h, &size, 7), DBE_BADCOMMAND);
    // A small cache serves the same tree.
    EXPECT_EQ(walk(h).size(), 200u);
    size = 150;
    ASSERT_EQ(DBclGetSetCacheSize(h, &size, 0), 0);
    EXPECT_EQ(size, 150);
    EXPECT_EQ(DBclFlushIndex(h), 0);
    ASSERT_EQ(DBclCloseIndex(h), 0);
    // Write-through: flush has nothing to do, the cache size stays.
    ASSERT_EQ(DBclOpenIndex(&h, cs(f.c_str()), DBO_FLUSH), 0);
    EXPECT_EQ(DBclFlushIndex(h), DBW_UNBUFFERED);
    size = 50;
    EXPECT_EQ(DBclGetSetCacheSize(h, &size, 0), 0);
    ASSERT_EQ(DBclGetSetCacheSize(h, &size, 1), 0);
    EXPECT_EQ(size, 3);
    DBCLINDEXINFO info;
    ASSERT_EQ(DBclGetIndexInfo(h, &info), 0);
    EXPECT_EQ(info.flags.isunbuffered, 1);
    EXPECT_EQ(info.keytype, '?');
    EXPECT_STREQ(info.expr, "K");
    ASSERT_EQ(DBclCloseIndex(h), 0);
}

}  // namespace
