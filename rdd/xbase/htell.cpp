// htell.cpp - the current position.
#include "os.h"

#include <errno.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/htell"};
}

extern "C" DBAPI int DBosGetFilePosition(int fd, int32_t *pos) {
    static constexpr DBErrMap map[] = {{EBADF, DBE_BADHANDLE}, {EINVAL, DBE_BADCOMMAND}};
    if (!pos) return here.fail(DBE_NULLPARAM, __LINE__);
    const off_t r = lseek(fd, 0, SEEK_CUR);
    if (r < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    if (r > INT32_MAX) return here.fail(DBE_SEEK, __LINE__);
    *pos = static_cast<int32_t>(r);
    return 0;
}
