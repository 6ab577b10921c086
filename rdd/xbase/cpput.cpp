// cpput.cpp - handing changed NTX pages to the file: later, at flush or
// eviction, for a buffered index; at once for a write-through one.
#include "ntx.h"

namespace {
constexpr DBSite here{"rdd/xbase/cpput"};
}  // namespace

int _DBclWritePage(int32_t page) {
    DBNTXPKT *x = DBcli;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    const DBPAGEWRITEMODE mode = _DBPageWriteMode(x->ph);
    if (_DBPageWrite(x->pc, _DBclPageFile(), page, mode) != 0) return here.fail(DBerrno, __LINE__);
    if (mode == DBPW_DEFER) x->u = 1;
    return 0;
}

int _DBclStorePage(int32_t page, const char *data) {
    DBNTXPKT *x = DBcli;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    const DBPAGEWRITEMODE mode = _DBPageWriteMode(x->ph);
    if (_DBPageStore(x->pc, _DBclPageFile(), page, data, mode) != 0) return here.fail(DBerrno, __LINE__);
    if (mode == DBPW_DEFER) x->u = 1;
    return 0;
}
