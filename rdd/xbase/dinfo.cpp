// dinfo.cpp - how a table is open and what its header says about it.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/dinfo"};
}

extern "C" DBAPI int DBGetFileInfo(int handle, DBFILEINFO *info) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBDATAPKT *d = DBxbd;
    info->flags.isreadonly = d->ph.m.read_only;
    info->flags.isshareable = d->ph.m.shared;
    info->flags.isunbuffered = d->ph.m.always_flush;
    _DBCopyName(info->fname, sizeof info->fname, d->ph.n);
    info->style = d->v & 0x7F;
    info->memo = (d->v & 0x80) ? 1 : 0;
    info->mdx = d->h.mdx;
    info->trans = d->h.t;
    info->encrypt = d->h.e;
    info->lockt = static_cast<unsigned char>(d->ph.ls);
    info->numlcks = d->numlcks;
    return _DBStatus(0);
}
