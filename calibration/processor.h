#pragma once

namespace vantric {

/// Whether this processor has AVX2; never outside x86-64.
bool hasAvx2();

}  // namespace vantric
