// tablea_util.h - helpers of the table suites: DBF images built byte by byte
// (damaged ones on purpose), DBCreateFile field lists, and python3-dbfread's
// view of a file (tests/support/dbfread_dump.py).
#pragma once

#include "xbtest.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace tablea {

inline char *cs(const char *s) { return const_cast<char *>(s); }
inline std::string trim(std::string s) { return s.erase(s.find_last_not_of(' ') + 1); }
inline std::string ltrim(const std::string &s) { return s.substr(std::min(s.size(), s.find_first_not_of(' '))); }
inline std::vector<std::string> split(const std::string &s, char sep) {
    std::vector<std::string> out(1);
    for (char c : s) c == sep ? out.emplace_back() : out.back() += c;
    return out;
}

// A DBF image; header length, record length and count follow from the
// fields and records unless set.
struct RawDbf {
    struct Field { std::string name; uint8_t type, w, d; };
    uint8_t version = 0x03, y = 24, m = 5, d = 17, mdx = 0;
    int hlen = -1, rlen = -1;
    int64_t count = INT64_MIN;
    bool endMark = true;
    std::vector<Field> fields;
    std::vector<std::string> records;  // deletion byte + field bytes, one or more records each

    RawDbf &field(const std::string &n, int t, int w, int dec = 0) {
        fields.push_back({n, static_cast<uint8_t>(t), static_cast<uint8_t>(w), static_cast<uint8_t>(dec)});
        return *this;
    }
    std::vector<uint8_t> bytes() const {
        int r = 1;
        for (const Field &f : fields) r += f.type == 'C' ? f.w + 256 * f.d : f.w;
        const int h = hlen >= 0 ? hlen : 32 * static_cast<int>(fields.size() + 1) + 1;
        std::vector<uint8_t> b(static_cast<size_t>(std::max(h, 32)), 0);
        auto put = [&b](size_t at, int64_t v, int n) {
            for (int i = 0; i < n; i++) b[at + i] = static_cast<uint8_t>(v >> 8 * i);
        };
        b[0] = version, b[1] = y, b[2] = m, b[3] = d, b[28] = mdx;
        put(4, count != INT64_MIN ? count : static_cast<int64_t>(records.size()), 4);
        put(8, h, 2);
        put(10, rlen >= 0 ? rlen : r, 2);
        size_t at = 32;
        for (size_t i = 0; i < fields.size() && at + 32 <= b.size(); i++, at += 32) {
            std::memcpy(&b[at], fields[i].name.data(), std::min<size_t>(fields[i].name.size(), 11));
            b[at + 11] = fields[i].type, b[at + 16] = fields[i].w, b[at + 17] = fields[i].d;
        }
        if (at < b.size()) b[at] = 0x0D;
        for (const std::string &s : records) b.insert(b.end(), s.begin(), s.end());
        if (endMark) b.push_back(0x1A);
        return b;
    }
    void write(const std::string &path) const { xbt::writeFile(path, bytes()); }
};

inline DBFIELD fld(const char *name, int type, int len = 0, int dec = 0) {
    DBFIELD f{{}, type, len, dec};
    std::strncpy(f.name, name, sizeof f.name - 1);
    return f;
}
// DBCreateFile over a field list, which it rewrites as callers see it.
template <class Fields>
int create(const std::string &path, Fields &&f, int mode) {
    return DBCreateFile(cs(path.c_str()), static_cast<int>(f.size()), f.data(), mode);
}
inline int open(int *h, const std::string &path, int mode) { return DBOpenFile(h, cs(path.c_str()), mode); }

// dbfread_dump.py's lines split at tabs (with the memos of field `memo`);
// the run must end with "check ok".
inline std::vector<std::vector<std::string>> dbfread(const std::string &path, const std::string &memo = "") {
    int st = -1;
    const std::string out = xbt::run(
        "/usr/bin/python3 " XB_SOURCE_DIR "/tests/support/dbfread_dump.py '" + path + "' " + memo + " 2>&1", &st);
    std::vector<std::vector<std::string>> lines;
    std::istringstream in(out);
    for (std::string l; std::getline(in, l);) lines.push_back(split(l, '\t'));
    EXPECT_TRUE(st == 0 && !lines.empty() && lines.back() == std::vector<std::string>({"check", "ok"})) << out;
    return lines;
}

}  // namespace tablea
