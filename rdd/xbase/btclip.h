// btclip.h - what the two single-key families of the Clipper shape, NTX and
// NDX, do alike, written once over a small description of the family.
//
// Both keep one key expression per file, a packet with a page cache, a
// descent path and (when shared) the current key saved by value, and lock
// the same two bytes. They differ in their header, their page layout and
// their key order, which the family description supplies:
//
//   using Pkt, Tree;                       the packet; the tree as the path
//                                          moves see it (btree.h)
//   static Pkt *&pkt();                    the packet of the handle resolved
//                                          last (DBcli, DBd3i)
//   static int resolve(int handle);        resolve a handle into pkt()
//   static int readHeader();               reread what other processes change
//   static int writeHeader();              write the fields a flush ends with
//   static DBPAGEFILE pages();
//   static int32_t root();                 byte offset of the root page
//   static int current(char *, int32_t *); the entry at the path's position
//   static int search(char *, int32_t *, int mode);
//   static int refind(char *, int32_t *);  the saved entry found again
//   static size_t keyBytes(const char *);  bytes of a key a caller passes
//   static bool same(const char *, const char *);  equal keys
//   static int64_t walkLimit();            the longest sound walk
//   static void releaseOwn(Pkt *);         free what only this family holds
//   static int close(int handle);          the public close
//   kType, kPage;                          packet type, page size
//   kWriteLock, kReadLock, kLocked;        lock bytes, lock-state value
//   kNoPlaceNotFound;                      a step of a shared index with no
//                                          saved place: "not found" (NTX)
//                                          rather than from an end (NDX)
//
// Every function works on pkt(), resolved by the caller unless it takes the
// handle itself.
#pragma once

#include "btree.h"
#include "os.h"

#include <cstring>

inline constexpr DBSite kClipSite{"rdd/xbase/btclip"};

// ---- Locks and the header ----------------------------------------------------

// The write lock (type 0) or the read lock (type 2), then a reread of the
// header: while the lock was not held, other writers may have moved the
// root, grown the file or changed any page. POSIX record locks belong to the
// process, so two handles of one process do not keep each other out.
template <class F>
int _DBClipLock(int type) {
    typename F::Pkt *x = F::pkt();
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, type, type == 2 ? F::kReadLock : F::kWriteLock, 1) != 0)
        return kClipSite.fail(DBerrno, __LINE__);
    x->ph.ls = F::kLocked;
    if (F::readHeader() != 0) {
        // A lock whose header could not be read is given back: kept, it
        // would make every later call skip locking (and never unlock).
        const int rc = DBerrno;
        DBosLockData(x->ph.dh, 1, type == 2 ? F::kReadLock : F::kWriteLock, 1);
        x->ph.ls = 0;
        return _DBStatus(rc);
    }
    x->ph.m.read_header_information = 0;
    return 0;
}

// Only the write byte is released, after a read lock too: the read byte
// stays locked until the file is closed, as Clipper's readers expect.
template <class F>
int _DBClipUnlock() {
    typename F::Pkt *x = F::pkt();
    if (x->ph.ls == 0) return 0;
    DBerrno = 0;
    if (DBosLockData(x->ph.dh, 1, F::kWriteLock, 1) != 0) return kClipSite.fail(DBerrno, __LINE__);
    x->ph.ls = 0;
    if (x->ph.m.shared) x->ph.m.read_header_information = 1;
    return 0;
}

// The public lock calls: nothing to do on an exclusive index or one this
// handle holds already.
template <class F>
int _DBClipLockCall(int handle, int type) {
    if (F::resolve(handle) != 0) return DBerrno;
    const typename F::Pkt *x = F::pkt();
    if (!x->ph.m.shared || x->ph.ls) return _DBStatus(0);
    return _DBClipLock<F>(type) != 0 ? DBerrno : _DBStatus(0);
}

template <class F>
int _DBClipUnlockCall(int handle) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!F::pkt()->ph.m.shared) return _DBStatus(0);
    return _DBClipUnlock<F>() != 0 ? DBerrno : _DBStatus(0);
}

template <class F>
int _DBClipHeaderCall(int handle) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!F::pkt()->ph.m.shared) return _DBStatus(0);
    return F::readHeader() != 0 ? DBerrno : _DBStatus(0);
}

// ---- The cache ---------------------------------------------------------------

// A shared write-through index forgets its pages (and its path) after every
// call: another process may change any of them before the next.
template <class F>
void _DBClipForget() {
    typename F::Pkt *x = F::pkt();
    if (!x->ph.m.shared || !x->ph.m.always_flush) return;
    x->tl = -1;
    _DBPageForget(x->pc);
}

// A public call's prologue: reread the header when an unlock asked for it,
// emptying the cache on failure.
template <class F>
int _DBClipRefresh() {
    if (!F::pkt()->ph.m.read_header_information) return 0;
    if (F::readHeader() != 0) {
        const int rc = DBerrno;
        _DBClipForget<F>();
        return _DBStatus(rc);
    }
    return 0;
}

// Dirty pages, then the header. Another process must not read the header
// while the pages it describes are half written: a shared index takes the
// write lock for the flush when it does not hold it.
template <class F>
int _DBClipFlush() {
    typename F::Pkt *x = F::pkt();
    if (x->u) {
        const bool lock = x->ph.m.shared && x->ph.ls == 0;
        if (lock && _DBClipLock<F>(0) != 0) return DBerrno;
        int rc = _DBPageFlushAll(x->pc, F::pages());
        if (rc == 0) {
            rc = F::writeHeader();
            x->u = 0;
        }
        const int unlocked = lock ? _DBClipUnlock<F>() : 0;
        if (rc != 0) return kClipSite.fail(rc, __LINE__);
        if (unlocked != 0) return DBerrno;
    }
    DBerrno = 0;
    DBosFlushFile(x->ph.dh);
    return _DBStatus(0);
}

template <class F>
int _DBClipFlushCall(int handle) {
    if (F::resolve(handle) != 0) return DBerrno;
    const typename F::Pkt *x = F::pkt();
    if (x->ph.m.always_flush) return _DBStatus(DBW_UNBUFFERED);
    if (x->ph.m.read_only) return kClipSite.fail(DBE_READONLY, __LINE__);
    return _DBClipFlush<F>() != 0 ? DBerrno : _DBStatus(0);
}

// Read the number of page buffers (op 1) or change it (op 0). A
// write-through index keeps its three buffers whatever is asked.
template <class F>
int _DBClipCacheSize(int handle, short *size, int op) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!size) return kClipSite.fail(DBE_NULLPARAM, __LINE__);
    typename F::Pkt *x = F::pkt();
    if (op == 1) {
        *size = x->pc.np;
        return _DBStatus(0);
    }
    if (op != 0) return kClipSite.fail(DBE_BADCOMMAND, __LINE__);
    if (x->ph.m.always_flush) return _DBStatus(0);
    int16_t want = *size;
    const int rc = _DBPageResize(x->pc, F::pages(), &want);
    *size = want;
    if (rc < 0) return kClipSite.fail(rc, __LINE__);
    return _DBStatus(rc);
}

// ---- Changes -----------------------------------------------------------------

// Takes the index write lock for one change when the index locks itself
// (auto_locks) and does not hold it yet; gives it back when the change is
// over, whatever the outcome.
template <class F>
class DBClipAutoLock {
public:
    DBClipAutoLock() = default;
    DBClipAutoLock(const DBClipAutoLock &) = delete;
    DBClipAutoLock &operator=(const DBClipAutoLock &) = delete;
    ~DBClipAutoLock() {
        if (!x_) return;
        const int rc = DBerrno;
        typename F::Pkt *saved = F::pkt();
        F::pkt() = x_;
        _DBClipUnlock<F>();
        F::pkt() = saved;
        DBerrno = rc;
    }
    int take() {
        typename F::Pkt *x = F::pkt();
        if (!x->ph.m.auto_locks || x->ph.ls) return 0;
        if (_DBClipLock<F>(0) != 0) return DBerrno;
        x_ = x;
        return 0;
    }

private:
    typename F::Pkt *x_ = nullptr;
};

// The end of every add and delete: no current key, the cache of a shared
// write-through index emptied.
template <class F>
int _DBClipChanged(int rc) {
    typename F::Pkt *x = F::pkt();
    x->tl = -1;
    x->ck.r = 0;
    _DBClipForget<F>();
    return _DBStatus(rc);
}

// What an add or a delete does first: resolve, check, take the write lock
// when the index locks itself, reread the header. Non-zero: the status to
// return, the change already given up.
template <class F>
int _DBClipChangeBegin(int handle, const char *key, DBClipAutoLock<F> &lock) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!key) return kClipSite.fail(DBE_NULLPARAM, __LINE__);
    if (F::pkt()->ph.m.read_only) return _DBClipChanged<F>(kClipSite.fail(DBE_READONLY, __LINE__));
    if (lock.take() != 0 || _DBClipRefresh<F>() != 0) return _DBClipChanged<F>(DBerrno);
    return 0;
}

// ---- Positions ---------------------------------------------------------------

// A public positioning call's epilogue: a shared index that is about to
// forget its pages keeps its place by key and record.
template <class F>
int _DBClipSettle(int rc, const char *key, int32_t recno) {
    typename F::Pkt *x = F::pkt();
    if (x->ck.k) {
        if (rc >= 0 && x->tl >= 0 && key) {
            std::memcpy(x->ck.k, key, x->h.k);
            x->ck.k[x->h.k] = '\0';
            x->ck.r = recno;
        } else if (rc != DBW_NOMOREKEYS) {
            x->ck.r = 0;
        }
    }
    _DBClipForget<F>();
    return _DBStatus(rc);
}

// The saved place found again (into DBkeybfr2): KEYNOTFOUND leaves the path
// on the entry before a key another process deleted.
template <class F>
int _DBClipReposition() {
    typename F::Pkt *x = F::pkt();
    if (x->ck.r == 0) {
        x->tl = -1;
        return _DBStatus(DBW_NOMOREKEYS);
    }
    std::memcpy(DBkeybfr2, x->ck.k, static_cast<size_t>(x->h.k) + 1);
    int32_t rec = x->ck.r;
    return F::refind(DBkeybfr2, &rec);
}

// The shape every public move shares: resolve, check, refresh, move, settle.
template <class F>
int _DBClipMove(int handle, char *key, int32_t *recno, int (*move)(char *, int32_t *)) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!key || !recno) return kClipSite.fail(DBE_NULLPARAM, __LINE__);
    if (_DBClipRefresh<F>() != 0) return DBerrno;
    const int rc = move(key, recno);
    return _DBClipSettle<F>(rc, key, *recno);
}

// First (last = false) or last entry.
template <class F>
int _DBClipGoEnd(char *key, int32_t *recno, bool last) {
    typename F::Pkt *x = F::pkt();
    typename F::Tree tr;
    const int rc = _DBPathEnd(tr, x->t, x->td, x->tl, F::root(), last);
    if (rc < 0) return kClipSite.fail(rc, __LINE__);
    if (rc != 0) return _DBStatus(rc);
    return F::current(key, recno);
}

// One step from the current position; a shared index that forgot its path
// finds its place again from the saved key first.
template <class F>
int _DBClipStep(char *key, int32_t *recno, bool forward) {
    typename F::Pkt *x = F::pkt();
    if (x->ck.k) {
        const int rc = _DBClipReposition<F>();
        if (rc < 0 || rc == DBW_EMPTY) return rc;
        const bool noPlace = rc == DBW_NOMOREKEYS && x->tl < 0;
        if (noPlace && F::kNoPlaceNotFound) return _DBStatus(DBW_KEYNOTFOUND);
        // The saved entry is gone (another process deleted it): the path is
        // on the entry before it, which is already the previous one; or,
        // below every key, on the first, which is already the next one.
        if ((rc == DBW_KEYNOTFOUND && !forward) || (rc == DBW_NOMOREKEYS && forward && !noPlace))
            return F::current(key, recno);
    }
    typename F::Tree tr;
    const int rc = _DBPathStep(tr, x->t, x->td, x->tl, F::root(), forward);
    if (rc < 0) return kClipSite.fail(rc, __LINE__);
    if (rc == DBW_EMPTY) return _DBStatus(rc);
    if (F::current(key, recno) != 0) return DBerrno;
    return _DBStatus(rc);
}

template <class F>
int _DBClipCurrent(char *key, int32_t *recno) {
    typename F::Pkt *x = F::pkt();
    if (x->ck.k) {
        const int rc = _DBClipReposition<F>();
        if (rc < 0 || rc == DBW_EMPTY || x->tl < 0) return rc;
        const int got = F::current(key, recno);
        return got != 0 ? got : _DBStatus(rc);
    }
    if (x->tl < 0) return _DBStatus(DBW_NOMOREKEYS);
    return F::current(key, recno);
}

// The public moves.
template <class F>
int _DBClipGoFirst(int handle, char *key, int32_t *recno) {
    return _DBClipMove<F>(handle, key, recno, [](char *k, int32_t *r) { return _DBClipGoEnd<F>(k, r, false); });
}
template <class F>
int _DBClipGoLast(int handle, char *key, int32_t *recno) {
    return _DBClipMove<F>(handle, key, recno, [](char *k, int32_t *r) { return _DBClipGoEnd<F>(k, r, true); });
}
template <class F>
int _DBClipGoNext(int handle, char *key, int32_t *recno) {
    return _DBClipMove<F>(handle, key, recno, [](char *k, int32_t *r) { return _DBClipStep<F>(k, r, true); });
}
template <class F>
int _DBClipGoPrevious(int handle, char *key, int32_t *recno) {
    return _DBClipMove<F>(handle, key, recno, [](char *k, int32_t *r) { return _DBClipStep<F>(k, r, false); });
}
template <class F>
int _DBClipGetCurrent(int handle, char *key, int32_t *recno) {
    const int rc = _DBClipMove<F>(handle, key, recno, _DBClipCurrent<F>);
    return rc == DBW_NOMOREKEYS ? _DBStatus(DBW_KEYNOTFOUND) : rc;
}

// Where a key lies as a whole percentage: each level of the path weighs its
// position by the share of the tree one of its child positions covers.
template <class F>
int _DBClipKeyPercent(int handle, int *percent, char *key, int32_t recno) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!percent || !key) return kClipSite.fail(DBE_NULLPARAM, __LINE__);
    if (_DBClipRefresh<F>() != 0) return DBerrno;
    typename F::Pkt *x = F::pkt();
    char k[sizeof DBkeybfr1];  // room for any family's longest key
    const size_t n = F::keyBytes(key);
    std::memcpy(k, key, n);
    k[n] = '\0';
    int32_t rec = recno;
    int rc = F::search(k, &rec, recno != 0 ? 2 : 1);
    *percent = 0;
    if (rc >= 0 && x->tl >= 0) {
        typename F::Tree tr;
        double at = 0.0, top = 0.0;
        const int frc = _DBPathFraction(tr, x->t, x->tl, 100.0, &at, &top);
        if (frc != 0) rc = kClipSite.fail(frc, __LINE__);
        else *percent = static_cast<int>(at + 0.49);
    }
    return _DBClipSettle<F>(rc, k, rec);
}

template <class F>
int _DBClipKeyAtPercent(int handle, int percent, char *key, int32_t *recno) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!key || !recno) return kClipSite.fail(DBE_NULLPARAM, __LINE__);
    if (_DBClipRefresh<F>() != 0) return DBerrno;
    typename F::Pkt *x = F::pkt();
    typename F::Tree tr;
    int rc = _DBPathAtPercent(tr, x->t, x->td, x->tl, F::root(), percent);
    if (rc < 0) rc = kClipSite.fail(rc, __LINE__);
    else if (rc == 0) rc = F::current(key, recno);
    return _DBClipSettle<F>(rc, key, *recno);
}

// ---- Open and close ----------------------------------------------------------

// Everything an open made, in the reverse order; the slot goes last.
template <class F>
void _DBClipRelease(int handle, typename F::Pkt *x) {
    if (x->ph.dh >= 0) DBosCloseFile(x->ph.dh);
    x->ph.dh = -1;
    F::releaseOwn(x);
    if (x->ck.k) DBFreeMemory(x->ck.k, kClipSite.id, __LINE__);
    if (x->t) DBFreeMemory(x->t, kClipSite.id, __LINE__);
    _DBPageCacheFree(x->pc);
    _DBPageMapClose(x->map);
    _DBReleaseFilePacket(handle);
}

// What every open makes once the family has read and checked its header:
// the saved key of an index that forgets its pages between calls
// (savePlace), a descent path of `depth` levels, the page cache and, alone
// with the file, a view of it, so that pages are copied from memory rather
// than read one system call at a time.
template <class F>
int _DBClipOpenRest(typename F::Pkt *x, bool savePlace, int depth) {
    if (savePlace) {
        void *k = nullptr;
        if (DBAllocateMemoryLog(&k, static_cast<size_t>(x->h.k) + 1, kClipSite.id, __LINE__) != 0) return DBerrno;
        std::memset(k, 0, static_cast<size_t>(x->h.k) + 1);
        x->ck.k = static_cast<char *>(k);
    }
    x->td = static_cast<int16_t>(depth);
    void *t = nullptr;
    if (DBAllocateMemoryLog(&t, sizeof(DBTREE) * static_cast<size_t>(x->td), kClipSite.id, __LINE__) != 0)
        return DBerrno;
    x->t = static_cast<DBTREE *>(t);
    x->tl = -1;
    if (_DBPageCacheInit(x->pc, 100, x->ph.m.always_flush ? 3 : 100, F::kPage, 3) != 0) return DBerrno;
    if (!x->ph.m.shared) _DBPageMapOpen(x->map, x->ph.dh, x->fs);
    return 0;
}

// The public open: a packet, the family's open (file, header, checks, then
// _DBClipOpenRest), and on failure everything undone. A file whose length
// is not a whole number of pages opens with a warning.
template <class F>
int _DBClipOpenCall(short *handle, char *filename, int mode, int (*open)(typename F::Pkt *, char *, int)) {
    if (!handle || !filename) return kClipSite.fail(DBE_NULLPARAM, __LINE__);
    *handle = -1;
    if (std::strlen(filename) >= sizeof(DBPKTHDR::n)) return kClipSite.fail(DBE_BADFILENAME, __LINE__);
    int h = -1;
    void *p = nullptr;
    if (_DBAllocNewFilePacket(&h, F::kType, &p) != 0) return DBerrno;
    DBclose[F::kType] = F::close;
    auto *x = static_cast<typename F::Pkt *>(p);
    DBerrno = 0;
    if (open(x, filename, mode) != 0) {
        const int rc = DBerrno;
        _DBClipRelease<F>(h, x);
        return _DBStatus(rc);
    }
    *handle = static_cast<short>(h);
    return _DBStatus(x->fs % F::kPage != 0 ? DBW_BADFILELEN : 0);
}

// Close: what is still cached goes to the file, the lock is given back.
template <class F>
int _DBClipCloseCall(int handle) {
    if (F::resolve(handle) != 0) return DBerrno;
    typename F::Pkt *x = F::pkt();
    if (!x->ph.m.read_only && _DBClipFlush<F>() != 0) return DBerrno;
    if (x->ph.ls && _DBClipUnlock<F>() != 0) return DBerrno;
    if (DBosCloseFile(x->ph.dh) != 0) return kClipSite.fail(DBerrno, __LINE__);
    x->ph.dh = -1;
    _DBClipRelease<F>(handle, x);
    F::pkt() = nullptr;
    return _DBStatus(0);
}

// Resolve a handle into the family's packet: -213 unless the slot holds an
// open index of the family.
template <class F>
int _DBClipResolve(int handle) {
    auto *x = static_cast<typename F::Pkt *>(_DBPacketOf(handle, F::kType));
    if (!x) return kClipSite.fail(DBE_BADHANDLE, __LINE__);
    F::pkt() = x;
    return _DBStatus(0);
}

// ---- Searches ----------------------------------------------------------------

// One level down the path from page, as the searches descend.
template <class F>
int _DBClipPathPush(int32_t page, char **pg, int at_root) {
    typename F::Pkt *x = F::pkt();
    typename F::Tree tr;
    const int rc = _DBPathPush(tr, x->t, x->td, x->tl, page, pg, at_root);
    return rc < 0 ? kClipSite.fail(rc, __LINE__) : rc;
}

// One step of the path from where it stands, as the searches walk.
template <class F>
int _DBClipPathStep(bool forward) {
    typename F::Pkt *x = F::pkt();
    typename F::Tree tr;
    const int rc = _DBPathStep(tr, x->t, x->td, x->tl, F::root(), forward);
    return rc < 0 ? kClipSite.fail(rc, __LINE__) : rc;
}

// The public search: the family's search for the mode's base (exact, prefix
// or with the record number), then the Clipper positioning modes 11-15 on
// its result.
template <class F>
int _DBClipKeySearchCall(int handle, char *key, int32_t *recno, int mode) {
    if (F::resolve(handle) != 0) return DBerrno;
    if (!key || !recno) return kClipSite.fail(DBE_NULLPARAM, __LINE__);
    if (_DBClipRefresh<F>() != 0) return DBerrno;
    const int inner = mode == 2 ? 2 : (mode >= 11 && mode <= 15) ? 1 : mode;
    int rc = F::search(key, recno, inner);
    if (rc < 0 || rc == DBW_EMPTY) return _DBClipSettle<F>(rc, key, *recno);
    auto next = [&](bool forward) {
        const int s = _DBClipPathStep<F>(forward);
        if (s >= 0 && F::current(key, recno) != 0) return DBerrno;
        return s;
    };
    rc = _DBSearchModes(mode, rc, key, F::pkt()->h.k, F::walkLimit(), next, F::same);
    if (rc < 0) rc = kClipSite.fail(rc, __LINE__);
    return _DBClipSettle<F>(rc, key, *recno);
}

// ---- Build -------------------------------------------------------------------

// A new index over every record of table: created empty, opened, filled by
// the family's bulk build, closed; the toolkit's _DBBuildNewIndex removes a
// file it could not finish.
template <class F>
int _DBClipBuildCall(int table, char *filename, int keytype, char *expr, int keylen, int decimals,
                     int (*create)(char *, int, char *, int, int), int (*open)(short *, char *, int),
                     int (*build)(int32_t, char *, int16_t)) {
    const int rc = _DBBuildNewIndex(
        table, filename, [&] { return create(filename, keytype, expr, keylen, decimals); },
        [&](int *h) {
            short s = -1;
            const int r = open(&s, filename, 0);
            *h = s;
            return r;
        },
        [&](int h) { return build(table, filename, static_cast<int16_t>(h)); }, F::close);
    return rc != 0 ? kClipSite.fail(rc, __LINE__) : 0;
}
