// oknum.cpp - numbers in CDX key form and back.
//
// A numeric key is the IEEE-754 double in big-endian byte order with the
// sign bit set for a positive number, and every bit inverted for a
// negative one: unsigned byte order is then numeric order (and -0.0 sorts
// just below 0.0).
#include "cdx.h"

#include <bit>

namespace {
constexpr DBSite here{"rdd/xbase/oknum"};
}

void _DBfpDoubleToKey(char *key, double v) {
    uint64_t u = std::bit_cast<uint64_t>(v);
    if (u >> 63) u = ~u;
    else u |= 1ull << 63;
    for (int i = 0; i < 8; i++) key[i] = static_cast<char>(u >> (56 - 8 * i));
}

double _DBfpKeyToDouble(const char *key) {
    uint64_t u = 0;
    for (int i = 0; i < 8; i++) u = (u << 8) | static_cast<uint8_t>(key[i]);
    if (u >> 63) u &= ~(1ull << 63);
    else u = ~u;
    return std::bit_cast<double>(u);
}

extern "C" DBAPI int DBfpDoubleToKey(char *key, double v) {
    if (!key) return here.fail(DBE_NULLPARAM, __LINE__);
    _DBfpDoubleToKey(key, v);
    key[8] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBfpKeyToDouble(double *v, char *key) {
    if (!v || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    *v = _DBfpKeyToDouble(key);
    return _DBStatus(0);
}

extern "C" DBAPI int DBfbDoubleToKey(char *key, double v) { return DBfpDoubleToKey(key, v); }
extern "C" DBAPI int DBfbKeyToDouble(double *v, char *key) { return DBfpKeyToDouble(v, key); }
