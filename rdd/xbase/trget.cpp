// trget.cpp - reading DBT texts in either layout.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/trget"};

// dBASE III texts have no length: a reader stops at the first end mark,
// and gives up after this many blocks without one.
constexpr int32_t kMaxBlocksIII = 128;
}  // namespace

int _DBxbScanIII(int32_t at, char **out, int32_t *len) {
    DBDBTPKT *m = DBxbm;
    DBOwned<char> buf;
    void *grown = nullptr;
    int32_t have = 0;
    for (int32_t i = 0; i < kMaxBlocksIII; i++) {
        const int64_t pos = static_cast<int64_t>(at) + have;
        // The last block of a file is often short: read what is there.
        if (pos >= m->fs) return here.fail(DBE_CORRUPT, __LINE__);
        const int32_t want = m->fs - pos < 512 ? static_cast<int32_t>(m->fs - pos) : 512;
        grown = buf.release();
        if (DBReAllocateMemory(&grown, static_cast<size_t>(have) + 512 + 1, here.id, __LINE__) != 0) {
            buf.reset(static_cast<char *>(grown));
            return DBerrno;
        }
        buf.reset(static_cast<char *>(grown));
        if (DBosSetFilePosition(m->ph.dh, static_cast<int32_t>(pos)) != 0) return here.fail(DBerrno, __LINE__);
        if (DBosReadData(m->ph.dh, buf.get() + have, want) != 0) return DBerrno;
        const void *eot = std::memchr(buf.get() + have, 0x1A, static_cast<size_t>(want));
        if (eot) {
            *len = static_cast<int32_t>(static_cast<const char *>(eot) - buf.get());
            buf[static_cast<size_t>(*len)] = '\0';
            if (out) *out = buf.release();
            return 0;
        }
        have += want;
    }
    return here.fail(DBE_FIELDLEN, __LINE__);
}

int _DBxbReadText(int32_t block, char **out, int32_t *len) {
    DBDBTPKT *m = DBxbm;
    *out = nullptr;
    if (m->ph.m.shared && _DBxbGetMemoHeader(nullptr) != 0) return DBerrno;
    const int64_t at = static_cast<int64_t>(block) * m->bs;
    if (block < 1 || at >= m->fs) return here.fail(DBE_SEEK, __LINE__);
    if (!_DBxbIsIV(m)) return _DBxbScanIII(static_cast<int32_t>(at), out, len);

    // dBASE IV: the length in the block header counts the header too. It
    // is checked against the file before anything is allocated for it.
    uint8_t raw[8];
    if (at + 8 > m->fs) return here.fail(DBE_CORRUPT, __LINE__);
    if (DBosSetFilePosition(m->ph.dh, static_cast<int32_t>(at)) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosReadData(m->ph.dh, raw, 8) != 0) return DBerrno;
    const int32_t total = static_cast<int32_t>(_DBLoadLE32(raw + 4));
    if (total < 8 || at + total > m->fs) return here.fail(DBE_CORRUPT, __LINE__);
    const int32_t n = total - 8;
    DBOwned<char> buf;
    if (buf.alloc(static_cast<size_t>(n) + 1, here.id, __LINE__) != 0) return DBerrno;
    if (n > 0 && DBosReadData(m->ph.dh, buf.get(), n) != 0) return DBerrno;
    buf[static_cast<size_t>(n)] = '\0';
    *len = n;
    *out = buf.release();
    return 0;
}

int _DBxbGetMemoRecord(int32_t block, char **out, int option) {
    if (option != 0 && option != 256) return here.fail(DBE_BADCOMMAND, __LINE__);
    int32_t len = 0;
    if (_DBxbReadText(block, out, &len) != 0) return DBerrno;
    if (option == 256) {
        // Soft returns: dBASE's word wrap leaves 0x8D and the byte after it
        // (a line feed) where it broke a line; the text proper has neither.
        char *t = *out;
        int32_t j = 0;
        for (int32_t i = 0; i < len; i++) {
            if (static_cast<uint8_t>(t[i]) == 0x8D) {
                i++;
                continue;
            }
            t[j++] = t[i];
        }
        t[j] = '\0';
    }
    return 0;
}

extern "C" DBAPI int DBxbGetMemoRecord(int handle, int32_t block, char **out, int option) {
    if (!out) return here.fail(DBE_NULLPARAM, __LINE__);
    *out = nullptr;
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (_DBxbGetMemoRecord(block, out, option) != 0) return DBerrno;
    return _DBStatus(0);
}
