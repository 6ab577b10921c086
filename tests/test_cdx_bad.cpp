// IDX files made byte by byte from the format's layouts and read back; then
// bad files and wrong arguments: each a status, the file left as it was.
#include "cdx_util.h"

#include "btree.h"

using cdx::cs;
using cdx::KeyLine;

namespace {

using idx::Bytes;

// A field of a file: n bytes at `at`, a value of up to 4 bytes (little-endian,
// big-endian with be), or more: n copies of the byte v.
struct Put {
    size_t at;
    int n;
    uint32_t v;
    bool be = false;
};
void put(Bytes &f, const std::vector<Put> &fields) {
    for (const Put &p : fields)
        for (int i = 0; i < p.n; i++)
            f[p.at + static_cast<size_t>(i)] =
                static_cast<uint8_t>(p.n > 4 ? p.v : p.v >> (8 * (p.be ? p.n - 1 - i : i)));
}

// A page's head: attributes, key count, left and right siblings (-1: none).
void head(Bytes &f, size_t p, int attr, size_t n, int32_t left, int32_t right) {
    put(f, {{p, 2, static_cast<uint32_t>(attr)}, {p + 2, 2, static_cast<uint32_t>(n)},
            {p + 4, 4, static_cast<uint32_t>(left)}, {p + 8, 4, static_cast<uint32_t>(right)}});
}
// Whole items after the head: each the key, then its record (withRec) and
// its child (pages given), both big-endian.
void items(Bytes &f, size_t p, int k, const std::vector<KeyLine> &e, bool withRec, const std::vector<uint32_t> &pages) {
    size_t at = p + 12;
    for (size_t i = 0; i < e.size(); i++) {
        std::memcpy(&f[at], e[i].key.data(), static_cast<size_t>(k));
        at += static_cast<size_t>(k);
        if (withRec) idx::putBE32(f, at, static_cast<uint32_t>(e[i].rec));
        at += withRec ? 4 : 0;
        if (!pages.empty()) idx::putBE32(f, at, pages[i]);
        at += pages.empty() ? 0 : 4;
    }
}

// A compact leaf written from the layout: R = 16, D = T = 4, B = 3 (keys of
// at most 15 bytes, blank fill).
void compactLeaf(Bytes &f, size_t p, int32_t left, int32_t right, int k, const std::vector<KeyLine> &e) {
    head(f, p, 2, e.size(), left, right);
    put(f, {{p + 14, 4, 0xFFFF}});
    const uint8_t widths[] = {0x0F, 0x0F, 16, 4, 4, 3};  // dup and trail masks, R, D, T, B
    std::memcpy(&f[p + 18], widths, sizeof widths);
    size_t kt = p + 512;
    std::string prev;
    for (size_t j = 0; j < e.size(); j++) {
        const std::string &key = e[j].key;
        int trail = 0;
        while (trail < k && key[static_cast<size_t>(k - 1 - trail)] == ' ') trail++;
        int dup = 0;
        if (j > 0)
            while (dup < k - trail && prev[static_cast<size_t>(dup)] == key[static_cast<size_t>(dup)]) dup++;
        const int len = k - dup - trail;
        kt -= static_cast<size_t>(len);
        std::memcpy(&f[kt], key.data() + dup, static_cast<size_t>(len));
        const uint32_t v = static_cast<uint32_t>(e[j].rec | dup << 16 | trail << 20);
        put(f, {{p + 24 + j * 3, 3, v}});
        prev = key;
    }
    put(f, {{p + 12, 2, static_cast<uint32_t>(488 - 3 * e.size() - (p + 512 - kt))}});
}

// n keys "N<number>", every third without an "X", blank-filled to k bytes,
// the first of record 100 + from.
std::vector<KeyLine> names(int from, int n, int k) {
    std::vector<KeyLine> v;
    for (int i = 0; i < n; i++) {
        std::string s = "N" + std::to_string(1000 + from + i).substr(1) + (i % 3 ? "X" : "");
        s.resize(static_cast<size_t>(k), ' ');
        v.push_back({100 + from + i, s});
    }
    return v;
}

// A compact IDX: header (1024), root interior node at 1024, leaves at 1536
// and 2048, keys of 8 bytes; root items key, record, child. Header fields:
// root, free list, key length, options, expression pool and lengths.
Bytes compactIdx(std::vector<KeyLine> &all) {
    const int k = 8;
    Bytes f(2560, 0);
    put(f, {{0, 4, 1024}, {4, 4, 0xFFFFFFFF}, {12, 2, k}, {14, 1, 0x20}, {15, 1, 1}, {504, 2, 5}, {506, 2, 1},
            {510, 2, 5}});
    std::memcpy(&f[512], "NAME", 5);
    const std::vector<KeyLine> a = names(0, 30, k), b = names(30, 25, k);
    compactLeaf(f, 1536, -1, 2048, k, a);
    compactLeaf(f, 2048, 1536, -1, k, b);
    head(f, 1024, 1, 2, -1, -1);
    items(f, 1024, k, {a.back(), b.back()}, true, {1536, 2048});
    all = a;
    all.insert(all.end(), b.begin(), b.end());
    return f;
}

// A non-compact IDX: header (512), root at 512, leaves at 1024 and 1536;
// leaf items key and record, root items key and child; the end of file at
// offset 8.
Bytes plainIdx(std::vector<KeyLine> &all) {
    const int k = 6;
    Bytes f(2048, 0);
    put(f, {{0, 4, 512}, {4, 4, 0xFFFFFFFF}, {8, 4, 2048}, {12, 2, k}, {15, 1, 1}});
    std::memcpy(&f[16], "NAME", 5);
    const std::vector<KeyLine> a = names(0, 40, k), b = names(40, 10, k);
    head(f, 1024, 2, a.size(), -1, 1536);
    items(f, 1024, k, a, true, {});
    head(f, 1536, 2, b.size(), 1024, -1);
    items(f, 1536, k, b, true, {});
    head(f, 512, 1, 2, -1, -1);
    items(f, 512, k, {a.back(), b.back()}, false, {1024, 1536});
    all = a;
    all.insert(all.end(), b.begin(), b.end());
    return f;
}

class CdxBad : public cdx::Suite {
protected:
    int open(const Bytes &b, int *h, const char *name = "x.idx", int mode = 0) {
        const std::string f = path(name);
        xbt::writeFile(f, b);
        return DBfbOpenIndex(h, cs(f.c_str()), mode);
    }
};

TEST_F(CdxBad, IdxFilesMadeByteByByteReadBack) {
    for (int compact = 1; compact >= 0; compact--) {
        SCOPED_TRACE(compact ? "compact" : "plain");
        std::vector<KeyLine> all;
        const Bytes f = compact ? compactIdx(all) : plainIdx(all);
        const size_t k = all[0].key.size();
        int h = -1;
        ASSERT_EQ(open(f, &h), 0);
        ASSERT_EQ(DBfbSetDefaultKeyType(h, 'C'), 0);
        EXPECT_EQ(DBfbCompressedIndex(), compact);
        EXPECT_TRUE(idx::same(cdx::walk(h), all));
        EXPECT_TRUE(idx::same(idx::walk(cdx::kIdx, h, static_cast<int>(k), false), all)) << "back";
        cdx::expectSound(h, all.size(), "as made", 0);
        idx::expectFound(cdx::kIdx, h, all, k, 1);
        // A change keeps the layout: read by the same rules after reopening.
        ASSERT_EQ(DBfbAddKey(h, cs("N0305"), 7), 0);
        ASSERT_EQ(DBfbDeleteKey(h, cs(all[3].key.c_str()), all[3].rec), 0);
        ASSERT_EQ(DBfbCloseIndex(h), 0);
        ASSERT_EQ(DBfbOpenIndex(&h, cs(path("x.idx").c_str()), 0), 0);
        DBfbSetDefaultKeyType(h, 'C');
        idx::Model want(false, true);
        for (const KeyLine &l : all) want.add(l.key, l.rec);
        want.del(all[3].key, all[3].rec);
        want.add("N0305" + std::string(k - 5, ' '), 7);
        EXPECT_TRUE(idx::same(cdx::walk(h), want.entries())) << "changed";
        ASSERT_EQ(DBfbCloseIndex(h), 0);
    }
}

// A file spoiled in one place, or in two (the earlier check reports): the
// compact IDX (c), the non-compact one (p) and a new compound file (d).
// Headers are refused at the open, each check in its order. Damaged pages
// of the compact IDX (root at 1024, its children big-endian at 1048 and
// 1064; leaves at 1536 and 2048) open, then each read gives -206, never a
// crash or a stray read, and the checker names the damage; sibling links
// and separators only the checker finds (named): the moves follow the path.
TEST_F(CdxBad, SpoiledFilesAreRefusedByTheirFirstCheck) {
    constexpr int kReads = 1;  // opens; reads are refused
    std::vector<KeyLine> all, plain;
    ASSERT_EQ(DBfpCreateIndex(cs(path("d.cdx").c_str())), 0);
    const std::map<char, Bytes> base = {
        {'c', compactIdx(all)}, {'p', plainIdx(plain)}, {'d', xbt::readFile(path("d.cdx"))}};
    const struct {
        const char *what;
        char base;
        std::vector<Put> spoil;
        int rc;                       // the open's status, or kReads
        const char *named = nullptr;  // opens, reads succeed: the checker's words
    } cases[] = {
        {"key length 0", 'c', {{12, 2, 0}}, DBE_KEYLEN},
        {"key length 201", 'c', {{12, 2, 201}}, DBE_KEYLEN},
        {"key length 201 and a bad root", 'c', {{12, 2, 201}, {0, 4, 511}}, DBE_KEYLEN},
        {"key length 200", 'c', {{12, 2, 200}}, 0},
        {"expression length 0", 'c', {{510, 2, 0}}, DBE_BADEXPR},
        {"no NUL in the expression", 'c', {{516, 1, 'X'}}, DBE_BADEXPR},
        {"expression pool too long", 'c', {{510, 2, 400}, {506, 2, 200}}, DBE_BADEXPR},
        {"expression of 221 characters", 'c', {{510, 2, 222}, {512, 221, 'A'}}, DBE_BADEXPR},
        {"empty expression", 'c', {{512, 1, 0}}, DBE_BADEXPR},
        {"bad expression and bad root", 'c', {{510, 2, 0}, {0, 4, 511}}, DBE_BADEXPR},
        {"root 511", 'c', {{0, 4, 511}}, DBE_ROOTPAGE},
        {"root at the end", 'c', {{0, 4, 2560}}, DBE_ROOTPAGE},
        {"root not a page", 'c', {{0, 4, 1100}}, DBE_ROOTPAGE},
        {"no NUL in the expression area", 'p', {{16, 220, 'A'}}, DBE_BADEXPR},
        // A recorded end that is not the length opens, with a warning; new
        // pages go there: it must be a page boundary past the header and root.
        {"recorded end 1536", 'p', {{8, 4, 1536}}, DBW_BADFILELEN},
        {"recorded end 1000", 'p', {{8, 4, 1000}}, DBE_CORRUPT},
        {"recorded end 512", 'p', {{8, 4, 512}}, DBE_CORRUPT},
        // A compound file's directory keys its tags by names of 10 bytes.
        {"directory key length 8", 'd', {{12, 2, 8}}, DBE_CORRUPT},
        {"interior count beyond a page", 'c', {{1026, 2, 100}}, kReads},
        {"leaf count beyond a page", 'c', {{1538, 2, 200}}, kReads},
        {"record mask not its width", 'c', {{1536 + 14, 4, 0x00100000}}, kReads},
        {"count mask not its width", 'c', {{1536 + 18, 1, 0x1F}}, kReads},
        {"widths past the entry", 'c', {{1536 + 20, 1, 20}, {1536 + 14, 4, 0xFFFFF}}, kReads},
        {"entry width 0", 'c', {{1536 + 23, 1, 0}}, kReads},
        {"counts longer than the key", 'c', {{1536 + 24 + 5, 1, 0xFF}}, kReads},
        // 55 entries of 3 bytes (record 0x1010, one trailing blank) leave no
        // room for 55 keys of 7 bytes.
        {"stored keys past the key area", 'c', {{1538, 2, 55}, {1536 + 24, 165, 0x10}}, kReads},
        {"child outside the file", 'c', {{1048, 4, 0x00100000, true}}, kReads},
        {"child not a page", 'c', {{1048, 4, 1600, true}}, kReads},
        {"child is the root", 'c', {{1048, 4, 1024, true}, {1064, 4, 1024, true}}, kReads},
        {"empty leaf below the root", 'c', {{1538, 2, 0}}, kReads},
        {"attributes beyond root and leaf", 'c', {{1536, 2, 0x12}}, kReads},
        {"sibling links that loop", 'c', {{2048 + 8, 4, 1536}}, kReads, "links"},
        {"a separator not its child's last key", 'c', {{1036, 1, 'Z'}}, kReads, "separator"},
    };
    for (const auto &c : cases) {
        Bytes b = base.at(c.base);
        put(b, c.spoil);
        int h = 77;
        EXPECT_EQ(open(b, &h), c.rc == kReads ? 0 : c.rc) << c.what;
        if (c.rc < 0) EXPECT_EQ(h, -1) << c.what;
        if (c.rc != kReads) {
            if (c.rc >= 0) EXPECT_EQ(DBfbCloseIndex(h), 0) << c.what;
            continue;
        }
        DBfbSetDefaultKeyType(h, 'C');
        if (c.named) EXPECT_TRUE(idx::same(cdx::walk(h), all)) << c.what;
        else EXPECT_EQ(idx::use(cdx::kIdx, h, "N040"), DBE_CORRUPT) << c.what;
        DBINDEXCHECK chk;
        EXPECT_EQ(DBfbCheckIndex(h, &chk, 0), DBE_CORRUPT) << c.what;
        EXPECT_NE(chk.msg[0], '\0') << c.what;
        if (c.named) EXPECT_NE(std::string(chk.msg).find(c.named), std::string::npos) << chk.msg;
        // A change on a damaged tree is refused too.
        const int add = DBfbAddKey(h, cs("N040"), 999);
        EXPECT_TRUE(add == DBE_CORRUPT || add == 0) << c.what << " " << add;
        EXPECT_EQ(DBfbCloseIndex(h), 0);
    }
    int h = -1;
    EXPECT_EQ(open(Bytes(base.at('c').begin(), base.at('c').begin() + 10), &h), DBE_READ) << "short file";
    EXPECT_EQ(open(base.at('c'), &h, "a.idx", 0x41), DBE_BADVERSION);
    EXPECT_EQ(DBfbOpenIndex(nullptr, cs("a.idx"), 0), DBE_NULLPARAM);
    EXPECT_EQ(DBfbOpenIndex(&h, cs(path("missing.idx").c_str()), 0), DBE_NOTFOUND);
}

TEST_F(CdxBad, TagsMissingTooManyOutOfRangeOrTwice) {
    const std::string f = path("many.cdx");
    ASSERT_EQ(DBfpCreateIndex(cs(f.c_str())), 0);
    int h = -1;
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    auto name = [](int i) { return "T" + std::to_string(1000 + i).substr(1); };
    for (int i = 0; i < 128; i++)
        ASSERT_EQ(DBfpCreateTag(h, cs(name(i).c_str()), 'C', cs("NAME"), 10, nullptr), 0) << name(i);
    cdx::expectSound(h, 128, "directory of 128 tags");
    int tag = -1;
    for (const char *name : {"NOSUCH", "", "ABCDEFGHIJK", "T00"})  // a prefix is not a name
        EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs(name)), DBE_TAGNAME) << "'" << name << "'";
    EXPECT_EQ(DBfpOpenNamedTag(nullptr, h, cs("T000")), DBE_NULLPARAM);
    EXPECT_EQ(DBfpOpenTag(&tag, h, 0), DBE_TAGCOUNT);
    EXPECT_EQ(DBfpOpenTag(&tag, h, 128), DBE_TAGCOUNT);
    int t2 = -1;
    ASSERT_EQ(DBfpOpenNamedTag(&t2, h, cs("t000")), 0);
    EXPECT_EQ(t2 >> 16, 1) << "the first tag created";
    for (int i = 1; i < 128; i++)
        ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs(name(i).c_str())), i < 127 ? 0 : DBE_MAXTAGS) << name(i);
    DBFPINDEXINFO fi;
    ASSERT_EQ(DBfpGetIndexInfo(h, &fi), 0);
    EXPECT_EQ(fi.usedtags, 128);
    EXPECT_EQ(DBfpCloseTag(h), DBE_BADTAG) << "slot 0 closes with the file";
    EXPECT_EQ(DBfpCloseTag((200 << 16) | h), DBE_BADTAG);
    EXPECT_EQ(DBfpCloseTag((126 << 16) | h), 0);
    char key[16];
    EXPECT_EQ(DBfpGoFirstKey((126 << 16) | h, key, &t2), DBE_BADTAG);
    EXPECT_EQ(DBfpCloseIndex(h), 0);
    EXPECT_EQ(DBfpGoFirstKey(h, key, &t2), DBE_BADHANDLE);
    EXPECT_EQ(DBfpCloseIndex(h), DBE_BADHANDLE);
    // An IDX file has no tags.
    h = cdx::newIdx(path("one.idx"), 'C' | 0x400, 10);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("NAME")), DBE_TAGNAME);
    EXPECT_EQ(DBfpCreateTag(h, cs("NAME"), 'C', cs("NAME"), 10, nullptr), DBE_TAGNAME);
    EXPECT_EQ(DBfbCloseIndex(h), 0);
}

// Wrong arguments to the changing calls: a status, and not one byte of the
// file changed.
TEST_F(CdxBad, WrongArgumentsLeaveTheFileAsItWas) {
    const std::string f = path("w.cdx");
    int h = -1;
    ASSERT_EQ(DBfpAddKey(cdx::newTag(f, "names", 'C', 10, &h), cs("ALPHA"), 1), 0);
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    const Bytes before = xbt::readFile(f);
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    int tag = -1;
    ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs("names")), 0);
    const std::string e221(221, 'A'), e220(220, 'A'), e = path("e.idx");
    short size = 0;
    // In order: the file does not record the key type.
    struct Case {
        const char *what;
        int rc, want;
    } cases[] = {
        {"type unknown until named", DBfpAddKey(tag, cs("BETA"), 2), DBE_KEYTYPE},
        {"type named in lower case", DBfpSetDefaultKeyType(tag, 'c'), 0},
        {"add NULL key", DBfpAddKey(tag, nullptr, 1), DBE_NULLPARAM},
        {"delete NULL key", DBfpDeleteKey(tag, nullptr, 1), DBE_NULLPARAM},
        {"key longer than the key", DBfpAddKey(tag, cs("ABCDEFGHIJK"), 2), DBE_KEYLEN},
        {"record 0", DBfpAddKey(tag, cs("BETA"), 0), DBE_SEEK},
        {"delete a missing key", DBfpDeleteKey(tag, cs("BETA"), 1), DBW_KEYNOTFOUND},
        {"delete another record", DBfpDeleteKey(tag, cs("ALPHA"), 2), DBW_KEYNOTFOUND},
        {"add an entry there", DBfpAddKey(tag, cs("ALPHA"), 1), DBW_EXISTS},
        {"bad key type", DBfpSetDefaultKeyType(tag, 'X'), DBE_KEYTYPE},
        {"tag name of 0", DBfpCreateTag(h, cs(""), 'C', cs("NAME"), 10, nullptr), DBE_TAGNAME},
        {"tag name of 11", DBfpCreateTag(h, cs("ABCDEFGHIJK"), 'C', cs("NAME"), 10, nullptr), DBE_TAGNAME},
        {"tag NULL name", DBfpCreateTag(h, nullptr, 'C', cs("NAME"), 10, nullptr), DBE_NULLPARAM},
        {"tag NULL expression", DBfpCreateTag(h, cs("X"), 'C', nullptr, 10, nullptr), DBE_NULLPARAM},
        {"expression of 221", DBfpCreateTag(h, cs("X"), 'C', cs(e221.c_str()), 10, nullptr), DBE_BADEXPR},
        {"FOR of 221", DBfpCreateTag(h, cs("X"), 'C', cs("NAME"), 10, cs(e221.c_str())), DBE_BADEXPR},
        {"blank expression", DBfpCreateTag(h, cs("X"), 'C', cs("   "), 10, nullptr), DBE_BADEXPR},
        {"unknown key type", DBfpCreateTag(h, cs("X"), 'Q', cs("NAME"), 10, nullptr), DBE_KEYTYPE},
        {"key length 0", DBfpCreateTag(h, cs("X"), 'C', cs("NAME"), 0, nullptr), DBE_KEYLEN},
        {"key length 201", DBfpCreateTag(h, cs("X"), 'C', cs("NAME"), 201, nullptr), DBE_KEYLEN},
        {"tag exists", DBfpCreateTag(h, cs("Names"), 'C', cs("NAME"), 10, nullptr), DBE_TAGINUSE},
        {"delete NULL tag", DBfpDeleteTag(h, nullptr), DBE_NULLPARAM},
        {"delete missing tag", DBfpDeleteTag(h, cs("NOPE")), DBE_TAGNAME},
        {"delete open tag", DBfpDeleteTag(h, cs("NAMES")), DBE_TAGINUSE},
        {"search NULL", DBfpKeySearch(tag, nullptr, nullptr, 1), DBE_NULLPARAM},
        {"lock type 1", DBfpLockIndex(h, 1, nullptr, 0), DBE_BADCOMMAND},
        {"cache operation 5 (CdxBuild sets sizes)", DBfbGetSetCacheSize(tag, &size, 5), DBE_BADCOMMAND},
        {"IDX expression of 220", DBfbCreateIndex(cs(e.c_str()), 'C' | 0x400, cs(e220.c_str()), 10, nullptr), 0},
        {"non-compact: 219 at most", DBfbCreateIndex(cs(e.c_str()), 'C', cs(e220.c_str()), 10, nullptr), DBE_BADEXPR},
        {"IDX NULL name", DBfbCreateIndex(nullptr, 'C', cs("NAME"), 10, nullptr), DBE_NULLPARAM},
    };
    for (const Case &c : cases) EXPECT_EQ(c.rc, c.want) << c.what;
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    // Read-only: adds and deletes refused, nothing written.
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), DBO_READONLY), 0);
    tag = cdx::openTag(h, "names", 'C');
    char key[16] = "ALPHA";
    int32_t rec = 0;
    ASSERT_EQ(DBfpKeySearch(tag, key, &rec, 1), 0);
    EXPECT_EQ(DBfpAddKey(tag, cs("BETA"), 2), DBE_READONLY);
    EXPECT_EQ(DBfpGetCurrentKey(tag, key, &rec), DBW_KEYNOTFOUND) << "the position is dropped";
    EXPECT_EQ(DBfpDeleteKey(tag, cs("ALPHA"), 1), DBE_READONLY);
    EXPECT_EQ(DBfpCreateTag(h, cs("more"), 'C', cs("NAME"), 10, nullptr), DBE_READONLY);
    EXPECT_EQ(DBfpDeleteTag(h, cs("more")), DBE_READONLY);
    EXPECT_EQ(DBfpPutIndexHeader(h), DBE_READONLY);
    EXPECT_EQ(DBfpFlushIndex(h), DBE_READONLY);
    EXPECT_EQ(DBfpWriteKeys(tag, key, 0), DBE_READONLY);
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    EXPECT_EQ(xbt::readFile(f), before);
}

// A build that fails on its way removes its temporary file and keeps the
// tag readable.
TEST_F(CdxBad, FailedBuildRemovesItsTemporaryFile) {
    const std::string tbl = openableFixture("hbcdx.dbf");
    fixture("hbcdx.fpt");
    int t = -1;
    ASSERT_EQ(DBOpenFile(&t, cs(tbl.c_str()), 4), 0);
    const size_t saved = DBsort_budget;
    DBsort_budget = 1000;
    // A FOR expression that is no logical fails after runs were spilled.
    const std::string f = path("f.idx");
    int h = cdx::newIdx(f, 'C' | 0x400, 20, "NAME", "NAME");
    EXPECT_EQ(DBfbBuildIndex(t, h), DBE_BADEXPR);
    EXPECT_FALSE(xbt::fileExists(path("STKS0.TMP")));
    // A key expression of another type than the tag's.
    ASSERT_EQ(DBfbCloseIndex(h), 0);
    h = cdx::newIdx(f, 'C' | 0x400, 20, "NAME", "ACTIVE");
    ASSERT_EQ(DBfbSetDefaultKeyType(h, 'N'), 0);
    EXPECT_EQ(DBfbBuildIndex(t, h), DBE_BADEXPR);
    EXPECT_FALSE(xbt::fileExists(path("STKS0.TMP")));
    ASSERT_EQ(DBfbSetDefaultKeyType(h, 'C'), 0);
    cdx::expectSound(h, 0, "after the failed build");
    // With the FOR expression ACTIVE, the 94 records hbcdx.records.txt shows
    // active (T).
    ASSERT_EQ(DBfbBuildIndex(t, h), 0);
    cdx::expectSound(h, 94, "built for ACTIVE");
    DBsort_budget = saved;
    ASSERT_EQ(DBfbCloseIndex(h), 0);
    EXPECT_EQ(DBfbBuildIndex(t, h), DBE_BADHANDLE);
    EXPECT_EQ(DBfbBuildIndex(999, h), DBE_BADHANDLE);
}

}  // namespace
