// bench_table.cpp - records per second through the table engine for the
// 56-byte record NAME C(20), CITY C(15), AMOUNT N(12,2), HIRED D: appending
// N records, reading them in order and in random order, and reading and
// writing their fields; and random reads of N / 10 records of 600 bytes,
// whose cache blocks are 16 KiB. One iteration each at N = 1,000,000 by
// default (XB_BENCH_RECORDS overrides N); `make bench` runs it in a scratch
// directory, where it leaves its tables until the run ends.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include "xbfiles.h"
}

namespace {

char kTable[] = "bench_table.dbf";
char kWide[] = "bench_wide.dbf";

int64_t records() {
    const char *v = std::getenv("XB_BENCH_RECORDS");
    const long long n = v ? std::atoll(v) : 0;
    return n > 0 ? n : 1000000;
}

bool check(benchmark::State &state, int rc, const char *what) {
    if (rc < 0) {
        std::string msg = std::string(what) + " failed: " + std::to_string(rc);
        state.SkipWithError(msg.c_str());
        return false;
    }
    return true;
}

int create() {
    DBFIELD f[4] = {};
    std::snprintf(f[0].name, sizeof f[0].name, "NAME");
    f[0].type = 'C';
    f[0].len = 20;
    std::snprintf(f[1].name, sizeof f[1].name, "CITY");
    f[1].type = 'C';
    f[1].len = 15;
    std::snprintf(f[2].name, sizeof f[2].name, "AMOUNT");
    f[2].type = 'N';
    f[2].len = 12;
    f[2].decpl = 2;
    std::snprintf(f[3].name, sizeof f[3].name, "HIRED");
    f[3].type = 'D';
    f[3].len = 8;
    return DBCreateFile(kTable, 4, f, 1);
}

// Record i as it is stored: 56 bytes with the deletion byte.
void row(char *r, int64_t i) {
    static const char *const cities[] = {"BERLIN", "LISBON", "OSLO", "ROME", "VIENNA", "WARSAW"};
    char buf[64];
    std::snprintf(buf, sizeof buf, " %-20.20s%-15.15s%12.2f%04d%02d%02d", ("CUSTOMER " + std::to_string(i)).c_str(),
                  cities[i % 6], static_cast<double>(i % 100000) * 1.25, 1970 + static_cast<int>(i % 50),
                  1 + static_cast<int>(i % 12), 1 + static_cast<int>(i % 28));
    std::memcpy(r, buf, 56);
}

// Records in the table on disk (the append benchmark leaves the same table).
int64_t made = 0;

// The table of N records the read benchmarks work on, made once.
bool ensureTable(benchmark::State &state, int64_t n) {
    if (made == n) return true;
    if (!check(state, create(), "DBCreateFile")) return false;
    int h = -1;
    if (!check(state, DBOpenFile(&h, kTable, 1), "DBOpenFile")) return false;
    char *buf = nullptr;
    DBSetBufferAddress(h, &buf);
    for (int64_t i = 1; i <= n; i++) {
        row(buf, i);
        int32_t recno = 0;
        if (!check(state, DBPutRecord(h, &recno, DB_APPEND), "DBPutRecord")) return false;
    }
    if (!check(state, DBCloseFile(h), "DBCloseFile")) return false;
    made = n;
    return true;
}

void perSecond(benchmark::State &state, int64_t n) {
    state.counters["records/s"] = benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsRate);
    state.SetItemsProcessed(n);
}

void BM_Append(benchmark::State &state) {
    const int64_t n = state.range(0);
    for (auto _ : state) {
        made = 0;
        if (!check(state, create(), "DBCreateFile")) return;
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

// A fixed pseudo-random order of n reads of records 1..n (64-bit LCG),
// drawn before the clock runs.
std::vector<int32_t> randomOrder(int64_t n) {
    std::vector<int32_t> order(static_cast<size_t>(n));
    uint64_t x = 0x9E3779B97F4A7C15ull;
    for (auto &k : order) {
        x = x * 6364136223846793005ull + 1442695040888963407ull;
        k = static_cast<int32_t>((x >> 33) % static_cast<uint64_t>(n)) + 1;
    }
    return order;
}

void BM_ReadRandom(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureTable(state, n)) return;
    readRecords(state, kTable, randomOrder(n));
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
    readRecords(state, kWide, randomOrder(n));
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

void args(benchmark::internal::Benchmark *b) {
    b->Arg(records())->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_Append)->Apply(args);
BENCHMARK(BM_ReadSequential)->Apply(args);
BENCHMARK(BM_ReadRandom)->Apply(args);
BENCHMARK(BM_ReadRandomWide)->Apply(args);
BENCHMARK(BM_GetFields)->Apply(args);
BENCHMARK(BM_PutFields)->Apply(args);

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
