// btcache.cpp - the index page cache: a directory of buffers kept in
// most-recently-used order, read on a miss into the least recently used
// buffer, written back when dirty. Every index family reads and writes its
// pages through here, each with its own page size and write policy.
#include "btree.h"

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/btcache"};

// The index of page in the directory's used part, or -1.
int _find(const DBPAGECACHE &c, int32_t page) {
    for (int i = 0; i < c.pl; i++)
        if (c.cp[i].page_number == page) return i;
    return -1;
}

// Move entry i to the front, shifting the ones before it down.
void _front(DBPAGECACHE &c, int i) {
    if (i <= 0) return;
    const DBIPC e = c.cp[i];
    std::memmove(&c.cp[1], &c.cp[0], static_cast<size_t>(i) * sizeof(DBIPC));
    c.cp[0] = e;
}

// The entry to load a page into: a buffer not yet in use, else the least
// recently used one that is not pinned (written back first when dirty).
int _victim(DBPAGECACHE &c, const DBPAGEFILE &f, int *at) {
    int v = -1;
    if (c.pl < c.np) {
        v = c.pl;
    } else {
        for (int i = c.np - 1; i >= 0; i--)
            if (!(c.cp[i].s & DBPG_PINNED)) {
                v = i;
                break;
            }
    }
    // Every buffer pinned: the operation holds more pages than the cache has.
    if (v < 0) return here.fail(DBE_NOPAGES, __LINE__);
    DBIPC &e = c.cp[v];
    if ((e.s & DBPG_USED) && (e.s & DBPG_DIRTY)) {
        if (_DBosWriteAt(f.fd, e.page_number, e.index_page_cache, f.size, f.flush) != 0)
            return here.fail(DBerrno, __LINE__);
        e.s = static_cast<char>(e.s & ~DBPG_DIRTY);
    }
    *at = v;
    return 0;
}

void _count(DBPAGECACHE &c, const DBPAGEFILE &f, DBIPC &e) {
    if (!(e.s & DBPG_USED)) {
        e.io = reinterpret_cast<int16_t *>(e.index_page_cache + f.ioofs);
        e.s = DBPG_USED;
        c.pl++;
    }
}

void _control(const DBIPC &e) {
    DBpc[0].pg = e.index_page_cache;
    DBpc[0].ps = e.s;
    DBpc[0].io = e.io;
    DBpc[0].pn = e.page_number;
}
}  // namespace

int _DBosReadAt(int fd, int32_t off, void *buf, int len) {
    const ssize_t n = pread(fd, buf, static_cast<size_t>(len), static_cast<off_t>(off));
    if (n == len) return 0;
    if (n < 0 && errno == EBADF) return here.fail(DBE_BADHANDLE, __LINE__);
    return here.fail(DBE_READ, __LINE__);
}

int _DBosWriteAt(int fd, int32_t off, const void *buf, int len, int16_t flush) {
    const ssize_t n = pwrite(fd, buf, static_cast<size_t>(len), static_cast<off_t>(off));
    if (n < 0) {
        const int e = errno;
        if (e == EBADF) return here.fail(DBE_BADHANDLE, __LINE__);
        if (e == EIO || e == EFBIG || e == ENOSPC) return here.fail(DBE_WRITE, __LINE__);
        return here.fail(_DBSysErr(e), __LINE__);
    }
    if (n != len) return here.fail(DBE_WRITE, __LINE__);
    // Writes reach the system at once (see DBosFlushFile): the flush flag
    // asks for nothing more.
    (void)flush;
    return 0;
}

void _DBPageMapOpen(DBPAGEMAP &m, int fd, int32_t len) {
    _DBPageMapClose(m);
    if (len <= 0) return;
    void *p = mmap(nullptr, static_cast<size_t>(len), PROT_READ, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) return;
    m.base = static_cast<char *>(p);
    m.len = len;
}

void _DBPageMapClose(DBPAGEMAP &m) {
    if (m.base) munmap(m.base, static_cast<size_t>(m.len));
    m = DBPAGEMAP{};
}

namespace {
// Read one page: from the file's view when it covers the page, else with a
// positioned read. A page only ever comes from the view when it lies wholly
// inside the file, so the view is never read past the file's end. A file
// that grew past its view gets a new one with room to grow, so that a run
// of appends does not remap at every page.
int _load(const DBPAGEFILE &f, int32_t page, char *buf) {
    DBPAGEMAP *m = f.map;
    const int64_t end = static_cast<int64_t>(page) + f.size;
    if (m && m->base && end > m->len && end <= f.limit) {
        const int64_t want = static_cast<int64_t>(f.limit) + f.limit / 2;
        _DBPageMapOpen(*m, f.fd, want > INT32_MAX ? INT32_MAX : static_cast<int32_t>(want));
    }
    if (m && m->base && end <= m->len && end <= f.limit) {
        std::memcpy(buf, m->base + page, static_cast<size_t>(f.size));
        return 0;
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
    if (c.np < least) {
        _DBPageCacheFree(c);
        return here.fail(DBE_NOMEMORY, __LINE__);
    }
    DBerrno = 0;
    return 0;
}

void _DBPageCacheFree(DBPAGECACHE &c) {
    if (c.cp) {
        for (int i = 0; i < c.cs; i++)
            if (c.cp[i].index_page_cache) DBFreeMemory(c.cp[i].index_page_cache, here.id, __LINE__);
        DBFreeMemory(c.cp, here.id, __LINE__);
    }
    c = DBPAGECACHE{};
}

int _DBPageFetch(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, char **buf) {
    if (!_DBPageValid(f, page)) return here.fail(DBE_SEEK, __LINE__);
    if (c.pl > 0 && c.cp[0].page_number == page) {
        *buf = c.cp[0].index_page_cache;
        _control(c.cp[0]);
        return 0;
    }
    int i = _find(c, page);
    if (i < 0) {
        if (_victim(c, f, &i) != 0) return DBerrno;
        DBIPC &e = c.cp[i];
        if (_load(f, page, e.index_page_cache) != 0) {
            // The buffer's old page is gone either way: leave it unused.
            if (e.s & DBPG_USED) {
                e.page_number = 0;
                e.s = DBPG_USED;
            }
            return here.fail(DBerrno, __LINE__);
        }
        _count(c, f, e);
        e.page_number = page;
        e.s = static_cast<char>(DBPG_USED);
        if (f.sound && !f.sound(e.index_page_cache, f.ctx)) {
            // A damaged page never stays cached: the next look reads the file
            // again rather than trusting what was refused.
            e.page_number = 0;
            return here.fail(DBE_CORRUPT, __LINE__);
        }
    }
    _front(c, i);
    *buf = c.cp[0].index_page_cache;
    _control(c.cp[0]);
    return 0;
}

int _DBPageFresh(DBPAGECACHE &c, const DBPAGEFILE &f, int32_t page, char **buf) {
    if (!_DBPageValid(f, page)) return here.fail(DBE_SEEK, __LINE__);
    int i = _find(c, page);
    if (i < 0 && _victim(c, f, &i) != 0) return DBerrno;
    DBIPC &e = c.cp[i];
    _count(c, f, e);
    std::memset(e.index_page_cache, 0, static_cast<size_t>(f.size));
    e.page_number = page;
    e.s = static_cast<char>((e.s & DBPG_PINNED) | DBPG_USED | DBPG_DIRTY);
    _front(c, i);
    *buf = c.cp[0].index_page_cache;
    _control(c.cp[0]);
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
    // Dropped: the entry moves to the first unused position, so a stale
    // copy is never served.
    const DBIPC gone = {0, e.io, e.index_page_cache, 0};
    std::memmove(&c.cp[i], &c.cp[i + 1], static_cast<size_t>(c.pl - 1 - i) * sizeof(DBIPC));
    c.pl--;
    c.cp[c.pl] = gone;
    return 0;
}

int _DBPageFlushAll(DBPAGECACHE &c, const DBPAGEFILE &f) {
    for (int i = 0; i < c.pl; i++) {
        DBIPC &e = c.cp[i];
        if (!(e.s & DBPG_DIRTY)) continue;
        if (_DBosWriteAt(f.fd, e.page_number, e.index_page_cache, f.size, f.flush) != 0)
            return here.fail(DBerrno, __LINE__);
        e.s = static_cast<char>(e.s & ~DBPG_DIRTY);
    }
    return 0;
}

void _DBPageForget(DBPAGECACHE &c) {
    for (int i = 0; i < c.np; i++) {
        c.cp[i].page_number = 0;
        c.cp[i].s = 0;
    }
    c.pl = 0;
}

void _DBPageDrop(DBPAGECACHE &c, int32_t page) {
    const int i = _find(c, page);
    if (i < 0) return;
    const DBIPC gone = {0, c.cp[i].io, c.cp[i].index_page_cache, 0};
    std::memmove(&c.cp[i], &c.cp[i + 1], static_cast<size_t>(c.pl - 1 - i) * sizeof(DBIPC));
    c.pl--;
    c.cp[c.pl] = gone;
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
    if (want < c.np) {
        if (_DBPageFlushAll(c, f) != 0) return DBerrno;
        // The buffers that go are the last ones of the directory, used or
        // not; whatever they held is clean now and simply forgotten.
        for (int i = c.np - 1; i >= want; i--) {
            DBIPC &e = c.cp[i];
            if (e.s & DBPG_USED) c.pl--;
            DBFreeMemory(e.index_page_cache, here.id, __LINE__);
            e = DBIPC{};
        }
        c.np = static_cast<int16_t>(want);
        if (c.pl > c.np) c.pl = c.np;
        return _DBStatus(0);
    }
    if (want > c.cs) {
        void *dir = nullptr;
        if (DBAllocateMemoryLog(&dir, static_cast<size_t>(want) * sizeof(DBIPC), here.id, __LINE__) != 0) {
            *size = c.np;
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
            *size = c.np;
            return _DBStatus(DBW_PARTIALALLOC);
        }
        std::memset(b, 0, static_cast<size_t>(f.size));
        c.cp[c.np] = DBIPC{0, nullptr, static_cast<char *>(b), 0};
        c.np++;
        *size = c.np;
    }
    return _DBStatus(0);
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
