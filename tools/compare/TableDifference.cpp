#include "tools/compare/TableDifference.h"

#include <cmath>

namespace calcut::tools {

bool differs(float a, float b, double tolerance) {
    if (a == b || (std::isnan(a) && std::isnan(b))) {
        return false;
    }
    // Not finite on one side: beyond every tolerance.
    return !(std::abs(double{b} - double{a}) <= tolerance);
}

TableDifference differenceOf(const Table& a, const Table& b, double tolerance) {
    TableDifference result;
    result.elements = a.size() / a.channels;
    const double allowed = a.bytes.empty() ? tolerance : 0.0;
    double squares = 0.0;
    std::uint64_t measured = 0;
    for (std::size_t element = 0; element < result.elements; ++element) {
        bool any = false;
        bool anyUnmeasured = false;
        for (std::size_t at = element * a.channels; at < (element + 1) * a.channels; ++at) {
            const bool equal = !differs(a[at], b[at], 0.0);
            const double difference = equal ? 0.0 : double{b[at]} - double{a[at]};
            any = any || (!equal && differs(a[at], b[at], allowed));
            if (!std::isfinite(difference)) {
                anyUnmeasured = true;
                continue;
            }
            squares += difference * difference;
            ++measured;
            if (std::abs(difference) > std::abs(result.max)) {
                result.max = difference;
                result.maxAt = at;
            }
        }
        result.differing += any ? 1 : 0;
        result.unmeasured += anyUnmeasured ? 1 : 0;
    }
    result.rms = measured == 0 ? 0.0 : std::sqrt(squares / static_cast<double>(measured));
    return result;
}

bool sameShape(const Table& a, const Table& b) {
    return a.columns == b.columns && a.rows == b.rows && a.channels == b.channels;
}

}  // namespace calcut::tools
