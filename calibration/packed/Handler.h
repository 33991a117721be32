#pragma once

// The packed format as the registry sees it, and the same read for callers that want to watch it.
#include <cstddef>
#include <cstdint>

#include "calcut/vantric_rx.h"
#include "calibration/owners.h"
#include "calibration/packed/Reader.h"
#include "calibration/packed/Tessaly.h"
#include "calibration/Wanted.h"

namespace vantric {

/// Whether all functions of a handler are this library's own.
bool isPackedHandler(const VantricCalibrationHandler& handler);

/// vantric_readRXHandlerCalibration for what is wanted, watched by observer (null: nobody). The
/// record was made for madeFor pixels; data with more are refused. table comes from newTessalyTable
/// and was made before the record.
RXReadResult readPackedInto(VantricCalibration& record, std::uint64_t madeFor, TableOwner table,
                            const std::uint8_t* data, std::size_t size, Wanted wanted,
                            WalkObserver* observer);

/// What vantric_calcRXPsfAndDirections would return for a record that was just read. Computes
/// nothing.
Refusal refusalOfDirectionsAndPsf(const VantricCalibration& record, std::uint32_t numPixels);

struct PackedRead {
    RXReadResult result;
    RecordOwner record;
};

/// vantric_readCalibration with the library's own handler, except that the record is handed out
/// after a failure too, as far as it was filled; it is null when the file header was refused or
/// names no pixels. Unless everything is wanted, and when the data are so much shorter than the
/// image they claim that no read can succeed, the record is one without tables (pixelValues,
/// pixelTable, directions and psf are null).
PackedRead readPacked(const std::uint8_t* data, std::size_t size, Wanted wanted,
                      WalkObserver* observer);

}  // namespace vantric
