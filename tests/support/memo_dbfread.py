"""Read a table's memo field with python3-dbfread and compare it with the
texts the C++ test wrote.

usage: memo_dbfread.py TABLE.dbf EXPECTED.txt FIELD

EXPECTED.txt holds one line per record, in record order: the memo's bytes
in hex, or "-" for a record without a memo. Prints "ok N" when every
record matches, else one line per difference, and exits 1.
"""
import sys

from dbfread import DBF


def as_hex(memo):
    if memo is None:
        return "-"
    if isinstance(memo, bytes):  # FPT binary memos come back undecoded
        return bytes(memo).hex()
    return memo.encode("latin-1").hex()


def main():
    table, expected, field = sys.argv[1], sys.argv[2], sys.argv[3]
    with open(expected) as f:
        want = [line.strip() for line in f if line.strip()]
    got = [as_hex(rec[field]) for rec in DBF(table, encoding="latin-1")]
    bad = 0
    if len(got) != len(want):
        print("records: read %d, expected %d" % (len(got), len(want)))
        bad += 1
    for i, (g, w) in enumerate(zip(got, want), 1):
        if g != w:
            print("record %d: read %s..., expected %s... (%d vs %d hex digits)"
                  % (i, g[:40], w[:40], len(g), len(w)))
            bad += 1
    if bad:
        sys.exit(1)
    print("ok %d" % len(got))


if __name__ == "__main__":
    main()
