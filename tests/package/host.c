/* A host program built against the installed package: it asks the library
   for its version and prints it. */
#include <stdio.h>

#include "velmora/velmora.h"

int main(void) {
    char version[64];
    if (GetVelmoraVersion(version, sizeof version) == 0) return 1;
    printf("%s\n", version);
    return 0;
}
