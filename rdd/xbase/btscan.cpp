// btscan.cpp - reading every record of a table for a bulk build: whole
// blocks of records per read, each record in turn put in the table's record
// buffer as its current record, where the key evaluator finds its fields.
#include "btree.h"
#include "dbf.h"

namespace {
constexpr DBSite here{"rdd/xbase/btscan"};
constexpr int32_t kScanBytes = 1 << 20;
}  // namespace

int _DBScanTable(int32_t table, int (*each)(int32_t recno, void *ctx), void *ctx) {
    if (_DBLockDataStruc(table) != 0) return DBerrno;
    DBDATAPKT *d = DBxbd;
    // Changes still in the table's cache go to the file first: the scan
    // reads the file, not the cache.
    if (!d->ph.m.read_only && _DBFlushFile() != 0) return DBerrno;
    if (_DBRefreshHeader() != 0) return DBerrno;
    const int32_t n = d->h.n;
    const int32_t len = d->h.r;
    if (n < 0 || len < 1) return here.fail(DBE_CORRUPT, __LINE__);
    if (static_cast<int64_t>(d->h.h) + static_cast<int64_t>(n) * len > INT32_MAX)
        return here.fail(DBE_CORRUPT, __LINE__);
    const int32_t per = kScanBytes / len > 0 ? kScanBytes / len : 1;
    DBOwned<char> block, saved;
    if (block.alloc(static_cast<size_t>(per) * len, here.id, __LINE__) != 0) return DBerrno;
    if (saved.alloc(static_cast<size_t>(len), here.id, __LINE__) != 0) return DBerrno;
    std::memcpy(saved.get(), d->b.r, static_cast<size_t>(len));
    const int32_t current = d->c;
    int rc = 0;
    for (int32_t rec = 1; rec <= n && rc == 0;) {
        const int32_t cnt = n - rec + 1 < per ? n - rec + 1 : per;
        const int32_t off = d->h.h + (rec - 1) * len;
        if (_DBosReadAt(d->ph.dh, off, block.get(), cnt * len) != 0) {
            rc = here.fail(DBerrno, __LINE__);
            break;
        }
        for (int32_t i = 0; i < cnt && rc == 0; i++, rec++) {
            std::memcpy(d->b.r, block.get() + static_cast<size_t>(i) * len, static_cast<size_t>(len));
            d->c = rec;
            rc = each(rec, ctx);
        }
    }
    std::memcpy(d->b.r, saved.get(), static_cast<size_t>(len));
    d->c = current;
    return rc != 0 ? _DBStatus(rc) : _DBStatus(0);
}
