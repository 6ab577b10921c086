// locks.cpp - settings of the process lock table: retry count and capacity.
#include "core.h"

#include <limits>

namespace {
constexpr DBSite here{"rdd/xbase/locks"};
}

extern "C" DBAPI int DBSetLockRetryCount(int n) {
    DBlock_retry = n;
    return _DBStatus(0);
}

extern "C" DBAPI int DBGetLockRetryCount(int *n) {
    if (!n) return here.fail(DBE_NULLPARAM, __LINE__);
    *n = DBlock_retry;
    return _DBStatus(0);
}

extern "C" DBAPI int DBGetLockCount(int *used, int *max) {
    if (!used || !max) return here.fail(DBE_NULLPARAM, __LINE__);
    *used = DBbase.lckused;
    *max = DBbase.maxlcks;
    return _DBStatus(0);
}

extern "C" DBAPI int DBSetLockCount(int n) {
    if (DBbase.lckused > n) return here.fail(DBE_LOCKUNDERFLOW, __LINE__);
    // The count is kept in 16 bits.
    if (n > std::numeric_limits<int16_t>::max()) return here.fail(DBE_BADCOMMAND, __LINE__);
    void *p = DBbase.locks;
    if (DBReAllocateMemory(&p, sizeof(DBLOCK) * (n > 0 ? n : 1), here.id, __LINE__) != 0)
        return DBerrno;
    DBbase.locks = static_cast<DBLOCK *>(p);
    DBbase.maxlcks = static_cast<int16_t>(n);
    return _DBStatus(0);
}

int _DBSetLocksUsed(int n) {
    DBbase.lckused = static_cast<int16_t>(n);
    return DBerrno;
}
