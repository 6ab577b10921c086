// ndx_util.h - what the NDX suites add to index_util.h: numeric and date
// keys as the model and the layout reader see them, the table of ours
// that both suites index, and a reader of NDX files by the layout.
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

// Row i of the table: NAME C(20) (1000 values, each name every 1000th
// row), AMOUNT N(10,2), HIRED D (every 97th blank), CODE C(10) (unique,
// ascending over the first 161 rows).
struct Row {
    std::string name, code, hired;
    double amount;
};
inline Row row(int i) {
    Row r;
    char b[32];
    std::snprintf(b, sizeof b, "NAME%05d", (i * 7919) % 1000);
    r.name = b;
    r.name.resize(20, ' ');
    std::snprintf(b, sizeof b, "C%07d", (i * 31) % 5003);
    r.code = b;
    r.code.resize(10, ' ');
    r.amount = ((i * 37) % 211 - 100) * 1.25;
    if (i % 97 == 0) {
        r.hired = std::string(8, ' ');
    } else {
        std::snprintf(b, sizeof b, "%04d%02d%02d", 1950 + i % 70, 1 + i % 12, 1 + (i * 7) % 28);
        r.hired = b;
    }
    return r;
}
// Rows from..to appended to the open table t.
inline void append(int t, int from, int to) {
    char *buf = nullptr;
    ASSERT_EQ(DBSetBufferAddress(t, &buf), 0);
    for (int i = from; i <= to; i++) {
        const Row r = row(i);
        char line[64];
        std::snprintf(line, sizeof line, " %s%10.2f%s%s", r.name.c_str(), r.amount, r.hired.c_str(), r.code.c_str());
        std::memcpy(buf, line, 49);
        int32_t rec = 0;
        ASSERT_EQ(DBPutRecord(t, &rec, DB_APPEND), 0);
    }
    ASSERT_EQ(DBFlushFile(t), 0);
}
// The table at p with rows 1..rows, open in *t.
inline void makeTable(const std::string &p, int *t, int rows) {
    DBFIELD f[4] = {{"NAME", 'C', 20, 0}, {"AMOUNT", 'N', 10, 2}, {"HIRED", 'D', 8, 0}, {"CODE", 'C', 10, 0}};
    ASSERT_EQ(DBCreateFile(idx::cs(p.c_str()), 4, f, 1), 0);
    ASSERT_EQ(DBOpenFile(t, idx::cs(p.c_str()), 1), 0);
    append(*t, 1, rows);
}
// What an index over the first rows holds, in NDX order: kind 'C' NAME,
// 'K' CODE, 'N' AMOUNT, 'D' HIRED as a Julian day, 'T' HIRED as text (how
// xbase64 indexes a date field).
inline std::vector<idx::KeyLine> tableKeys(int rows, char kind, bool unique) {
    std::vector<idx::KeyLine> keys;
    for (int i = 1; i <= rows; i++) {
        const Row r = row(i);
        auto part = [&](size_t at, size_t n) { return std::atoi(r.hired.substr(at, n).c_str()); };
        const double day = r.hired[0] == ' ' ? 0 : julian(part(0, 4), part(4, 2), part(6, 2));
        const std::string text = kind == 'C' ? r.name : kind == 'K' ? r.code : r.hired;
        keys.push_back({i, kind == 'N' || kind == 'D' ? dbl(kind == 'D' ? day : r.amount) : text});
    }
    return inOrder(keys, kind == 'N' || kind == 'D', unique);
}

// An independent reading of an NDX file by the documented layout. Fails the
// test at the first byte that disagrees; returns the leaf entries left to
// right, which the callers compare with the entries in key order.
struct Layout {
    std::vector<uint8_t> b;
    int k = 0, m = 0, il = 0;
    int leafDepth = -1;
    long minFill = 1 << 30;
    uint32_t le32(size_t at) const { return idx::le32(b, at); }
    int le16(size_t at) const { return idx::le16(b, at); }
    // Greatest key of the subtree at block, after checking it.
    std::string node(uint32_t block, int depth, bool root, std::vector<idx::KeyLine> &out) {
        EXPECT_GT(block, 0u);
        EXPECT_LT(static_cast<size_t>(block) * 512 + 512, b.size() + 1);
        if (block == 0 || static_cast<size_t>(block) * 512 + 512 > b.size() || depth > 40) return {};
        const size_t at = static_cast<size_t>(block) * 512;
        const uint32_t n = le32(at);
        const bool leaf = le32(at + 4) == 0;
        if (!root) minFill = std::min<long>(minFill, leaf ? n : n + 1);
        EXPECT_LE(n, static_cast<uint32_t>(m)) << "block " << block;
        size_t used = 4 + n * il + (leaf ? 0 : 4);
        for (size_t i = used; i < 512; i++) EXPECT_EQ(b[at + i], 0) << "block " << block << " unused byte " << i;
        std::string top;
        for (uint32_t i = 0; i < n + (leaf ? 0 : 1); i++) {
            const size_t it = at + 4 + i * il;
            const std::string key(reinterpret_cast<const char *>(&b[it + 8]), static_cast<size_t>(k));
            if (i < n)
                for (int p = 8 + k; p < il; p++)
                    EXPECT_EQ(b[it + static_cast<size_t>(p)], 0) << "block " << block << " item " << i << " pad";
            if (leaf) {
                EXPECT_EQ(le32(it), 0u) << "block " << block;
                out.push_back({static_cast<int32_t>(le32(it + 4)), key});
                top = key;
                continue;
            }
            EXPECT_NE(le32(it), 0u) << "block " << block << " child " << i;
            if (i < n) EXPECT_EQ(le32(it + 4), 0u) << "block " << block << " record of interior item " << i;
            const std::string sub = node(le32(it), depth + 1, false, out);
            // The interior key is the greatest key of its child's subtree.
            if (i < n) EXPECT_EQ(sub, key) << "block " << block << " interior key " << i;
            top = sub;
        }
        if (leaf) {
            if (leafDepth < 0) leafDepth = depth;
            EXPECT_EQ(depth, leafDepth) << "block " << block;
        }
        return top;
    }
    std::vector<idx::KeyLine> read(const std::string &f) {
        b = xbt::readFile(f);
        std::vector<idx::KeyLine> out;
        EXPECT_GE(b.size(), 1024u);
        if (b.size() < 1024) return out;
        k = le16(12), m = le16(14), il = le16(18);
        EXPECT_EQ(il, (k + 8 + 3) / 4 * 4);
        EXPECT_EQ(m, (512 - 8) / il);
        EXPECT_EQ(static_cast<size_t>(le32(4)) * 512, b.size()) << "block count";
        for (size_t i : {8, 9, 10, 11, 20, 21, 22}) EXPECT_EQ(b[i], 0) << "header byte " << i;
        const size_t elen = std::strlen(reinterpret_cast<const char *>(&b[24]));
        for (size_t i = 24 + elen; i < 512; i++) EXPECT_EQ(b[i], 0) << "header byte " << i;
        node(le32(0), 0, true, out);
        return out;
    }
};

}  // namespace ndxt
