// evalx.cpp - the evaluator's parse-entry table: host-registered functions
// kept sorted by name.
#include "core.h"

// The table is freed by DBTerminate; the evaluator fills it.
void _DBFreeParseTable() {}
