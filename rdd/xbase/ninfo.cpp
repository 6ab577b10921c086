// ninfo.cpp - what an open NDX index is: its name, key, shape and open
// flags; and its key expression.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/ninfo"};
}

extern "C" DBAPI int DBd3GetIndexInfo(int handle, DBD3INDEXINFO *info) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBNDXPKT *x = DBd3i;
    std::memset(info, 0, sizeof *info);
    std::memcpy(info->fname, x->ph.n, sizeof info->fname);
    info->keylen = x->h.k;
    info->keytype = x->h.type == 1 ? 'N' : 'C';
    info->itemlen = x->h.il;
    info->maxkeys = x->h.m;
    info->unique = x->h.u;
    info->root = x->h.r;
    info->blocks = x->h.nb;
    const size_t len = std::strlen(x->h.e);
    info->exprlen = static_cast<int>(len);
    std::memcpy(info->expr, x->h.e, len + 1);
    info->lockt = x->ph.ls;
    info->flags.isreadonly = x->ph.m.read_only;
    info->flags.isshareable = x->ph.m.shared;
    info->flags.isunbuffered = x->ph.m.always_flush;
    return _DBStatus(0);
}

extern "C" DBAPI int DBd3GetIndexKeyExpr(int handle, char *expr) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!expr) return here.fail(DBE_NULLPARAM, __LINE__);
    std::memcpy(expr, DBd3i->h.e, std::strlen(DBd3i->h.e) + 1);
    return _DBStatus(0);
}
