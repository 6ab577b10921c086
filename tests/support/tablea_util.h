// tablea_util.h - helpers of the table suites: DBF images built byte by
// byte (so that damaged headers can be made on purpose), field lists for
// DBCreateFile, and the reader of dbfread_dump.py's output.
#pragma once

#include "xbtest.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace tablea {

inline void put16(std::vector<uint8_t> &b, size_t at, unsigned v) {
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}
inline void put32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; i++) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}
inline unsigned get16(const std::vector<uint8_t> &b, size_t at) { return b[at] | (b[at + 1] << 8); }
inline uint32_t get32(const std::vector<uint8_t> &b, size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (static_cast<uint32_t>(b[at + 3]) << 24);
}

// A DBF file described field by field; bytes() lays it out. Header length,
// record length and count follow from the fields and records unless set.
struct RawDbf {
    struct Field {
        std::string name;
        uint8_t type;
        uint8_t w;
        uint8_t d;
    };
    uint8_t version = 0x03;
    uint8_t y = 24, m = 5, d = 17;
    uint8_t mdx = 0;
    int hlen = -1;          // header length; -1: 32 * (fields + 1) + 1
    int rlen = -1;          // record length; -1: 1 + sum of lengths
    int64_t count = kAuto;  // record count; kAuto: the records given
    static constexpr int64_t kAuto = INT64_MIN;
    bool endMark = true;
    std::vector<Field> fields;
    std::vector<std::string> records;  // each: deletion byte + field bytes

    RawDbf &field(const std::string &n, char t, int w, int dec = 0) {
        fields.push_back({n, static_cast<uint8_t>(t), static_cast<uint8_t>(w), static_cast<uint8_t>(dec)});
        return *this;
    }
    int fieldLen(const Field &f) const { return f.type == 'C' ? f.w + 256 * f.d : f.w; }
    int recordLength() const {
        if (rlen >= 0) return rlen;
        int r = 1;
        for (const Field &f : fields) r += fieldLen(f);
        return r;
    }
    int headerLength() const { return hlen >= 0 ? hlen : 32 * static_cast<int>(fields.size() + 1) + 1; }
    std::vector<uint8_t> bytes() const {
        const int h = headerLength();
        std::vector<uint8_t> b(static_cast<size_t>(h > 32 ? h : 32), 0);
        b[0] = version;
        b[1] = y;
        b[2] = m;
        b[3] = d;
        put32(b, 4, static_cast<uint32_t>(count != kAuto ? count : static_cast<int64_t>(records.size())));
        put16(b, 8, static_cast<unsigned>(h));
        put16(b, 10, static_cast<unsigned>(recordLength()));
        b[28] = mdx;
        size_t at = 32;
        for (const Field &f : fields) {
            if (at + 32 > b.size()) break;
            std::memcpy(&b[at], f.name.data(), f.name.size() < 11 ? f.name.size() : 11);
            b[at + 11] = f.type;
            b[at + 16] = f.w;
            b[at + 17] = f.d;
            at += 32;
        }
        if (at < b.size()) b[at] = 0x0D;
        for (const std::string &r : records) b.insert(b.end(), r.begin(), r.end());
        if (endMark) b.push_back(0x1A);
        return b;
    }
    void write(const std::string &path) const { xbt::writeFile(path, bytes()); }
};

inline DBFIELD fld(const char *name, int type, int len = 0, int dec = 0) {
    DBFIELD f{};
    std::strncpy(f.name, name, sizeof f.name - 1);
    f.type = type;
    f.len = len;
    f.decpl = dec;
    return f;
}

// DBCreateFile over a field list; the list is rewritten as the call does.
inline int create(const std::string &path, std::vector<DBFIELD> &fields, int mode) {
    return DBCreateFile(const_cast<char *>(path.c_str()), static_cast<int>(fields.size()), fields.data(), mode);
}
inline int create(const std::string &path, std::vector<DBFIELD> &&fields, int mode) {
    return create(path, fields, mode);
}

inline int open(int *h, const std::string &path, int mode) {
    return DBOpenFile(h, const_cast<char *>(path.c_str()), mode);
}

// What dbfread_dump.py printed about one table.
struct Dump {
    struct Rec {
        int number = 0;
        bool deleted = false;
        std::vector<std::string> values;  // JSON scalars
    };
    std::string version;
    long count = -1, hlen = -1, rlen = -1;
    std::vector<std::vector<std::string>> fields;  // name, type hex, length, decimals
    std::vector<Rec> records;
    std::string check;
    std::string raw;
};

inline std::vector<std::string> split(const std::string &s, char sep) {
    std::vector<std::string> out;
    std::string cur;
    for (char c : s) {
        if (c == sep) {
            out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    out.push_back(cur);
    return out;
}

inline Dump dbfread(const std::string &path) {
    Dump d;
    int status = -1;
    d.raw = xbt::run("/usr/bin/python3 " XB_SOURCE_DIR "/tests/support/dbfread_dump.py '" + path + "' 2>&1", &status);
    if (status != 0) {
        d.check = "dbfread failed: " + d.raw;
        return d;
    }
    std::istringstream in(d.raw);
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> p = split(line, '\t');
        if (p[0] == "header" && p.size() == 6) {
            d.version = p[1];
            d.count = std::stol(p[2]);
            d.hlen = std::stol(p[3]);
            d.rlen = std::stol(p[4]);
        } else if (p[0] == "field") {
            d.fields.push_back(std::vector<std::string>(p.begin() + 1, p.end()));
        } else if (p[0] == "record" && p.size() >= 3) {
            Dump::Rec r;
            r.number = std::stoi(p[1]);
            r.deleted = p[2] == "1";
            r.values.assign(p.begin() + 3, p.end());
            d.records.push_back(r);
        } else if (p[0] == "check") {
            d.check = p.size() > 1 ? p[1] : "";
        }
    }
    return d;
}

// A JSON string as printed by json.dumps for plain ASCII text.
inline std::string jstr(const std::string &s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

}  // namespace tablea
