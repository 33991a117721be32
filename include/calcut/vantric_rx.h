/*
 * The packed calibration format RX (magic "QOVRXF"): cursor, scalars, bit packing, headers, block
 * decoding, the table of expected blocks, the reader and its handler. docs/formats.md draws the
 * whole format. Conventions are those of vantric.h. All multi-byte numbers are big-endian.
 */
#ifndef CALCUT_VANTRIC_RX_H
#define CALCUT_VANTRIC_RX_H

#include "calcut/vantric.h"

#ifdef __cplusplus
extern "C" {
#endif

/* -------------------------------------------------------------------------------- the cursor -- */

/** A read cursor over a caller's buffer. Readers advance position themselves. */
typedef struct VantricStream {
    const uint8_t* data; /**< not owned; must outlive the stream */
    uint64_t position;   /**< index of the next byte */
    uint64_t size;       /**< bytes in data */
} VantricStream;

/** A stream at the start of size bytes. */
CALCUT_EXPORT VantricStream vantric_createStreamFromData(const uint8_t* data, uint64_t size);

/**
 * The one bounds check of the format. Does not move the cursor.
 * @return VANTRIC_OK when count more bytes lie inside the buffer, else VANTRIC_ERR_END_OF_DATA
 *         (also for counts so large that position + count would not fit into 64 bits)
 */
CALCUT_EXPORT uint32_t vantric_canRead(const VantricStream* stream, uint64_t count);

/* ----------------------------------------------------------------------------------- scalars -- */

/*
 * The from functions read at any alignment, check no bounds and always return VANTRIC_OK.
 *
 * RX float: a signed word v, 0 for 0.0, negated as a whole for negative numbers. With a = |v|, the
 * value is (2^23 + low 23 bits of a) / 2^24 * 2^((a >> 23) - 127).
 */

/** Two bytes at src as an unsigned number. */
CALCUT_EXPORT uint32_t vantric_fromRXUint16(const uint8_t* src, uint16_t* out);
/** Four bytes at src as an unsigned number. */
CALCUT_EXPORT uint32_t vantric_fromRXUint32(const uint8_t* src, uint32_t* out);
/** Four bytes at src as a two's-complement number. */
CALCUT_EXPORT uint32_t vantric_fromRXInt32(const uint8_t* src, int32_t* out);
/** Returns its argument: the format's signed integers are plain two's complement. */
CALCUT_EXPORT int32_t vantric_decodeRXInt32(int32_t value);
/** The value of an RX float word in host order; -2^31 gives negative infinity. */
CALCUT_EXPORT float vantric_decodeRXFloat(int32_t word);
/** Four bytes at src as an RX float. */
CALCUT_EXPORT uint32_t vantric_fromRXFloat(const uint8_t* src, float* out);
/** offset + scale * (float)value, product first. */
CALCUT_EXPORT float vantric_decodeFromRXFixedPoint(uint32_t value, float scale, float offset);

/* ------------------------------------------------------------------------------- bit packing -- */

/*
 * Values of 1 to 31 bits lie densely in 32-bit words, least significant bit first; a value may
 * straddle two words. The high bits left in the last word are ignored.
 */

/**
 * Bytes of valueCount packed values: ceil((float)(valueCount * bits) * 0.03125f) * 4, rounded in
 * single precision on purpose, so above 2^24 bits it can differ from the exact size.
 */
CALCUT_EXPORT uint64_t vantric_getRXPackedSize(uint64_t valueCount, uint8_t bits);

/**
 * Unpacks integers.
 * @param words   wordCount words in host order
 * @param out     room for valueCount values
 * @return VANTRIC_OK; VANTRIC_ERR_END_OF_DATA when the words hold fewer values (those present are
 *         written); VANTRIC_ERR_INVALID_DATA, nothing written, for bits 0 or above 31
 */
CALCUT_EXPORT uint32_t vantric_unpackRXUint(const uint32_t* words, uint64_t wordCount,
                                            uint64_t valueCount, uint8_t bits, uint32_t* out);

/**
 * Unpacks integers into scratch (room for valueCount words) and converts them to
 * offset + scale * value in out (room for valueCount floats). The buffers must not overlap.
 * @return as vantric_unpackRXUint; out is written only on VANTRIC_OK
 */
CALCUT_EXPORT uint32_t vantric_unpackRXFloat(const uint32_t* words, uint64_t wordCount,
                                             uint64_t valueCount, uint8_t bits, uint32_t* scratch,
                                             float* out, float scale, float offset);

/* ----------------------------------------------------------------------------------- headers -- */

/** File header: magic "QOVRXF" (6), version (1), columns (2), rows (2). */
typedef struct RXHeader {
    uint32_t version; /**< only 1 is read */
    uint16_t columns; /**< pixels */
    uint16_t rows;    /**< pixels */
} RXHeader;

/** Payload kinds of a block. */
typedef enum RXKind {
    RX_KIND_RAW = 0,
    RX_KIND_UINT16 = 1,
    RX_KIND_UINT32 = 2,
    RX_KIND_INT32 = 3,
    RX_KIND_FLOAT = 4,
    RX_KIND_PACKED_UINT = 5,
    RX_KIND_PACKED_FLOAT = 6
} RXKind;

/** Block ids; docs/formats.md has the content of each. Ids from RX_BLOCK_FIRST_CUSTOM to 254 are
 * custom blocks. */
typedef enum RXBlockId {
    RX_BLOCK_AUX_FLAG = 0,
    RX_BLOCK_LENS_PARAMETERS = 1,
    RX_BLOCK_MASK = 2,
    RX_BLOCK_PIXEL_VALUES = 3,
    RX_BLOCK_DATE = 4,
    RX_BLOCK_TEXT1 = 5,
    RX_BLOCK_TEXT2 = 6,
    RX_BLOCK_ID_BYTES = 7,
    RX_BLOCK_ID_CODES = 8,
    RX_BLOCK_STRAYLIGHT = 9,
    RX_BLOCK_FIRST_FREQUENCY = 16,
    RX_BLOCK_FIRST_CUSTOM = 128
} RXBlockId;

/** Blocks of one frequency. Block b of frequency k, k = 0 to 7, has the id
 * RX_BLOCK_FIRST_FREQUENCY + RX_BLOCKS_PER_FREQUENCY * k + b. */
typedef enum RXFrequencyBlock {
    RX_FREQUENCY_ID = 0,
    RX_FREQUENCY_PIXEL_TABLE = 1,
    RX_FREQUENCY_VALUES_A = 2,
    RX_FREQUENCY_VALUES_B = 3,
    RX_FREQUENCY_SCALAR = 4, /**< the only optional one */
    RX_FREQUENCY_WIGGLING_A = 5,
    RX_FREQUENCY_WIGGLING_B = 6,
    RX_BLOCKS_PER_FREQUENCY = 7
} RXFrequencyBlock;

/** Block id that ends the sequence; it has no further fields. */
#define VANTRIC_RX_END_MARKER 255u

/** A block header in memory. Fields that a header does not carry keep their values. */
typedef struct RXBlockHeader {
    uint32_t id;
    uint32_t kind;  /**< RXKind */
    uint32_t count; /**< elements */
    uint8_t bits;   /**< kinds 5 and 6: bits of a value; preset to 0 before the first read */
    float scale;    /**< kind 6 */
    float offset;   /**< kind 6 */
} RXBlockHeader;

/**
 * Reads the file header at the cursor.
 * @return VANTRIC_OK; VANTRIC_ERR_NOT_SUPPORTED when the magic differs (cursor unmoved);
 *         VANTRIC_ERR_END_OF_DATA when the buffer ends inside the magic (cursor unmoved) or behind
 *         it (cursor behind the magic)
 */
CALCUT_EXPORT uint32_t vantric_readRXHeader(VantricStream* stream, RXHeader* header);

/**
 * Reads a block header at the cursor. Count codes: 0 is one element per pixel, 1 to 248 the count
 * itself, 249 a 32-bit count that follows, 250 to 255 are 2 to 7 elements per pixel. Where the
 * buffer ends behind a long count, a missing bits byte counts as 0 and the cursor moves over it.
 * @param header  gives the pixel count
 * @return VANTRIC_OK, also for the end marker; VANTRIC_ERR_END_OF_DATA; VANTRIC_ERR_INVALID_DATA
 *         for a kind above 6. On failure the cursor stands behind the last field read.
 */
CALCUT_EXPORT uint32_t vantric_readRXBlockHeader(VantricStream* stream, const RXHeader* header,
                                                 RXBlockHeader* block);

/** Bytes of the decoded payload; kinds above 6 count 4 bytes an element. */
CALCUT_EXPORT uint64_t vantric_getRXUnpackedBlockSize(const RXBlockHeader* block);
/** Bytes of the payload in the file; kinds above 6 as above. */
CALCUT_EXPORT uint64_t vantric_getRXPackedBlockSize(const RXBlockHeader* block);

/**
 * Decodes a block's payload at the cursor into host-order elements.
 * @param scratch, scratchSize  for the packed kinds at least packed plus unpacked bytes; null and 0
 *                              for the others. Its content afterwards is unspecified.
 * @param dest, destSize        receives vantric_getRXUnpackedBlockSize bytes, at any alignment
 * @return a status; dest may hold a partly decoded block after a failure:
 *
 *         | status                   | when                                    | cursor     |
 *         | ------------------------ | --------------------------------------- | ---------- |
 *         | VANTRIC_OK               | dest holds the block                    | behind it  |
 *         | ..._ERR_BUFFER_TOO_SMALL | destination or scratch too small        | unmoved    |
 *         | ..._ERR_END_OF_DATA      | the payload runs past the buffer        | unmoved    |
 *         |                          | the payload holds too few values        | behind it  |
 *         | ..._ERR_INVALID_DATA     | packed kind with bits 0 or above 31     | behind it  |
 *         | ..._ERR_ALREADY_SET      | unknown kind                            | behind it  |
 */
CALCUT_EXPORT uint32_t vantric_decodeRXBlock(VantricStream* stream, const RXBlockHeader* block,
                                             uint8_t* scratch, uint64_t scratchSize, uint8_t* dest,
                                             uint64_t destSize);

/* --------------------------------------------------------------------------- the block table -- */

struct RXBlockTable;

/** What a table expects of one block: 20 bytes. */
typedef struct RXBlockExpectation {
    uint32_t required; /**< 1: the block must occur */
    uint32_t kindA;    /**< the two acceptable kinds */
    uint32_t kindB;
    uint32_t seen;   /**< times the block was met */
    uint32_t status; /**< VANTRIC_OK, or VANTRIC_ERR_INVALID_DATA once a kind was not acceptable */
} RXBlockExpectation;

/**
 * Moves a decoded block into place.
 * @param source      sourceSize bytes of decoded elements, at the start of a scratch of 4 bytes per
 *                    pixel of the image; the scratch is zero behind them as far as no earlier block
 *                    of the read was decoded into it
 * @param destination, destinationSize  as the entry has them; nothing else uses the size. The
 *                    function may copy a word to each entry of its destination, whatever the size
 *                    of the block: the scratch has zeros for so many words, if memory allows.
 * @param countField  receives the number of entries written; may be null
 * @return VANTRIC_OK; any other status fails the read with it
 */
typedef uint32_t (*RXCopyFunction)(const void* source, uint64_t sourceSize, void* destination,
                                   uint64_t destinationSize, uint8_t* countField);

/** Where one block goes. */
typedef struct RXTableEntry {
    uint8_t id;
    void* destination;        /**< into the calibration record; not owned */
    uint64_t destinationSize; /**< bytes */
    uint8_t* countField;      /**< receives the element count, or null; not owned */
    int32_t expectedCount;    /**< minimum count: negative none; 0 columns x rows; 2 to 249 literal;
                                   otherwise columns x rows x (expectedCount - 249) */
    RXCopyFunction copy;      /**< null: the block is decoded straight into destination */
    RXBlockExpectation* expectation; /**< inside the table's expectations, or null */
} RXTableEntry;

/** The blocks that a reader understands. Owns entries and expectations. The ids and the number of
 * entries must not change during a read. */
typedef struct RXBlockTable {
    /** 1 when the block opens a frequency record */
    int (*isFrequencyBlock)(const RXBlockHeader* block);
    VantricCalibration* context; /**< the record that the entries point into; not owned */
    RXTableEntry* entries;
    uint64_t count;
    uint64_t capacity;
    /** counts the block and checks its kind; expectation is null for an entry without one */
    uint32_t (*validateBlock)(const RXBlockHeader* block, RXBlockExpectation* expectation);
    uint8_t* expectations; /**< capacity x expectationSize bytes; null when that size is 0 */
    uint64_t expectationSize;
    uint8_t firstCustomBlockId; /**< ids from here on without an entry are custom blocks */
    /** after the end marker: checks completeness; writes status and block id on refusal */
    uint32_t (*validateWholeCalibration)(const struct RXBlockTable* table, RXReadResult* result);
} RXBlockTable;

/**
 * An empty table; context, the callbacks and firstCustomBlockId are 0 for the caller to set.
 * @param capacity         entries
 * @param expectationSize  bytes of one expectation, 0 for none; a multiple of 4 and at least
 *                         sizeof(RXBlockExpectation) where the callbacks of the Tessaly table are
 *                         used
 * @return the table, released with vantric_freeRXTable or by vantric_readRXCalibration; null for
 *         capacity 0. Aborts when the table record cannot be allocated.
 */
CALCUT_EXPORT RXBlockTable* vantric_createTable(uint64_t capacity, uint64_t expectationSize);

/**
 * Appends an entry.
 * @param expectationTemplate  expectationSize bytes to copy, or null for an entry without one
 * @return VANTRIC_OK; VANTRIC_ERR_BUFFER_TOO_SMALL when the table is full (or its entries could not
 *         be allocated); VANTRIC_ERR_INVALID_ARGUMENT for a template when the table has no
 *         expectation buffer
 */
CALCUT_EXPORT uint32_t vantric_addRXTableEntry(uint8_t id, void* destination,
                                               uint64_t destinationSize, uint8_t* countField,
                                               int32_t expectedCount, RXCopyFunction copy,
                                               const void* expectationTemplate,
                                               RXBlockTable* table);

/** The first entry with that id in order of insertion, or null. */
CALCUT_EXPORT RXTableEntry* vantric_findRXTableEntry(uint8_t id, const RXBlockTable* table);

/** Releases a table. Null is accepted. */
CALCUT_EXPORT void vantric_freeRXTable(RXBlockTable* table);

/**
 * The table of the packed calibrations that this library reads ("Tessaly"), bound to a record.
 * @param numPixels  pixels for which the record was made
 * @return the table with its 66 entries; null when memory for them or for the record's frequencies
 *         ran out. Aborts when the table record cannot be allocated.
 */
CALCUT_EXPORT RXBlockTable* vantric_createTessalyTable(VantricCalibration* calibration,
                                                       uint64_t numPixels);

/* ------------------------------------------------------------------------ reader and handler -- */

/**
 * Walks the blocks once and fills table->context, which must have been made for at least the pixels
 * of the file header (the caller's duty; vantric.h says what a second read into a record does). The
 * record's image size is that of the file header, even when a block fails. Always frees the table.
 * @param stream  at the file header, which is read before the table is looked at
 * @param table   with a context and all three callbacks
 * @return a status, and the id of the block that failed or is missing, 255 where there is none. The
 *         record holds the blocks decoded before a failure.
 *
 *         | status                   | when                                                       |
 *         | ------------------------ | ---------------------------------------------------------- |
 *         | VANTRIC_OK               | every block was read, and none is missing                  |
 *         | ..._ERR_NOT_SUPPORTED    | another magic                                              |
 *         | ..._ERR_END_OF_DATA      | the data end inside a header or payload, or a payload      |
 *         |                          | holds fewer values than its count                          |
 *         | ..._ERR_INVALID_ARGUMENT | the table has no context or lacks a callback               |
 *         | ..._ERR_VALUE_UNSET      | id codes or straylight are there, but unset                |
 *         | ..._ERR_BUFFER_TOO_SMALL | a block larger than its place or the scratch, a sixth      |
 *         |                          | custom block, a record with less room than pixels, a null  |
 *         |                          | table, or no memory                                        |
 *         | ..._ERR_COUNT_TOO_SMALL  | a block with fewer elements than its entry wants           |
 *         | ..._ERR_INVALID_DATA     | ids that do not ascend, a kind above 6 or not acceptable,  |
 *         |                          | bits 0 or above 31, a block of the wrong size              |
 *         | ..._ERR_FIELD_EMPTY      | a required block is missing, or the first block of a       |
 *         |                          | frequency                                                  |
 *         | any other                | a host's callback or copy function returned it             |
 */
CALCUT_EXPORT RXReadResult vantric_readRXCalibration(VantricStream* stream, RXBlockTable* table);

/**
 * Walks the blocks a second time and copies the custom blocks into calibration->customFields, whose
 * data must have been allocated. Custom blocks must be of kinds 0 to 4.
 * @return a status:
 *
 *         | status                   | when                                                       |
 *         | ------------------------ | ---------------------------------------------------------- |
 *         | VANTRIC_OK               | every custom block is in its field                         |
 *         | ..._ERR_NOT_SUPPORTED    | another magic                                              |
 *         | ..._ERR_END_OF_DATA      | the data end inside a header or payload                    |
 *         | ..._ERR_BUFFER_TOO_SMALL | a packed kind, or a block larger than its field: above 255 |
 *         |                          | bytes, or in a gap, where fields have size 0               |
 *         | ..._ERR_INVALID_DATA     | ids that do not ascend or lie more than 4 above            |
 *         |                          | firstCustomFieldId, a kind above 6, bits 0 or above 31     |
 */
CALCUT_EXPORT uint32_t vantric_readRXCustomData(VantricStream* stream,
                                                VantricCalibration* calibration);

/** The handler of this format, by value. */
CALCUT_EXPORT VantricCalibrationHandler vantric_getRXCalibrationHandler(void);

/** 1 when the file header reads and its version is 1, else 0. */
CALCUT_EXPORT int vantric_supportsRXCalibration(const uint8_t* data, size_t size);

/**
 * Size or status: columns x rows, or VANTRIC_ERR_NOT_SUPPORTED, VANTRIC_ERR_END_OF_DATA. From 2^31
 * pixels on the product itself is negative.
 */
CALCUT_EXPORT int32_t vantric_getRXNumPixels(const uint8_t* data, size_t size);

/** 3, the type code of packed calibrations. */
CALCUT_EXPORT uint32_t vantric_getRXCalibrationType(void);

/**
 * Reads a packed calibration into a record that was made for its number of pixels.
 * @return as vantric_readRXCalibration; VANTRIC_ERR_NOT_SUPPORTED when the header does not read, or
 *         its version is not 1. Aborts as vantric_createTessalyTable.
 */
CALCUT_EXPORT RXReadResult vantric_readRXHandlerCalibration(const uint8_t* data, size_t size,
                                                            VantricCalibration* calibration);

/** vantric_readRXCustomData for a buffer; VANTRIC_ERR_NOT_SUPPORTED as above. */
CALCUT_EXPORT uint32_t vantric_readRXCustomFields(const uint8_t* data, size_t size,
                                                  VantricCalibration* calibration);

/**
 * Computes directions, which replace earlier ones, and then, when the record has a straylight
 * model, the PSF. When the directions are refused, earlier ones stay. When only the PSF is refused,
 * the new directions stay.
 * @param numPixels  columns x rows of the record
 * @return a status:
 *
 *         | status                   | when                                                       |
 *         | ------------------------ | ---------------------------------------------------------- |
 *         | VANTRIC_OK               | directions, and with a straylight model the PSF, are there |
 *         | ..._ERR_ALREADY_SET      | numPixels is not that of the image, or above 1,431,655,765,|
 *         |                          | whose floats cannot be counted in 32 bits; areaX or areaY  |
 *         |                          | outside the image; there is a PSF                          |
 *         | ..._ERR_INVALID_ARGUMENT | a straylight model without points                          |
 *         | ..._ERR_BUFFER_TOO_SMALL | no memory, no lens parameters, too many points or elements |
 *
 * Aborts as vantric_allocateAndCalculatePsf.
 */
CALCUT_EXPORT uint32_t vantric_calcRXPsfAndDirections(VantricCalibration* calibration,
                                                      uint32_t numPixels);

#ifdef __cplusplus
}
#endif

#endif
