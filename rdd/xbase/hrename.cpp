// hrename.cpp - renaming; the new name comes first.
#include "os.h"

#include <errno.h>
#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/hrename"};
}

int _DBosRenameFile(char *newname, char *oldname) {
    static constexpr DBErrMap map[] = {
        {ENOENT, DBE_NOTFOUND}, {EIO, DBE_WRITE},      {EACCES, DBE_ACCESS}, {EBUSY, DBE_ACCESS},
        {EFAULT, DBE_NOPATH},   {EEXIST, DBE_NOPATH},  {EXDEV, DBE_NOPATH},  {ENOTDIR, DBE_NOPATH},
        {EISDIR, DBE_NOPATH},   {EINVAL, DBE_NOPATH},  {EROFS, DBE_READONLY}};
    if (!newname || !oldname) return here.fail(DBE_NULLPARAM, __LINE__);
    if (std::rename(oldname, newname) != 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    return 0;
}
