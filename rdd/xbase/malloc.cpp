// malloc.cpp - the library's allocator. Every buffer the library owns comes
// from here, so an allocation failure is one status (-203) with a log line
// naming the caller, never a crash.
#include "os.h"


extern "C" DBAPI int DBAllocateMemoryLog(void **where, size_t size, const char *srcfile, int line) {
    void *p = where ? _DBsys.malloc(size ? size : 1) : nullptr;
    if (!p) {
        DBerrno = DBE_NOMEMORY;
        _DBErrorWrite(srcfile ? srcfile : "rdd/xbase/malloc", line, DBE_NOMEMORY);
        return DBE_NOMEMORY;
    }
    *where = p;
    return 0;
}

extern "C" DBAPI int DBReAllocateMemory(void **where, size_t size, const char *srcfile, int line) {
    void *p = where ? _DBsys.realloc(*where, size ? size : 1) : nullptr;
    if (!p) {
        DBerrno = DBE_NOMEMORY;
        _DBErrorWrite(srcfile ? srcfile : "rdd/xbase/malloc", line, DBE_NOMEMORY);
        return DBE_NOMEMORY;
    }
    *where = p;
    return 0;
}

extern "C" DBAPI int DBFreeMemory(void *p, const char *srcfile, int line) {
    _DBsys.free(p);
    return 0;
}
