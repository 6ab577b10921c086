// eval.cpp - the key-expression evaluator. An expression is a flat sequence
// of terms joined by "+" or "-": field names, literals, built-in functions
// and functions the host registered in the parse-entry table. It is
// evaluated against the current record of a table into one value: a string
// ("C"), a double ("N", "F") or a date string ("D").
//
// Index builds evaluate once per record, so the evaluator keeps two buffers
// of its own from one evaluation to the next: the term buffer, where every
// term's value is built and transformed in place, and the result buffer,
// where the terms are joined. A term only becomes a block of its own when a
// host function asks for it (DBProcessTable) and the result only when the
// caller takes it (_DBEvaluateStr); _DBEvaluateKey allocates nothing.
#include "eval.h"

#include "dbf.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int32_t DBeval_dbf = 0;
DBEVALPROC DBeval_pr = {nullptr, ' ', 0};
DBEVALTEMP DBeval_fr = {nullptr, ' ', 0, nullptr};

namespace {
constexpr DBSite here{"rdd/xbase/eval"};

// Lengths travel in signed 16-bit fields.
constexpr size_t kMaxLen = 32767;
// Function terms nest by recursion; a text of a few hundred "UPPER(" must
// end in a status, not in a stack overflow.
constexpr int kMaxDepth = 64;
// Field and literal tokens are at most 10 characters, like field names.
constexpr size_t kMaxToken = 10;

// The term buffer. While a term is evaluated internally DBeval_fr.fval
// points here. Invariants: term_cap >= DBeval_fr.flen, and a "C" or "D"
// value has its NUL inside the buffer.
char *term_buf = nullptr;
size_t term_cap = 0;
// The result buffer: acc_size meaningful bytes (string and NUL, or the
// first non-string term's bytes).
char *acc_buf = nullptr;
size_t acc_cap = 0;
size_t acc_size = 0;

// An evaluation is in progress: DBProcessTable and DBGetValue work only
// then, and a nested DBEvaluateStr is refused (the state is global).
bool active = false;
int depth = 0;
const char *expr_end = nullptr;

int _up(unsigned char c) { return (c >= 'a' && c <= 'z') ? c - 'a' + 'A' : c; }

// Grow one of the evaluator's buffers to at least need bytes, keeping its
// contents. Geometric, so a build settles on its largest key at once.
int _room(char **buf, size_t *cap, size_t need, int line) {
    if (need <= *cap) return 0;
    size_t n = std::max<size_t>({need, *cap * 2, 64});
    void *p = *buf;
    if (DBReAllocateMemory(&p, n, here.id, line) != 0) return DBE_NOMEMORY;
    *buf = static_cast<char *>(p);
    *cap = n;
    return 0;
}

int _termroom(size_t need, int line) {
    int rc = _room(&term_buf, &term_cap, need, line);
    DBeval_fr.fval = term_buf;
    return rc;
}

bool _isstr(int t) { return t == 'C' || t == 'D'; }

// Bytes of the current term that carry its value.
size_t _termused() {
    return _isstr(DBeval_fr.ftyp) ? std::strlen(term_buf) + 1 : static_cast<size_t>(DBeval_fr.flen);
}

// Field name comparison as DBGetFieldNumber makes it (ASCII case ignored,
// whole names), bounded by the 11 bytes of the descriptor so that a name
// without its NUL in a damaged header is not read past.
bool _nameeq(const char *fname, const char *tok) {
    for (int k = 0; k < 11; k++) {
        const int a = _up(static_cast<unsigned char>(fname[k]));
        const int b = _up(static_cast<unsigned char>(tok[k]));
        if (a != b) return false;
        if (a == 0) return true;
    }
    return false;  // tokens are at most 10 characters, so never reached
}

// x87 arithmetic (the -m32 default) rounds twice, to 64 bits and then to
// 53, and can land one unit away from the SSE result for the same sum. Keys
// must not depend on the build, so the one piece of arithmetic the
// evaluator does is done in SSE on 32-bit x86 too.
#if defined(__i386__)
__attribute__((target("sse2,fpmath=sse"), noinline))
#endif
void _addto(char *acc, const char *term, bool subtract) {
    double a, b;
    std::memcpy(&a, acc, sizeof a);
    std::memcpy(&b, term, sizeof b);
    a = subtract ? a - b : a + b;
    std::memcpy(acc, &a, sizeof a);
}

int _term();

// Log a failure whose status the date code already stored, and pass it on.
int _relay(int rc, int line) {
    here.log(rc, line);
    return rc;
}

// Step over the ")" that closes a function term. A missing one is a bad
// expression (stepping blindly would walk past the end of the text).
int _close(int line) {
    if (*DBeval_fr.xprsn != ')') return here.fail(DBE_BADEXPR, line);
    DBeval_fr.xprsn++;
    return 0;
}

// Evaluate a function's inner term and require its type.
int _inner(int want1, int want2, int line) {
    int rc = _term();
    if (rc < 0) return rc;
    if (DBeval_fr.ftyp != want1 && DBeval_fr.ftyp != want2) return here.fail(DBE_BADEXPR, line);
    return 0;
}

// A count argument; negative counts take nothing.
int _count(size_t *n) {
    int16_t v = 0;
    int rc = DBGetValue(&v);
    if (rc < 0) return rc;
    *n = v < 0 ? 0 : static_cast<size_t>(v);
    return 0;
}

// The start of LEFT, RIGHT, PADR and SUBSTR: a string term, then a count.
int _strcount(size_t *n, int line) {
    const int rc = _inner('C', 'C', line);
    return rc < 0 ? rc : _count(n);
}

int _dtoc() {
    int rc = _inner('D', 'D', __LINE__);
    if (rc < 0) return rc;
    char *c = DBeval_fr.xprsn;
    if (c[0] == ',' && c[1] == '1') {
        DBeval_fr.xprsn += 2;
        // Style 4 is the key form. A blank date has no day to convert: its
        // key is eight blanks, as the xBase indexes store it.
        char out[16];
        int y = 0, m = 0, d = 0;
        rc = DBStrDateTo3(&y, &m, &d, term_buf, DBdate_style);
        if (rc == DBW_EMPTY)
            std::memcpy(out, "        ", 9);
        else if (rc < 0)
            return _relay(rc, __LINE__);
        else if ((rc = DBDate3ToStr(out, 4, y, m, d)) < 0)
            return _relay(rc, __LINE__);
        if (_termroom(9, __LINE__) != 0) return DBE_NOMEMORY;
        std::memcpy(term_buf, out, 9);
    }
    DBeval_fr.ftyp = 'C';
    return _close(__LINE__);
}

// LEFT, RIGHT and SUBSTR only move bytes inside the term buffer and never
// shrink it, so flen (left as it was) still fits inside the buffer.
int _left() {
    size_t n = 0;
    if (const int rc = _strcount(&n, __LINE__); rc < 0) return rc;
    if (n < std::strlen(term_buf)) term_buf[n] = '\0';
    return _close(__LINE__);
}

int _right() {
    size_t n = 0;
    if (const int rc = _strcount(&n, __LINE__); rc < 0) return rc;
    const size_t len = std::strlen(term_buf);
    if (n < len) std::memmove(term_buf, term_buf + (len - n), n + 1);
    return _close(__LINE__);
}

int _padr() {
    size_t n = 0;
    if (const int rc = _strcount(&n, __LINE__); rc < 0) return rc;
    // n may exceed flen (PADR wider than the field): the buffer grows to
    // the text, flen stays as it was.
    if (_termroom(n + 1, __LINE__) != 0) return DBE_NOMEMORY;
    const size_t len = std::strlen(term_buf);
    if (len < n) std::memset(term_buf + len, ' ', n - len);
    term_buf[n] = '\0';
    return _close(__LINE__);
}

// Only bytes below 128 change. The rule converts the value's first flen
// bytes; bytes past the NUL are not part of the value, so the loop stops at
// whichever comes first (flen is shorter than the text after a wide PADR,
// longer after LEFT).
int _case(bool upper) {
    int rc = _inner('C', 'C', __LINE__);
    if (rc < 0) return rc;
    const size_t lim = std::min(std::strlen(term_buf), static_cast<size_t>(DBeval_fr.flen));
    for (size_t i = 0; i < lim; i++) {
        const unsigned char c = static_cast<unsigned char>(term_buf[i]);
        if (upper && c >= 'a' && c <= 'z') term_buf[i] = static_cast<char>(c - 'a' + 'A');
        if (!upper && c >= 'A' && c <= 'Z') term_buf[i] = static_cast<char>(c - 'A' + 'a');
    }
    return _close(__LINE__);
}
int _toupper() { return _case(true); }
int _tolower() { return _case(false); }

// STR( of a count (a whole number, no decimals) is the common numeric key.
// Printed here without the C library's floating-point formatting, exactly
// as "%w.0lf" prints it; anything else returns -1 and goes to printf.
int _wholenumber(char *out, double v, int w, int dec) {
    if (dec != 0 || w > 64 || !(v > -1e15 && v < 1e15)) return -1;
    const long long iv = static_cast<long long>(v);
    if (static_cast<double>(iv) != v) return -1;
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    const bool negative = (bits >> 63) != 0;  // -0.0 prints as "-0"
    unsigned long long u = static_cast<unsigned long long>(iv < 0 ? -iv : iv);
    char digits[24];
    int nd = 0;
    do {
        digits[nd++] = static_cast<char>('0' + u % 10);
        u /= 10;
    } while (u);
    const int len = nd + (negative ? 1 : 0);
    const int padding = w > len ? w - len : 0;
    int k = 0;
    for (; k < padding; k++) out[k] = ' ';
    if (negative) out[k++] = '-';
    while (nd) out[k++] = digits[--nd];
    out[k] = '\0';
    return k;
}

int _str() {
    int rc = _inner('N', 'F', __LINE__);
    if (rc < 0) return rc;
    double v;
    std::memcpy(&v, term_buf, sizeof v);
    int16_t w = 10, dec = 0;
    if (*DBeval_fr.xprsn == ',') {
        if ((rc = DBGetValue(&w)) < 0) return rc;
        if (*DBeval_fr.xprsn == ',' && (rc = DBGetValue(&dec)) < 0) return rc;
    }
    if (*DBeval_fr.xprsn != ')') return here.fail(DBE_BADEXPR, __LINE__);
    // A negative width would make a negative buffer length (and flen), a
    // negative precision an invalid format.
    if (w < 0 || w >= static_cast<int>(kMaxLen) || dec < 0) return here.fail(DBE_BADEXPR, __LINE__);
    // A number wider than w prints wider: the buffer is sized by the text.
    char small[128];
    int n = _wholenumber(small, v, w, dec);
    char fmt[32] = "";
    if (n < 0) {
        std::snprintf(fmt, sizeof fmt, "%%%d.%dlf", w, dec);
        n = std::snprintf(small, sizeof small, fmt, v);
    }
    if (n < 0) return here.fail(DBE_BADEXPR, __LINE__);
    const size_t need = std::max<size_t>(static_cast<size_t>(n), static_cast<size_t>(w)) + 1;
    if (_termroom(need, __LINE__) != 0) return DBE_NOMEMORY;
    if (static_cast<size_t>(n) < sizeof small)
        std::memcpy(term_buf, small, static_cast<size_t>(n) + 1);
    else
        std::snprintf(term_buf, need, fmt, v);
    DBeval_fr.ftyp = 'C';
    DBeval_fr.flen = static_cast<int16_t>(w + 1);
    DBeval_fr.xprsn++;
    return 0;
}

int _substr() {
    size_t start = 0;
    int rc = _strcount(&start, __LINE__);
    if (rc < 0) return rc;
    size_t len = std::strlen(term_buf);
    // Positions count from 1; 0 or less starts at the first character, a
    // start past the end leaves nothing.
    const size_t from = std::min(start == 0 ? 0 : start - 1, len);
    std::memmove(term_buf, term_buf + from, len - from + 1);
    len -= from;
    if (*DBeval_fr.xprsn == ',') {
        size_t n = 0;
        if ((rc = _count(&n)) < 0) return rc;
        if (n < len) term_buf[n] = '\0';
    }
    return _close(__LINE__);
}

struct DBBUILTIN {
    const char *name;
    int (*run)();
};
// Tested in this order. The short spellings UPPE( and LOWER( cross over:
// UPPE( lower-cases and LOWER( upper-cases. Expressions stored in existing
// index files rely on it, so it stays.
constexpr DBBUILTIN kBuiltins[] = {
    {"DTOC(", _dtoc},       {"LEFT(", _left},      {"RIGHT(", _right},  {"PADR(", _padr},
    {"RIGH(", _right},      {"UPPER(", _toupper},  {"UPPE(", _tolower}, {"LOWER(", _toupper},
    {"LOWE(", _tolower},    {"STR(", _str},        {"SUBSTR(", _substr}, {"SUBST(", _substr},
    {"SUBS(", _substr},
};

// Length of the built-in name at the start of text (case ignored), or 0.
size_t _starts(const char *text, const char *name) {
    size_t k = 0;
    for (; name[k]; k++)
        if (_up(static_cast<unsigned char>(text[k])) != static_cast<unsigned char>(name[k])) return 0;
    return k;
}

// Call the host's function of parse-entry row `at` and bring its value into
// the term buffer, so that what follows works on one kind of value.
int _host(int at) {
    // The row may move or vanish while the function runs (it may register
    // or delete entries): take what is needed first.
    const DBPTEF f = DBeval_tbl[at].f;
    char *const after = DBeval_fr.xprsn + DBeval_tbl[at].l;
    DBeval_fr.xprsn = after;
    DBeval_fr.fval = nullptr;
    DBeval_fr.ftyp = ' ';
    DBeval_fr.flen = 0;
    const int rc = f(&DBeval_fr);
    char *const v = static_cast<char *>(DBeval_fr.fval);
    DBeval_fr.fval = term_buf;
    // A failing function keeps whatever it left in fval: it may well have
    // freed it already, and a leak is better than a double free.
    if (rc < 0) return _DBStatus(rc);
    // A successful one hands its value over.
    DBOwned<char> value(v == term_buf ? nullptr : v);
    // It must have stepped forward inside the text, or the evaluation could
    // loop or read outside it.
    const auto pos = reinterpret_cast<uintptr_t>(DBeval_fr.xprsn);
    if (pos < reinterpret_cast<uintptr_t>(after) || pos > reinterpret_cast<uintptr_t>(expr_end))
        return here.fail(DBE_BADEXPR, __LINE__);
    if (!value || DBeval_fr.flen < 0) return here.fail(DBE_BADEXPR, __LINE__);
    const int t = DBeval_fr.ftyp;
    const size_t flen = static_cast<size_t>(DBeval_fr.flen);
    if ((t == 'N' || t == 'F') && flen < sizeof(double)) return here.fail(DBE_BADEXPR, __LINE__);
    const size_t used = _isstr(t) ? std::strlen(value.get()) + 1 : flen;
    if (used > kMaxLen + 1) return here.fail(DBE_BADEXPR, __LINE__);
    const size_t size = std::max<size_t>({used, flen, 1});
    if (_termroom(size, __LINE__) != 0) return DBE_NOMEMORY;
    std::memcpy(term_buf, value.get(), used);
    std::memset(term_buf + used, 0, size - used);
    return _DBStatus(rc);
}

int _term1() {
    const char *cur = DBeval_fr.xprsn;
    int at = 0;
    if (DBeval_cnt > 0 && _DBFindParseEntry(cur, &at)) return _host(at);
    switch (_up(static_cast<unsigned char>(*cur))) {
    case 'D': case 'L': case 'R': case 'P': case 'U': case 'S':
        for (const DBBUILTIN &b : kBuiltins) {
            if (const size_t n = _starts(cur, b.name)) {
                DBeval_fr.xprsn += n;
                return b.run();
            }
        }
        break;
    default:
        break;
    }
    return _DBProcessField();
}

// One term at the cursor into the term buffer.
int _term() {
    if (depth >= kMaxDepth) return here.fail(DBE_BADEXPR, __LINE__);
    depth++;
    const int rc = _term1();
    depth--;
    return rc;
}

// Join the term just evaluated to the result.
int _accumulate(int op) {
    const int t = DBeval_fr.ftyp;
    if (t == 'C') {
        // "+" and "-" both concatenate strings.
        if (DBeval_pr.etyp != ' ' && DBeval_pr.etyp != 'C') return here.fail(DBE_BADEXPR, __LINE__);
        const size_t n = std::strlen(term_buf);
        const size_t len = static_cast<size_t>(DBeval_pr.elen) + n;
        if (len > kMaxLen) return here.fail(DBE_BADEXPR, __LINE__);
        if (_room(&acc_buf, &acc_cap, len + 1, __LINE__) != 0) return DBE_NOMEMORY;
        std::memcpy(acc_buf + DBeval_pr.elen, term_buf, n + 1);
        DBeval_pr.elen = static_cast<int16_t>(len);
        DBeval_pr.etyp = 'C';
        acc_size = len + 1;
    } else if (DBeval_pr.etyp == ' ') {
        // The first term gives the result its type; a date's length is that
        // of its text, any other value's the length of its buffer.
        size_t size = static_cast<size_t>(DBeval_fr.flen);
        if (t == 'D') {
            const size_t n = std::strlen(term_buf);
            if (n > kMaxLen) return here.fail(DBE_BADEXPR, __LINE__);
            DBeval_pr.elen = static_cast<int16_t>(n);
            size = std::max(size, n + 1);
        } else {
            DBeval_pr.elen = DBeval_fr.flen;
        }
        if (_room(&acc_buf, &acc_cap, std::max<size_t>(size, 1), __LINE__) != 0) return DBE_NOMEMORY;
        std::memcpy(acc_buf, term_buf, size);
        if (size == 0) acc_buf[0] = '\0';
        acc_size = std::max<size_t>(size, 1);
        DBeval_pr.etyp = static_cast<int16_t>(t);
    } else if (t == 'N' || t == 'F') {
        if (DBeval_pr.etyp != 'N' && DBeval_pr.etyp != 'F') return here.fail(DBE_BADEXPR, __LINE__);
        // Without an operator (a number right after a function's ")") the
        // term is dropped.
        if (op != 0) _addto(acc_buf, term_buf, op == '-');
    }
    // A date, logical or memo after the first term is dropped silently.
    DBeval_pr.eval = acc_buf;
    DBeval_fr.fval = nullptr;
    return 0;
}

// The evaluation proper; the result is left in the result buffer.
int _evaluate(int32_t table, char *expr) {
    if (active) return here.fail(DBE_BADCOMMAND, __LINE__);
    // Reset first: a failure below must not leave the previous caller's
    // result pointer in DBeval_pr to be handed out a second time.
    DBeval_pr = {nullptr, ' ', 0};
    if (!expr) return here.fail(DBE_NULLPARAM, __LINE__);
    int rc = _DBLockDataStruc(table);
    if (rc != 0) return here.fail(rc, __LINE__);
    if (_room(&acc_buf, &acc_cap, 1, __LINE__) != 0) return DBE_NOMEMORY;
    acc_buf[0] = '\0';
    acc_size = 1;
    DBeval_pr.eval = acc_buf;
    DBeval_dbf = table;
    DBeval_fr = {nullptr, ' ', 0, expr};
    expr_end = expr + std::strlen(expr);
    active = true;
    depth = 0;
    int status = 0;
    while (*DBeval_fr.xprsn) {
        int op = 0;
        if (*DBeval_fr.xprsn == '+' || *DBeval_fr.xprsn == '-') op = *DBeval_fr.xprsn++;
        status = _term();
        if (status < 0) {
            here.log(status, __LINE__);
            break;
        }
        if ((status = _accumulate(op)) < 0) break;
    }
    active = false;
    DBeval_fr.fval = nullptr;
    DBeval_fr.xprsn = nullptr;
    if (status < 0) {
        DBeval_pr.eval = nullptr;
        return _DBStatus(status);
    }
    // Field warnings (a blank field) do not make the key any less valid.
    return _DBStatus(0);
}
}  // namespace

int _DBProcessField() {
    char *cur = DBeval_fr.xprsn;
    const size_t n = std::strcspn(cur, ",)+-");
    if (n == 0 || n > kMaxToken) return here.fail(DBE_BADEXPR, __LINE__);
    DBeval_fr.xprsn = cur + n;
    char tok[kMaxToken + 1] = {};
    std::memcpy(tok, cur, n);

    // Resolved again for every term: a host function may have worked on
    // another table in between.
    int rc = _DBLockDataStruc(DBeval_dbf);
    if (rc != 0) return here.fail(rc, __LINE__);
    const DBDATAPKT *d = DBxbd;
    int fld = -1;
    for (int i = 0; i < d->nf; i++) {
        if (_nameeq(d->f[i].n, tok)) {
            fld = i;
            break;
        }
    }
    if (fld >= 0) {
        const DBFIELDSTRUC &f = d->f[fld];
        const int t = static_cast<unsigned char>(f.t);
        size_t len;
        switch (t) {
        case 'C': len = static_cast<size_t>(f.l) + 1; break;
        case 'N': case 'F': len = 8; break;
        case 'M': len = 4; break;
        case 'L': len = 1; break;
        default: len = 11; break;  // dates, and room for any other type
        }
        if (len > kMaxLen) return here.fail(DBE_BADEXPR, __LINE__);
        if (_termroom(len, __LINE__) != 0) return DBE_NOMEMORY;
        // Types the converter does not deliver leave the buffer as it is:
        // let that be zeros, not the previous term.
        if (t != 'C') std::memset(term_buf, 0, len);
        rc = _DBGetFieldData(term_buf, fld, t);
        if (rc < 0) return here.fail(rc, __LINE__);
        DBeval_fr.ftyp = static_cast<int16_t>(t);
        DBeval_fr.flen = static_cast<int16_t>(len);
        return 0;
    }
    // Not a field: digits and points make a number, anything else is taken
    // as text (so a misspelt field name evaluates to itself).
    bool number = true;
    for (size_t i = 0; i < n; i++)
        if (!((tok[i] >= '0' && tok[i] <= '9') || tok[i] == '.')) number = false;
    if (number) {
        if (_termroom(sizeof(double), __LINE__) != 0) return DBE_NOMEMORY;
        const double v = std::atof(tok);
        std::memcpy(term_buf, &v, sizeof v);
        DBeval_fr.ftyp = 'N';
        DBeval_fr.flen = 8;
    } else {
        if (_termroom(n + 1, __LINE__) != 0) return DBE_NOMEMORY;
        std::memcpy(term_buf, tok, n + 1);
        DBeval_fr.ftyp = 'C';
        DBeval_fr.flen = static_cast<int16_t>(n + 1);
    }
    return 0;
}

int _DBEvaluateKey(int32_t table, char *expr) { return _evaluate(table, expr); }

int _DBPlainField(int32_t table, const char *expr) {
    if (!expr || !*expr || std::strcspn(expr, ",()+-") != std::strlen(expr) || std::strlen(expr) > kMaxToken) return -1;
    int at = 0;
    if (DBeval_cnt > 0 && _DBFindParseEntry(expr, &at)) return -1;
    const auto *d = static_cast<const DBDATAPKT *>(_DBPacketOf(table, DBPT_DBF));
    if (!d) return -1;
    for (int i = 0; i < d->nf; i++)
        if (_nameeq(d->f[i].n, expr)) return d->f[i].t == 'C' ? i : -1;
    return -1;
}

int _DBEvaluateStr(int32_t table, char *expr) {
    int rc = _evaluate(table, expr);
    if (rc < 0) return rc;
    void *p = nullptr;
    if (DBAllocateMemoryLog(&p, acc_size, here.id, __LINE__) != 0) {
        DBeval_pr.eval = nullptr;
        return DBE_NOMEMORY;
    }
    std::memcpy(p, acc_buf, acc_size);
    DBeval_pr.eval = static_cast<char *>(p);
    return _DBStatus(0);
}

void _DBFreeEvalBuffers() {
    if (term_buf) DBFreeMemory(term_buf, here.id, __LINE__);
    if (acc_buf) DBFreeMemory(acc_buf, here.id, __LINE__);
    term_buf = acc_buf = nullptr;
    term_cap = acc_cap = acc_size = 0;
    DBeval_pr = {nullptr, ' ', 0};
    DBeval_fr = {nullptr, ' ', 0, nullptr};
    DBeval_dbf = 0;
}

extern "C" DBAPI int DBEvaluateStr(int32_t table, char *expr, DBEVAL *out) {
    if (!expr || !out) return here.fail(DBE_NULLPARAM, __LINE__);
    if (active) {
        // Called from a host function: the evaluation in progress owns the
        // state, and its buffers must not be handed out.
        *out = {nullptr, ' ', 0};
        return here.fail(DBE_BADCOMMAND, __LINE__);
    }
    _DBEvaluateStr(table, expr);
    out->eval = DBeval_pr.eval;
    out->etyp = DBeval_pr.etyp;
    out->elen = DBeval_pr.elen;
    return DBerrno;
}

extern "C" DBAPI int DBProcessTable(void) {
    if (!active) return here.fail(DBE_BADCOMMAND, __LINE__);
    DBeval_fr.fval = nullptr;
    const int rc = _term();
    if (rc < 0) {
        DBeval_fr.fval = nullptr;
        return _DBStatus(rc);
    }
    // The host gets a block of its own, at least flen bytes long so that a
    // function trusting flen stays inside it.
    const size_t used = _termused();
    const size_t size = std::max<size_t>({used, static_cast<size_t>(DBeval_fr.flen), 1});
    void *p = nullptr;
    if (DBAllocateMemoryLog(&p, size, here.id, __LINE__) != 0) {
        DBeval_fr.fval = nullptr;
        return DBE_NOMEMORY;
    }
    std::memcpy(p, term_buf, used);
    std::memset(static_cast<char *>(p) + used, 0, size - used);
    DBeval_fr.fval = p;
    return _DBStatus(rc);
}

extern "C" DBAPI int DBGetValue(int16_t *out) {
    if (!out) return here.fail(DBE_NULLPARAM, __LINE__);
    if (!active) return here.fail(DBE_BADCOMMAND, __LINE__);
    // Step over the separator before the argument (whatever it is), then
    // the argument runs to the next "," or ")".
    const char *c = DBeval_fr.xprsn;
    if (*c == '\0') return here.fail(DBE_BADEXPR, __LINE__);
    c++;
    const size_t n = std::strcspn(c, ",)");
    if (c[n] == '\0' || n == 0) return here.fail(DBE_BADEXPR, __LINE__);
    // atoi's reading; the separator stops it. A value that does not fit the
    // 16-bit result is refused rather than wrapped.
    const long v = std::strtol(c, nullptr, 10);
    if (v < -32768 || v > 32767) return here.fail(DBE_BADEXPR, __LINE__);
    *out = static_cast<int16_t>(v);
    DBeval_fr.xprsn = const_cast<char *>(c + n);
    return _DBStatus(0);
}
