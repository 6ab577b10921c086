// string.cpp - ASCII-only case helpers, and the parts of file names. Field
// names and key texts are compared the way xBase programs do, ignoring only
// the letters a-z/A-Z: the C library's locale must not change what matches.
#include "core.h"

#include <cstdio>

size_t _DBDirLength(const char *path) {
    size_t cut = 0;
    for (size_t i = 0; path[i]; i++)
        if (path[i] == '/' || path[i] == '\\' || path[i] == ':') cut = i + 1;
    return cut;
}

bool _DBSiblingName(char *out, size_t cap, const char *path, const char *ext) {
    const size_t dir = _DBDirLength(path);
    const char *dot = std::strrchr(path + dir, '.');
    const size_t stem = dot ? static_cast<size_t>(dot - path) : std::strlen(path);
    const int n = std::snprintf(out, cap, "%.*s%s", static_cast<int>(stem), path, ext);
    return n >= 0 && static_cast<size_t>(n) < cap;
}

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
