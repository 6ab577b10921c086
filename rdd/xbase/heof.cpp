// heof.cpp - whether the position is at or past the end of the file.
#include "os.h"

namespace {
constexpr DBSite here{"rdd/xbase/heof"};
}

extern "C" DBAPI int DBosEndOfFile(int fd, char *eof) {
    if (!eof) return here.fail(DBE_NULLPARAM, __LINE__);
    int32_t pos = 0, len = 0;
    if (DBosGetFilePosition(fd, &pos) != 0) return DBerrno;
    if (DBosFileLength(fd, &len) != 0) return DBerrno;
    *eof = pos >= len ? 1 : 0;
    return 0;
}
