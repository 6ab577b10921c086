// fuzz_ndx.cpp - damaged NDX files: headers, node counts, child pointers,
// interior keys and items mutated, then walked, searched, checked and
// changed. The files come from our own builds (there are no NDX fixtures):
// a character and a numeric index over a table of the NTX fixture's rows.
// Usage: fuzz_ndx FIXTURES SEED ROUNDS
#include "fuzz_common.h"

#include <cstring>

namespace {

// Two indexes to mutate, built once: names (C(20), three levels) and
// amounts (numeric keys).
bool seeds(const std::string &dir) {
    std::vector<unsigned char> t = fz::load(dir + "/hbntx.dbf");
    if (t.size() < 32) return false;
    t[1] = 26;  // the fixture's year byte (see its README)
    fz::save("fuzz_ndx.dbf", t);
    int h = -1;
    if (DBOpenFile(&h, const_cast<char *>("fuzz_ndx.dbf"), 1) != 0) return false;
    const bool ok = DBd3BuildIndex(h, const_cast<char *>("fuzz_seed_c.ndx"), 'C', const_cast<char *>("NAME"), 20, 0) == 0 &&
                    DBd3BuildIndex(h, const_cast<char *>("fuzz_seed_n.ndx"), 'N', const_cast<char *>("AMOUNT"), 8, 0) == 0;
    DBCloseFile(h);
    return ok;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    const std::string dir = argv[1];
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    const char *name = "fuzz_ndx.ndx";
    int bad = 0;
    DBInitialize(64, 2);
    if (!seeds(dir)) {
        std::printf("fuzz_ndx: cannot build the seed indexes\n");
        return 1;
    }
    const std::vector<unsigned char> src[2] = {fz::load("fuzz_seed_c.ndx"), fz::load("fuzz_seed_n.ndx")};
    for (int i = 0; i < rounds; i++) {
        const int which = static_cast<int>(r.below(2));
        std::vector<unsigned char> v = src[which];
        if (r.below(4) == 0) {
            fz::mutate(v, r, 512);
        } else {
            // Mostly the nodes' first bytes (counts, child pointers, keys).
            for (uint32_t k = 1 + r.below(6); k > 0 && v.size() > 512; k--) {
                const size_t node = 512 * (1 + r.below(static_cast<uint32_t>(v.size() / 512 - 1)));
                v[node + r.below(r.below(4) ? 40 : 512)] = static_cast<unsigned char>(r.next());
            }
        }
        fz::save(name, v);
        short h = -1;
        const int modes[] = {0, DBO_FLUSH, DBO_SHARED, DBO_AUTOLOCK};
        int rc = DBd3OpenIndex(&h, const_cast<char *>(name), modes[r.below(4)]);
        bad += !fz::known(rc);
        if (rc < 0) continue;
        char key[512];
        int32_t rec = 0;
        for (int d = 0; d < 2; d++) {
            rc = d ? DBd3GoLastKey(h, key, &rec) : DBd3GoFirstKey(h, key, &rec);
            for (int n = 0; rc == 0 && n < 3000; n++) rc = d ? DBd3GoPreviousKey(h, key, &rec) : DBd3GoNextKey(h, key, &rec);
            bad += !fz::known(rc);
        }
        auto someKey = [&] {
            if (which == 1) {
                DBd3DoubleToKey(h, key, (static_cast<double>(r.below(2000)) - 1000) / 4);
            } else {
                std::snprintf(key, sizeof key, "%c%c", 'A' + r.below(26), 'a' + r.below(26));
            }
        };
        for (int n = 0; n < 20; n++) {
            someKey();
            rec = static_cast<int32_t>(r.below(300));
            const int sm[] = {1, 2, 11, 12, 13, 14, 15};
            bad += !fz::known(DBd3KeySearch(h, key, &rec, sm[r.below(7)]));
            int p = 0;
            bad += !fz::known(DBd3GetKeyPercent(h, &p, key, rec));
            bad += !fz::known(DBd3GetKeyAtPercent(h, static_cast<int>(r.below(101)), key, &rec));
        }
        DBINDEXCHECK c;
        bad += !fz::known(DBd3CheckIndex(h, &c, static_cast<int>(r.below(2))));
        for (int n = 0; n < 30; n++) {
            someKey();
            rec = 1 + static_cast<int32_t>(r.below(300));
            bad += !fz::known(r.below(2) ? DBd3AddKey(h, key, rec) : DBd3DeleteKey(h, key, rec));
        }
        bad += !fz::known(DBd3CheckIndex(h, &c, 0));
        bad += !fz::known(DBd3CloseIndex(h));
    }
    DBTerminate();
    for (const char *f : {name, "fuzz_seed_c.ndx", "fuzz_seed_n.ndx", "fuzz_ndx.dbf"}) std::remove(f);
    return fz::report(bad, "fuzz_ndx");
}
