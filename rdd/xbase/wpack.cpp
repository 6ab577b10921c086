// wpack.cpp - packing FPT memo files: every memo that a record points to is
// copied, type word and all, into a new file without the abandoned blocks,
// and the new file takes the old one's place (tmark.cpp has the order of
// renames that keeps the old file safe until the end). Reading a memo whole
// and appending it to a file being filled are shared with the structure
// change (dmodify.cpp), which fills a new FPT file the same way.
#include "dbf.h"
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/wpack"};
}  // namespace

int _DBfpSizeCode(int32_t bs) {
    if (bs >= 33 && bs <= 511) return bs;
    if (bs % 512 == 0 && bs / 512 >= 1 && bs / 512 <= 32) return bs / 512;
    return 0;
}

int _DBfpReadMemo(int32_t block, DBOwned<uint8_t> &buf, DBFPTRHDR *rh) {
    if (_DBfpReadBlockHeader(block, rh) != 0) return DBerrno;
    if (buf.alloc(static_cast<size_t>(rh->len) + 8, here.id, __LINE__) != 0) return DBerrno;
    if (rh->len > 0 && DBosReadData(DBfpm->ph.dh, buf.get() + 8, rh->len) != 0) return DBerrno;
    return 0;
}

int _DBfpAppendMemo(int fd, int32_t bs, int32_t *ff, int32_t type, uint8_t *buf, int32_t len, int32_t *nb) {
    _DBStoreBE32(buf, static_cast<uint32_t>(type));
    _DBStoreBE32(buf + 4, static_cast<uint32_t>(len));
    const int64_t blocks = (static_cast<int64_t>(len) + 8 + bs - 1) / bs;
    const int64_t next = *ff + (blocks < 1 ? 1 : blocks);
    if (next > INT32_MAX / bs) return here.fail(DBE_WRITE, __LINE__);
    if (_DBosWriteAt(fd, *ff * bs, buf, len + 8, 0) != 0) return here.fail(DBerrno, __LINE__);
    *nb = *ff;
    *ff = static_cast<int32_t>(next);
    return 0;
}

int _DBfpFinishFile(int fd, int32_t bs, int32_t ff) {
    uint8_t raw[4];
    _DBStoreBE32(raw, static_cast<uint32_t>(ff));
    if (_DBosWriteAt(fd, 0, raw, 4, 0) != 0) return here.fail(DBerrno, __LINE__);
    if (DBosSetFileSize(fd, ff * bs) != 0) return here.fail(DBerrno, __LINE__);
    return 0;
}

extern "C" DBAPI int DBfpPackMemo(int dbf, int *memo) {
    if (!memo) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBfpLockMemoStruc(*memo) != 0) return DBerrno;
    DBFPTPKT *old = DBfpm;
    if (old->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    if (_DBLockDataStruc(dbf) != 0) return DBerrno;
    if (DBxbd->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    char path[512];
    _DBCopyName(path, sizeof path, old->ph.n);
    const int mode = old->om;
    // A block size that no create code gives (VFP's 1-byte blocks, say)
    // becomes 64 bytes: every pointer is rewritten anyway.
    int code = _DBfpSizeCode(old->h.bsa);
    if (code == 0) code = 64;
    old->pcnt = old->pba = old->pcur = old->pmode = 0;

    bool taken = false;
    char tmp[600] = "";
    int rc = _DBMemoPackBegin(dbf, path, ".FPT", tmp, sizeof tmp, &taken);
    if (rc == 0) rc = DBfpCreateMemo(tmp, code);
    int fd = -1;
    DBOMODE om{};
    if (rc == 0) rc = DBosOpenFile(&fd, tmp, 0, &om);
    const int32_t bs = code <= 32 ? code * 512 : code;
    int32_t ff = (bs + 511) / bs;
    DBMEMOREFS refs;
    DBfpm = old;
    if (rc == 0 && old->ph.m.shared) rc = _DBfpGetMemoHeader();
    if (rc == 0) rc = _DBMemoPackCopy(dbf, refs, [&](int32_t b, int32_t *nb) {
        DBfpm = old;
        DBOwned<uint8_t> buf;
        DBFPTRHDR rh{};
        if (_DBfpReadMemo(b, buf, &rh) != 0) return DBerrno;
        return _DBfpAppendMemo(fd, bs, &ff, rh.s, buf.get(), rh.len, nb);
    });
    if (rc == 0) rc = _DBfpFinishFile(fd, bs, ff);
    if (fd >= 0) {
        const int crc = DBosCloseFile(fd);
        if (rc == 0) rc = crc;
    }
    return _DBMemoPackEnd(dbf, memo, true, path, tmp, mode, refs, taken, rc);
}
