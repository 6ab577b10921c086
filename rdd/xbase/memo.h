// memo.h - the DBT (dBASE III/IV) and FPT (FoxPro) memo packets and their
// internal entry points.
#pragma once

#include "core.h"

// FPT header (held in host order; big-endian on disk).
struct DBFPTHDR {
    int32_t ff;   // next free block
    int32_t bsa;  // block size
};

// FPT block header (big-endian on disk).
struct DBFPTRHDR {
    int32_t s;    // 1 text, 0 picture/binary
    int32_t len;  // data bytes that follow
};

// Type 4 packet: an open FPT file.
struct DBFPTPKT {
    DBPKTHDR ph;
    DBFPTHDR h;
    int32_t pcnt;  // bytes of the current memo still to read or write
    int32_t pba;   // file address of the next byte
    int32_t pcur;  // block of the memo in progress
};

// dBASE IV text block header.
struct DBDBTRHDR {
    int16_t u1;
    int16_t u2;
    int32_t len;  // text length including these 8 bytes
};

// A free run in a dBASE IV memo file.
struct DBDBTFHDR {
    int32_t adrs;  // first block
    int32_t len;   // length in blocks
};

// Type 3 packet: an open DBT file.
struct DBDBTPKT {
    DBPKTHDR ph;
    int32_t fs;    // file length, refreshed when the header is read
    DBDBTHDR h;
    int v;         // layout version the file was opened with
};

extern DBFPTPKT *DBfpm;
extern DBDBTPKT *DBxbm;

int DBfpCloseMemo(int handle);
int DBxbCloseMemo(int handle);
