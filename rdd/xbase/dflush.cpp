// dflush.cpp - writing a table's pending changes: the cached block, the
// header's date and record count, and the end-of-file mark.
#include "dbf.h"
#include "os.h"

#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/dflush"};
constexpr uint8_t kEndMark = 0x1A;
}  // namespace

int _DBWriteAt(const DBSite &site, int line, int fd, int32_t off, const void *buf, int len, int16_t flush) {
    const int saved = DBerrno;
    DBerrno = 0;
    if (DBosSetFilePosition(fd, off) != 0) return site.fail(DBerrno, line);
    if (DBosWriteData(fd, const_cast<void *>(buf), len, flush) != 0) return site.fail(DBerrno, line);
    DBerrno = saved;
    return 0;
}

bool _DBXbase80Compat() { return std::getenv("DB_XBASE80_COMPAT") != nullptr; }

int _DBStampDate(bool fixed_year) {
    int y = 0, m = 0, dd = 0, dow = 0;
    if (DBGetDate3(&y, &m, &dd, &dow) != 0) return here.fail(DBerrno, __LINE__);
    DBDATAHDR &h = DBxbd->h;
    // 'w' reads back as 2119: the mark some dBASE-80 era programs leave.
    h.y = fixed_year ? static_cast<uint8_t>('w') : static_cast<uint8_t>((y + 48) & 0xFF);
    h.m = static_cast<uint8_t>(m);
    h.d = static_cast<uint8_t>(dd);
    return 0;
}

int _DBWriteEndMark() {
    DBDATAPKT *d = DBxbd;
    int64_t off = _DBTableEnd(d, d->h.n);
    uint8_t marks[512];
    std::memset(marks, kEndMark, sizeof marks);
    // Style 7 tables end with a whole record of end marks.
    int left = _DBStyleOf(d) == 7 ? d->h.r : 1;
    while (left > 0) {
        const int piece = left < static_cast<int>(sizeof marks) ? left : static_cast<int>(sizeof marks);
        if (off > INT32_MAX) return here.fail(DBE_SEEK, __LINE__);
        if (_DBWriteAt(here, __LINE__, d->ph.dh, static_cast<int32_t>(off), marks, piece, d->ph.flush_disk) != 0)
            return DBerrno;
        off += piece;
        left -= piece;
    }
    return 0;
}

namespace {
// Write the cached records that need it. An exclusive table writes the whole
// block: nothing else changes the file under it. A shared table writes only
// the runs of records changed here; the others may since have been changed
// by the processes that held their locks.
int _writeBlock(DBDATAPKT *d) {
    DBRECBFR &b = d->b;
    if (b.s == 0 || b.nr <= 0 || !b.p) return 0;
    int32_t first = 0;
    if (_DBRecordOffset(d, b.fr, &first) != 0) return DBerrno;
    if (!d->ph.m.shared)
        return _DBWriteAt(here, __LINE__, d->ph.dh, first, b.p, b.nr * d->h.r, d->ph.flush_disk);
    for (int i = 0; i < b.nr;) {
        if (b.dm[i] != DBSLOT_CHANGED) {
            i++;
            continue;
        }
        int end = i + 1;
        while (end < b.nr && b.dm[end] == DBSLOT_CHANGED) end++;
        // first + i * r cannot pass 2^31 - 1: the records were read or
        // appended, so their offsets were checked then.
        if (_DBWriteAt(here, __LINE__, d->ph.dh, first + i * d->h.r, _DBCacheSlot(d, i), (end - i) * d->h.r,
                       d->ph.flush_disk) != 0)
            return DBerrno;
        while (i < end) b.dm[i++] = DBSLOT_READ;
    }
    return 0;
}
}  // namespace

int _DBFlushFile() {
    DBDATAPKT *d = DBxbd;
    if (d->u == 0) return 0;
    if (_writeBlock(d) != 0) return DBerrno;
    // The header of a shared table is written under its lock unless some
    // lock of ours already keeps other writers out. Taking the lock rereads
    // the header, so the date is set after it.
    bool locked = false;
    if (d->ph.m.shared && d->ph.ls == 0) {
        if (_DBLockHeader() != 0) return DBerrno;
        locked = true;
    }
    // The record count goes out only when this process knows it: under a
    // header, append or file lock (taken now or held since before the
    // appends), which reread it and keep other appenders out. Under record
    // locks alone the count in memory may be older than another process's
    // append, and writing it would lose that record; only the date goes.
    const bool count = !d->ph.m.shared || _DBHoldsFileLock(d) || _DBHoldsHeaderLock(d) || _DBHoldsAppendLock(d);
    // The year form is the opposite of the append path's, on purpose: both
    // are what the programs sharing these files have always written.
    int rc = _DBStampDate(_DBXbase80Compat());
    if (rc == 0) {
        uint8_t hdr[7] = {d->h.y, d->h.m, d->h.d, 0, 0, 0, 0};
        _DBStoreLE32(hdr + 3, static_cast<uint32_t>(d->h.n));
        rc = _DBWriteAt(here, __LINE__, d->ph.dh, 1, hdr, count ? 7 : 3, d->ph.flush_disk);
    }
    if (rc == 0 && (d->u & 0x20)) rc = _DBWriteEndMark();
    if (rc == 0) {
        d->u = 0;
        d->b.s = 0;
    }
    if (locked) {
        const int st = DBerrno;
        _DBUnLockHeader();
        if (rc != 0) DBerrno = st;
    }
    return rc;
}

extern "C" DBAPI int DBFlushFile(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_DBFlushFile() != 0) return DBerrno;
    return _DBStatus(0);
}
