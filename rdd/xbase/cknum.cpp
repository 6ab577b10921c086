// cknum.cpp - numbers in NTX key form and back.
//
// A numeric key is the number's fixed-point text, k characters wide with
// key_dec decimals. A negative number has every character but the point
// replaced by 92 - character, so that digits 0..9 become 44 down to 35:
// all negatives then sort below "0" and larger magnitudes below smaller
// ones, and plain byte order is numeric order. (The key maker of
// ckmake.cpp writes negatives as plain text instead; see DBclMakeKey.)
#include "ntx.h"

#include <cstdio>
#include <cstdlib>

namespace {
constexpr DBSite here{"rdd/xbase/cknum"};
constexpr int kComplement = 92;
}  // namespace

extern "C" DBAPI int DBclDoubleToKey(int handle, char *key, double v) {
    if (_DBclLockIndexStruc(handle) != 0) return DBerrno;
    if (!key) return here.fail(DBE_NULLPARAM, __LINE__);
    const int k = DBcli->h.k, dec = DBcli->h.key_dec;
    // Sign, 18 integer digits, the point at 19, 17 decimals. The key is the
    // k characters that end with the last integer digit, moved right past
    // the point and the first key_dec decimals when there are decimals:
    // extra decimals are cut, not rounded.
    char text[512] = {};
    std::snprintf(text, sizeof text, "%+037.17f", v);
    int start = 19 - k + (dec != 0 ? dec + 1 : 0);
    if (start < 0) start = 0;
    for (int i = 0; i < k; i++) {
        char c = text[start + i];
        if (c == '\0') c = '0';
        key[i] = text[0] == '-' && c != '.' ? static_cast<char>(kComplement - c) : c;
    }
    key[k] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBclKeyToDouble(double *v, char *key) {
    if (!v || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    char text[260];
    const size_t n = strnlen(key, sizeof text - 2);
    const bool negative = static_cast<unsigned char>(key[0]) < '0';
    text[0] = negative ? '-' : '+';
    for (size_t i = 0; i < n; i++)
        // The point is its own complement (92 - 46 = 46).
        text[i + 1] = negative ? static_cast<char>(kComplement - key[i]) : key[i];
    text[n + 1] = '\0';
    *v = std::atof(text);
    return _DBStatus(0);
}
