// wrput.cpp - writing FPT memos, whole or in pieces, in place or appended.
//
// Space is never reused except in place: a memo that no longer fits its
// blocks (or any memo written without the reuse option) is appended at the
// next free block and its old blocks are left for the pack to reclaim.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/wrput"};

constexpr int kBinary = 1;     // type 0 (picture or binary) instead of 1 (text)
constexpr int kPiecewise = 2;  // one piece of a memo written over several calls
constexpr int kReuse = 256;    // rewrite in place when the new memo fits

// Blocks that n data bytes and their 8-byte header take, at least one.
int32_t _blocks_for(int32_t n, int32_t bs) {
    const int64_t b = (static_cast<int64_t>(n) + 8 + bs - 1) / bs;
    return b < 1 ? 1 : static_cast<int32_t>(b);
}

// The write proper, with any lock already taken.
int _write_memo(int32_t *block, char *data, int32_t total, int32_t piece, int flags) {
    DBFPTPKT *m = DBfpm;
    const int32_t bs = m->h.bsa;
    bool first = !(m->pmode >= 2 && m->pcnt != 0 && (flags & kPiecewise) && *block == m->pcur);
    bool inplace = false;
    bool grow_ff = false;
    if (first) {
        if (m->ph.m.shared && _DBfpGetMemoHeader() != 0) return DBerrno;
        if (piece > total) return here.fail(DBE_BADDATA, __LINE__);
        m->pcnt = m->pba = m->pcur = m->pmode = 0;
        int32_t flen = 0;
        if (DBosFileLength(m->ph.dh, &flen) != 0) return DBerrno;
        if ((flags & kReuse) && *block > 0 && *block < m->h.ff) {
            // The space the old memo owns. A header that cannot be read or
            // whose length runs past the file is not trusted to say how far
            // the memo reaches: the new one is then appended instead.
            DBFPTRHDR rh{};
            const int saved = DBerrno;
            if (_DBfpReadBlockHeader(*block, &rh) == 0) {
                const int32_t blocks = _blocks_for(rh.len, bs);
                inplace = static_cast<int64_t>(total) + 8 <= static_cast<int64_t>(blocks) * bs;
                // An old memo that reaches past ff (a file with data beyond
                // it) keeps its place, and ff moves past it, so that the
                // next append cannot land on it.
                if (inplace && static_cast<int64_t>(*block) + blocks > m->h.ff) {
                    m->h.ff = *block + blocks;
                    grow_ff = true;
                }
            } else {
                DBerrno = saved;
            }
        }
        if (!inplace) {
            // Append at the next free block. A file longer than ff says
            // (someone's junk, or a damaged ff) is appended after its end,
            // so that nothing in it is overwritten.
            int64_t at = m->h.ff;
            const int64_t end = (static_cast<int64_t>(flen) + bs - 1) / bs;
            if (end > at) at = end;
            const int64_t next = at + _blocks_for(total, bs);
            if (next * bs > INT32_MAX) return here.fail(DBE_WRITE, __LINE__);
            if (static_cast<int64_t>(flen) < at * bs &&
                DBosSetFileSize(m->ph.dh, static_cast<int32_t>(at * bs)) != 0)
                return DBerrno;
            *block = static_cast<int32_t>(at);
            m->h.ff = static_cast<int32_t>(next);
        }
        m->pcnt = total;
        m->pcur = *block;
        m->pba = *block * bs;
    } else if (piece > m->pcnt) {
        return here.fail(DBE_BADDATA, __LINE__);
    }

    if (DBosSetFilePosition(m->ph.dh, m->pba) != 0) return here.fail(DBerrno, __LINE__);
    if (first) {
        uint8_t raw[8];
        _DBStoreBE32(raw, (flags & kBinary) ? 0u : 1u);
        _DBStoreBE32(raw + 4, static_cast<uint32_t>(total));
        if (DBosWriteData(m->ph.dh, raw, 8, m->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
        m->pba += 8;
    }
    if (DBosWriteData(m->ph.dh, data, piece, m->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    m->pba += piece;
    m->pcnt -= piece;
    const bool moved = first ? !inplace || grow_ff : m->pmode == 2;
    m->pmode = m->pcnt == 0 ? 0 : moved ? 2 : 3;
    if (moved) {
        // The memo went to the end: its last block is filled out with zeros
        // once it is complete (FoxPro's files end on a block boundary), and
        // the new next-free block is written after the data, so a failure
        // in between leaves at worst unused blocks, never a header that
        // claims space that holds nothing.
        if (m->pcnt == 0) {
            const int64_t end = static_cast<int64_t>(m->h.ff) * bs;
            int32_t flen = 0;
            if (DBosFileLength(m->ph.dh, &flen) != 0) return DBerrno;
            if (flen < end && DBosSetFileSize(m->ph.dh, static_cast<int32_t>(end)) != 0) return DBerrno;
        }
        uint8_t raw[4];
        _DBStoreBE32(raw, static_cast<uint32_t>(m->h.ff));
        if (DBosSetFilePosition(m->ph.dh, 0) != 0) return here.fail(DBerrno, __LINE__);
        if (DBosWriteData(m->ph.dh, raw, 4, m->ph.flush_disk) != 0) return here.fail(DBerrno, __LINE__);
    }
    return 0;
}
}  // namespace

extern "C" DBAPI int DBfpPutMemoRecord(int handle, int32_t *block, char *data, int32_t total, int32_t piece,
                                       int flags) {
    if (!data || !block) return here.fail(DBE_NULLPARAM, __LINE__);
    if (total <= 0) return here.fail(DBE_BADDATA, __LINE__);
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    DBFPTPKT *m = DBfpm;
    if (!(flags & kPiecewise)) piece = total;
    if (piece <= 0) return here.fail(DBE_BADDATA, __LINE__);
    if (m->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    const int reuse = flags & ~(kBinary | kPiecewise);
    if (reuse != 0 && reuse != kReuse) return here.fail(DBE_BADCOMMAND, __LINE__);
    // The file lock (the memo lock) or a record lock (8) lets a write go ahead.
    bool taken = false;
    if (_DBMemoWriteLock(m->ph, DBMEMO_LOCKED | 8, &taken, here, __LINE__) != 0) return DBerrno;
    DBerrno = 0;
    const int rc = _write_memo(block, data, total, piece, flags);
    // A failed write ends any piecewise write: its position means nothing now.
    if (rc != 0) m->pcnt = m->pba = m->pcur = m->pmode = 0;
    return _DBStatus(_DBMemoWriteUnlock(m->ph, taken, rc));
}
