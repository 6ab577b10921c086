// memmove.cpp - an overlap-safe copy with the old contract: a negative count
// copies nothing.
#include "core.h"

void *_DBmemmove(void *dst, const void *src, int count) {
    if (count <= 0) return dst;
    auto *d = static_cast<unsigned char *>(dst);
    const auto *s = static_cast<const unsigned char *>(src);
    if (s <= d) {
        // Backwards, so an overlapping source is read before it is overwritten.
        for (int i = count; i-- > 0;) d[i] = s[i];
    } else {
        for (int i = 0; i < count; i++) d[i] = s[i];
    }
    return dst;
}
