// cdx_util.h - what the CDX and IDX suites share: the Harbour fixture's tags
// and how their dumps show keys, walks, and raw reads of pages.
#pragma once

#include "index_util.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace cdx {

using idx::cs;
using idx::KeyLine;

// The six tags of hbcdx.cdx and how their dumps show a key.
struct Tag {
    const char *name;   // dump file part and tag name (upper case in the file)
    char type;          // 'C', 'N', 'D'
};
inline const Tag kTags[] = {{"byname", 'C'}, {"byamount", 'N'}, {"byhired", 'D'},
                            {"bycity", 'C'}, {"ucity", 'C'},   {"byqty", 'C'}};

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

inline int keylen(int tag) {
    DBFBINDEXINFO info;
    EXPECT_EQ(DBfbGetIndexInfo(tag, &info), 0);
    return info.keylen;
}

// Every entry, first to last (forward) or last to first, in index order.
inline std::vector<KeyLine> walk(int tag, bool forward = true) {
    return idx::walk(DBfpGoFirstKey, DBfpGoNextKey, DBfpGoLastKey, DBfpGoPreviousKey, tag, keylen(tag), forward);
}

inline void expectSound(int tag, size_t keys, const std::string &what, int strict = 1) {
    DBINDEXCHECK chk;
    ASSERT_EQ(DBfpCheckTag(tag, &chk, strict), 0) << what << ": " << chk.msg;
    EXPECT_EQ(chk.keys, static_cast<int32_t>(keys)) << what;
}

using idx::be32;
using idx::le16;
using idx::le32;

// The leaves of the tree at `root`, left to right, by descending the items
// (compact interior items: key, record, child; the child is at k + 4).
inline void leaves(const std::vector<uint8_t> &f, uint32_t page, int k, std::vector<uint32_t> &out, int depth = 0) {
    ASSERT_LT(depth, 20);
    ASSERT_LE(page + 512, f.size());
    if (le16(f, page) & 2) {
        out.push_back(page);
        return;
    }
    const int n = le16(f, page + 2);
    for (int i = 0; i < n; i++) leaves(f, be32(f, page + 12 + static_cast<size_t>(i) * (k + 8) + k + 4), k, out, depth + 1);
}

}  // namespace cdx
