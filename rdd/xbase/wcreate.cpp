// wcreate.cpp - creating an empty FPT memo file.
#include "memo.h"
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/wcreate"};
}

extern "C" DBAPI int DBfpCreateMemo(char *path, int code) {
    if (!path) return here.fail(DBE_NULLPARAM, __LINE__);
    if (code < 1 || code > 511) return here.fail(DBE_PAGESIZE, __LINE__);
    int fd = -1;
    if (DBosCreateFile(&fd, path) != 0) return DBerrno;
    // Codes up to 32 count 512-byte units (FoxPro's SET BLOCKSIZE); larger
    // codes are the size in bytes.
    const int32_t bs = code <= 32 ? code * 512 : code;
    // The header area covers whole blocks and at least 512 bytes, so the
    // first memo never starts inside the header.
    const int32_t ff = (bs + 511) / bs;
    uint8_t raw[8];
    _DBStoreBE32(raw, static_cast<uint32_t>(ff));
    _DBStoreBE32(raw + 4, static_cast<uint32_t>(bs));
    int rc = DBosWriteData(fd, raw, 8, 0);
    if (rc != 0) here.log(rc, __LINE__);
    if (rc == 0) rc = DBosSetFileSize(fd, ff * bs);
    const int crc = DBosCloseFile(fd);
    if (rc == 0) rc = crc;
    // A file without its whole header area is no memo file: it goes.
    if (rc != 0) _DBosDeleteFile(path);
    return _DBStatus(rc);
}
