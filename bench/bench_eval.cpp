// bench_eval.cpp - evaluations per second of key expressions over a
// 1,000,000-record table, the way an index build runs them: move to the
// next record, evaluate, take the value. The table is written once with the
// table engine in a temporary directory.
//
// The allocator is counted (malloc and realloc are wrapped in this program)
// so the "allocs/eval" counter shows what one evaluation costs in blocks.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

extern "C" {
#include "xbfiles.h"
}
#include "eval.h"

extern "C" void *__libc_malloc(size_t);
extern "C" void *__libc_realloc(void *, size_t);

namespace {
unsigned long g_allocs = 0;
}

extern "C" void *malloc(size_t n) {
    g_allocs++;
    return __libc_malloc(n);
}
extern "C" void *realloc(void *p, size_t n) {
    g_allocs++;
    return __libc_realloc(p, n);
}

namespace {

constexpr int32_t kRecords = 1000000;

// One table for every benchmark, built on first use and removed at exit.
struct Table {
    std::string dir, file;
    int h = -1;
    Table() {
        char tmpl[] = "/tmp/xbbench.XXXXXX";
        if (!mkdtemp(tmpl)) std::abort();
        dir = tmpl;
        file = dir + "/people.dbf";
        if (DBInitialize(16, 4) != 0) std::abort();
        DBFIELD f[] = {{"NAME", 'C', 20, 0}, {"CITY", 'C', 15, 0}, {"AMOUNT", 'N', 10, 2},
                       {"QTY", 'N', 5, 0},   {"HIRED", 'D', 8, 0}};
        if (DBCreateFile(file.data(), 5, f, 1) != 0) std::abort();
        if (DBOpenFile(&h, file.data(), 1) != 0) std::abort();
        static const char *cities[] = {"Oslo", "Rome", "Vienna", "Berlin", "Lisbon", "Madrid", "Paris"};
        char buf[32];
        for (int32_t i = 0; i < kRecords; i++) {
            DBClearBuffer(h);
            std::snprintf(buf, sizeof buf, "Name%07lld", (i * 7919LL) % kRecords);
            DBPutStrField(h, 0, buf);
            std::snprintf(buf, sizeof buf, "%s", cities[i % 7]);
            DBPutStrField(h, 1, buf);
            std::snprintf(buf, sizeof buf, "%10.2f", (i % 20000) / 4.0 - 2500);
            DBPutStrField(h, 2, buf);
            std::snprintf(buf, sizeof buf, "%5d", i % 1000);
            DBPutStrField(h, 3, buf);
            std::snprintf(buf, sizeof buf, "%04d%02d%02d", 1950 + i % 70, 1 + i % 12, 1 + i % 28);
            DBPutStrField(h, 4, buf);
            int32_t recno = 0;
            if (DBPutRecord(h, &recno, DB_APPEND) != 0) {
                std::fprintf(stderr, "append failed at %d: %d\n", i, DBerrno);
                std::abort();
            }
        }
        DBFlushFile(h);
    }
    ~Table() {
        DBCloseFile(h);
        DBTerminate();
        std::remove(file.c_str());
        rmdir(dir.c_str());
    }
};

Table &table() {
    static Table t;
    return t;
}

// Moves to the next record and evaluates, counting the library's
// allocations per evaluation; `evaluate` is the path being measured.
template <class Evaluate>
void evalMoving(benchmark::State &state, const char *text, Evaluate evaluate) {
    Table &t = table();
    std::string expr = text;
    int32_t rec = 0;
    unsigned long allocs = 0, evals = 0;
    for (auto _ : state) {
        rec = rec % kRecords + 1;
        DBGetRecord(t.h, rec);
        const unsigned long before = g_allocs;
        if (!evaluate(t.h, expr.data())) state.SkipWithError("evaluation failed");
        allocs += g_allocs - before;
        evals++;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
    state.counters["allocs/eval"] = evals ? static_cast<double>(allocs) / evals : 0;
}

// Public path: DBEvaluateStr hands the caller a block it frees.
void evalPublic(benchmark::State &state, const char *text) {
    evalMoving(state, text, [](int h, char *expr) {
        DBEVAL out;
        const bool ok = DBEvaluateStr(h, expr, &out) == 0;
        benchmark::DoNotOptimize(out.eval);
        DBFreeMemory(out.eval, "bench", __LINE__);
        return ok;
    });
}

// Index path: _DBEvaluateKey leaves the value in the evaluator's buffer.
void evalKey(benchmark::State &state, const char *text) {
    evalMoving(state, text, [](int h, char *expr) {
        const bool ok = _DBEvaluateKey(h, expr) == 0;
        benchmark::DoNotOptimize(DBeval_pr.eval);
        return ok;
    });
}

// The evaluation alone, on one record (no record reads in the loop).
void evalStill(benchmark::State &state, const char *text) {
    Table &t = table();
    std::string expr = text;
    DBGetRecord(t.h, 4711);
    for (auto _ : state) {
        DBEVAL out;
        if (DBEvaluateStr(t.h, expr.data(), &out) != 0) state.SkipWithError("evaluation failed");
        benchmark::DoNotOptimize(out.eval);
        DBFreeMemory(out.eval, "bench", __LINE__);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

// Moving through the table alone, to read the figures above against.
void BM_RecordOnly(benchmark::State &state) {
    Table &t = table();
    int32_t rec = 0;
    for (auto _ : state) {
        rec = rec % kRecords + 1;
        benchmark::DoNotOptimize(DBGetRecord(t.h, rec));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

}  // namespace

BENCHMARK(BM_RecordOnly);
BENCHMARK_CAPTURE(evalPublic, field, "NAME");
BENCHMARK_CAPTURE(evalPublic, concat, "CITY+NAME");
BENCHMARK_CAPTURE(evalPublic, nested, "UPPER(SUBSTR(CITY,2,3))+STR(QTY,5)");
BENCHMARK_CAPTURE(evalPublic, numeric, "AMOUNT+QTY");
BENCHMARK_CAPTURE(evalPublic, date, "DTOC(HIRED,1)");
BENCHMARK_CAPTURE(evalKey, field, "NAME");
BENCHMARK_CAPTURE(evalKey, concat, "CITY+NAME");
BENCHMARK_CAPTURE(evalKey, nested, "UPPER(SUBSTR(CITY,2,3))+STR(QTY,5)");
BENCHMARK_CAPTURE(evalStill, field, "NAME");
BENCHMARK_CAPTURE(evalStill, concat, "CITY+NAME");
BENCHMARK_CAPTURE(evalStill, nested, "UPPER(SUBSTR(CITY,2,3))+STR(QTY,5)");

BENCHMARK_MAIN();
