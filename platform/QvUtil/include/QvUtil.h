/*
 * The product's utility library, as a plug-in sees it: where files are, and how a module's log is
 * set up. No function throws.
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
 * the buffer; null when the path and its NUL do not fit. The directory is QV_CONFIG_DIR from the
 * environment, which a set-id process ignores, else the one that the build names.
 */
QV_UTIL_EXPORT char* QvGetFilePath(char* buffer, int size, const char* fileName);

/*
 * Opens the diagnostic log of `module` and stores its handle in *handle; the caller releases it
 * with LorxReleaseDbgLog(). The log file is `logPath`, or the file of the same base name in
 * QV_LOG_DIR from the environment, which a set-id process ignores; missing directories are made
 * with mode 0750. When the log cannot be opened *handle becomes null, and -1 is returned; else 0.
 *
 * The threshold is the integer DebugLevel, 0 to 7, of the dictionary that is the property list in
 * the configuration file `configName`, found as QvGetFilePath() finds it. It is 6 when there is no
 * such number, and no such file, or one that is no regular file or larger than 16 MiB.
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
