"""Dump a DBF file as python3-dbfread sees it (run with /usr/bin/python3):

    dbfread_dump.py TABLE.DBF [MEMOFIELD]

prints tab-separated lines: "header" version (hex), count, header length,
record length, fields; "field" name, type (hex), length, decimals; "record"
number, 1 if deleted, then each value as JSON (null when empty, dates
"yyyymmdd", memo fields their block number, binary codes 1-4, 11, 13 in
hex); with MEMOFIELD "memo" number and that memo's bytes in hex (or -), for
the active records; last "check ok" or what disagreed. Records go through
dbfread's own parser in file order; "check" compares that with dbfread's
separate passes over active and deleted records.
"""
import datetime
import decimal
import json
import sys

from dbfread import DBF, FieldParser


class Parser(FieldParser):
    """dbfread's parser, except that memo fields give the block number."""

    def parseM(self, field, data):
        return self._parse_memo_index(data)

    parseG = parseM
    parseP = parseM

    def parseB(self, field, data):
        if self.dbversion in (0x30, 0x31, 0x32):
            return FieldParser.parseB(self, field, data)
        return self._parse_memo_index(data)

    def _hex(self, field, data):
        return data.hex()

    parse01 = parse02 = parse03 = parse04 = parse0B = parse0D = _hex


def plain(value):
    if isinstance(value, datetime.datetime):
        return value.isoformat()
    if isinstance(value, datetime.date):
        return value.strftime("%Y%m%d")
    if isinstance(value, decimal.Decimal):
        return str(value)
    if isinstance(value, bytes):
        return value.hex()
    return value


def main(path):
    table = DBF(path, parserclass=Parser, ignore_missing_memofile=True,
                encoding="latin-1", char_decode_errors="strict")
    hdr = table.header
    out = []
    out.append("header\t%02x\t%d\t%d\t%d\t%d" % (hdr.dbversion, hdr.numrecords,
               hdr.headerlen, hdr.recordlen, len(table.fields)))
    for f in table.fields:
        out.append("field\t%s\t%02x\t%d\t%d" % (f.name, ord(f.type), f.length, f.decimal_count))

    parser = Parser(table)
    active, deleted = [], []
    with open(path, "rb") as fh:
        data = fh.read()
    pos = hdr.headerlen
    number = 0
    while pos < len(data) and data[pos:pos + 1] != b"\x1a":
        rec = data[pos:pos + hdr.recordlen]
        if len(rec) < hdr.recordlen:
            break
        number += 1
        values = []
        at = 1
        for f in table.fields:
            values.append(plain(parser.parse(f, rec[at:at + f.length])))
            at += f.length
        mark = rec[0:1]
        (deleted if mark == b"*" else active).append(values)
        out.append("record\t%d\t%d\t%s" % (number, 1 if mark == b"*" else 0,
                                            "\t".join(json.dumps(v) for v in values)))
        pos += hdr.recordlen

    # dbfread's own passes over the file must agree with the above.
    problems = []
    own_active = [[plain(v) for v in r.values()] for r in table]
    own_deleted = [[plain(v) for v in r.values()] for r in table.deleted]
    if own_active != active:
        problems.append("active records differ from dbfread's pass")
    if own_deleted != deleted:
        problems.append("deleted records differ from dbfread's pass")
    if number != hdr.numrecords:
        problems.append("header count %d, records in file %d" % (hdr.numrecords, number))
    if len(sys.argv) > 2:
        for i, rec in enumerate(DBF(path, encoding="latin-1"), 1):
            memo = rec[sys.argv[2]]
            if isinstance(memo, str):
                memo = memo.encode("latin-1")
            out.append("memo\t%d\t%s" % (i, "-" if memo is None else bytes(memo).hex()))
    out.append("check\t" + ("ok" if not problems else "; ".join(problems)))
    print("\n".join(out))


if __name__ == "__main__":
    main(sys.argv[1])
