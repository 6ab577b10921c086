// dfver.cpp - the check every field call starts with: a table handle and a
// field number that exists in it.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/dfver"};
}

int _DBVerifyField(int handle, int field) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (field < 0 || field >= DBxbd->nf) return here.fail(DBE_NUMFIELDS, __LINE__);
    return _DBStatus(0);
}
