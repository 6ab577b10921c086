// drput.cpp - writing records: appends and rewrites through the record
// cache (or straight to the file for write-through tables), the lock rule
// that guards writes to shared tables, and the caller-buffer form of a
// record.
#include "dbf.h"
#include "os.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/drput"};

// A number from the caller's buffer printed into its field, right-aligned
// with the field's decimals. A value too wide for the field is refused
// rather than cut.
int _putNumber(const DBFIELDSTRUC &f, const char *in) {
    double v = 0.0;
    std::memcpy(&v, in, sizeof v);
    char text[512];
    const int dec = f.d < 64 ? f.d : 64;
    const int n = std::snprintf(text, sizeof text, "%*.*f", static_cast<int>(f.l), dec, v);
    if (n < 0 || n > f.l) return here.fail(DBE_BADDATA, __LINE__);
    std::memcpy(DBxbd->b.r + f.a, text, f.l);
    return 0;
}

// Convert the caller's record form into the record buffer.
int _fromBuffer(const char *buf, int *warning) {
    DBDATAPKT *d = DBxbd;
    d->b.r[0] = buf[0];
    const char *in = buf + 1;
    for (int i = 0; i < d->nf; i++) {
        const DBFIELDSTRUC &f = d->f[i];
        int st = 0;
        switch (f.t) {
        case 'C': case 'D':
            st = _DBPutFieldData(const_cast<char *>(in), i, f.t);
            break;
        case 'N': case 'F':
            st = _putNumber(f, in);
            break;
        case 'M': {
            int32_t v = 0;
            std::memcpy(&v, in, sizeof v);
            st = _DBPutFieldData(&v, i, 'M');
            break;
        }
        default:
            std::memcpy(d->b.r + f.a, in, f.l);
            break;
        }
        if (st < 0) return st;
        if (st > 0) *warning = st;
        in += _DBBufferFieldSize(f, true);
    }
    return 0;
}
}  // namespace

bool _DBRecordIsLocked(int32_t recno) {
    uint32_t start = 0, len = 0;
    _DBLockRange(DBLK_RECORD, recno, &start, &len);
    return DBosTestLock(DBxbd->ph.dh, static_cast<int32_t>(start), static_cast<int32_t>(len)) == 1;
}

int DBWriteLock::take(int kind, int32_t recno) {
    d_ = DBxbd;
    if (!d_->ph.m.shared) return 0;
    if (kind == DBLK_APPEND) {
        if (_DBHoldsFileLock(d_) || _DBHoldsHeaderLock(d_) || _DBHoldsAppendLock(d_)) return 0;
        if (!d_->ph.m.auto_locks) return here.fail(DBE_NOTLOCKED, __LINE__);
        if (_DBLockHeader() != 0) return DBerrno;
        taken_ = DBLK_HEADER;
        return 0;
    }
    if (_DBHoldsFileLock(d_) || _DBHoldsAppendLock(d_) || _DBRecordIsLocked(recno)) return 0;
    if (!d_->ph.m.auto_locks) return here.fail(DBE_NOTLOCKED, __LINE__);
    if (_DBLockRecord(recno) != 0) return DBerrno;
    taken_ = DBLK_RECORD;
    recno_ = recno;
    return 0;
}

DBWriteLock::~DBWriteLock() {
    if (!taken_) return;
    // The write's own status is the answer; a failed release is logged by
    // the lock layer.
    const int status = DBerrno;
    DBDATAPKT *cur = DBxbd;
    DBxbd = d_;
    if (taken_ == DBLK_HEADER) _DBUnLockHeader();
    else _DBUnLockRecord(recno_);
    DBxbd = cur;
    DBerrno = status;
}

namespace {
// Whether the file holds every record before the one at offset `off`. A
// header whose count runs past the end of the file (warning 207 at open) would
// otherwise have the append write far beyond it, leaving a hole of zero
// bytes that reads as records, and that a pack would copy in full.
int _fileReaches(const DBDATAPKT *d, int32_t off) {
    int32_t len = 0;
    if (DBosFileLength(d->ph.dh, &len) != 0) return here.fail(DBerrno, __LINE__);
    if (len < off) return here.fail(DBE_CORRUPT, __LINE__);
    return 0;
}
}  // namespace

int _DBAppendRecord(int32_t *recno) {
    DBDATAPKT *d = DBxbd;
    DBRECBFR &b = d->b;
    // The new record and the end mark after it must lie within what a
    // 32-bit offset reaches.
    if (_DBTableEnd(d, static_cast<int64_t>(d->h.n) + 1) >= INT32_MAX) return here.fail(DBE_SEEK, __LINE__);
    const int32_t k = d->h.n + 1;
    int32_t off = 0;
    if (_DBRecordOffset(d, k, &off) != 0) return DBerrno;
    d->b.r[0] = ' ';
    if (d->ph.m.always_flush || !b.p) {
        if (_fileReaches(d, off) != 0) return DBerrno;
        if (_DBWriteAt(here, __LINE__, d->ph.dh, off, b.r, d->h.r, d->ph.flush_disk) != 0) return DBerrno;
        d->h.n = k;
        if (_DBWriteEndMark() != 0) return DBerrno;
        // dBASE-80 programs expect the opposite year form to the flush.
        if (_DBStampDate(!_DBXbase80Compat()) != 0) return DBerrno;
        uint8_t hdr[7] = {d->h.y, d->h.m, d->h.d, 0, 0, 0, 0};
        _DBStoreLE32(hdr + 3, static_cast<uint32_t>(d->h.n));
        if (_DBWriteAt(here, __LINE__, d->ph.dh, 1, hdr, 7, d->ph.flush_disk) != 0) return DBerrno;
    } else {
        // The record joins the block only when it is the block's next
        // record; otherwise the block is written out first. The flush must
        // come before the count grows, or it would claim the new record.
        int slot = 0;
        if (b.nr > 0 && b.nr < b.rl && b.fr + b.nr == k) {
            slot = b.nr;
        } else {
            // A block of our own appends that ends just before record k,
            // once flushed, has put records up to k - 1 and the end mark in
            // the file: its length need not be asked for again.
            const bool follows = (b.s & 0x20) && b.nr > 0 && b.fr + b.nr == k;
            if (b.s != 0 && _DBFlushFile() != 0) return DBerrno;
            // Every earlier record is in the file now: the block joined
            // above follows records already checked.
            if (!follows && _fileReaches(d, off) != 0) return DBerrno;
            b.fr = k;
            b.nr = 0;
        }
        std::memcpy(_DBCacheSlot(d, slot), b.r, d->h.r);
        b.dm[slot] = d->ph.m.shared ? DBSLOT_CHANGED : DBSLOT_READ;
        b.nr = slot + 1;
        b.s = 0x60;
        d->u |= 0x20;
        d->h.n = k;
    }
    d->c = k;
    *recno = k;
    return _DBStatus(0);
}


int _DBUpdateRecord(int32_t recno) {
    DBDATAPKT *d = DBxbd;
    int32_t off = 0;
    if (_DBExistingRecordOffset(d, recno, &off) != 0) return DBerrno;
    if (d->ph.m.always_flush || !d->b.p) {
        if (_DBWriteAt(here, __LINE__, d->ph.dh, off, d->b.r, d->h.r, d->ph.flush_disk) != 0) return DBerrno;
        // The date goes in under the header lock when nothing else guards
        // the header; the lock rereads the header, so the stamp comes after.
        bool locked = false;
        if (d->ph.m.shared && d->ph.ls == 0) {
            if (_DBLockHeader() != 0) return DBerrno;
            locked = true;
        }
        int rc = _DBStampDate(false);
        if (rc == 0) {
            uint8_t ymd[3] = {d->h.y, d->h.m, d->h.d};
            rc = _DBWriteAt(here, __LINE__, d->ph.dh, 1, ymd, 3, d->ph.flush_disk);
        }
        if (locked) {
            const int st = DBerrno;
            _DBUnLockHeader();
            if (rc != 0) DBerrno = st;
        }
        if (rc != 0) return rc;
    } else {
        if (_DBFillCache(d, recno) != 0) return DBerrno;
        std::memcpy(_DBCacheSlot(d, recno - d->b.fr), d->b.r, d->h.r);
        if (d->ph.m.shared) d->b.dm[recno - d->b.fr] = DBSLOT_CHANGED;
        d->b.s |= 0x40;
        d->u |= 0x40;
    }
    d->c = recno;
    return _DBStatus(0);
}

extern "C" DBAPI int DBPutRecordFromBuffer(int handle, char *buf, int32_t *recno, int how) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    DBDATAPKT *d = DBxbd;
    if (!recno) return here.fail(DBE_NULLPARAM, __LINE__);
    if (d->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (how != DB_APPEND && how != DB_REWRITE) return here.fail(DBE_BADCOMMAND, __LINE__);
    int warning = 0;
    if (buf && _fromBuffer(buf, &warning) != 0) return DBerrno;
    int rc = 0;
    if (how == DB_APPEND) {
        DBWriteLock lock;
        if (lock.take(DBLK_APPEND, 0) != 0) return DBerrno;
        rc = _DBAppendRecord(recno);
    } else {
        if (_DBRefreshHeader() != 0) return DBerrno;
        if (*recno < 1 || *recno > d->h.n) return here.fail(DBE_SEEK, __LINE__);
        DBWriteLock lock;
        if (lock.take(DBLK_RECORD, *recno) != 0) return DBerrno;
        rc = _DBUpdateRecord(*recno);
    }
    if (rc == 0 && warning) return _DBStatus(warning);
    return rc;
}

extern "C" DBAPI int DBPutRecord(int handle, int32_t *recno, int how) {
    return DBPutRecordFromBuffer(handle, nullptr, recno, how);
}
