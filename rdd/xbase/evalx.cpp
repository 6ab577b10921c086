// evalx.cpp - the evaluator's parse-entry table: functions the host
// registers under a name, kept sorted by name so that every term of every
// evaluation finds (or misses) them with one binary search.
#include "eval.h"

#include <cstring>

DBEVALNTRY *DBeval_tbl = nullptr;
int16_t DBeval_cnt = 0;
int16_t DBeval_size = 0;

namespace {
constexpr DBSite here{"rdd/xbase/evalx"};

constexpr int16_t kFirstRows = 20;
constexpr int16_t kMoreRows = 10;

// Compare text with a row's name over the name's length only, as unsigned
// bytes. The text's NUL ends the comparison (it is below every name byte),
// so a text shorter than the name is never read past.
int _cmp(const char *text, const DBEVALNTRY &row) {
    for (int32_t i = 0; i < row.l; i++) {
        const int a = static_cast<unsigned char>(text[i]);
        const int b = static_cast<unsigned char>(row.h[i]);
        if (a != b) return a - b;
    }
    return 0;
}

void _freetable() {
    for (int i = 0; i < DBeval_cnt; i++) DBFreeMemory(DBeval_tbl[i].h, here.id, __LINE__);
    if (DBeval_tbl) DBFreeMemory(DBeval_tbl, here.id, __LINE__);
    DBeval_tbl = nullptr;
    DBeval_cnt = 0;
    DBeval_size = 0;
}
}  // namespace

int _DBFindParseEntry(const char *text, int *at) {
    int low = 0, high = DBeval_cnt - 1, mid = 0;
    bool smaller = false;
    while (low <= high) {
        mid = (low + high) / 2;
        const int c = _cmp(text, DBeval_tbl[mid]);
        if (c == 0) {
            *at = mid;
            return 1;
        }
        smaller = c < 0;
        if (smaller)
            high = mid - 1;
        else
            low = mid + 1;
    }
    // The insertion point: the last middle when the text sorted before it,
    // the next row when after (0 for an empty table).
    *at = DBeval_cnt == 0 ? 0 : (smaller ? mid : mid + 1);
    return 0;
}

extern "C" DBAPI int DBAddParseEntry(char *name, DBPTEF f) {
    if (!name || !f) return here.fail(DBE_NULLPARAM, __LINE__);
    // An empty name would match every term of every expression.
    const size_t len = std::strlen(name);
    if (len == 0) return here.fail(DBE_BADEXPR, __LINE__);
    int at = 0;
    if (_DBFindParseEntry(name, &at)) return _DBStatus(DBW_EXISTS);
    // Counts are 16-bit: a table that cannot grow further is out of memory.
    if (DBeval_cnt == DBeval_size && DBeval_size > INT16_MAX - kMoreRows) return here.fail(DBE_NOMEMORY, __LINE__);

    void *mem = nullptr;
    if (DBAllocateMemoryLog(&mem, len, here.id, __LINE__) != 0) return DBE_NOMEMORY;
    DBOwned<char> copy(static_cast<char *>(mem));
    std::memcpy(copy.get(), name, len);
    if (DBeval_cnt == DBeval_size) {
        const int16_t rows = DBeval_size == 0 ? kFirstRows : static_cast<int16_t>(DBeval_size + kMoreRows);
        void *p = DBeval_tbl;
        if (DBReAllocateMemory(&p, sizeof(DBEVALNTRY) * rows, here.id, __LINE__) != 0) return DBE_NOMEMORY;
        DBeval_tbl = static_cast<DBEVALNTRY *>(p);
        DBeval_size = rows;
    }
    std::memmove(DBeval_tbl + at + 1, DBeval_tbl + at, sizeof(DBEVALNTRY) * (DBeval_cnt - at));
    DBeval_tbl[at] = {copy.release(), f, static_cast<int32_t>(len)};
    DBeval_cnt++;
    return _DBStatus(0);
}

extern "C" DBAPI int DBDeleteParseEntry(char *name) {
    if (!name) return here.fail(DBE_NULLPARAM, __LINE__);
    int at = 0;
    if (!_DBFindParseEntry(name, &at)) return _DBStatus(DBW_KEYNOTFOUND);
    DBFreeMemory(DBeval_tbl[at].h, here.id, __LINE__);
    std::memmove(DBeval_tbl + at, DBeval_tbl + at + 1, sizeof(DBEVALNTRY) * (DBeval_cnt - at - 1));
    DBeval_cnt--;
    // The table lives only while it has rows.
    if (DBeval_cnt == 0) _freetable();
    return _DBStatus(0);
}

extern "C" DBAPI int DBGetEntryStr(char *name, int row) {
    if (!name) return here.fail(DBE_NULLPARAM, __LINE__);
    // Rows are walked from 0 until 203; a row outside the table (negative,
    // or past the end) answers the same, never reads outside it.
    if (row < 0 || row >= DBeval_cnt) return _DBStatus(DBW_NOMOREKEYS);
    const DBEVALNTRY &e = DBeval_tbl[row];
    std::memcpy(name, e.h, static_cast<size_t>(e.l));
    name[e.l] = '\0';
    return _DBStatus(0);
}

extern "C" DBAPI int DBGetTableInfo(int *rows, int *longest) {
    if (!rows || !longest) return here.fail(DBE_NULLPARAM, __LINE__);
    *rows = DBeval_cnt;
    if (DBeval_cnt == 0) return _DBStatus(DBW_EMPTY);
    int32_t m = 0;
    for (int i = 0; i < DBeval_cnt; i++)
        if (DBeval_tbl[i].l > m) m = DBeval_tbl[i].l;
    *longest = m;
    return _DBStatus(0);
}

// At termination: every name, the table, and the evaluator's own buffers.
void _DBFreeParseTable() {
    _freetable();
    _DBFreeEvalBuffers();
}
