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
        for (size_t i = 0; i < out.size() && i < stored.size(); i++) {
            double v = 0;
            EXPECT_EQ(DBclKeyToDouble(&v, cs(stored[i].key.c_str())), 0);
            EXPECT_NEAR(v, std::atof(out[i].key.c_str()), 1e-9) << f.tag << " entry " << i;
            out[i].key = stored[i].key;
        }
        return out;
    }
    std::vector<KeyLine> walk(short h, bool forward) { return idx::walk(idx::kNtx, h, keylen(h), forward); }
};

// Each index both ways like the dump, and sound; every entry found by key
// and record, and every mode against the answer the dump gives for its key;
// a prefix finds the first key that begins with it; percentages agree along
// the walk. Then records change: each change deletes the record's old key
// and adds its new one, and the index must walk like the dump changed the
// same way, in memory and from the file.
TEST_F(NtxFixture, ReadAndChangedLikeTheDumps) {
    idx::Rng rng(7);
    for (const Fixture &f : kFixtures) {
        SCOPED_TRACE(f.tag);
        const std::string file = fixture(std::string("hbntx_") + f.tag + ".ntx");
        const short h = idx::openIndex(idx::kNtx, file);
        const size_t k = static_cast<size_t>(keylen(h));
        const std::vector<KeyLine> want = expected(h, f);
        EXPECT_TRUE(idx::same(walk(h, true), want));
        EXPECT_EQ(idx::check(idx::kNtx, h, f.tag).keys, static_cast<int32_t>(want.size()));
        idx::expectFound(idx::kNtx, h, want, k, 1);
        for (size_t i = 0; i < want.size(); i++) {
            idx::expectModes(idx::kNtx, h, want, want[i].key, k);
            if (f.kind != 'C' || i % 7 != 0) continue;
            for (size_t len : {size_t{1}, size_t{3}, k - 1}) {
                const std::string pre = want[i].key.substr(0, len);
                size_t at = 0;
                while (want[at].key.compare(0, len, pre) != 0) at++;
                const idx::Hit got = idx::search(DBclKeySearch, h, pre, 1, k);
                ASSERT_EQ(got.rc, 0) << "prefix '" << pre << "'";
                EXPECT_EQ(got.rec, want[at].rec) << "prefix '" << pre << "'";
            }
        }
        // Percentages: the first key is at 0; the key at a key's percentage
        // has that percentage again; 0 and 100 reach the ends. (Along the walk
        // the percentage is not monotonic: an interior key counts by its
        // position in its own page, so it reads as the start of its page's
        // span although the keys of the subtree before it come first.)
        char key[256];
        int32_t rec = 0;
        for (size_t i = 0; i < want.size(); i++) {
            int p = -1, back = -1;
            ASSERT_EQ(DBclGetKeyPercent(h, &p, cs(want[i].key.c_str()), want[i].rec), 0) << i;
            if (i == 0) EXPECT_EQ(p, 0);
            EXPECT_GE(p, 0) << i;
            EXPECT_LE(p, 100) << i;
            // The key reached never lies past the percentage asked for, and
            // misses it by less than one key of the smallest page (9 keys).
            ASSERT_EQ(DBclGetKeyAtPercent(h, p, key, &rec), 0);
            ASSERT_EQ(DBclGetKeyPercent(h, &back, key, rec), 0);
            EXPECT_LE(back, p) << "entry " << i;
            EXPECT_LE(p - back, 12) << "entry " << i;
        }
        // Higher percentages never reach earlier keys; 0 and 100 the ends.
        long prev = -1;
        for (int p = 0; p <= 100; p++) {
            ASSERT_EQ(DBclGetKeyAtPercent(h, p, key, &rec), 0);
            const long at = std::find_if(want.begin(), want.end(), [&](const KeyLine &l) {
                                return l.rec == rec && l.key == key;
                            }) - want.begin();
            ASSERT_LT(at, static_cast<long>(want.size())) << "percent " << p;
            EXPECT_GE(at, prev) << "percent " << p;
            if (p == 0) EXPECT_EQ(at, 0);
            if (p == 100) EXPECT_EQ(at, static_cast<long>(want.size()) - 1);
            prev = at;
        }
        idx::Model model(std::string(f.tag) == "ucity");
        for (const KeyLine &l : want) ASSERT_TRUE(model.add(l.key, l.rec));
        idx::rekey(model, rng, 400, [&](char *key, int32_t rec) { return DBclDeleteKey(h, key, rec); },
                   [&](char *key, int32_t rec) { return DBclAddKey(h, key, rec); }, [&](const KeyLine &old) {
                       std::string key = old.key;
                       if (f.kind == 'C') {
                           key[rng.below(static_cast<uint32_t>(k))] = static_cast<char>('A' + rng.below(6));
                       } else if (f.kind == 'N') {
                           char n[64];
                           EXPECT_EQ(DBclDoubleToKey(h, n, (static_cast<int>(rng.below(2000000)) - 1000000) / 100.0), 0);
                           key = n;
                       } else {
                           char d[16];
                           std::snprintf(d, sizeof d, "%04u%02u%02u", 1950 + rng.below(90), 1 + rng.below(12),
                                         1 + rng.below(28));
                           key = d;
                       }
                       return key;
                   });
        ASSERT_FALSE(HasFatalFailure());
        EXPECT_TRUE(idx::same(walk(h, true), model.entries()));
        EXPECT_TRUE(idx::same(walk(h, false), model.entries()));
        DBINDEXCHECK chk;
        EXPECT_EQ(DBclCheckIndex(h, &chk, 0), 0) << chk.msg;
        EXPECT_EQ(DBclCloseIndex(h), 0);
        const short again = idx::openIndex(idx::kNtx, file);
        EXPECT_TRUE(idx::same(walk(again, true), model.entries())) << "reopened";
        EXPECT_EQ(DBclCloseIndex(again), 0);
    }
}

}  // namespace
