// os.h - the file layer's internal entry points: the calls the families use
// besides the exported DBos functions, and the lock-table bookkeeping.
#pragma once

#include "core.h"

// unlink(name); a missing file is +204, not logged.
int _DBosDeleteFile(char *name);
// rename(oldname, newname): note the order, new name first.
int _DBosRenameFile(char *newname, char *oldname);
// 1 if the file exists, else 0; DBerrno is left as it was.
int _DBIsFileThere(char *name);
// Keep the process lock table in step: type 0 records an exclusive lock,
// type 1 removes the first matching entry, type 2 (shared) is not recorded.
void _flag_lock(int fd, int type, int32_t start, int32_t len);

// errno -> status tables of the file layer. Anything not listed is passed
// up as a system error (errno | 0xC0000000).
struct DBErrMap {
    int e;
    int code;
};
template <size_t N>
int _DBMapErrno(int e, const DBErrMap (&map)[N]) {
    for (const DBErrMap &m : map)
        if (m.e == e) return m.code;
    return _DBSysErr(e);
}

// The system calls whose effects tests need to count (the size of each
// write, each lock attempt, each retry sleep) go through this table. It
// holds the real calls; only tests replace them, and only for a moment.
struct flock;
struct DBSYSCALLS {
    long (*write)(int fd, const void *buf, size_t len);
    int (*setlk)(int fd, struct flock *fl);
    unsigned (*sleep)(unsigned seconds);
};
extern DBSYSCALLS _DBsys;
