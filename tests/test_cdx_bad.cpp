// IDX files made byte by byte from the format's layouts and read back; then
// bad input: every open check in its order, tags that are not there, too
// many, out of range or open twice, damaged pages of every kind, and wrong
// arguments to every change - each a status, the file left as it was.
#include "cdx_util.h"

#include "btree.h"

using cdx::cs;
using cdx::KeyLine;

namespace {

using idx::Bytes;
using idx::put16;
using idx::put32;
using idx::putBE32;

// A page's head: attributes, key count, left and right siblings (-1: none).
void head(Bytes &f, size_t p, int attr, size_t n, int32_t left, int32_t right) {
    put16(f, p, static_cast<uint32_t>(attr));
    put16(f, p + 2, static_cast<uint32_t>(n));
    put32(f, p + 4, static_cast<uint32_t>(left));
    put32(f, p + 8, static_cast<uint32_t>(right));
}
// Whole items after the head: each the key, then its record (withRec) and
// its child (pages given), both big-endian.
void items(Bytes &f, size_t p, int k, const std::vector<KeyLine> &e, bool withRec, const std::vector<uint32_t> &pages) {
    size_t at = p + 12;
    for (size_t i = 0; i < e.size(); i++) {
        std::memcpy(&f[at], e[i].key.data(), static_cast<size_t>(k));
        at += static_cast<size_t>(k);
        if (withRec) putBE32(f, at, static_cast<uint32_t>(e[i].rec));
        at += withRec ? 4 : 0;
        if (!pages.empty()) putBE32(f, at, pages[i]);
        at += pages.empty() ? 0 : 4;
    }
}

// A compact leaf written from the layout: R = 16, D = T = 4, B = 3 (keys of
// at most 15 bytes, blank fill).
void compactLeaf(Bytes &f, size_t p, int32_t left, int32_t right, int k, const std::vector<KeyLine> &e) {
    head(f, p, 2, e.size(), left, right);
    put32(f, p + 14, 0xFFFF);
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
        const uint32_t v =
            static_cast<uint32_t>(e[j].rec) | static_cast<uint32_t>(dup) << 16 | static_cast<uint32_t>(trail) << 20;
        for (int x = 0; x < 3; x++) f[p + 24 + j * 3 + static_cast<size_t>(x)] = static_cast<uint8_t>(v >> (8 * x));
        prev = key;
    }
    put16(f, p + 12, static_cast<uint32_t>(488 - 3 * e.size() - (p + 512 - kt)));
}

std::vector<KeyLine> names(int from, int n, int k) {
    std::vector<KeyLine> v;
    for (int i = 0; i < n; i++) {
        char b[32];
        std::snprintf(b, sizeof b, "N%03d%s", from + i, i % 3 ? "X" : "");
        std::string s(b);
        s.resize(static_cast<size_t>(k), ' ');
        v.push_back({100 + from + i, s});
    }
    return v;
}

// A compact IDX: header (1024), root interior node at 1024, leaves at 1536
// and 2048, keys of 8 bytes; root items key, record, child.
Bytes compactIdx(std::vector<KeyLine> &all) {
    const int k = 8;
    Bytes f(2560, 0);
    put32(f, 0, 1024);
    put32(f, 4, 0xFFFFFFFF);
    put16(f, 12, k);
    f[14] = 0x20;
    f[15] = 1;
    put16(f, 504, 5);
    put16(f, 506, 1);
    put16(f, 510, 5);
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
    put32(f, 0, 512);
    put32(f, 4, 0xFFFFFFFF);
    put32(f, 8, 2048);
    put16(f, 12, k);
    f[15] = 1;
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

class CdxBad : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        DBSetDefaultDateStyle(4);
    }
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
        EXPECT_TRUE(idx::same(cdx::walk(h, false), all)) << "back";
        cdx::expectSound(h, all.size(), "as made", 0);
        for (const KeyLine &l : all) {
            const idx::Hit got = idx::search(DBfbKeySearch, h, l.key, 1, k);
            ASSERT_EQ(got.rc, 0) << l.key;
            EXPECT_EQ(got.rec, l.rec) << l.key;
        }
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

// Each open check in its order: a file bad in two ways reports the earlier.
TEST_F(CdxBad, OpenChecksInTheirOrder) {
    std::vector<KeyLine> all;
    const Bytes good = compactIdx(all);
    struct Case {
        const char *what;
        void (*spoil)(Bytes &);
        int rc;
    } cases[] = {
        {"key length 0", [](Bytes &b) { put16(b, 12, 0); }, DBE_KEYLEN},
        {"key length 201", [](Bytes &b) { put16(b, 12, 201); }, DBE_KEYLEN},
        {"key length 201 and a bad root", [](Bytes &b) { put16(b, 12, 201); put32(b, 0, 511); }, DBE_KEYLEN},
        {"expression length 0", [](Bytes &b) { put16(b, 510, 0); }, DBE_BADEXPR},
        {"no NUL in the expression", [](Bytes &b) { b[516] = 'X'; }, DBE_BADEXPR},
        {"expression pool too long", [](Bytes &b) { put16(b, 510, 400); put16(b, 506, 200); }, DBE_BADEXPR},
        {"expression of 221 characters", [](Bytes &b) { put16(b, 510, 222); std::memset(&b[512], 'A', 221); b[733] = 0; }, DBE_BADEXPR},
        {"empty expression", [](Bytes &b) { b[512] = 0; }, DBE_BADEXPR},
        {"bad expression and bad root", [](Bytes &b) { put16(b, 510, 0); put32(b, 0, 511); }, DBE_BADEXPR},
        {"root 511", [](Bytes &b) { put32(b, 0, 511); }, DBE_ROOTPAGE},
        {"root at the end", [](Bytes &b) { put32(b, 0, static_cast<uint32_t>(b.size())); }, DBE_ROOTPAGE},
        {"root not a page", [](Bytes &b) { put32(b, 0, 1100); }, DBE_ROOTPAGE},
        {"short file", [](Bytes &b) { b.resize(10); }, DBE_READ},
    };
    for (const Case &c : cases) {
        Bytes b = good;
        c.spoil(b);
        int h = 77;
        EXPECT_EQ(open(b, &h), c.rc) << c.what;
        EXPECT_EQ(h, -1) << c.what;
    }
    int h = -1;
    Bytes b = good;
    put16(b, 12, 200);
    EXPECT_EQ(open(b, &h), 0) << "key length 200 is accepted";
    EXPECT_EQ(DBfbCloseIndex(h), 0);
    // Non-compact: the expression area has no NUL.
    std::vector<KeyLine> pa;
    b = plainIdx(pa);
    std::memset(&b[16], 'A', 220);
    EXPECT_EQ(open(b, &h), DBE_BADEXPR);
    // Its recorded end differs from the length: open, with a warning.
    b = plainIdx(pa);
    put32(b, 8, 1536);
    EXPECT_EQ(open(b, &h), DBW_BADFILELEN);
    EXPECT_EQ(DBfbCloseIndex(h), 0);
    // New pages go at the recorded end: it must be a page boundary past the
    // header and the root.
    for (uint32_t end : {1000u, 512u}) {
        b = plainIdx(pa);
        put32(b, 8, end);
        EXPECT_EQ(open(b, &h), DBE_CORRUPT) << "recorded end " << end;
    }
    // A compound file's directory keys its tags by names of 10 bytes.
    ASSERT_EQ(DBfpCreateIndex(cs(path("d.cdx").c_str())), 0);
    for (int k : {8, 20}) {
        Bytes d = xbt::readFile(path("d.cdx"));
        put16(d, 12, static_cast<uint32_t>(k));
        xbt::writeFile(path("dk.cdx"), d);
        EXPECT_EQ(DBfpOpenIndex(&h, cs(path("dk.cdx").c_str()), 0), DBE_CORRUPT) << "directory key length " << k;
    }
    EXPECT_EQ(open(good, &h, "a.idx", 0x41), DBE_BADVERSION);
    EXPECT_EQ(DBfbOpenIndex(nullptr, cs("a.idx"), 0), DBE_NULLPARAM);
    EXPECT_EQ(DBfbOpenIndex(&h, cs(path("missing.idx").c_str()), 0), DBE_NOTFOUND);
    // The cache calls know two operations (CdxBuild sets sizes).
    ASSERT_EQ(open(good, &h), 0);
    short size = 0;
    EXPECT_EQ(DBfbGetSetCacheSize(h, &size, 5), DBE_BADCOMMAND);
    EXPECT_EQ(DBfbCloseIndex(h), 0);
}

// Damaged pages: each read gives -206, never a crash or a stray read; the
// checker names the damage.
TEST_F(CdxBad, DamagedPagesAreRefused) {
    std::vector<KeyLine> all;
    const Bytes good = compactIdx(all);
    struct Case {
        const char *what;
        void (*spoil)(Bytes &);
    } cases[] = {
        {"interior count beyond a page", [](Bytes &b) { put16(b, 1026, 100); }},
        {"leaf count beyond a page", [](Bytes &b) { put16(b, 1538, 200); }},
        {"record mask not its width", [](Bytes &b) { put32(b, 1536 + 14, 0x00100000); }},
        {"count mask not its width", [](Bytes &b) { b[1536 + 18] = 0x1F; }},
        {"widths past the entry", [](Bytes &b) { b[1536 + 20] = 20; put32(b, 1536 + 14, 0xFFFFF); }},
        {"entry width 0", [](Bytes &b) { b[1536 + 23] = 0; }},
        {"counts longer than the key", [](Bytes &b) { b[1536 + 24 + 5] = 0xFF; }},
        {"stored keys past the key area", [](Bytes &b) {
             // 55 whole keys of 8 bytes cannot fit beside 55 entries of 3.
             put16(b, 1538, 55);
             for (int j = 0; j < 55; j++) {
                 b[1536 + 24 + j * 3] = static_cast<uint8_t>(j + 1);
                 b[1536 + 24 + j * 3 + 1] = 0;
                 b[1536 + 24 + j * 3 + 2] = 0;
             }
         }},
        {"child outside the file", [](Bytes &b) { putBE32(b, 1036 + 12, 0x00100000); }},
        {"child not a page", [](Bytes &b) { putBE32(b, 1036 + 12, 1600); }},
        {"child is the root", [](Bytes &b) { putBE32(b, 1036 + 12, 1024); putBE32(b, 1036 + 28, 1024); }},
        {"empty leaf below the root", [](Bytes &b) { put16(b, 1538, 0); }},
        {"attributes beyond root and leaf", [](Bytes &b) { put16(b, 1536, 0x12); }},
    };
    for (const Case &c : cases) {
        Bytes b = good;
        c.spoil(b);
        int h = -1;
        ASSERT_EQ(open(b, &h), 0) << c.what;
        DBfbSetDefaultKeyType(h, 'C');
        char key[64];
        int32_t rec = 0;
        int rc = DBfbGoFirstKey(h, key, &rec);
        for (int i = 0; rc == 0 && i < 100; i++) rc = DBfbGoNextKey(h, key, &rec);
        const int back = DBfbGoLastKey(h, key, &rec);
        std::strcpy(key, "N040");
        const int found = DBfbKeySearch(h, key, &rec, 1);
        EXPECT_TRUE(rc == DBE_CORRUPT || back == DBE_CORRUPT || found == DBE_CORRUPT) << c.what << ": " << rc << " " << back << " " << found;
        EXPECT_TRUE(rc == DBE_CORRUPT || rc == DBW_NOMOREKEYS) << c.what << " " << rc;
        DBINDEXCHECK chk;
        EXPECT_EQ(DBfbCheckIndex(h, &chk, 0), DBE_CORRUPT) << c.what;
        EXPECT_NE(chk.msg[0], '\0') << c.what;
        // A change on a damaged tree is refused too.
        const int add = DBfbAddKey(h, cs("N040"), 999);
        EXPECT_TRUE(add == DBE_CORRUPT || add == 0) << c.what << " " << add;
        EXPECT_EQ(DBfbCloseIndex(h), 0);
    }
    // Sibling links that loop or skip: the tree still reads (moves follow
    // the path), the checker finds them.
    Bytes b = good;
    put32(b, 2048 + 8, 1536);
    int h = -1;
    ASSERT_EQ(open(b, &h), 0);
    DBfbSetDefaultKeyType(h, 'C');
    EXPECT_EQ(cdx::walk(h).size(), all.size());
    DBINDEXCHECK chk;
    EXPECT_EQ(DBfbCheckIndex(h, &chk, 0), DBE_CORRUPT);
    EXPECT_NE(std::string(chk.msg).find("links"), std::string::npos) << chk.msg;
    // A separator that is not its child's last key.
    b = good;
    b[1036] = 'Z';
    ASSERT_EQ(DBfbCloseIndex(h), 0);
    ASSERT_EQ(open(b, &h), 0);
    EXPECT_EQ(DBfbCheckIndex(h, &chk, 0), DBE_CORRUPT);
    EXPECT_NE(std::string(chk.msg).find("separator"), std::string::npos) << chk.msg;
    ASSERT_EQ(DBfbCloseIndex(h), 0);
}

TEST_F(CdxBad, TagsMissingTooManyOutOfRangeOrTwice) {
    const std::string f = path("many.cdx");
    ASSERT_EQ(DBfpCreateIndex(cs(f.c_str())), 0);
    int h = -1;
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    for (int i = 0; i < 128; i++) {
        char name[16];
        std::snprintf(name, sizeof name, "T%03d", i);
        ASSERT_EQ(DBfpCreateTag(h, name, 'C', cs("NAME"), 10, nullptr), 0) << name;
    }
    cdx::expectSound(h, 128, "directory of 128 tags");
    int tag = -1;
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("NOSUCH")), DBE_TAGNAME);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("")), DBE_TAGNAME);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("ABCDEFGHIJK")), DBE_TAGNAME);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("T00")), DBE_TAGNAME) << "a prefix is not a name";
    EXPECT_EQ(DBfpOpenNamedTag(nullptr, h, cs("T000")), DBE_NULLPARAM);
    EXPECT_EQ(DBfpOpenTag(&tag, h, 0), DBE_TAGCOUNT);
    EXPECT_EQ(DBfpOpenTag(&tag, h, 128), DBE_TAGCOUNT);
    ASSERT_EQ(DBfpOpenTag(&tag, h, 5), 0);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("t004")), DBE_TAGINUSE) << "tag 5 is the fifth created";
    int t2 = -1;
    ASSERT_EQ(DBfpOpenNamedTag(&t2, h, cs("t000")), 0);
    EXPECT_EQ(t2 >> 16, 1);
    EXPECT_EQ(DBfpOpenTag(&tag, h, 1), 0);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("T000")), DBE_TAGINUSE);
    for (int i = 1; i < 128; i++) {
        char name[16];
        std::snprintf(name, sizeof name, "T%03d", i);
        if (i == 4) continue;
        const int rc = DBfpOpenNamedTag(&tag, h, name);
        ASSERT_EQ(rc, i < 127 ? 0 : DBE_MAXTAGS) << name;
    }
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
    ASSERT_EQ(DBfbCreateIndex(cs(path("one.idx").c_str()), 'C' | 0x400, cs("NAME"), 10, nullptr), 0);
    ASSERT_EQ(DBfbOpenIndex(&h, cs(path("one.idx").c_str()), 0), 0);
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs("NAME")), DBE_TAGNAME);
    EXPECT_EQ(DBfpCreateTag(h, cs("NAME"), 'C', cs("NAME"), 10, nullptr), DBE_TAGNAME);
    EXPECT_EQ(DBfbCloseIndex(h), 0);
}

// Wrong arguments to the changing calls: a status, and not one byte of the
// file changed.
TEST_F(CdxBad, WrongArgumentsLeaveTheFileAsItWas) {
    const std::string f = path("w.cdx");
    ASSERT_EQ(DBfpCreateIndex(cs(f.c_str())), 0);
    int h = -1;
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    ASSERT_EQ(DBfpCreateTag(h, cs("names"), 'C', cs("NAME"), 10, nullptr), 0);
    int tag = -1;
    ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs("names")), 0);
    ASSERT_EQ(DBfpAddKey(tag, cs("ALPHA"), 1), DBE_KEYTYPE) << "type unknown until named";
    ASSERT_EQ(DBfpSetDefaultKeyType(tag, 'c'), 0);
    ASSERT_EQ(DBfpAddKey(tag, cs("ALPHA"), 1), 0);
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    const Bytes before = xbt::readFile(f);
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), 0), 0);
    ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs("names")), 0);
    ASSERT_EQ(DBfpSetDefaultKeyType(tag, 'C'), 0);
    const std::string e221(221, 'A'), e220(220, 'A');
    struct Case {
        const char *what;
        int rc, want;
    } cases[] = {
        {"add NULL key", DBfpAddKey(tag, nullptr, 1), DBE_NULLPARAM},
        {"delete NULL key", DBfpDeleteKey(tag, nullptr, 1), DBE_NULLPARAM},
        {"key longer than the key", DBfpAddKey(tag, cs("ABCDEFGHIJK"), 2), DBE_KEYLEN},
        {"record 0", DBfpAddKey(tag, cs("BETA"), 0), DBE_SEEK},
        {"record above 2^31 - 1", DBfpAddKey(tag, cs("BETA"), static_cast<int32_t>(0x80000000u)), DBE_SEEK},
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
    };
    for (const Case &c : cases) EXPECT_EQ(c.rc, c.want) << c.what;
    EXPECT_EQ(DBfbCreateIndex(cs(path("e220.idx").c_str()), 'C' | 0x400, cs(e220.c_str()), 10, nullptr), 0);
    EXPECT_EQ(DBfbCreateIndex(cs(path("e220n.idx").c_str()), 'C', cs(e220.c_str()), 10, nullptr), DBE_BADEXPR)
        << "a non-compact header holds 219 characters";
    EXPECT_EQ(DBfbCreateIndex(nullptr, 'C', cs("NAME"), 10, nullptr), DBE_NULLPARAM);
    ASSERT_EQ(DBfpCloseIndex(h), 0);
    EXPECT_EQ(xbt::readFile(f), before);
    // Read-only: adds and deletes refused, nothing written.
    ASSERT_EQ(DBfpOpenIndex(&h, cs(f.c_str()), DBO_READONLY), 0);
    ASSERT_EQ(DBfpOpenNamedTag(&tag, h, cs("names")), 0);
    ASSERT_EQ(DBfpSetDefaultKeyType(tag, 'C'), 0);
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
    const std::string tbl = idx::openableTable(*this, path("hbcdx.dbf"), "hbcdx.dbf");
    xbt::writeFile(path("hbcdx.fpt"), xbt::readFile(xbt::fixturePath("hbcdx.fpt")));
    int t = -1;
    ASSERT_EQ(DBOpenFile(&t, cs(tbl.c_str()), 4), 0);
    const size_t saved = DBsort_budget;
    DBsort_budget = 1000;
    // A FOR expression that is no logical fails after runs were spilled.
    const std::string f = path("f.idx");
    ASSERT_EQ(DBfbCreateIndex(cs(f.c_str()), 'C' | 0x400, cs("NAME"), 20, cs("NAME")), 0);
    int h = -1;
    ASSERT_EQ(DBfbOpenIndex(&h, cs(f.c_str()), 0), 0);
    EXPECT_EQ(DBfbBuildIndex(t, h), DBE_BADEXPR);
    EXPECT_FALSE(xbt::fileExists(path("STKS0.TMP")));
    // A key expression of another type than the tag's.
    ASSERT_EQ(DBfbCloseIndex(h), 0);
    ASSERT_EQ(DBfbCreateIndex(cs(f.c_str()), 'C' | 0x400, cs("NAME"), 20, cs("ACTIVE")), 0);
    ASSERT_EQ(DBfbOpenIndex(&h, cs(f.c_str()), 0), 0);
    ASSERT_EQ(DBfbSetDefaultKeyType(h, 'N'), 0);
    EXPECT_EQ(DBfbBuildIndex(t, h), DBE_BADEXPR);
    EXPECT_FALSE(xbt::fileExists(path("STKS0.TMP")));
    ASSERT_EQ(DBfbSetDefaultKeyType(h, 'C'), 0);
    cdx::expectSound(h, 0, "after the failed build");
    // With the FOR expression ACTIVE, only active records.
    ASSERT_EQ(DBfbBuildIndex(t, h), 0);
    DBINDEXCHECK chk;
    ASSERT_EQ(DBfbCheckIndex(h, &chk, 1), 0) << chk.msg;
    int32_t active = 0, count = 0;
    DBGetRecordCount(t, &count);
    for (int32_t r = 1; r <= count; r++) {
        DBGetRecord(t, r);
        char a = 0;
        DBGetFieldData(t, 5, &a);
        active += a == 1;
    }
    EXPECT_EQ(chk.keys, active);
    EXPECT_GT(active, 0);
    EXPECT_LT(active, count);
    DBsort_budget = saved;
    ASSERT_EQ(DBfbCloseIndex(h), 0);
    EXPECT_EQ(DBfbBuildIndex(t, h), DBE_BADHANDLE);
    EXPECT_EQ(DBfbBuildIndex(999, h), DBE_BADHANDLE);
}

}  // namespace
