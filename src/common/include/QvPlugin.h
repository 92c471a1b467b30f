// SPDX-License-Identifier: Apache-2.0

/*
 * The interface between a host process and a plug-in of the product's core.
 *
 * A host loads the plug-in's library, calls QvPluginInitialize() once, takes the command table from
 * QvPluginGetHandlers(), calls handlers by command code, gives every answer buffer back to
 * QvPluginFree(), and calls QvPluginFinalize() before it unloads the library:
 *
 *     const HandlerEntry* table = NULL;
 *     int32_t count = 0;
 *     void* reserved = NULL;
 *     QvPluginInitialize();
 *     QvPluginGetHandlers(&table, &count, &reserved);
 *     // find the row whose command is QV_COMMAND_GET_SERVICES, then:
 *     void* answer = NULL;
 *     int answerLength = 0;
 *     if (row->handler(QV_COMMAND_GET_SERVICES, NULL, 0, &answer, &answerLength) == QV_OK) {
 *         // answer holds answerLength bytes of a serialised ServiceInfoArray; null when empty
 *         QvPluginFree(answer);
 *     }
 *     QvPluginFinalize();
 *
 * Inputs and answers are serialised Protocol Buffers messages (proto2) in plain byte buffers; their
 * definitions are namingService.proto and KevraCommonMsg.proto.
 *
 * Threads: the service handlers may run on several threads at once. QvPluginInitialize() and
 * QvPluginFinalize() must not overlap each other or any handler.
 *
 * Exceptions: a host catches C++ exceptions. The service handlers throw the std::string "fail to
 * get the lock" and then change nothing. QvPluginInitialize() throws the std::string "fail to
 * pthread_mutex_init". All of them throw std::bad_alloc if memory runs out. If memory runs out in
 * the middle of a registration, the services before that point are registered.
 */
#ifndef QV_PLUGIN_H
#define QV_PLUGIN_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define QV_PLUGIN_EXPORT __attribute__((visibility("default")))
#else
#define QV_PLUGIN_EXPORT
#endif

#ifdef __cplusplus
#define QV_PLUGIN_STATIC_ASSERT static_assert
extern "C" {
#else
#define QV_PLUGIN_STATIC_ASSERT _Static_assert
#endif

/* Result codes of the exported functions and of the handlers. */
enum {
    QV_OK = 0,
    QV_ERROR_SERIALIZE = 20001, /* the answer could not be serialised */
    QV_ERROR_ARGUMENT = 20002,  /* null pointer, length out of range, or invalid debug level */
    QV_ERROR_NO_MEMORY = 20006  /* no memory for the answer buffer */
};

/* Command codes. 0x01xx are common to all plug-ins, 0x02xx are the naming service's own. */
enum {
    QV_COMMAND_SET_DEBUG_LEVEL = 0x0102,     /* in: DebugOption */
    QV_COMMAND_REGISTER_SERVICES = 0x0200,   /* in: ServiceInfoArray */
    QV_COMMAND_UNREGISTER_SERVICES = 0x0201, /* in: ServiceInfoArray; addresses are ignored */
    QV_COMMAND_GET_SERVICES = 0x0202         /* out: ServiceInfoArray, ascending identifiers */
};

/* The identifier that QvPluginGetId() of the naming service returns. */
enum { QV_PLUGIN_ID_NAMING_SERVICE = 2 };

/*
 * Executes one command and returns a result code. The caller owns `in`, which holds `inLen` bytes.
 * A command that answers stores a buffer in *out and the buffer's length in bytes in *outLen; the
 * caller gives the buffer to QvPluginFree(). A command that does not answer touches neither.
 */
typedef int (*CommandHandler)(int command, const void* in, int inLen, void** out, int* outLen);

/* One row of the command table: 48 bytes, rows contiguous, the same on every platform. */
typedef struct HandlerEntry {
    uint32_t command;
    char name[36]; /* ASCII, NUL-terminated and NUL-padded */
    CommandHandler handler;
} HandlerEntry;

QV_PLUGIN_STATIC_ASSERT(sizeof(HandlerEntry) == 48, "a row of the command table takes 48 bytes");
QV_PLUGIN_STATIC_ASSERT(offsetof(HandlerEntry, command) == 0, "the command code comes first");
QV_PLUGIN_STATIC_ASSERT(offsetof(HandlerEntry, name) == 4, "the name follows the command code");
QV_PLUGIN_STATIC_ASSERT(offsetof(HandlerEntry, handler) == 40, "the handler ends the row");

/* A plug-in calls this function to notify its host. The naming service keeps it and never calls it.
 */
typedef void (*QvNotificationCallback)(void);

/* Returns the plug-in's identifier, by which a host tells plug-ins apart. Callable at any time. */
QV_PLUGIN_EXPORT int32_t QvPluginGetId(void);

/*
 * Opens the log, loads the configuration and creates the registry. Objects that exist are kept, so
 * a repeated call changes nothing. Always returns QV_OK. After an exception a later call tries
 * again.
 */
QV_PLUGIN_EXPORT int QvPluginInitialize(void);

/*
 * Closes the log and destroys the registry. Saves nothing. Does no harm if the plug-in is not
 * initialised. The plug-in may be initialised again afterwards.
 */
QV_PLUGIN_EXPORT void QvPluginFinalize(void);

/*
 * Stores the address of the command table in *handlers, the number of its rows in *count and null
 * in *reserved. The table does not change while the library is loaded. Returns QV_ERROR_ARGUMENT
 * and stores nothing if any pointer is null.
 */
QV_PLUGIN_EXPORT int QvPluginGetHandlers(const HandlerEntry** handlers, int32_t* count,
                                         void** reserved);

/* Releases an answer buffer. Null is allowed. Always returns QV_OK. */
QV_PLUGIN_EXPORT int QvPluginFree(void* buffer);

/* Keeps the callback. Null means a callback that does nothing. */
QV_PLUGIN_EXPORT void QvPluginSetNotificationCallback(QvNotificationCallback callback);

#ifdef __cplusplus
}
#endif

#endif /* QV_PLUGIN_H */
