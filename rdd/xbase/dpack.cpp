// dpack.cpp - DBPackFile: drop the records marked deleted by copying the
// active ones into a new table, keep the old file as a backup, and reopen
// the table under its old name.
//
// The copy runs through one block of memory shared by both tables: the old
// table reads a cache's worth of records into it, the kept ones are slid
// down in place, and the new table flushes the same block as its appended
// records. Nothing is written under the old name until every record has
// been copied, so a failure before the renames leaves the old table open
// and its file as it was.
#include "dbf.h"
#include "memo.h"
#include "os.h"

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/dpack"};

constexpr int NAMECAP = 600;  // a 511-character name plus what is appended

// The old table's state that the pack bends for the copy, put back on every
// path out unless the pack succeeded (the old table is then closed).
class _OldTable {
public:
    explicit _OldTable(DBDATAPKT *d) : d_(d), flush_(d->ph.m.always_flush) {}
    _OldTable(const _OldTable &) = delete;
    _OldTable &operator=(const _OldTable &) = delete;
    ~_OldTable() {
        if (done_) return;
        // Once the copy has used the block, whatever the cache claims to
        // hold is not the file's content any more. Before that it is left
        // alone: it may hold appends that the first flush could not write,
        // and dropping them while the count still includes them would let
        // the next flush write a count with no records behind it.
        if (borrowed_) {
            d_->b.nr = 0;
            d_->b.s = 0;
        }
        DBDATAPKT *keep = DBxbd;
        DBxbd = d_;
        if (rl_ > 0 && d_->b.rl != rl_) {
            int n = rl_;
            DBGetSetCacheSize(handle_, &n, 0);
        }
        d_->ph.m.always_flush = flush_ ? 1 : 0;
        DBxbd = keep;
        _DBGiveFileLock(d_, locked_);
    }
    void cacheWas(int handle, int rl) {
        handle_ = handle;
        rl_ = rl;
    }
    bool *locked() { return &locked_; }
    void borrowed() { borrowed_ = true; }
    void done() { done_ = true; }

private:
    DBDATAPKT *d_;
    bool flush_;
    int handle_ = -1;
    int rl_ = 0;
    bool locked_ = false;
    bool borrowed_ = false;
    bool done_ = false;
};

// The new table until the pack hands it over: its own cache block is kept
// aside while it borrows the old table's, and on failure it is closed and
// its file removed.
class _NewTable {
public:
    _NewTable() = default;
    _NewTable(const _NewTable &) = delete;
    _NewTable &operator=(const _NewTable &) = delete;
    ~_NewTable() {
        detach();
        // Nothing of the new table is worth writing any more.
        if (packet()) _DBCloseUnwritten(handle_);
        if (created_) _DBosDeleteFile(name_);
    }
    void created(char *name) {
        name_ = name;
        created_ = true;
    }
    int *handle() { return &handle_; }
    DBDATAPKT *packet() const { return static_cast<DBDATAPKT *>(_DBPacketOf(handle_, DBPT_DBF)); }
    // Work in the old table's block: the record lengths are the same, so
    // the slot table fits both.
    void borrow(const DBDATAPKT *old) {
        DBDATAPKT *d = packet();
        own_ = d->b;
        borrowed_ = true;
        d->b.p = old->b.p;
        d->b.io = old->b.io;
        d->b.dm = old->b.dm;
        d->b.bl = old->b.bl;
        d->b.rl = old->b.rl;
        d->b.nr = 0;
        d->b.s = 0;
    }
    // Give the block back, so that it is freed once, by its owner.
    void detach() {
        if (!borrowed_) return;
        DBDATAPKT *d = packet();
        if (d) {
            d->b.p = own_.p;
            d->b.io = own_.io;
            d->b.dm = own_.dm;
            d->b.bl = own_.bl;
            d->b.rl = own_.rl;
            d->b.nr = 0;
            d->b.s = 0;
        }
        borrowed_ = false;
    }
    // The pack succeeded: close it (nothing more to write) and keep the file.
    int close() {
        detach();
        const int rc = _DBCloseUnwritten(handle_);
        if (rc < 0) return rc;
        handle_ = -1;
        created_ = false;
        return 0;
    }

private:
    int handle_ = -1;
    char *name_ = nullptr;
    bool created_ = false;
    bool borrowed_ = false;
    DBRECBFR own_{};
};

// Copy the active records of `old` into `nw` through the shared block.
int _copy(DBDATAPKT *old, DBDATAPKT *nw) {
    const int32_t total = old->h.n;
    const size_t rl = old->h.r;
    int32_t recno = 1;
    while (recno <= total) {
        DBxbd = old;
        const int rc = _DBGetRecord(recno);
        if (rc < 0) return rc;
        // The read leaves a cache's worth of records from recno on (or from
        // where the cache already started, if it held recno).
        const int first = recno - old->b.fr;
        const int held = old->b.nr - first;
        if (first < 0 || held < 1) return here.fail(DBE_READ, __LINE__);
        int kept = 0;
        for (int i = first; i < old->b.nr; i++) {
            const char *rec = old->b.p + static_cast<size_t>(i) * rl;
            if (rec[0] != ' ') continue;  // '*' and anything that is not ' '
            if (kept != i) _DBmemmove(old->b.p + static_cast<size_t>(kept) * rl, rec, static_cast<int>(rl));
            kept++;
        }
        // The block no longer holds what the old table read.
        old->b.nr = 0;
        old->b.s = 0;
        nw->b.nr = kept;
        nw->b.fr = nw->h.n + 1;
        nw->h.n += kept;
        nw->b.s = 0x60;
        nw->u = 0x60;
        DBxbd = nw;
        const int frc = _DBFlushFile();
        if (frc < 0) return frc;
        recno += held;
    }
    if (nw->h.n == 0) nw->b.fr = 1;
    return 0;
}

int _pack(int *handle) {
    if (!handle) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBLockDataStruc(*handle) != 0) return DBerrno;
    DBDATAPKT *old = DBxbd;
    if (old->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);

    // 1. What the reopen needs.
    char name[NAMECAP];
    _DBCopyName(name, sizeof name, old->ph.n);
    const int style = old->v & 0x7F;
    const int reopen = style | (old->ph.m.always_flush ? DBO_FLUSH : 0) | (old->ph.m.shared ? DBO_SHARED : 0);

    _OldTable guard(old);
    // 2. The copy reads through the cache, so an unbuffered table gets one
    // for the duration; a buffered one writes what it holds first.
    if (old->ph.m.always_flush) {
        old->ph.m.always_flush = 0;
    } else {
        const int rc = _DBFlushFile();
        if (rc < 0) return rc;
    }
    old->u = 0;

    // 3. Nobody else may write while the records are copied.
    if (const int rc = _DBTakeFileLock(guard.locked()); rc != 0) return rc;

    // 4. Backup name.
    char backup[NAMECAP];
    if (!_DBSiblingName(backup, sizeof backup, name, ".BAK")) return here.fail(DBE_BADFILENAME, __LINE__);

    // 5. Cache size to restore, and the field list to recreate.
    int cache = 0;
    DBGetSetCacheSize(*handle, &cache, 1);
    DBxbd = old;
    guard.cacheWas(*handle, old->b.rl);
    const int nf = old->nf;
    DBOwned<DBFIELD> fields;
    if (nf > 0 && fields.alloc(static_cast<size_t>(nf), here.id, __LINE__) != 0) return DBerrno;
    for (int i = 0; i < nf; i++) {
        _DBDescribeField(old->f[i], &fields[i]);
        // The production-index flag of each field goes along; the create
        // uses it only where the style keeps one.
        if (old->f[i].i) fields[i].type |= 0x100;
    }

    // 6, 7. The new table beside the old one.
    char temp[NAMECAP];
    if (_DBFreeName(temp, sizeof temp, name, ".DBF") != 0) return DBerrno;
    _NewTable nw;
    int rc = DBCreateFile(temp, nf, fields.get(), style | (old->h.mdx ? 0x200 : 0));
    if (rc < 0) {
        // A create that failed half way may have left the file.
        if (_DBIsFileThere(temp)) nw.created(temp);
        return _DBStatus(rc);
    }
    nw.created(temp);
    fields.reset();

    // 8. Both tables in one block, as large as a transfer sensibly gets.
    int big = 16384 / old->h.r;
    rc = DBGetSetCacheSize(*handle, &big, 0);
    if (rc < 0) return rc;
    rc = DBOpenFile(nw.handle(), temp, style);
    if (rc < 0) return rc;
    DBDATAPKT *np = nw.packet();
    if (!np || np->h.r != old->h.r) return here.fail(DBE_RECLEN, __LINE__);
    DBxbd = old;
    guard.borrowed();
    old->b.nr = 0;  // start the reads at record 1, whatever the cache held
    old->b.s = 0;
    nw.borrow(old);

    // 9, 10. Copy.
    rc = _copy(old, np);
    nw.detach();
    if (rc < 0) return _DBStatus(rc);

    // 11. Hand over: close both, give the old file the backup name as a
    // second name, and rename the new file over the old name. A rename
    // replaces its target in one step, so at every moment, a crash
    // included, the table's name holds the old file or the new one; the
    // old order (old name to backup, then new file to old name) left no
    // file under the name in between. _DBTableSwap is the hand-over that
    // DBModifyFile uses too; a table alone needs no marker.
    rc = nw.close();
    if (rc < 0) return _DBStatus(rc);
    rc = DBCloseFile(*handle);
    if (rc < 0) {
        // The old table stays open; the new file is not needed any more.
        _DBosDeleteFile(temp);
        return _DBStatus(rc);
    }
    guard.done();
    *handle = -1;
    DBerrno = 0;
    char none[1] = "";
    rc = _DBTableSwap(DBTABLESWAP{name, temp, backup, none, none, none, false, false});
    if (rc < 0) {
        // The old file is still under its name: open it again, so that the
        // caller keeps a table, and report why the pack did not happen.
        DBOpenFile(handle, name, reopen);
        return _DBStatus(rc);
    }
    rc = DBOpenFile(handle, name, reopen);
    if (rc < 0) return rc;
    if (cache > 0) {
        const int warn = rc;
        DBGetSetCacheSize(*handle, &cache, 0);
        rc = warn;
    }
    return rc;
}
}  // namespace

extern "C" DBAPI int DBPackFile(int *handle) {
    const int rc = _pack(handle);
    return _DBStatus(rc);
}
