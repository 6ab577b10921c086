// memo_util.h - what the memo suites share: file-image fields, a memo file of either family.
#pragma once

#include "xbtest.h"

namespace mt {
using Bytes = std::vector<uint8_t>;

inline uint32_t get32(const Bytes &b, size_t at, bool be) {
    uint32_t v = 0;
    for (int i = 0; i < 4; i++) v |= uint32_t(b.at(at + i)) << (be ? 24 - 8 * i : 8 * i);
    return v;
}
inline void set32(Bytes &b, size_t at, uint32_t v, bool be) {
    for (int i = 0; i < 4; i++) b.at(at + i) = uint8_t(v >> (be ? 24 - 8 * i : 8 * i));
}

struct Memo {
    bool fpt = false;
    std::string file;
    int h = -1;
    int open(int mode) { return fpt ? DBfpOpenMemo(&h, &file[0], mode) : DBxbOpenMemo(&h, &file[0], mode); }
    int close() { return fpt ? DBfpCloseMemo(h) : DBxbCloseMemo(h); }
    int pack(int dbf) { return fpt ? DBfpPackMemo(dbf, &h) : DBxbPackMemo(dbf, &h); }
    // flags: FPT's write flags, DBT's option.
    int write(int32_t *blk, std::string t, int flags = 0) {
        return fpt ? DBfpPutMemoRecord(h, blk, &t[0], int32_t(t.size()), 0, flags)
                   : DBxbPutMemoRecord(h, blk, &t[0], flags);
    }
    int32_t put(const std::string &t, int32_t blk = 0, int flags = 0) {
        EXPECT_EQ(write(&blk, t, flags), 0) << t.size();
        return blk;
    }
    std::string get(int32_t blk, int option = 0) {
        char *out = nullptr;
        const int rc = fpt ? DBfpGetMemoRecord(h, blk, &out, 0x7FFFFFFF, 0) : DBxbGetMemoRecord(h, blk, &out, option);
        EXPECT_EQ(rc, 0) << blk;
        std::string s = out ? out : "<failed>";
        DBFreeMemory(out, "test", 0);
        return s;
    }
    uint32_t ff() const { return get32(xbt::readFile(file), 0, fpt); }
    // Close, set the 32 bits at byte `at` (in the family's byte order) to v,
    // and open again with `mode`.
    void patch(size_t at, uint32_t v, int mode) {
        ASSERT_EQ(close(), 0);
        auto f = xbt::readFile(file);
        set32(f, at, v, fpt);
        xbt::writeFile(file, f);
        ASSERT_EQ(open(mode), 0);
    }
};

// A new memo file (FPT: size code; DBT: blocks, version), opened with `mode` unless negative.
inline Memo made(bool fpt, const std::string &file, int size, int version, int mode) {
    Memo m{fpt, file};
    EXPECT_EQ(fpt ? DBfpCreateMemo(&m.file[0], size) : DBxbCreateMemo(&m.file[0], size, version), 0) << file;
    if (mode >= 0) EXPECT_EQ(m.open(mode), 0) << file;
    return m;
}
}  // namespace mt
