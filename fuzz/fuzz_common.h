// fuzz_common.h - what the mutation drivers share: a seeded generator, the
// fixture loader and the check that a status is one the library can give.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <string>
#include <vector>

extern "C" {
#include "xbfiles.h"
}

namespace fz {

// A small deterministic generator, so a failing seed replays exactly.
struct Rand {
    uint64_t s;
    explicit Rand(uint64_t seed) : s(seed * 0x9E3779B97F4A7C15ull + 1) {}
    uint32_t next() {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return static_cast<uint32_t>(s >> 11);
    }
    uint32_t below(uint32_t n) { return n ? next() % n : 0; }
};

inline std::vector<unsigned char> load(const std::string &path) {
    std::vector<unsigned char> v;
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return v;
    for (int c; (c = std::fgetc(f)) != EOF;) v.push_back(static_cast<unsigned char>(c));
    std::fclose(f);
    return v;
}

inline void save(const std::string &path, const std::vector<unsigned char> &v) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return;
    std::fwrite(v.data(), 1, v.size(), f);
    std::fclose(f);
}

// Overwrite a few bytes near the front (where headers live) and sometimes
// cut the file short.
inline void mutate(std::vector<unsigned char> &v, Rand &r, size_t front) {
    if (v.empty()) return;
    const size_t lim = v.size() < front ? v.size() : front;
    for (uint32_t k = 1 + r.below(12); k > 0; k--) v[r.below(static_cast<uint32_t>(lim))] = static_cast<unsigned char>(r.next());
    if (r.below(4) == 0) v.resize(r.below(static_cast<uint32_t>(v.size())));
}

// Every status is 0, a warning, an error, or the system-error form.
inline bool known(int rc) {
    return rc == 0 || rc == 1 || (rc >= 201 && rc <= 212) || (rc <= -201 && rc >= -261) ||
           (static_cast<uint32_t>(rc) & 0xC0000000u) == 0xC0000000u;
}

inline int report(int bad, const char *what) {
    std::printf("%s: %s\n", what, bad ? "unexpected statuses" : "ok");
    return bad ? 1 : 0;
}

}  // namespace fz
