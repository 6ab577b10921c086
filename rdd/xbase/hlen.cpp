// hlen.cpp - the length of a file, leaving its position where it was.
#include "os.h"

#include <errno.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/hlen"};
}

extern "C" DBAPI int DBosFileLength(int fd, int32_t *len) {
    static constexpr DBErrMap map[] = {{EBADF, DBE_BADHANDLE}, {EINVAL, DBE_BADCOMMAND}};
    DBerrno = 0;
    if (!len) return here.fail(DBE_NULLPARAM, __LINE__);
    const off_t cur = lseek(fd, 0, SEEK_CUR);
    if (cur < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    const off_t end = lseek(fd, 0, SEEK_END);
    if (end < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    if (lseek(fd, cur, SEEK_SET) < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    // Files of this family address bytes with 32-bit signed offsets.
    if (end > INT32_MAX) return here.fail(DBE_SEEK, __LINE__);
    *len = static_cast<int32_t>(end);
    return 0;
}
