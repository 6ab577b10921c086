// wopen.cpp - opening and closing FPT memo files, and the FPT resolver (the
// steps both memo families share are topen.cpp's).
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/wopen"};
}

int _DBfpLockMemoStruc(int handle) {
    auto *m = static_cast<DBFPTPKT *>(_DBPacketOf(handle, DBPT_FPT));
    if (!m) return here.fail(DBE_BADHANDLE, __LINE__);
    DBfpm = m;
    return 0;
}

int _DBfpCheckHeader(const DBFPTHDR &h) {
    // A block size of 0 would make every block the header; one above 64 KiB
    // is no FoxPro size and only invites overflow in block x size.
    if (h.bsa < 1 || h.bsa > 0x10000) return here.fail(DBE_PAGESIZE, __LINE__);
    if (h.ff < 1 || h.ff > INT32_MAX / h.bsa) return here.fail(DBE_CORRUPT, __LINE__);
    return 0;
}

extern "C" DBAPI int DBfpOpenMemo(int *handle, char *path, int mode) {
    DBclose[DBPT_FPT] = DBfpCloseMemo;
    if (!handle || !path) return here.fail(DBE_NULLPARAM, __LINE__);
    *handle = -1;
    void *p = nullptr;
    int h = -1;
    if (_DBAllocNewFilePacket(&h, DBPT_FPT, &p) != 0) return DBerrno;
    auto *m = static_cast<DBFPTPKT *>(p);
    m->om = mode;
    // Every failure from here on closes what was opened and frees the slot.
    auto failed = [&](int code, int line) {
        _DBMemoOpenUndo(h, m->ph);
        if (DBfpm == m) DBfpm = nullptr;
        return code ? here.fail(code, line) : DBerrno;
    };
    if (_DBMemoOpenFile(m->ph, path, mode) != 0) return failed(0, __LINE__);
    const int style = mode & 0xFF;
    if (style != 0 && style != 4 && style != 8 && style != 10) return failed(DBE_BADVERSION, __LINE__);
    int32_t len = 0;
    if (DBosFileLength(m->ph.dh, &len) != 0) return failed(0, __LINE__);
    if (len <= 511) return failed(DBE_NOTMEMO, __LINE__);
    DBfpm = m;
    if (_DBfpGetMemoHeader() != 0) return failed(0, __LINE__);
    m->pcnt = m->pba = m->pcur = m->pmode = 0;
    *handle = h;
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpCloseMemo(int handle) {
    if (_DBfpLockMemoStruc(handle) != 0) return DBerrno;
    DBFPTPKT *m = DBfpm;
    if (_DBMemoClose(handle, m->ph) != 0) return DBerrno;
    if (DBfpm == m) DBfpm = nullptr;
    return _DBStatus(0);
}
