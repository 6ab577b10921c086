// dlinfo.cpp - DBGetLockInfo: which locks a table holds, read back from the
// process lock table (the one place that lists them) and named by kind and
// record number through the table's own lock addresses.
#include "dbf.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/dlinfo"};

bool _is(int kind, int32_t recno, const DBLOCK &k) {
    uint32_t s = 0, l = 0;
    _DBLockRange(kind, recno, &s, &l);
    return s == k.a && l == k.l;
}

// A guess is the record only if it locks exactly these bytes and its
// neighbour does not (xHarbour's FoxPro scheme gives every record one byte).
bool _recordIs(uint32_t g, const DBLOCK &k) {
    if (g < 1 || g >= 0x7FFFFFFFu) return false;
    if (!_is(DBLK_RECORD, static_cast<int32_t>(g), k)) return false;
    return !_is(DBLK_RECORD, static_cast<int32_t>(g + 1), k);
}

// The record number whose record lock is this range, or 0 when no record
// maps to it unambiguously. Each dialect's address is turned back into a
// number and the guess is checked by computing its range again.
int32_t _recordOf(const DBLOCK &k) {
    const DBDATAPKT *d = DBxbd;
    const uint32_t hl = d->h.h;
    const uint32_t rl = d->h.r;
    uint32_t guess[3] = {0, 0, 0};
    guess[0] = k.a - 1000000000u;                  // 1,000,000,000 + R
    guess[1] = (k.a ^ 0xEFFFFFFFu) - 1;            // dBASE IV
    guess[2] = 0x7FFFFFFEu - k.a;                  // FoxPro with a production index
    for (const uint32_t g : guess)
        if (_recordIs(g, k)) return static_cast<int32_t>(g);
    // Byte-range forms: h + (R - 1) * r, possibly with bit 30 set.
    const uint32_t offsets[2] = {k.a, k.a & ~0x40000000u};
    for (const uint32_t a : offsets) {
        if (rl == 0 || a < hl || (a - hl) % rl != 0) continue;
        const uint32_t g = (a - hl) / rl + 1;
        if (_recordIs(g, k)) return static_cast<int32_t>(g);
    }
    return 0;
}
}  // namespace

extern "C" DBAPI int DBGetLockInfo(int handle, DBFILELOCKS *list, int max, int *count) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!count || (max > 0 && !list)) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBDATAPKT *d = DBxbd;
    const int fd = d->ph.dh;
    const bool file = d->ph.ls == DBLK_FILE;
    // Header and append locks are the same bytes in most styles. The first
    // such entry is the header lock when bit 2 is set; any further one, or
    // the only one when just bit 8 is set, is the append lock.
    bool headerSeen = (d->ph.ls & DBLK_HEADER) == 0;
    int n = 0;
    for (int i = 0; i < DBbase.lckused; i++) {
        const DBLOCK &k = DBbase.locks[i];
        if (k.fh != fd) continue;
        DBFILELOCKS e{0, 0};
        if (file && _is(DBLK_FILE, 0, k)) {
            e.type = DBLK_FILE;
        } else if (!headerSeen && _is(DBLK_HEADER, 0, k)) {
            e.type = DBLK_HEADER;
            headerSeen = true;
        } else if ((d->ph.ls & DBLK_APPEND) && _is(DBLK_APPEND, 0, k)) {
            e.type = DBLK_APPEND;
        } else {
            e.type = DBLK_RECORD;
            e.record = _recordOf(k);
        }
        if (n < max) list[n] = e;
        n++;
    }
    *count = n;
    return _DBStatus(0);
}
