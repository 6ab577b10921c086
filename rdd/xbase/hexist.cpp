// hexist.cpp - whether a file exists, without disturbing DBerrno, and a
// name that does not exist yet.
#include "os.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/hexist"};
}

int _DBIsFileThere(char *name) { return name && access(name, F_OK) == 0 ? 1 : 0; }

int _DBFreeName(char *out, size_t cap, const char *beside, const char *ext) {
    if (!out || cap == 0 || !beside) return here.fail(DBE_NULLPARAM, __LINE__);
    const int dir = static_cast<int>(_DBDirLength(beside));
    // A directory full of such names is a sign of trouble, not a reason to
    // count for ever.
    for (int n = 0; n < 100000; n++) {
        const int w = std::snprintf(out, cap, "%.*s%d%s", dir, beside, n, ext);
        if (w < 0 || static_cast<size_t>(w) >= cap) return here.fail(DBE_BADFILENAME, __LINE__);
        if (!_DBIsFileThere(out)) return 0;
    }
    return here.fail(DBE_BADFILENAME, __LINE__);
}

int _DBFileId(const char *name, uint64_t id[2]) {
    struct stat st;
    if (!name || stat(name, &st) != 0) return 0;
    id[0] = static_cast<uint64_t>(st.st_dev);
    id[1] = static_cast<uint64_t>(st.st_ino);
    return 1;
}
