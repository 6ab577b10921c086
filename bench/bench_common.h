// bench_common.h - what the benchmarks share: the 56-byte benchmark table
// (NAME C(20), CITY C(15), AMOUNT N(12,2), HIRED D) of N records, N from
// XB_BENCH_RECORDS (1,000,000 by default), a pseudo-random order drawn
// before the clock runs, and the failure check.
#pragma once

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

namespace xbb {

inline int64_t records() {
    const char *v = std::getenv("XB_BENCH_RECORDS");
    const long long n = v ? std::atoll(v) : 0;
    return n > 0 ? n : 1000000;
}

inline bool check(benchmark::State &state, int rc, const char *what) {
    if (rc < 0) {
        std::string msg = std::string(what) + " failed: " + std::to_string(rc);
        state.SkipWithError(msg.c_str());
        return false;
    }
    return true;
}

inline int createTable(char *name) {
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
    return DBCreateFile(name, 4, f, 1);
}

// The name of record i ("CUSTOMER <i>", padded to 20).
inline std::string name(int64_t i) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%-20.20s", ("CUSTOMER " + std::to_string(i)).c_str());
    return buf;
}

// Record i as it is stored: 56 bytes with the deletion byte.
inline void row(char *r, int64_t i) {
    static const char *const cities[] = {"BERLIN", "LISBON", "OSLO", "ROME", "VIENNA", "WARSAW"};
    char buf[64];
    std::snprintf(buf, sizeof buf, " %s%-15.15s%12.2f%04d%02d%02d", name(i).c_str(), cities[i % 6],
                  static_cast<double>(i % 100000) * 1.25, 1970 + static_cast<int>(i % 50), 1 + static_cast<int>(i % 12),
                  1 + static_cast<int>(i % 28));
    std::memcpy(r, buf, 56);
}

// Write the table of n records.
inline bool fillTable(benchmark::State &state, char *table, int64_t n) {
    if (!check(state, createTable(table), "DBCreateFile")) return false;
    int h = -1;
    if (!check(state, DBOpenFile(&h, table, 1), "DBOpenFile")) return false;
    char *buf = nullptr;
    DBSetBufferAddress(h, &buf);
    for (int64_t i = 1; i <= n; i++) {
        row(buf, i);
        int32_t recno = 0;
        if (!check(state, DBPutRecord(h, &recno, DB_APPEND), "DBPutRecord")) return false;
    }
    return check(state, DBCloseFile(h), "DBCloseFile");
}

// count record numbers 1..n in a fixed pseudo-random order (64-bit LCG).
inline std::vector<int32_t> randomOrder(int64_t n, size_t count, uint64_t seed = 0x9E3779B97F4A7C15ull) {
    std::vector<int32_t> order(count);
    uint64_t x = seed;
    for (auto &k : order) {
        x = x * 6364136223846793005ull + 1442695040888963407ull;
        k = static_cast<int32_t>((x >> 33) % static_cast<uint64_t>(n)) + 1;
    }
    return order;
}

// The process's peak resident memory so far, in MiB.
inline double peakMiB() {
    struct rusage ru {};
    getrusage(RUSAGE_SELF, &ru);
    return static_cast<double>(ru.ru_maxrss) / 1024.0;
}

inline void perSecond(benchmark::State &state, int64_t n, const char *what = "records/s") {
    state.counters[what] = benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsRate);
    state.SetItemsProcessed(n);
}

inline void args(benchmark::internal::Benchmark *b) {
    b->Arg(records())->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace xbb
