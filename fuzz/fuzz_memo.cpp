// fuzz_memo.cpp - damaged DBT and FPT files: headers, block headers and
// lengths mutated, then blocks read and written. Usage: fuzz_memo FIXTURES SEED ROUNDS
#include "fuzz_common.h"

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    const std::string dir = argv[1];
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    const char *src[] = {"hbntx.dbt", "py_db3.dbt", "hbcdx.fpt", "py_vfp.fpt"};
    int bad = 0;
    DBInitialize(64, 1);
    for (int i = 0; i < rounds; i++) {
        const int w = static_cast<int>(r.below(4));
        std::vector<unsigned char> v = fz::load(dir + "/" + src[w]);
        fz::mutate(v, r, v.size());
        const char *name = w < 2 ? "fuzz.dbt" : "fuzz.fpt";
        fz::save(name, v);
        int h = -1;
        char text[] = "a memo text";
        if (w < 2) {
            if (DBxbOpenMemo(&h, const_cast<char *>(name), r.below(2) ? 3 : 2) < 0) continue;
            for (int32_t b = 0; b < 200; b++) {
                char *t = nullptr;
                int rc = DBxbGetMemoRecord(h, b, &t, r.below(2) ? 0 : 256);
                bad += !fz::known(rc);
                if (rc >= 0) DBFreeMemory(t, "fuzz", 0);
            }
            int32_t blk = static_cast<int32_t>(r.below(60));
            bad += !fz::known(DBxbPutMemoRecord(h, &blk, text, 0));
            bad += !fz::known(DBxbCloseMemo(h));
        } else {
            if (DBfpOpenMemo(&h, const_cast<char *>(name), 4) < 0) continue;
            for (int32_t b = 0; b < 2000; b += 1 + static_cast<int32_t>(r.below(20))) {
                char *t = nullptr;
                int32_t len = 0;
                int bin = 0;
                int rc = DBfpGetMemoRecord(h, b, &t, 100000, 0);
                bad += !fz::known(rc);
                if (rc >= 0) DBFreeMemory(t, "fuzz", 0);
                bad += !fz::known(DBfpGetMemoType(h, b, &len, &bin));
            }
            int32_t blk = 1 + static_cast<int32_t>(r.below(100));
            bad += !fz::known(DBfpPutMemoRecord(h, &blk, text, 5, 5, 256));
            bad += !fz::known(DBfpCloseMemo(h));
        }
    }
    DBTerminate();
    std::remove("fuzz.dbt");
    std::remove("fuzz.fpt");
    return fz::report(bad, "fuzz_memo");
}
