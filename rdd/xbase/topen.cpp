// topen.cpp - opening and closing DBT memo files, the DBT resolver, and the
// open and close steps that both memo families share.
//
// The layout is not guessed from the file: the version the caller opens it
// with says it (2 dBASE IV; 0, 1, 3, 5, 6, 7 dBASE III), as the table's
// style says which dialect a table follows. Open then checks what that
// layout needs: a whole block 0 (512 bytes), a next-free block of at least
// 1, and for dBASE IV a block size that dBASE can have made.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/topen"};
}

int _DBxbLockMemoStruc(int handle) {
    auto *m = static_cast<DBDBTPKT *>(_DBPacketOf(handle, DBPT_DBT));
    if (!m) return here.fail(DBE_BADHANDLE, __LINE__);
    DBxbm = m;
    return 0;
}

int _DBMemoOpenFile(DBPKTHDR &ph, char *path, int mode) {
    if (mode & DBO_AUTOLOCK) {
        mode |= DBO_SHARED | DBO_FLUSH;
        if (mode & DBO_READONLY) mode &= ~DBO_AUTOLOCK;
    }
    if (DBosOpenFile(&ph.dh, path, mode, &ph.m) != 0) return DBerrno;
    _DBCopyName(ph.n, sizeof ph.n, path);
    if (mode & DBO_FLUSH) {
        ph.m.always_flush = 1;
        ph.flush_disk = 1;
    }
    if ((mode & DBO_AUTOLOCK) && ph.m.shared) ph.m.auto_locks = 1;
    if ((mode & DBO_MULTILOCK) && ph.m.shared) ph.m.multi_locks = 1;
    if (ph.m.shared) ph.m.read_header_information = 1;
    return 0;
}

void _DBMemoOpenUndo(int handle, DBPKTHDR &ph) {
    if (ph.dh >= 0) DBosCloseFile(ph.dh);
    _DBReleaseFilePacket(handle);
}

int _DBMemoClose(int handle, DBPKTHDR &ph) {
    if (ph.ls && _DBMemoUnLock(ph) != 0) return DBerrno;
    if (ph.dh >= 0 && DBosCloseFile(ph.dh) != 0) return DBerrno;
    ph.dh = -1;
    _DBReleaseFilePacket(handle);
    return 0;
}

extern "C" DBAPI int DBxbOpenMemo(int *handle, char *path, int mode) {
    DBclose[DBPT_DBT] = DBxbCloseMemo;
    if (!handle || !path) return here.fail(DBE_NULLPARAM, __LINE__);
    *handle = -1;
    int version = mode & 0xFF;
    if (version == 0) version = 1;
    if (version != 1 && version != 2 && version != 3 && version != 5 && version != 6 && version != 7)
        return here.fail(DBE_BADVERSION, __LINE__);
    void *p = nullptr;
    int h = -1;
    if (_DBAllocNewFilePacket(&h, DBPT_DBT, &p) != 0) return DBerrno;
    auto *m = static_cast<DBDBTPKT *>(p);
    m->om = mode;
    // Every failure from here on closes what was opened and frees the slot.
    auto failed = [&](int code, int line) {
        _DBMemoOpenUndo(h, m->ph);
        if (DBxbm == m) DBxbm = nullptr;
        return code ? here.fail(code, line) : DBerrno;
    };
    if (_DBMemoOpenFile(m->ph, path, mode) != 0) return failed(0, __LINE__);
    m->v = version;
    m->bs = 512;
    DBxbm = m;
    DBDBTHDR hdr{};
    if (_DBxbGetMemoHeader(&hdr) != 0) return failed(0, __LINE__);
    if (version == 2) m->bs = static_cast<uint16_t>(hdr.bsa);
    *handle = h;
    return _DBStatus(0);
}

extern "C" DBAPI int DBxbCloseMemo(int handle) {
    if (_DBxbLockMemoStruc(handle) != 0) return DBerrno;
    DBDBTPKT *m = DBxbm;
    if (_DBMemoClose(handle, m->ph) != 0) return DBerrno;
    if (DBxbm == m) DBxbm = nullptr;
    return _DBStatus(0);
}
