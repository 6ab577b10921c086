// bench_ntx.cpp - an NTX index on NAME of the 56-byte benchmark table: the
// bulk build of N keys (with the build's peak memory), 100,000 random
// searches each followed by reading the record, 100,000 adds and 100,000
// deletes in the N-key index, and a walk of every key. `make bench` runs it
// in a scratch directory.
#include "bench_common.h"

namespace {

char kTable[] = "bench_ntx.dbf";
char kIndex[] = "bench_ntx.ntx";
constexpr size_t kOps = 100000;
int64_t made = 0;

bool ensureTable(benchmark::State &state, int64_t n) {
    if (made == n) return true;
    if (!xbb::fillTable(state, kTable, n)) return false;
    made = n;
    return true;
}

void BM_NtxBuild(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (!ensureTable(state, n)) return;
    int t = -1;
    if (!xbb::check(state, DBOpenFile(&t, kTable, 1 | DBO_READONLY), "DBOpenFile")) return;
    const double before = xbb::peakMiB();
    for (auto _ : state)
        if (!xbb::check(state, DBclBuildIndex(t, kIndex, 'C', const_cast<char *>("NAME"), 20, 0), "DBclBuildIndex")) return;
    state.counters["peak_MiB"] = xbb::peakMiB();
    state.counters["peak_before_MiB"] = before;
    DBCloseFile(t);
    xbb::perSecond(state, n, "keys/s");
}

void BM_NtxSearchAndRead(benchmark::State &state) {
    const int64_t n = state.range(0);
    const std::vector<int32_t> order = xbb::randomOrder(n, kOps);
    std::vector<std::string> keys;
    for (int32_t k : order) keys.push_back(xbb::name(k));
    int t = -1;
    short ix = -1;
    if (!xbb::check(state, DBOpenFile(&t, kTable, 1 | DBO_READONLY), "DBOpenFile") ||
        !xbb::check(state, DBclOpenIndex(&ix, kIndex, DBO_READONLY), "DBclOpenIndex"))
        return;
    char key[32];
    int64_t found = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < keys.size(); i++) {
            std::memcpy(key, keys[i].c_str(), 21);
            int32_t recno = 0;
            if (DBclKeySearch(ix, key, &recno, 1) == 0 && DBGetRecord(t, recno) >= 0 && recno == order[i]) found++;
        }
    }
    if (found != static_cast<int64_t>(keys.size())) state.SkipWithError("a search missed");
    DBclCloseIndex(ix);
    DBCloseFile(t);
    xbb::perSecond(state, static_cast<int64_t>(keys.size()), "searches/s");
}

// Adds kOps new keys (interleaved with the old ones), then deletes them.
void changeKeys(benchmark::State &state, bool add) {
    const int64_t n = state.range(0);
    const std::vector<int32_t> order = xbb::randomOrder(n, kOps, add ? 7 : 11);
    short ix = -1;
    if (!xbb::check(state, DBclOpenIndex(&ix, kIndex, 0), "DBclOpenIndex")) return;
    char key[32];
    for (auto _ : state) {
        for (size_t i = 0; i < order.size(); i++) {
            std::snprintf(key, sizeof key, "%-20.20s", ("CUSTOMER " + std::to_string(order[i]) + "X" + std::to_string(i)).c_str());
            const int32_t rec = static_cast<int32_t>(n + 1 + static_cast<int64_t>(i));
            const int rc = add ? DBclAddKey(ix, key, rec) : DBclDeleteKey(ix, key, rec);
            if (!xbb::check(state, rc == 0 ? 0 : -1, add ? "DBclAddKey" : "DBclDeleteKey")) return;
        }
        if (!xbb::check(state, DBclFlushIndex(ix), "DBclFlushIndex")) return;
    }
    DBclCloseIndex(ix);
    xbb::perSecond(state, static_cast<int64_t>(order.size()), add ? "adds/s" : "deletes/s");
}

void BM_NtxAdd(benchmark::State &state) { changeKeys(state, true); }
void BM_NtxDelete(benchmark::State &state) {
    // The same keys as the adds, drawn again from the same order.
    const int64_t n = state.range(0);
    const std::vector<int32_t> order = xbb::randomOrder(n, kOps, 7);
    short ix = -1;
    if (!xbb::check(state, DBclOpenIndex(&ix, kIndex, 0), "DBclOpenIndex")) return;
    char key[32];
    for (auto _ : state) {
        for (size_t i = 0; i < order.size(); i++) {
            std::snprintf(key, sizeof key, "%-20.20s", ("CUSTOMER " + std::to_string(order[i]) + "X" + std::to_string(i)).c_str());
            const int32_t rec = static_cast<int32_t>(n + 1 + static_cast<int64_t>(i));
            if (!xbb::check(state, DBclDeleteKey(ix, key, rec) == 0 ? 0 : -1, "DBclDeleteKey")) return;
        }
        if (!xbb::check(state, DBclFlushIndex(ix), "DBclFlushIndex")) return;
    }
    DBclCloseIndex(ix);
    xbb::perSecond(state, static_cast<int64_t>(order.size()), "deletes/s");
}

void BM_NtxWalk(benchmark::State &state) {
    short ix = -1;
    if (!xbb::check(state, DBclOpenIndex(&ix, kIndex, DBO_READONLY), "DBclOpenIndex")) return;
    char key[32];
    int32_t recno = 0;
    int64_t n = 0;
    for (auto _ : state)
        for (int rc = DBclGoFirstKey(ix, key, &recno); rc == 0; rc = DBclGoNextKey(ix, key, &recno)) n++;
    if (n != state.range(0)) state.SkipWithError("the walk missed keys");
    DBclCloseIndex(ix);
    xbb::perSecond(state, n, "keys/s");
}

BENCHMARK(BM_NtxBuild)->Apply(xbb::args);
BENCHMARK(BM_NtxSearchAndRead)->Apply(xbb::args);
BENCHMARK(BM_NtxAdd)->Apply(xbb::args);
BENCHMARK(BM_NtxDelete)->Apply(xbb::args);
BENCHMARK(BM_NtxWalk)->Apply(xbb::args);

}  // namespace

int main(int argc, char **argv) {
    if (DBInitialize(64, 4) != 0) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    DBTerminate();
    return 0;
}
