// bench_ndx.cpp - NDX index speed over the 56-byte table of bench_table
// (NAME C(20), CITY C(15), AMOUNT N(12,2), HIRED D): building a NAME index
// of N keys, 100,000 searches each followed by reading the record found,
// 100,000 adds, 100,000 deletes, and a walk over every key. One iteration
// each at N = 1,000,000 (XB_BENCH_RECORDS overrides N); run in a scratch
// directory by `make bench`.
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

char kTable[] = "bench_ndx.dbf";
char kIndex[] = "bench_ndx.ndx";
constexpr int kOps = 100000;

int64_t records() {
    const char *v = std::getenv("XB_BENCH_RECORDS");
    const long long n = v ? std::atoll(v) : 0;
    return n > 0 ? n : 1000000;
}

bool check(benchmark::State &state, int rc, const char *what) {
    if (rc < 0) {
        const std::string msg = std::string(what) + " failed: " + std::to_string(rc);
        state.SkipWithError(msg.c_str());
        return false;
    }
    return true;
}

std::string name(int64_t i) {
    char b[32];
    std::snprintf(b, sizeof b, "%-20.20s", ("CUSTOMER " + std::to_string(i)).c_str());
    return b;
}

// The table and its index, made once (the build benchmark makes the index).
int64_t made = 0;
bool ensureTable(benchmark::State &state, int64_t n) {
    if (made == n) return true;
    DBFIELD f[4] = {{"NAME", 'C', 20, 0}, {"CITY", 'C', 15, 0}, {"AMOUNT", 'N', 12, 2}, {"HIRED", 'D', 8, 0}};
    if (!check(state, DBCreateFile(kTable, 4, f, 1), "DBCreateFile")) return false;
    int h = -1;
    if (!check(state, DBOpenFile(&h, kTable, 1), "DBOpenFile")) return false;
    char *buf = nullptr;
    DBSetBufferAddress(h, &buf);
    static const char *const cities[] = {"BERLIN", "LISBON", "OSLO", "ROME", "VIENNA", "WARSAW"};
    for (int64_t i = 1; i <= n; i++) {
        char r[64];
        std::snprintf(r, sizeof r, " %s%-15.15s%12.2f%04d%02d%02d", name(i).c_str(), cities[i % 6],
                      static_cast<double>(i % 100000) * 1.25, 1970 + static_cast<int>(i % 50), 1 + static_cast<int>(i % 12),
                      1 + static_cast<int>(i % 28));
        std::memcpy(buf, r, 56);
        int32_t recno = 0;
        if (!check(state, DBPutRecord(h, &recno, DB_APPEND), "DBPutRecord")) return false;
    }
    if (!check(state, DBCloseFile(h), "DBCloseFile")) return false;
    made = n;
    return true;
}

// A fixed pseudo-random sequence (64-bit LCG), drawn before the clock runs.
std::vector<int64_t> draws(int64_t n, int count, uint64_t seed) {
    std::vector<int64_t> out(static_cast<size_t>(count));
    uint64_t x = seed;
    for (auto &k : out) {
        x = x * 6364136223846793005ull + 1442695040888963407ull;
        k = static_cast<int64_t>((x >> 33) % static_cast<uint64_t>(n)) + 1;
    }
    return out;
}

void perSecond(benchmark::State &state, int64_t n, const char *what) {
    state.counters[what] = benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsRate);
    state.SetItemsProcessed(n);
}

bool indexBuilt = false;

void BM_Build(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureTable(state, n)) return;
    int t = -1;
    if (!check(state, DBOpenFile(&t, kTable, 1 | DBO_READONLY), "DBOpenFile")) return;
    for (auto _ : state)
        if (!check(state, DBd3BuildIndex(t, kIndex, 'C', const_cast<char *>("NAME"), 20, 0), "DBd3BuildIndex")) return;
    DBCloseFile(t);
    indexBuilt = true;
    perSecond(state, n, "keys/s");
}

bool ensureIndex(benchmark::State &state, int64_t n) {
    if (!ensureTable(state, n)) return false;
    if (indexBuilt) return true;
    int t = -1;
    if (!check(state, DBOpenFile(&t, kTable, 1 | DBO_READONLY), "DBOpenFile")) return false;
    const bool ok = check(state, DBd3BuildIndex(t, kIndex, 'C', const_cast<char *>("NAME"), 20, 0), "DBd3BuildIndex");
    DBCloseFile(t);
    indexBuilt = ok;
    return ok;
}

void BM_SearchAndRead(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureIndex(state, n)) return;
    const std::vector<int64_t> who = draws(n, kOps, 0x9E3779B97F4A7C15ull);
    std::vector<std::string> keys;
    for (int64_t i : who) keys.push_back(name(i));
    int t = -1;
    short x = -1;
    if (!check(state, DBOpenFile(&t, kTable, 1 | DBO_READONLY), "DBOpenFile")) return;
    if (!check(state, DBd3OpenIndex(&x, kIndex, DBO_READONLY), "DBd3OpenIndex")) return;
    DBRECINFO ri{};
    DBGetRecordInfo(t, &ri);
    int64_t found = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < keys.size(); i++) {
            char key[32];
            std::memcpy(key, keys[i].c_str(), 21);
            int32_t rec = 0;
            if (DBd3KeySearch(x, key, &rec, 1) != 0 || !check(state, DBGetRecord(t, rec), "DBGetRecord")) {
                state.SkipWithError("a key was not found");
                return;
            }
            found += std::memcmp(ri.bfr + 1, keys[i].c_str(), 20) == 0;
        }
    }
    if (found != kOps) state.SkipWithError("a search read the wrong record");
    DBd3CloseIndex(x);
    DBCloseFile(t);
    perSecond(state, kOps, "searches/s");
}

void BM_Add(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureIndex(state, n)) return;
    const std::vector<int64_t> who = draws(n, kOps, 0x1234567ull);
    std::vector<std::string> keys;
    for (size_t i = 0; i < who.size(); i++) keys.push_back(name(who[i]).substr(0, 19) + "+");
    short x = -1;
    if (!check(state, DBd3OpenIndex(&x, kIndex, 0), "DBd3OpenIndex")) return;
    for (auto _ : state) {
        for (size_t i = 0; i < keys.size(); i++)
            if (!check(state, DBd3AddKey(x, const_cast<char *>(keys[i].c_str()), static_cast<int32_t>(n + 1 + static_cast<int64_t>(i))), "DBd3AddKey")) return;
        if (!check(state, DBd3FlushIndex(x), "DBd3FlushIndex")) return;
    }
    DBd3CloseIndex(x);
    perSecond(state, kOps, "adds/s");
}

void BM_Delete(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureIndex(state, n)) return;
    // Distinct records, so that each delete finds its key.
    std::vector<int64_t> who;
    for (int64_t i = 1; static_cast<int>(who.size()) < kOps && i <= n; i += n / kOps > 0 ? n / kOps : 1) who.push_back(i);
    short x = -1;
    if (!check(state, DBd3OpenIndex(&x, kIndex, 0), "DBd3OpenIndex")) return;
    for (auto _ : state) {
        for (int64_t i : who)
            if (!check(state, DBd3DeleteKey(x, const_cast<char *>(name(i).c_str()), static_cast<int32_t>(i)), "DBd3DeleteKey")) return;
        if (!check(state, DBd3FlushIndex(x), "DBd3FlushIndex")) return;
    }
    DBd3CloseIndex(x);
    perSecond(state, static_cast<int64_t>(who.size()), "deletes/s");
}

void BM_Walk(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureIndex(state, n)) return;
    short x = -1;
    if (!check(state, DBd3OpenIndex(&x, kIndex, DBO_READONLY), "DBd3OpenIndex")) return;
    int64_t keys = 0;
    for (auto _ : state) {
        char key[32];
        int32_t rec = 0;
        for (int rc = DBd3GoFirstKey(x, key, &rec); rc == 0; rc = DBd3GoNextKey(x, key, &rec)) keys++;
    }
    DBd3CloseIndex(x);
    perSecond(state, keys, "keys/s");
}

void args(benchmark::internal::Benchmark *b) {
    b->Arg(records())->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_Build)->Apply(args);
BENCHMARK(BM_SearchAndRead)->Apply(args);
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
