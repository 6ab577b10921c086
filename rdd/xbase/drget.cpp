// drget.cpp - reading records: the record cache (a block of consecutive
// records read in one transfer), the record buffer, and the caller-buffer
// form of a record with every field converted.
#include "dbf.h"
#include "os.h"

#include <algorithm>

namespace {
constexpr DBSite here{"rdd/xbase/drget"};

// The most a read that jumps away from the cached block brings in.
constexpr int kJumpBytes = 1024;

// Runs the flush of another packet than the current one and puts the
// current table back afterwards.
class _CurrentTable {
public:
    explicit _CurrentTable(DBDATAPKT *d) : saved_(DBxbd) { DBxbd = d; }
    ~_CurrentTable() { DBxbd = saved_; }
    _CurrentTable(const _CurrentTable &) = delete;
    _CurrentTable &operator=(const _CurrentTable &) = delete;

private:
    DBDATAPKT *saved_;
};
}  // namespace

int _DBRecordOffset(const DBDATAPKT *d, int32_t k, int32_t *off) {
    const int64_t o = static_cast<int64_t>(d->h.h) + (static_cast<int64_t>(k) - 1) * d->h.r;
    if (k < 1 || o > INT32_MAX) return here.fail(DBE_SEEK, __LINE__);
    *off = static_cast<int32_t>(o);
    return 0;
}

// The offset of record k for the calls that read or change an existing
// record (here and in drput.cpp): -204 unless k is one of 1..n.
int _DBExistingRecordOffset(const DBDATAPKT *d, int32_t k, int32_t *off) {
    if (k < 1 || k > d->h.n) return here.fail(DBE_SEEK, __LINE__);
    return _DBRecordOffset(d, k, off);
}

int _DBBufferFieldSize(const DBFIELDSTRUC &f, bool put) {
    switch (f.t) {
    case 'C': return f.l + 1;
    case 'D': return 11;
    case 'N': case 'F': return 8;
    case 'I': return put ? f.l : 4;
    case 'M': return 4;
    default: return f.l;
    }
}

int _DBFillCache(DBDATAPKT *d, int32_t k) {
    DBRECBFR &b = d->b;
    if (b.nr > 0 && k >= b.fr && k - b.fr < b.nr) {
        const int i = k - b.fr;
        if (b.dm[i] != DBSLOT_STALE) return 0;
        // Cached before its lock was taken: the file has the record as the
        // last holder of the lock left it. It alone is read again.
        int32_t off = 0;
        if (_DBRecordOffset(d, k, &off) != 0) return DBerrno;
        if (_DBosReadAt(d->ph.dh, off, _DBCacheSlot(d, i), d->h.r) != 0) return DBerrno;
        b.dm[i] = DBSLOT_READ;
        return 0;
    }
    if (!b.p) return here.fail(DBE_BADCOMMAND, __LINE__);
    if (b.s != 0) {
        _CurrentTable cur(d);
        if (_DBFlushFile() != 0) return DBerrno;
    }
    int32_t off = 0;
    if (_DBExistingRecordOffset(d, k, &off) != 0) return DBerrno;
    const int64_t left = static_cast<int64_t>(d->h.n) + 1 - k;
    int count = left < b.rl ? static_cast<int>(left) : b.rl;
    // A read that carries on where the block ended (or starts afresh) takes
    // a whole block: the records after k are likely next. A jump elsewhere
    // takes what one short transfer brings: a system call costs the same up
    // to about a kilobyte, and more beyond it, for records that a random
    // reader seldom wants.
    const bool onward = b.nr == 0 || k == b.fr + b.nr;
    if (!onward && count * d->h.r > kJumpBytes) count = std::max(1, kJumpBytes / d->h.r);
    // The block is about to be overwritten: until the read succeeds it
    // holds nothing.
    b.nr = 0;
    const int want = count * d->h.r;
    if (_DBosReadAt(d->ph.dh, off, b.p, want) != 0) {
        // A file cut short (opened with warning 207) still gives the whole
        // records it has; only when even record k is missing is the read a
        // failure.
        if (qd_read_length < d->h.r) return DBerrno;
        count = qd_read_length / d->h.r;
        DBerrno = 0;
    }
    std::memset(b.dm, DBSLOT_READ, static_cast<size_t>(count));
    b.fr = k;
    b.nr = count;
    return 0;
}

void _DBCacheForget(DBDATAPKT *d, int32_t k) {
    DBRECBFR &b = d->b;
    if (!d->ph.m.shared || !b.p) return;
    for (int i = 0; i < b.nr; i++)
        if ((k == 0 || b.fr + i == k) && b.dm[i] == DBSLOT_READ) b.dm[i] = DBSLOT_STALE;
}

int _DBGetRecord(int32_t recno) {
    DBDATAPKT *d = DBxbd;
    int32_t off = 0;
    if (_DBExistingRecordOffset(d, recno, &off) != 0) return DBerrno;
    if (d->ph.m.always_flush || !d->b.p) {
        if (_DBosReadAt(d->ph.dh, off, d->b.r, d->h.r) != 0) return DBerrno;
    } else {
        if (_DBFillCache(d, recno) != 0) return DBerrno;
        std::memcpy(d->b.r, _DBCacheSlot(d, recno - d->b.fr), d->h.r);
    }
    d->c = recno;
    return _DBStatus(d->b.r[0] != ' ' ? DBW_DELETED : 0);
}

extern "C" DBAPI int DBGetRecordToBuffer(int handle, char *buf, int32_t recno) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_DBRefreshHeader() != 0) return DBerrno;
    const int rc = _DBGetRecord(recno);
    if (rc < 0 || !buf) return rc;
    DBDATAPKT *d = DBxbd;
    buf[0] = d->b.r[0];
    char *out = buf + 1;
    for (int i = 0; i < d->nf; i++) {
        const DBFIELDSTRUC &f = d->f[i];
        int st = 0;
        switch (f.t) {
        case 'C': case 'D':
            st = _DBGetFieldData(out, i, f.t);
            break;
        case 'N': case 'F': {
            // Both numeric kinds come out as the value the text shows.
            double v = 0.0;
            st = _DBGetFieldData(&v, i, 'N');
            std::memcpy(out, &v, sizeof v);
            break;
        }
        case 'I': case 'M': {
            int32_t v = 0;
            st = _DBGetFieldData(&v, i, f.t);
            std::memcpy(out, &v, sizeof v);
            break;
        }
        default:
            std::memcpy(out, d->b.r + f.a, f.l);
            break;
        }
        if (st < 0) return st;
        out += _DBBufferFieldSize(f, false);
    }
    return _DBStatus(rc);
}

extern "C" DBAPI int DBGetRecord(int handle, int32_t recno) { return DBGetRecordToBuffer(handle, nullptr, recno); }
