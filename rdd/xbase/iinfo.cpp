// iinfo.cpp - what an open IDX file (or one tag of a CDX file) is: name,
// open flags, key, format and expressions.
#include "cdx.h"

namespace {
constexpr DBSite here{"rdd/xbase/iinfo"};
}

extern "C" DBAPI int DBfbGetIndexInfo(int handle, DBFBINDEXINFO *info) {
    if (_DBfpLockIndexStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBCDXPKT *x = DBfpi;
    const DBCDXTAG *t = DBfpt;
    std::memset(info, 0, sizeof *info);
    _DBCopyName(info->fname, sizeof info->fname, x->ph.n);
    info->flags.isreadonly = x->ph.m.read_only;
    info->flags.isshareable = x->ph.m.shared;
    info->flags.isunbuffered = x->ph.m.always_flush;
    info->keylen = t->k;
    info->keytype = t->index_key_type;
    // As the other families count it: 128 unique, 256 descending.
    info->keyfmt = (_DBfpUnique(t) ? 128 : 0) | (t->ko ? 256 : 0);
    info->ftype = static_cast<uint8_t>(t->index_header.unique_flag);
    info->lockt = x->ph.ls;
    const size_t len = std::strlen(t->e);
    info->exprlen = static_cast<int>(len);
    // 220 bytes with the NUL; an expression of 220 characters is cut
    // without one.
    std::memcpy(info->expr, t->e, len + 1 < sizeof info->expr ? len + 1 : sizeof info->expr);
    if (t->for_expression) _DBCopyName(info->forexpr, sizeof info->forexpr, t->for_expression);
    return _DBStatus(0);
}
