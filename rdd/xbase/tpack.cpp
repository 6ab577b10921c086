// tpack.cpp - packing DBT memo files, and the steps that the DBT and FPT
// packs share: memo pointers in the table's records and putting the packed
// file in place of the old one.
//
// A pack never changes the old memo file. It copies every text that a
// record points to (deleted records included: they can still be recalled)
// into a new file under a temporary name, and only when that copy is
// complete does the swap begin, guarded by a marker beside the table that
// lets the next open of the table finish or undo a swap cut short by a
// crash (tmark.cpp has the steps and the marker's layout). A failure that
// is reported instead puts the old file and the old pointers back at once.
#include "dbf.h"
#include "memo.h"
#include "os.h"

#include <cstdio>
#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/tpack"};
}

int DBMEMOREFS::add(const DBMEMOREF &r) {
    if (n == cap) {
        const int32_t c = cap ? cap * 2 : 64;
        void *p = a.release();
        if (DBReAllocateMemory(&p, sizeof(DBMEMOREF) * static_cast<size_t>(c), here.id, __LINE__) != 0) {
            a.reset(static_cast<DBMEMOREF *>(p));
            return DBerrno;
        }
        a.reset(static_cast<DBMEMOREF *>(p));
        cap = c;
    }
    a[static_cast<size_t>(n++)] = r;
    return 0;
}

bool _DBIsMemoField(int i) {
    const DBFIELDSTRUC &f = DBxbd->f[i];
    if (f.t != 'M' && f.t != 'G') return false;
    return f.l == 10 || (_DBStyleOf(DBxbd) == 10 && f.l == 4);
}

int32_t _DBMemoFieldGet(int i) {
    const DBFIELDSTRUC &f = DBxbd->f[i];
    const char *p = DBxbd->b.r + f.a;
    if (_DBStyleOf(DBxbd) == 10 && f.l == 4) return static_cast<int32_t>(_DBLoadLE32(p));
    // Leading blanks, an optional sign, digits; anything else ends the
    // number, as atol reads it. Blank is 0: no memo.
    int j = 0;
    while (j < f.l && p[j] == ' ') j++;
    bool neg = false;
    if (j < f.l && (p[j] == '-' || p[j] == '+')) neg = p[j++] == '-';
    int64_t v = 0;
    while (j < f.l && p[j] >= '0' && p[j] <= '9' && v <= INT32_MAX) v = v * 10 + (p[j++] - '0');
    if (v > INT32_MAX) return -1;  // not a block number: the copy refuses it
    return static_cast<int32_t>(neg ? -v : v);
}

int _DBMemoPointerBytes(int i, int32_t block, char out[16]) {
    const DBFIELDSTRUC &f = DBxbd->f[i];
    if (_DBStyleOf(DBxbd) == 10 && f.l == 4) {
        _DBStoreLE32(out, static_cast<uint32_t>(block));
        return 4;
    }
    std::snprintf(out, 16, "%10ld", static_cast<long>(block));
    return 10;
}

void _DBMemoFieldPut(int i, int32_t block) {
    char text[16];
    const int w = _DBMemoPointerBytes(i, block, text);
    std::memcpy(DBxbd->b.r + DBxbd->f[i].a, text, static_cast<size_t>(w));
}

int _DBMemoRewritePointers(int dbf, const DBMEMOREFS &refs, bool undo) {
    int first = 0;
    int32_t k = 0;
    while (k < refs.n) {
        const int32_t rec = refs.a[static_cast<size_t>(k)].rec;
        DBerrno = 0;
        int rc = DBGetRecord(dbf, rec);
        int32_t end = k;
        while (end < refs.n && refs.a[static_cast<size_t>(end)].rec == rec) end++;
        if (rc >= 0) {
            _DBLockDataStruc(dbf);
            for (int32_t j = k; j < end; j++) {
                const DBMEMOREF &r = refs.a[static_cast<size_t>(j)];
                _DBMemoFieldPut(r.field, undo ? r.oldb : r.newb);
            }
            int32_t recno = rec;
            DBerrno = 0;
            rc = DBPutRecord(dbf, &recno, DB_REWRITE);
        }
        if (rc < 0) {
            // Going forward, stop at the first failure (the caller undoes);
            // undoing, carry on and put back all that can be put back.
            if (!undo) return here.fail(rc, __LINE__);
            if (first == 0) first = rc;
        }
        k = end;
    }
    DBerrno = 0;
    const int rc = DBFlushFile(dbf);
    if (rc < 0) return here.fail(rc, __LINE__);
    return first ? here.fail(first, __LINE__) : 0;
}

int _DBMemoSwapIn(int dbf, bool fpt, char *memo, char *tmp, const DBMEMOREFS &refs) {
    char backup[600], mark[600];
    if (_DBFreeName(backup, sizeof backup, memo, fpt ? ".FPT" : ".DBT") != 0) return DBerrno;
    if (_DBLockDataStruc(dbf) != 0) return DBerrno;
    char *table = DBxbd->ph.n;
    if (_DBMemoMarkName(mark, sizeof mark, table) != 0) return DBerrno;
    if (_DBIsFileThere(mark)) return here.fail(DBE_ACCESS, __LINE__);  // another pack's, unfinished
    if (_DBMemoMarkWrite(mark, fpt, table, memo, tmp, backup, refs) != 0) return DBerrno;
    DBerrno = 0;
    // The steps tmark.cpp describes. Until the work file is renamed, a
    // failure takes back what was done: the second name, the marker.
    int rc = _DBosLinkFile(backup, memo);
    const bool linked = rc == 0;
    if (rc == 0) rc = _DBMemoMarkByte(mark, DBMARK_WORK, 0);
    if (rc == 0) rc = _DBosRenameFile(memo, tmp);
    if (rc != 0) {
        if (linked) _DBosDeleteFile(backup);
        _DBosDeleteFile(mark);
        _DBosDeleteFile(tmp);
        return here.fail(rc, __LINE__);
    }
    rc = _DBMemoMarkByte(mark, DBMARK_STATE, 'F');
    if (rc == 0) rc = _DBMemoRewritePointers(dbf, refs, false);
    if (rc == 0) {
        // Done. The marker goes before the backup: once the backup's file
        // is gone its name may be taken by another, which a repair must
        // not mistake for ours. A name that will not go is only litter.
        if (_DBosDeleteFile(mark) < 0) here.log(DBerrno, __LINE__);
        if (_DBosDeleteFile(backup) < 0) here.log(DBerrno, __LINE__);
        DBerrno = 0;
        return 0;
    }
    // Back to the old pair: first the marker (so that a crash from here on
    // is undone too; if even that write fails the marker still says F and
    // the next open finishes the pack instead), then the old file under its
    // name, then the old pointers.
    if (_DBMemoMarkByte(mark, DBMARK_STATE, 'U') == 0 && _DBosRenameFile(memo, backup) == 0 &&
        _DBMemoRewritePointers(dbf, refs, true) == 0)
        _DBosDeleteFile(mark);
    return here.fail(rc, __LINE__);
}

int _DBMemoPackLockTable(int dbf, bool *taken) {
    *taken = false;
    if (_DBLockDataStruc(dbf) != 0) return DBerrno;
    return _DBStatus(_DBTakeFileLock(taken));
}

void _DBMemoPackUnlockTable(int dbf, bool taken) {
    if (!taken) return;
    // Through the public call: the pointers rewritten in the table's cache
    // reach the file before the lock goes.
    const int saved = DBerrno;
    DBUnLockAll(dbf);
    DBerrno = saved;
}

int _DBMemoPackBegin(int dbf, const char *path, const char *ext, char *tmp, size_t cap, bool *taken) {
    if (_DBMemoPackLockTable(dbf, taken) != 0) return DBerrno;
    return _DBFreeName(tmp, cap, path, ext);
}

int _DBMemoPackEnd(int dbf, int *memo, bool fpt, char *path, char *tmp, int mode, const DBMEMOREFS &refs,
                   bool taken, int rc) {
    if (rc != 0) {
        // Nothing has changed: the old file and the table are as they were.
        if (_DBIsFileThere(tmp)) _DBosDeleteFile(tmp);
        _DBMemoPackUnlockTable(dbf, taken);
        return _DBStatus(rc);
    }
    rc = fpt ? DBfpCloseMemo(*memo) : DBxbCloseMemo(*memo);
    if (rc == 0) {
        *memo = -1;
        rc = _DBMemoSwapIn(dbf, fpt, path, tmp, refs);
        // Whatever the swap did, a memo file is under the old name: open it.
        const int orc = fpt ? DBfpOpenMemo(memo, path, mode) : DBxbOpenMemo(memo, path, mode);
        if (rc == 0) rc = orc;
    } else {
        _DBosDeleteFile(tmp);
    }
    _DBMemoPackUnlockTable(dbf, taken);
    return _DBStatus(rc);
}

extern "C" DBAPI int DBxbPackMemo(int dbf, int *memo) {
    if (!memo) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBxbLockMemoStruc(*memo) != 0) return DBerrno;
    DBDBTPKT *old = DBxbm;
    if (old->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (_DBLockDataStruc(dbf) != 0) return DBerrno;
    if (DBxbd->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    char path[512];
    _DBCopyName(path, sizeof path, old->ph.n);
    const int mode = old->om;
    const int version = old->v;
    const int blocks = (old->bs % 512 == 0 && old->bs / 512 >= 1 && old->bs / 512 <= 32) ? old->bs / 512 : 1;

    bool taken = false;
    char tmp[600] = "";
    int rc = _DBMemoPackBegin(dbf, path, ".DBT", tmp, sizeof tmp, &taken);
    if (rc == 0) rc = _DBxbCreateMemo(tmp, blocks, version, path);
    int nh = -1;
    if (rc == 0) rc = DBxbOpenMemo(&nh, tmp, version);
    DBMEMOREFS refs;
    // Each text is read whole from the old file and written as a new text of
    // the new one, which gives it its place there.
    if (rc == 0) rc = _DBMemoPackCopy(dbf, refs, [&](int32_t b, int32_t *nb) {
        char *text = nullptr;
        int32_t len = 0;
        DBxbm = old;
        int r = _DBxbReadText(b, &text, &len);
        DBOwned<char> own(text);
        if (r == 0) {
            _DBxbLockMemoStruc(nh);
            DBerrno = 0;
            r = _DBxbWriteText(nb, text, len);
        }
        return r;
    });
    if (nh >= 0) {
        const int crc = DBxbCloseMemo(nh);
        if (rc == 0) rc = crc;
    }
    return _DBMemoPackEnd(dbf, memo, false, path, tmp, mode, refs, taken, rc);
}
