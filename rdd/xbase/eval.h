// eval.h - the key-expression evaluator: its state, the parse-entry table of
// host-registered functions, and the entry points index code calls.
#pragma once

#include "core.h"

// One row of the parse-entry table. The name is kept without a NUL: rows
// are matched against the expression text over `l` bytes only, so a row
// matches any text that begins with its name.
struct DBEVALNTRY {
    char *h;      // name bytes (not terminated)
    DBPTEF f;     // the host's function
    int32_t l;    // length of the name
};

// The evaluator's accumulating result; laid out like the caller's DBEVAL.
struct DBEVALPROC {
    char *eval;
    int16_t etyp;
    int16_t elen;
};

// Parse-entry table, sorted by name (unsigned bytes); allocated with 20 rows
// at the first registration, grown by 10, freed when the last row goes.
extern DBEVALNTRY *DBeval_tbl;
extern int16_t DBeval_cnt;
extern int16_t DBeval_size;

// State of the evaluation in progress.
extern int32_t DBeval_dbf;      // table handle the terms read their fields from
extern DBEVALPROC DBeval_pr;    // the result
extern DBEVALTEMP DBeval_fr;    // the current term and the cursor

// Evaluate expr against the current record of table. On success
// DBeval_pr.eval is a fresh block from the library allocator that the caller
// owns and frees with DBFreeMemory (or hands on, as DBEvaluateStr does); on
// failure it is NULL. Returns 0 or a negative status (also in DBerrno).
int _DBEvaluateStr(int32_t table, char *expr);

// As _DBEvaluateStr, but the result stays in the evaluator's own buffer:
// DBeval_pr.eval is borrowed, valid until the next evaluation, and must not
// be freed. This is the allocation-free path for builds that turn each
// record's value into a key at once.
int _DBEvaluateKey(int32_t table, char *expr);

// Evaluate the field name or literal at the cursor into DBeval_fr. The value
// lives in the evaluator's term buffer (not a fresh block); only meaningful
// inside an evaluation.
int _DBProcessField();

// Binary search of the parse-entry table for a row whose name begins text.
// Returns 1 with *at = the row, or 0 with *at = the row where such a name
// would be inserted.
int _DBFindParseEntry(const char *text, int *at);

// The field number when expr is nothing but the name of a character field
// of table, which no host function claims; else -1. Such an expression's
// value is the field's text up to its first NUL, so bulk builds may take it
// from the record buffer without evaluating.
int _DBPlainField(int32_t table, const char *expr);

// Free the evaluator's reusable buffers (called when the library terminates).
void _DBFreeEvalBuffers();
