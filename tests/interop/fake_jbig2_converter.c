/* A stand-in for the outside JBIG2 converter library: it appends its command
   line to the file FAKE_CONVERTER_LOG, copies the input TIFF to that name
   plus ".tif", writes a PDF of FAKE_CONVERTER_PAGES page objects to the
   output path and returns FAKE_CONVERTER_RESULT. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int i2pdfocr(const char* command) {
    const char* log = getenv("FAKE_CONVERTER_LOG");
    char in[4096], out[4096], copy[8400];
    FILE* file = fopen(log, "ab");
    fprintf(file, "%s\n", command);
    fclose(file);
    if (sscanf(strchr(command, '"'), "\"%4095[^\"]\" \"%4095[^\"]\"", in, out) != 2) return -1;
    snprintf(copy, sizeof copy, "cp '%s' '%s.tif'", in, log);
    if (system(copy) != 0 || (file = fopen(out, "wb")) == NULL) return -1;
    fputs("%PDF-1.4\n", file);
    for (int i = 0; i < atoi(getenv("FAKE_CONVERTER_PAGES")); ++i) fputs("1 0 obj <</Type /Page>> endobj\n", file);
    fclose(file);
    return atoi(getenv("FAKE_CONVERTER_RESULT"));
}
