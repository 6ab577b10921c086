// bench_index.cpp - an index on NAME C(20) of the 56-byte benchmark table,
// the same work for each family (NTX, NDX, CDX): the bulk build of N keys
// with the build's peak memory, 100,000 random searches each followed by
// reading the record found (with the default page cache, and once more with
// 4,096 buffers), 100,000 adds and 100,000 deletes in the N-key index, and a
// walk of every key. One iteration each at N = 1,000,000 (XB_BENCH_RECORDS
// overrides N); XB_SORT_BUDGET (bytes) lowers the sort's memory budget to
// time a build that spills. `make bench` runs it in a scratch directory.
#include "bench_common.h"

#include "btree.h"

namespace {

char kTable[] = "bench_index.dbf";
constexpr size_t kOps = 100000;

// What differs between the families: a handle and their calls.
struct Ntx {
    static constexpr const char *kName = "Ntx";
    char file[16] = "bench.ntx";
    short h = -1;
    int build(int t) { return DBclBuildIndex(t, file, 'C', const_cast<char *>("NAME"), 20, 0); }
    int open(int mode) { return DBclOpenIndex(&h, file, mode); }
    int close() { return DBclCloseIndex(h); }
    int cache(short n) { return DBclGetSetCacheSize(h, &n, 0); }
    int search(char *k, int32_t *r) { return DBclKeySearch(h, k, r, 1); }
    int add(char *k, int32_t r) { return DBclAddKey(h, k, r); }
    int del(char *k, int32_t r) { return DBclDeleteKey(h, k, r); }
    int first(char *k, int32_t *r) { return DBclGoFirstKey(h, k, r); }
    int next(char *k, int32_t *r) { return DBclGoNextKey(h, k, r); }
    int flush() { return DBclFlushIndex(h); }
};

struct Ndx {
    static constexpr const char *kName = "Ndx";
    char file[16] = "bench.ndx";
    short h = -1;
    int build(int t) { return DBd3BuildIndex(t, file, 'C', const_cast<char *>("NAME"), 20, 0); }
    int open(int mode) { return DBd3OpenIndex(&h, file, mode); }
    int close() { return DBd3CloseIndex(h); }
    int cache(short n) { return DBd3GetSetCacheSize(h, &n, 0); }
    int search(char *k, int32_t *r) { return DBd3KeySearch(h, k, r, 1); }
    int add(char *k, int32_t r) { return DBd3AddKey(h, k, r); }
    int del(char *k, int32_t r) { return DBd3DeleteKey(h, k, r); }
    int first(char *k, int32_t *r) { return DBd3GoFirstKey(h, k, r); }
    int next(char *k, int32_t *r) { return DBd3GoNextKey(h, k, r); }
    int flush() { return DBd3FlushIndex(h); }
};

// A NAME tag in a compound file of its own.
struct Cdx {
    static constexpr const char *kName = "Cdx";
    char file[16] = "bench.cdx";
    int f = -1, tag = -1;
    int build(int t) {
        int rc = DBfpCreateIndex(file);
        if (rc == 0) rc = DBfpOpenIndex(&f, file, 0);
        if (rc == 0) rc = DBfpCreateTag(f, const_cast<char *>("NAME"), 'C', const_cast<char *>("NAME"), 20, nullptr);
        if (rc == 0) rc = DBfpOpenNamedTag(&tag, f, const_cast<char *>("NAME"));
        if (rc == 0) rc = DBfpBuildIndex(t, tag);
        const int closed = f >= 0 ? DBfpCloseIndex(f) : 0;
        return rc != 0 ? rc : closed;
    }
    // A CDX file does not record its tags' key types: the tag is told.
    int open(int mode) {
        int rc = DBfpOpenIndex(&f, file, mode);
        if (rc >= 0) rc = DBfpOpenNamedTag(&tag, f, const_cast<char *>("NAME"));
        return rc < 0 ? rc : DBfpSetDefaultKeyType(tag, 'C');
    }
    int close() { return DBfpCloseIndex(f); }
    int cache(short n) { return DBfpGetSetCacheSize(tag, &n, 0); }
    int search(char *k, int32_t *r) { return DBfpKeySearch(tag, k, r, 1); }
    int add(char *k, int32_t r) { return DBfpAddKey(tag, k, r); }
    int del(char *k, int32_t r) { return DBfpDeleteKey(tag, k, r); }
    int first(char *k, int32_t *r) { return DBfpGoFirstKey(tag, k, r); }
    int next(char *k, int32_t *r) { return DBfpGoNextKey(tag, k, r); }
    int flush() { return DBfpFlushIndex(f); }
};

int64_t made = 0;

template <class F>
void BM_Build(benchmark::State &state) {
    const int64_t n = state.range(0);
    if (made != n && !xbb::fillTable(state, kTable, n)) return;
    made = n;
    if (const char *b = std::getenv("XB_SORT_BUDGET")) DBsort_budget = static_cast<size_t>(std::atoll(b));
    int t = -1;
    if (!xbb::check(state, DBOpenFile(&t, kTable, 1 | DBO_READONLY), "DBOpenFile")) return;
    F f;
    const double before = xbb::peakMiB();
    for (auto _ : state)
        if (!xbb::check(state, f.build(t), "build")) return;
    // The process's peak: the build's, unless making the table took more.
    state.counters["peak_MiB"] = xbb::peakMiB();
    state.counters["before_MiB"] = before;
    DBCloseFile(t);
    xbb::perSecond(state, n, "keys/s");
}

// range(1): page buffers (0 keeps the default of 100).
template <class F>
void BM_SearchAndRead(benchmark::State &state) {
    const int64_t n = state.range(0);
    const std::vector<int32_t> order = xbb::randomOrder(n, kOps);
    std::vector<std::string> keys;
    for (int32_t k : order) keys.push_back(xbb::name(k));
    int t = -1;
    F f;
    if (!xbb::check(state, DBOpenFile(&t, kTable, 1 | DBO_READONLY), "DBOpenFile") ||
        !xbb::check(state, f.open(0), "open") ||
        (state.range(1) > 0 && !xbb::check(state, f.cache(static_cast<short>(state.range(1))), "cache size")))
        return;
    char key[32];
    int64_t found = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < keys.size(); i++) {
            std::memcpy(key, keys[i].c_str(), 21);
            int32_t recno = 0;
            if (f.search(key, &recno) == 0 && DBGetRecord(t, recno) >= 0 && recno == order[i]) found++;
        }
    }
    if (found != static_cast<int64_t>(keys.size())) state.SkipWithError("a search missed");
    f.close();
    DBCloseFile(t);
    xbb::perSecond(state, static_cast<int64_t>(keys.size()), "searches/s");
}

// kOps new keys, spread among the old ones, added and then deleted again.
std::string newKey(int32_t near, size_t i) {
    char key[32];
    std::snprintf(key, sizeof key, "%-20.20s", ("CUSTOMER " + std::to_string(near) + "X" + std::to_string(i)).c_str());
    return key;
}

template <class F, bool kAdd>
void BM_Change(benchmark::State &state) {
    const int64_t n = state.range(0);
    const std::vector<int32_t> order = xbb::randomOrder(n, kOps, 7);
    F f;
    if (!xbb::check(state, f.open(0), "open")) return;
    for (auto _ : state) {
        for (size_t i = 0; i < order.size(); i++) {
            std::string key = newKey(order[i], i);
            const int32_t rec = static_cast<int32_t>(n + 1 + static_cast<int64_t>(i));
            const int rc = kAdd ? f.add(key.data(), rec) : f.del(key.data(), rec);
            if (!xbb::check(state, rc == 0 ? 0 : -1, kAdd ? "add" : "delete")) return;
        }
        if (!xbb::check(state, f.flush(), "flush")) return;
    }
    f.close();
    xbb::perSecond(state, static_cast<int64_t>(order.size()), kAdd ? "adds/s" : "deletes/s");
}

template <class F>
void BM_Walk(benchmark::State &state) {
    F f;
    if (!xbb::check(state, f.open(DBO_READONLY), "open")) return;
    char key[32];
    int32_t recno = 0;
    int64_t n = 0;
    for (auto _ : state)
        for (int rc = f.first(key, &recno); rc == 0; rc = f.next(key, &recno)) n++;
    if (n != state.range(0)) state.SkipWithError("the walk missed keys");
    f.close();
    xbb::perSecond(state, n, "keys/s");
}

template <class F>
void family() {
    const std::string p = F::kName;
    benchmark::RegisterBenchmark((p + "Build").c_str(), BM_Build<F>)->Apply(xbb::args);
    benchmark::RegisterBenchmark((p + "SearchAndRead").c_str(), BM_SearchAndRead<F>)
        ->Args({xbb::records(), 0})->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
    benchmark::RegisterBenchmark((p + "SearchAndRead").c_str(), BM_SearchAndRead<F>)
        ->Args({xbb::records(), 4096})->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
    benchmark::RegisterBenchmark((p + "Add").c_str(), BM_Change<F, true>)->Apply(xbb::args);
    benchmark::RegisterBenchmark((p + "Delete").c_str(), BM_Change<F, false>)->Apply(xbb::args);
    benchmark::RegisterBenchmark((p + "Walk").c_str(), BM_Walk<F>)->Apply(xbb::args);
}

}  // namespace

int main(int argc, char **argv) {
    if (DBInitialize(64, 4) != 0) return 1;
    family<Ntx>();
    family<Ndx>();
    family<Cdx>();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    DBTerminate();
    for (const char *f : {static_cast<const char *>(kTable), "bench.ntx", "bench.ndx", "bench.cdx"}) std::remove(f);
    return 0;
}
