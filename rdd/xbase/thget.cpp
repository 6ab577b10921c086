// thget.cpp - reading block 0 of a DBT file and checking it.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/thget"};
}

int _DBxbGetMemoHeader(DBDBTHDR *hdr) {
    DBDBTPKT *m = DBxbm;
    int32_t len = 0;
    if (DBosFileLength(m->ph.dh, &len) != 0) return DBerrno;
    // Every writer makes block 0 a whole 512 bytes (dBASE III adds an end
    // mark): anything shorter is no memo file, or a cut one.
    if (len < 512) return here.fail(DBE_NOTMEMO, __LINE__);
    uint8_t raw[24];
    if (DBosSetFilePosition(m->ph.dh, 0) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosReadData(m->ph.dh, raw, 24) != 0) return DBerrno;
    DBDBTHDR h{};
    h.ff = static_cast<int32_t>(_DBLoadLE32(raw));
    h.u1 = static_cast<int32_t>(_DBLoadLE32(raw + 4));
    std::memcpy(h.n, raw + 8, 8);
    h.u2 = static_cast<int16_t>(_DBLoadLE16(raw + 16));
    h.u3 = raw[18];
    h.u4 = raw[19];
    h.bsa = static_cast<int16_t>(_DBLoadLE16(raw + 20));
    h.u5 = static_cast<int16_t>(_DBLoadLE16(raw + 22));
    int32_t bs = 512;
    if (_DBxbIsIV(m)) {
        // dBASE IV makes 512 x 1..32; later dBASE levels count the size in
        // 64-byte steps. Zero, odd sizes and anything above 32 KiB are a
        // damaged header, not a layout to guess at.
        bs = static_cast<uint16_t>(h.bsa);
        if (bs < 64 || bs > 32768 || bs % 64 != 0) return here.fail(DBE_PAGESIZE, __LINE__);
    }
    if (h.ff < 1 || h.ff > INT32_MAX / bs) return here.fail(DBE_CORRUPT, __LINE__);
    // The block size is fixed when the file is opened; a header that
    // changes it under an open handle is not to be followed.
    if (_DBxbIsIV(m) && m->h.bsa != 0 && m->h.bsa != h.bsa)
        return here.fail(DBE_CORRUPT, __LINE__);
    m->h = h;
    m->fs = len;
    if (hdr) *hdr = h;
    return 0;
}

extern "C" DBAPI int DBxbGetMemoHeader(int handle, DBDBTHDR *hdr) {
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (!hdr) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBxbGetMemoHeader(hdr) != 0) return DBerrno;
    return _DBStatus(0);
}
