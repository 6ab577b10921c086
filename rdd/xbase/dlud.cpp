// dlud.cpp - the date of a table's last update, as text in a date style.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/dlud"};
}

extern "C" DBAPI int DBGetLastUpdate(int handle, char *buf, int style) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!buf) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBDATAHDR &h = DBxbd->h;
    // The year byte counts from 2000 (it is year + 48 modulo 256).
    if (DBDate3ToStr(buf, style, h.y + 2000, h.m, h.d) != 0) return here.fail(DBerrno, __LINE__);
    return _DBStatus(0);
}
