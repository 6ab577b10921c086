// os.h - the file layer's internal entry points: the calls the families use
// besides the exported DBos functions, and the lock-table bookkeeping.
#pragma once

#include "core.h"

// unlink(name); a missing file is +204, not logged.
int _DBosDeleteFile(char *name);
// rename(oldname, newname): note the order, new name first.
int _DBosRenameFile(char *newname, char *oldname);
// Give the file oldname a second name, newname (which must not exist): a
// hard link, or where the file system has none, a copy.
int _DBosLinkFile(char *newname, char *oldname);
// Read len bytes at offset off without using or moving the position.
int _DBosReadAt(int fd, int32_t off, void *buf, int len);
// Write len bytes at offset off, likewise; a short write is -201. The flush
// flag asks for nothing more: writes reach the system at once (see
// DBosFlushFile).
int _DBosWriteAt(int fd, int32_t off, const void *buf, int len, int16_t flush);
// 1 if the file exists, else 0; DBerrno is left as it was.
int _DBIsFileThere(char *name);
// 1, with the file's device and inode numbers in id, when name exists;
// else 0. Tells a file from another that has taken its name since.
int _DBFileId(const char *name, uint64_t id[2]);
// The first name "<dir><n><ext>", n = 0, 1, 2 ..., that does not exist yet,
// in out (cap bytes), where <dir> is the directory part of `beside` (up to
// its last separator): the work files of the packs, next to their table.
int _DBFreeName(char *out, size_t cap, const char *beside, const char *ext);
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

// The system calls whose effects tests need to count or make fail (the
// size of each write, each lock attempt, each retry sleep, each change of a
// file's name, each allocation) go through this table. It holds the real
// calls; only tests replace them, and only for a moment.
struct flock;
struct DBSYSCALLS {
    long (*write)(int fd, const void *buf, size_t len);
    int (*setlk)(int fd, struct flock *fl);
    unsigned (*sleep)(unsigned seconds);
    int (*rename)(const char *oldname, const char *newname);
    int (*link)(const char *oldname, const char *newname);
    int (*unlink)(const char *name);
    void *(*malloc)(size_t size);
    void *(*realloc)(void *p, size_t size);
    void (*free)(void *p);
};
extern DBSYSCALLS _DBsys;
