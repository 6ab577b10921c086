// hrename.cpp - renaming (the new name comes first), and giving a file a
// second name.
#include "os.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace {
constexpr DBSite here{"rdd/xbase/hrename"};

constexpr DBErrMap kNameErrors[] = {
    {ENOENT, DBE_NOTFOUND}, {EIO, DBE_WRITE},      {EACCES, DBE_ACCESS}, {EBUSY, DBE_ACCESS},
    {EFAULT, DBE_NOPATH},   {EEXIST, DBE_NOPATH},  {EXDEV, DBE_NOPATH},  {ENOTDIR, DBE_NOPATH},
    {EISDIR, DBE_NOPATH},   {EINVAL, DBE_NOPATH},  {EROFS, DBE_READONLY}};

// Copy oldname to a new file newname, for file systems without hard links.
// A copy that fails part way is removed again.
int _copy(char *newname, char *oldname) {
    int in = -1;
    DBOMODE m{};
    if (DBosOpenFile(&in, oldname, DBO_READONLY, &m) != 0) return DBerrno;
    const int out = open(newname, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (out < 0) {
        DBosCloseFile(in);
        return here.fail(_DBMapErrno(errno, kNameErrors), __LINE__);
    }
    char buf[8192];
    int rc = 0;
    for (;;) {
        const long n = static_cast<long>(read(in, buf, sizeof buf));
        if (n == 0) break;
        if (n < 0) {
            rc = here.fail(DBE_READ, __LINE__);
            break;
        }
        if (_DBsys.write(out, buf, static_cast<size_t>(n)) != n) {
            rc = here.fail(DBE_WRITE, __LINE__);
            break;
        }
    }
    DBosCloseFile(in);
    if (close(out) != 0 && rc == 0) rc = here.fail(DBE_WRITE, __LINE__);
    if (rc != 0) _DBsys.unlink(newname);
    return rc;
}
}  // namespace

int _DBosRenameFile(char *newname, char *oldname) {
    if (!newname || !oldname) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBsys.rename(oldname, newname) != 0) return here.fail(_DBMapErrno(errno, kNameErrors), __LINE__);
    return 0;
}

int _DBosLinkFile(char *newname, char *oldname) {
    if (!newname || !oldname) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBsys.link(oldname, newname) == 0) return 0;
    // FAT, SMB shares without Unix extensions and some FUSE file systems
    // refuse hard links; the second name is then a copy of the bytes.
    const int e = errno;
    if (e == EPERM || e == ENOTSUP || e == EOPNOTSUPP || e == ENOSYS || e == EMLINK) return _copy(newname, oldname);
    return here.fail(_DBMapErrno(e, kNameErrors), __LINE__);
}
