// drinfo.cpp - the record length, field count and record buffer of a table.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/drinfo"};
}

extern "C" DBAPI int DBGetRecordInfo(int handle, DBRECINFO *info) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    info->reclen = DBxbd->h.r;
    info->numflds = DBxbd->nf;
    info->bfr = DBxbd->b.r;
    return _DBStatus(0);
}
