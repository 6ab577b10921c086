// ndx_util.h - what the NDX suites share: walks, the model check, numeric
// and date keys as text for the model, and the second-opinion writer
// (Debian's xbase64, run as a helper program).
#pragma once

#include "index_util.h"

#include <cmath>

namespace ndxt {

using idx::cs;
using idx::KeyLine;

// Keys of a numeric index are 8 bytes that may hold NULs: kept as strings
// of exactly k bytes.
inline std::string keyOf(const char *key, int k) { return std::string(key, static_cast<size_t>(k)); }

inline std::vector<KeyLine> walk(short h, int k, bool forward = true) {
    std::vector<KeyLine> out;
    char key[512];
    int32_t rec = 0;
    int rc = forward ? DBd3GoFirstKey(h, key, &rec) : DBd3GoLastKey(h, key, &rec);
    for (; rc == 0; rc = forward ? DBd3GoNextKey(h, key, &rec) : DBd3GoPreviousKey(h, key, &rec))
        out.push_back({rec, keyOf(key, k)});
    EXPECT_TRUE(rc == DBW_NOMOREKEYS || rc == DBW_EMPTY) << rc;
    if (!forward) std::reverse(out.begin(), out.end());
    return out;
}

inline ::testing::AssertionResult same(const std::vector<KeyLine> &got, const std::vector<KeyLine> &want) {
    if (got.size() != want.size())
        return ::testing::AssertionFailure() << got.size() << " entries, expected " << want.size();
    for (size_t i = 0; i < got.size(); i++)
        if (got[i].rec != want[i].rec || got[i].key != want[i].key)
            return ::testing::AssertionFailure() << "entry " << i << ": record " << got[i].rec << " key '" << got[i].key
                                                 << "', expected " << want[i].rec << " '" << want[i].key << "'";
    return ::testing::AssertionSuccess();
}

inline std::string dbl(double v) {
    char k[9];
    // The stored form: little-endian IEEE double.
    uint64_t bits = 0;
    std::memcpy(&bits, &v, 8);
    for (int i = 0; i < 8; i++) k[i] = static_cast<char>(bits >> (8 * i));
    return std::string(k, 8);
}
inline double val(const std::string &k) {
    uint64_t bits = 0;
    for (int i = 7; i >= 0; i--) bits = (bits << 8) | static_cast<uint8_t>(k[static_cast<size_t>(i)]);
    double v;
    std::memcpy(&v, &bits, 8);
    return v;
}

// Model order for numeric keys is numeric order: the model sorts strings,
// so numbers are kept there in a byte-orderable form and turned back.
inline std::string ordered(double v) {
    uint64_t b = 0;
    std::memcpy(&b, &v, 8);
    b = (b >> 63) ? ~b : b | (1ull << 63);
    std::string s(8, '\0');
    for (int i = 0; i < 8; i++) s[static_cast<size_t>(i)] = static_cast<char>(b >> (56 - 8 * i));
    return s;
}
inline double unordered(const std::string &s) {
    uint64_t b = 0;
    for (char c : s) b = (b << 8) | static_cast<uint8_t>(c);
    b = (b >> 63) ? b & ~(1ull << 63) : ~b;
    double v;
    std::memcpy(&v, &b, 8);
    return v;
}

inline int32_t julian(int y, int m, int d) {
    const int a = (14 - m) / 12, yy = y + 4800 - a, mm = m + 12 * a - 3;
    return d + (153 * mm + 2) / 5 + 365 * yy + yy / 4 - yy / 100 + yy / 400 - 32045;
}

}  // namespace ndxt
