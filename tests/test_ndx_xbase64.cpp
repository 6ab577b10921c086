// NDX files written by another library: Debian's xbase64 builds indexes over
// a table of ours (character, numeric and date keys, unique and not); we
// open, walk, search, check and change them. Where xbase64's files and the
// dBASE III layout disagree we follow the layout, and these tests pin down
// how they differ.
#include "ndx_util.h"

using idx::cs;
using idx::KeyLine;

namespace {

// Three levels of C(20) keys. xbase64 damages its own trees when they grow
// to four levels (see TheirDamagedTreesAreFoundDamaged).
constexpr int kRows = 2000;

class NdxXbase64 : public xbt::LibTest {
protected:
    void SetUp() override {
        LibTest::SetUp();
        ASSERT_EQ(DBSetDefaultDateStyle(2), 0);
        table_ = path("people.dbf");
        ndxt::makeTable(table_, &t_, kRows);
    }
    // Run the writer (directly, or under qemu-i386 where 32-bit programs do
    // not run here) for one index; true when it wrote the file.
    bool xbase64(const std::string &ndx, const char *expr, bool unique = false) {
        static std::string runner;
        const std::string w = XB_NDX_WRITER;
        for (const std::string &r : {"'" + w + "'", "qemu-i386 '" + w + "'"}) {
            int st = -1;
            if (runner.empty() && !w.empty()) xbt::run(r + " --probe 2>/dev/null", &st);
            if (st == 0) runner = r;
        }
        if (runner.empty()) {
            ADD_FAILURE() << (w.empty() ? "the xbase64 writer was not built: make deps installs libxbase64-dev and "
                                          "libxbase64-1:i386"
                                        : "the 32-bit xbase64 writer runs neither natively nor under qemu-i386 (qemu-user)");
            return false;
        }
        int st = -1;
        const std::string args = " '" + table_ + "' '" + ndx + "' " + expr + (unique ? " unique" : "");
        const std::string out = xbt::run(runner + args + " 2>&1", &st);
        EXPECT_EQ(st, 0) << out;
        return st == 0;
    }
    std::string table_;
    int t_ = -1;
};

// Their files, header byte by byte: where they follow the layout, and the
// two places they do not (a key count at 8, dates as text keys). Every index
// walks both ways to the table's keys, passes the whole-tree check, and
// finds each key, and each key with its record, by search. The name index
// is then changed by us as records change.
TEST_F(NdxXbase64, HeadersWalksSearchesAndChangesOfTheirIndexes) {
    const struct {
        const char *file, *expr;
        bool unique;
        char kind;  // as ndxt::tableKeys takes it
        int k, type, il;
    } cases[] = {{"name.ndx", "NAME", false, 'C', 20, 0, 28}, {"uname.ndx", "NAME", true, 'C', 20, 0, 28},
                 {"amount.ndx", "AMOUNT", false, 'N', 8, 1, 16}, {"hired.ndx", "HIRED", false, 'T', 8, 0, 16}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.file);
        const std::string f = path(c.file);
        ASSERT_TRUE(xbase64(f, c.expr, c.unique));
        const std::vector<uint8_t> b = xbt::readFile(f);
        ASSERT_GE(b.size(), 1024u);
        EXPECT_EQ(idx::le32(b, 4) * 512, b.size());
        // Key length, keys a node, type (a date field: character keys
        // "yyyymmdd"), item length.
        for (const auto &[at, v] : {std::pair{12, c.k}, {14, (512 - 8) / c.il}, {16, c.type}, {18, c.il}})
            EXPECT_EQ(idx::le16(b, at), v) << "header at " << at;
        EXPECT_EQ(b[23], c.unique ? 1 : 0);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[24])), c.expr);
        // Bytes 8..11: xbase64 keeps the number of keys + 1 there; the
        // layout leaves it to the writer and we ignore it.
        if (!c.unique) EXPECT_EQ(idx::le32(b, 8), kRows + 1u);
        const short h = idx::openIndex(idx::kNdx, f);
        DBD3INDEXINFO info;
        ASSERT_EQ(DBd3GetIndexInfo(h, &info), 0);
        const size_t k = static_cast<size_t>(info.keylen);
        EXPECT_EQ(info.unique, c.unique ? 1 : 0);
        const std::vector<KeyLine> want = ndxt::tableKeys(kRows, c.kind, c.unique);
        const std::vector<KeyLine> got = idx::walk(idx::kNdx, h, info.keylen);
        EXPECT_TRUE(idx::same(idx::walk(idx::kNdx, h, info.keylen, false), got));
        // Equal keys are xbase64's to order: the same entries, keys in order.
        EXPECT_TRUE(idx::same(ndxt::inOrder(got, c.kind == 'N', false), want));
        for (size_t i = 0; i < got.size() && i < want.size(); i++) ASSERT_EQ(got[i].key, want[i].key) << i;
        EXPECT_GE(idx::check(idx::kNdx, h, "theirs").height, 2);
        idx::expectFound(idx::kNdx, h, got, k, 2);
        // Keys that are not there: every mode for a text; a number between
        // two, which leaves the greatest below, and one below them all.
        if (c.kind != 'N') idx::expectModes(idx::kNdx, h, got, c.kind == 'T' ? "19990230" : "NAME00500x", k);
        if (c.kind == 'N') {
            const idx::Hit between = idx::search(DBd3KeySearch, h, ndxt::dbl(0.3), 1, 8);
            EXPECT_EQ(between.rc, DBW_KEYNOTFOUND);
            EXPECT_EQ(ndxt::val(between.key), 0.0);
            EXPECT_EQ(idx::search(DBd3KeySearch, h, ndxt::dbl(-1e9), 1, 8).rc, DBW_NOMOREKEYS);
        }
        // Our key maker agrees with the keys they stored: for a date field
        // indexed as text, "yyyymmdd".
        for (size_t i = 0; i < got.size(); i += 97) {
            ASSERT_GE(DBGetRecord(t_, got[i].rec), 0);
            char *made = nullptr;
            ASSERT_EQ(DBd3MakeKey(t_, h, &made), 0);
            EXPECT_EQ(std::string(made, k), got[i].key) << i;
            DBFreeMemory(made, "test", 0);
        }
        if (c.kind == 'C' && !c.unique) {
            // Still sound, and the model's entries; equal keys are compared
            // by key and record, an order that would fold a doubled entry,
            // so the count too.
            idx::Model model(false, true);
            for (const KeyLine &l : got) ASSERT_TRUE(model.add(l.key, l.rec));
            idx::Rng rng(11);
            idx::rekey(model, rng, 1500, [&](char *key, int32_t rec) { return DBd3DeleteKey(h, key, rec); },
                       [&](char *key, int32_t rec) { return DBd3AddKey(h, key, rec); }, [&](const KeyLine &old) {
                           std::string key = old.key;
                           key[4 + rng.below(5)] = static_cast<char>('0' + rng.below(10));
                           return key;
                       });
            EXPECT_EQ(idx::check(idx::kNdx, h, "changed").keys, static_cast<int32_t>(model.size()));
            EXPECT_TRUE(idx::same(ndxt::inOrder(idx::walk(idx::kNdx, h, 20), false, false), model.entries()));
        }
        ASSERT_EQ(DBd3CloseIndex(h), 0);
    }
}

// Two trees of theirs that are damaged by the layout; the check says so,
// and a walk stops with a status, never crashing or looping.
// - A key length that is no multiple of 4: the header's item length is the
//   key length + 8 rounded up (20 for 10), as the layout says, but xbase64
//   lays its items 18 bytes apart (and, over a few thousand keys, crashes).
// - Grown to four levels, an interior node whose count names children it
//   never wrote (block 0).
TEST_F(NdxXbase64, TheirDamagedTreesAreFoundDamaged) {
    auto damaged = [&](const std::string &f, const char *msg, int most) {
        const short h = idx::openIndex(idx::kNdx, f);
        DBINDEXCHECK chk;
        EXPECT_EQ(DBd3CheckIndex(h, &chk, 0), DBE_CORRUPT);
        EXPECT_NE(chk.msg[0], '\0');
        EXPECT_NE(std::string(chk.msg).find(msg), std::string::npos) << chk.msg;
        char key[32];
        int32_t rec = 0;
        int rc = DBd3GoFirstKey(h, key, &rec), n = 0;
        for (; rc == 0 && n < 10000; n++) rc = DBd3GoNextKey(h, key, &rec);
        EXPECT_LT(rc, 0);
        EXPECT_LT(n, most);
        ASSERT_EQ(DBd3CloseIndex(h), 0);
    };
    ndxt::append(t_, kRows + 1, 3000);
    ASSERT_TRUE(xbase64(path("name4.ndx"), "NAME"));
    damaged(path("name4.ndx"), "block 0", 3000);
    // 40 rows: codes C0000031, C0000062 ... in order.
    table_ = path("small.dbf");
    ndxt::makeTable(table_, &t_, 40);
    ASSERT_TRUE(xbase64(path("code.ndx"), "CODE"));
    const std::vector<uint8_t> b = xbt::readFile(path("code.ndx"));
    EXPECT_EQ(b[18], 20);
    // The first leaf's second item starts 4 + 18 bytes in, not 4 + 20.
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[512 + 4 + 18 + 8]), 8), "C0000062");
    damaged(path("code.ndx"), "", 40);
}

}  // namespace
