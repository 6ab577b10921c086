// ndx_util.h - what the NDX suites add to index_util.h: numeric and date
// keys as the model and the layout reader see them.
#pragma once

#include "index_util.h"

#include <cmath>

namespace ndxt {

// The stored form of a number: a little-endian IEEE double, and back.
inline std::string dbl(double v) {
    uint64_t bits = 0;
    std::memcpy(&bits, &v, 8);
    std::string k(8, '\0');
    for (int i = 0; i < 8; i++) k[static_cast<size_t>(i)] = static_cast<char>(bits >> (8 * i));
    return k;
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

// Entries in NDX order: by key, numbers (stored form) in numeric order,
// equal keys by record; unique, the first of each key given.
inline std::vector<idx::KeyLine> inOrder(const std::vector<idx::KeyLine> &in, bool numeric, bool unique) {
    idx::Model m(unique, true);
    for (const idx::KeyLine &l : in) m.add(numeric ? ordered(val(l.key)) : l.key, l.rec);
    std::vector<idx::KeyLine> out = m.entries();
    if (numeric)
        for (idx::KeyLine &l : out) l.key = dbl(unordered(l.key));
    return out;
}

inline int32_t julian(int y, int m, int d) {
    const int a = (14 - m) / 12, yy = y + 4800 - a, mm = m + 12 * a - 3;
    return d + (153 * mm + 2) / 5 + 365 * yy + yy / 4 - yy / 100 + yy / 400 - 32045;
}

}  // namespace ndxt
