// btcache.cpp - the index page cache: a directory of buffers kept in
// most-recently-used order, read on a miss into the least recently used
// buffer, written back when dirty. Every index family reads and writes its
// pages through here, each with its own page size and write policy.
#include "btree.h"
#include "os.h"

#include <errno.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/btcache"};

inline int32_t _slot(const DBPAGECACHE &c, int32_t page) {
    // Page numbers are multiples of the page size: mix the bits so that
    // neighbouring pages spread over the buckets.
    const uint32_t h = static_cast<uint32_t>(page) * 2654435761u;
    return static_cast<int32_t>((h >> 7) & static_cast<uint32_t>(c.nb - 1));
}

int _find(const DBPAGECACHE &c, int32_t page) {
    if (!c.bucket) return -1;
    for (int e = c.bucket[_slot(c, page)]; e >= 0; e = c.cp[e].hnext)
        if (c.cp[e].page_number == page && (c.cp[e].s & DBPG_USED)) return e;
    return -1;
}

void _hashAdd(DBPAGECACHE &c, int e) {
    const int32_t b = _slot(c, c.cp[e].page_number);
    c.cp[e].hnext = c.bucket[b];
    c.bucket[b] = static_cast<int16_t>(e);
}

void _hashDel(DBPAGECACHE &c, int e) {
    int16_t *at = &c.bucket[_slot(c, c.cp[e].page_number)];
    while (*at >= 0 && *at != e) at = &c.cp[*at].hnext;
    if (*at == e) *at = c.cp[e].hnext;
    c.cp[e].hnext = -1;
}

void _unlink(DBPAGECACHE &c, int e) {
    DBIPC &x = c.cp[e];
    if (x.prev >= 0) c.cp[x.prev].next = x.next;
    else c.head = x.next;
    if (x.next >= 0) c.cp[x.next].prev = x.prev;
    else c.tail = x.prev;
    x.prev = x.next = -1;
}

void _linkFront(DBPAGECACHE &c, int e) {
    DBIPC &x = c.cp[e];
    x.prev = -1;
    x.next = c.head;
    if (c.head >= 0) c.cp[c.head].prev = static_cast<int16_t>(e);
    c.head = static_cast<int16_t>(e);
    if (c.tail < 0) c.tail = static_cast<int16_t>(e);
}

// An entry that held a page holds none now: out of the hash and the order
// of use, onto the free list.
void _release(DBPAGECACHE &c, int e) {
    DBIPC &x = c.cp[e];
    if (x.s & DBPG_USED) {
        _hashDel(c, e);
        _unlink(c, e);
        c.pl--;
    }
    x.page_number = 0;
    x.s = 0;
    x.next = c.free;
    x.prev = -1;
    c.free = static_cast<int16_t>(e);
}

// Every buffer free, no page held.
void _reset(DBPAGECACHE &c) {
    c.head = c.tail = c.free = -1;
    c.pl = 0;
    for (int32_t b = 0; b < c.nb; b++) c.bucket[b] = -1;
    for (int i = c.np - 1; i >= 0; i--) {
        DBIPC &x = c.cp[i];
        x.page_number = 0;
        x.s = 0;
        x.hnext = -1;
        x.prev = -1;
        x.next = c.free;
        c.free = static_cast<int16_t>(i);
    }
}

int _buckets(DBPAGECACHE &c, int entries) {
    int32_t nb = 16;
    while (nb < 2 * entries) nb *= 2;
    void *b = nullptr;
    if (DBAllocateMemoryLog(&b, static_cast<size_t>(nb) * sizeof(int16_t), here.id, __LINE__) != 0) return DBerrno;
    if (c.bucket) DBFreeMemory(c.bucket, here.id, __LINE__);
    c.bucket = static_cast<int16_t *>(b);
    c.nb = nb;
    return 0;
}

// The entry to load a page into: a free one, else the one used longest ago
// that is not pinned (written back first when dirty). It comes back out of
// every list, its old page forgotten.
int _victim(DBPAGECACHE &c, const DBPAGEFILE &f, int *at) {
    int v = -1;
    if (c.free >= 0) {
        v = c.free;
        c.free = c.cp[v].next;
        c.cp[v].next = -1;
        *at = v;
        return 0;
    }
    for (int e = c.tail; e >= 0; e = c.cp[e].prev)
        if (!(c.cp[e].s & DBPG_PINNED)) {
            v = e;
            break;
        }
    // Every buffer pinned: the operation holds more pages than the cache has.
    if (v < 0) return here.fail(DBE_NOPAGES, __LINE__);
    DBIPC &e = c.cp[v];
    if ((e.s & DBPG_USED) && (e.s & DBPG_DIRTY)) {
        if (_DBosWriteAt(f.fd, e.page_number, e.index_page_cache, f.size, f.flush) != 0)
            return here.fail(DBerrno, __LINE__);
        e.s = static_cast<char>(e.s & ~DBPG_DIRTY);
    }
    _hashDel(c, v);
    _unlink(c, v);
    c.pl--;
    e.page_number = 0;
    e.s = 0;
    *at = v;
    return 0;
}

// Entry v (taken by _victim) now holds `page`.
void _hold(DBPAGECACHE &c, const DBPAGEFILE &f, int v, int32_t page, char s) {
    DBIPC &e = c.cp[v];
    e.page_number = page;
    e.io = reinterpret_cast<int16_t *>(e.index_page_cache + f.ioofs);
    e.s = static_cast<char>(s | DBPG_USED);
    c.pl++;
    _hashAdd(c, v);
    _linkFront(c, v);
}

// Back on the free list after a failed load.
void _giveBack(DBPAGECACHE &c, int v) {
    c.cp[v].page_number = 0;
    c.cp[v].s = 0;
    c.cp[v].next = c.free;
    c.free = static_cast<int16_t>(v);
}

void _control(const DBIPC &e) {
    DBpc[0].pg = e.index_page_cache;
    DBpc[0].ps = e.s;
    DBpc[0].io = e.io;
    DBpc[0].pn = e.page_number;
}
}  // namespace

namespace {
int32_t _fileLength(int fd) {
    struct stat st {};
    if (fstat(fd, &st) != 0 || st.st_size < 0) return 0;
    return st.st_size > INT32_MAX ? INT32_MAX : static_cast<int32_t>(st.st_size);
}
}  // namespace

void _DBPageMapOpen(DBPAGEMAP &m, int fd, int32_t len) {
    _DBPageMapClose(m);
    if (len <= 0) return;
    void *p = mmap(nullptr, static_cast<size_t>(len), PROT_READ, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) return;
    m.base = static_cast<char *>(p);
    m.len = len;
    m.valid = _fileLength(fd);
}

void _DBPageMapClose(DBPAGEMAP &m) {
    if (m.base) munmap(m.base, static_cast<size_t>(m.len));
    m = DBPAGEMAP{};
}

namespace {
// Read one page: from the file's view when the page lies wholly inside the
// file as last measured (it is measured again before a page past that is
// given up on), else with a positioned read. A file that grew past its view
// gets a new one with room to grow, so that a run of appends does not remap
// at every page.
int _load(const DBPAGEFILE &f, int32_t page, char *buf) {
    DBPAGEMAP *m = f.map;
    const int64_t end = static_cast<int64_t>(page) + f.size;
    if (m && m->base) {
        if (end > m->valid) m->valid = _fileLength(f.fd);
        if (end <= m->valid && end > m->len) {
            const int64_t want = static_cast<int64_t>(m->valid) + m->valid / 2;
            _DBPageMapOpen(*m, f.fd, want > INT32_MAX ? INT32_MAX : static_cast<int32_t>(want));
        }
        if (m->base && end <= m->valid && end <= m->len) {
            std::memcpy(buf, m->base + page, static_cast<size_t>(f.size));
            return 0;
        }
    }
    return _DBosReadAt(f.fd, page, buf, f.size);
}
}  // namespace

int _DBPageCacheInit(DBPAGECACHE &c, int entries, int buffers, int pagesize, int least) {
    c = DBPAGECACHE{};
    if (entries < buffers) entries = buffers;
    DBOwned<DBIPC> dir;
    if (dir.alloc(static_cast<size_t>(entries), here.id, __LINE__) != 0) return DBerrno;
    c.cp = dir.release();
    c.cs = static_cast<int16_t>(entries);
    for (int i = 0; i < buffers; i++) {
        void *b = nullptr;
        if (DBAllocateMemoryLog(&b, static_cast<size_t>(pagesize), here.id, __LINE__) != 0) break;
        std::memset(b, 0, static_cast<size_t>(pagesize));
        c.cp[i].index_page_cache = static_cast<char *>(b);
        c.np++;
    }
    if (c.np < least || _buckets(c, c.cs) != 0) {
        _DBPageCacheFree(c);
        return here.fail(DBE_NOMEMORY, __LINE__);
    }
    _reset(c);
    DBerrno = 0;
    return 0;
}

void _DBPageCacheFree(DBPAGECACHE &c) {
    if (c.cp) {
        for (int i = 0; i < c.cs; i++)
            if (c.cp[i].index_page_cache) DBFreeMemory(c.cp[i].index_page_cache, here.id, __LINE__);
        DBFreeMemory(c.cp, here.id, __LINE__);
    }
    if (c.bucket) DBFreeMemory(c.bucket, here.id, __LINE__);
    c = DBPAGECACHE{};
}

int _DBPageFetch(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, char **buf) {
    if (!_DBPageValid(f, page)) return here.fail(DBE_SEEK, __LINE__);
    if (c.head >= 0 && c.cp[c.head].page_number == page) {
        *buf = c.cp[c.head].index_page_cache;
        _control(c.cp[c.head]);
        return 0;
    }
    int i = _find(c, page);
    if (i >= 0) {
        _unlink(c, i);
        _linkFront(c, i);
    } else {
        if (_victim(c, f, &i) != 0) return DBerrno;
        DBIPC &e = c.cp[i];
        if (_load(f, page, e.index_page_cache) != 0) {
            _giveBack(c, i);
            return here.fail(DBerrno, __LINE__);
        }
        if (f.sound && !f.sound(e.index_page_cache, f.ctx)) {
            // A damaged page never stays cached: the next look reads the file
            // again rather than trusting what was refused.
            _giveBack(c, i);
            return here.fail(DBE_CORRUPT, __LINE__);
        }
        _hold(c, f, i, page, 0);
    }
    *buf = c.cp[i].index_page_cache;
    _control(c.cp[i]);
    return 0;
}

int _DBPageFresh(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, char **buf) {
    if (!_DBPageValid(f, page)) return here.fail(DBE_SEEK, __LINE__);
    int i = _find(c, page);
    char pinned = 0;
    if (i >= 0) {
        pinned = static_cast<char>(c.cp[i].s & DBPG_PINNED);
        _hashDel(c, i);
        _unlink(c, i);
        c.pl--;
    } else if (_victim(c, f, &i) != 0) {
        return DBerrno;
    }
    std::memset(c.cp[i].index_page_cache, 0, static_cast<size_t>(f.size));
    _hold(c, f, i, page, static_cast<char>(pinned | DBPG_DIRTY));
    *buf = c.cp[i].index_page_cache;
    _control(c.cp[i]);
    return 0;
}

int _DBPageStore(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, const char *data, DBPAGEWRITEMODE mode) {
    char *buf = nullptr;
    if (_DBPageFresh(c, f, page, &buf) != 0) return DBerrno;
    std::memcpy(buf, data, static_cast<size_t>(f.size));
    return _DBPageWrite(c, f, page, mode);
}

int _DBPageWrite(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, DBPAGEWRITEMODE mode) {
    if (!_DBPageValid(f, page)) return here.fail(DBE_SEEK, __LINE__);
    if (c.pl == 0) return here.fail(DBE_NOPAGES, __LINE__);
    const int i = _find(c, page);
    if (i < 0) return here.fail(DBE_PAGENOTLOADED, __LINE__);
    DBIPC &e = c.cp[i];
    if (mode == DBPW_DEFER) {
        e.s = static_cast<char>(e.s | DBPG_DIRTY);
        return 0;
    }
    if (_DBosWriteAt(f.fd, page, e.index_page_cache, f.size, f.flush) != 0) return here.fail(DBerrno, __LINE__);
    if (mode == DBPW_THROUGH) {
        e.s = static_cast<char>(e.s & ~DBPG_DIRTY);
        return 0;
    }
    // Dropped: the entry goes back to the free list, so a stale copy is
    // never served.
    _release(c, i);
    return 0;
}

int _DBPageFlushAll(DBPAGECACHE &c, const DBPAGEFILE &f) {
    for (int i = 0; i < c.np; i++) {
        DBIPC &e = c.cp[i];
        if (!(e.s & DBPG_USED) || !(e.s & DBPG_DIRTY)) continue;
        if (_DBosWriteAt(f.fd, e.page_number, e.index_page_cache, f.size, f.flush) != 0)
            return here.fail(DBerrno, __LINE__);
        e.s = static_cast<char>(e.s & ~DBPG_DIRTY);
    }
    return 0;
}

void _DBPageForget(DBPAGECACHE &c) {
    if (c.bucket) _reset(c);
}

void _DBPageDrop(DBPAGECACHE &c, int32_t page) {
    const int i = _find(c, page);
    if (i >= 0) _release(c, i);
}

void _DBPagePin(DBPAGECACHE &c, int32_t page, bool on) {
    const int i = _find(c, page);
    if (i < 0) return;
    c.cp[i].s = static_cast<char>(on ? (c.cp[i].s | DBPG_PINNED) : (c.cp[i].s & ~DBPG_PINNED));
}

int _DBPageResize(DBPAGECACHE &c, const DBPAGEFILE &f, int16_t *size) {
    const int want = *size;
    if (want <= 2) return here.fail(DBE_BADCOMMAND, __LINE__);
    if (want == c.np) return _DBStatus(0);
    // What the buffers hold goes to the file first; then every page is
    // forgotten (it is clean) and the buffers change in number.
    if (_DBPageFlushAll(c, f) != 0) return DBerrno;
    if (want < c.np) {
        for (int i = c.np - 1; i >= want; i--) {
            DBIPC &e = c.cp[i];
            DBFreeMemory(e.index_page_cache, here.id, __LINE__);
            e = DBIPC{};
        }
        c.np = static_cast<int16_t>(want);
        _reset(c);
        return _DBStatus(0);
    }
    int rc = 0;
    if (want > c.cs) {
        void *dir = nullptr;
        if (DBAllocateMemoryLog(&dir, static_cast<size_t>(want) * sizeof(DBIPC), here.id, __LINE__) != 0 ||
            _buckets(c, want) != 0) {
            if (dir) DBFreeMemory(dir, here.id, __LINE__);
            *size = c.np;
            _reset(c);
            return _DBStatus(DBW_PARTIALALLOC);
        }
        std::memset(dir, 0, static_cast<size_t>(want) * sizeof(DBIPC));
        std::memcpy(dir, c.cp, static_cast<size_t>(c.cs) * sizeof(DBIPC));
        DBFreeMemory(c.cp, here.id, __LINE__);
        c.cp = static_cast<DBIPC *>(dir);
        c.cs = static_cast<int16_t>(want);
    }
    while (c.np < want) {
        void *b = nullptr;
        if (DBAllocateMemoryLog(&b, static_cast<size_t>(f.size), here.id, __LINE__) != 0) {
            rc = DBW_PARTIALALLOC;
            break;
        }
        std::memset(b, 0, static_cast<size_t>(f.size));
        c.cp[c.np] = DBIPC{0, nullptr, static_cast<char *>(b), 0, -1, -1, -1};
        c.np++;
    }
    *size = c.np;
    _reset(c);
    return _DBStatus(rc);
}

// ---------------------------------------------------------------------------
// Checker helpers
// ---------------------------------------------------------------------------

int DBPageSet::open(int32_t pages) {
    if (pages < 1) pages = 1;
    n_ = pages;
    void *b = nullptr;
    if (DBAllocateMemoryLog(&b, static_cast<size_t>(pages + 7) / 8, here.id, __LINE__) != 0) return DBerrno;
    std::memset(b, 0, static_cast<size_t>(pages + 7) / 8);
    bits_ = static_cast<uint8_t *>(b);
    return 0;
}

int _DBCheckFail(DBTREECHECK &r, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(r.msg, sizeof r.msg, fmt, ap);
    va_end(ap);
    return DBE_CORRUPT;
}
