// wrinfo.cpp - the type and length of an FPT memo, from its block header.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/wrinfo"};
}

int _DBfpReadBlockHeader(int32_t block, DBFPTRHDR *rh) {
    const DBFPTPKT *m = DBfpm;
    if (block < 1 || block >= m->h.ff) return here.fail(DBE_SEEK, __LINE__);
    int32_t flen = 0;
    if (DBosFileLength(m->ph.dh, &flen) != 0) return DBerrno;
    // ff x bsa fits in 32 bits (checked with the header), so this does too.
    const int32_t at = block * m->h.bsa;
    if (static_cast<int64_t>(at) + 8 > flen) return here.fail(DBE_SEEK, __LINE__);
    uint8_t raw[8];
    if (DBosSetFilePosition(m->ph.dh, at) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosReadData(m->ph.dh, raw, 8) != 0) return DBerrno;
    rh->s = static_cast<int32_t>(_DBLoadBE32(raw));
    rh->len = static_cast<int32_t>(_DBLoadBE32(raw + 4));
    if (rh->len < 0 || static_cast<int64_t>(at) + 8 + rh->len > flen)
        return here.fail(DBE_CORRUPT, __LINE__);
    return 0;
}

extern "C" DBAPI int DBfpGetMemoType(int handle, int32_t block, int32_t *length, int *binary) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    if (!length || !binary) return here.fail(DBE_NULLPARAM, __LINE__);
    if (DBfpm->ph.m.shared && _DBfpGetMemoHeader() != 0) return DBerrno;
    DBFPTRHDR rh{};
    if (_DBfpReadBlockHeader(block, &rh) != 0) return DBerrno;
    *length = rh.len;
    *binary = rh.s == 0 ? 1 : 0;
    return _DBStatus(0);
}
