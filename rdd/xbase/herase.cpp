// herase.cpp - deleting a file. A file that is already gone is a warning
// (+204) without a log line: callers delete "just in case" all the time.
#include "os.h"

#include <errno.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/herase"};
}

int _DBosDeleteFile(char *name) {
    static constexpr DBErrMap map[] = {
        {EPERM, DBE_NOTFOUND}, {EACCES, DBE_ACCESS},   {EBUSY, DBE_ACCESS}, {ETXTBSY, DBE_ACCESS},
        {EFAULT, DBE_NOPATH},  {ENOTDIR, DBE_NOPATH},  {EROFS, DBE_READONLY}};
    if (!name) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBsys.unlink(name) == 0) return 0;
    if (errno == ENOENT) return _DBStatus(DBW_KEYNOTFOUND);
    return here.fail(_DBMapErrno(errno, map), __LINE__);
}
