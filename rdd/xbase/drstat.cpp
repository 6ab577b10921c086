// drstat.cpp - the deletion mark: testing the current record, and marking a
// record deleted ('*') or active (' ') in place.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/drstat"};

int _mark(int handle, int32_t recno, char mark) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    DBDATAPKT *d = DBxbd;
    if (d->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (_DBRefreshHeader() != 0) return DBerrno;
    if (recno < 1 || recno > d->h.n) return here.fail(DBE_SEEK, __LINE__);
    DBWriteLock lock;
    if (lock.take(DBLK_RECORD, recno) != 0) return DBerrno;
    if (_DBGetRecord(recno) < 0) return DBerrno;
    // A record that already carries the mark is not written again: no
    // needless write, no new date in the header.
    if (d->b.r[0] == mark) return _DBStatus(0);
    d->b.r[0] = mark;
    return _DBUpdateRecord(recno);
}
}  // namespace

extern "C" DBAPI int DBMarkRecordInActive(int handle, int32_t recno) { return _mark(handle, recno, '*'); }

extern "C" DBAPI int DBMarkRecordActive(int handle, int32_t recno) { return _mark(handle, recno, ' '); }

extern "C" DBAPI int DBIsRecordDeleted(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    return DBxbd->b.r[0] == '*' ? 1 : 0;
}
