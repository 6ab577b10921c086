// hsize.cpp - growing a file with zero bytes or cutting it short.
#include "os.h"

#include <errno.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/hsize"};
}

extern "C" DBAPI int DBosSetFileSize(int fd, int32_t size) {
    if (size < 0) return here.fail(DBE_BADCOMMAND, __LINE__);
    const off_t end = lseek(fd, 0, SEEK_END);
    if (end < 0 || end > INT32_MAX) return here.fail(DBE_SEEK, __LINE__);
    int32_t len = static_cast<int32_t>(end);
    if (size >= len) {
        // Grow in pieces of at most 1024 zero bytes, as the file's other
        // users have always seen it grow.
        static const char zeros[1024] = {};
        while (len < size) {
            const int32_t piece = size - len < 1024 ? size - len : 1024;
            const long n = _DBsys.write(fd, zeros, static_cast<size_t>(piece));
            if (n != piece) return here.fail(DBE_WRITE, __LINE__);
            len += piece;
        }
        return 0;
    }
    static constexpr DBErrMap map[] = {
        {EBADF, DBE_BADHANDLE}, {EAGAIN, DBE_LOCKVIOLATION}, {EACCES, DBE_LOCKVIOLATION}, {EIO, DBE_WRITE}};
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    return 0;
}
