// cexpr.cpp - the key expression of an open NTX index.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cexpr"};
}

extern "C" DBAPI int DBclGetIndexKeyExpr(int handle, char *expr) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!expr) return here.fail(DBE_NULLPARAM, __LINE__);
    std::memcpy(expr, DBcli->h.e, std::strlen(DBcli->h.e) + 1);
    return _DBStatus(0);
}
