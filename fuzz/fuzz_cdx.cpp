// fuzz_cdx.cpp - damaged CDX and IDX files: Harbour's compound index and
// compact and non-compact IDX files of our own, mutated anywhere, then
// opened, every tag walked both ways, searched, positioned by percentage,
// checked, and changed with adds and deletes. Every status must be one the
// library can give; the sanitizer build makes any stray read or write fatal.
// Usage: fuzz_cdx FIXTURES SEED ROUNDS
#include "fuzz_common.h"

#include <cstring>

namespace {

char *cs(const char *s) { return const_cast<char *>(s); }

int bad = 0;
void expect(int rc) { bad += !fz::known(rc); }

// Our own IDX files to mutate: a compact one and a non-compact one with
// enough keys for a few levels.
std::vector<unsigned char> makeIdx(bool compact) {
    const char *f = compact ? "fuzz_cdx_c.idx" : "fuzz_cdx_n.idx";
    DBfbCreateIndex(cs(f), 'C' | (compact ? 0x400 : 0), cs("NAME"), 12, nullptr);
    int h = -1;
    if (DBfbOpenIndex(&h, cs(f), 0) == 0) {
        DBfbSetDefaultKeyType(h, 'C');
        char key[16];
        for (int i = 0; i < 1500; i++) {
            std::snprintf(key, sizeof key, "KEY%05d", (i * 7919) % 3000);
            DBfbAddKey(h, key, i + 1);
        }
        DBfbCloseIndex(h);
    }
    std::vector<unsigned char> v = fz::load(f);
    std::remove(f);
    return v;
}

void exercise(int tag, fz::Rand &r) {
    char key[256];
    int32_t rec = 0;
    int rc = DBfpGoFirstKey(tag, key, &rec);
    for (int i = 0; rc == 0 && i < 800; i++) rc = DBfpGoNextKey(tag, key, &rec);
    expect(rc);
    rc = DBfpGoLastKey(tag, key, &rec);
    for (int i = 0; rc == 0 && i < 300; i++) rc = DBfpGoPreviousKey(tag, key, &rec);
    expect(rc);
    for (int i = 0; i < 8; i++) {
        std::memset(key, 0, sizeof key);
        for (int j = 0; j < 8; j++) key[j] = static_cast<char>('A' + r.below(26));
        rec = static_cast<int32_t>(r.below(2000));
        static const int modes[] = {1, 2, 3, 11, 12, 13, 14, 15, 20};
        expect(DBfpKeySearch(tag, key, &rec, modes[r.below(9)]));
        int p = 0;
        expect(DBfpGetKeyPercent(tag, &p));
        expect(DBfpGetKeyAtPercent(tag, static_cast<int>(r.below(120)) - 10, key, &rec));
        expect(DBfpGetCurrentKey(tag, key, &rec));
    }
    DBINDEXCHECK chk;
    expect(DBfpCheckTag(tag, &chk, static_cast<int>(r.below(2))));
    // Changes on a damaged file: refused or done, never a crash.
    for (int i = 0; i < 12; i++) {
        // Key buffers hold the key length and a NUL, whatever the tag.
        char k[256] = {};
        std::snprintf(k, sizeof k, "KEY%05u", r.below(4000));
        if (r.below(2)) expect(DBfpAddKey(tag, k, static_cast<int32_t>(1 + r.below(100000))));
        else expect(DBfpDeleteKey(tag, k, static_cast<int32_t>(1 + r.below(2000))));
    }
    expect(DBfpCheckTag(tag, &chk, 0));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4) return 2;
    const std::string dir = argv[1];
    fz::Rand r(std::strtoull(argv[2], nullptr, 10));
    const int rounds = std::atoi(argv[3]);
    DBInitialize(64, 4);
    std::vector<unsigned char> src[3] = {fz::load(dir + "/hbcdx.cdx"), makeIdx(true), makeIdx(false)};
    for (const auto &s : src)
        if (s.size() < 1024) return 2;
    for (int i = 0; i < rounds; i++) {
        const int which = static_cast<int>(r.below(3));
        std::vector<unsigned char> v = src[which];
        // Headers and pages alike: anywhere in the file.
        fz::mutate(v, r, v.size());
        fz::save("fuzz_cdx.cdx", v);
        int h = -1;
        const int mode = r.below(4) == 0 ? DBO_READONLY : (r.below(3) == 0 ? DBO_SHARED | DBO_FLUSH : 0);
        int rc = DBfpOpenIndex(&h, cs("fuzz_cdx.cdx"), mode);
        expect(rc);
        if (rc < 0) continue;
        if (which == 0) {
            DBfpSetDefaultKeyType(h, 'C');
            exercise(h, r);
            for (int n = 1; n <= 7; n++) {
                int tag = -1;
                rc = DBfpOpenTag(&tag, h, n);
                expect(rc);
                if (rc != 0) continue;
                expect(DBfpSetDefaultKeyType(tag, n == 2 ? 'N' : 'C'));
                exercise(tag, r);
                expect(DBfpCloseTag(tag));
            }
            expect(DBfpCreateTag(h, cs("FUZZ"), 'C', cs("NAME"), 10, nullptr));
            expect(DBfpDeleteTag(h, cs("BYNAME")));
        } else {
            expect(DBfpSetDefaultKeyType(h, 'C'));
            exercise(h, r);
        }
        expect(DBfpCloseIndex(h));
    }
    DBTerminate();
    std::remove("fuzz_cdx.cdx");
    return fz::report(bad, "fuzz_cdx");
}
