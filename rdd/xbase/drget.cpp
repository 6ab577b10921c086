// drget.cpp - reading records: the record cache (a block of consecutive
// records read in one transfer), the record buffer, and the caller-buffer
// form of a record with every field converted.
#include "dbf.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/drget"};

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
    if (b.nr > 0 && k >= b.fr && k - b.fr < b.nr) return 0;
    if (!b.p) return here.fail(DBE_BADCOMMAND, __LINE__);
    if (b.s != 0) {
        _CurrentTable cur(d);
        if (_DBFlushFile() != 0) return DBerrno;
    }
    int32_t off = 0;
    if (_DBExistingRecordOffset(d, k, &off) != 0) return DBerrno;
    const int64_t left = static_cast<int64_t>(d->h.n) + 1 - k;
    const int count = left < b.rl ? static_cast<int>(left) : b.rl;
    // The block is about to be overwritten: until the read succeeds it
    // holds nothing.
    b.nr = 0;
    if (DBosSetFilePosition(d->ph.dh, off) != 0) return here.fail(DBerrno, __LINE__);
    const int want = count * d->h.r;
    if (DBosReadData(d->ph.dh, b.p, want) != 0) {
        // A file cut short (opened with warning 207) still gives the whole
        // records it has; only when even record k is missing is the read a
        // failure.
        if (qd_read_length < d->h.r) return DBerrno;
        b.fr = k;
        b.nr = qd_read_length / d->h.r;
        return _DBStatus(0);
    }
    b.fr = k;
    b.nr = count;
    return 0;
}

int _DBGetRecord(int32_t recno) {
    DBDATAPKT *d = DBxbd;
    int32_t off = 0;
    if (_DBExistingRecordOffset(d, recno, &off) != 0) return DBerrno;
    if (d->ph.m.always_flush || !d->b.p) {
        if (DBosSetFilePosition(d->ph.dh, off) != 0) return here.fail(DBerrno, __LINE__);
        if (DBosReadData(d->ph.dh, d->b.r, d->h.r) != 0) return DBerrno;
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
