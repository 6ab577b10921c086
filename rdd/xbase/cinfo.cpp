// cinfo.cpp - what an open NTX index is: its name, key and open flags.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cinfo"};
}

extern "C" DBAPI int DBclGetIndexInfo(int handle, DBCLINDEXINFO *info) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!info) return here.fail(DBE_NULLPARAM, __LINE__);
    const DBNTXPKT *x = DBcli;
    std::memcpy(info->fname, x->ph.n, sizeof info->fname);
    info->keylen = x->h.k;
    // The header does not record the key's type.
    info->keytype = '?';
    info->keydpl = x->h.key_dec;
    info->keyfmt = ((x->h.u & 1) ? 128 : 0) | (std::strncmp(x->h.e, "DESCEND", 7) == 0 ? 256 : 0);
    const size_t len = std::strlen(x->h.e);
    info->exprlen = static_cast<int>(len);
    // At most 100 bytes with the NUL; a longer expression is cut without one.
    std::memcpy(info->expr, x->h.e, len + 1 < sizeof info->expr ? len + 1 : sizeof info->expr);
    info->lockt = x->ph.ls;
    info->flags.isreadonly = x->ph.m.read_only;
    info->flags.isshareable = x->ph.m.shared;
    info->flags.isunbuffered = x->ph.m.always_flush;
    return _DBStatus(0);
}
