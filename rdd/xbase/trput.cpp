// trput.cpp - writing DBT texts: the dBASE III layout (texts ended by end
// marks, rewritten in place while they fit, else appended) and the dBASE IV
// layout (length headers, and a chain of free runs that rewrites reuse).
//
// The dBASE IV free chain
// -----------------------
// The header's next-free block `ff` always stays the end of the used part
// of the file, as every other program that appends to a DBT expects: a
// program that knows nothing of the chain appends at `ff` and can never
// land on a text of ours. The free runs are chained apart from it:
//
// - The head is a DBDBTFHDR at byte 24 of block 0 (in the zeros after the
//   24-byte header): `adrs` is the first free run's block, 0 for none;
//   `len` is 0.
// - Each free run begins with a DBDBTFHDR: `adrs` is the next run's first
//   block (0 ends the chain), `len` this run's length in blocks.
// - Runs lie between the first data block and the end of the file, in
//   ascending order, and never overlap or touch: freeing joins a run with
//   the run before it and the run after it when they meet.
// - A text takes the first run, in chain order, that holds it (first fit),
//   from the run's front; what is left of the run stays in the chain in the
//   same place. With no run large enough it is appended at the end.
// - A text rewritten in place that needs fewer blocks gives its tail back;
//   one that no longer fits gets new space first and gives its old blocks
//   back only after the new text is written, so the old text is never
//   overwritten before the new one is safe.
// - Space is claimed on disk (chain links and `ff` written) before the text
//   is written into it; a failure in between leaks blocks and loses
//   nothing.
// - The chain is checked as it is walked (order, bounds, lengths). A link
//   that breaks a rule ends the walk there: the runs behind it are lost to
//   reuse, never handed out twice.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/trput"};

constexpr uint8_t kEnd = 0x1A;     // dBASE III end mark (written twice)
constexpr uint8_t kIVEnd = 0x1F;   // after a dBASE IV text, outside its length
constexpr int32_t kHeadAt = 24;    // the free-chain head in block 0

int64_t _ceil_div(int64_t a, int64_t b) { return (a + b - 1) / b; }

// Write n bytes at byte address at of DBxbm, and keep fs up to date.
int _put(int64_t at, const void *data, int32_t n) {
    DBDBTPKT *m = DBxbm;
    if (at + n > INT32_MAX) return here.fail(DBE_WRITE, __LINE__);
    if (DBosSetFilePosition(m->ph.dh, static_cast<int32_t>(at)) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosWriteData(m->ph.dh, const_cast<void *>(data), n, m->ph.flush_disk) != 0)
        return here.fail(DBerrno, __LINE__);
    if (at + n > m->fs) m->fs = static_cast<int32_t>(at + n);
    return 0;
}

int _put_ff(int32_t ff) {
    uint8_t raw[4];
    _DBStoreLE32(raw, static_cast<uint32_t>(ff));
    if (_put(0, raw, 4) != 0) return DBerrno;
    DBxbm->h.ff = ff;
    return 0;
}

// The first block past the end of everything in use: blocks from here on
// are free whatever the chain says.
int32_t _end_block() {
    const DBDBTPKT *m = DBxbm;
    // A new dBASE III file is block 0 and one end mark: that lone byte past
    // ff is no text and does not push the end out.
    int64_t fs = m->fs;
    if (fs == static_cast<int64_t>(m->h.ff) * m->bs + 1) fs--;
    int64_t e = _ceil_div(fs, m->bs);
    if (m->h.ff > e) e = m->h.ff;
    const int64_t first = _ceil_div(512, m->bs);
    return static_cast<int32_t>(e > first ? e : first);
}

// A text written in place at a block that held no text of ours (a caller's
// stray block number, a file with data past ff) may reach past ff: ff then
// moves past it, so that a program appending at ff cannot overwrite it.
int _cover(int32_t at, int32_t blocks) {
    if (static_cast<int64_t>(at) + blocks <= DBxbm->h.ff) return 0;
    return _put_ff(at + blocks);
}

// ---- the dBASE IV chain, held in memory while one write works on it ----
struct Chain {
    DBOwned<DBDBTFHDR> r;  // runs in ascending order: adrs, len
    int32_t n = 0;
    int32_t cap = 0;
};

int _chain_push(Chain &c, int32_t adrs, int32_t len) {
    if (c.n == c.cap) {
        const int32_t cap = c.cap ? c.cap * 2 : 16;
        void *p = c.r.release();
        if (DBReAllocateMemory(&p, sizeof(DBDBTFHDR) * static_cast<size_t>(cap), here.id, __LINE__) != 0) {
            c.r.reset(static_cast<DBDBTFHDR *>(p));
            return DBerrno;
        }
        c.r.reset(static_cast<DBDBTFHDR *>(p));
        c.cap = cap;
    }
    c.r[static_cast<size_t>(c.n++)] = DBDBTFHDR{adrs, len};
    return 0;
}

int _chain_load(Chain &c) {
    DBDBTPKT *m = DBxbm;
    const int32_t first = static_cast<int32_t>(_ceil_div(512, m->bs));
    const int32_t end = _end_block();
    uint8_t raw[8];
    if (DBosSetFilePosition(m->ph.dh, kHeadAt) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosReadData(m->ph.dh, raw, 8) != 0) return DBerrno;
    int32_t next = static_cast<int32_t>(_DBLoadLE32(raw));
    int32_t floor = first;
    // Each accepted run starts past the one before, so the walk ends.
    while (next != 0) {
        if (next < floor || next >= end) break;
        const int64_t at = static_cast<int64_t>(next) * m->bs;
        if (at + 8 > m->fs) break;
        if (DBosSetFilePosition(m->ph.dh, static_cast<int32_t>(at)) != 0) return here.fail(DBerrno, __LINE__);
        if (DBosReadData(m->ph.dh, raw, 8) != 0) return DBerrno;
        const int32_t len = static_cast<int32_t>(_DBLoadLE32(raw + 4));
        if (len < 1 || static_cast<int64_t>(next) + len > end) break;
        if (_chain_push(c, next, len) != 0) return DBerrno;
        floor = next + len;
        next = static_cast<int32_t>(_DBLoadLE32(raw));
    }
    return 0;
}

// Write the link that leads to run i (the head for i = 0, else run i-1's
// header), as the chain now stands.
int _chain_write_link(const Chain &c, int32_t i) {
    DBDBTPKT *m = DBxbm;
    uint8_t raw[8];
    const int32_t target = i < c.n ? c.r[static_cast<size_t>(i)].adrs : 0;
    _DBStoreLE32(raw, static_cast<uint32_t>(target));
    if (i == 0) {
        _DBStoreLE32(raw + 4, 0);
        return _put(kHeadAt, raw, 8);
    }
    const DBDBTFHDR &p = c.r[static_cast<size_t>(i - 1)];
    _DBStoreLE32(raw + 4, static_cast<uint32_t>(p.len));
    return _put(static_cast<int64_t>(p.adrs) * m->bs, raw, 8);
}

// Write run i's own header.
int _chain_write_run(const Chain &c, int32_t i) {
    const DBDBTFHDR &r = c.r[static_cast<size_t>(i)];
    uint8_t raw[8];
    _DBStoreLE32(raw, static_cast<uint32_t>(i + 1 < c.n ? c.r[static_cast<size_t>(i + 1)].adrs : 0));
    _DBStoreLE32(raw + 4, static_cast<uint32_t>(r.len));
    return _put(static_cast<int64_t>(r.adrs) * DBxbm->bs, raw, 8);
}

void _chain_erase(Chain &c, int32_t i) {
    for (int32_t j = i + 1; j < c.n; j++) c.r[static_cast<size_t>(j - 1)] = c.r[static_cast<size_t>(j)];
    c.n--;
}

// Take `need` blocks: from the first run that holds them, else at the end.
int _chain_take(int32_t need, int32_t *block) {
    Chain c;
    if (_chain_load(c) != 0) return DBerrno;
    for (int32_t i = 0; i < c.n; i++) {
        DBDBTFHDR &r = c.r[static_cast<size_t>(i)];
        if (r.len < need) continue;
        *block = r.adrs;
        if (r.len == need) {
            _chain_erase(c, i);
            return _chain_write_link(c, i);
        }
        r.adrs += need;
        r.len -= need;
        if (_chain_write_run(c, i) != 0) return DBerrno;
        return _chain_write_link(c, i);
    }
    const int32_t at = _end_block();
    if (static_cast<int64_t>(at) + need > INT32_MAX / DBxbm->bs) return here.fail(DBE_WRITE, __LINE__);
    *block = at;
    return _put_ff(at + need);
}

// Give blocks [adrs, adrs + len) back to the chain, joined with the runs
// they meet.
int _chain_give(int32_t adrs, int32_t len) {
    if (len < 1) return 0;
    Chain c;
    if (_chain_load(c) != 0) return DBerrno;
    int32_t i = 0;
    while (i < c.n && c.r[static_cast<size_t>(i)].adrs < adrs) i++;
    const bool joins_prev = i > 0 && c.r[static_cast<size_t>(i - 1)].adrs + c.r[static_cast<size_t>(i - 1)].len == adrs;
    const bool joins_next = i < c.n && adrs + len == c.r[static_cast<size_t>(i)].adrs;
    // A run that overlaps what is being freed means the chain and the texts
    // disagree: leave the blocks unused rather than hand them out twice.
    if (i > 0 && c.r[static_cast<size_t>(i - 1)].adrs + c.r[static_cast<size_t>(i - 1)].len > adrs) return 0;
    if (i < c.n && adrs + len > c.r[static_cast<size_t>(i)].adrs) return 0;
    if (joins_prev && joins_next) {
        c.r[static_cast<size_t>(i - 1)].len += len + c.r[static_cast<size_t>(i)].len;
        _chain_erase(c, i);
        return _chain_write_run(c, i - 1);
    }
    if (joins_prev) {
        c.r[static_cast<size_t>(i - 1)].len += len;
        return _chain_write_run(c, i - 1);
    }
    if (joins_next) {
        c.r[static_cast<size_t>(i)].adrs = adrs;
        c.r[static_cast<size_t>(i)].len += len;
    } else {
        if (_chain_push(c, 0, 0) != 0) return DBerrno;
        for (int32_t j = c.n - 1; j > i; j--) c.r[static_cast<size_t>(j)] = c.r[static_cast<size_t>(j - 1)];
        c.r[static_cast<size_t>(i)] = DBDBTFHDR{adrs, len};
    }
    if (_chain_write_run(c, i) != 0) return DBerrno;
    return _chain_write_link(c, i);
}

// The blocks the dBASE IV text at `block` owns by its length, or 0 when its
// header cannot be trusted (then nothing is reused or freed).
int32_t _owned_iv(int32_t block) {
    DBDBTPKT *m = DBxbm;
    const int64_t at = static_cast<int64_t>(block) * m->bs;
    uint8_t raw[8];
    if (at + 8 > m->fs) return 0;
    const int saved = DBerrno;
    if (DBosSetFilePosition(m->ph.dh, static_cast<int32_t>(at)) != 0 || DBosReadData(m->ph.dh, raw, 8) != 0) {
        DBerrno = saved;
        return 0;
    }
    const int32_t total = static_cast<int32_t>(_DBLoadLE32(raw + 4));
    if (total < 8 || at + total > m->fs) return 0;
    return static_cast<int32_t>(_ceil_div(total, m->bs));
}

int _write_iv(int32_t *block, const char *data, int32_t len) {
    DBDBTPKT *m = DBxbm;
    const int32_t bs = m->bs;
    // The block header, the text and one 0x1F. The 0x1F lies outside the
    // stored length; it is there for readers that read `len` bytes after
    // the block header and cut the text at 0x1F.
    const int64_t bytes = static_cast<int64_t>(len) + 9;
    if (bytes > INT32_MAX) return here.fail(DBE_BADDATA, __LINE__);
    const int32_t need = static_cast<int32_t>(_ceil_div(bytes, bs));
    const int32_t old = *block;
    const int32_t owned = old > 0 ? _owned_iv(old) : 0;
    int32_t at = old;
    if (owned == 0 || need > owned) {
        if (_chain_take(need, &at) != 0) return DBerrno;
    }
    DBOwned<uint8_t> buf;
    if (buf.alloc(static_cast<size_t>(bytes), here.id, __LINE__) != 0) return DBerrno;
    uint8_t *b = buf.get();
    b[0] = 0xFF;
    b[1] = 0xFF;
    b[2] = 0x08;
    b[3] = 0x00;
    _DBStoreLE32(b + 4, static_cast<uint32_t>(len + 8));
    std::memcpy(b + 8, data, static_cast<size_t>(len));
    b[bytes - 1] = kIVEnd;
    if (_put(static_cast<int64_t>(at) * bs, b, static_cast<int32_t>(bytes)) != 0) return DBerrno;
    if (_cover(at, need) != 0) return DBerrno;
    if (at == old) {
        if (need < owned && _chain_give(old + need, owned - need) != 0) return DBerrno;
    } else {
        *block = at;
        if (owned > 0 && _chain_give(old, owned) != 0) return DBerrno;
    }
    return 0;
}

int _write_iii(int32_t *block, const char *data, int32_t len) {
    // A text holding the end mark would come back cut short.
    if (std::memchr(data, kEnd, static_cast<size_t>(len))) return here.fail(DBE_BADDATA, __LINE__);
    const int64_t bytes = static_cast<int64_t>(len) + 2;
    if (bytes > INT32_MAX) return here.fail(DBE_BADDATA, __LINE__);
    int32_t at = 0;
    if (*block > 0) {
        // The old text reaches to its first end mark; the blocks up to and
        // including that mark are its own. A text whose end cannot be found
        // is left alone and the new one appended.
        int32_t oldlen = 0;
        const int saved = DBerrno;
        if (_DBxbScanIII(*block * 512, nullptr, &oldlen) == 0) {
            if (bytes <= _ceil_div(static_cast<int64_t>(oldlen) + 1, 512) * 512) at = *block;
        } else {
            DBerrno = saved;
        }
    }
    if (at == 0) {
        at = _end_block();
        const int64_t ff = at + _ceil_div(bytes, 512);
        if (ff > INT32_MAX / 512) return here.fail(DBE_WRITE, __LINE__);
        if (_put_ff(static_cast<int32_t>(ff)) != 0) return DBerrno;
    }
    DBOwned<uint8_t> buf;
    if (buf.alloc(static_cast<size_t>(bytes), here.id, __LINE__) != 0) return DBerrno;
    std::memcpy(buf.get(), data, static_cast<size_t>(len));
    buf[static_cast<size_t>(len)] = kEnd;
    buf[static_cast<size_t>(len) + 1] = kEnd;
    if (_put(static_cast<int64_t>(at) * 512, buf.get(), static_cast<int32_t>(bytes)) != 0) return DBerrno;
    *block = at;
    return _cover(at, static_cast<int32_t>(_ceil_div(bytes, 512)));
}
}  // namespace

int _DBxbWriteText(int32_t *block, const char *data, int32_t len) {
    DBDBTPKT *m = DBxbm;
    // Work from the file as it is now (another process may have written).
    if (_DBxbGetMemoHeader(nullptr) != 0) return DBerrno;
    if (*block < 0 || static_cast<int64_t>(*block) * m->bs >= m->fs) return here.fail(DBE_SEEK, __LINE__);
    return _DBxbIsIV(m) ? _write_iv(block, data, len) : _write_iii(block, data, len);
}

extern "C" DBAPI int DBxbPutMemoRecord(int handle, int32_t *block, char *text, int option) {
    if (!block || !text) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    if (option != 0) return here.fail(DBE_BADCOMMAND, __LINE__);
    const size_t len = std::strlen(text);
    if (len == 0) return here.fail(DBE_BADDATA, __LINE__);
    if (len > INT32_MAX - 16) return here.fail(DBE_BADDATA, __LINE__);
    DBDBTPKT *m = DBxbm;
    if (m->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    bool taken = false;
    if (_DBMemoWriteLock(m->ph, DBMEMO_LOCKED, &taken, here, __LINE__) != 0) return DBerrno;
    DBerrno = 0;
    const int rc = _DBxbWriteText(block, text, static_cast<int32_t>(len));
    return _DBStatus(_DBMemoWriteUnlock(m->ph, taken, rc));
}
