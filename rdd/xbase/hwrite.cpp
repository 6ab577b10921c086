// hwrite.cpp - writing at the current position, and the table of system
// calls that tests may observe.
#include "os.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/hwrite"};
long _write(int fd, const void *buf, size_t len) { return static_cast<long>(write(fd, buf, len)); }
int _setlk(int fd, struct flock *fl) { return fcntl(fd, F_SETLK, fl); }
unsigned _sleep(unsigned s) { return sleep(s); }
int _rename(const char *o, const char *n) { return std::rename(o, n); }
int _link(const char *o, const char *n) { return link(o, n); }
int _unlink(const char *name) { return unlink(name); }
void *_malloc(size_t size) { return std::malloc(size); }
void *_realloc(void *p, size_t size) { return std::realloc(p, size); }
void _free(void *p) { std::free(p); }
}  // namespace

DBSYSCALLS _DBsys = {_write, _setlk, _sleep, _rename, _link, _unlink, _malloc, _realloc, _free};

namespace {
constexpr DBErrMap kWriteErrors[] = {
    {EIO, DBE_WRITE},     {EFBIG, DBE_WRITE},    {ENOSPC, DBE_WRITE},
    {EAGAIN, DBE_ACCESS}, {EACCES, DBE_ACCESS},  {EBADF, DBE_BADHANDLE}};
}  // namespace

// One system call where a seek and a write took two; the descriptor's
// position is neither used nor moved.
int _DBosWriteAt(int fd, int32_t off, const void *buf, int len, int16_t flush) {
    (void)flush;
    if (!buf || len < 0) return here.fail(DBE_NULLPARAM, __LINE__);
    if (off < 0) return here.fail(DBE_SEEK, __LINE__);
    const long n = static_cast<long>(pwrite(fd, buf, static_cast<size_t>(len), static_cast<off_t>(off)));
    if (n < 0) return here.fail(_DBMapErrno(errno, kWriteErrors), __LINE__);
    if (n != len) return here.fail(DBE_WRITE, __LINE__);
    return 0;
}

extern "C" DBAPI int DBosWriteData(int fd, void *buf, int len, int16_t flush) {
    const auto &map = kWriteErrors;
    if (!buf || len < 0) return here.fail(DBE_NULLPARAM, __LINE__);
    const long n = _DBsys.write(fd, buf, static_cast<size_t>(len));
    if (n < 0) return here.fail(_DBMapErrno(errno, map), __LINE__);
    // A short write is reported without a log line: the caller decides
    // whether it is worth one.
    if (n != len) return _DBStatus(DBE_WRITE);
    if (flush) return DBosFlushFile(fd);
    return 0;
}
