// endian.cpp - byte-order swaps for the big-endian fields of index pages.
#include "core.h"

int16_t _DBSwapBytesShort(int16_t v) {
    const auto u = static_cast<uint16_t>(v);
    return static_cast<int16_t>(static_cast<uint16_t>((u << 8) | (u >> 8)));
}

int32_t _DBSwapBytesLong(int32_t v) {
    const auto u = static_cast<uint32_t>(v);
    return static_cast<int32_t>((u >> 24) | ((u >> 8) & 0xFF00u) | ((u << 8) & 0xFF0000u) | (u << 24));
}

namespace {
void _reverse(void *dst, const void *src, size_t n) {
    unsigned char tmp[8];
    std::memcpy(tmp, src, n);
    auto *d = static_cast<unsigned char *>(dst);
    for (size_t i = 0; i < n; i++) d[i] = tmp[n - 1 - i];
}
}  // namespace

void _DBSwapBytesFloat(void *dst, const void *src) { _reverse(dst, src, 4); }
void _DBSwapBytesDouble(void *dst, const void *src) { _reverse(dst, src, 8); }
