/* Cuts a v7 dump and prints the lens: show_lens DUMP DIRECTORY */
#include <calcut/cutter.h>
#include <stdio.h>

int main(int argc, char** argv) {
    EEPROMMetaInformation meta;
    float lens[CALCUT_LENS_PARAMETER_COUNT];
    char path[4096];

    /* The library ends the process when the dump is not there, so look first. */
    FILE* dump = argc == 3 ? fopen(argv[1], "rb") : NULL;
    if (dump == NULL || fgetc(dump) == EOF) {
        fprintf(stderr, "usage: show_lens DUMP DIRECTORY (a dump that is not empty)\n");
        return 2;
    }
    fclose(dump);

    snprintf(path, sizeof path, "%s/" CALCUT_LENS_FILE, argv[2]);
    if (cutEEPROMContent(CALCUT_LAYOUT_V7, argv[1], argv[2], &meta) != 0 ||
        readLensParameters(CALCUT_LAYOUT_V7, path, lens) != 0) {
        fprintf(stderr, "%s does not cut; calcut inspect says why\n", argv[1]);
        return 1;
    }
    printf("masked %u, centre %g %g, focal length %g %g\n", meta.zeroMaskCount,
           lens[CALCUT_LENS_CX], lens[CALCUT_LENS_CY], lens[CALCUT_LENS_FX], lens[CALCUT_LENS_FY]);
    return 0;
}
