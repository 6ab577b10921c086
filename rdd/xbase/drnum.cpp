// drnum.cpp - where the table stands: the current record number and whether
// it is the first or the last record.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/drnum"};
}

extern "C" DBAPI int DBGetRecordNumber(int handle, int32_t *recno) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!recno) return here.fail(DBE_NULLPARAM, __LINE__);
    *recno = DBxbd->c;
    return _DBStatus(0);
}

// Both tests answer 1 on an empty table, where the first record is also the
// last. Before any record was read (current record 0) the table stands at
// its beginning.
extern "C" DBAPI int DBIsBeginningOfFile(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_DBRefreshHeader() != 0) return DBerrno;
    return (DBxbd->h.n == 0 || DBxbd->c <= 1) ? 1 : 0;
}

extern "C" DBAPI int DBIsEndOfFile(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (_DBRefreshHeader() != 0) return DBerrno;
    return (DBxbd->h.n == 0 || DBxbd->c >= DBxbd->h.n) ? 1 : 0;
}
