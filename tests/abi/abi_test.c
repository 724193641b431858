/* The interface as a C host uses it: only velmora.h, linked against the
   shared library. */
#include <stdio.h>
#include <string.h>

#include "velmora/velmora.h"

static int failures = 0;
static int checks = 0;

#define CHECK(condition)                                                  \
    do {                                                                  \
        ++checks;                                                         \
        if (!(condition)) {                                               \
            ++failures;                                                   \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
        }                                                                 \
    } while (0)

static void version_and_messages(void) {
    char text[64];
    char tiny[5];
    WCHAR wide[64];

    CHECK((unsigned short)GetVelmoraVersion(NULL, 0) == VELMORA_VERSION);
    CHECK((unsigned short)GetVelmoraVersion(tiny, sizeof tiny) == VELMORA_VERSION);
    CHECK(strcmp(tiny, "Velm") == 0);
    CHECK((unsigned short)GetVelmoraVersionW(wide, 64) == VELMORA_VERSION);
    CHECK(wide[0] == 'V' && wide[7] == ' ' && wide[8] == '8');

    CHECK(GetVelmoraErrorMessage(VELMORA_ERROR_IFD_NOT_FOUND, text, sizeof text) == 1);
    CHECK(strcmp(text, "IFD not found.") == 0);
    /* A narrow buffer too small for the whole message fails and stays empty. */
    CHECK(GetVelmoraErrorMessage(VELMORA_ERROR_IFD_NOT_FOUND, tiny, 3) == 0);
    CHECK(tiny[0] == '\0');
    CHECK(GetVelmoraErrorMessageW(VELMORA_ERROR_IFD_NOT_FOUND, wide, 3) == 1);
    CHECK(wide[0] == 'I' && wide[1] == 'F' && wide[2] == 0);
}

static void errors_and_records(void) {
    DWORD slot = 0;
    CHECK(InitVelmoraEx(4) == 0);
    CHECK(GetLastVelmoraErrorCode() == ERROR_INVALID_PARAMETER);
    CHECK(SetVelmoraPointer(&slot, 0x1234) == 0x1234 && slot == 0x1234);
    CHECK(SetVelmoraPointer(NULL, 7) != 0);
    CHECK(SetLastVelmoraError(42) == 42 && GetLastVelmoraErrorCode() == 42);
    CHECK(OpenVelmoraJPEG("x") == NULL);
    CHECK(GetLastVelmoraErrorCode() == ERROR_CALL_NOT_IMPLEMENTED);
    CHECK(GetLastError() == ERROR_CALL_NOT_IMPLEMENTED);
    CHECK(SetVelmoraAnnotationGroups(NULL, 0, NULL, 0) == 120);
}

static void memory_blocks(void) {
    HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 16);
    unsigned char *bytes;
    CHECK(block != NULL);
    bytes = (unsigned char *)GlobalLock(block);
    CHECK(bytes != NULL && bytes[15] == 0);
    CHECK((GlobalFlags(block) & GMEM_LOCKCOUNT) == 1);
    CHECK(GlobalUnlock(block) == FALSE && GetLastError() == NO_ERROR);
    CHECK(GlobalSize(block) == 16);
    CHECK(GlobalFree(block) == NULL);
#if !defined(_WIN32)
    /* The library's own handle table always knows a freed handle. */
    CHECK(GlobalFlags(block) == GMEM_INVALID_HANDLE);
    CHECK(GetLastError() == ERROR_INVALID_HANDLE);
#endif
}

int main(void) {
    version_and_messages();
    errors_and_records();
    memory_blocks();
    TerminateVelmoraDLL();
    printf("%d passed, %d failed\n", checks - failures, failures);
    return failures != 0;
}
