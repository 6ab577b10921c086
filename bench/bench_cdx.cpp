// bench_cdx.cpp - a CDX tag on NAME C(20) of the 56-byte table (NAME C(20),
// CITY C(15), AMOUNT N(12,2), HIRED D) of N records: the bulk build into a
// new compound file (with the build's peak memory), random searches each
// followed by reading the record found, adds, deletes, and a full walk. One
// iteration each at N = 1,000,000 (XB_BENCH_RECORDS overrides N), 100,000
// operations for the searches, adds and deletes. XB_SORT_BUDGET (bytes)
// lowers the sort's memory budget to time the spilling build.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include "xbfiles.h"
}
#include "btree.h"

namespace {

char kTable[] = "bench_cdx.dbf";
char kIndex[] = "bench_cdx.cdx";
constexpr int kOps = 100000;

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

// Names in record order are not in key order: a multiplicative scramble.
std::string name(int64_t i, int64_t n) {
    char b[32];
    std::snprintf(b, sizeof b, "CUSTOMER %09lld", static_cast<long long>((i * 7919) % (n + 17)));
    return b;
}

int makeTable(int64_t n) {
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
    int rc = DBCreateFile(kTable, 4, f, 1);
    if (rc != 0) return rc;
    int h = -1;
    if ((rc = DBOpenFile(&h, kTable, 1)) != 0) return rc;
    char *buf = nullptr;
    DBSetBufferAddress(h, &buf);
    for (int64_t i = 1; i <= n; i++) {
        char r[64];
        std::snprintf(r, sizeof r, " %-20.20s%-15.15s%12.2f%04d%02d%02d", name(i, n).c_str(), "OSLO",
                      static_cast<double>(i % 100000) * 1.25, 1970 + static_cast<int>(i % 50), 1 + static_cast<int>(i % 12),
                      1 + static_cast<int>(i % 28));
        std::memcpy(buf, r, 56);
        int32_t recno = 0;
        if ((rc = DBPutRecord(h, &recno, DB_APPEND)) != 0) return rc;
    }
    return DBCloseFile(h);
}

int table = -1, file = -1, tag = -1;

long maxrssKb() {
    struct rusage u {};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

void BM_BuildNameTag(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!check(state, makeTable(n), "table")) return;
    if (!check(state, DBOpenFile(&table, kTable, 1), "DBOpenFile")) return;
    if (const char *b = std::getenv("XB_SORT_BUDGET")) DBsort_budget = static_cast<size_t>(std::atoll(b));
    const long before = maxrssKb();
    for (auto _ : state) {
        if (!check(state, DBfpCreateIndex(kIndex), "DBfpCreateIndex")) return;
        if (!check(state, DBfpOpenIndex(&file, kIndex, 0), "DBfpOpenIndex")) return;
        if (!check(state, DBfpCreateTag(file, const_cast<char *>("NAME"), 'C', const_cast<char *>("NAME"), 20, nullptr),
                   "DBfpCreateTag"))
            return;
        if (!check(state, DBfpOpenNamedTag(&tag, file, const_cast<char *>("NAME")), "DBfpOpenNamedTag")) return;
        if (!check(state, DBfpBuildIndex(table, tag), "DBfpBuildIndex")) return;
        if (!check(state, DBfpFlushIndex(file), "DBfpFlushIndex")) return;
    }
    state.counters["keys/s"] = benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsRate);
    state.counters["peakMB"] = static_cast<double>(maxrssKb()) / 1024.0;
    state.counters["growthMB"] = static_cast<double>(maxrssKb() - before) / 1024.0;
}

// Searches with the tag's page cache at its default (100 buffers), then at
// 4,096 buffers (2 MB, every interior page and a share of the leaves),
// which the adds, deletes and walk then keep.
void BM_SearchAndRead(benchmark::State &state) {
    const int64_t n = state.range(0);
    short size = static_cast<short>(state.range(1));
    if (!check(state, DBfpGetSetCacheSize(tag, &size, 0), "DBfpGetSetCacheSize")) return;
    std::vector<std::string> keys;
    uint64_t x = 0x9E3779B97F4A7C15ull;
    for (int i = 0; i < kOps; i++) {
        x = x * 6364136223846793005ull + 1442695040888963407ull;
        keys.push_back(name(static_cast<int64_t>((x >> 33) % static_cast<uint64_t>(n)) + 1, n));
    }
    int64_t found = 0;
    for (auto _ : state) {
        for (const std::string &k : keys) {
            char key[32];
            std::strcpy(key, k.c_str());
            int32_t rec = 0;
            if (DBfpKeySearch(tag, key, &rec, 1) == 0) {
                if (!check(state, DBGetRecord(table, rec), "DBGetRecord")) return;
                found++;
            }
        }
    }
    if (found != kOps) state.SkipWithError("a key was not found");
    state.counters["ops/s"] = benchmark::Counter(static_cast<double>(kOps), benchmark::Counter::kIsRate);
}

void BM_Add(benchmark::State &state) {
    const int64_t n = state.range(0);
    for (auto _ : state) {
        for (int i = 0; i < kOps; i++) {
            char key[32];
            std::snprintf(key, sizeof key, "ADDED %09d", (i * 7919) % kOps);
            if (!check(state, DBfpAddKey(tag, key, static_cast<int32_t>(n + 1 + i)), "DBfpAddKey")) return;
        }
    }
    state.counters["ops/s"] = benchmark::Counter(static_cast<double>(kOps), benchmark::Counter::kIsRate);
}

void BM_Delete(benchmark::State &state) {
    const int64_t n = state.range(0);
    for (auto _ : state) {
        for (int i = 0; i < kOps; i++) {
            const int64_t r = 1 + (static_cast<int64_t>(i) * 104729) % n;
            char key[32];
            std::snprintf(key, sizeof key, "%-20s", name(r, n).c_str());
            if (DBfpDeleteKey(tag, key, static_cast<int32_t>(r)) != 0) {
                state.SkipWithError("DBfpDeleteKey");
                return;
            }
        }
    }
    state.counters["ops/s"] = benchmark::Counter(static_cast<double>(kOps), benchmark::Counter::kIsRate);
}

void BM_Walk(benchmark::State &state) {
    int64_t seen = 0;
    for (auto _ : state) {
        char key[32];
        int32_t rec = 0;
        for (int rc = DBfpGoFirstKey(tag, key, &rec); rc == 0; rc = DBfpGoNextKey(tag, key, &rec)) seen++;
    }
    state.counters["keys/s"] = benchmark::Counter(static_cast<double>(seen), benchmark::Counter::kIsRate);
    state.counters["keys"] = static_cast<double>(seen);
}

void args(benchmark::internal::Benchmark *b) {
    b->Arg(records())->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_BuildNameTag)->Apply(args);
BENCHMARK(BM_SearchAndRead)->Args({records(), 100})->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SearchAndRead)->Args({records(), 4096})->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Add)->Apply(args);
BENCHMARK(BM_Delete)->Apply(args);
BENCHMARK(BM_Walk)->Apply(args);

}  // namespace

int main(int argc, char **argv) {
    if (DBInitialize(64, 4) != 0) return 1;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    DBTerminate();
    std::remove(kTable);
    std::remove(kIndex);
    return 0;
}
