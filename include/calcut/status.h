/* Names of the status codes, for messages. Plain C11, also valid C++17/20; nothing is exported. */
#ifndef CALCUT_STATUS_H
#define CALCUT_STATUS_H

#include "calcut/vantric.h"

/**
 * The name of a status, as it stands in vantric.h: "VANTRIC_ERR_END_OF_DATA" and so on.
 * @return a string constant, never null; "unknown status" for a number that has no name
 */
static inline const char* vantric_statusName(uint32_t status) {
    switch (status) {
        case VANTRIC_OK:
            return "VANTRIC_OK";
        case VANTRIC_ERR_UNKNOWN_FIELD:
            return "VANTRIC_ERR_UNKNOWN_FIELD";
        case VANTRIC_ERR_FIELD_NOT_READ:
            return "VANTRIC_ERR_FIELD_NOT_READ";
        case VANTRIC_ERR_NOT_SUPPORTED:
            return "VANTRIC_ERR_NOT_SUPPORTED";
        case VANTRIC_ERR_END_OF_DATA:
            return "VANTRIC_ERR_END_OF_DATA";
        case VANTRIC_ERR_INVALID_ARGUMENT:
            return "VANTRIC_ERR_INVALID_ARGUMENT";
        case VANTRIC_ERR_VALUE_UNSET:
            return "VANTRIC_ERR_VALUE_UNSET";
        case VANTRIC_ERR_BUFFER_TOO_SMALL:
            return "VANTRIC_ERR_BUFFER_TOO_SMALL";
        case VANTRIC_ERR_COUNT_TOO_SMALL:
            return "VANTRIC_ERR_COUNT_TOO_SMALL";
        case VANTRIC_ERR_INVALID_DATA:
            return "VANTRIC_ERR_INVALID_DATA";
        case VANTRIC_ERR_FIELD_EMPTY:
            return "VANTRIC_ERR_FIELD_EMPTY";
        case VANTRIC_ERR_ALREADY_SET:
            return "VANTRIC_ERR_ALREADY_SET";
        case VANTRIC_WARN_PARTIAL:
            return "VANTRIC_WARN_PARTIAL";
        default:
            return "unknown status";
    }
}

#endif
