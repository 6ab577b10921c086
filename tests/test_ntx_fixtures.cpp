// NTX indexes written by Harbour: walked both ways, searched in every mode,
// positioned by percentage, then changed as a program that edits records
// would change them, and checked against the keys dumps.
#include "index_util.h"

#include <cmath>

using idx::cs;
using idx::KeyLine;

namespace {

// The six fixture indexes and how their dumps show a key.
struct Fixture {
    const char *tag;
    char kind;  // 'C' text as stored, 'N' number (complemented keys), 'D' yyyymmdd
};
const Fixture kFixtures[] = {{"byname", 'C'}, {"bycity", 'C'}, {"byqty", 'C'},
                             {"ucity", 'C'},  {"byamount", 'N'}, {"byhired", 'D'}};

class NtxFixture : public xbt::LibTest {
protected:
    short open(const std::string &tag, int mode = 0) {
        const std::string f = fixture("hbntx_" + tag + ".ntx");
        short h = -1;
        EXPECT_EQ(DBclOpenIndex(&h, cs(f.c_str()), mode), 0) << tag;
        return h;
    }
    int keylen(short h) {
        DBCLINDEXINFO info;
        EXPECT_EQ(DBclGetIndexInfo(h, &info), 0);
        return info.keylen;
    }
    // The dump's entries with their keys in stored form. Harbour rounds a
    // number's last decimal where DBclDoubleToKey cuts it, so numeric keys
    // are taken as stored, once their values are checked against the dump.
    std::vector<KeyLine> expected(short h, const Fixture &f) {
        std::vector<KeyLine> out = idx::readDump(std::string("hbntx_") + f.tag + ".keys.txt").keys;
        if (f.kind != 'N') return out;
        const std::vector<KeyLine> stored = walk(h, true);
        EXPECT_EQ(stored.size(), out.size());
        for (size_t i = 0; i < out.size() && i < stored.size(); i++) {
            double v = 0;
            EXPECT_EQ(DBclKeyToDouble(&v, cs(stored[i].key.c_str())), 0);
            EXPECT_NEAR(v, std::atof(out[i].key.c_str()), 1e-9) << f.tag << " entry " << i;
            out[i].key = stored[i].key;
        }
        return out;
    }
    std::string numberKey(short h, double v) {
        char k[64];
        EXPECT_EQ(DBclDoubleToKey(h, k, v), 0);
        return k;
    }
    std::vector<KeyLine> walk(short h, bool forward) { return idx::walk(idx::kNtx, h, keylen(h), forward); }
};

TEST_F(NtxFixture, WalksBothWaysLikeTheDumps) {
    for (const Fixture &f : kFixtures) {
        const short h = open(f.tag);
        const std::vector<KeyLine> want = expected(h, f);
        EXPECT_TRUE(idx::same(walk(h, true), want)) << f.tag;
        EXPECT_TRUE(idx::same(walk(h, false), want)) << f.tag;
        DBINDEXCHECK chk;
        EXPECT_EQ(DBclCheckIndex(h, &chk, 0), 0) << f.tag << ": " << chk.msg;
        EXPECT_EQ(chk.keys, static_cast<int32_t>(want.size()));
        EXPECT_EQ(DBclCloseIndex(h), 0);
    }
}

// Every mode against the answer the dump gives: the first entry at or after
// the key, the last one before it, and so on.
TEST_F(NtxFixture, SearchesEveryModeForEveryKey) {
    for (const Fixture &f : kFixtures) {
        const short h = open(f.tag);
        const int k = keylen(h);
        const std::vector<KeyLine> want = expected(h, f);
        for (size_t i = 0; i < want.size(); i++) {
            const std::string &key = want[i].key;
            size_t first = i, end = i;
            while (first > 0 && want[first - 1].key == key) first--;
            while (end < want.size() && want[end].key == key) end++;
            char buf[256];
            int32_t rec = want[i].rec;
            std::strcpy(buf, key.c_str());
            ASSERT_EQ(DBclKeySearch(h, buf, &rec, 2), 0) << f.tag << " " << i;
            EXPECT_EQ(rec, want[i].rec);
            EXPECT_EQ(std::string(buf), key);
            struct Mode { int mode, rc; long at; } modes[] = {
                {1, 0, static_cast<long>(first)},
                {13, 0, static_cast<long>(first)},
                {12, 0, static_cast<long>(first)},
                {14, 0, static_cast<long>(first)},
                {11, first == 0 ? DBW_KEYNOTFOUND : 0, first == 0 ? 0 : static_cast<long>(first) - 1},
                {15, end == want.size() ? DBW_KEYNOTFOUND : 0, end == want.size() ? static_cast<long>(end) - 1 : static_cast<long>(end)},
            };
            for (const Mode &m : modes) {
                std::strcpy(buf, key.c_str());
                rec = 0;
                ASSERT_EQ(DBclKeySearch(h, buf, &rec, m.mode), m.rc) << f.tag << " mode " << m.mode << " entry " << i;
                EXPECT_EQ(rec, want[static_cast<size_t>(m.at)].rec) << f.tag << " mode " << m.mode << " entry " << i;
                EXPECT_EQ(std::string(buf), want[static_cast<size_t>(m.at)].key);
            }
            if (f.kind != 'C' || i % 7 != 0) continue;
            // A prefix finds the first key that begins with it.
            for (size_t len : {size_t{1}, size_t{3}, static_cast<size_t>(k) - 1}) {
                const std::string pre = key.substr(0, len);
                size_t at = 0;
                while (want[at].key.compare(0, len, pre) != 0) at++;
                std::strcpy(buf, pre.c_str());
                ASSERT_EQ(DBclKeySearch(h, buf, &rec, 1), 0) << f.tag << " prefix '" << pre << "'";
                EXPECT_EQ(rec, want[at].rec);
            }
        }
        EXPECT_EQ(DBclCloseIndex(h), 0);
    }
}

// The first key is at 0; the key at a key's percentage has that percentage
// again; 0 and 100 reach the ends. (Along the walk the percentage is not
// monotonic: an interior key counts by its position in its own page, so it
// reads as the start of its page's span although the keys of the subtree
// before it come first.)
TEST_F(NtxFixture, PercentagesAgreeAlongTheWalk) {
    for (const Fixture &f : kFixtures) {
        const short h = open(f.tag);
        const std::vector<KeyLine> want = expected(h, f);
        for (size_t i = 0; i < want.size(); i++) {
            int p = -1;
            ASSERT_EQ(DBclGetKeyPercent(h, &p, cs(want[i].key.c_str()), want[i].rec), 0) << f.tag << " " << i;
            if (i == 0) EXPECT_EQ(p, 0) << f.tag;
            EXPECT_GE(p, 0);
            EXPECT_LE(p, 100);
            char key[256];
            int32_t rec = 0;
            ASSERT_EQ(DBclGetKeyAtPercent(h, p, key, &rec), 0);
            // The key reached never lies past the percentage asked for, and
            // misses it by less than one key of the smallest page (9 keys).
            int back = -1;
            ASSERT_EQ(DBclGetKeyPercent(h, &back, key, rec), 0);
            EXPECT_LE(back, p) << f.tag << " entry " << i;
            EXPECT_LE(p - back, 12) << f.tag << " entry " << i;
        }
        // Higher percentages never reach earlier keys.
        long prev = -1;
        for (int p = 0; p <= 100; p++) {
            char key[256];
            int32_t rec = 0;
            ASSERT_EQ(DBclGetKeyAtPercent(h, p, key, &rec), 0);
            long at = 0;
            while (at < static_cast<long>(want.size()) && (want[static_cast<size_t>(at)].rec != rec || want[static_cast<size_t>(at)].key != key)) at++;
            ASSERT_LT(at, static_cast<long>(want.size())) << f.tag << " " << p;
            EXPECT_GE(at, prev) << f.tag << " percent " << p;
            prev = at;
        }
        char key[256];
        int32_t rec = 0;
        ASSERT_EQ(DBclGetKeyAtPercent(h, 100, key, &rec), 0);
        EXPECT_EQ(rec, want.back().rec);
        ASSERT_EQ(DBclGetKeyAtPercent(h, 0, key, &rec), 0);
        EXPECT_EQ(rec, want.front().rec);
        EXPECT_EQ(DBclCloseIndex(h), 0);
    }
}

// Records change: each change deletes the record's old key and adds its new
// one, and the index must walk like the dump changed the same way.
TEST_F(NtxFixture, ChangedLikeRecordsChangeWalksLikeTheChangedDump) {
    idx::Rng rng(7);
    for (const Fixture &f : kFixtures) {
        const short h = open(f.tag);
        const int k = keylen(h);
        const std::vector<KeyLine> start = expected(h, f);
        const bool unique = std::string(f.tag) == "ucity";
        idx::Model model(unique);
        for (const KeyLine &l : start) ASSERT_TRUE(model.add(l.key, l.rec));
        for (int round = 0; round < 400; round++) {
            const KeyLine old = model.pick(rng.next());
            std::string key;
            if (f.kind == 'N') {
                key = numberKey(h, (static_cast<int>(rng.below(2000000)) - 1000000) / 100.0);
            } else if (f.kind == 'D') {
                char d[16];
                std::snprintf(d, sizeof d, "%04u%02u%02u", 1950 + rng.below(90), 1 + rng.below(12), 1 + rng.below(28));
                key = d;
            } else {
                key = old.key;
                key[rng.below(static_cast<uint32_t>(k))] = static_cast<char>('A' + rng.below(6));
            }
            ASSERT_EQ(DBclDeleteKey(h, cs(old.key.c_str()), old.rec), 0) << f.tag << " round " << round;
            ASSERT_TRUE(model.del(old.key, old.rec));
            const bool fresh = model.add(key, old.rec);
            ASSERT_EQ(DBclAddKey(h, cs(key.c_str()), old.rec), fresh ? 0 : DBW_EXISTS) << f.tag << " round " << round;
        }
        // A key that is not there, and one already there.
        const KeyLine some = model.pick(3);
        EXPECT_EQ(DBclDeleteKey(h, cs(some.key.c_str()), unique ? some.rec : 999999), unique ? 0 : DBW_KEYNOTFOUND);
        if (unique) model.del(some.key, some.rec);
        const KeyLine other = model.pick(5);
        EXPECT_EQ(DBclAddKey(h, cs(other.key.c_str()), other.rec), DBW_EXISTS);
        EXPECT_TRUE(idx::same(walk(h, true), model.entries())) << f.tag;
        EXPECT_TRUE(idx::same(walk(h, false), model.entries())) << f.tag;
        DBINDEXCHECK chk;
        EXPECT_EQ(DBclCheckIndex(h, &chk, 0), 0) << f.tag << ": " << chk.msg;
        EXPECT_EQ(DBclCloseIndex(h), 0);
        // And the same from the file.
        short again = -1;
        ASSERT_EQ(DBclOpenIndex(&again, cs(path(std::string("hbntx_") + f.tag + ".ntx").c_str()), 0), 0);
        EXPECT_TRUE(idx::same(walk(again, true), model.entries())) << f.tag << " reopened";
        EXPECT_EQ(DBclCloseIndex(again), 0);
    }
}

}  // namespace
