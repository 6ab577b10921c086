// hexist.cpp - whether a file exists, without disturbing DBerrno, and a
// name that does not exist yet.
#include "os.h"

#include <unistd.h>

#include <cstdio>

namespace {
constexpr DBSite here{"rdd/xbase/hexist"};
}

int _DBIsFileThere(char *name) { return name && access(name, F_OK) == 0 ? 1 : 0; }

int _DBFreeName(char *out, size_t cap, const char *dir, const char *ext) {
    // A directory full of such names is a sign of trouble, not a reason to
    // count for ever.
    for (int n = 0; n < 100000; n++) {
        const int w = std::snprintf(out, cap, "%s%d%s", dir, n, ext);
        if (w < 0 || static_cast<size_t>(w) >= cap) return here.fail(DBE_BADFILENAME, __LINE__);
        if (!_DBIsFileThere(out)) return 0;
    }
    return here.fail(DBE_BADFILENAME, __LINE__);
}
