// drbfr.cpp - handing the record buffer to the host, so that a record can be
// built in place before it is written.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/drbfr"};
}

extern "C" DBAPI int DBSetBufferAddress(int handle, char **bfr) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!bfr) return here.fail(DBE_NULLPARAM, __LINE__);
    std::memset(DBxbd->b.r, ' ', DBxbd->h.r);
    *bfr = DBxbd->b.r;
    return _DBStatus(0);
}
