// xbtool.cpp - a command-line tool over the library's public API: what a
// file is (info), a table's records as CSV or JSON lines (dump), an index
// checked against its table (check) or rebuilt from it (reindex), and a
// table packed with its memo file (pack). It links the shared library like
// any other host program.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

extern "C" {
#include "xbfiles.h"
}

namespace {

// ---------------------------------------------------------------------------
// Failing and progress
// ---------------------------------------------------------------------------

const char *kUsage =
    "usage: xbtool COMMAND ARGUMENTS\n"
    "  info FILE                        what a table, memo file or index holds\n"
    "  dump TABLE [--csv|--json] [--deleted]  every record, fields converted, memos included\n"
    "  check TABLE INDEX [TAG]          an index walked and compared with its table\n"
    "  reindex TABLE INDEX [TAG]        an index rebuilt from its table (every tag of a CDX\n"
    "                                   when none is named); the old file stays until the new\n"
    "                                   one is complete\n"
    "  pack TABLE                       deleted records removed, the memo file packed too\n"
    "  --help                           this text\n";

// The library's message for a status, with the file it concerned. Exits 1.
[[noreturn]] void fail(const std::string &file, int rc) {
    DBSetErrorCode(rc);
    std::fprintf(stderr, "xbtool: %s: %s (%d)\n", file.c_str(), DBGetErrorStr(), rc);
    DBTerminate();
    std::exit(1);
}

[[noreturn]] void usage(const char *why) {
    std::fprintf(stderr, "xbtool: %s\n%s", why, kUsage);
    std::exit(2);
}

int need(const std::string &file, int rc) {
    if (rc < 0) fail(file, rc);
    return rc;
}

// A progress line on standard error, only when a person is watching it.
class Progress {
public:
    Progress(const char *what, int64_t total) : what_(what), total_(total), on_(isatty(STDERR_FILENO) != 0) {}
    ~Progress() {
        if (on_ && shown_) std::fprintf(stderr, "\r%-60s\r", "");
    }
    void at(int64_t n) {
        if (!on_ || total_ < 1000 || n % 1000 != 0) return;
        std::fprintf(stderr, "\r%s: %lld of %lld (%d%%)", what_, static_cast<long long>(n),
                     static_cast<long long>(total_), static_cast<int>(100 * n / total_));
        shown_ = true;
    }

private:
    const char *what_;
    int64_t total_;
    bool on_, shown_ = false;
};

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string extension(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    return lower(path.substr(dot + 1));
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

std::vector<unsigned char> head(const std::string &path, size_t n) {
    std::vector<unsigned char> b(n, 0);
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return {};
    b.resize(std::fread(b.data(), 1, n, f));
    std::fclose(f);
    return b;
}

std::string rtrim(std::string s) { return s.erase(s.find_last_not_of(' ') + 1); }

char *cs(const std::string &s) { return const_cast<char *>(s.c_str()); }

// ---------------------------------------------------------------------------
// Tables and their memo files
// ---------------------------------------------------------------------------

// The table style that accepts a file's version byte.
int styleOf(const std::string &path) {
    const std::vector<unsigned char> b = head(path, 1);
    if (b.empty()) return 1;
    switch (b[0]) {
    case 0x8B: return 2;
    case 0xF5: return 4;
    case '0': case '1': case '2': return 10;
    default: return 1;
    }
}

struct Table {
    std::string path;
    int h = -1;
    int style = 1;
    std::vector<DBFIELD> fields;
    int memo = -1;
    bool fpt = false;
    std::string memoPath;

    Table(const std::string &p, bool write) : path(p) {
        style = styleOf(p);
        need(p, DBOpenFile(&h, cs(p), style | (write ? 0 : DBO_READONLY)));
        int n = 0;
        DBRECINFO ri;
        need(p, DBGetRecordInfo(h, &ri));
        fields.resize(static_cast<size_t>(ri.numflds));
        need(p, DBGetFileDescription(h, &n, fields.data()));
        bool memos = false;
        for (const DBFIELD &f : fields) memos |= f.type == 'M' || f.type == 'G';
        if (memos) openMemo(write);
    }
    ~Table() {
        if (memo >= 0) fpt ? DBfpCloseMemo(memo) : DBxbCloseMemo(memo);
        if (h >= 0) DBCloseFile(h);
    }
    // The memo file beside the table: the same name with .fpt or .dbt, in
    // either letter case.
    void openMemo(bool write) {
        const std::string ext = extension(path);
        const std::string base = ext.empty() ? path + "." : path.substr(0, path.size() - ext.size());
        for (const char *e : {"fpt", "FPT", "dbt", "DBT"}) {
            if (!exists(base + e)) continue;
            memoPath = base + e;
            fpt = lower(e) == "fpt";
            const int ro = write ? 0 : DBO_READONLY;
            if (fpt) {
                need(memoPath, DBfpOpenMemo(&memo, cs(memoPath), 4 | ro));
            } else {
                // dBASE IV tables (version 0x8B) keep the dBASE IV layout.
                need(memoPath, DBxbOpenMemo(&memo, cs(memoPath), (style == 2 ? 2 : 3) | ro));
            }
            return;
        }
    }
    int32_t count() const {
        int32_t n = 0;
        need(path, DBGetRecordCount(h, &n));
        return n;
    }
    std::string memoText(int32_t block) const {
        if (memo < 0 || block <= 0) return "";
        char *t = nullptr;
        int rc;
        std::string out;
        if (fpt) {
            int32_t len = 0;
            int bin = 0;
            need(memoPath, DBfpGetMemoType(memo, block, &len, &bin));
            rc = DBfpGetMemoRecord(memo, block, &t, len > 0 ? len : 1, 0);
            if (rc >= 0 && t) out.assign(t, static_cast<size_t>(len));
        } else {
            rc = DBxbGetMemoRecord(memo, block, &t, 0);
            if (rc >= 0 && t) out = t;
        }
        if (t) DBFreeMemory(t, __FILE__, __LINE__);
        need(memoPath, rc);
        return out;
    }
};

// One field of the current record, converted: its text and whether it is a
// number, a logical or empty (for JSON).
struct Value {
    std::string text;
    enum Kind { Text, Number, Logical, Null } kind = Text;
};

Value fieldValue(const Table &t, int i) {
    const DBFIELD &f = t.fields[static_cast<size_t>(i)];
    std::vector<char> raw(static_cast<size_t>(f.len) + 16, 0);
    need(t.path, DBGetStrField(t.h, i, raw.data()));
    std::string s(raw.data());
    Value v;
    switch (f.type) {
    case 'C':
        v.text = rtrim(s);
        break;
    case 'N': case 'F': {
        const size_t a = s.find_first_not_of(' ');
        v.text = a == std::string::npos ? "" : rtrim(s.substr(a));
        v.kind = v.text.empty() ? Value::Null : Value::Number;
        break;
    }
    case 'D':
        // Stored as yyyymmdd; shown as yyyy-mm-dd.
        if (rtrim(s).empty()) {
            v.kind = Value::Null;
        } else if (s.size() != 8) {
            v.text = s;  // a damaged width: shown as it stands
        } else {
            v.text = s.substr(0, 4) + "-" + s.substr(4, 2) + "-" + s.substr(6, 2);
        }
        break;
    case 'L': {
        const char c = s.empty() ? ' ' : s[0];
        if (std::strchr("TtYy", c)) v.text = "true", v.kind = Value::Logical;
        else if (std::strchr("FfNn", c)) v.text = "false", v.kind = Value::Logical;
        else v.kind = Value::Null;
        break;
    }
    case 'M': case 'G': {
        int32_t block = 0;
        const int rc = DBGetFieldData(t.h, i, &block);
        need(t.path, rc);
        v.text = t.memoText(block);
        break;
    }
    default: {
        // Binary numbers and other types: the converted value where the
        // library gives one, else the stored text.
        if (f.type == 'I' || f.type == 3 || f.type == 4 || f.type == 11) {
            int32_t n = 0;
            need(t.path, DBGetFieldData(t.h, i, &n));
            v.text = std::to_string(n);
            v.kind = Value::Number;
        } else if (f.type == 'B' || f.type == 13) {
            double d = 0;
            need(t.path, DBGetFieldData(t.h, i, &d));
            char b[64];
            std::snprintf(b, sizeof b, "%.17g", d);
            v.text = b;
            v.kind = Value::Number;
        } else {
            v.text = rtrim(s);
        }
    }
    }
    return v;
}

// CSV as spreadsheet programs read it: a field is quoted when it holds a
// comma, quote or line break, quotes doubled inside.
std::string csv(const std::string &s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string o = "\"";
    for (char c : s) o += c == '"' ? "\"\"" : std::string(1, c);
    return o + "\"";
}

// A JSON string. xBase texts carry no encoding; bytes above 127 are taken
// as Latin-1 and written as UTF-8, so that the output is always valid JSON.
std::string json(const std::string &s) {
    std::string o = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            o += '\\';
            o += static_cast<char>(c);
        } else if (c < 0x20) {
            char b[8];
            std::snprintf(b, sizeof b, "\\u%04x", c);
            o += b;
        } else if (c >= 0x80) {
            o += static_cast<char>(0xC0 | (c >> 6));
            o += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            o += static_cast<char>(c);
        }
    }
    return o + "\"";
}

int cmdDump(const std::vector<std::string> &args) {
    std::string file;
    bool asJson = false, deleted = false;
    for (const std::string &a : args) {
        if (a == "--json") asJson = true;
        else if (a == "--csv") asJson = false;
        else if (a == "--deleted") deleted = true;
        else if (a.size() > 1 && a[0] == '-') usage(("unknown option " + a).c_str());
        else if (file.empty()) file = a;
        else usage("dump takes one table");
    }
    if (file.empty()) usage("dump needs a table");
    Table t(file, false);
    const int32_t n = t.count();
    if (!asJson) {
        std::string line = deleted ? "_deleted" : "";
        for (const DBFIELD &f : t.fields) line += (line.empty() ? "" : ",") + csv(f.name);
        std::printf("%s\r\n", line.c_str());
    }
    Progress progress("dump", n);
    for (int32_t r = 1; r <= n; r++) {
        progress.at(r);
        const int rc = need(file, DBGetRecord(t.h, r));
        const bool gone = rc == DBW_DELETED;
        if (gone && !deleted) continue;
        std::string line;
        if (asJson) {
            line = "{\"_recno\":" + std::to_string(r);
            if (deleted) line += std::string(",\"_deleted\":") + (gone ? "true" : "false");
        } else if (deleted) {
            line = gone ? "*" : "";
        }
        for (size_t i = 0; i < t.fields.size(); i++) {
            const Value v = fieldValue(t, static_cast<int>(i));
            if (asJson) {
                line += "," + json(t.fields[i].name) + ":";
                line += v.kind == Value::Null ? "null" : v.kind == Value::Text ? json(v.text) : v.text;
            } else {
                line += (i == 0 && !deleted ? "" : ",") + csv(v.text);
            }
        }
        std::printf("%s%s", line.c_str(), asJson ? "}\n" : "\r\n");
    }
    return 0;
}

int cmdPack(const std::vector<std::string> &args) {
    if (args.size() != 1) usage("pack takes one table");
    Table t(args[0], true);
    const int32_t before = t.count();
    need(t.path, DBPackFile(&t.h));
    const int32_t after = t.count();
    if (t.memo >= 0) need(t.memoPath, t.fpt ? DBfpPackMemo(t.h, &t.memo) : DBxbPackMemo(t.h, &t.memo));
    std::printf("%s: %ld records, %ld deleted removed%s\n", t.path.c_str(), static_cast<long>(after),
                static_cast<long>(before - after), t.memo >= 0 ? ("; " + t.memoPath + " packed").c_str() : "");
    return 0;
}

// ---------------------------------------------------------------------------
// Indexes: one interface over the families
// ---------------------------------------------------------------------------

struct IndexInfo {
    std::string kind, expr, forExpr, tag;
    int keylen = 0, decimals = 0;
    char type = '?';  // 'C', 'N', 'D', 'L' or '?' when the file does not say
    bool unique = false;
};

class Index {
public:
    virtual ~Index() = default;
    virtual IndexInfo info() = 0;
    virtual int first(std::string &key, int32_t &rec) = 0;
    virtual int next(std::string &key, int32_t &rec) = 0;
    // The key the table's current record gives.
    virtual int makeKey(int table, std::string &key) = 0;
    // A key in a form where equal entry keys are equal strings (numeric NTX
    // keys of other producers and of ours differ in bytes, not in value).
    virtual std::string canon(const std::string &key) { return key; }
    virtual int check(DBINDEXCHECK &c) = 0;
    const std::string &path() const { return path_; }

protected:
    std::string path_;
};

class NtxIndex : public Index {
public:
    NtxIndex(const std::string &p, int mode) {
        path_ = p;
        need(p, DBclOpenIndex(&h_, cs(p), mode));
        DBCLINDEXINFO i;
        need(p, DBclGetIndexInfo(h_, &i));
        k_ = i.keylen;
        dec_ = i.keydpl;
    }
    ~NtxIndex() override {
        if (h_ >= 0) DBclCloseIndex(h_);
    }
    IndexInfo info() override {
        DBCLINDEXINFO i;
        need(path_, DBclGetIndexInfo(h_, &i));
        char e[260];
        need(path_, DBclGetIndexKeyExpr(h_, e));
        IndexInfo r;
        r.kind = "NTX";
        r.expr = e;
        r.keylen = i.keylen;
        r.decimals = i.keydpl;
        r.unique = (i.keyfmt & 128) != 0;
        return r;
    }
    int first(std::string &key, int32_t &rec) override { return walk(DBclGoFirstKey, key, rec); }
    int next(std::string &key, int32_t &rec) override { return walk(DBclGoNextKey, key, rec); }
    int makeKey(int table, std::string &key) override {
        char *k = nullptr;
        const int rc = DBclMakeKey(table, h_, &k);
        if (rc < 0) return rc;
        key = k;
        DBFreeMemory(k, __FILE__, __LINE__);
        key.resize(static_cast<size_t>(k_), ' ');
        return 0;
    }
    // Clipper and Harbour complement negative numbers in keys; our key maker
    // writes them as plain text. Both read back as the same value.
    std::string canon(const std::string &key) override {
        if (!numeric_ || key.find_first_not_of("0123456789.-,+#$%&'()*/ ") != std::string::npos) return key;
        // A plain negative text ("-001.50", ours) reads as it is; a key whose
        // first byte is below "0" otherwise is a complemented one (theirs).
        double v = 0;
        if (key[0] == '-') v = std::atof(key.c_str());
        else if (DBclKeyToDouble(&v, cs(key)) != 0) return key;
        char b[64];
        std::snprintf(b, sizeof b, "%.*f", dec_, v);
        return b;
    }
    int check(DBINDEXCHECK &c) override { return DBclCheckIndex(h_, &c, 0); }

private:
    int walk(int (*move)(int, char *, int32_t *), std::string &key, int32_t &rec) {
        char k[512];
        const int rc = move(h_, k, &rec);
        if (rc == 0) key.assign(k, static_cast<size_t>(k_));
        return rc;
    }
    short h_ = -1;
    int k_ = 0, dec_ = 0;

public:
    // Whether keys are numbers (the header does not say; the table does).
    bool numeric_ = false;
};

// A CDX tag or an IDX file (its only index, slot 0). Keys of numbers and
// dates are 8 binary bytes.
class FoxIndex : public Index {
public:
    // file: the open file's handle; tag: the tag's handle (the file handle
    // for an IDX file). The file stays the caller's.
    FoxIndex(const std::string &p, int file, int tag, const std::string &name) : file_(file), tag_(tag), name_(name) {
        path_ = p;
        DBFBINDEXINFO i;
        need(p, DBfbGetIndexInfo(tag_, &i));
        k_ = i.keylen;
    }
    ~FoxIndex() override {
        if (tag_ != file_) DBfpCloseTag(tag_);
    }
    IndexInfo info() override {
        DBFBINDEXINFO i;
        need(path_, DBfbGetIndexInfo(tag_, &i));
        IndexInfo r;
        r.kind = (i.ftype & 0x40) ? "CDX tag" : (i.ftype & 0x20) ? "IDX (compact)" : "IDX (non-compact)";
        r.expr.assign(i.expr, strnlen(i.expr, sizeof i.expr));
        r.forExpr.assign(i.forexpr, strnlen(i.forexpr, sizeof i.forexpr));
        r.tag = name_;
        r.keylen = i.keylen;
        r.type = static_cast<char>(i.keytype);
        r.unique = (i.keyfmt & 128) != 0;
        return r;
    }
    int first(std::string &key, int32_t &rec) override { return walk(DBfpGoFirstKey, key, rec); }
    int next(std::string &key, int32_t &rec) override { return walk(DBfpGoNextKey, key, rec); }
    int makeKey(int table, std::string &key) override {
        std::vector<char> k(static_cast<size_t>(k_) + 1, 0);
        const int rc = DBfpMakeKey(table, tag_, k.data());
        if (rc < 0) return rc;
        key.assign(k.data(), static_cast<size_t>(k_));
        return 0;
    }
    int check(DBINDEXCHECK &c) override { return DBfpCheckTag(tag_, &c, 0); }
    int tag() const { return tag_; }
    // The file does not record a tag's key type, and character keys are
    // read with their trailing blanks only once the tag knows it has them:
    // the type comes from what the expression gives for the table.
    void learnType(char type) {
        DBFBINDEXINFO i;
        if (DBfbGetIndexInfo(tag_, &i) == 0 && i.keytype == '?') need(path_, DBfpSetDefaultKeyType(tag_, type));
    }

private:
    int walk(int (*move)(int, char *, int32_t *), std::string &key, int32_t &rec) {
        std::vector<char> k(static_cast<size_t>(k_) + 1, 0);
        const int rc = move(tag_, k.data(), &rec);
        if (rc == 0) key.assign(k.data(), static_cast<size_t>(k_));
        return rc;
    }
    int file_, tag_;
    std::string name_;
    int k_ = 0;
};

// An open CDX or IDX file; tags come from it.
struct FoxFile {
    std::string path;
    int h = -1;
    bool compound = false;
    FoxFile(const std::string &p, int mode) : path(p) {
        need(p, DBfpOpenIndex(&h, cs(p), mode));
        DBFBINDEXINFO i;
        need(p, DBfbGetIndexInfo(h, &i));
        compound = (i.ftype & 0x40) != 0;
    }
    ~FoxFile() {
        if (h >= 0) DBfpCloseIndex(h);
    }
    // The tag names, from the directory (whose keys they are).
    std::vector<std::string> tags() const {
        std::vector<std::string> out;
        if (!compound) return out;
        char k[32];
        int32_t rec = 0;
        for (int rc = DBfpGoFirstKey(h, k, &rec); rc == 0; rc = DBfpGoNextKey(h, k, &rec)) out.push_back(rtrim(k));
        return out;
    }
    FoxIndex *open(const std::string &name) const {
        if (!compound) return new FoxIndex(path, h, h, "");
        int t = -1;
        need(path + " tag " + name, DBfpOpenNamedTag(&t, h, cs(name)));
        return new FoxIndex(path, h, t, name);
    }
};

class NdxIndex : public Index {
public:
    NdxIndex(const std::string &p, int mode) {
        path_ = p;
        need(p, DBd3OpenIndex(&h_, cs(p), mode));
        DBD3INDEXINFO i;
        need(p, DBd3GetIndexInfo(h_, &i));
        k_ = i.keylen;
    }
    ~NdxIndex() override {
        if (h_ >= 0) DBd3CloseIndex(h_);
    }
    IndexInfo info() override {
        DBD3INDEXINFO i;
        need(path_, DBd3GetIndexInfo(h_, &i));
        IndexInfo r;
        r.kind = "NDX";
        r.expr = i.expr;
        r.keylen = i.keylen;
        r.type = static_cast<char>(i.keytype);
        r.unique = i.unique != 0;
        return r;
    }
    int first(std::string &key, int32_t &rec) override { return walk(DBd3GoFirstKey, key, rec); }
    int next(std::string &key, int32_t &rec) override { return walk(DBd3GoNextKey, key, rec); }
    int makeKey(int table, std::string &key) override {
        char *k = nullptr;
        const int rc = DBd3MakeKey(table, h_, &k);
        if (rc < 0) return rc;
        key.assign(k, static_cast<size_t>(k_));
        DBFreeMemory(k, __FILE__, __LINE__);
        return 0;
    }
    int check(DBINDEXCHECK &c) override { return DBd3CheckIndex(h_, &c, 0); }

private:
    int walk(int (*move)(int, char *, int32_t *), std::string &key, int32_t &rec) {
        std::vector<char> k(static_cast<size_t>(k_) + 1, 0);
        const int rc = move(h_, k.data(), &rec);
        if (rc == 0) key.assign(k.data(), static_cast<size_t>(k_));
        return rc;
    }
    short h_ = -1;
    int k_ = 0;
};

// The index in a file, by its name's extension (the CDX or IDX file is
// opened into *fox, which the caller keeps while the index is used).
Index *openIndex(const std::string &path, const std::string &tag, bool write, FoxFile **fox) {
    const std::string e = extension(path);
    const int mode = write ? 0 : DBO_READONLY;
    if (e == "ntx" || e == "ndx") {
        if (!tag.empty()) usage("an NTX or NDX file has no tags");
        return e == "ntx" ? static_cast<Index *>(new NtxIndex(path, mode)) : new NdxIndex(path, mode);
    }
    if (e == "cdx" || e == "idx") {
        *fox = new FoxFile(path, mode);
        if ((*fox)->compound && tag.empty()) usage("name a tag of the compound file");
        if (!(*fox)->compound && !tag.empty()) usage("an IDX file has no tags");
        return (*fox)->open(tag);
    }
    usage(("not an index file this tool knows: " + path).c_str());
}

std::string printable(const std::string &key, char type) {
    if (type == 'N' || type == 'D' || type == 'L') {
        std::string hex;
        char b[4];
        for (unsigned char c : key) std::snprintf(b, sizeof b, "%02x", c), hex += b;
        return "0x" + hex;
    }
    return key;
}

// The key type the expression gives, from the first record (or 'C' for an
// empty table).
char keyTypeOf(const Table &t, const std::string &expr) {
    if (t.count() < 1) return 'C';
    need(t.path, DBGetRecord(t.h, 1));
    DBEVAL v;
    need(t.path, DBEvaluateStr(t.h, cs(expr), &v));
    const char type = v.etyp == 'F' ? 'N' : static_cast<char>(v.etyp);
    if (v.eval) DBFreeMemory(v.eval, __FILE__, __LINE__);
    return type;
}

// A key type letter for creating an index like `inf`: the file's own when
// it records one, else what the expression gives for the table.
char typeFor(const Table &t, const IndexInfo &inf) {
    char type = inf.type;
    if (type == 'N' || type == '?') {
        // NDX files say only "numeric or date"; others say nothing.
        const char got = keyTypeOf(t, inf.expr);
        if (type == '?' || got == 'D') type = got;
    }
    return (type == 'C' || type == 'N' || type == 'D' || type == 'L') ? type : 'C';
}

// Walk one index and compare it with the table: problems go to `problems`
// (at most ten are kept).
void checkIndex(Table &t, Index *ix, std::vector<std::string> &problems) {
    const IndexInfo inf = ix->info();
    const std::string who = inf.tag.empty() ? "" : "tag " + inf.tag + ": ";
    auto problem = [&](const std::string &p) {
        if (problems.size() < 10) problems.push_back(who + p);
    };
    if (auto *fox = dynamic_cast<FoxIndex *>(ix)) fox->learnType(typeFor(t, inf));
    DBINDEXCHECK c;
    if (ix->check(c) != 0) problem(std::string("tree: ") + c.msg);
    // The entries, by record.
    const int32_t n = t.count();
    std::map<int32_t, std::string> byRec;
    std::map<std::string, int32_t> firstOfKey;
    if (auto *ntx = dynamic_cast<NtxIndex *>(ix)) ntx->numeric_ = keyTypeOf(t, inf.expr) == 'N';
    std::string key;
    int32_t rec = 0;
    int64_t entries = 0;
    Progress progress("check", n);
    for (int rc = ix->first(key, rec); rc == 0; rc = ix->next(key, rec)) {
        entries++;
        if (rec < 1 || rec > n) problem("entry " + std::to_string(entries) + " names record " + std::to_string(rec) + ", not a record of the table");
        else if (!byRec.emplace(rec, ix->canon(key)).second) problem("record " + std::to_string(rec) + " is in the index twice");
        firstOfKey.emplace(ix->canon(key), rec);
        if (entries > static_cast<int64_t>(n) + 1000000) {
            problem("the walk does not end");
            break;
        }
    }
    // Every record: present with the key its expression gives. A unique
    // index holds one record of each key, so a record may be missing when
    // another holds its key; a FOR condition leaves out the records where it
    // is false (one that is not a logical decides nothing here).
    for (int32_t r = 1; r <= n; r++) {
        progress.at(r);
        const int rc = DBGetRecord(t.h, r);
        if (rc < 0) {
            problem("record " + std::to_string(r) + " cannot be read (" + std::to_string(rc) + ")");
            continue;
        }
        int wanted = 1;  // 1 must be there, 0 must not, -1 either
        if (!inf.forExpr.empty()) {
            DBEVAL v;
            wanted = -1;
            if (DBEvaluateStr(t.h, cs(inf.forExpr), &v) == 0 && v.etyp == 'L' && v.eval) wanted = v.eval[0] == 1 || v.eval[0] == 'T';
            if (v.eval) DBFreeMemory(v.eval, __FILE__, __LINE__);
        }
        auto it = byRec.find(r);
        if (wanted == 0) {
            if (it != byRec.end()) problem("record " + std::to_string(r) + " is in the index, but its FOR condition is false");
            continue;
        }
        std::string made;
        const int mk = ix->makeKey(t.h, made);
        if (mk < 0) {
            problem("record " + std::to_string(r) + ": the key expression fails (" + std::to_string(mk) + ")");
            continue;
        }
        made = ix->canon(made);
        if (it == byRec.end()) {
            if (wanted < 0 || (inf.unique && firstOfKey.count(made))) continue;
            problem("record " + std::to_string(r) + " is missing (key '" + printable(made, inf.type) + "')");
        } else if (it->second != made) {
            problem("record " + std::to_string(r) + ": the index holds '" + printable(it->second, inf.type) +
                    "', the table gives '" + printable(made, inf.type) + "'");
        }
    }
}

int cmdCheck(const std::vector<std::string> &args) {
    if (args.size() < 2 || args.size() > 3) usage("check takes a table, an index and perhaps a tag");
    Table t(args[0], false);
    const std::string &path = args[1];
    std::vector<std::string> problems;
    std::vector<std::string> tags;
    const std::string e = extension(path);
    if (args.size() == 3) {
        tags.push_back(args[2]);
    } else if (e == "cdx") {
        FoxFile f(path, DBO_READONLY);
        tags = f.tags();
        if (!f.compound) tags = {""};
    } else {
        tags.push_back("");
    }
    for (const std::string &tag : tags) {
        FoxFile *fox = nullptr;
        Index *ix = openIndex(path, tag, false, &fox);
        checkIndex(t, ix, problems);
        delete ix;
        delete fox;
    }
    if (problems.empty()) {
        std::printf("OK: %s%s, %ld records\n", path.c_str(),
                    tags.size() > 1 ? (", " + std::to_string(tags.size()) + " tags").c_str() : "",
                    static_cast<long>(t.count()));
        return 0;
    }
    for (const std::string &p : problems) std::printf("%s: %s\n", path.c_str(), p.c_str());
    return 1;
}

// Build one CDX tag afresh into the open file h from the table.
void buildTag(const Table &t, int h, const std::string &file, const std::string &name, const IndexInfo &inf) {
    const int mode = typeFor(t, inf) | (inf.unique ? 0x80 : 0);
    need(file, DBfpCreateTag(h, cs(name), mode, cs(inf.expr), inf.keylen, inf.forExpr.empty() ? nullptr : cs(inf.forExpr)));
    int tag = -1;
    need(file, DBfpOpenNamedTag(&tag, h, cs(name)));
    need(file, DBfpBuildIndex(t.h, tag));
    need(file, DBfpCloseTag(tag));
}

bool copyFile(const std::string &from, const std::string &to) {
    FILE *in = std::fopen(from.c_str(), "rb");
    if (!in) return false;
    FILE *out = std::fopen(to.c_str(), "wb");
    bool ok = out != nullptr;
    char buf[65536];
    for (size_t n; ok && (n = std::fread(buf, 1, sizeof buf, in)) > 0;) ok = std::fwrite(buf, 1, n, out) == n;
    std::fclose(in);
    if (out && std::fclose(out) != 0) ok = false;
    return ok;
}

// Rebuild into `tmp`; the caller renames it over the old file.
void rebuild(const Table &t, const std::string &path, const std::string &tmp, const std::string &tag) {
    const std::string e = extension(path);
    if (e == "ntx") {
        IndexInfo inf;
        {
            NtxIndex old(path, DBO_READONLY);
            inf = old.info();
        }
        char type = inf.decimals > 0 ? 'N' : typeFor(t, inf);
        if (type != 'C' && type != 'N' && type != 'D') type = 'C';
        need(path, DBclBuildIndex(t.h, cs(tmp), type | (inf.unique ? 0x80 : 0), cs(inf.expr), inf.keylen, inf.decimals));
    } else if (e == "ndx") {
        IndexInfo inf;
        {
            NdxIndex old(path, DBO_READONLY);
            inf = old.info();
        }
        need(path, DBd3BuildIndex(t.h, cs(tmp), typeFor(t, inf) | (inf.unique ? 0x80 : 0), cs(inf.expr), inf.keylen, 0));
    } else if (e == "idx") {
        IndexInfo inf;
        bool compact;
        {
            FoxFile old(path, DBO_READONLY);
            FoxIndex *ix = old.open("");
            inf = ix->info();
            compact = inf.kind.find("non-compact") == std::string::npos;
            delete ix;
        }
        const int mode = typeFor(t, inf) | (inf.unique ? 0x80 : 0) | (compact ? 0x400 : 0);
        need(path, DBfbCreateIndex(cs(tmp), mode, cs(inf.expr), inf.keylen, inf.forExpr.empty() ? nullptr : cs(inf.forExpr)));
        FoxFile f(tmp, 0);
        need(path, DBfbBuildIndex(t.h, f.h));
    } else if (e == "cdx") {
        if (!tag.empty()) {
            // One tag: a copy of the file with that tag made again.
            if (!copyFile(path, tmp)) fail(tmp, DBE_WRITE);
            FoxFile f(tmp, 0);
            IndexInfo inf;
            {
                FoxIndex *ix = f.open(tag);
                inf = ix->info();
                delete ix;
            }
            need(path, DBfpDeleteTag(f.h, cs(tag)));
            buildTag(t, f.h, path, inf.tag, inf);
            return;
        }
        std::vector<std::pair<std::string, IndexInfo>> tags;
        {
            FoxFile old(path, DBO_READONLY);
            for (const std::string &name : old.tags()) {
                FoxIndex *ix = old.open(name);
                tags.emplace_back(name, ix->info());
                delete ix;
            }
        }
        need(tmp, DBfpCreateIndex(cs(tmp)));
        FoxFile f(tmp, 0);
        for (const auto &tg : tags) buildTag(t, f.h, path, tg.first, tg.second);
    } else {
        usage(("not an index file this tool knows: " + path).c_str());
    }
}

int cmdReindex(const std::vector<std::string> &args) {
    if (args.size() < 2 || args.size() > 3) usage("reindex takes a table, an index and perhaps a tag");
    const std::string path = args[1];
    if (!exists(path)) fail(path, DBE_NOTFOUND);
    Table t(args[0], false);
    // The new file is made beside the old one and takes its name only when
    // complete: a failure at any point leaves the old index as it was.
    static std::string tmp;
    tmp = path + ".xbtool-new";
    std::remove(tmp.c_str());
    std::atexit([] { std::remove(tmp.c_str()); });
    rebuild(t, path, tmp, args.size() == 3 ? args[2] : "");
    if (std::rename(tmp.c_str(), path.c_str()) != 0) fail(path, DBE_ACCESS);
    std::printf("%s rebuilt from %s (%ld records)\n", path.c_str(), args[0].c_str(), static_cast<long>(t.count()));
    return 0;
}

// ---------------------------------------------------------------------------
// info
// ---------------------------------------------------------------------------

void infoTable(const std::string &path) {
    Table t(path, false);
    DBFILEINFO fi;
    need(path, DBGetFileInfo(t.h, &fi));
    const std::vector<unsigned char> b = head(path, 12);
    char date[16] = "";
    DBGetLastUpdate(t.h, date, 15);
    DBRECINFO ri;
    need(path, DBGetRecordInfo(t.h, &ri));
    std::printf("table %s\n  style %d, version byte 0x%02x, last update %s\n  %ld records of %d bytes, %zu fields\n",
                path.c_str(), fi.style, b.empty() ? 0 : b[0], date, static_cast<long>(t.count()), ri.reclen, t.fields.size());
    for (const DBFIELD &f : t.fields) {
        const char type = static_cast<char>(f.type);
        if (type >= 'A' && type <= 'Z')
            std::printf("  %-10s %c %4d %2d\n", f.name, type, f.len, f.decpl);
        else
            std::printf("  %-10s %d %4d %2d\n", f.name, f.type, f.len, f.decpl);
    }
    if (!t.memoPath.empty()) std::printf("  memo file %s\n", t.memoPath.c_str());
}

void infoMemo(const std::string &path) {
    const std::string e = extension(path);
    int h = -1;
    if (e == "fpt") {
        need(path, DBfpOpenMemo(&h, cs(path), 4 | DBO_READONLY));
        DBFPMEMOINFO mi;
        need(path, DBfpGetMemoInfo(h, &mi));
        // The next free block is the header's first four bytes, big-endian.
        const std::vector<unsigned char> b = head(path, 4);
        const long ff = b.size() == 4 ? (static_cast<long>(b[0]) << 24 | b[1] << 16 | b[2] << 8 | b[3]) : 0;
        std::printf("memo %s\n  FPT (FoxPro), blocks of %ld bytes, next free block %ld\n", path.c_str(),
                    static_cast<long>(mi.blksz), ff);
        DBfpCloseMemo(h);
        return;
    }
    // dBASE IV files carry 2 and 1 at bytes 16 and 17 of block 0.
    const std::vector<unsigned char> b = head(path, 18);
    const bool four = b.size() == 18 && b[16] == 2 && b[17] == 1;
    need(path, DBxbOpenMemo(&h, cs(path), (four ? 2 : 3) | DBO_READONLY));
    DBDBTHDR hd;
    DBXBMEMOINFO mi;
    need(path, DBxbGetMemoHeader(h, &hd));
    need(path, DBxbGetMemoInfo(h, &mi));
    std::printf("memo %s\n  DBT (%s), blocks of %ld bytes, next free block %ld\n", path.c_str(),
                four ? "dBASE IV" : "dBASE III", static_cast<long>(mi.blksz), static_cast<long>(hd.ff));
    DBxbCloseMemo(h);
}

void printIndex(const IndexInfo &i) {
    std::printf("  %s%s%s, key %s, length %d", i.kind.c_str(), i.tag.empty() ? "" : " ", i.tag.c_str(), i.expr.c_str(), i.keylen);
    if (i.type != '?') std::printf(", type %c", i.type);
    if (i.decimals) std::printf(", %d decimals", i.decimals);
    if (!i.forExpr.empty()) std::printf(", for %s", i.forExpr.c_str());
    std::printf("%s\n", i.unique ? ", unique" : "");
}

void infoIndex(const std::string &path) {
    std::printf("index %s\n", path.c_str());
    const std::string e = extension(path);
    if (e == "cdx" || e == "idx") {
        FoxFile f(path, DBO_READONLY);
        const std::vector<std::string> tags = f.compound ? f.tags() : std::vector<std::string>{""};
        if (f.compound) std::printf("  compound file, %zu tags\n", tags.size());
        for (const std::string &name : tags) {
            FoxIndex *ix = f.open(name);
            printIndex(ix->info());
            delete ix;
        }
        return;
    }
    FoxFile *fox = nullptr;
    Index *ix = openIndex(path, "", false, &fox);
    printIndex(ix->info());
    delete ix;
    delete fox;
}

int cmdInfo(const std::vector<std::string> &args) {
    if (args.size() != 1) usage("info takes one file");
    const std::string &p = args[0];
    const std::string e = extension(p);
    if (!exists(p)) fail(p, DBE_NOTFOUND);
    if (e == "dbt" || e == "fpt") infoMemo(p);
    else if (e == "ntx" || e == "ndx" || e == "cdx" || e == "idx") infoIndex(p);
    else infoTable(p);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) usage("no command");
    const std::string cmd = args[0];
    args.erase(args.begin());
    if (cmd == "--help" || cmd == "-h" || cmd == "help") {
        std::printf("%s", kUsage);
        return 0;
    }
    // Dates in a four-digit style: index keys of dates keep their century.
    if (DBInitialize(64, 2) != 0) {
        std::fprintf(stderr, "xbtool: the library would not start\n");
        return 1;
    }
    int rc;
    if (cmd == "info") rc = cmdInfo(args);
    else if (cmd == "dump") rc = cmdDump(args);
    else if (cmd == "check") rc = cmdCheck(args);
    else if (cmd == "reindex") rc = cmdReindex(args);
    else if (cmd == "pack") rc = cmdPack(args);
    else usage(("unknown command " + cmd).c_str());
    DBTerminate();
    return rc;
}
