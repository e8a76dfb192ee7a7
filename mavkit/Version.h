/// \file
/// The version of mavkit. The macros are the version of the headers that a program was compiled
/// with; `mavkit_version` is that of the library that it runs with, which may be a later one of the
/// same major version. What may change from one to the next is described in docs/versions.md.
#ifndef MAVKIT_VERSION_H
#define MAVKIT_VERSION_H

#define MAVKIT_VERSION_MAJOR 1 ///< goes up when programs must be changed or compiled anew
#define MAVKIT_VERSION_MINOR 0 ///< goes up when something is added; below 100
#define MAVKIT_VERSION_PATCH 0 ///< goes up when a fault is mended; below 100

/// One number to compare with: major * 10000 + minor * 100 + patch, so 10203 is 1.2.3. For the
/// preprocessor: `#if MAVKIT_VERSION >= 10100`.
#define MAVKIT_VERSION                                                                             \
    (MAVKIT_VERSION_MAJOR * 10000 + MAVKIT_VERSION_MINOR * 100 + MAVKIT_VERSION_PATCH)

/// The version of the library that the program runs with, to be logged or shown.
/// \return a text such as "1.0.0", valid for the life of the program
const char* mavkit_version();

#endif
