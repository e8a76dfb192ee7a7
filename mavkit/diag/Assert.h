/// \file
/// Assertion reports: a check that reports on standard output that it failed, and lets the program
/// go on. A resident process must not end because of an unexpected state; the code around the check
/// decides what happens next.
#ifndef MAVKIT_DIAG_ASSERT_H
#define MAVKIT_DIAG_ASSERT_H

#include <cstdio>

/// The source file as reports know it: without folders where the compiler has such a name, which
/// keeps the paths of the building machine out of the program.
#ifdef __FILE_NAME__
#define MAVKIT_FILE_NAME __FILE_NAME__
#else
#define MAVKIT_FILE_NAME __FILE__
#endif

/// Tests `expression`, once; when it is false prints one line on standard output:
///
///     ***********Assert failed.file=MavFile,line=41,exp=fd<64
///
/// with the name of the source file (no directory, no extension), the line and the expression as it
/// is written in the source. Never stops the process and has no value. `ASSERT_REPORT(false)` marks
/// an error path that always reports.
#define ASSERT_REPORT(expression)                                                                  \
    do {                                                                                           \
        if (!(expression))                                                                         \
            ReportFailedAssertion(MAVKIT_FILE_NAME, __LINE__, #expression);                        \
    } while (false)

/// Prints the line of `ASSERT_REPORT`, and is called by nothing else: `file` is the path of the
/// source file, `line` the line of the check, `expression` its text. The path is cut to its stem
/// here, so that a check that passes costs only its test.
__attribute__((cold, noinline)) inline void ReportFailedAssertion(const char* file, int line,
                                                                  const char* expression) {
    const char* stem = file;
    for (const char* p = file; *p != '\0'; ++p)
        if (*p == '/')
            stem = p + 1;
    int length = 0;
    for (int i = 0; stem[i] != '\0'; ++i)
        if (stem[i] == '.')
            length = i; // the last dot starts the extension
    if (length == 0)
        while (stem[length] != '\0')
            ++length;
    std::printf("***********Assert failed.file=%.*s,line=%d,exp=%s\n", length, stem, line,
                expression);
}

#endif
