// npput.cpp - handing changed NDX nodes to the file: later, at flush or
// eviction, for a buffered index; at once for a write-through one.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/npput"};
}

int _DBd3StorePage(int32_t page, const char *data) {
    DBNDXPKT *x = DBd3i;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    const DBPAGEWRITEMODE mode = _DBPageWriteMode(x->ph);
    if (_DBPageStore(x->pc, _DBd3PageFile(), page, data, mode) != 0) return here.fail(DBerrno, __LINE__);
    if (mode == DBPW_DEFER) x->u = 1;
    return 0;
}
