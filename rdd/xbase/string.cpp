// string.cpp - ASCII-only case helpers. Field names and key texts are
// compared the way xBase programs do, ignoring only the letters a-z/A-Z:
// the C library's locale must not change what matches.
#include "core.h"

char *_DBstrupr(char *s) {
    for (char *p = s; *p; p++)
        if (*p >= 'a' && *p <= 'z') *p = static_cast<char>(*p - 'a' + 'A');
    return s;
}

char *_DBstrlwr(char *s) {
    for (char *p = s; *p; p++)
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p - 'A' + 'a');
    return s;
}

namespace {
int _upper(unsigned char c) { return (c >= 'a' && c <= 'z') ? c - 'a' + 'A' : c; }
}  // namespace

int _DBstricmp(const char *a, const char *b) {
    // Walks until both strings have ended, so "NAME" and "NAMEX" differ.
    for (;; a++, b++) {
        const int ca = _upper(static_cast<unsigned char>(*a));
        const int cb = _upper(static_cast<unsigned char>(*b));
        if (ca != cb) return ca - cb;
        if (ca == 0) return 0;
    }
}
