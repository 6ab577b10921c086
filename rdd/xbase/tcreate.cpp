// tcreate.cpp - creating an empty DBT memo file in the dBASE III or the
// dBASE IV layout.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/tcreate"};
}

void _DBxbBaseName(char out[8], const char *path) {
    const char *b = path;
    for (const char *p = path; *p; p++)
        if (*p == ':' || *p == '\\' || *p == '/') b = p + 1;
    const char *e = std::strrchr(b, '.');
    size_t n = e ? static_cast<size_t>(e - b) : std::strlen(b);
    if (n > 8) n = 8;
    std::memset(out, 0, 8);
    for (size_t i = 0; i < n; i++) {
        const char c = b[i];
        out[i] = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    }
}

int _DBxbCreateMemo(char *path, int blocks, int version, const char *base) {
    if (!path) return here.fail(DBE_NULLPARAM, __LINE__);
    if (blocks < 1 || blocks > 32) return here.fail(DBE_PAGESIZE, __LINE__);
    const bool v3 = version == 1 || version == 3 || version == 5 || version == 6 || version == 7;
    // dBASE III: block 0 holds only the next free block, and the file ends
    // with one end mark. dBASE IV: the header below fills block 0 (of the
    // chosen size); the rest of it, free-chain head included, is zero.
    // The dBASE III layout knows only 512-byte blocks, whatever was asked.
    // The block is built before the file is made, so that running out of
    // memory leaves no file behind.
    const int32_t bs = v3 ? 512 : blocks * 512;
    DBOwned<uint8_t> blk;
    if (blk.alloc(static_cast<size_t>(bs) + 1, here.id, __LINE__) != 0) return DBerrno;
    int fd = -1;
    if (DBosCreateFile(&fd, path) != 0) return DBerrno;
    if (!v3 && version != 2) {
        // The empty file stays behind: the name was asked for and made.
        DBosCloseFile(fd);
        return here.fail(DBE_BADVERSION, __LINE__);
    }
    uint8_t *b = blk.get();
    _DBStoreLE32(b, 1);
    int32_t n = bs;
    if (v3) {
        b[512] = 0x1A;
        n = 513;
    } else {
        _DBxbBaseName(reinterpret_cast<char *>(b + 8), base ? base : path);
        b[18] = 2;
        b[19] = 1;
        _DBStoreLE16(b + 20, static_cast<uint16_t>(bs));
    }
    int rc = DBosWriteData(fd, b, n, 0);
    if (rc != 0) here.log(rc, __LINE__);
    const int crc = DBosCloseFile(fd);
    if (rc == 0) rc = crc;
    // A file that did not get its header is no memo file: it would only
    // fail to open later (-217). It goes.
    if (rc != 0) _DBosDeleteFile(path);
    return _DBStatus(rc);
}

extern "C" DBAPI int DBxbCreateMemo(char *path, int blocks, int version) {
    return _DBxbCreateMemo(path, blocks, version, nullptr);
}
