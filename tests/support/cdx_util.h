// cdx_util.h - what the CDX and IDX suites share: the Harbour fixture's tags
// and their dumps, new files and tags over NAME, walks, checks, leaf pages.
#pragma once

#include "index_util.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace cdx {

using idx::cs;
using idx::KeyLine;

// The six tags of hbcdx.cdx as Harbour made them, in order of creation.
struct Tag {
    const char *name;   // dump file part and tag name (upper case in the file)
    char type;          // 'C', 'N', 'D'
    const char *expr;
    int keylen;
    bool unique;
    int mode() const { return type | (unique ? 0x80 : 0); }
};
inline const Tag kTags[] = {{"byname", 'C', "NAME", 20, false},       {"byamount", 'N', "AMOUNT", 8, false},
                            {"byhired", 'D', "HIRED", 8, false},      {"bycity", 'C', "UPPER(CITY)+NAME", 35, false},
                            {"ucity", 'C', "CITY", 15, true},         {"byqty", 'C', "STR(QTY,5)+NAME", 25, false}};

inline std::string upper(std::string s) {
    for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// A dump's key text in stored form (dates need the default style 4).
inline std::string stored(char type, const std::string &text) {
    char k[16] = {};
    if (type == 'N') {
        DBfpDoubleToKey(k, std::atof(text.c_str()));
        return std::string(k, 8);
    }
    if (type == 'D') {
        DBfpDateToKey(k, cs(text == "        " ? "" : text.c_str()));
        return std::string(k, 8);
    }
    return text;
}

// The dump of a tag with keys in stored form.
inline std::vector<KeyLine> expected(const Tag &t) {
    std::vector<KeyLine> v = idx::readDump(std::string("hbcdx_") + t.name + ".keys.txt").keys;
    for (KeyLine &l : v) l.key = stored(t.type, l.key);
    return v;
}

// The dumps show dates as yyyymmdd: every suite keys them in style 4.
class Suite : public xbt::LibTest {
protected:
    void SetUp() override {
        xbt::LibTest::SetUp();
        DBSetDefaultDateStyle(4);
    }
};

// A tag of an open compound file, opened by name, its key type named.
inline int openTag(int h, const std::string &name, int type) {
    int tag = -1;
    EXPECT_EQ(DBfpOpenNamedTag(&tag, h, cs(name.c_str())), 0) << name;
    EXPECT_EQ(DBfpSetDefaultKeyType(tag, type), 0) << name;
    return tag;
}
// A new compound file with one tag over NAME (mode: key type | 0x80
// unique), open in *h: the tag.
inline int newTag(const std::string &f, const char *name, int mode, int k, int *h) {
    EXPECT_EQ(DBfpCreateIndex(cs(f.c_str())), 0) << f;
    EXPECT_EQ(DBfpOpenIndex(h, cs(f.c_str()), 0), 0) << f;
    EXPECT_EQ(DBfpCreateTag(*h, cs(name), mode, cs("NAME"), k, nullptr), 0) << f;
    return openTag(*h, name, mode & 0x7F);
}
// A new IDX file (mode: key type | 0x80 unique | 0x400 compact), opened,
// its key type named: the handle.
inline int newIdx(const std::string &f, int mode, int k, const char *expr = "NAME", const char *forExpr = nullptr) {
    int h = -1;
    EXPECT_EQ(DBfbCreateIndex(cs(f.c_str()), mode, cs(expr), k, cs(forExpr)), 0) << f;
    EXPECT_EQ(DBfbOpenIndex(&h, cs(f.c_str()), 0), 0) << f;
    EXPECT_EQ(DBfbSetDefaultKeyType(h, mode & 0x7F), 0) << f;
    return h;
}

// The moves and searches of a tag or an IDX file (the DBfp calls take both),
// and the DBfb calls of IDX files, for index_util's walks and searches.
inline const idx::Fam kFam = {.name = "CDX", .ext = ".cdx", .page = 512, .add = DBfpAddKey, .del = DBfpDeleteKey,
    .search = DBfpKeySearch, .first = DBfpGoFirstKey, .last = DBfpGoLastKey, .next = DBfpGoNextKey,
    .prev = DBfpGoPreviousKey, .current = DBfpGetCurrentKey, .check = DBfpCheckTag};
inline const idx::Fam kIdx = {.name = "IDX", .ext = ".idx", .page = 512, .add = DBfbAddKey, .del = DBfbDeleteKey,
    .search = DBfbKeySearch, .first = DBfbGoFirstKey, .last = DBfbGoLastKey, .next = DBfbGoNextKey,
    .prev = DBfbGoPreviousKey, .current = DBfbGetCurrentKey, .check = DBfbCheckIndex};

inline int keylen(int tag) {
    DBFBINDEXINFO info;
    EXPECT_EQ(DBfbGetIndexInfo(tag, &info), 0);
    return info.keylen;
}

// Every entry, first to last (forward) or last to first, in index order.
inline std::vector<KeyLine> walk(int tag, bool forward = true) { return idx::walk(kFam, tag, keylen(tag), forward); }

inline void expectSound(int tag, size_t keys, const std::string &what, int strict = 1) {
    DBINDEXCHECK chk;
    ASSERT_EQ(DBfpCheckTag(tag, &chk, strict), 0) << what << ": " << chk.msg;
    EXPECT_EQ(chk.keys, static_cast<int32_t>(keys)) << what;
}

// The leaves of the tree at `root`, left to right, by descending the items
// (compact interior items: key, record, child; the child is at k + 4).
inline void leaves(const std::vector<uint8_t> &f, uint32_t page, int k, std::vector<uint32_t> &out, int depth = 0) {
    ASSERT_LT(depth, 20);
    ASSERT_LE(page + 512, f.size());
    if (idx::le16(f, page) & 2) {
        out.push_back(page);
        return;
    }
    const int n = idx::le16(f, page + 2);
    for (int i = 0; i < n; i++)
        leaves(f, idx::be32(f, page + 12 + static_cast<size_t>(i) * (k + 8) + k + 4), k, out, depth + 1);
}

}  // namespace cdx
