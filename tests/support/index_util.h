// index_util.h - what the index suites share: the keys dumps of the fixture
// indexes, fixture tables made openable, and an ordered model of an index
// that random adds and deletes are checked against.
#pragma once

#include "xbtest.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace idx {

inline char *cs(const char *s) { return const_cast<char *>(s); }

// One line of a keys dump: "recno|key value".
struct KeyLine {
    int32_t rec;
    std::string key;
};
// A fixture's keys dump: "# tag NAME expr EXPR [unique] count N" and the keys.
struct KeyDump {
    std::string tag, expr;
    bool unique = false;
    size_t count = 0;
    std::vector<KeyLine> keys;
};

inline KeyDump readDump(const std::string &file) {
    KeyDump d;
    std::vector<std::string> lines = xbt::readLines(xbt::fixturePath(file));
    if (lines.empty()) return d;
    char tag[64] = {}, expr[256] = {};
    const std::string &h = lines[0];
    std::sscanf(h.c_str(), "# tag %63s expr %255s", tag, expr);
    d.tag = tag;
    d.expr = expr;
    d.unique = h.find(" unique ") != std::string::npos;
    d.count = static_cast<size_t>(std::atol(h.substr(h.rfind(' ') + 1).c_str()));
    for (size_t i = 1; i < lines.size(); i++) {
        const size_t bar = lines[i].find('|');
        d.keys.push_back({static_cast<int32_t>(std::atol(lines[i].substr(0, bar).c_str())), lines[i].substr(bar + 1)});
    }
    return d;
}

// Copy a fixture table and set its year byte to 26 so that it opens.
inline std::string openableTable(xbt::LibTest &t, const std::string &path, const std::string &name) {
    std::vector<uint8_t> b = xbt::readFile(xbt::fixturePath(name));
    b[1] = 26;
    xbt::writeFile(path, b);
    return path;
}

// The entries an index should hold, in index order: by key bytes, and for
// equal keys in the order given by `seq` (ascending record for bulk builds,
// the order of adding for non-unique adds).
class Model {
public:
    explicit Model(bool unique) : unique_(unique) {}
    // false when the entry is there already (unique: the key).
    bool add(const std::string &key, int32_t rec) {
        if (unique_) {
            for (auto it = m_.lower_bound({key, 0}); it != m_.end() && it->first.first == key; ++it) return false;
        } else if (pos_.count({key, rec})) {
            return false;
        }
        m_[{key, ++seq_}] = rec;
        pos_[{key, rec}] = seq_;
        return true;
    }
    // Removes the entry (unique: the key whatever its record); false when
    // absent.
    bool del(const std::string &key, int32_t rec) {
        if (unique_) {
            auto it = m_.lower_bound({key, 0});
            if (it == m_.end() || it->first.first != key) return false;
            pos_.erase({key, it->second});
            m_.erase(it);
            return true;
        }
        auto p = pos_.find({key, rec});
        if (p == pos_.end()) return false;
        m_.erase({key, p->second});
        pos_.erase(p);
        return true;
    }
    std::vector<KeyLine> entries() const {
        std::vector<KeyLine> out;
        for (const auto &e : m_) out.push_back({e.second, e.first.first});
        return out;
    }
    size_t size() const { return m_.size(); }
    bool empty() const { return m_.empty(); }
    // Some entry, picked by n.
    KeyLine pick(size_t n) const {
        auto it = m_.begin();
        std::advance(it, static_cast<long>(n % m_.size()));
        return {it->second, it->first.first};
    }

private:
    bool unique_;
    int64_t seq_ = 0;
    std::map<std::pair<std::string, int64_t>, int32_t> m_;
    std::map<std::pair<std::string, int32_t>, int64_t> pos_;
};

// A small deterministic generator for the random suites.
struct Rng {
    uint64_t s;
    explicit Rng(uint64_t seed) : s(seed * 2654435761u + 1) {}
    uint32_t next() {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return static_cast<uint32_t>(s >> 11);
    }
    uint32_t below(uint32_t n) { return next() % n; }
};

}  // namespace idx
