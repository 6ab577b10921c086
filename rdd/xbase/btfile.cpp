// btfile.cpp - what every index family does with its file around the tree:
// opening it with the mode rules of the library, writing a new file whole,
// and tidying a key expression.
#include "btree.h"

namespace {
constexpr DBSite here{"rdd/xbase/btfile"};
}

int _DBIndexOpenFile(DBPKTHDR &ph, char *filename, int mode, uint32_t codes) {
    // Automatic locks imply a shared write-through file, except read-only.
    if (mode & DBO_AUTOLOCK) {
        mode |= DBO_FLUSH | DBO_SHARED;
        if (mode & DBO_READONLY) mode &= ~DBO_AUTOLOCK;
    }
    if (DBosOpenFile(&ph.dh, filename, mode, &ph.m) != 0) {
        ph.dh = -1;
        return DBerrno;
    }
    if (mode & DBO_FLUSH) {
        ph.m.always_flush = 1;
        ph.flush_disk = 1;
    }
    if (mode & DBO_UNBUFFERED) ph.m.always_flush = 1;
    if ((mode & DBO_AUTOLOCK) && ph.m.shared) ph.m.auto_locks = 1;
    // A shared file's header may change under us: it is read again before
    // it is trusted, until a lock keeps others out.
    if (ph.m.shared) ph.m.read_header_information = 1;
    const int access = mode & 0xFF;
    if (access >= 32 || !(codes & (1u << access))) return here.fail(DBE_BADVERSION, __LINE__);
    _DBCopyName(ph.n, sizeof ph.n, filename);
    return 0;
}

int _DBIndexWriteNew(char *filename, const void *bytes, int len) {
    int fd = -1;
    if (DBosCreateFile(&fd, filename) != 0) return here.fail(DBerrno, __LINE__);
    DBerrno = 0;
    const int rc = _DBosWriteAt(fd, 0, bytes, len, 0);
    DBosCloseFile(fd);
    if (rc != 0) {
        _DBosDeleteFile(filename);
        return here.fail(rc, __LINE__);
    }
    return _DBStatus(0);
}

void _DBIndexTidyExpr(char *e) {
    char *w = e;
    for (const char *r = e; *r; r++)
        if (*r != ' ') *w++ = *r;
    *w = '\0';
    _DBstrupr(e);
}

int _DBIndexNewExpr(char *out, size_t cap, const char *expr) {
    size_t n = 0;
    for (const char *r = expr; *r; r++) {
        if (*r == ' ') continue;
        if (n + 1 >= cap) return here.fail(DBE_BADEXPR, __LINE__);
        out[n++] = *r;
    }
    out[n] = '\0';
    _DBstrupr(out);
    return static_cast<int>(n);
}
