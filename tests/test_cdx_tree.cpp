// Trees under change against an in-memory model: long random runs in every
// kind of file and open mode, freed pages reused, long runs of equal keys.
#include "cdx_util.h"

using cdx::cs;
using cdx::KeyLine;

namespace {

// One tag under change (key type and length, unique) and the entries it
// must hold: CDX keeps equal keys in record order.
struct TagRun {
    char type;
    int k;
    bool unique;
    int tag = -1;
    idx::Model m{unique, true};
    int mode() const { return type | (unique ? 0x80 : 0); }
};

std::string genKey(idx::Rng &r, const TagRun &run) {
    char b[9];
    if (run.type != 'C') {
        DBfpDoubleToKey(b, run.type == 'N' ? (static_cast<int>(r.below(400)) - 200) / 4.0 : 2440000.0 + r.below(300));
        return std::string(b, 8);
    }
    // Few distinct keys, shared prefixes, trailing blanks of every length.
    std::string s = "KEY";
    const int len = static_cast<int>(r.below(static_cast<uint32_t>(run.k - 2)));
    for (int i = 0; i < len; i++) s += static_cast<char>('A' + r.below(3));
    s.resize(static_cast<size_t>(run.k), ' ');
    return s;
}

// Record numbers around the points where a leaf's record field widens.
uint32_t genRec(idx::Rng &r, int phase) {
    static const uint32_t base[] = {1, 200, 65400, 16777000, 2147480000u};
    const int b = static_cast<int>(r.below(static_cast<uint32_t>(phase + 1)));
    return base[b] + r.below(b == 4 ? 3000 : 400);
}

void checkAll(std::vector<TagRun> &runs, bool walk, const std::string &what) {
    for (TagRun &run : runs) {
        cdx::expectSound(run.tag, run.m.size(), what + " tag " + std::to_string(run.tag >> 16));
        if (walk) {
            EXPECT_TRUE(idx::same(cdx::walk(run.tag), run.m.entries())) << what << " walk";
            EXPECT_TRUE(idx::same(cdx::walk(run.tag, false), run.m.entries())) << what << " walk back";
        }
    }
}

void step(TagRun &run, idx::Rng &r, int phase, int i) {
    if (run.m.empty() || r.below(10) < 6) {
        const std::string key = genKey(r, run);
        const int32_t rec = static_cast<int32_t>(genRec(r, phase));
        const bool fresh = run.m.add(key, rec);
        ASSERT_EQ(DBfpAddKey(run.tag, cs(key.c_str()), rec), fresh ? 0 : DBW_EXISTS) << "op " << i;
        return;
    }
    const KeyLine e = run.m.pick(r.next());
    if (r.below(8) == 0) {
        // Not there: another record for a present key.
        if (!run.m.has(e.key, e.rec + 1))
            ASSERT_EQ(DBfpDeleteKey(run.tag, cs(e.key.c_str()), e.rec + 1), DBW_KEYNOTFOUND) << "op " << i;
        return;
    }
    ASSERT_EQ(DBfpDeleteKey(run.tag, cs(e.key.c_str()), e.rec), 0) << "op " << i;
    run.m.del(e.key, e.rec);
}

class CdxTree : public cdx::Suite {
protected:
    void openTags(const std::string &f, bool compound, int mode, std::vector<TagRun> &runs, int *h) {
        ASSERT_EQ(DBfpOpenIndex(h, cs(f.c_str()), mode), 0);
        for (size_t i = 0; i < runs.size(); i++) {
            if (compound) ASSERT_EQ(DBfpOpenTag(&runs[i].tag, *h, static_cast<int>(i) + 1), 0);
            else runs[i].tag = *h;
            ASSERT_EQ(DBfpSetDefaultKeyType(runs[i].tag, runs[i].type), 0);
        }
    }
    // ops random changes over runs, checked every `every`, the file closed
    // and reopened at `reopen` intervals.
    void churn(const std::string &f, bool compound, int mode, std::vector<TagRun> &runs, int ops, int every, int reopen, uint64_t seed) {
        int h = -1;
        openTags(f, compound, mode, runs, &h);
        idx::Rng r(seed);
        for (int i = 1; i <= ops; i++) {
            const int phase = i * 5 / (ops + 1);
            step(runs[r.below(static_cast<uint32_t>(runs.size()))], r, phase, i);
            if (HasFatalFailure()) return;
            if (i % every == 0) checkAll(runs, i % (every * 4) == 0, f + " op " + std::to_string(i));
            if (HasFatalFailure()) return;
            if (reopen && i % reopen == 0) {
                ASSERT_EQ(DBfpCloseIndex(h), 0);
                openTags(f, compound, mode, runs, &h);
            }
        }
        checkAll(runs, true, f + " end");
        ASSERT_EQ(DBfpCloseIndex(h), 0);
    }
};

// Each file: its tags (type, key length, unique), the open mode, and how
// long to change it, how often to check it and to close and reopen it.
TEST_F(CdxTree, RandomChangesMatchTheModel) {
    const struct { const char *file; int compact, mode, ops, every, reopen; std::vector<TagRun> tags; } files[] = {
        {"t.cdx", 1, 0, 24000, 2000, 6000, {{'C', 12, false}, {'N', 8, true}, {'D', 8, false}}},
        {"n.idx", 1, 0, 6000, 1000, 0, {{'C', 120, false}}},  // long keys
        {"c.idx", 0, 0, 12000, 2000, 5000, {{'C', 12, false}}},
        {"s.cdx", 1, DBO_SHARED | DBO_FLUSH, 5000, 1000, 2500, {{'C', 12, false}, {'D', 8, false}}}};
    uint64_t seed = 1;
    for (const auto &f : files) {
        SCOPED_TRACE(f.file);
        const std::string p = path(f.file);
        const bool compound = p.back() == 'x';
        std::vector<TagRun> runs = f.tags;
        const int mode = runs[0].mode() | (f.compact ? 0x400 : 0);
        if (!compound) ASSERT_EQ(DBfbCreateIndex(cs(p.c_str()), mode, cs("NAME"), runs[0].k, nullptr), 0);
        else ASSERT_EQ(DBfpCreateIndex(cs(p.c_str())), 0);
        for (size_t i = 0; compound && i < runs.size(); i++) {
            int h = -1;
            const std::string name = "t" + std::to_string(i);
            ASSERT_EQ(DBfpOpenIndex(&h, cs(p.c_str()), 0), 0);
            ASSERT_EQ(DBfpCreateTag(h, cs(name.c_str()), runs[i].mode(), cs("NAME"), runs[i].k, nullptr), 0);
            ASSERT_EQ(DBfpCloseIndex(h), 0);
        }
        churn(p, compound, f.mode, runs, f.ops, f.every, f.reopen, seed++);
    }
}

// Pages freed by deletes come back before the file grows; deleting every
// key leaves an empty root leaf.
TEST_F(CdxTree, FreedPagesAreReusedBeforeTheFileGrows) {
    const std::string f = path("r.idx");
    const int h = cdx::newIdx(f, 'C' | 0x400, 16);
    auto key = [](char c, int v) { return c + std::to_string(100000000 + v).substr(1); };
    for (int i = 0; i < 6000; i++) ASSERT_EQ(DBfpAddKey(h, cs(key('K', i * 7919 % 6000).c_str()), i + 1), 0);
    // Most of the key range goes: whole leaves empty and are freed.
    for (int i = 0; i < 6000; i++)
        if (i * 7919 % 6000 < 5000) ASSERT_EQ(DBfpDeleteKey(h, cs(key('K', i * 7919 % 6000).c_str()), i + 1), 0);
    ASSERT_EQ(DBfpFlushIndex(h), 0);
    DBINDEXCHECK chk;
    ASSERT_EQ(DBfpCheckTag(h, &chk, 1), 0) << chk.msg;
    ASSERT_GT(chk.free, 10);
    const long size = xbt::fileSize(f);
    for (int32_t free = chk.free, rec = 100000; free > 0; free = chk.free) {
        for (int j = 0; j < 50; j++, rec++) ASSERT_EQ(DBfpAddKey(h, cs(key('N', rec * 31 % 99991).c_str()), rec), 0);
        ASSERT_EQ(DBfpFlushIndex(h), 0);
        ASSERT_EQ(DBfpCheckTag(h, &chk, 1), 0) << chk.msg;
        ASSERT_EQ(xbt::fileSize(f), size) << "grew with " << free << " pages free";
        ASSERT_LE(chk.free, free);
    }
    char k[32];
    int32_t r = 0;
    while (DBfpGoFirstKey(h, k, &r) == 0) ASSERT_EQ(DBfpDeleteKey(h, k, r), 0);
    EXPECT_EQ(DBfpKeySearch(h, k, &r, 1), DBW_EMPTY);
    ASSERT_EQ(DBfpCheckTag(h, &chk, 1), 0) << chk.msg;
    EXPECT_EQ(chk.pages, 1);
    EXPECT_EQ(chk.keys, 0);
    ASSERT_EQ(DBfbCloseIndex(h), 0);
}

// Equal keys in long runs, added last record first: every leaf's first key
// is stored whole, the rest as full duplicates. (Their record order is
// RandomChangesMatchTheModel's: its keys repeat.)
TEST_F(CdxTree, LongRunsOfEqualKeys) {
    const std::string f = path("e.idx");
    const int h = cdx::newIdx(f, 'C' | 0x400, 10);
    for (int32_t r = 2000; r >= 1; r--) ASSERT_EQ(DBfpAddKey(h, cs("SAME"), r), 0);
    cdx::expectSound(h, 2000, "equal keys");
    ASSERT_EQ(DBfpFlushIndex(h), 0);
    const std::vector<uint8_t> b = xbt::readFile(f);
    int leaves = 0;
    for (size_t p = 1024; p + 512 <= b.size(); p += 512) {
        if (!(idx::le16(b, p) & 2) || idx::le16(b, p + 2) == 0) continue;
        leaves++;
        const int B = b[p + 23], R = b[p + 20], D = b[p + 21];
        for (int j = 0; j < idx::le16(b, p + 2); j++) {
            uint64_t v = 0;
            for (int x = 0; x < B; x++) v |= static_cast<uint64_t>(b[p + 24 + static_cast<size_t>(j * B + x)]) << (8 * x);
            const int dup = static_cast<int>((v >> R) & ((1u << D) - 1));
            EXPECT_EQ(dup, j == 0 ? 0 : 4) << "page " << p << " entry " << j;
        }
    }
    EXPECT_GT(leaves, 5);
    ASSERT_EQ(DBfbCloseIndex(h), 0);
}

}  // namespace
