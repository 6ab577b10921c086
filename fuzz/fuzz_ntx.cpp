// fuzz_ntx.cpp - damaged NTX files: headers, page counts, offsets, child
// pointers and the free list mutated, then walked, searched, checked and
// changed. Usage: fuzz_ntx FIXTURES SEED ROUNDS
#include "fuzz_common.h"

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    const std::string dir = argv[1];
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    const char *src[] = {"hbntx_byname.ntx", "hbntx_bycity.ntx", "hbntx_byqty.ntx",
                         "hbntx_ucity.ntx",  "hbntx_byamount.ntx", "hbntx_byhired.ntx"};
    const char *name = "fuzz_ntx.ntx";
    int bad = 0;
    DBInitialize(64, 2);
    for (int i = 0; i < rounds; i++) {
        std::vector<unsigned char> v = fz::load(dir + "/" + src[r.below(6)]);
        // Mostly the pages' first bytes (counts, offsets, child pointers),
        // sometimes the header.
        if (r.below(3) == 0) {
            fz::mutate(v, r, 280);
        } else {
            for (uint32_t k = 1 + r.below(6); k > 0 && v.size() > 1024; k--) {
                const size_t page = 1024 * (1 + r.below(static_cast<uint32_t>(v.size() / 1024 - 1)));
                v[page + r.below(r.below(4) ? 80 : 1024)] = static_cast<unsigned char>(r.next());
            }
        }
        fz::save(name, v);
        short h = -1;
        const int mode = r.below(2) ? 0 : DBO_FLUSH;
        int rc = DBclOpenIndex(&h, const_cast<char *>(name), mode);
        bad += !fz::known(rc);
        if (rc < 0) continue;
        char key[512];
        int32_t rec = 0;
        for (int dir2 = 0; dir2 < 2; dir2++) {
            rc = dir2 ? DBclGoLastKey(h, key, &rec) : DBclGoFirstKey(h, key, &rec);
            for (int n = 0; rc == 0 && n < 3000; n++) rc = dir2 ? DBclGoPreviousKey(h, key, &rec) : DBclGoNextKey(h, key, &rec);
            bad += !fz::known(rc);
        }
        for (int n = 0; n < 20; n++) {
            std::snprintf(key, sizeof key, "%c%c", 'A' + r.below(26), 'a' + r.below(26));
            rec = static_cast<int32_t>(r.below(300));
            const int modes[] = {1, 2, 11, 12, 13, 14, 15};
            bad += !fz::known(DBclKeySearch(h, key, &rec, modes[r.below(7)]));
            int p = 0;
            bad += !fz::known(DBclGetKeyPercent(h, &p, key, rec));
            bad += !fz::known(DBclGetKeyAtPercent(h, static_cast<int>(r.below(101)), key, &rec));
        }
        DBINDEXCHECK c;
        bad += !fz::known(DBclCheckIndex(h, &c, 0));
        for (int n = 0; n < 30; n++) {
            std::snprintf(key, sizeof key, "%c%c", 'A' + r.below(26), 'a' + r.below(26));
            rec = 1 + static_cast<int32_t>(r.below(300));
            bad += !fz::known(r.below(2) ? DBclAddKey(h, key, rec) : DBclDeleteKey(h, key, rec));
        }
        bad += !fz::known(DBclCloseIndex(h));
    }
    DBTerminate();
    std::remove(name);
    return fz::report(bad, "fuzz_ntx");
}
