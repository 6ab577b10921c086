// hexist.cpp - whether a file exists, without disturbing DBerrno.
#include "os.h"

#include <unistd.h>

int _DBIsFileThere(char *name) { return name && access(name, F_OK) == 0 ? 1 : 0; }
