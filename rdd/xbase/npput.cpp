// npput.cpp - handing changed NDX nodes to the file: later, at flush or
// eviction, for a buffered index; at once for a write-through one.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/npput"};
}

int _DBd3StorePage(int32_t page, const char *data) {
    DBNDXPKT *x = DBd3i;
    if (x->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    DBPAGEWRITEMODE mode = DBPW_DEFER;
    if (x->ph.m.always_flush)
        // Shared and not locked by us: another process may change the node
        // the moment it is written, so our copy must not be served again.
        mode = x->ph.m.shared && x->ph.ls == 0 ? DBPW_DROP : DBPW_THROUGH;
    if (_DBPageStore(x->pc, _DBd3PageFile(), page, data, mode) != 0) return here.fail(DBerrno, __LINE__);
    if (mode == DBPW_DEFER) x->u = 1;
    return 0;
}
