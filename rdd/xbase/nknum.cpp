// nknum.cpp - numbers in NDX key form and back, and the order of keys.
//
// A numeric key is the number as an IEEE double, 8 bytes little-endian, as
// dBASE III stores it; keys compare as numbers. For the bulk build's byte-
// wise sorter a double is turned into 8 bytes whose unsigned order is its
// numeric order: the sign bit flipped for positives, every bit flipped for
// negatives, most significant byte first.
#include "ndx.h"

namespace {
constexpr DBSite here{"rdd/xbase/nknum"};

uint64_t _bits(const char *le) {
    uint64_t v = 0;
    for (int i = 7; i >= 0; i--) v = (v << 8) | static_cast<uint8_t>(le[i]);
    // -0 and +0 are one number: one key.
    return v == 0x8000000000000000ull ? 0 : v;
}

uint64_t _order(uint64_t v) { return (v & 0x8000000000000000ull) ? ~v : v | 0x8000000000000000ull; }
}  // namespace

int _DBd3Compare(const DBNDXHDR &h, const char *a, const char *b, size_t len) {
    if (h.type == 0) return std::memcmp(a, b, len);
    // Through the order transform rather than as doubles: a NaN in a damaged
    // file then still has one place, and the order stays total.
    const uint64_t x = _order(_bits(a)), y = _order(_bits(b));
    return x < y ? -1 : x > y ? 1 : 0;
}

void _DBd3OrderBytes(char *out, const char *le) {
    const uint64_t v = _order(_bits(le));
    for (int i = 0; i < 8; i++) out[i] = static_cast<char>(v >> (56 - 8 * i));
}

void _DBd3FromOrderBytes(char *le, const char *ord) {
    uint64_t v = 0;
    for (int i = 0; i < 8; i++) v = (v << 8) | static_cast<uint8_t>(ord[i]);
    v = (v & 0x8000000000000000ull) ? v & ~0x8000000000000000ull : ~v;
    for (int i = 0; i < 8; i++) le[i] = static_cast<char>(v >> (8 * i));
}

void _DBd3PutDouble(char *key, double v) {
    uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    if (bits == 0x8000000000000000ull) bits = 0;
    for (int i = 0; i < 8; i++) key[i] = static_cast<char>(bits >> (8 * i));
}

double _DBd3GetDouble(const char *key) {
    uint64_t bits = 0;
    for (int i = 7; i >= 0; i--) bits = (bits << 8) | static_cast<uint8_t>(key[i]);
    double v = 0;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

extern "C" DBAPI int DBd3DoubleToKey(int handle, char *key, double v) {
    if (_DBd3LockIndexStruc(handle) != 0) return DBerrno;
    if (!key) return here.fail(DBE_NULLPARAM, __LINE__);
    if (DBd3i->h.type != 1) return here.fail(DBE_KEYTYPE, __LINE__);
    _DBd3PutDouble(key, v);
    key[8] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBd3KeyToDouble(double *v, char *key) {
    if (!v || !key) return here.fail(DBE_NULLPARAM, __LINE__);
    *v = _DBd3GetDouble(key);
    return _DBStatus(0);
}
