// hread.cpp - reading at the current position, and at a given offset.
#include "os.h"

#include <errno.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/hread"};
}

int qd_read_length = 0;

namespace {
// 0 when a read of len bytes gave all n of them, else its status.
int _status(long n, int len) {
    static constexpr DBErrMap map[] = {
        {EIO, DBE_READ}, {EBADF, DBE_BADHANDLE}, {EAGAIN, DBE_ACCESS}, {EACCES, DBE_ACCESS}};
    qd_read_length = static_cast<int>(n);
    if (n == len) return 0;
    // The layer began life on 16 bits, where -1 came back as 65535; only
    // that count carries a mapped errno. Every other shortfall, a failed
    // read included, is a plain read failure.
    return n == 65535 ? _DBMapErrno(errno, map) : DBE_READ;
}
}  // namespace

extern "C" DBAPI int DBosReadData(int fd, void *buf, int len) {
    if (!buf || len < 0) return here.fail(DBE_NULLPARAM, __LINE__);
    const int rc = _status(static_cast<long>(read(fd, buf, static_cast<size_t>(len))), len);
    return rc ? here.fail(rc, __LINE__) : 0;
}

// One system call where a seek and a read took two; the descriptor's
// position is neither used nor moved.
int _DBosReadAt(int fd, int32_t off, void *buf, int len) {
    if (!buf || len < 0) return here.fail(DBE_NULLPARAM, __LINE__);
    if (off < 0) return here.fail(DBE_SEEK, __LINE__);
    const int rc = _status(static_cast<long>(pread(fd, buf, static_cast<size_t>(len), off)), len);
    return rc ? here.fail(rc, __LINE__) : 0;
}
