// dlock.cpp - locks between processes on a table: the byte ranges that each
// xBase dialect expects for record, header, append and whole-file locks, and
// the lock bits (ph.ls), lock count (numlcks) and header-reread flag that a
// table keeps in step with what it holds.
//
// The ranges are the ones the dialects' own programs lock, so that a table
// shared with dBASE, Clipper, FoxPro, xHarbour or a Samba-hosted program is
// seen as locked by all of them. Several of them are far beyond the end of
// any real file (0xEFFFFFFE, 2,000,000,000): POSIX locks may lie past the
// end, and the build uses a 64-bit off_t so they survive on 32-bit hosts.
#include "dbf.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/dlock"};

// Bits of ph.ls. The file lock is the exact value 4: taking it releases
// everything else first, so no other bit ever stands beside it.
constexpr char LS_RECORD = 1;
constexpr char LS_HEADER = 2;
constexpr char LS_FILE = 4;
constexpr char LS_APPEND = 8;

bool _fileLocked(const DBDATAPKT *d) { return d->ph.ls == LS_FILE; }

// The four families of lock addresses, by table style (memo bit removed).
enum class _Group { F, D, C, O };

_Group _group(const DBDATAPKT *d) {
    switch (d->v & 0x7F) {
    case 3:
    case 4:
    case 8: return _Group::F;  // FoxPro and its look-alikes
    case 2: return _Group::D;  // dBASE IV
    case 5:
    case 6: return _Group::C;  // Clipper-style 1,000,000,000 offsets
    default: return _Group::O; // the plain record byte range
    }
}

// Take (type 0 exclusive, 2 shared) or release (1) one range on the current
// table's descriptor. The file layer answers a success with whatever DBerrno
// held, so it is cleared for the call and the caller's value put back.
int _range(int type, uint32_t start, uint32_t len) {
    const int saved = DBerrno;
    DBerrno = 0;
    const int rc = DBosLockData(DBxbd->ph.dh, type, static_cast<int32_t>(start), static_cast<int32_t>(len));
    if (rc != 0) return rc;
    DBerrno = saved;
    return 0;
}

int _heldCount(int fd, uint32_t start, uint32_t len) {
    int n = 0;
    for (int i = 0; i < DBbase.lckused; i++) {
        const DBLOCK &k = DBbase.locks[i];
        if (k.fh == fd && k.a == start && k.l == len) n++;
    }
    return n;
}

// Release one exclusive lock of the current table. In most styles the
// append lock and the header lock are the same bytes, and a POSIX unlock
// frees bytes, not requests: letting go of one of them must not free the
// other. So while another entry of this table still holds exactly these
// bytes, only the bookkeeping entry goes.
int _release(uint32_t start, uint32_t len) {
    const int fd = DBxbd->ph.dh;
    if (_heldCount(fd, start, len) > 1) {
        _flag_lock(fd, 1, static_cast<int32_t>(start), static_cast<int32_t>(len));
        return 0;
    }
    return _range(1, start, len);
}

// Reread the header once a lock keeps other writers out, and stop the
// per-call rereads while the lock lasts.
int _reread() {
    const int saved = DBerrno;
    DBerrno = 0;
    const int rc = _DBGetFileHeader();
    if (rc < 0) return rc;
    DBerrno = saved;
    DBxbd->ph.m.read_header_information = 0;
    return 0;
}

// After a lock is gone, a shared table must reread its header before use
// again. A table opened exclusively never rereads, so its flag stays clear.
void _needReread(DBDATAPKT *d) {
    if (d->ph.m.shared) d->ph.m.read_header_information = 1;
}

// ---------------------------------------------------------------------------
// Shared (read) locks
//
// The process lock table lists exclusive locks only, and nothing in the
// table packet records a read lock. Yet they must be released somewhere:
// DBUnLockAll (and so closing a table that holds locks, DBLockFile and the
// implicit release of DBLockRecord) lets go of the table's read locks too.
// To find them, this file keeps its own list of the read locks taken, by
// table packet and descriptor. An entry can outlive its table when a table
// holding only read locks is closed (closing the descriptor frees the bytes
// anyway); such entries are swept out when the list fills up, and one that
// happens to match a later table's packet and descriptor costs at most an
// unlock of bytes that table was releasing anyway.
// ---------------------------------------------------------------------------
struct _ReadLock {
    const DBDATAPKT *t;
    int fd;
    uint32_t a;
    uint32_t l;
};
constexpr int READLOCKS = 256;
_ReadLock _readLocks[READLOCKS];
int _readUsed = 0;

void _dropReadLock(int i) {
    for (int j = i + 1; j < _readUsed; j++) _readLocks[j - 1] = _readLocks[j];
    _readUsed--;
}

bool _tableStillOpen(const _ReadLock &k) {
    for (int h = 0; DBbase.p && h < DBbase.smf; h++) {
        if (DBbase.p[h].s == DBPT_DBF && DBbase.p[h].p == k.t)
            return static_cast<const DBDATAPKT *>(k.t)->ph.dh == k.fd;
    }
    return false;
}

void _sweepReadLocks() {
    int i = 0;
    while (i < _readUsed) {
        if (_tableStillOpen(_readLocks[i]))
            i++;
        else
            _dropReadLock(i);
    }
}

// Release every read lock the current table took.
int _releaseReadLocks() {
    int first = 0;
    int i = 0;
    while (i < _readUsed) {
        const _ReadLock k = _readLocks[i];
        if (k.t != DBxbd || k.fd != DBxbd->ph.dh) {
            i++;
            continue;
        }
        _dropReadLock(i);
        // An exclusive lock taken later on the same bytes replaced the read
        // lock; those bytes are released with their exclusive entry.
        if (_heldCount(k.fd, k.a, k.l) > 0) continue;
        const int rc = _range(1, k.a, k.l);
        if (rc != 0 && first == 0) first = rc;
    }
    return first;
}

int _readLock(int kind, int32_t recno) {
    DBDATAPKT *d = DBxbd;
    if (kind == DBLK_RECORD) {
        if (!d->ph.m.shared) return 0;
        if (recno < 1) return here.fail(DBE_SEEK, __LINE__);
    }
    // A shared request on bytes this process holds exclusively would turn
    // them shared: the stronger lock already keeps the writers out.
    if (_fileLocked(d)) return 0;
    uint32_t start = 0, len = 0;
    _DBLockRange(kind, recno, &start, &len);
    const int fd = d->ph.dh;
    if (_heldCount(fd, start, len) > 0) return 0;
    for (int i = 0; i < _readUsed; i++) {
        const _ReadLock &k = _readLocks[i];
        if (k.t == d && k.fd == fd && k.a == start && k.l == len) return 0;
    }
    if (_readUsed == READLOCKS) _sweepReadLocks();
    if (_readUsed == READLOCKS) return here.fail(DBE_LOCKOVERFLOW, __LINE__);
    const int rc = _range(2, start, len);
    if (rc != 0) return here.fail(rc, __LINE__);
    _readLocks[_readUsed++] = _ReadLock{d, fd, start, len};
    if (kind != DBLK_HEADER) _DBCacheForget(d, kind == DBLK_RECORD ? recno : 0);
    return 0;
}
}  // namespace

// ---------------------------------------------------------------------------
// Lock addresses
// ---------------------------------------------------------------------------

// The byte range of a lock of `kind` for record `recno` of DBxbd. All of it
// is unsigned 32-bit arithmetic: the addresses wrap exactly as the other
// dialects' programs compute them.
void _DBLockRange(int kind, int32_t recno, uint32_t *start, uint32_t *len) {
    const DBDATAPKT *d = DBxbd;
    const uint32_t rn = static_cast<uint32_t>(recno);
    const uint32_t hl = d->h.h;
    const uint32_t rl = d->h.r;
    const bool mdx = d->h.mdx != 0;
    uint32_t s = 0;
    uint32_t l = 1;
    switch (_group(d)) {
    case _Group::F: {
        // FoxPro folds the two top bits of the record number two places
        // down, keeping its record locks clear of the flag bits 30 and 31.
        const uint32_t rf = (rn & 0x3FFFFFFFu) | ((rn & 0xC0000000u) >> 2);
        switch (kind) {
        case DBLK_RECORD:
            // xHarbour's FoxPro driver locks at the record *length* past
            // its base, the same byte for every record; that is what it
            // does, so a shared xHarbour program sees our lock.
            if (DBxHarbour)
                s = rl + 1000000000u;
            else if (mdx)
                s = 0x7FFFFFFEu - rf;
            else
                s = (hl + (rf - 1) * rl) | 0x40000000u;
            break;
        case DBLK_HEADER:
        case DBLK_APPEND: s = mdx ? 0x7FFFFFFEu : 0x40000000u; break;
        case DBLK_FILE: s = DBsamba ? 0x3FFFFFFFu : DBxHarbour ? 0x7FFFFFFFu : 0x3FFFFFFEu; break;
        default: l = 0; break;
        }
        break;
    }
    case _Group::D:
        switch (kind) {
        case DBLK_RECORD: s = (rn + 1) ^ 0xEFFFFFFFu; break;
        case DBLK_HEADER:
        case DBLK_APPEND: s = 0xEFFFFFFEu; break;
        case DBLK_FILE: s = 0x40000000u; l = 2; break;
        default: l = 0; break;
        }
        break;
    case _Group::C:
        switch (kind) {
        case DBLK_RECORD: s = rn + 1000000000u; break;
        case DBLK_HEADER:
            if (DBxHarbour) {
                s = 1000000001u;
                l = 1000000000u;
            } else {
                s = 1000000000u;
            }
            break;
        case DBLK_APPEND: s = 1000000000u; break;
        case DBLK_FILE:
            if (DBxHarbour) {
                s = 0x7FFFFFFFu;
            } else {
                s = 1000000000u;
                l = 1000000000u;
            }
            break;
        default: l = 0; break;
        }
        break;
    case _Group::O:
        switch (kind) {
        case DBLK_RECORD:
            s = hl + (rn - 1) * rl;
            l = rl;
            break;
        case DBLK_HEADER:
        case DBLK_APPEND:
            s = 4;
            l = 4;
            break;
        case DBLK_FILE:
            s = 0;
            l = 0x7FFFFFFFu;
            break;
        default: l = 0; break;
        }
        break;
    }
    *start = s;
    *len = l;
}

// ---------------------------------------------------------------------------
// Internal lock calls on DBxbd
// ---------------------------------------------------------------------------

int _DBLockFile() {
    DBDATAPKT *d = DBxbd;
    if (_fileLocked(d)) return 0;
    // Everything else goes first: POSIX merges one process's overlapping
    // locks, so releasing a record range after the file lock was granted
    // would cut a hole into the file lock. A refused file lock therefore
    // leaves the table holding nothing.
    int rc = _DBUnLockAll();
    if (rc != 0) return rc;
    uint32_t start = 0, len = 0;
    _DBLockRange(DBLK_FILE, 0, &start, &len);
    rc = _range(0, start, len);
    if (rc != 0) return here.fail(rc, __LINE__);
    d->ph.ls = LS_FILE;
    d->numlcks = 1;
    _DBCacheForget(d, 0);
    rc = _reread();
    if (rc != 0) {
        // A lock whose header could not be read is of no use to the caller,
        // who sees a failure and will not release it.
        _release(start, len);
        d->ph.ls = 0;
        d->numlcks = 0;
        _needReread(d);
        return here.fail(rc, __LINE__);
    }
    return 0;
}

namespace {
// Header and append locks: the same steps on different bytes and bits.
int _lockHeaderKind(int kind, char bit) {
    DBDATAPKT *d = DBxbd;
    uint32_t start = 0, len = 0;
    _DBLockRange(kind, 0, &start, &len);
    int rc = _range(0, start, len);
    if (rc != 0) return here.fail(rc, __LINE__);
    d->ph.ls = static_cast<char>(d->ph.ls | bit);
    d->numlcks++;
    // An append lock also allows rewrites of any record (a header lock
    // only guards the count, which the reread below brings up to date).
    if (kind == DBLK_APPEND) _DBCacheForget(d, 0);
    rc = _reread();
    if (rc != 0) {
        _release(start, len);
        d->ph.ls = static_cast<char>(d->ph.ls & ~bit);
        d->numlcks--;
        _needReread(d);
        return here.fail(rc, __LINE__);
    }
    return 0;
}
}  // namespace

int _DBLockHeader() {
    const DBDATAPKT *d = DBxbd;
    if (_fileLocked(d) || (d->ph.ls & LS_HEADER)) return 0;
    return _lockHeaderKind(DBLK_HEADER, LS_HEADER);
}

// Does not test its own bit: a second append lock is taken again and counted
// again, and each needs its own release (or one DBUnLockAll).
int _DBLockAppend() {
    const DBDATAPKT *d = DBxbd;
    if (_fileLocked(d) || (d->ph.ls & LS_HEADER)) return 0;
    return _lockHeaderKind(DBLK_APPEND, LS_APPEND);
}

int _DBLockRecord(int32_t recno) {
    DBDATAPKT *d = DBxbd;
    if (!d->ph.m.shared) return 0;
    // Record 0 and below would land on header bytes in several dialects.
    if (recno < 1) return here.fail(DBE_SEEK, __LINE__);
    // One record lock at a time unless the table asked for several: the
    // old lock, of whatever kind, goes before the new one is taken.
    if (!d->ph.m.multi_locks && d->ph.ls != 0) {
        const int rc = _DBUnLockAll();
        if (rc != 0) return rc;
    }
    if (_fileLocked(d)) return 0;
    uint32_t start = 0, len = 0;
    _DBLockRange(DBLK_RECORD, recno, &start, &len);
    if (DBosTestLock(d->ph.dh, static_cast<int32_t>(start), static_cast<int32_t>(len))) return 0;
    const int rc = _range(0, start, len);
    if (rc != 0) return here.fail(rc, __LINE__);
    d->ph.ls = static_cast<char>(d->ph.ls | LS_RECORD);
    d->numlcks++;
    _DBCacheForget(d, recno);
    return 0;
}

int _DBUnLockRecord(int32_t recno) {
    DBDATAPKT *d = DBxbd;
    if (!d->ph.m.shared || !(d->ph.ls & LS_RECORD)) return 0;
    uint32_t start = 0, len = 0;
    _DBLockRange(DBLK_RECORD, recno, &start, &len);
    if (!DBosTestLock(d->ph.dh, static_cast<int32_t>(start), static_cast<int32_t>(len))) return 0;
    const int rc = _release(start, len);
    if (rc != 0) return here.fail(rc, __LINE__);
    d->numlcks--;
    d->ph.ls = static_cast<char>(d->ph.ls & ~LS_RECORD);
    // The bit says "record locks remain". The count does not tell kinds
    // apart, so any remaining lock that is not the header lock is taken to
    // be a record lock (an append lock alone keeps the bit too).
    if (d->numlcks > 1 || (d->numlcks == 1 && !(d->ph.ls & LS_HEADER)))
        d->ph.ls = static_cast<char>(d->ph.ls | LS_RECORD);
    return 0;
}

int _DBUnLockHeader() {
    DBDATAPKT *d = DBxbd;
    if (!(d->ph.ls & LS_HEADER)) return 0;
    uint32_t start = 0, len = 0;
    _DBLockRange(DBLK_HEADER, 0, &start, &len);
    const int rc = _release(start, len);
    if (rc != 0) return here.fail(rc, __LINE__);
    d->ph.ls = static_cast<char>(d->ph.ls & ~LS_HEADER);
    d->numlcks--;
    _needReread(d);
    return 0;
}

int _DBTakeFileLock(bool *taken) {
    *taken = false;
    DBDATAPKT *d = DBxbd;
    if (!d->ph.m.shared || _DBHoldsFileLock(d)) return 0;
    // Cached changes go out under the locks that protect them (as in
    // DBLockFile), before the file lock replaces those.
    if (d->u != 0 && _DBFlushFile() != 0) return DBerrno;
    const int rc = _DBLockFile();
    if (rc != 0) return rc;
    *taken = true;
    return 0;
}

void _DBGiveFileLock(DBDATAPKT *d, bool taken) {
    if (!taken) return;
    DBDATAPKT *keep = DBxbd;
    const int status = DBerrno;
    DBxbd = d;
    _DBUnLockAll();
    DBxbd = keep;
    DBerrno = status;
}

int _DBUnLockAll() {
    DBDATAPKT *d = DBxbd;
    const int fd = d->ph.dh;
    int first = 0;
    int i = 0;
    while (i < DBbase.lckused) {
        const DBLOCK k = DBbase.locks[i];
        if (k.fh != fd) {
            i++;
            continue;
        }
        const int before = DBbase.lckused;
        const int rc = _range(1, k.a, k.l);
        if (rc != 0) {
            // The system would not release it (a dead descriptor, say): the
            // bytes are not usable through this table any more, so the
            // entry goes all the same and the failure is reported.
            if (first == 0) first = rc;
            _flag_lock(fd, 1, static_cast<int32_t>(k.a), static_cast<int32_t>(k.l));
        }
        // The entry at i is gone and the next one moved into its place; if
        // nothing was removed, step over it rather than loop for ever.
        if (DBbase.lckused == before) i++;
    }
    const int rrc = _releaseReadLocks();
    if (first == 0) first = rrc;
    d->ph.ls = 0;
    d->numlcks = 0;
    _needReread(d);
    if (first != 0) return here.fail(first, __LINE__);
    return 0;
}

// ---------------------------------------------------------------------------
// Public calls
// ---------------------------------------------------------------------------

namespace {
// A shared table's cached changes reach the file while the locks that
// protect them are still held: once a lock goes (or is swapped for another,
// as DBLockRecord and DBLockFile do), another process may read those
// records or append at the same record number. A failed flush keeps the
// locks, so the caller can retry.
int _settle() {
    DBDATAPKT *d = DBxbd;
    if (!d->ph.m.shared || d->u == 0) return 0;
    return _DBFlushFile();
}
}  // namespace

extern "C" DBAPI int DBLockFile(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_settle() != 0) return DBerrno;
    return _DBStatus(_DBLockFile());
}

extern "C" DBAPI int DBLockHeader(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    return _DBStatus(_DBLockHeader());
}

extern "C" DBAPI int DBLockAppend(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    return _DBStatus(_DBLockAppend());
}

extern "C" DBAPI int DBLockRecord(int handle, int32_t recno) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_settle() != 0) return DBerrno;
    return _DBStatus(_DBLockRecord(recno));
}

extern "C" DBAPI int DBUnLockRecord(int handle, int32_t recno) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_settle() != 0) return DBerrno;
    return _DBStatus(_DBUnLockRecord(recno));
}

extern "C" DBAPI int DBUnLockHeader(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_settle() != 0) return DBerrno;
    return _DBStatus(_DBUnLockHeader());
}

extern "C" DBAPI int DBUnLockAll(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_settle() != 0) return DBerrno;
    return _DBStatus(_DBUnLockAll());
}

extern "C" DBAPI int DBIsRecordLocked(int handle, int32_t recno) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    const DBDATAPKT *d = DBxbd;
    // A yes-or-no answer, not a status: DBerrno stays 0 from the resolver.
    if (!d->ph.m.shared) return 0;
    uint32_t start = 0, len = 0;
    _DBLockRange(DBLK_RECORD, recno, &start, &len);
    return DBosTestLock(d->ph.dh, static_cast<int32_t>(start), static_cast<int32_t>(len));
}

extern "C" DBAPI int DBReadLockFile(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    return _DBStatus(_readLock(DBLK_FILE, 0));
}

extern "C" DBAPI int DBReadLockHeader(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    return _DBStatus(_readLock(DBLK_HEADER, 0));
}

extern "C" DBAPI int DBReadLockRecord(int handle, int32_t recno) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    return _DBStatus(_readLock(DBLK_RECORD, recno));
}
