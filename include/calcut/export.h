/* Marks what libcalcut.so exports; everything else in the library is hidden. */
#ifndef CALCUT_EXPORT_H
#define CALCUT_EXPORT_H

#if defined(__GNUC__)
#define CALCUT_EXPORT __attribute__((visibility("default")))
#else
#define CALCUT_EXPORT
#endif

#endif
