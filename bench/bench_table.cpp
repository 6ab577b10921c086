// bench_table.cpp - records per second through the table engine for the
// 56-byte record NAME C(20), CITY C(15), AMOUNT N(12,2), HIRED D: appending
// N records, reading them in order and in random order, reading and writing
// their fields, and adding a field to the table; and random reads of N / 10
// records of 600 bytes, whose cache blocks are 16 KiB. One iteration each at N = 1,000,000 by
// default (XB_BENCH_RECORDS overrides N); `make bench` runs it in a scratch
// directory, where it leaves its tables until the run ends.
#include "bench_common.h"

namespace {

using xbb::args;
using xbb::check;
using xbb::createTable;
using xbb::records;
using xbb::row;

void perSecond(benchmark::State &state, int64_t n) { xbb::perSecond(state, n); }

char kTable[] = "bench_table.dbf";
char kWide[] = "bench_wide.dbf";
char kModify[] = "bench_modify.dbf";

// Records in the table on disk (the append benchmark leaves the same table).
int64_t made = 0;

// The table of N records the read benchmarks work on, made once.
bool ensureTable(benchmark::State &state, int64_t n) {
    if (made == n) return true;
    if (!xbb::fillTable(state, kTable, n)) return false;
    made = n;
    return true;
}


void BM_Append(benchmark::State &state) {
    const int64_t n = state.range(0);
    for (auto _ : state) {
        made = 0;
        if (!check(state, createTable(kTable), "DBCreateFile")) return;
        int h = -1;
        if (!check(state, DBOpenFile(&h, kTable, 1), "DBOpenFile")) return;
        char *buf = nullptr;
        DBSetBufferAddress(h, &buf);
        for (int64_t i = 1; i <= n; i++) {
            row(buf, i);
            int32_t recno = 0;
            if (!check(state, DBPutRecord(h, &recno, DB_APPEND), "DBPutRecord")) return;
        }
        if (!check(state, DBCloseFile(h), "DBCloseFile")) return;
        made = n;
    }
    perSecond(state, n);
}

// Reads the records of a table in the given order; the read benchmarks
// differ only in the table and the order.
void readRecords(benchmark::State &state, char *table, const std::vector<int32_t> &order) {
    int h = -1;
    if (!check(state, DBOpenFile(&h, table, (table == kWide ? 6 : 1) | DBO_READONLY), "DBOpenFile")) return;
    DBRECINFO ri{};
    DBGetRecordInfo(h, &ri);
    uint64_t sum = 0;
    for (auto _ : state) {
        for (const int32_t k : order) {
            if (!check(state, DBGetRecord(h, k), "DBGetRecord")) return;
            sum += static_cast<unsigned char>(ri.bfr[1]);
        }
    }
    benchmark::DoNotOptimize(sum);
    DBCloseFile(h);
    perSecond(state, static_cast<int64_t>(order.size()));
}

void BM_ReadSequential(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureTable(state, n)) return;
    std::vector<int32_t> order(static_cast<size_t>(n));
    for (size_t i = 0; i < order.size(); i++) order[i] = static_cast<int32_t>(i + 1);
    readRecords(state, kTable, order);
}


void BM_ReadRandom(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureTable(state, n)) return;
    readRecords(state, kTable, xbb::randomOrder(n, static_cast<size_t>(n)));
}

// Random reads where a whole cache block would be 27 records (16200 bytes).
void BM_ReadRandomWide(benchmark::State &state) {
    const int64_t n = state.range(0) / 10;
    DBFIELD f[2] = {{"NAME", 'C', 20, 0}, {"TEXT", 'C', 579, 0}};
    if (!check(state, DBCreateFile(kWide, 2, f, 6), "DBCreateFile")) return;
    int h = -1;
    if (!check(state, DBOpenFile(&h, kWide, 6), "DBOpenFile")) return;
    char *buf = nullptr;
    DBSetBufferAddress(h, &buf);
    for (int64_t i = 1; i <= n; i++) {
        std::memset(buf + 1, 'a' + static_cast<int>(i % 26), 599);
        int32_t recno = 0;
        if (!check(state, DBPutRecord(h, &recno, DB_APPEND), "DBPutRecord")) return;
    }
    if (!check(state, DBCloseFile(h), "DBCloseFile")) return;
    readRecords(state, kWide, xbb::randomOrder(n, static_cast<size_t>(n)));
}

// Every field of every record, converted: two texts, a double, a date text.
void BM_GetFields(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureTable(state, n)) return;
    int h = -1;
    if (!check(state, DBOpenFile(&h, kTable, 1 | DBO_READONLY), "DBOpenFile")) return;
    char name[32], city[32], hired[16];
    double amount = 0, total = 0;
    for (auto _ : state) {
        for (int32_t k = 1; k <= n; k++) {
            if (!check(state, DBGetRecord(h, k), "DBGetRecord")) return;
            if (!check(state, DBGetStrField(h, 0, name), "DBGetStrField") ||
                !check(state, DBGetStrField(h, 1, city), "DBGetStrField") ||
                !check(state, DBGetFieldData(h, 2, &amount), "DBGetFieldData") ||
                !check(state, DBGetFieldData(h, 3, hired), "DBGetFieldData"))
                return;
            total += amount + name[9] + city[0] + hired[0];
        }
    }
    benchmark::DoNotOptimize(total);
    DBCloseFile(h);
    perSecond(state, n);
    state.counters["fields/s"] = benchmark::Counter(static_cast<double>(4 * n), benchmark::Counter::kIsRate);
}

// Every field of every record replaced from text, and the record rewritten.
void BM_PutFields(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureTable(state, n)) return;
    int h = -1;
    if (!check(state, DBOpenFile(&h, kTable, 1), "DBOpenFile")) return;
    char name[] = "CHANGED CUSTOMER";
    char city[] = "TALLINN";
    char amount[] = "     4321.00";
    char hired[] = "20240229";
    for (auto _ : state) {
        for (int32_t k = 1; k <= n; k++) {
            if (!check(state, DBGetRecord(h, k), "DBGetRecord")) return;
            if (!check(state, DBPutStrField(h, 0, name), "DBPutStrField") ||
                !check(state, DBPutStrField(h, 1, city), "DBPutStrField") ||
                !check(state, DBPutStrField(h, 2, amount), "DBPutStrField") ||
                !check(state, DBPutStrField(h, 3, hired), "DBPutStrField"))
                return;
            int32_t recno = k;
            if (!check(state, DBPutRecord(h, &recno, DB_REWRITE), "DBPutRecord")) return;
        }
        if (!check(state, DBFlushFile(h), "DBFlushFile")) return;
    }
    DBCloseFile(h);
    perSecond(state, n);
    state.counters["fields/s"] = benchmark::Counter(static_cast<double>(4 * n), benchmark::Counter::kIsRate);
}

// A change of structure that adds a field at the end: the four fields that
// stay as they are are copied, the new one is left blank. The table is made
// afresh outside the timing for each run.
void BM_ModifyAddField(benchmark::State &state) {
    const int64_t n = state.range(0);
    DBFIELD f[5] = {};
    const char *names[5] = {"NAME", "CITY", "AMOUNT", "HIRED", "EXTRA"};
    const char types[5] = {'C', 'C', 'N', 'D', 'N'};
    const int lens[5] = {20, 15, 12, 8, 6}, decs[5] = {0, 0, 2, 0, 0};
    for (int i = 0; i < 5; i++) {
        std::snprintf(f[i].name, sizeof f[i].name, "%s", names[i]);
        f[i].type = types[i];
        f[i].len = lens[i];
        f[i].decpl = decs[i];
    }
    for (auto _ : state) {
        state.PauseTiming();
        if (!xbb::fillTable(state, kModify, n)) return;
        int h = -1;
        if (!check(state, DBOpenFile(&h, kModify, 1), "DBOpenFile")) return;
        state.ResumeTiming();
        if (!check(state, DBModifyFile(&h, 5, f), "DBModifyFile")) return;
        state.PauseTiming();
        DBCloseFile(h);
        state.ResumeTiming();
    }
    perSecond(state, n);
}

BENCHMARK(BM_Append)->Apply(args);
BENCHMARK(BM_ReadSequential)->Apply(args);
BENCHMARK(BM_ReadRandom)->Apply(args);
BENCHMARK(BM_ReadRandomWide)->Apply(args);
BENCHMARK(BM_GetFields)->Apply(args);
BENCHMARK(BM_PutFields)->Apply(args);
BENCHMARK(BM_ModifyAddField)->Apply(args);

}  // namespace

int main(int argc, char **argv) {
    if (DBInitialize(64, 4) != 0) return 1;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    DBTerminate();
    std::remove(kTable);
    std::remove(kWide);
    return 0;
}
