// dmodify.cpp - DBModifyFile: give an open table a new list of fields and
// keep its records.
//
// The new table is built beside the old one under a work name: every record
// in order, deleted ones included and still marked, each kept field (found
// by name, letter case ignored) converted to its new type and size. Memo
// fields take their texts into a new memo file of the table's kind, packed
// as a memo pack packs (only what the records point to, in record order).
// Only when both new files are complete do they take the old ones' places
// (_DBTableSwap, tmark.cpp), so until then a failure leaves the old files
// untouched, and a crash during the swap leaves the old pair, the new pair,
// or a marker from which the next open makes one of them whole. The old
// files stay as "<stem>.BAK" and "<stem>.TBK", the backups dBASE and FoxPro
// keep after a change of structure: a conversion that cut a value loses
// nothing for good.
//
// Values change type through their text, and the numbers through their
// decimal digits: rounding works on the digits the file shows, half away
// from zero as xBase rounds, so every build (x87 or not) writes the same
// bytes. The rules, case by case, are in the header comment of the call.
#include "dbf.h"
#include "memo.h"
#include "os.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {
constexpr DBSite here{"rdd/xbase/dmodify"};

constexpr int NAMECAP = 600;  // a 511-character name plus what is appended
constexpr int kMaxDigits = 40;  // significant digits kept of a number
// What a conversion lost, in the order of the warning that wins.
constexpr int kCut = 1;      // a value cut or left blank: 205
constexpr int kRounded = 2;  // a number's decimals rounded: 206

// ---------------------------------------------------------------------------
// Numbers as decimal digits
// ---------------------------------------------------------------------------

// value = 0.d[0]d[1]..d[n-1] x 10^point, without leading or trailing zero
// digits; n == 0 is zero. `more`: nonzero digits beyond the ones kept.
struct _Dec {
    bool neg = false;
    bool more = false;
    int n = 0;
    int point = 0;
    char d[kMaxDigits] = {};
};

// The number a text shows: blanks around it, a sign, digits with at most one
// '.', and (only when exp is set: texts made here from doubles) an exponent.
bool _parseDec(const char *s, int32_t len, bool exp, _Dec *v) {
    int32_t i = 0, end = len;
    while (i < end && s[i] == ' ') i++;
    while (end > i && s[end - 1] == ' ') end--;
    *v = _Dec{};
    if (i < end && (s[i] == '+' || s[i] == '-')) v->neg = s[i++] == '-';
    bool digits = false, dot = false, started = false;
    int64_t point = 0;
    for (; i < end; i++) {
        const char c = s[i];
        if (c == '.') {
            if (dot) return false;
            dot = true;
            continue;
        }
        if (c < '0' || c > '9') break;
        digits = true;
        if (!started && c == '0') {
            if (dot) point--;
            continue;
        }
        started = true;
        if (!dot) point++;
        if (v->n < kMaxDigits) v->d[v->n++] = c;
        else if (c != '0') v->more = true;
    }
    if (!digits) return false;
    if (i < end) {
        if (!exp || (s[i] != 'e' && s[i] != 'E')) return false;
        i++;
        const bool eneg = i < end && s[i] == '-';
        if (i < end && (s[i] == '-' || s[i] == '+')) i++;
        int e = 0;
        if (i == end) return false;
        for (; i < end && s[i] >= '0' && s[i] <= '9'; i++)
            if (e < 100000) e = e * 10 + (s[i] - '0');
        if (i != end) return false;
        point += eneg ? -e : e;
    }
    if (!v->more)
        while (v->n > 0 && v->d[v->n - 1] == '0') v->n--;
    if (v->n == 0 && !v->more) {
        v->neg = false;
        v->point = 0;
    } else {
        v->point = static_cast<int>(point < -1000000 ? -1000000 : point > 1000000 ? 1000000 : point);
    }
    return true;
}

// v right-aligned in `width` bytes with `dec` decimals, rounded half away
// from zero (*rounded when that changed the value). False when it does not
// fit, even without the 0 before the point that dBASE also drops.
bool _formatDec(const _Dec &v, int width, int dec, char *out, bool *rounded) {
    *rounded = false;
    if (v.point > width) return false;
    const int ip = v.point > 1 ? v.point : 1;  // integer digits before rounding
    char s[96];
    const int total = ip + dec;
    if (total + 2 > static_cast<int>(sizeof s)) return false;
    for (int j = 0; j < total; j++) {
        const int k = j - ip + v.point;
        s[j + 1] = (k >= 0 && k < v.n) ? v.d[k] : '0';
    }
    // The first digit dropped decides; any dropped digit that is not 0
    // means the value changed.
    const int cut = v.point + dec;
    bool up = false;
    if (cut < v.n || v.more) {
        *rounded = true;
        up = cut >= 0 && cut < v.n && v.d[cut] >= '5';
    }
    s[0] = '0';
    if (up) {
        int j = total;
        while (j >= 1 && s[j] == '9') s[j--] = '0';
        s[j]++;  // j == 0 adds a leading 1
    }
    // s[0..ip] is the integer part with room for a carry.
    int from = 0;
    while (from < ip && s[from] == '0') from++;
    bool zero = true;
    for (int j = 1; j <= total; j++)
        if (s[j] != '0') zero = false;
    char text[128];
    int n = 0;
    if (v.neg && !zero) text[n++] = '-';
    const bool lead = from == ip && s[ip] == '0';  // the integer part is the 0 before the point
    for (int j = from; j <= ip; j++) text[n++] = s[j];
    if (dec > 0) {
        text[n++] = '.';
        for (int j = ip + 1; j <= total; j++) text[n++] = s[j];
    }
    if (n > width && lead && dec > 0) {
        // "-0.50" becomes "-.50", as dBASE writes it in a tight field.
        const int at = v.neg && !zero ? 1 : 0;
        std::memmove(text + at, text + at + 1, static_cast<size_t>(n - at - 1));
        n--;
    }
    if (n > width) return false;
    std::memset(out, ' ', static_cast<size_t>(width - n));
    std::memcpy(out + width - n, text, static_cast<size_t>(n));
    return true;
}

// v as an integer in lo..hi, rounded as above. False when out of range.
bool _decToInt(const _Dec &v, int64_t lo, int64_t hi, int64_t *out, bool *rounded) {
    char text[20];
    if (!_formatDec(v, 18, 0, text, rounded)) return false;
    char z[24];
    std::memcpy(z, text, 18);
    z[18] = '\0';
    const long long x = std::strtoll(z, nullptr, 10);
    if (x < lo || x > hi) return false;
    *out = x;
    return true;
}

double _decToDouble(const _Dec &v) {
    char text[kMaxDigits + 32];
    std::snprintf(text, sizeof text, "%s0.%.*se%d", v.neg ? "-" : "", v.n, v.d, v.point);
    return std::strtod(text, nullptr);
}

// v written out in full ("-12.5", "0.001"), as a field's text would show
// it; an exponent form only for what no field could hold anyway.
void _decText(const _Dec &v, char *out, size_t cap) {
    if (v.point < -40 || v.point > 40) {
        std::snprintf(out, cap, "%s0.%.*se%d", v.neg ? "-" : "", v.n, v.d, v.point);
        return;
    }
    size_t n = 0;
    auto put = [&](char c) {
        if (n + 1 < cap) out[n++] = c;
    };
    if (v.neg) put('-');
    if (v.point <= 0) put('0');
    for (int k = 0; k < v.point; k++) put(k < v.n ? v.d[k] : '0');
    if (v.n > v.point) {
        put('.');
        for (int k = v.point; k < v.n; k++) put(k < 0 ? '0' : v.d[k]);
    }
    out[n] = '\0';
}

void _decFromInt(int64_t x, _Dec *v) {
    char text[32];
    const int n = std::snprintf(text, sizeof text, "%lld", static_cast<long long>(x));
    _parseDec(text, n, false, v);
}

// The shortest decimal that reads back as x. False for NaN and infinities.
bool _decFromDouble(double x, _Dec *v) {
    if (x != x || x - x != 0.0) return false;
    char text[40];
    for (int p = 1; p <= 17; p++) {
        const int n = std::snprintf(text, sizeof text, "%.*e", p - 1, x);
        if (std::strtod(text, nullptr) == x || p == 17) return _parseDec(text, n, true, v);
    }
    return false;
}

// ---------------------------------------------------------------------------
// Dates and logicals from text
// ---------------------------------------------------------------------------

// Copy s (n bytes) without the blanks around it into out (cap bytes, NUL
// ended); false when it does not fit.
bool _trimmed(const char *s, int32_t n, char *out, int32_t cap) {
    int32_t i = 0;
    while (i < n && s[i] == ' ') i++;
    while (n > i && s[n - 1] == ' ') n--;
    if (n - i >= cap) return false;
    std::memcpy(out, s + i, static_cast<size_t>(n - i));
    out[n - i] = '\0';
    return true;
}

// The date a text shows as "yyyymmdd": eight digits of a valid date, or a
// date in the default style. 0 with the date in out, 1 for a blank date,
// -1 for no date. The parser's refusals are answers here, not failures.
int _textDate(const char *s, int32_t n, char out[16]) {
    char t[64];
    if (!_trimmed(s, n, t, sizeof t)) return -1;
    if (t[0] == '\0') return 1;
    const int saved = DBerrno;
    int y = 0, m = 0, d = 0;
    bool digits = std::strlen(t) == 8;
    for (int i = 0; digits && i < 8; i++) digits = t[i] >= '0' && t[i] <= '9';
    int rc = digits ? DBStrDateTo3(&y, &m, &d, t, 4) : -1;
    if (rc != 0) rc = DBStrDateTo3(&y, &m, &d, t, DBdate_style);
    if (rc == 0 && DBDate3ToStr(out, 4, y, m, d) != 0) rc = -1;
    DBerrno = saved;
    return rc == 0 ? 0 : rc == DBW_EMPTY ? 1 : -1;
}

// 'T' or 'F' for the words a logical is written with (T, Y, .T., TRUE, YES
// and their opposites, any letter case), ' ' for blank or "?", 0 otherwise.
char _textLogical(const char *s, int32_t n) {
    char t[8];
    if (!_trimmed(s, n, t, sizeof t)) return 0;
    _DBstrupr(t);
    if (t[0] == '\0' || std::strcmp(t, "?") == 0) return ' ';
    static constexpr const char *kTrue[] = {"T", "Y", ".T.", "TRUE", "YES"};
    static constexpr const char *kFalse[] = {"F", "N", ".F.", "FALSE", "NO"};
    for (const char *w : kTrue)
        if (std::strcmp(t, w) == 0) return 'T';
    for (const char *w : kFalse)
        if (std::strcmp(t, w) == 0) return 'F';
    return 0;
}

// ---------------------------------------------------------------------------
// The memo files of both tables
// ---------------------------------------------------------------------------

// A memo's bytes as read: data at buf + off, len bytes; type is FPT's type
// word (1 text, 0 picture or binary; DBT texts are 1).
struct _MemoData {
    DBOwned<uint8_t> buf;
    size_t off = 0;
    int32_t len = 0;
    int32_t type = 1;
    const char *data() const { return reinterpret_cast<const char *>(buf.get() + off); }
};

// The old memo file, read where records point, and the new one, filled in
// record order. Both families: FPT memos are copied with their type word
// (fd, bs, ff: the new file being filled, as the FPT pack fills it), DBT
// texts through the DBT writer, which gives each its place.
class _Memos {
public:
    _Memos(bool fpt, int version) : fpt_(fpt), version_(version) {}
    _Memos(const _Memos &) = delete;
    _Memos &operator=(const _Memos &) = delete;
    ~_Memos() {
        closeOld();
        closeNew();
        if (created_ && !handed_) _DBosDeleteFile(work);
    }
    char name[NAMECAP] = "";  // the memo file beside the table
    char work[NAMECAP] = "";  // the new memo file until it takes that name
    bool there = false;       // a file is under `name`

    int openOld() {
        const int rc = fpt_ ? DBfpOpenMemo(&old_, name, DBO_READONLY) : DBxbOpenMemo(&old_, name, version_ | DBO_READONLY);
        if (rc < 0) old_ = -1;
        return rc < 0 ? rc : 0;
    }
    // Create the new file under `work`: the old file's block size when there
    // is one, else the family's usual (64 bytes FPT, 512 DBT).
    int createNew() {
        int code = 0;
        if (fpt_) {
            if (old_ >= 0 && _DBfpLockMemoStruc(old_) == 0) code = _DBfpSizeCode(DBfpm->h.bsa);
            if (code == 0) code = 64;
        } else if (old_ >= 0 && _DBxbLockMemoStruc(old_) == 0 && DBxbm->bs % 512 == 0) {
            code = DBxbm->bs / 512;
        }
        if (!fpt_ && (code < 1 || code > 32)) code = 1;
        const int rc = fpt_ ? DBfpCreateMemo(work, code) : _DBxbCreateMemo(work, code, version_, name);
        if (_DBIsFileThere(work)) created_ = true;
        if (rc != 0) return _DBStatus(rc);
        if (fpt_) {
            DBOMODE om{};
            if (DBosOpenFile(&fd_, work, 0, &om) != 0) return DBerrno;
            bs_ = code <= 32 ? code * 512 : code;
            ff_ = (bs_ + 511) / bs_;
            return 0;
        }
        return DBxbOpenMemo(&new_, work, version_);
    }
    // Memo `block` of the old file into m.
    int read(int32_t block, _MemoData &m) {
        if (old_ < 0) return here.fail(DBE_NOTFOUND, __LINE__);
        if (fpt_) {
            DBFPTRHDR rh{};
            if (_DBfpLockMemoStruc(old_) != 0 || _DBfpReadMemo(block, m.buf, &rh) != 0) return DBerrno;
            m.off = 8;
            m.len = rh.len;
            m.type = rh.s;
            return 0;
        }
        char *text = nullptr;
        if (_DBxbLockMemoStruc(old_) != 0 || _DBxbReadText(block, &text, &m.len) != 0) return DBerrno;
        m.buf.reset(reinterpret_cast<uint8_t *>(text));
        m.off = 0;
        m.type = 1;
        return 0;
    }
    // Append m to the new file; *nb is where it went. A text the family
    // cannot hold (a dBASE III text with its end mark) is -233.
    int write(_MemoData &m, int32_t *nb) {
        *nb = 0;
        if (fpt_) {
            if (m.off < 8) {
                // Text from a field: make the room for the block header.
                DBOwned<uint8_t> b;
                if (b.alloc(static_cast<size_t>(m.len) + 8, here.id, __LINE__) != 0) return DBerrno;
                std::memcpy(b.get() + 8, m.data(), static_cast<size_t>(m.len));
                m.buf.reset(b.release());
                m.off = 8;
            }
            return _DBfpAppendMemo(fd_, bs_, &ff_, m.type, m.buf.get() + m.off - 8, m.len, nb);
        }
        if (_DBxbLockMemoStruc(new_) != 0) return DBerrno;
        DBerrno = 0;
        return _DBxbWriteText(nb, m.data(), m.len);
    }
    // Close both files; the new one is complete when this returns 0.
    int finish() {
        int rc = 0;
        if (fd_ >= 0) rc = _DBfpFinishFile(fd_, bs_, ff_);
        const int crc = closeNew();
        closeOld();
        return rc != 0 ? rc : crc;
    }
    // The swap owns the new file from here on.
    void handOver() { handed_ = true; }

private:
    void closeOld() {
        if (old_ >= 0) fpt_ ? DBfpCloseMemo(old_) : DBxbCloseMemo(old_);
        old_ = -1;
    }
    int closeNew() {
        int rc = 0;
        if (fd_ >= 0) rc = DBosCloseFile(fd_);
        if (new_ >= 0) rc = DBxbCloseMemo(new_);
        fd_ = new_ = -1;
        return rc;
    }
    bool fpt_;
    int version_;
    int old_ = -1, new_ = -1, fd_ = -1;
    int32_t bs_ = 0, ff_ = 0;
    bool created_ = false, handed_ = false;
};

// Whether a handle of this process other than `self` has file `name` open:
// replaced under it, that handle would go on working on the backup.
bool _openElsewhere(const char *name, int self) {
    uint64_t want[2], have[2];
    if (!_DBFileId(name, want)) return false;
    for (int h = 0; DBbase.p && h < DBbase.smf; h++) {
        const int8_t t = DBbase.p[h].s;
        if (h == self || (t != DBPT_DBF && t != DBPT_DBT && t != DBPT_FPT)) continue;
        const auto *ph = static_cast<const DBPKTHDR *>(DBbase.p[h].p);
        if (_DBFileId(ph->n, have) && have[0] == want[0] && have[1] == want[1]) return true;
    }
    return false;
}

// The memo file beside table `table`: its stem with ".DBT" or ".FPT",
// lower case when the table's extension has a lower-case letter. An
// existing file in the other letter case is taken when that one is missing.
void _memoName(char *out, size_t cap, const char *table, bool fpt) {
    const char *dot = std::strrchr(table + _DBDirLength(table), '.');
    bool lower = false;
    for (const char *p = dot; p && *p; p++) lower = lower || (*p >= 'a' && *p <= 'z');
    const char *ext[2] = {fpt ? ".FPT" : ".DBT", fpt ? ".fpt" : ".dbt"};
    _DBSiblingName(out, cap, table, ext[lower]);
    if (_DBIsFileThere(out)) return;
    char other[NAMECAP];
    if (_DBSiblingName(other, sizeof other, table, ext[!lower]) && _DBIsFileThere(other)) _DBCopyName(out, cap, other);
}

// ---------------------------------------------------------------------------
// One field's value, from the old record to the new one
// ---------------------------------------------------------------------------

struct _Value {
    enum Kind { BLANK, TEXT, NUMBER, DATE, LOGICAL, MEMO, RAW } kind = BLANK;
    const char *text = nullptr;  // TEXT, NUMBER, DATE, LOGICAL: the value's text
    int32_t len = 0;
    _Dec num;
    int32_t block = 0;  // MEMO
    char own[48] = {};  // a text made here
};

bool _spaces(const char *p, int n) {
    for (int i = 0; i < n; i++)
        if (p[i] != ' ') return false;
    return true;
}

// The value of field `field` of DBxbd (the old table) at p. A memo pointer
// that is no block number fails (-204), as it does in a memo pack.
int _readValue(int field, const char *p, bool memo, _Value *v) {
    const DBFIELDSTRUC &f = DBxbd->f[field];
    *v = _Value{};
    const int n = f.l;
    if (memo) {
        const int32_t b = _DBMemoFieldGet(field);
        if (b < 0) return here.fail(DBE_SEEK, __LINE__);
        if (b > 0) v->kind = _Value::MEMO, v->block = b;
        return 0;
    }
    if (_spaces(p, n)) return 0;
    int32_t from = 0, to = n;
    while (p[from] == ' ') from++;
    while (p[to - 1] == ' ') to--;
    v->kind = _Value::TEXT;
    v->text = p + from;
    v->len = to - from;
    switch (f.t) {
    case 'C':
        v->text = p;  // leading blanks are part of a text
        v->len = to;
        break;
    case 'N': case 'F':
        if (_parseDec(v->text, v->len, false, &v->num)) v->kind = _Value::NUMBER;
        break;
    case 'D':
        if (_textDate(p, n, v->own) == 0) {
            v->kind = _Value::DATE;
            v->text = v->own;
            v->len = 8;
        }
        break;
    case 'L': {
        const char c = _textLogical(p, 1);
        if (c == 'T' || c == 'F') {
            v->kind = _Value::LOGICAL;
            v->own[0] = c;
            v->text = v->own;
            v->len = 1;
        } else if (c == ' ') {
            v->kind = _Value::BLANK;
        }
        break;
    }
    case 1: case 2: case 3: case 4: case 11: case 'I': {
        uint8_t b[4] = {};
        std::memcpy(b, p, static_cast<size_t>(n < 4 ? n : 4));
        const int64_t x = (f.t == 1 || f.t == 2) ? static_cast<int16_t>(_DBLoadLE16(b))
                                                  : static_cast<int32_t>(_DBLoadLE32(b));
        _decFromInt(x, &v->num);
        v->kind = _Value::NUMBER;
        break;
    }
    case 13: {
        double x = 0.0;
        std::memcpy(&x, p, static_cast<size_t>(n < 8 ? n : 8));
        v->kind = _decFromDouble(x, &v->num) ? _Value::NUMBER : _Value::RAW;
        break;
    }
    default:
        v->kind = _Value::RAW;
        break;
    }
    if (v->kind == _Value::NUMBER && !(f.t == 'N' || f.t == 'F')) {
        // A binary number's text: its digits as a field would show them.
        _decText(v->num, v->own, sizeof v->own);
        v->text = v->own;
        v->len = static_cast<int32_t>(std::strlen(v->own));
    }
    return 0;
}

// Put value v into new field t (bytes at dst, blank already). *lost gets
// kCut and kRounded for what the conversion could not keep; a negative
// status is a failure of the memo files.
int _writeValue(const DBFIELDSTRUC &t, char *dst, int field, _Value &v, _Memos &memos, int *lost) {
    if (v.kind == _Value::BLANK) return 0;
    // A memo's content is read only where it is wanted; a picture or
    // binary memo has no text.
    _MemoData m;
    const char *text = v.text;
    int32_t len = v.len;
    if (v.kind == _Value::MEMO) {
        if (memos.read(v.block, m) != 0) return DBerrno;
        text = m.type == 1 ? m.data() : nullptr;
        len = m.len;
        if (text && t.t != 'M') {
            while (len > 0 && text[len - 1] == ' ') len--;
            if (len == 0) return 0;  // an empty memo is a blank value
        }
    }
    const char type = t.t;
    switch (type) {
    case 'C':
        if (!text) break;
        if (len <= t.l) {
            std::memcpy(dst, text, static_cast<size_t>(len));
            return 0;
        }
        // Texts are cut; a number, date or logical cut short would be
        // another value, so it is left out.
        if (v.kind == _Value::TEXT || v.kind == _Value::MEMO) std::memcpy(dst, text, t.l);
        break;
    case 'N': case 'F': {
        _Dec num = v.num;
        if (v.kind != _Value::NUMBER && (!text || v.kind == _Value::LOGICAL || !_parseDec(text, len, false, &num)))
            break;
        bool rounded = false;
        if (!_formatDec(num, t.l, t.d, dst, &rounded)) break;
        if (rounded) *lost |= kRounded;
        return 0;
    }
    case 'D': {
        char date[16];
        const int rc = text && v.kind != _Value::LOGICAL ? _textDate(text, len, date) : -1;
        if (rc < 0) break;
        if (rc == 0) std::memcpy(dst, date, 8);
        return 0;
    }
    case 'L': {
        const char c = text ? _textLogical(text, len) : 0;
        if (c == 0) break;
        dst[0] = c;
        return 0;
    }
    case 'M': {
        if (v.kind == _Value::RAW) break;
        if (v.kind != _Value::MEMO) {
            // A field's text becomes a text memo.
            if (m.buf.alloc(static_cast<size_t>(len), here.id, __LINE__) != 0) return DBerrno;
            std::memcpy(m.buf.get(), text, static_cast<size_t>(len));
            m.len = len;
        }
        int32_t nb = 0;
        const int rc = memos.write(m, &nb);
        if (rc == DBE_BADDATA && v.kind != _Value::MEMO) break;
        if (rc != 0) return rc;
        _DBMemoFieldPut(field, nb);
        return 0;
    }
    case 1: case 2: case 3: case 4: case 11: case 13: {
        _Dec num = v.num;
        if (v.kind != _Value::NUMBER && (!text || v.kind == _Value::LOGICAL || !_parseDec(text, len, false, &num)))
            break;
        uint8_t b[8];
        bool rounded = false;
        int64_t x = 0;
        if (type == 13) {
            const double d = _decToDouble(num);
            std::memcpy(b, &d, 8);
        } else if (type == 1 || type == 2) {
            if (!_decToInt(num, INT16_MIN, INT16_MAX, &x, &rounded)) break;
            _DBStoreLE16(b, static_cast<uint16_t>(x));
        } else {
            if (!_decToInt(num, INT32_MIN, INT32_MAX, &x, &rounded)) break;
            _DBStoreLE32(b, static_cast<uint32_t>(x));
        }
        std::memcpy(dst, b, t.l);
        if (rounded) *lost |= kRounded;
        return 0;
    }
    default:
        break;
    }
    *lost |= kCut;
    return 0;
}

// ---------------------------------------------------------------------------
// The tables
// ---------------------------------------------------------------------------

// The old table through the change: a file lock taken here is given back
// unless the change succeeded (the table is closed then).
class _OldTable {
public:
    explicit _OldTable(DBDATAPKT *d) : d_(d) {}
    _OldTable(const _OldTable &) = delete;
    _OldTable &operator=(const _OldTable &) = delete;
    ~_OldTable() {
        if (!done_) _DBGiveFileLock(d_, locked_);
    }
    bool *locked() { return &locked_; }
    void done() { done_ = true; }

private:
    DBDATAPKT *d_;
    bool locked_ = false, done_ = false;
};

// The new table under its work name, open while it is filled. Closing it
// writes nothing more; its file goes unless the swap took it over.
class _NewTable {
public:
    _NewTable() = default;
    _NewTable(const _NewTable &) = delete;
    _NewTable &operator=(const _NewTable &) = delete;
    ~_NewTable() {
        close();
        if (created_ && !handed_) _DBosDeleteFile(name);
    }
    char name[NAMECAP] = "";
    int handle = -1;
    bool created_ = false, handed_ = false;
    DBDATAPKT *packet() const { return static_cast<DBDATAPKT *>(_DBPacketOf(handle, DBPT_DBF)); }
    void close() {
        if (packet()) {
            const int st = DBerrno;
            _DBCloseUnwritten(handle);
            DBerrno = st;
        }
        handle = -1;
    }
};

// Copy every record of `old` into `nw`, field j of nw from old field map[j]
// (-1: none, the field stays blank).
int _copy(DBDATAPKT *old, DBDATAPKT *nw, const int *map, _Memos &memos, int *lost) {
    const int32_t total = old->h.n;
    for (int32_t rec = 1; rec <= total; rec++) {
        DBxbd = old;
        int rc = _DBGetRecord(rec);
        if (rc < 0) return rc;
        std::memset(nw->b.r, ' ', nw->h.r);
        for (int j = 0; j < nw->nf; j++) {
            if (map[j] < 0) continue;
            const DBFIELDSTRUC &f = old->f[map[j]];
            const DBFIELDSTRUC &t = nw->f[j];
            const bool same = f.t == t.t && f.l == t.l && f.d == t.d;
            DBxbd = old;
            const bool memo = _DBIsMemoField(map[j]);
            if (same && !memo) {
                // The same field: its bytes as they are, whatever they hold,
                // without a trip through its text.
                std::memcpy(nw->b.r + t.a, old->b.r + f.a, t.l);
                continue;
            }
            _Value v;
            if (_readValue(map[j], old->b.r + f.a, memo, &v) != 0) return DBerrno;
            DBxbd = nw;
            if (same && v.kind != _Value::MEMO) {
                // An empty memo field of the same kind: its pointer bytes as they are.
                std::memcpy(nw->b.r + t.a, old->b.r + f.a, t.l);
                continue;
            }
            if (_writeValue(t, nw->b.r + t.a, j, v, memos, lost) != 0) return DBerrno;
        }
        DBxbd = nw;
        int32_t recno = 0;
        if (_DBAppendRecord(&recno) != 0) return DBerrno;
        // An append makes the record active; a deleted one is marked again.
        if (old->b.r[0] != ' ') {
            nw->b.r[0] = old->b.r[0];
            if (_DBUpdateRecord(recno) != 0) return DBerrno;
        }
    }
    DBxbd = nw;
    return _DBFlushFile();
}

int _modify(int *handle, int nfields, DBFIELD *fields) {
    if (!handle || !fields) return here.fail(DBE_NULLPARAM, __LINE__);
    if (_DBLockDataStruc(*handle) != 0) return DBerrno;
    DBDATAPKT *old = DBxbd;
    if (old->ph.m.read_only) return here.fail(DBE_READONLY, __LINE__);
    const int style = _DBStyleOf(old);
    uint8_t version = 0;
    int reclen = 0;
    if (_DBCheckFields(style, nfields, fields, &version, &reclen) != 0) return DBerrno;

    // The names: table, backups, memo file, the marker of an unfinished change.
    char name[NAMECAP], backup[NAMECAP], mbackup[NAMECAP], mark[NAMECAP];
    _DBCopyName(name, sizeof name, old->ph.n);
    if (!_DBSiblingName(backup, sizeof backup, name, ".BAK") || !_DBSiblingName(mbackup, sizeof mbackup, name, ".TBK") ||
        _DBMemoMarkName(mark, sizeof mark, name) != 0)
        return here.fail(DBE_BADFILENAME, __LINE__);
    if (_DBIsFileThere(mark)) return here.fail(DBE_ACCESS, __LINE__);
    bool oldMemo = false, newMemo = false;
    for (int i = 0; i < old->nf; i++) oldMemo = oldMemo || _DBIsMemoField(i);
    for (int j = 0; j < nfields; j++) newMemo = newMemo || (fields[j].type & 0xFF) == 'M';
    const bool fpt = style == 4 || style == 8;
    _Memos memos(fpt, style == 2 ? 2 : 3);
    _memoName(memos.name, sizeof memos.name, name, fpt);
    memos.there = (oldMemo || newMemo) && _DBIsFileThere(memos.name);
    if (_DBSwapNamesClash(name, backup, mbackup, mark, (oldMemo || newMemo) ? memos.name : nullptr))
        return here.fail(DBE_BADFILENAME, __LINE__);
    if (_openElsewhere(name, *handle) || (memos.there && _openElsewhere(memos.name, -1)))
        return here.fail(DBE_FILESOPEN, __LINE__);

    // The old table's file as it stands, and nobody else writing to it.
    _OldTable guard(old);
    DBxbd = old;
    if (!old->ph.m.always_flush && _DBFlushFile() != 0) return DBerrno;
    const bool shared = old->ph.m.shared;
    if (_DBTakeFileLock(guard.locked()) != 0) return DBerrno;
    int cache = old->ph.m.always_flush ? 0 : old->b.rl;
    if (oldMemo && memos.there && memos.openOld() != 0) return DBerrno;

    // The new table and memo file beside the old ones. A shared change
    // keeps the new table's file lock until the swap is over: another
    // process that opens it by then must not take the marker for one
    // abandoned.
    _NewTable nw;
    if (_DBFreeName(nw.name, sizeof nw.name, name, ".DBF") != 0) return DBerrno;
    int rc = DBCreateFile(nw.name, nfields, fields, style | (old->h.mdx ? 0x200 : 0));
    nw.created_ = _DBIsFileThere(nw.name) != 0;
    if (rc < 0) return _DBStatus(rc);
    if (DBOpenFile(&nw.handle, nw.name, style | (shared ? DBO_SHARED : 0)) < 0) return DBerrno;
    if (shared && DBLockFile(nw.handle) != 0) return DBerrno;
    // The work table is filled front to back and seen by nobody: the
    // largest cache block it takes turns a flush every few records (each
    // with its end mark and header) into one every few hundred. When the
    // memory is not there, the block it has serves.
    int block = INT16_MAX;
    DBGetSetCacheSize(nw.handle, &block, 0);
    DBDATAPKT *np = nw.packet();
    if (newMemo) {
        if (_DBFreeName(memos.work, sizeof memos.work, name, fpt ? ".FPT" : ".DBT") != 0) return DBerrno;
        if (memos.createNew() != 0) return DBerrno;
    }

    // Fields by name, letter case ignored; the first old field of a name.
    DBOwned<int> map;
    if (map.alloc(static_cast<size_t>(nfields), here.id, __LINE__) != 0) return DBerrno;
    for (int j = 0; j < nfields; j++) {
        map[j] = -1;
        for (int i = 0; i < old->nf && map[j] < 0; i++)
            if (_DBstricmp(old->f[i].n, np->f[j].n) == 0) map[j] = i;
    }
    int lost = 0;
    rc = _copy(old, np, map.get(), memos, &lost);
    if (rc == 0) rc = memos.finish();
    if (rc != 0) return _DBStatus(rc);

    // The handle's new table is opened now, on the work file, with the old
    // open mode and cache size: once the new files are in place nothing
    // may fail any more, and an open can (memory, handles).
    int mode = style | (shared ? DBO_SHARED : 0) | (old->ph.m.multi_locks ? DBO_MULTILOCK : 0);
    if (old->ph.m.auto_locks) mode |= DBO_AUTOLOCK;
    else if (old->ph.m.always_flush) mode |= old->ph.flush_disk ? DBO_FLUSH : DBO_UNBUFFERED;
    _NewTable fresh;
    if (DBOpenFile(&fresh.handle, nw.name, mode) < 0) return DBerrno;
    if (cache > 0) DBGetSetCacheSize(fresh.handle, &cache, 0);

    // The swap; from here the work files are its to keep or remove.
    DBTABLESWAP s{name, nw.name, backup, memos.name, memos.work, mbackup, memos.there, newMemo};
    nw.handed_ = true;
    memos.handOver();
    rc = _DBTableSwap(s);
    nw.close();
    if (rc != 0) return _DBStatus(rc);

    // The fresh table now stands under the table's name and takes the
    // handle's slot; the old one, in the slot it leaves, is closed (which
    // gives back its file lock).
    DBDATAPKT *fp = fresh.packet();
    _DBCopyName(fp->ph.n, sizeof fp->ph.n, name);
    std::swap(DBbase.p[*handle], DBbase.p[fresh.handle]);
    guard.done();
    DBCloseFile(fresh.handle);
    fresh.handle = -1;
    return _DBStatus(lost & kCut ? DBW_TRUNCATED : lost & kRounded ? DBW_ROUNDED : 0);
}
}  // namespace

extern "C" DBAPI int DBModifyFile(int *handle, int nfields, DBFIELD *fields) {
    return _DBStatus(_modify(handle, nfields, fields));
}
