"""Dump a DBF file as python3-dbfread sees it, for the table tests to compare
with what the library wrote.

Run with Debian's interpreter (/usr/bin/python3), which has python3-dbfread:

    /usr/bin/python3 dbfread_dump.py TABLE.DBF

Output, one item per line, fields separated by tabs:

    header  <version byte, hex>  <record count>  <header length>  <record length>  <fields>
    field   <name>  <type byte, hex>  <length>  <decimals>
    record  <number>  <1 if marked deleted, else 0>  <value>  <value> ...
    check   ok | <what disagreed>

Every value is JSON: strings, numbers, true/false, or null for an empty
field. Dates are "yyyymmdd"; memo fields give their block number (the memo
file itself is not read); the binary field codes 1, 2, 3, 4, 11 and 13 give
their bytes in hex.

dbfread reads active and deleted records in two separate passes. To report
them in file order, each record's bytes are handed to dbfread's own field
parser here, and the "check" line says whether dbfread's two passes saw
exactly the same records.
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
    out.append("check\t" + ("ok" if not problems else "; ".join(problems)))
    print("\n".join(out))


if __name__ == "__main__":
    main(sys.argv[1])
