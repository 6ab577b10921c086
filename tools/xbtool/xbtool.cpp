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
        const std::string base = path.substr(0, path.size() - extension(path).size());
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

// The index in a file, by its name's extension.
Index *openIndex(const std::string &path, const std::string &tag, bool write) {
    const std::string e = extension(path);
    const int mode = write ? 0 : DBO_READONLY;
    if (e == "ntx") {
        if (!tag.empty()) usage("an NTX file has no tags");
        return new NtxIndex(path, mode);
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

int cmdCheck(const std::vector<std::string> &args) {
    if (args.size() < 2 || args.size() > 3) usage("check takes a table, an index and perhaps a tag");
    Table t(args[0], false);
    Index *ix = openIndex(args[1], args.size() == 3 ? args[2] : "", false);
    const IndexInfo inf = ix->info();
    std::vector<std::string> problems;
    auto problem = [&](const std::string &p) {
        if (problems.size() < 10) problems.push_back(p);
    };
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
    // another holds its key; a tag with a FOR condition leaves records out.
    for (int32_t r = 1; r <= n; r++) {
        progress.at(r);
        const int rc = DBGetRecord(t.h, r);
        if (rc < 0) {
            problem("record " + std::to_string(r) + " cannot be read (" + std::to_string(rc) + ")");
            continue;
        }
        std::string made;
        const int mk = ix->makeKey(t.h, made);
        made = ix->canon(made);
        if (mk < 0) {
            problem("record " + std::to_string(r) + ": the key expression fails (" + std::to_string(mk) + ")");
            continue;
        }
        auto it = byRec.find(r);
        if (it == byRec.end()) {
            if (!inf.forExpr.empty()) continue;
            if (inf.unique && firstOfKey.count(made)) continue;
            problem("record " + std::to_string(r) + " is missing (key '" + printable(made, inf.type) + "')");
        } else if (it->second != made) {
            problem("record " + std::to_string(r) + ": the index holds '" + printable(it->second, inf.type) +
                    "', the table gives '" + printable(made, inf.type) + "'");
        }
    }
    delete ix;
    if (problems.empty()) {
        std::printf("OK: %s, %lld keys, %ld records\n", args[1].c_str(), static_cast<long long>(entries), static_cast<long>(n));
        return 0;
    }
    for (const std::string &p : problems) std::printf("%s: %s\n", args[1].c_str(), p.c_str());
    return 1;
}

int cmdReindex(const std::vector<std::string> &args) {
    if (args.size() < 2 || args.size() > 3) usage("reindex takes a table, an index and perhaps a tag");
    const std::string path = args[1];
    Table t(args[0], false);
    const std::string e = extension(path);
    // The new file is made beside the old one and takes its name only when
    // complete: a failure at any point leaves the old index as it was.
    const std::string tmp = path + ".xbtool-new";
    std::remove(tmp.c_str());
    if (e == "ntx") {
        IndexInfo inf;
        {
            NtxIndex old(path, DBO_READONLY);
            inf = old.info();
        }
        char type = inf.decimals > 0 ? 'N' : keyTypeOf(t, inf.expr);
        if (type != 'C' && type != 'N' && type != 'D') type = 'C';
        const int rc = DBclBuildIndex(t.h, cs(tmp), type | (inf.unique ? 0x80 : 0), cs(inf.expr), inf.keylen, inf.decimals);
        if (rc < 0) {
            std::remove(tmp.c_str());
            fail(path, rc);
        }
    } else {
        usage(("not an index file this tool knows: " + path).c_str());
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::remove(tmp.c_str());
        fail(path, DBE_ACCESS);
    }
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

void infoIndex(const std::string &path) {
    Index *ix = openIndex(path, "", false);
    const IndexInfo i = ix->info();
    std::printf("index %s\n  %s, key %s, length %d", path.c_str(), i.kind.c_str(), i.expr.c_str(), i.keylen);
    if (i.type != '?') std::printf(", type %c", i.type);
    if (i.decimals) std::printf(", %d decimals", i.decimals);
    std::printf("%s\n", i.unique ? ", unique" : "");
    delete ix;
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
