// Bad input to the NTX and NDX families: damaged headers (each check in its
// order: with two faults the first wins), cut files, damaged pages and
// nodes, cycles, wrong arguments and handles. Each gives its status; none
// crashes, hangs or writes to the file.
#include "index_util.h"

using idx::cs;
using idx::Fam;

namespace {

using Bytes = std::vector<uint8_t>;
using Edits = std::vector<std::pair<size_t, Bytes>>;

Bytes le16(int v) { return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)}; }
Bytes le32(int64_t v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 24)};
}
struct Case {
    const char *what;
    Edits edits;
    int rc;
};

class IndexBad : public xbt::LibTest {
protected:
    void SetUp() override {
        LibTest::SetUp();
        ntx_ = xbt::readFile(xbt::fixturePath("hbntx_byname.ntx"));
        // 300 keys of 40 bytes, 10 a node: three levels.
        const std::string b = path("base.ndx");
        const short h = idx::newIndex(idx::kNdx, b, 40);
        for (int i = 0; i < 300; i++) ASSERT_EQ(DBd3AddKey(h, cs(("K" + std::to_string(10000 + (i * 7) % 300)).c_str()), i + 1), 0);
        ASSERT_EQ(DBd3CloseIndex(h), 0);
        ndx_ = xbt::readFile(b);
    }
    // A copy of orig with some bytes changed, and cut to size if given.
    std::string damaged(const Fam &f, const Bytes &orig, const Edits &edits, long size = -1) {
        Bytes b = orig;
        for (const auto &e : edits) std::copy(e.second.begin(), e.second.end(), b.begin() + static_cast<long>(e.first));
        if (size >= 0) b.resize(static_cast<size_t>(size));
        const std::string p = path(std::string("bad") + f.ext);
        xbt::writeFile(p, b);
        return p;
    }
    // Each case refused at open with its status, handle -1, file unchanged.
    void refused(const Fam &f, const Bytes &orig, const std::vector<Case> &cases) {
        for (const Case &c : cases) {
            const std::string p = damaged(f, orig, c.edits);
            const Bytes before = xbt::readFile(p);
            short h = 99;
            EXPECT_EQ(f.open(&h, cs(p.c_str()), 0), c.rc) << c.what;
            EXPECT_EQ(h, -1) << c.what;
            EXPECT_EQ(xbt::readFile(p), before) << c.what;
        }
    }
    // Each case opens (buffered, write-through, shared); walks and searches
    // stop with a status, the check names the fault, adds and deletes refuse
    // rather than spread it, and the file is not written. The case's status
    // is the first that the walks and a search for probe meet.
    void broken(const Fam &f, const Bytes &orig, const std::vector<Case> &cases, const std::string &probe) {
        for (const Case &c : cases) {
            const std::string p = damaged(f, orig, c.edits);
            const Bytes before = xbt::readFile(p);
            for (int mode : {0, DBO_FLUSH, DBO_SHARED}) {
                short h = -1;
                ASSERT_EQ(f.open(&h, cs(p.c_str()), mode), 0) << c.what;
                EXPECT_EQ(idx::use(f, h, probe.c_str()), c.rc) << c.what << " mode " << mode;
                DBINDEXCHECK chk;
                EXPECT_EQ(f.check(h, &chk, 0), DBE_CORRUPT) << c.what;
                EXPECT_NE(chk.msg[0], '\0') << c.what;
                EXPECT_LT(f.add(h, cs(probe.c_str()), 1), 0) << c.what;
                EXPECT_LT(f.del(h, cs(probe.c_str()), 2), 0) << c.what;
                EXPECT_EQ(f.close(h), 0);
            }
            EXPECT_EQ(xbt::readFile(p), before) << c.what;
        }
    }
    // A damaged copy that opens: walks and a search for probe give use, the
    // loose and the strict check their statuses, the loose one's message
    // naming what.
    void opens(const Fam &f, const std::string &p, const char *probe, int use, int loose, int strict,
               const char *what = "") {
        short h = -1;
        ASSERT_EQ(f.open(&h, cs(p.c_str()), 0), 0) << p;
        EXPECT_EQ(idx::use(f, h, probe), use);
        DBINDEXCHECK chk;
        EXPECT_EQ(f.check(h, &chk, 0), loose) << chk.msg;
        EXPECT_NE(std::string(chk.msg).find(what), std::string::npos) << chk.msg;
        EXPECT_EQ(f.check(h, &chk, 1), strict) << chk.msg;
        EXPECT_EQ(f.close(h), 0);
    }
    // Cut files, access codes and names, common to both families: cut in the
    // header, a read failure; cut to no whole page, open with 207 and the
    // missing pages read failures.
    void cutAndNamed(const Fam &f, const Bytes &orig, long cut) {
        short h = -1;
        EXPECT_EQ(f.open(&h, cs(damaged(f, orig, {}, 200).c_str()), 0), DBE_READ);
        ASSERT_EQ(f.open(&h, cs(damaged(f, orig, {}, cut).c_str()), 0), DBW_BADFILELEN);
        EXPECT_EQ(idx::use(f, h, "K"), DBE_READ);
        EXPECT_EQ(f.close(h), 0);
        const std::string p = damaged(f, orig, {});
        EXPECT_EQ(f.open(&h, cs(p.c_str()), 1), DBE_BADVERSION);
        for (int access : {5, 6}) ASSERT_EQ(f.open(&h, cs(p.c_str()), access) | f.close(h), 0) << access;
        EXPECT_EQ(f.open(&h, cs(path("missing").c_str()), 0), DBE_NOTFOUND);
        EXPECT_EQ(f.open(&h, cs(std::string(600, 'a').c_str()), 0), DBE_BADFILENAME);
    }
    Bytes ntx_, ndx_;
};

// Harbour's name index: key length 20 at 14, item 28 at 12, root 0x2C00 at
// 4 (10 keys; page 1024 its first child), 32 keys a page at 18, 16 at 20,
// 12288 bytes.
TEST_F(IndexBad, NtxHeadersAndPages) {
    const Fam &f = idx::kNtx;
    refused(f, ntx_, {
        {"key length 0", {{14, le16(0)}, {12, le16(9)}}, DBE_KEYLEN},
        {"key length 201", {{14, le16(201)}}, DBE_KEYLEN},
        {"item length", {{12, le16(29)}, {4, le32(0)}}, DBE_ITEMLEN},
        {"root 0", {{4, le32(0)}, {18, le16(3)}}, DBE_ROOTPAGE},
        {"root not a page", {{4, le32(1025)}}, DBE_ROOTPAGE},
        {"root at the end", {{4, le32(12288)}}, DBE_ROOTPAGE},
        {"max keys", {{18, le16(31)}, {20, le16(3)}}, DBE_MAXKEYS},
        {"min keys", {{20, le16(15)}}, DBE_MINKEYS},
        {"expression unterminated", {{22, Bytes(256, 'A')}}, DBE_BADEXPR}});
    // The unrounded page capacity some producers store is accepted (34 for
    // an item of 28 bytes), with its own half as the minimum; Harbour's
    // pages, laid out for 32 keys, then no longer fit it.
    opens(f, damaged(f, ntx_, {{18, le16(34)}, {20, le16(17)}}), "Q", DBE_CORRUPT, DBE_CORRUPT, DBE_CORRUPT);
    cutAndNamed(f, ntx_, 12000);  // the root, at 11264, is cut
    const size_t root = 0x2C00;
    auto off = [&](int i) { return root + (ntx_[root + 2 + 2 * i] | ntx_[root + 3 + 2 * i] << 8); };
    // Child pointers of the root's first key, the way to the smallest keys.
    broken(f, ntx_, {
        {"count above the page's room", {{root, le16(33)}}, DBE_CORRUPT},
        {"offset outside the page", {{root + 2, le16(1020)}}, DBE_CORRUPT},
        {"two offsets on one slot", {{root + 4, le16(static_cast<int>(off(0) - root))}}, DBE_CORRUPT},
        {"child pointing at the root", {{off(0), le32(root)}}, DBE_CORRUPT},
        {"child not a page", {{off(0), le32(3000)}}, DBE_SEEK}}, " ");
    // A free list that loops (the header names a page whose link names
    // itself) is found by the check; the tree itself is sound.
    Bytes b = ntx_;
    b.resize(b.size() + 1024);
    const int64_t extra = static_cast<int64_t>(ntx_.size());
    opens(f, damaged(f, b, {{8, le32(extra)}, {static_cast<size_t>(extra), le32(extra)}}), "Q", 0, DBE_CORRUPT,
          DBE_CORRUPT, "free");
}

// Our own NDX of 300 keys, three levels.
TEST_F(IndexBad, NdxHeadersAndNodes) {
    const Fam &f = idx::kNdx;
    const long blocks = static_cast<long>(ndx_.size() / 512);
    refused(f, ndx_, {
        {"key length 0", {{12, le16(0)}, {18, le16(1)}}, DBE_KEYLEN},
        {"key length 245", {{12, le16(245)}}, DBE_KEYLEN},
        {"key type 2", {{16, le16(2)}, {18, le16(3)}}, DBE_KEYTYPE},
        {"numeric key of 40 bytes", {{16, le16(1)}}, DBE_KEYTYPE},
        {"item length unrounded", {{18, le16(42)}, {0, le32(0)}}, DBE_ITEMLEN},
        {"root 0", {{0, le32(0)}, {14, le16(1)}}, DBE_ROOTPAGE},
        {"root past the end", {{0, le32(blocks)}}, DBE_ROOTPAGE},
        {"root past 2 GiB", {{0, le32(0x7FFFFFFF)}}, DBE_ROOTPAGE},
        {"max keys 1", {{14, le16(1)}, {24, {0}}}, DBE_MAXKEYS},
        {"max keys past the block", {{14, le16(11)}}, DBE_MAXKEYS},
        {"expression unterminated", {{24, Bytes(488, 'A')}}, DBE_BADEXPR},
        {"expression empty", {{24, {0}}}, DBE_BADEXPR}});
    // Fewer keys a node than the block holds is another writer's choice:
    // accepted, and the strict check finds our fuller nodes.
    opens(f, damaged(f, ndx_, {{14, le16(3)}}), "K10000", 0, 0, DBE_CORRUPT);
    const size_t root = idx::le32(ndx_, 0) * 512;
    short h = -1;
    EXPECT_EQ(f.open(&h, cs(damaged(f, ndx_, {}, static_cast<long>(root)).c_str()), 0), DBE_ROOTPAGE);
    cutAndNamed(f, ndx_, static_cast<long>(ndx_.size()) - 100);
    auto block = [&](size_t at) { return static_cast<size_t>(idx::le32(ndx_, at)) * 512; };
    const size_t c0 = block(root + 4), leaf0 = block(c0 + 4);
    broken(f, ndx_, {
        {"count past the block", {{root, le32(11)}}, DBE_CORRUPT},
        {"child past 2 GiB", {{root + 4, le32(0x40000000)}}, DBE_SEEK},
        {"a leaf below the root without keys", {{leaf0, le32(0)}}, DBE_CORRUPT},
        {"a cycle below the root", {{c0 + 4, le32(static_cast<int64_t>(c0 / 512))}}, DBE_CORRUPT}}, "K10000");
    // A key that goes down the root's second child: just above its first
    // key. Child 0 there is met by a search for it; an interior key too
    // small hides keys from a search (the check says which); a greater one
    // is only loose, and searches still work.
    std::string second(reinterpret_cast<const char *>(&ndx_[root + 4 + 8]), 40);
    second[6] = '!';
    broken(f, ndx_, {{"child 0 in the middle", {{root + 4 + 48, le32(0)}}, DBE_SEEK}}, second);
    opens(f, damaged(f, ndx_, {{root + 12, Bytes(6, '!')}}), second.c_str(), 0, DBE_CORRUPT, DBE_CORRUPT, "greatest");
    opens(f, damaged(f, ndx_, {{root + 12, Bytes(second.begin(), second.end())}}), "K10000", 0, 0, DBE_CORRUPT);
}

// Wrong arguments and handles, read-only refusals. The calls are one
// implementation for both families (btclip.h): NTX stands for both, NDX
// gives the handle of another family.
TEST_F(IndexBad, ArgumentsAndHandles) {
    const std::string t = idx::openableTable(*this, path("t.dbf"), "hbntx.dbf");
    int th = -1;
    ASSERT_EQ(DBOpenFile(&th, cs(t.c_str()), 1), 0);
    ASSERT_GE(DBGetRecord(th, 1), 0);
    const Fam &f = idx::kNtx, &other = idx::kNdx;
    const std::string p = path("a.ntx");
    xbt::writeFile(p, ntx_);
    short h = -1, oh = -1;
    ASSERT_EQ(f.open(&h, cs(p.c_str()), DBO_READONLY), 0);
    char key[64] = "K";
    int32_t rec = 0;
    int pc = 0;
    short sz = 0;
    char *made = nullptr;
    const int nulls[] = {
        f.open(nullptr, cs(p.c_str()), 0), f.open(&oh, nullptr, 0), f.search(h, nullptr, &rec, 1),
        f.search(h, key, nullptr, 1), f.first(h, nullptr, &rec), f.last(h, key, nullptr), f.next(h, nullptr, &rec),
        f.prev(h, key, nullptr), f.current(h, nullptr, &rec), f.add(h, nullptr, 1), f.del(h, nullptr, 1),
        DBclGetKeyPercent(h, nullptr, key, 0), DBclGetKeyPercent(h, &pc, nullptr, 0),
        DBclGetKeyAtPercent(h, 5, nullptr, &rec), f.cache(h, nullptr, 1), f.info(h, nullptr),
        DBclGetIndexKeyExpr(h, nullptr), f.check(h, nullptr, 0), DBclMakeKey(th, h, nullptr),
        DBclDoubleToKey(h, nullptr, 1.0), DBclKeyToDouble(nullptr, key), DBclDateToKey(key, nullptr, 2),
        DBclKeyToDate(nullptr, 2, key), f.create(cs("x"), 'C', nullptr, 10, 0), f.create(nullptr, 'C', cs("A"), 10, 0)};
    for (size_t i = 0; i < std::size(nulls); i++) EXPECT_EQ(nulls[i], DBE_NULLPARAM) << "call " << i;
    EXPECT_EQ(f.add(h, key, 1), DBE_READONLY);
    EXPECT_EQ(f.del(h, key, 1), DBE_READONLY);
    EXPECT_EQ(f.flush(h), DBE_READONLY);
    idx::Info info;
    ASSERT_EQ(f.info(h, &info), 0);
    EXPECT_EQ(info.flags.isreadonly, 1);
    // Handles: out of range, never given, a table's, another family's.
    oh = idx::newIndex(other, path("o"), 10);
    for (int bad : {-1, 0, 2, 58, 59, 1000, th, static_cast<int>(oh)}) {
        DBINDEXCHECK chk;
        EXPECT_EQ(f.first(bad, key, &rec), DBE_BADHANDLE) << bad;
        EXPECT_EQ(f.add(bad, key, 1), DBE_BADHANDLE) << bad;
        EXPECT_EQ(f.cache(bad, &sz, 1), DBE_BADHANDLE) << bad;
        EXPECT_EQ(f.info(bad, &info), DBE_BADHANDLE) << bad;
        EXPECT_EQ(f.check(bad, &chk, 0), DBE_BADHANDLE) << bad;
        EXPECT_EQ(f.lock(bad), DBE_BADHANDLE) << bad;
        EXPECT_EQ(f.close(bad), DBE_BADHANDLE) << bad;
    }
    EXPECT_EQ(DBclMakeKey(h, h, &made), DBE_BADHANDLE);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(DBclBuildIndex(h, cs(path("b").c_str()), 'C', cs("NAME"), 10, 0), DBE_BADHANDLE);
    ASSERT_EQ(other.close(oh), 0);
    EXPECT_EQ(f.close(h), 0);
    EXPECT_EQ(f.first(h, key, &rec), DBE_BADHANDLE);
}

}  // namespace
