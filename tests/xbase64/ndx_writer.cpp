// ndx_writer.cpp - the second opinion on NDX files: Debian's xbase64 (an
// independent xBase library) builds an NDX index over a table of ours.
// Usage: ndx_writer TABLE.dbf INDEX.ndx EXPRESSION [unique]
//        ndx_writer --probe     (exits 0: the program can run here)
//
// It is built for 32-bit x86 whatever the flavour under test: xbase64 keeps
// its file fields in `long`, and its 64-bit build loses entries as soon as
// a node splits. Where the machine cannot run 32-bit programs the tests run
// it through qemu-i386. It only writes: it never reads an index back.
#include <xbase64/xbase64.h>

#include <cstdio>
#include <cstring>

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--probe") == 0) return 0;
    if (argc < 4) {
        std::fprintf(stderr, "usage: ndx_writer TABLE INDEX EXPRESSION [unique]\n");
        return 2;
    }
    xbXBase x;
    xbDbf d(&x);
    int rc = d.OpenDatabase(argv[1]);
    if (rc != XB_NO_ERROR) {
        std::fprintf(stderr, "open %s: %d\n", argv[1], rc);
        return 3;
    }
    xbNdx n(&d);
    const bool unique = argc > 4 && std::strcmp(argv[4], "unique") == 0;
    rc = n.CreateIndex(argv[2], argv[3], unique ? XB_UNIQUE : XB_NOT_UNIQUE, XB_OVERLAY);
    if (rc != XB_NO_ERROR) {
        std::fprintf(stderr, "create %s: %d\n", argv[2], rc);
        return 4;
    }
    // A unique index over duplicate keys: xbase64 keeps the first record of
    // each key and reports the others refused.
    rc = n.ReIndex();
    if (rc != XB_NO_ERROR && !(unique && rc == XB_KEY_NOT_UNIQUE)) {
        std::fprintf(stderr, "reindex %s: %d\n", argv[2], rc);
        return 5;
    }
    n.CloseIndex();
    d.CloseDatabase();
    return 0;
}
