#include "calcut/vantric.h"

#include <cmath>

int vantric_validUnsigndField(uint32_t value) {
    return value != 0xFFFFFFFFU ? 1 : 0;
}

int vantric_validUnit8Field(int value) {
    return (static_cast<unsigned>(value) & 0xFFU) != 0xFFU ? 1 : 0;
}

int vantric_validUnit16Field(int value) {
    return (static_cast<unsigned>(value) & 0xFFFFU) != 0xFFFFU ? 1 : 0;
}

int vantric_validFloatField(float value) {
    return std::isnan(value) ? 0 : 1;
}
