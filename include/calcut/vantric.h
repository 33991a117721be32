/*
 * The calibration library: reads a module's calibration into a record, computes what follows from
 * it, and serves its fields.
 *
 * Conventions of this header and of vantric_rx.h
 *  1. Plain C11 (also valid C++17/20), C linkage. No function throws.
 *  2. A status is an unsigned 32-bit number: 0 is success, every failure has the top bit set. A
 *     result documented as "size or status" is the same number read as signed: negative is failure.
 *     One status has the top bit set and is no failure: VANTRIC_WARN_PARTIAL, which only a host's
 *     handler returns, hands out a record too. So set the pointer to null before a read, and
 *     release it afterwards whatever the status. status.h names the statuses.
 *  3. Unset values are 0xFFFFFFFF, 0xFFFF, 0xFF and NaN.
 *  4. Memory comes from malloc and goes back with free. A record owns every buffer it points to; a
 *     caller releases records with vantric_freeCalibration and never a part of one. Numbers in a
 *     record are in host byte order.
 *  5. Pointers must not be null unless a function says that it accepts null.
 *  6. All computation is in single precision, in the order of the documented formulas, never fused.
 *  7. Pixels are stored row by row; pixel (u, v) is element v * columns + u, and its centre has the
 *     coordinates (u, v) themselves, without a half-pixel offset.
 *  8. The handler registry is guarded by a lock. Everything else works on its arguments alone, so
 *     threads may use different records at the same time.
 */
#ifndef CALCUT_VANTRIC_H
#define CALCUT_VANTRIC_H

#include <stddef.h>
#include <stdint.h>

#include "calcut/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------ status codes -- */

#define VANTRIC_OK UINT32_C(0)
/** field id neither built in nor in the custom range */
#define VANTRIC_ERR_UNKNOWN_FIELD UINT32_C(0x80000000)
/** custom field whose data was never read */
#define VANTRIC_ERR_FIELD_NOT_READ UINT32_C(0x80000002)
/** no handler accepts the data; an operation that this library does not offer */
#define VANTRIC_ERR_NOT_SUPPORTED UINT32_C(0x80000003)
/** the buffer ends inside a header or payload; too few packed words */
#define VANTRIC_ERR_END_OF_DATA UINT32_C(0x80000004)
/** null or wrong-version record; custom fields read twice; straylight model absent or empty */
#define VANTRIC_ERR_INVALID_ARGUMENT UINT32_C(0x80000005)
/** a block is present but the value it carries is the unset mark */
#define VANTRIC_ERR_VALUE_UNSET UINT32_C(0x80000006)
/** target buffer too small or not allocatable; a sixth custom block; a full table */
#define VANTRIC_ERR_BUFFER_TOO_SMALL UINT32_C(0x80000007)
/** a block with fewer elements than required */
#define VANTRIC_ERR_COUNT_TOO_SMALL UINT32_C(0x80000008)
/** pixel count not positive; wrong block size, kind, width or order */
#define VANTRIC_ERR_INVALID_DATA UINT32_C(0x80000009)
/** a built-in field without a value; a required block is missing */
#define VANTRIC_ERR_FIELD_EMPTY UINT32_C(0x8000000A)
/** PSF or directions present already; direction buffer of the wrong size; unknown payload kind */
#define VANTRIC_ERR_ALREADY_SET UINT32_C(0x8000000B)
/** non-fatal: the record is only partly filled, is handed out, and must be released */
#define VANTRIC_WARN_PARTIAL UINT32_C(0x8000000C)

/* -------------------------------------------------------------------------------- capacities -- */

#define VANTRIC_TEXT_BYTES 65        /**< bytes of a text buffer, terminator included */
#define VANTRIC_ID_BYTES 32          /**< bytes of idBytes */
#define VANTRIC_LENS_PARAMETERS 9    /**< floats of lensParameters; VantricLensIndex has them */
#define VANTRIC_STRAYLIGHT_POINTS 13 /**< profile points of a calibration, without the origin */
#define VANTRIC_FREQUENCIES 8        /**< frequency records of a calibration record */
#define VANTRIC_FREQUENCY_VALUES 4   /**< floats of valuesA and of valuesB */
#define VANTRIC_WIGGLING_ENTRIES 5   /**< entries of each wiggling array */
#define VANTRIC_CUSTOM_FIELDS 5      /**< custom fields of a calibration record */
#define VANTRIC_HANDLERS 5           /**< handlers the registry can hold */
#define VANTRIC_MAX_PSF_ELEMENTS 67108864u /**< 2^26: a larger PSF is refused, not allocated */

/* ----------------------------------------------------------------------------------- records -- */

/** Where each lens parameter stands in lensParameters, in field 0, and in "lensdata.dat". */
typedef enum VantricLensIndex {
    VANTRIC_LENS_FX = 0, /**< focal lengths, pixels */
    VANTRIC_LENS_FY = 1,
    VANTRIC_LENS_CX = 2, /**< principal point, pixels */
    VANTRIC_LENS_CY = 3,
    VANTRIC_LENS_K1 = 4, /**< radial distortion */
    VANTRIC_LENS_K2 = 5,
    VANTRIC_LENS_P1 = 6, /**< tangential distortion */
    VANTRIC_LENS_P2 = 7,
    VANTRIC_LENS_K3 = 8 /**< radial distortion */
} VantricLensIndex;

/** Image area in pixels. areaX and areaY are 0 for packed calibrations. */
typedef struct VantricImagerArea {
    uint32_t areaX;
    uint32_t areaY;
    uint32_t columns;
    uint32_t rows;
} VantricImagerArea;

/**
 * Table of a periodic distance error ("wiggling"); the arrays hold 5 values each. A block of
 * 1 + 3n floats has n entries, and n is kept in 8 bits: a block of 769 floats has 0.
 */
typedef struct VantricWigglingTable {
    uint8_t capacity; /**< 5; the number of entries in use once the table was read */
    float* first;     /**< owned */
    uint32_t* second; /**< owned */
    float* third;     /**< owned */
    uint32_t header;  /**< bits of the block's first float, as decoded */
} VantricWigglingTable;

/** Calibration of one modulation frequency. */
typedef struct VantricFrequencyRecord {
    uint32_t frequencyId;
    float* pixelTable; /**< owned; one float per pixel */
    uint8_t countA;    /**< entries of valuesA */
    float* valuesA;    /**< owned; 4 floats */
    uint8_t countB;    /**< entries of valuesB */
    float* valuesB;    /**< owned; 4 floats */
    float scalar;      /**< NaN when the calibration has none */
    VantricWigglingTable wigglingA;
    VantricWigglingTable wigglingB;
} VantricFrequencyRecord;

/** A raw block that the library does not interpret. */
typedef struct VantricCustomField {
    uint8_t* data; /**< owned; null until vantric_readCustomFields */
    uint8_t size;  /**< bytes */
} VantricCustomField;

/**
 * The calibration record. Callers may treat it as an opaque handle; handlers fill it. Every buffer
 * has its final capacity from creation on and starts with zeros, except directions and psf, which
 * start null.
 */
typedef struct VantricCalibration {
    uint16_t version;             /**< 1; the field functions refuse any other value */
    uint16_t calibrationType;     /**< 2 when created; 3 for a packed calibration */
    char* text0;                  /**< owned; 65 bytes, zero-terminated: the number of the date
                                       block, " (7)" for 7, or empty without one; not a field */
    char* text1;                  /**< owned; 65 bytes, zero-terminated; field 1 */
    char* text2;                  /**< owned; 65 bytes, zero-terminated; field 2 */
    uint8_t* idBytes;             /**< owned; 32 bytes; field 4 */
    uint8_t idBytesSize;          /**< bytes in use of idBytes */
    VantricImagerArea imagerArea; /**< field 3; columns x rows is the number of pixels */
    float* directions;            /**< owned; 3 floats (x, y, z; unit vector) per pixel, or null */
    uint8_t lensParameterCount;   /**< 9 */
    float* lensParameters; /**< owned; fx, fy, cx, cy (pixels), k1, k2, p1, p2, k3; field 0 */
    uint16_t idCode0;      /**< 0xFFFF: unset; field 5 together with idCode1 */
    uint16_t idCode1;      /**< 0xFFFF: unset */
    float straylightScale; /**< amplitude; NaN: no straylight model */
    float straylightRadius[VANTRIC_STRAYLIGHT_POINTS + 1]; /**< profile radii, PSF elements */
    float straylightValue[VANTRIC_STRAYLIGHT_POINTS + 1];  /**< exponents at those radii */
    float straylightExponent;                              /**< p of the distance norm */
    float straylightOffset;                                /**< added to every PSF element */
    float straylightCentre;                                /**< value of PSF element 0 */
    uint32_t psfWidth;                                     /**< 0xFFFFFFFF: unset */
    uint32_t psfHeight;                                    /**< 0xFFFFFFFF: unset */
    uint8_t straylightPointCount; /**< points in use; grows by the origin when the PSF is made */
    float* psf;                   /**< owned; psfWidth x psfHeight floats, or null */
    uint8_t auxFlag;              /**< stored, not interpreted */
    uint8_t* pixelMask;           /**< owned; one byte per pixel; 0 is a masked (unusable) pixel */
    float* pixelValues;           /**< owned; one float per pixel */
    uint8_t frequencyCount;       /**< entries in use of frequencies */
    VantricFrequencyRecord* frequencies; /**< owned; always 8 entries */
    uint8_t customFieldCount;            /**< entries in use of customFields */
    VantricCustomField* customFields;    /**< owned; always 5 entries */
    uint8_t firstCustomFieldId;          /**< field id of customFields[0]: 128 after a read, also
                                              without custom blocks; 255 before, and in a copy */
    uint8_t customFieldReserved;         /**< stored, not interpreted */
} VantricCalibration;

/** Result of a handler's read: status, and the block that caused it (255 when none did). */
typedef struct RXReadResult {
    uint32_t status;
    uint32_t failedBlockId;
} RXReadResult;

/**
 * The six functions by which a calibration format plugs into the library. data and size are the
 * whole calibration in memory. getCalibrationType is also the handler's identity. The functions
 * must not throw, and getNumPixels must give the same answer for the same data: it decides how
 * large the buffers of the record are that readCalibration fills.
 */
typedef struct VantricCalibrationHandler {
    /** nonzero when this handler reads this data */
    int (*supports)(const uint8_t* data, size_t size);
    /** fills the record; only status of the result is used. A function that returns a plain status
        takes three lines to adapt, in C as in C++:

            static RXReadResult adapt(const uint8_t* data, size_t size, VantricCalibration* out) {
                const RXReadResult result = {readMine(data, size, out), 255};
                return result;
            }
    */
    RXReadResult (*readCalibration)(const uint8_t* data, size_t size, VantricCalibration* record);
    /** copies the custom blocks into the prepared customFields; may be null */
    uint32_t (*readCustomFields)(const uint8_t* data, size_t size, VantricCalibration* record);
    /** computes directions and PSF; may be null */
    uint32_t (*calcPsfAndDirections)(VantricCalibration* record, uint32_t numPixels);
    /** type code of this format's calibrations */
    uint32_t (*getCalibrationType)(void);
    /** pixel count, or a failure status (negative) */
    int32_t (*getNumPixels)(const uint8_t* data, size_t size);
} VantricCalibrationHandler;

/* ----------------------------------------------------------------------------------- reading -- */

/**
 * Reads a calibration with its ray directions and, if it has a straylight model, its PSF.
 *
 * The first registered handler that accepts the data reads it; the packed-format handler is
 * registered on first use (see vantric_rx.h for the format).
 *
 * @param data, size  the calibration; only read, not kept
 * @param out         receives the new record on VANTRIC_OK and VANTRIC_WARN_PARTIAL, owned by the
 *                    caller; untouched otherwise, so set it to null before and release it after
 * @return a status:
 *
 *         | status                | when                                                          |
 *         | --------------------- | ------------------------------------------------------------- |
 *         | VANTRIC_OK            | the record is complete                                        |
 *         | VANTRIC_WARN_PARTIAL  | a host's handler says so; the record is handed out            |
 *         | ..._ERR_NOT_SUPPORTED | no handler accepts the data                                   |
 *         | ..._ERR_INVALID_DATA  | the image has no pixels                                       |
 *         | any other             | of the handler; for packed data those of                      |
 *         |                       | vantric_readRXCalibration and, with directions,               |
 *         |                       | vantric_calcRXPsfAndDirections                                |
 *         | the pixel count       | it is 2^31 or more and so, read as signed, negative           |
 *
 *         Out of memory for the record's main parts, the table of blocks or the PSF's curve aborts.
 */
CALCUT_EXPORT uint32_t vantric_readCalibration(const uint8_t* data, size_t size,
                                               VantricCalibration** out);

/**
 * As vantric_readCalibration; directions and PSF are computed only when withPsfAndDirections is
 * not 0, else both stay null. Same statuses.
 */
CALCUT_EXPORT uint32_t vantric_readCalibrationExt(const uint8_t* data, size_t size,
                                                  VantricCalibration** out,
                                                  int32_t withPsfAndDirections);

/** Releases a record and everything it owns. Null is accepted and does nothing. */
CALCUT_EXPORT void vantric_freeCalibration(VantricCalibration* calibration);

/**
 * Deep copy of a record, owned by the caller; null for null. Directions, PSF and custom data are
 * copied when the source has them (a PSF only when psfWidth and psfHeight are set and name at most
 * VANTRIC_MAX_PSF_ELEMENTS).
 * firstCustomFieldId is deliberately not copied: a copy has 255 there. A part whose buffer cannot
 * be allocated stays null; out of memory for the record's main parts aborts.
 */
CALCUT_EXPORT VantricCalibration* vantric_copyCalibration(const VantricCalibration* calibration);

/** Type code of a calibration in memory without reading it; 0 when no handler accepts it. */
CALCUT_EXPORT uint32_t vantric_getCalibrationType(const uint8_t* data, size_t size);

/** calibrationType of a record; 0 for null. */
CALCUT_EXPORT uint32_t vantric_getCalibrationTypeFromHandle(const VantricCalibration* calibration);

/** Returns its argument unchanged. */
CALCUT_EXPORT uint32_t vantric_getStatusFromCode(uint32_t code);

/** Caller-supplied memory is not offered: always VANTRIC_ERR_NOT_SUPPORTED. */
CALCUT_EXPORT uint32_t vantric_getCalibrationSize(void);

/** Caller-supplied memory is not offered: always VANTRIC_ERR_NOT_SUPPORTED. */
CALCUT_EXPORT uint32_t vantric_getTemporaryMemorySize(void);

/**
 * Gives a record without PSF a copy of the caller's PSF. Neither checks nor sets psfWidth and
 * psfHeight. When these are set and name more elements than count, up to VANTRIC_MAX_PSF_ELEMENTS,
 * the rest is filled with 0. Beyond that limit the PSF has count elements, whatever the sizes say,
 * and copies of the record leave it out.
 *
 * Add a PSF after the packed read that fills the record: a read drops the PSF when a straylight
 * block comes.
 * @param values  count floats, row by row
 * @return VANTRIC_OK; VANTRIC_ERR_ALREADY_SET (nothing changed) when there is a PSF already;
 *         VANTRIC_ERR_BUFFER_TOO_SMALL when memory runs out
 */
CALCUT_EXPORT uint32_t vantric_addPsf(VantricCalibration* calibration, const float* values,
                                      uint32_t count);

/**
 * Gives a record without directions a copy of the caller's directions. When the image has more
 * than count pixels, the rest is filled with 0.
 *
 * Add directions after the packed read that fills the record: a read that changes imagerArea drops
 * them. The first read into a new record does that, since nobody knows how many they were.
 * @param values  count x 3 floats
 * @return as vantric_addPsf
 */
CALCUT_EXPORT uint32_t vantric_addDirections(VantricCalibration* calibration, const float* values,
                                             uint32_t count);

/* ---------------------------------------------------------------------------------- registry -- */

/**
 * Registers a calibration format. The handler is copied; it is asked after those registered before
 * and, when registered before the first dispatch, before the library's own.
 * @return 1 when added; 0 for null, when 5 handlers are registered, or when one with the same
 *         getCalibrationType function is (the registry is then unchanged)
 */
CALCUT_EXPORT int vantric_registerCalibrationHandler(const VantricCalibrationHandler* handler);

/** Empties the registry; the next dispatch registers the packed-format handler again. */
CALCUT_EXPORT void vantric_clearCalibrationHandlers(void);

/** The chosen handler's getCalibrationType(); 0 when none accepts the data. */
CALCUT_EXPORT uint32_t vantric_dispatchGetCalibrationType(const uint8_t* data, size_t size);

/* Reading into a record twice
 *
 * Records are meant for one read. The record must have been made for at least as many pixels as are
 * read into it; that is the caller's duty, since a record does not know how many it was made for.
 *
 * A packed read takes a record for one that was read before when it has type 3, or an imagerArea
 * with pixels. A read that failed behind the file header counts. Then:
 *
 * | part                       | what a second read does                                          |
 * | -------------------------- | ---------------------------------------------------------------- |
 * | room for pixels            | that of the smallest image so far, also of one with 0 pixels     |
 * | room of a counted array    | the count of the last block for it, even of a refused one; for   |
 * |                            | the wiggling tables of the last one read                         |
 * | more than there is room    | VANTRIC_ERR_BUFFER_TOO_SMALL                                     |
 * | text0 (the date)           | the new date is appended                                         |
 * | custom data                | dropped when the read succeeds                                   |
 * | directions                 | dropped when columns or rows change                              |
 * | psf                        | dropped when a straylight block comes or the PSF's size changes  |
 * | what the data do not bring | kept                                                             |
 */

/** The chosen handler's readCalibration status; VANTRIC_ERR_NOT_SUPPORTED when none accepts. */
CALCUT_EXPORT uint32_t vantric_dispatchReadCalibration(const uint8_t* data, size_t size,
                                                       VantricCalibration* record);

/** The chosen handler's readCustomFields status; 0 when none accepts or it has none. */
CALCUT_EXPORT uint32_t vantric_dispatchReadCustomFields(const uint8_t* data, size_t size,
                                                        VantricCalibration* record);

/**
 * The chosen handler's calcPsfAndDirections status; 0 when none accepts or it has none. numPixels
 * is columns x rows of the record.
 */
CALCUT_EXPORT uint32_t vantric_dispatchCalcPsfAndDirections(const uint8_t* data, size_t size,
                                                            VantricCalibration* record,
                                                            uint32_t numPixels);

/** Size or status: the chosen handler's getNumPixels; VANTRIC_ERR_NOT_SUPPORTED when none accepts.
 */
CALCUT_EXPORT int32_t vantric_dispatchGetNumPixels(const uint8_t* data, size_t size);

/* ------------------------------------------------------------------------------------ fields -- */

/*
 * Custom field k, 0 <= k < customFieldCount, has the id firstCustomFieldId + k. It holds what its
 * block decodes to: bytes as they came, or uint16_t, uint32_t, int32_t or float in host byte order.
 * Which of these is not kept: whoever wrote the block knows.
 */

/** Ids of the built-in fields. Numbers are in host byte order. */
typedef enum VantricFieldId {
    VANTRIC_FIELD_LENS_PARAMETERS = 0, /**< float[lensParameterCount], by VantricLensIndex */
    VANTRIC_FIELD_TEXT1 = 1,           /**< text1 and its terminator; empty when the text is */
    VANTRIC_FIELD_TEXT2 = 2,           /**< text2 and its terminator; empty when the text is */
    VANTRIC_FIELD_IMAGER_AREA = 3,     /**< VantricImagerArea: four uint32_t */
    VANTRIC_FIELD_ID_BYTES = 4,        /**< idBytesSize bytes as they came; empty when all are 0 */
    VANTRIC_FIELD_ID_CODES = 5         /**< uint16_t idCode0, idCode1; empty when both are 0xFFFF */
} VantricFieldId;

/**
 * Reads the custom blocks, once per record, into buffers that the record owns.
 * @param data, size  the bytes from which the record was read
 * @return the handler's status, for packed data that of vantric_readRXCustomData; besides:
 *
 *         | status                   | when                                                       |
 *         | ------------------------ | ---------------------------------------------------------- |
 *         | VANTRIC_OK               | also when no handler reads custom fields: they are zero    |
 *         | ..._ERR_INVALID_ARGUMENT | null record; every call after the first on a record with   |
 *         |                          | custom fields, whatever the first one returned             |
 *         | ..._ERR_BUFFER_TOO_SMALL | no memory for the buffers: the record is as it was, and    |
 *         |                          | the call may be repeated                                   |
 *
 *         After any other failure the fields decoded before the failing block can be fetched, and
 *         the rest are zero.
 */
CALCUT_EXPORT uint32_t vantric_readCustomFields(const uint8_t* data, size_t size,
                                                VantricCalibration* record);

/** customFieldCount of the record, 0 to 5. */
CALCUT_EXPORT uint32_t vantric_getNumCustomFields(const VantricCalibration* record);

/**
 * Size or status: bytes of a field. Counts above the capacity of a built-in buffer (a failed read
 * can leave them) are cut to it.
 * Statuses: VANTRIC_ERR_INVALID_ARGUMENT (null record, version not 1), VANTRIC_ERR_FIELD_EMPTY,
 * VANTRIC_ERR_UNKNOWN_FIELD.
 */
CALCUT_EXPORT int32_t vantric_getFieldSize(uint32_t fieldId, const VantricCalibration* record);

/**
 * Copies a field. Ids 0 to 5 inside the custom range take the built-in size and the custom bytes,
 * filled up with 0.
 * @param destination  vantric_getFieldSize bytes; untouched on failure
 * @return VANTRIC_OK; 0 also for a field of size 0, with nothing copied; the statuses of
 *         vantric_getFieldSize; VANTRIC_ERR_FIELD_NOT_READ for a custom field before
 *         vantric_readCustomFields
 */
CALCUT_EXPORT uint32_t vantric_getField(uint32_t fieldId, const VantricCalibration* record,
                                        void* destination);

/** 1 unless value is 0xFFFFFFFF. */
CALCUT_EXPORT int vantric_validUnsigndField(uint32_t value);
/** 1 unless the low 8 bits of value are 0xFF. */
CALCUT_EXPORT int vantric_validUnit8Field(int value);
/** 1 unless the low 16 bits of value are 0xFFFF. */
CALCUT_EXPORT int vantric_validUnit16Field(int value);
/** 1 unless value is NaN. */
CALCUT_EXPORT int vantric_validFloatField(float value);

/* ----------------------------------------------------------------------------- interpolation -- */

/** A piecewise cubic Hermite curve through n nodes; owns its arrays. */
typedef struct VantricPoly {
    float* x;       /**< node positions, ascending */
    float* y;       /**< node values */
    float* slope;   /**< derivative at each node */
    uint32_t count; /**< n */
} VantricPoly;

/**
 * Shape-preserving interpolation (F. N. Fritsch and J. Butland, "A method for constructing local
 * monotone piecewise cubic interpolants", 1984, with the three-point end conditions of C. Moler,
 * "Numerical Computing with MATLAB", 2004, known as PCHIP). It does not overshoot monotone data.
 *
 * Two nodes give the straight line, one node gives slope 0. An n of 0, or above 2^31 - 1, gives a
 * handle without nodes.
 *
 * @param x, y  n floats each, x ascending; copied
 * @return the handle, to be released with vantric_freePoly. Aborts when the handle or its slopes
 *         cannot be allocated; without memory for the copy of x or y that pointer is null and the
 *         handle has no segment.
 */
CALCUT_EXPORT VantricPoly* vantric_createPolyHandle(const float* x, const float* y, uint32_t n);

/** Releases a handle. Null is accepted. */
CALCUT_EXPORT void vantric_freePoly(VantricPoly* handle);

/**
 * The curve at t, or NaN outside the nodes, for NaN, and for handles of fewer than two nodes. An
 * inner node belongs to the segment below it; that matters where two nodes have the same position.
 */
CALCUT_EXPORT float vantric_cinterpol(const VantricPoly* handle, float t);

/** As vantric_cinterpol with fallback in place of NaN. */
CALCUT_EXPORT float vantric_cinterpol_def(const VantricPoly* handle, float t, float fallback);

/* ------------------------------------------------------------------------ directions and PSF -- */

/**
 * Ray direction of every pixel: radial and tangential distortion (D. C. Brown, "Close-range camera
 * calibration", 1971), inverted by 15 rounds of fixed-point iteration from the undistorted start.
 *
 * @param directions      output, unit vectors (x right, y down, z along the optical axis), 3 floats
 *                        per pixel
 * @param count           length of directions in floats: columns x rows x 3
 * @param lensParameters  fx, fy, cx, cy (pixels), k1, k2, p1, p2, k3
 * @param imagerArea      image size; areaX and areaY only have to lie inside it
 * @return VANTRIC_OK, also for an image without pixels; VANTRIC_ERR_ALREADY_SET, nothing written,
 *         when count does not match, areaX > columns, or areaY > rows
 */
CALCUT_EXPORT uint32_t vantric_updateDirections(float* directions, uint32_t count,
                                                const float* lensParameters,
                                                const VantricImagerArea* imagerArea);

/**
 * Allocates and fills the record's PSF from its straylight profile: element (x, y) is
 * scale * exp(-g(r)) with g the PCHIP curve through the profile (an origin point (0, 0) in front)
 * and r the p-norm of the offsets, which wrap around the edges; 0 beyond the last profile point.
 * straylightOffset is added everywhere, then element 0 becomes straylightCentre. The origin point
 * stays in the record. A PSF of 0 columns or rows gets one element, straylightCentre.
 *
 * @return a status; failures leave the record unchanged:
 *
 *         | status                   | when                                                       |
 *         | ------------------------ | ---------------------------------------------------------- |
 *         | VANTRIC_OK               | the record has its PSF                                     |
 *         | ..._ERR_INVALID_ARGUMENT | null record, no straylight model, or no points             |
 *         | ..._ERR_ALREADY_SET      | there is a PSF                                             |
 *         | ..._ERR_BUFFER_TOO_SMALL | more than 13 points, more than VANTRIC_MAX_PSF_ELEMENTS    |
 *         |                          | elements, or no memory                                     |
 *
 *         Aborts as vantric_createPolyHandle.
 */
CALCUT_EXPORT uint32_t vantric_allocateAndCalculatePsf(VantricCalibration* record);

/* ------------------------------------------------------------------------------------- trace -- */

/*
 * Printing to the standard error stream. The array printers write "name: [ ", the first 32 values
 * each followed by ", ", a note on how many more there are, and "]" with a line end.
 */

/** @param name zero-terminated; @param values count values; a count below 1 prints none. */
CALCUT_EXPORT void vantric_printfTraceUint8s(const char* name, const uint8_t* values,
                                             int64_t count);
/** As vantric_printfTraceUint8s; values from 0x80000000 up appear negative. */
CALCUT_EXPORT void vantric_printfTraceUint32s(const char* name, const uint32_t* values,
                                              int64_t count);
/** As vantric_printfTraceUint8s. */
CALCUT_EXPORT void vantric_printfTraceInts(const char* name, const int32_t* values, int64_t count);
/** As vantric_printfTraceUint8s, six decimals. */
CALCUT_EXPORT void vantric_printfTraceFloats(const char* name, const float* values, int64_t count);

/**
 * Prints prefix, ": " and the formatted message, without a line end. prefix becomes part of the
 * printf format: a "%" in it must be doubled. Aborts when its buffer cannot be allocated.
 */
CALCUT_EXPORT void vantric_printfTrace(const char* prefix, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

/** Prints the 32 bits of value, least significant first, without name and line end. */
CALCUT_EXPORT void vantric_printfTraceUint32Bits(const char* name, uint32_t value);

#ifdef __cplusplus
}
#endif

#endif
