// fuzz_dbf.cpp - damaged tables: headers, descriptors and lengths mutated,
// then every record and field read. Usage: fuzz_dbf FIXTURES SEED ROUNDS
#include "fuzz_common.h"

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    const std::string dir = argv[1];
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    const struct { const char *file; int style; } src[] = {
        {"hbntx.dbf", 1}, {"hbcdx.dbf", 4}, {"py_db3.dbf", 1}, {"py_vfp.dbf", 10}, {"sl_plain.dbf", 1}};
    int bad = 0;
    DBInitialize(64, 1);
    for (int i = 0; i < rounds; i++) {
        const auto &s = src[r.below(5)];
        std::vector<unsigned char> v = fz::load(dir + "/" + s.file);
        if (v.size() < 2) return 2;
        v[1] = 26;  // a year byte the open accepts
        fz::mutate(v, r, 2000);
        fz::save("fuzz_dbf.dbf", v);
        int h = -1;
        int rc = DBOpenFile(&h, const_cast<char *>("fuzz_dbf.dbf"), s.style | (r.below(2) ? DBO_READONLY : 0));
        bad += !fz::known(rc);
        if (rc < 0) continue;
        int32_t count = 0;
        DBRECINFO ri{};
        DBGetRecordCount(h, &count);
        DBGetRecordInfo(h, &ri);
        for (int32_t rec = 0; rec <= count + 1 && rec < 400; rec++) {
            bad += !fz::known(DBGetRecord(h, rec));
            for (int f = -1; f <= ri.numflds; f++) {
                static char buf[70000];
                char name[12];
                bad += !fz::known(DBGetStrField(h, f, buf));
                bad += !fz::known(DBGetFieldData(h, f, buf));
                if (DBGetFieldName(h, name, f) == 0) {
                    DBEVAL ev{};
                    bad += !fz::known(DBEvaluateStr(h, name, &ev));
                    if (ev.eval) DBFreeMemory(ev.eval, "fuzz", 0);
                }
            }
        }
        bad += !fz::known(DBCloseFile(h));
    }
    DBTerminate();
    std::remove("fuzz_dbf.dbf");
    return fz::report(bad, "fuzz_dbf");
}
