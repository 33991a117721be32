#include "calcut/cutter.h"

#include <cstring>
#include <memory>

#include "cutter/layouts.h"
#include "cutter/LensData.h"
#include "cutter/SkarLog.h"

using calcut::image::Layout;
using calcut::image::layoutOf;

namespace {

bool cut(const Layout& layout, const char* inputFile, const char* outputPath,
         EEPROMMetaInformation* metaInformation) {
    bool result = false;
    try {
        const std::unique_ptr<IEEPROMCutter> cutter = layout.makeCutter();
        cutter->setInputFile(inputFile);
        cutter->setOutputPath(outputPath);
        result = cutter->execute();
        // Copied also when a file could not be written: the image itself was accepted.
        const EEPROMMetaInformation* meta = cutter->getMetaInformation();
        if (metaInformation != nullptr) {
            std::memcpy(metaInformation, meta, sizeof *metaInformation);
        }
    } catch (...) {
        // Whatever a hostile dump or a lack of memory threw ends here, never in the host.
    }
    return result;
}

bool readLens(const char* path, float* parameters) {
    try {
        if (path != nullptr && readLensData(path, parameters)) {
            return true;
        }
        skarbo::SkarLog log(skarbo::error);
        log << "Could not lens parameter file";
    } catch (...) {
        // Only memory can have run out; the caller sees the same failure.
    }
    return false;
}

}  // namespace

static_assert(sizeof(EEPROMMetaInformation) == 38);

int cutEEPROMContent(int layout, const char* inputFile, const char* outputPath,
                     EEPROMMetaInformation* metaInformation) {
    const Layout* known = layoutOf(layout);
    if (known == nullptr || inputFile == nullptr || outputPath == nullptr) {
        return 1;
    }
    return cut(*known, inputFile, outputPath, metaInformation) ? 0 : 1;
}

int readLensParameters(unsigned int layout, const char* path, float* parameters) {
    return layoutOf(layout) != nullptr && readLens(path, parameters) ? 0 : 1;
}
