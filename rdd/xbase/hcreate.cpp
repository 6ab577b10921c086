// hcreate.cpp - creating (or truncating) a file.
#include "os.h"

#include <errno.h>
#include <fcntl.h>

namespace {
constexpr DBSite here{"rdd/xbase/hcreate"};
}

extern "C" DBAPI int DBosCreateFile(int *fd, char *path) {
    static constexpr DBErrMap map[] = {
        {ENOENT, DBE_NOPATH},   {EFAULT, DBE_NOPATH},    {ENOTDIR, DBE_NOPATH},
        {ENXIO, DBE_NOTFOUND},  {EISDIR, DBE_NOTFOUND},  {EAGAIN, DBE_ACCESS},
        {EACCES, DBE_ACCESS},   {ETXTBSY, DBE_ACCESS},   {ENFILE, DBE_NOHANDLES},
        {EMFILE, DBE_NOHANDLES}, {ENOSPC, DBE_NOHANDLES}, {EROFS, DBE_READONLY}};
    if (!fd || !path) return here.fail(DBE_NULLPARAM, __LINE__);
    if (!*path || !_DBNameFits(path)) return here.fail(DBE_BADFILENAME, __LINE__);
    const int r = creat(path, 0777);
    if (r < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    *fd = r;
    return 0;
}
