/* startup.c - the smallest complete use of the library: initialise, show
 * the version, provoke one failure with the error log on, show the log
 * line and the status message, and terminate. */
#include <stdio.h>
#include <string.h>

#include "xbfiles.h"

int main(void)
{
    char version[16];
    char logname[30];
    char line[256];
    int fd = -1;
    int rc;
    FILE *log;

    if (DBInitialize(20, 1) != DB_OK) {
        printf("DBInitialize failed: %s\n", DBGetErrorStr());
        return 1;
    }
    DBGetVersion(version);
    printf("xbfiles %s\n", version);

    memset(logname, 0, sizeof logname);
    strcpy(logname, "startup.log");
    remove(logname);
    DBErrorLog(1, logname);

    /* A file that is not there: the open fails with a status and a log line. */
    {
        DBOMODE m;
        memset(&m, 0, sizeof m);
        rc = DBosOpenFile(&fd, "no-such-table.dbf", 0, &m);
    }
    printf("open of a missing file: status %d, \"%s\"\n", rc, DBGetErrorStr());

    log = fopen(logname, "r");
    if (log && fgets(line, sizeof line, log))
        printf("error log: %s", line);
    if (log)
        fclose(log);

    DBErrorLog(0, NULL);
    DBTerminate();
    printf("terminated\n");
    return rc == DBE_NOTFOUND ? 0 : 1;
}
