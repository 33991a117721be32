#include "cutter/DumpChecks.h"

#include "cutter/SkarLog.h"

namespace {

void logError(const char* message) {
    skarbo::SkarLog log(skarbo::error);
    log << message;
}

}  // namespace

void requireContent(const InputFile& dump) {
    if (dump.size() == 0) {
        logError("Could not read EEPROM file");
        // Deliberate: with no exception in flight this ends the process. A host that asks for a
        // cut without a dump has lost its module.
        throw;
    }
}

void requireAccepted(const calcut::image::Record& record) {
    if (record.refusal) {
        logError(record.refusal->message);
        throw false;
    }
}
