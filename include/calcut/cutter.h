/*
 * calcut: cuts the EEPROM dump of a depth camera module into the files of the camera stack.
 *
 * Conventions of this header
 *  1. Plain C11 (also valid C++17/20), C linkage, no global state of its own.
 *  2. Paths are zero-terminated byte strings in the encoding of the file system.
 *  3. The caller owns every pointer it passes in; nothing is kept after the call.
 *  4. Both functions return 0 for success and 1 for failure and let no C++ exception out.
 *  5. Different threads may call at the same time; two cuts into one directory overwrite each
 *     other's files.
 *  6. Log lines are composed, most reasons of a 1 among them, and nothing emits them: what is wrong
 *     with a dump tells the command, "calcut inspect DUMP".
 */
#ifndef CALCUT_CUTTER_H
#define CALCUT_CUTTER_H

#include <stdint.h>

#include "calcut/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Layout numbers of cutEEPROMContent and readLensParameters. */
#define CALCUT_LAYOUT_V7 0        /**< 67-byte header, magic "QOVRIN" */
#define CALCUT_LAYOUT_KORVELINE 1 /**< 104-byte header, magic "KORVELINE" */

/** What a cut writes into its output directory. */
#define CALCUT_CALIBRATION_FILE "qov.spc" /**< the packed calibration, as vantric.h reads it */
#define CALCUT_LENS_FILE "lensdata.dat"   /**< nine floats, as readLensParameters reads them */
#define CALCUT_SIGNATURE_FILE \
    "signature.bin" /**< 1 to 127 bytes, of some Korveline dumps; none after a 1 */

/** The sensor that the stack serves, in pixels; dumps of other sizes are cut as well. */
#define CALCUT_SENSOR_COLUMNS 224
#define CALCUT_SENSOR_ROWS 172

/** Number of floats that readLensParameters writes. */
#define CALCUT_LENS_PARAMETER_COUNT 10

/** Where each of them stands: not the order of the file, nor that of the calibration record. */
typedef enum CalcutLensIndex {
    CALCUT_LENS_CX = 0, /**< principal point, pixels */
    CALCUT_LENS_CY = 1,
    CALCUT_LENS_FX = 2, /**< focal lengths, pixels */
    CALCUT_LENS_FY = 3,
    CALCUT_LENS_P1 = 4, /**< tangential distortion */
    CALCUT_LENS_P2 = 5,
    CALCUT_LENS_K1 = 6, /**< radial distortion */
    CALCUT_LENS_K2 = 7,
    CALCUT_LENS_K3 = 8,
    CALCUT_LENS_RESERVED = 9 /**< always 0.0 */
} CalcutLensIndex;

/** What a cut says about the module: 38 bytes, no padding. */
typedef struct EEPROMMetaInformation {
    uint8_t reserved[36];   /**< zero at present; not to be interpreted */
    uint16_t zeroMaskCount; /**< masked pixels: zeros among the first 38,528 entries (224 x 172) of
                                 the pixel mask, or in all of a smaller one; host byte order */
} EEPROMMetaInformation;

/**
 * Cuts an EEPROM dump into its output files.
 *
 * Reads the dump, checks header and CRC-32 of its first record, and writes into outputPath:
 * "qov.spc" (the packed calibration), "lensdata.dat" (nine floats in host byte order: fx, fy, cx,
 * cy, k1, k2, p1, p2, k3) and, for a Korveline record that carries a signature area,
 * "signature.bin". Existing files of these names are overwritten; files written before a step fails
 * stay on disk, and so does a "signature.bin" of an earlier cut when this dump has none: use a
 * directory for each module.
 *
 * Each cut leaves 38 bytes allocated on purpose: the record from which metaInformation is copied,
 * which belongs to nobody afterwards. Nothing else stays.
 *
 * @param layout          CALCUT_LAYOUT_V7 or CALCUT_LAYOUT_KORVELINE; any other value returns 1.
 * @param inputFile       path of the dump. A missing, unreadable or empty dump ENDS THE PROCESS
 *                        (std::terminate, by a rethrow with no exception in flight; a host that
 *                        calls from inside a catch block gets 1 instead): check the file before the
 *                        call. A directory, pipe or socket counts as unreadable. A null path
 *                        returns 1.
 * @param outputPath      existing output directory, without a trailing separator ("/" and the file
 *                        name are appended). A null path returns 1.
 * @param metaInformation caller's record. It is overwritten when the image itself was accepted,
 *                        also when a file could not be written or the calibration does not read
 *                        afterwards (zeroMaskCount is then 0 if the mask was not reached). It stays
 *                        untouched for an unknown layout, a null path, a missing dump, an image
 *                        that was refused, a record with a signature that is shorter than its
 *                        signature area, and when memory runs out in the cut itself. Null is
 *                        allowed and receives nothing.
 * @return 0 when every file could be opened, had content, the calibration reads (with
 *         VANTRIC_WARN_PARTIAL of a host's handler too) and a signature is 1 to 127 bytes long (a
 *         device that fills up while a file is written is not noticed; a pipe or socket in a file's
 *         place counts as one that cannot be opened); 1 otherwise. Where memory runs out while the
 *         calibration is read, it does not read, or the process ends as vantric_readCalibration
 *         describes.
 */
CALCUT_EXPORT int cutEEPROMContent(int layout, const char* inputFile, const char* outputPath,
                                   EEPROMMetaInformation* metaInformation);

/**
 * Reads the lens parameter file "lensdata.dat" of an earlier cut.
 *
 * The lens model is Brown's (D. C. Brown, "Close-range camera calibration", 1971): radial k1, k2,
 * k3 and tangential p1, p2; focal lengths and principal point in pixels.
 *
 * @param layout     layout number of the cut (0 or 1, no difference between them); above 1 returns
 *                   1 and nothing is opened.
 * @param path       full path of the lens parameter file. Null counts as a missing file.
 * @param parameters caller's array of 10 floats, not null, written only on success, in the order
 *                   of CalcutLensIndex: cx, cy, fx, fy, p1, p2, k1, k2, k3, 0.0.
 * @return 0 on success; 1 when the file is missing, unreadable (a directory, pipe or socket too),
 *         empty, not a multiple of 4 bytes long or shorter than 36 bytes, and when memory runs out.
 *         Bytes after the ninth value are ignored.
 */
CALCUT_EXPORT int readLensParameters(unsigned int layout, const char* path, float* parameters);

#ifdef __cplusplus
}
#endif

#endif
