// winfo.cpp - how an FPT memo file is open.
#include "memo.h"

namespace {
constexpr DBSite here{"rdd/xbase/winfo"};
}

extern "C" DBAPI int DBfpGetMemoInfo(int handle, DBFPMEMOINFO *info) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBFPTPKT *m = DBfpm;
    info->flags.isreadonly = m->ph.m.read_only;
    info->flags.isshareable = m->ph.m.shared;
    info->flags.isunbuffered = m->ph.m.always_flush;
    _DBCopyName(info->fname, sizeof info->fname, m->ph.n);
    info->lockt = m->ph.ls;
    info->blksz = m->h.bsa;
    return _DBStatus(0);
}
