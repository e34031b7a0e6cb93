// Names that all modules share.
#ifndef WQZ_DATA_TYPEDEF_H
#define WQZ_DATA_TYPEDEF_H

/// Marks what the shared library exports; everything else stays inside it.
#if defined(__GNUC__)
#define WQZ_USBCAM_EXPORT __attribute__((visibility("default")))
#else
#define WQZ_USBCAM_EXPORT
#endif

/// Untyped pointer.
typedef void* PVOID;

#endif  // WQZ_DATA_TYPEDEF_H
