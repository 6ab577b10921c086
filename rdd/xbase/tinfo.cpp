// tinfo.cpp - how a DBT memo file is open.
#include "memo.h"

namespace {
constexpr DBSite here{"rdd/xbase/tinfo"};
}

extern "C" DBAPI int DBxbGetMemoInfo(int handle, DBXBMEMOINFO *info) {
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBDBTPKT *m = DBxbm;
    info->flags.isreadonly = m->ph.m.read_only;
    info->flags.isshareable = m->ph.m.shared;
    info->flags.isunbuffered = m->ph.m.always_flush;
    _DBCopyName(info->fname, sizeof info->fname, m->ph.n);
    info->style = m->v;
    info->lockt = m->ph.ls;
    info->blksz = m->bs;
    return _DBStatus(0);
}
