/* customers.c - the typical use of the library, step by step: create a
 * customers table with a notes memo, append rows, read them back by number,
 * change one, mark one deleted and recall it, delete another for good with
 * a pack, and print what happens at each step. Plain C99 against xbfiles.h
 * only. */
#include <stdio.h>
#include <string.h>

#include "xbfiles.h"

static char table[] = "customers.dbf";
static char memofile[] = "customers.dbt";
static int memo = -1; /* the open memo file */

/* Stop at the first failure, saying where and why. */
#define CHECK(call)                                                            \
    do {                                                                       \
        int rc_ = (call);                                                      \
        if (rc_ < 0) {                                                         \
            printf("%s failed: %d, \"%s\"\n", #call, rc_, DBGetErrorStr());  \
            DBTerminate();                                                     \
            return 1;                                                          \
        }                                                                      \
    } while (0)

struct customer {
    const char *name;
    const char *city;
    double balance;
    const char *since; /* in the default date style, mm/dd/yyyy here */
    char active;       /* 'T' or 'F' */
    const char *notes; /* memo text, or NULL */
};

static const struct customer rows[] = {
    {"Ada Lovelace", "London", 1250.50, "12/10/2015", 'T', "Prefers letters to calls."},
    {"Blaise Pascal", "Paris", -75.25, "06/19/2019", 'T', "Owes us for a calculator."},
    {"Carl Gauss", "Brunswick", 0.00, "04/30/2021", 'F', NULL},
    {"Dorothy Hodgkin", "Oxford", 310.00, "05/12/2010", 'T', "Crystal samples, fragile."},
    {"Emmy Noether", "Erlangen", 98765.43, "03/23/2023", 'T', NULL},
};

/* Build the record buffer from one row. Numbers are stored as the text the
 * field shows, right-aligned in its width, so they are formatted here. */
static int fill(int h, const struct customer *c, int id)
{
    char text[32];
    char active = c->active;
    int rc = DBClearBuffer(h);
    if (rc < 0) return rc;
    sprintf(text, "%6d", id);
    if ((rc = DBPutStrField(h, 0, text)) < 0) return rc;
    strcpy(text, c->name);
    if ((rc = DBPutStrField(h, 1, text)) < 0) return rc;
    strcpy(text, c->city);
    if ((rc = DBPutStrField(h, 2, text)) < 0) return rc;
    sprintf(text, "%10.2f", c->balance);
    if ((rc = DBPutStrField(h, 3, text)) < 0) return rc;
    strcpy(text, c->since);
    if ((rc = DBPutFieldData(h, 4, text)) < 0) return rc; /* converted to yyyymmdd */
    if ((rc = DBPutFieldData(h, 5, &active)) < 0) return rc;
    if (c->notes) {
        /* The text goes to the memo file first; the record keeps its block. */
        int32_t block = 0;
        char notes[128];
        strcpy(notes, c->notes);
        if ((rc = DBxbPutMemoRecord(memo, &block, notes, 0)) < 0) return rc;
        return DBPutFieldData(h, 6, &block);
    }
    return 0;
}

/* Read record recno and print it, each field converted to a C value. */
static int show(int h, int32_t recno)
{
    char name[32], city[32], since[16];
    double id = 0, balance = 0;
    char active = 0;
    int32_t block = 0;
    char *notes = NULL;
    int rc = DBGetRecord(h, recno);
    if (rc < 0) return rc;
    if ((rc = DBGetFieldData(h, 0, &id)) < 0) return rc;
    if ((rc = DBGetStrField(h, 1, name)) < 0) return rc;
    if ((rc = DBGetStrField(h, 2, city)) < 0) return rc;
    if ((rc = DBGetFieldData(h, 3, &balance)) < 0) return rc;
    if ((rc = DBGetFieldData(h, 4, since)) < 0) return rc;
    if ((rc = DBGetFieldData(h, 5, &active)) < 0) return rc;
    if ((rc = DBGetFieldData(h, 6, &block)) < 0) return rc;
    printf("  %2ld %c id %3.0f  %s %s %10.2f  since %s  %s\n", (long)recno,
           DBIsRecordDeleted(h) ? '*' : ' ', id, name, city, balance, since,
           active == 1 ? "active" : "inactive");
    if (block != 0) {
        /* The library allocates the text; the caller frees it. */
        if ((rc = DBxbGetMemoRecord(memo, block, &notes, 0)) < 0) return rc;
        printf("       notes (block %ld): %s\n", (long)block, notes);
        DBFreeMemory(notes, __FILE__, __LINE__);
    }
    return 0;
}

static int show_all(int h)
{
    int32_t count = 0, k;
    int rc = DBGetRecordCount(h, &count);
    if (rc < 0) return rc;
    for (k = 1; k <= count; k++)
        if ((rc = show(h, k)) < 0) return rc;
    return 0;
}

int main(void)
{
    DBFIELD fields[7];
    char version[16];
    char stylename[40];
    int style = 0;
    int h = -1;
    int32_t recno = 0, count = 0;
    int i;
    char city[] = "Hanover";
    char note[] = "Moved to Hanover in 2024; sends his regards and a long list of "
                  "corrections to last year's invoices.";
    int32_t block = 0;

    /* Date style 2: dates travel as mm/dd/yyyy; the file always holds
     * yyyymmdd. */
    CHECK(DBInitialize(20, 2));
    DBGetVersion(version);
    DBGetDefaultDateStyle(&style, stylename);
    printf("xbfiles %s, dates in style %d, %s\n", version, style, stylename);

    /* 1. The table: seven fields, dBASE III style (1); the memo field makes
     * it version 0x83, with its texts in a dBASE III memo file. */
    memset(fields, 0, sizeof fields);
    strcpy(fields[0].name, "id");      fields[0].type = 'N'; fields[0].len = 6;
    strcpy(fields[1].name, "name");    fields[1].type = 'C'; fields[1].len = 20;
    strcpy(fields[2].name, "city");    fields[2].type = 'C'; fields[2].len = 12;
    strcpy(fields[3].name, "balance"); fields[3].type = 'N'; fields[3].len = 10; fields[3].decpl = 2;
    strcpy(fields[4].name, "since");   fields[4].type = 'D';
    strcpy(fields[5].name, "active");  fields[5].type = 'L';
    strcpy(fields[6].name, "notes");   fields[6].type = 'M';
    CHECK(DBCreateFile(table, 7, fields, 1));
    CHECK(DBxbCreateMemo(memofile, 1, 3));
    printf("created %s and %s:", table, memofile);
    for (i = 0; i < 7; i++)
        printf(" %s %c(%d%s)", fields[i].name, (char)fields[i].type, fields[i].len,
               fields[i].decpl ? ",2" : "");
    printf("\n");

    /* 2. Append the rows. */
    CHECK(DBOpenFile(&h, table, 1));
    CHECK(DBxbOpenMemo(&memo, memofile, 3));
    for (i = 0; i < 5; i++) {
        CHECK(fill(h, &rows[i], 101 + i));
        CHECK(DBPutRecord(h, &recno, DB_APPEND));
        printf("appended record %ld: %s\n", (long)recno, rows[i].name);
    }
    CHECK(DBFlushFile(h));

    /* 3. Read them back by number. */
    CHECK(DBGetRecordCount(h, &count));
    printf("%ld records, read back by number:\n", (long)count);
    CHECK(show_all(h));

    /* 4. Change one: Gauss moves to Hanover. */
    recno = 3;
    CHECK(DBGetRecord(h, recno));
    CHECK(DBPutStrField(h, 2, city));
    CHECK(DBxbPutMemoRecord(memo, &block, note, 0));
    CHECK(DBPutFieldData(h, 6, &block));
    CHECK(DBPutRecord(h, &recno, DB_REWRITE));
    printf("changed record 3, city now %s, with a note:\n", city);
    CHECK(show(h, 3));

    /* 5. Mark one deleted, and recall it. */
    CHECK(DBMarkRecordInActive(h, 4));
    CHECK(DBGetRecord(h, 4));
    printf("marked record 4 deleted: DBIsRecordDeleted says %d\n", DBIsRecordDeleted(h));
    CHECK(DBMarkRecordActive(h, 4));
    CHECK(DBGetRecord(h, 4));
    printf("recalled record 4: DBIsRecordDeleted says %d\n", DBIsRecordDeleted(h));

    /* 6. Delete record 2 and pack: it is gone, the others move up. */
    CHECK(DBMarkRecordInActive(h, 2));
    printf("marked record 2 deleted, before the pack:\n");
    CHECK(show_all(h));
    CHECK(DBPackFile(&h));
    CHECK(DBGetRecordCount(h, &count));
    printf("packed: %ld records left (the old file is kept as customers.BAK):\n", (long)count);
    CHECK(show_all(h));

    /* 7. Pack the memo file too: Pascal's note went with his record. */
    CHECK(DBxbPackMemo(h, &memo));
    printf("memo file packed; the notes now:\n");
    CHECK(show_all(h));

    CHECK(DBxbCloseMemo(memo));
    CHECK(DBCloseFile(h));
    DBTerminate();
    printf("closed and terminated\n");
    return count == 4 ? 0 : 1;
}
