// drclear.cpp - blanking the record buffer: every field empty, the record
// active.
#include "dbf.h"

extern "C" DBAPI int DBClearBuffer(int handle) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    std::memset(DBxbd->b.r, ' ', DBxbd->h.r);
    return _DBStatus(0);
}
