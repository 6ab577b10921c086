// hlen.cpp - the length of a file, leaving its position where it was.
#include "os.h"

#include <errno.h>
#include <sys/stat.h>

namespace {
constexpr DBSite here{"rdd/xbase/hlen"};
}

// The length comes from fstat: one call instead of the three seeks (to the
// end and back) it once took, and the position is never touched at all.
extern "C" DBAPI int DBosFileLength(int fd, int32_t *len) {
    static constexpr DBErrMap map[] = {{EBADF, DBE_BADHANDLE}, {EINVAL, DBE_BADCOMMAND}};
    DBerrno = 0;
    if (!len) return here.fail(DBE_NULLPARAM, __LINE__);
    struct stat st;
    if (fstat(fd, &st) != 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    // Files of this family address bytes with 32-bit signed offsets.
    if (st.st_size > INT32_MAX) return here.fail(DBE_SEEK, __LINE__);
    *len = static_cast<int32_t>(st.st_size);
    return 0;
}
