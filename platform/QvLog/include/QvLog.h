// SPDX-License-Identifier: Apache-2.0

/*
 * The diagnostic log, as a plug-in sees it: a handle, a threshold, one printf-style line a record.
 *
 * Levels are syslog's: 0 emerg, 1 alert, 2 crit, 3 err, 4 warning, 5 notice, 6 info, 7 debug. A
 * record is written when its level is at or below the handle's threshold.
 *
 * Every function accepts a null handle, which means a log that is not open: nothing is enabled and
 * nothing is written. No function throws, and none reports a failure to write: a full disk costs
 * records, never the service. A thread that is being cancelled (pthread_cancel) ends after the call
 * of the log, not inside it. All functions are safe to call from several threads at once, except
 * that a handle must not be in use when LorxReleaseDbgLog() is called on it.
 */
#ifndef QV_LOG_H
#define QV_LOG_H

#if defined(__GNUC__)
#define QV_LOG_EXPORT __attribute__((visibility("default")))
#define QV_LOG_PRINTF(formatIndex, firstArgument) \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define QV_LOG_EXPORT
#define QV_LOG_PRINTF(formatIndex, firstArgument)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Opens the log file at `path` for appending and returns its handle, to be given to
 * LorxReleaseDbgLog(); null when the file cannot be opened, or is neither a regular one nor a
 * character device. `module`, its first 64 bytes, is named in every record. The directory must
 * exist. A new file gets mode 0640; at 10 MiB the file is rotated, and five older ones are kept. A
 * file that is removed or moved away meanwhile is made anew by the next record.
 */
QV_LOG_EXPORT void* LorxOpenDbgLog(const char* path, const char* module, int level);

/* Non-zero when a record of this level would be written. Costs one atomic load. */
QV_LOG_EXPORT int LorxIsEnableLog(void* handle, int level);

/*
 * Writes one record when its level is enabled. What is not printable in the text comes out escaped,
 * and so does the backslash: a record is always one line. A text longer than the record limit is
 * cut and says so.
 */
QV_LOG_EXPORT void LorxWriteDbgLog(void* handle, int level, const char* format, ...)
    QV_LOG_PRINTF(3, 4);

/* Sets the handle's threshold, 0 to 7. */
QV_LOG_EXPORT void LorxSetDbgLogLevel(void* handle, int level);

/* Closes the log. The handle is not valid afterwards. */
QV_LOG_EXPORT void LorxReleaseDbgLog(void* handle);

#ifdef __cplusplus
}
#endif

#endif /* QV_LOG_H */
