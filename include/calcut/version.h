/*
 * Version of calcut, and the one place where it stands: the build reads it from here. Plain C11,
 * also valid C++17/20. The major number grows when a host has to change.
 */
#ifndef CALCUT_VERSION_H
#define CALCUT_VERSION_H

#define CALCUT_VERSION_MAJOR 1
#define CALCUT_VERSION_MINOR 0
#define CALCUT_VERSION_PATCH 0

/** One number that grows with the version, for comparisons in #if: 10203 is 1.2.3. */
#define CALCUT_VERSION_NUMBER \
    (CALCUT_VERSION_MAJOR * 10000 + CALCUT_VERSION_MINOR * 100 + CALCUT_VERSION_PATCH)

#define CALCUT_VERSION_JOIN_(major, minor, patch) #major "." #minor "." #patch
#define CALCUT_VERSION_TEXT_(major, minor, patch) CALCUT_VERSION_JOIN_(major, minor, patch)
/** "1.2.3" */
#define CALCUT_VERSION_STRING \
    CALCUT_VERSION_TEXT_(CALCUT_VERSION_MAJOR, CALCUT_VERSION_MINOR, CALCUT_VERSION_PATCH)

#endif
