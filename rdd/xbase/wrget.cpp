// wrget.cpp - reading FPT memos: whole, into the caller's buffer, or in
// pieces that continue where the last call stopped.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/wrget"};

constexpr int kPiecewise = 2;  // read the next piece, keep the position
constexpr int kCallerBuf = 4;  // the caller supplied the buffer

// Read up to maxlen bytes of memo `block` into *out (allocated here unless
// kCallerBuf) and terminate them. Status 1 when a piecewise read has bytes
// left for the next call.
int _read_memo(int handle, int32_t block, char **out, char *buf, int32_t maxlen, int flags) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    DBFPTPKT *m = DBfpm;
    if ((flags & kCallerBuf) ? !buf : !out) return here.fail(DBE_NULLPARAM, __LINE__);
    if (!(flags & kCallerBuf)) *out = nullptr;
    if (flags & ~(kPiecewise | kCallerBuf)) return here.fail(DBE_BADCOMMAND, __LINE__);
    // A maximum of 0 would make a piecewise reader spin for ever.
    if (maxlen < 1) return here.fail(DBE_BADCOMMAND, __LINE__);
    // The piece counters belong to an unfinished piecewise write: reading in
    // pieces now would move its position.
    if (m->pmode >= 2 && (flags & kPiecewise)) return here.fail(DBE_BADCOMMAND, __LINE__);
    if (m->ph.m.shared && _DBfpGetMemoHeader() != 0) return DBerrno;

    int32_t remaining = 0;
    int32_t at = 0;
    if (m->pmode == 1 && m->pcnt != 0 && block == m->pcur) {
        remaining = m->pcnt;
        at = m->pba;
    } else {
        DBFPTRHDR rh{};
        if (_DBfpReadBlockHeader(block, &rh) != 0) return DBerrno;
        remaining = rh.len;
        at = block * m->h.bsa + 8;
        if (m->pmode == 1) m->pcnt = m->pba = m->pcur = m->pmode = 0;
    }
    const int32_t amount = remaining < maxlen ? remaining : maxlen;
    DBOwned<char> own;
    char *dst = buf;
    if (!(flags & kCallerBuf)) {
        if (own.alloc(static_cast<size_t>(amount) + 1, here.id, __LINE__) != 0) return DBerrno;
        dst = own.get();
    }
    if (amount > 0) {
        if (DBosSetFilePosition(m->ph.dh, at) != 0) return here.fail(DBerrno, __LINE__);
        if (DBosReadData(m->ph.dh, dst, amount) != 0) return DBerrno;
    }
    dst[amount] = '\0';
    int status = 0;
    if ((flags & kPiecewise) && remaining > amount) {
        m->pmode = 1;
        m->pcur = block;
        m->pcnt = remaining - amount;
        m->pba = at + amount;
        status = 1;
    } else if (m->pmode == 1) {
        m->pcnt = m->pba = m->pcur = m->pmode = 0;
    }
    if (!(flags & kCallerBuf)) *out = own.release();
    return _DBStatus(status);
}
}  // namespace

extern "C" DBAPI int DBfpGetMemoRecord(int handle, int32_t block, char **out, int32_t maxlen, int flags) {
    // The caller-buffer bit is ours to set; asked for here it is a mistake.
    if (flags & kCallerBuf) return here.fail(DBE_BADCOMMAND, __LINE__);
    return _read_memo(handle, block, out, nullptr, maxlen, flags);
}

extern "C" DBAPI int DBfpGetMemoToBuffer(int handle, int32_t block, char *buf, int32_t maxlen, int flags) {
    return _read_memo(handle, block, nullptr, buf, maxlen, flags | kCallerBuf);
}
