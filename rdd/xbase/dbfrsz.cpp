// dbfrsz.cpp - reading and changing the capacity of a table's record cache.
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/dbfrsz"};
}

extern "C" DBAPI int DBGetSetCacheSize(int handle, int *nrecs, int get) {
    if (_DBLockDataStruc(handle) != 0) return DBerrno;
    DBDATAPKT *d = DBxbd;
    DBRECBFR &b = d->b;
    if (!nrecs) return here.fail(DBE_NULLPARAM, __LINE__);
    if (get != 0 && get != 1) return here.fail(DBE_BADCOMMAND, __LINE__);
    if (d->ph.m.always_flush) {
        // A write-through table has no cache to report or to size.
        *nrecs = 0;
        return _DBStatus(get == 1 ? 0 : DBW_UNBUFFERED);
    }
    if (get == 1) {
        *nrecs = b.p ? b.rl : 0;
        return _DBStatus(0);
    }
    if (b.s != 0 && _DBFlushFile() != 0) return DBerrno;
    const int r = d->h.r;
    int count = *nrecs < 1 ? 1 : *nrecs;
    // Slot offsets are kept in 16 bits: the cache stops where they would
    // no longer fit.
    const int most = INT16_MAX / r + 1;
    if (count > most) count = most;
    DBOwned<char> block, marks;
    DBOwned<int16_t> io;
    if (block.alloc(static_cast<size_t>(count) * r, here.id, __LINE__) != 0 ||
        io.alloc(static_cast<size_t>(count), here.id, __LINE__) != 0 ||
        marks.alloc(static_cast<size_t>(count), here.id, __LINE__) != 0) {
        // The old cache stays in service.
        return _DBStatus(DBW_PARTIALALLOC);
    }
    for (int i = 0; i < count; i++) io[static_cast<size_t>(i)] = static_cast<int16_t>(i * r);
    if (b.nr > count) b.nr = count;
    if (b.p && b.nr > 0) {
        std::memcpy(block.get(), b.p, static_cast<size_t>(b.nr) * r);
        std::memcpy(marks.get(), b.dm, static_cast<size_t>(b.nr));
    }
    if (!b.p) b.nr = 0;
    if (b.p) DBFreeMemory(b.p, here.id, __LINE__);
    if (b.io) DBFreeMemory(b.io, here.id, __LINE__);
    if (b.dm) DBFreeMemory(b.dm, here.id, __LINE__);
    b.p = block.release();
    b.io = io.release();
    b.dm = marks.release();
    b.rl = count;
    b.bl = count * r;
    *nrecs = count;
    return _DBStatus(0);
}
