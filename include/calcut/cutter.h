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
 *  6. Log lines are composed but never sent. Run "calcut inspect DUMP" to learn why a cut failed.
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
#define CALCUT_SIGNATURE_FILE                                                                    \
    "signature.bin" /**< of some Korveline dumps, 1 to 127 bytes; empty when a cut returns 1 for \
                       it */

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
 * "signature.bin". Existing files of these names are overwritten, and a "signature.bin" of an
 * earlier cut stays when this dump has none: use a directory for each module.
 *
 * The steps, in this order, and what their failure leaves behind. Written files stay.
 *
 *   what fails                                         result  metaInformation  files written
 *   -------------------------------------------------  ------  ---------------  ----------------
 *   layout is neither number above                     1       untouched        none
 *   inputFile or outputPath is null                    1       untouched        none
 *   the dump is missing, empty, unreadable, or a       process
 *     directory, pipe or socket                          ends  -                none
 *   the image is refused: header, magic, version,      1       untouched        none
 *     CRC-32, or a payload outside the file
 *   a signed payload is shorter than its signature     1       untouched        none
 *     area
 *   "qov.spc" cannot be opened, or is empty            1       written, 0       "qov.spc" if opened
 *   the calibration does not read                      1       written, 0       "qov.spc"
 *   a handler of the host's throws                     1       untouched        "qov.spc"
 *   "lensdata.dat" cannot be opened                    1       written          "qov.spc"
 *   the signature is empty                             1       written          all three
 *   the signature is longer than 127 bytes, or         1       written          first two
 *     "signature.bin" cannot be opened
 *   memory runs out in the cut itself                  1       untouched        any
 *   memory runs out while the calibration is read      as vantric_readCalibration describes: it
 *                                                      does not read, or the process ends
 *   nothing                                            0       written          all
 *
 * The process ends by std::terminate, after a rethrow with no exception in flight; a host that
 * calls from inside a catch block gets 1 instead. Check the dump before the call. A pipe or socket
 * in the place of an output file counts as one that cannot be opened. A device that fills up while
 * a file is written is not noticed. A calibration that a host's handler reads with
 * VANTRIC_WARN_PARTIAL counts as read.
 *
 * Each cut leaves 38 bytes allocated on purpose: the record from which metaInformation is copied,
 * which belongs to nobody afterwards. Nothing else stays.
 *
 * @param layout          CALCUT_LAYOUT_V7 or CALCUT_LAYOUT_KORVELINE.
 * @param inputFile       path of the dump.
 * @param outputPath      existing output directory, without a trailing separator ("/" and the file
 *                        name are appended).
 * @param metaInformation caller's record, overwritten as the table says; zeroMaskCount is 0 where
 *                        the mask was not reached. Null is allowed and receives nothing.
 * @return 0 when every file was opened and has content; 1 otherwise.
 */
CALCUT_EXPORT int cutEEPROMContent(int layout, const char* inputFile, const char* outputPath,
                                   EEPROMMetaInformation* metaInformation);

/**
 * Reads the lens parameter file "lensdata.dat" of an earlier cut.
 *
 * The lens model is Brown's (D. C. Brown, "Close-range camera calibration", 1971): radial k1, k2,
 * k3 and tangential p1, p2; focal lengths and principal point in pixels.
 *
 *   what fails                                                   result  parameters
 *   -----------------------------------------------------------  ------  ----------
 *   layout is above 1; nothing is opened                         1       untouched
 *   the file is missing, unreadable, a directory, pipe or        1       untouched
 *     socket, or path is null
 *   its size is 0, no multiple of 4, or below 36 bytes           1       untouched
 *   memory runs out                                              1       untouched
 *   nothing                                                      0       written
 *
 * @param layout     layout number of the cut; 0 and 1 make no difference.
 * @param path       full path of the lens parameter file. Bytes after the ninth value are ignored.
 * @param parameters caller's array of 10 floats, not null, in the order of CalcutLensIndex: cx, cy,
 *                   fx, fy, p1, p2, k1, k2, k3, 0.0.
 * @return 0 on success, 1 on failure.
 */
CALCUT_EXPORT int readLensParameters(unsigned int layout, const char* path, float* parameters);

#ifdef __cplusplus
}
#endif

#endif
