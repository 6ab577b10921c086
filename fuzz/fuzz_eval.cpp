// fuzz_eval.cpp - random key expressions built from the evaluator's own
// vocabulary, evaluated against the Harbour table. Usage: fuzz_eval FIXTURES SEED ROUNDS
#include "fuzz_common.h"

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    const std::string dir = argv[1];
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    std::vector<unsigned char> v = fz::load(dir + "/hbntx.dbf");
    if (v.size() < 2) return 2;
    v[1] = 26;
    fz::save("fuzz_eval.dbf", v);
    const char *tok[] = {"NAME", "CITY", "AMOUNT", "QTY", "HIRED", "ACTIVE", "NOTES", "UPPER(", "LOWER(",
                         "UPPE(", "LOWE(", "STR(", "SUBSTR(", "SUBS(", "LEFT(", "RIGHT(", "RIGH(", "PADR(",
                         "DTOC(", ")", ",", "+", "-", "1", "0", "-5", "300", "99999", "12.5", "XYZ", ",1"};
    const uint32_t ntok = sizeof tok / sizeof *tok;
    int bad = 0, h = -1;
    DBInitialize(64, 7);
    if (DBOpenFile(&h, const_cast<char *>("fuzz_eval.dbf"), 1) < 0) return 2;
    for (int i = 0; i < rounds; i++) {
        std::string e;
        for (uint32_t k = 1 + r.below(10); k > 0; k--) e += tok[r.below(ntok)];
        DBGetRecord(h, 1 + static_cast<int32_t>(r.below(300)));
        DBEVAL ev{};
        bad += !fz::known(DBEvaluateStr(h, const_cast<char *>(e.c_str()), &ev));
        if (ev.eval) DBFreeMemory(ev.eval, "fuzz", 0);
    }
    DBCloseFile(h);
    DBTerminate();
    std::remove("fuzz_eval.dbf");
    return fz::report(bad, "fuzz_eval");
}
