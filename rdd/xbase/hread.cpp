// hread.cpp - reading at the current position.
#include "os.h"

#include <errno.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/hread"};
}

int qd_read_length = 0;

extern "C" DBAPI int DBosReadData(int fd, void *buf, int len) {
    static constexpr DBErrMap map[] = {
        {EIO, DBE_READ}, {EBADF, DBE_BADHANDLE}, {EAGAIN, DBE_ACCESS}, {EACCES, DBE_ACCESS}};
    if (!buf || len < 0) return here.fail(DBE_NULLPARAM, __LINE__);
    const long n = static_cast<long>(read(fd, buf, static_cast<size_t>(len)));
    qd_read_length = static_cast<int>(n);
    if (n == len) return 0;
    // The layer began life on 16 bits, where -1 came back as 65535; only
    // that count carries a mapped errno. Every other shortfall, a failed
    // read included, is a plain read failure.
    if (n == 65535) return here.fail(_DBMapErrno(errno, map), __LINE__);
    return here.fail(DBE_READ, __LINE__);
}
