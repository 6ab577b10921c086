// hseek.cpp - absolute positioning, and the public seek on a table.
#include "dbf.h"
#include "os.h"

#include <errno.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/hseek"};
}

extern "C" DBAPI int DBosSetFilePosition(int fd, int32_t offset) {
    static constexpr DBErrMap map[] = {{EBADF, DBE_BADHANDLE}, {EINVAL, DBE_BADCOMMAND}};
    const off_t r = lseek(fd, static_cast<off_t>(offset), SEEK_SET);
    if (r < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    if (r != offset) return _DBStatus(DBE_SEEK);  // landed elsewhere: not logged
    return 0;
}

extern "C" DBAPI int32_t DBSetFilePosition(int handle, int32_t offset, int whence) {
    if (_DBLockDataStruc(handle) != 0) return -1;
    const off_t r = lseek(DBxbd->ph.dh, static_cast<off_t>(offset), whence);
    if (r < 0) {
        const int e = errno;
        here.fail(e == EBADF ? DBE_BADHANDLE : e == EINVAL ? DBE_BADCOMMAND : DBE_SEEK, __LINE__);
        return -1;
    }
    if (r > INT32_MAX) {
        here.fail(DBE_SEEK, __LINE__);
        return -1;
    }
    return static_cast<int32_t>(r);
}
