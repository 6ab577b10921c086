// index_util.h - what the index suites share: the keys dumps of the fixture
// indexes, fixture tables made openable, an ordered model of an index that
// random adds and deletes are checked against, and the NTX and NDX families
// as one table of calls, with walks and checks over it.
#pragma once

#include "xbtest.h"

#include <algorithm>
#include <cstdint>
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
    std::string expr;
    bool unique = false;
    std::vector<KeyLine> keys;
};

inline KeyDump readDump(const std::string &file) {
    KeyDump d;
    std::vector<std::string> lines = xbt::readLines(xbt::fixturePath(file));
    if (lines.empty()) return d;
    char tag[64] = {}, expr[256] = {};
    const std::string &h = lines[0];
    std::sscanf(h.c_str(), "# tag %63s expr %255s", tag, expr);
    d.expr = expr;
    d.unique = h.find(" unique ") != std::string::npos;
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
// equal keys by record (CDX, and bulk builds) or in the order of adding
// (non-unique NTX and NDX adds).
class Model {
public:
    explicit Model(bool unique, bool byRecord = false) : unique_(unique), byRecord_(byRecord) {}
    // The entry is there (unique: the key, whatever its record).
    bool has(const std::string &key, int32_t rec) const {
        auto it = m_.lower_bound({key, INT64_MIN});
        return unique_ ? it != m_.end() && it->first.first == key : pos_.count({key, rec}) != 0;
    }
    // false when the entry is there already.
    bool add(const std::string &key, int32_t rec) {
        if (has(key, rec)) return false;
        const int64_t at = byRecord_ ? static_cast<int64_t>(static_cast<uint32_t>(rec)) : ++seq_;
        m_[{key, at}] = rec;
        pos_[{key, rec}] = at;
        return true;
    }
    // Removes the entry (unique: the key whatever its record); false when
    // absent.
    bool del(const std::string &key, int32_t rec) {
        if (unique_) {
            auto it = m_.lower_bound({key, INT64_MIN});
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
    bool unique_, byRecord_;
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

// The NTX and NDX families have one call shape (short handles, the same
// verbs, the same statuses); a test that holds for both takes a Fam.
struct Info {
    int keylen, keytype, lockt;
    DBOPENFLAGS flags;
    std::string expr;
};
using Move = int (*)(int, char *, int32_t *);
struct Fam {
    const char *name, *ext;
    int page;               // bytes of a page (NTX) or node block (NDX)
    int (*create)(char *, int, char *, int, int);
    int (*open)(short *, char *, int);
    int (*close)(int);
    int (*add)(int, char *, int32_t), (*del)(int, char *, int32_t);
    int (*search)(int, char *, int32_t *, int);
    Move first, last, next, prev, current;
    int (*lock)(int), (*rlock)(int), (*unlock)(int), (*flush)(int);
    int (*cache)(int, short *, int);
    int (*check)(int, DBINDEXCHECK *, int);
    int (*info)(int, Info *);
};
// Fields of a file's raw bytes, little- and big-endian.
using Bytes = std::vector<uint8_t>;
inline int le16(const Bytes &b, size_t at) { return b[at] | b[at + 1] << 8; }
inline uint32_t le32(const Bytes &b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}
inline uint32_t be32(const Bytes &b, size_t at) {
    return static_cast<uint32_t>(b[at]) << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3];
}
inline void put16(Bytes &b, size_t at, uint32_t v) {
    for (size_t i = 0; i < 2; i++) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void putBE32(Bytes &b, size_t at, uint32_t v) {
    for (size_t i = 0; i < 4; i++) b[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
template <class I>
int info(int (*get)(int, I *), int h, Info *out) {
    I i{};
    const int rc = get(h, out ? &i : nullptr);
    if (out) *out = {i.keylen, i.keytype, i.lockt, i.flags, i.expr};
    return rc;
}
inline const Fam kNtx = {"NTX", ".ntx", 1024, DBclCreateIndex, DBclOpenIndex, DBclCloseIndex, DBclAddKey,
    DBclDeleteKey, DBclKeySearch, DBclGoFirstKey, DBclGoLastKey, DBclGoNextKey, DBclGoPreviousKey, DBclGetCurrentKey,
    DBclLockIndex, DBclRLockIndex, DBclUnLockIndex, DBclFlushIndex, DBclGetSetCacheSize, DBclCheckIndex,
    [](int h, Info *i) { return info(DBclGetIndexInfo, h, i); }};
inline const Fam kNdx = {"NDX", ".ndx", 512, DBd3CreateIndex, DBd3OpenIndex, DBd3CloseIndex, DBd3AddKey,
    DBd3DeleteKey, DBd3KeySearch, DBd3GoFirstKey, DBd3GoLastKey, DBd3GoNextKey, DBd3GoPreviousKey, DBd3GetCurrentKey,
    DBd3LockIndex, DBd3RLockIndex, DBd3UnLockIndex, DBd3FlushIndex, DBd3GetSetCacheSize, DBd3CheckIndex,
    [](int h, Info *i) { return info(DBd3GetIndexInfo, h, i); }};

// The index at p opened (a refusal fails the test); its handle.
inline short openIndex(const Fam &f, const std::string &p, int mode = 0) {
    short h = -1;
    EXPECT_EQ(f.open(&h, cs(p.c_str()), mode), 0) << p;
    return h;
}
// A new index at p (keys of type, keylen bytes, expression "K"), opened.
inline short newIndex(const Fam &f, const std::string &p, int keylen, int mode = 0, int type = 'C') {
    EXPECT_EQ(f.create(cs(p.c_str()), type, cs("K"), keylen, 0), 0) << p;
    return openIndex(f, p, mode);
}

// Every entry (keys of k bytes, which may hold NULs), first to last or last
// to first, given in index order.
inline std::vector<KeyLine> walk(const Fam &f, int h, int k, bool forward = true) {
    std::vector<KeyLine> out;
    char key[512];
    int32_t rec = 0;
    int rc = (forward ? f.first : f.last)(h, key, &rec);
    for (; rc == 0; rc = (forward ? f.next : f.prev)(h, key, &rec))
        out.push_back({rec, std::string(key, static_cast<size_t>(k))});
    EXPECT_EQ(rc, out.empty() ? DBW_EMPTY : DBW_NOMOREKEYS);
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
// The strict whole-tree check, which must pass.
inline DBINDEXCHECK check(const Fam &f, int h, const std::string &what) {
    DBINDEXCHECK c{};
    EXPECT_EQ(f.check(h, &c, 1), 0) << what << ": " << c.msg;
    return c;
}
// A search from probe: its status and the entry it leaves the key (k
// bytes) and record on.
struct Hit {
    int rc;
    int32_t rec;
    std::string key;
};
inline Hit search(int (*s)(int, char *, int32_t *, int), int h, const std::string &probe, int mode, size_t k,
                  int32_t rec = 0) {
    char key[512] = {};
    std::memcpy(key, probe.data(), probe.size());
    const int rc = s(h, key, &rec, mode);
    return {rc, rec, std::string(key, k)};
}
// NTX and NDX: what each search mode gives for a probe whose equal entries
// are [lo, hi) of n in index order (lo == hi: absent, lo the first above).
struct ModeAnswer {
    int mode, rc;
    size_t at;
};
inline std::vector<ModeAnswer> modeAnswers(size_t lo, size_t hi, size_t n) {
    const bool found = hi > lo;
    const size_t below = lo == 0 ? 0 : lo - 1, at = found ? lo : below;
    return {{1, found ? 0 : lo == 0 ? DBW_NOMOREKEYS : DBW_KEYNOTFOUND, at},
            {13, found ? 0 : DBW_KEYNOTFOUND, at},
            {12, lo == 0 && !found ? DBW_KEYNOTFOUND : 0, at},
            {11, lo == 0 ? DBW_KEYNOTFOUND : 0, below},
            {14, lo == n ? DBW_KEYNOTFOUND : 0, lo == n ? lo - 1 : lo},
            {15, hi == n ? DBW_KEYNOTFOUND : 0, hi == n ? hi - 1 : hi}};
}
// Every mode for probe against want, the entries in index order.
inline void expectModes(const Fam &f, int h, const std::vector<KeyLine> &want, const std::string &probe, size_t k) {
    size_t lo = 0;
    while (lo < want.size() && want[lo].key < probe) lo++;
    size_t hi = lo;
    while (hi < want.size() && want[hi].key == probe) hi++;
    for (const ModeAnswer &m : modeAnswers(lo, hi, want.size())) {
        const Hit got = search(f.search, h, probe, m.mode, k);
        ASSERT_EQ(got.rc, m.rc) << "probe '" << probe << "' mode " << m.mode;
        EXPECT_EQ(got.rec, want[m.at].rec) << "probe '" << probe << "' mode " << m.mode;
        EXPECT_EQ(got.key, want[m.at].key) << "probe '" << probe << "' mode " << m.mode;
    }
}
// Every stride-th entry is found by key and record (mode 2), and by key
// alone (mode 1) at the first entry of its key.
inline void expectFound(const Fam &f, int h, const std::vector<KeyLine> &got, size_t k, size_t stride) {
    for (size_t i = 0; i < got.size(); i += stride) {
        size_t first = i;
        while (first > 0 && got[first - 1].key == got[i].key) first--;
        const Hit both = search(f.search, h, got[i].key, 2, k, got[i].rec), by = search(f.search, h, got[i].key, 1, k);
        ASSERT_EQ(both.rc, 0) << "entry " << i;
        EXPECT_EQ(both.rec, got[i].rec) << "entry " << i;
        ASSERT_EQ(by.rc, 0) << "entry " << i;
        EXPECT_EQ(by.rec, got[first].rec) << "entry " << i;
    }
}
// Records edited as a program edits them: each round deletes a record's
// old key and adds its new one (made by newKey from the old entry); the
// statuses are the ones the model predicts.
template <class Del, class Add, class NewKey>
void rekey(Model &m, Rng &rng, int rounds, Del del, Add add, NewKey newKey) {
    for (int round = 0; round < rounds; round++) {
        const KeyLine old = m.pick(rng.next());
        const std::string key = newKey(old);
        ASSERT_EQ(del(cs(old.key.c_str()), old.rec), 0) << "round " << round;
        ASSERT_TRUE(m.del(old.key, old.rec));
        const bool fresh = m.add(key, old.rec);
        ASSERT_EQ(add(cs(key.c_str()), old.rec), fresh ? 0 : DBW_EXISTS) << "round " << round;
    }
}
// Walk both ways and search for probe; the first failure's status (0 if none).
inline int use(const Fam &f, int h, const char *probe) {
    char key[512];
    int32_t rec = 0;
    for (bool forward : {true, false}) {
        int rc = (forward ? f.first : f.last)(h, key, &rec);
        for (int n = 0; rc == 0 && n < 1000; n++) rc = (forward ? f.next : f.prev)(h, key, &rec);
        if (rc < 0) return rc;
    }
    std::strcpy(key, probe);
    const int rc = f.search(h, key, &rec, 1);
    return rc < 0 ? rc : 0;
}

}  // namespace idx
