// SPDX-License-Identifier: Apache-2.0

/*
 * The product's utility library, as a plug-in sees it. The library knows where files are and sets
 * up a module's log. No function throws.
 */
#ifndef QV_UTIL_H
#define QV_UTIL_H

#if defined(__GNUC__)
#define QV_UTIL_EXPORT __attribute__((visibility("default")))
#else
#define QV_UTIL_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Writes the full path of the named configuration file into `buffer` of `size` bytes and returns
 * the buffer. Returns null if the path and its NUL do not fit. The directory is the value of
 * QV_CONFIG_DIR in the environment, else the directory that the build names. A set-id process
 * ignores the environment.
 */
QV_UTIL_EXPORT char* QvGetFilePath(char* buffer, int size, const char* fileName);

/*
 * Opens the diagnostic log of `module`, stores its handle in *handle and returns 0. The caller
 * releases the handle with LorxReleaseDbgLog(). If the log cannot be opened, stores null and
 * returns -1. The log file is `logPath`, or the file of the same base name in the directory
 * QV_LOG_DIR of the environment. A set-id process ignores the environment. Missing directories are
 * created with mode 0750.
 *
 * The threshold is the number DebugLevel, 0 to 7, in the root dictionary of the configuration file
 * `configName`, which QvGetFilePath() finds. The threshold is 6 if the number or the file is
 * missing, or if the file is not a regular file or is larger than 16 MiB.
 */
QV_UTIL_EXPORT int QvInitDebugByConfig(void** handle, const char* configName, const char* module,
                                       const char* logPath);

/* Sets and reads the debug level, 0 to 7, of the utility library itself. Safe on any thread. */
QV_UTIL_EXPORT void QvSetUtilDebugLevel(int level);
QV_UTIL_EXPORT int QvGetUtilDebugLevel(void);

#ifdef __cplusplus
}
#endif

#endif /* QV_UTIL_H */
