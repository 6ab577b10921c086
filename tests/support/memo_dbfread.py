"""Read a table's memo field with python3-dbfread and compare it with the
texts the C++ test wrote.

usage: memo_dbfread.py TABLE.dbf EXPECTED FIELD

EXPECTED holds one entry per record, in record order: "-" and a newline for
a record without a memo, else the memo's length in bytes, a newline and the
memo's bytes. Prints "ok N" when every record matches, else one line per
difference, and exits 1.
"""
import sys

from dbfread import DBF


def as_bytes(memo):
    if memo is None:
        return None
    if isinstance(memo, bytes):  # FPT binary memos come back undecoded
        return bytes(memo)
    return memo.encode("latin-1")


def expected(path):
    with open(path, "rb") as f:
        data = f.read()
    want = []
    while data:
        head, data = data.split(b"\n", 1)
        if head == b"-":
            want.append(None)
        else:
            n = int(head)
            want.append(data[:n])
            data = data[n:]
    return want


def main():
    table, want, field = sys.argv[1], expected(sys.argv[2]), sys.argv[3]
    got = [as_bytes(rec[field]) for rec in DBF(table, encoding="latin-1")]
    bad = 0
    if len(got) != len(want):
        print("records: read %d, expected %d" % (len(got), len(want)))
        bad += 1
    for i, (g, w) in enumerate(zip(got, want), 1):
        if g != w:
            print("record %d: read %r..., expected %r... (%s vs %s bytes)"
                  % (i, (g or b"")[:20], (w or b"")[:20],
                     "-" if g is None else len(g), "-" if w is None else len(w)))
            bad += 1
    if bad:
        sys.exit(1)
    print("ok %d" % len(got))


if __name__ == "__main__":
    main()
