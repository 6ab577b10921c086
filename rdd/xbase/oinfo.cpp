// oinfo.cpp - what an open CDX file is (its name, tags and open flags), a
// tag's key expression, and whether the current tag is compact.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/oinfo"};
}

extern "C" DBAPI int DBfpGetIndexInfo(int handle, DBFPINDEXINFO *info) {
    if (_DBfpLockIndexStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBCDXPKT *x = DBfpi;
    int used = 0;
    for (int s = 0; s < x->tc; s++)
        if (x->tt[s]) used++;
    info->usedtags = used;
    info->flags.isreadonly = x->ph.m.read_only;
    info->flags.isshareable = x->ph.m.shared;
    info->flags.isunbuffered = x->ph.m.always_flush;
    _DBCopyName(info->fname, sizeof info->fname, x->ph.n);
    info->lockt = x->ph.ls;
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpGetIndexKeyExpr(int tag, char *expr) {
    if (_DBfpLockIndexStruc(tag) != 0) return DBerrno;
    if (!expr) return here.fail(DBE_NULLPARAM, __LINE__);
    std::memcpy(expr, DBfpt->e, std::strlen(DBfpt->e) + 1);
    return _DBStatus(0);
}

extern "C" DBAPI int DBfbGetIndexKeyExpr(int handle, char *expr) { return DBfpGetIndexKeyExpr(handle, expr); }

extern "C" DBAPI int DBfbCompressedIndex(void) {
    return DBfpt && _DBfpIsCompact(DBfpt->index_header.unique_flag) ? 1 : 0;
}
