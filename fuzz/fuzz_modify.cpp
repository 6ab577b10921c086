// fuzz_modify.cpp - damaged tables and memo files given a new structure:
// headers, records and memo blocks mutated, then every field converted to a
// random type and size (or dropped), and the result read back.
// Usage: fuzz_modify FIXTURES SEED ROUNDS
#include "fuzz_common.h"

#include <cstring>

namespace {
const char *const kLeft[] = {"fm.dbf", "fm.dbt", "fm.fpt", "fm.BAK", "fm.TBK", "fm.MPK", "0.DBF", "0.DBT", "0.FPT"};
}

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    const std::string dir = argv[1];
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    const struct { const char *stem, *memo; int style; } src[] = {
        {"hbntx", ".dbt", 1}, {"hbcdx", ".fpt", 4}, {"py_db3", ".dbt", 1}, {"sl_plain", "", 1}};
    int bad = 0;
    DBInitialize(64, 1);
    for (int i = 0; i < rounds; i++) {
        const auto &s = src[r.below(4)];
        for (const char *n : kLeft) std::remove(n);
        std::vector<unsigned char> v = fz::load(dir + "/" + s.stem + ".dbf");
        if (v.size() < 2) return 2;
        v[1] = 26;  // a year byte the open accepts
        fz::mutate(v, r, r.below(2) ? 2000 : v.size());
        fz::save("fm.dbf", v);
        if (*s.memo) {
            std::vector<unsigned char> m = fz::load(dir + "/" + s.stem + s.memo);
            if (r.below(2)) fz::mutate(m, r, m.size());
            fz::save(std::string("fm") + s.memo, m);
        }
        int h = -1;
        if (DBOpenFile(&h, const_cast<char *>("fm.dbf"), s.style) < 0) continue;
        int nf = 0;
        static DBFIELD old[1100], nw[1100];
        if (DBGetFileDescription(h, &nf, old) != 0 || nf > 1000) {
            DBCloseFile(h);
            continue;
        }
        int n = 0;
        for (int f = 0; f < nf; f++) {
            if (r.below(6) == 0) continue;  // dropped
            DBFIELD d = old[f];
            static const int kTypes[] = {'C', 'N', 'D', 'L', 'M', 1, 3, 13};
            d.type = r.below(3) ? d.type : kTypes[r.below(8)];
            d.len = d.type == 'C' ? 1 + static_cast<int>(r.below(30)) : d.type == 'N' ? 1 + static_cast<int>(r.below(19)) : d.len;
            d.decpl = d.type == 'N' && d.len > 2 ? static_cast<int>(r.below(static_cast<uint32_t>(d.len - 1))) : 0;
            nw[n++] = d;
        }
        if (n == 0 || r.below(5) == 0) nw[n++] = DBFIELD{"EXTRA", 'M', 10, 0};
        int rc = DBModifyFile(&h, n, nw);
        bad += !fz::known(rc);
        if (rc >= 0) {
            int32_t count = 0;
            DBGetRecordCount(h, &count);
            for (int32_t rec = 1; rec <= count && rec < 400; rec++) {
                bad += !fz::known(DBGetRecord(h, rec));
                for (int f = 0; f < n; f++) {
                    static char buf[70000];
                    bad += !fz::known(DBGetStrField(h, f, buf));
                }
            }
        }
        bad += !fz::known(DBCloseFile(h));
    }
    DBTerminate();
    for (const char *n : kLeft) std::remove(n);
    return fz::report(bad, "fuzz_modify");
}
