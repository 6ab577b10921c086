// dfnam2no.cpp - field names and numbers, one from the other.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/dfnam2no"};
}

extern "C" DBAPI int DBGetFieldNumber(int handle, int *number, char *name) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!number || !name) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBDATAPKT *d = DBxbd;
    // Letter case never matters in a field name; the first match wins, as
    // it does for every xBase program reading the same file.
    for (int i = 0; i < d->nf; i++) {
        if (_DBstricmp(d->f[i].n, name) == 0) {
            *number = i;
            return _DBStatus(0);
        }
    }
    *number = d->nf;
    return here.fail(DBE_FIELDNAME, __LINE__);
}

extern "C" DBAPI int DBGetFieldName(int handle, char *name, int field) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!name) return here.fail(DBE_NULLPARAM, __LINE__);
    if (field < 0 || field >= DBxbd->nf) return here.fail(DBE_NUMFIELDS, __LINE__);
    // Names are terminated within their 11 bytes since the open.
    std::memcpy(name, DBxbd->f[field].n, std::strlen(DBxbd->f[field].n) + 1);
    return _DBStatus(0);
}
