// SPDX-License-Identifier: Apache-2.0

/*
 * Registers and finds services with the resident host, `qvhost serve`, and follows their changes.
 * This is QvClient.h for programs in C. What QvClient.h says of lost connections, threads and
 * signals holds here too.
 *
 *     qv_client_error error;
 *     qv_client *client = qv_client_create(NULL, &error);
 *     const int32_t database = 7;
 *     qv_service_list *services = NULL;
 *     if (client == NULL ||
 *         qv_client_wait(client, &database, 1, &services, QV_CLIENT_OWN_TIMEOUT, &error) !=
 *             QV_CLIENT_OK) {
 *         fprintf(stderr, "%s\n", error.text);
 *         exit(1);
 *     }
 *     connect_to(services->services[0].address);
 *     qv_service_list_destroy(services);
 *     qv_client_destroy(client);
 *
 * Results: a function returns QV_CLIENT_OK, or why it failed. A function that makes an object
 * returns NULL if it fails. Each function fills the caller's qv_client_error, which may be NULL.
 *
 * Memory: objects of the library are destroyed by the caller with the function of their type. Each
 * of these functions takes NULL as well. If a function fails, its objects are NULL.
 *
 * Time: a time-out is a number of milliseconds or one of qv_client_timeout.
 */
#ifndef QV_CLIENT_C_H
#define QV_CLIENT_C_H

#include <QvClientVersion.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum qv_client_timeout {
    QV_CLIENT_NO_TIMEOUT = -1, /* waits without a bound */
    QV_CLIENT_OWN_TIMEOUT = -2 /* the time-out in the client's options */
};

enum qv_client_result {
    QV_CLIENT_OK = 0,
    QV_CLIENT_NOT_KEPT = 1,        /* the change is made, but a restart of the host may lose it */
    QV_CLIENT_CANNOT_CONNECT = 2,  /* the code is the system's error number */
    QV_CLIENT_REFUSED = 3,         /* the host refused; the code is a QvHostResult of QvFrame.h */
    QV_CLIENT_PLUGIN_FAILED = 4,   /* the code is a result code of QvPlugin.h */
    QV_CLIENT_CONNECTION_LOST = 5, /* the code is an error number, or 0 if the host closed */
    QV_CLIENT_TIMED_OUT = 6,
    QV_CLIENT_BROKEN_ANSWER = 7, /* the bytes that arrived are no answer to the request */
    QV_CLIENT_TOO_LONG = 8,      /* the request has more bytes than the plug-in reads */
    QV_CLIENT_ARGUMENT = 9,      /* the directory cannot hold an address, or bad options */
    QV_CLIENT_WRONG_HOST = 10,   /* the host runs as another user, whose number is the code */
    QV_CLIENT_NO_MEMORY = 11
};

typedef struct qv_client_error {
    int result;      /* a qv_client_result */
    int32_t code;    /* as qv_client_result says, or 0 */
    char text[1024]; /* one line for people, perhaps cut; empty after QV_CLIENT_OK */
} qv_client_error;

typedef struct qv_client_options {
    size_t size;             /* of this struct; QV_CLIENT_OPTIONS sets it */
    const char* socket_path; /* NULL for the default, as QvClient.h says */
    int timeout;             /* of connecting, and of each request that names no other */
    int64_t host_user;       /* the user as whom, or as root, the host must run; -1 for any */
} qv_client_options;

/* Initialises options: qv_client_options options = QV_CLIENT_OPTIONS; */
#define QV_CLIENT_OPTIONS \
    { sizeof(qv_client_options), NULL, 30000, -1 }

typedef struct qv_service {
    int32_t id;
    const char* address; /* UTF-8, ended by a zero byte */
} qv_service;

typedef struct qv_service_list {
    const qv_service* services; /* ascending by identifier */
    size_t count;
} qv_service_list;

enum qv_event_kind {
    QV_EVENT_SNAPSHOT = 0,    /* the services are those in `registered`, and no others */
    QV_EVENT_CHANGE = 1,      /* the services changed; after DISCONNECTED, perhaps none of them */
    QV_EVENT_DISCONNECTED = 2 /* the host is away; another kind follows when it is there again */
};

typedef struct qv_event {
    int kind;                   /* a qv_event_kind */
    int64_t revision;           /* of the directory after the event; 0 for DISCONNECTED */
    qv_service_list registered; /* which had no address before */
    qv_service_list changed;    /* which had another address before */
    const int32_t* withdrawn;   /* which have no address any more */
    size_t withdrawn_count;
    const char* reason; /* why the host is away, in one line for people */
} qv_event;

typedef struct qv_client qv_client;
typedef struct qv_subscription qv_subscription;

/* Returns QV_CLIENT_VERSION of the library that runs. */
QV_CLIENT_EXPORT int qv_client_version(void);

/* Connects to the host. NULL stands for QV_CLIENT_OPTIONS. */
QV_CLIENT_EXPORT qv_client* qv_client_create(const qv_client_options* options,
                                             qv_client_error* error);

QV_CLIENT_EXPORT void qv_client_destroy(qv_client* client);

/*
 * Registers the services in this order, all or none. If an identifier has an address already, the
 * new address replaces it. Returns QV_CLIENT_NOT_KEPT if the change is made and a restart of the
 * host may lose it.
 */
QV_CLIENT_EXPORT int qv_client_register(qv_client* client, const qv_service* services, size_t count,
                                        int timeout, qv_client_error* error);

/* Removes the services, as qv_client_register() adds them. Ignores those that are not registered.
 */
QV_CLIENT_EXPORT int qv_client_unregister(qv_client* client, const int32_t* ids, size_t count,
                                          int timeout, qv_client_error* error);

/* Stores all services. */
QV_CLIENT_EXPORT int qv_client_list(qv_client* client, qv_service_list** services, int timeout,
                                    qv_client_error* error);

/* Stores those of the services that are registered. */
QV_CLIENT_EXPORT int qv_client_find(qv_client* client, const int32_t* ids, size_t count,
                                    qv_service_list** services, int timeout,
                                    qv_client_error* error);

/*
 * Stores the services as soon as all of them are registered at the same time. A host that is away
 * meanwhile only takes time. Returns QV_CLIENT_TIMED_OUT if the time passes first.
 */
QV_CLIENT_EXPORT int qv_client_wait(qv_client* client, const int32_t* ids, size_t count,
                                    qv_service_list** services, int timeout,
                                    qv_client_error* error);

/* Returns when the plug-in's file holds the directory as it is now. */
QV_CLIENT_EXPORT int qv_client_sync(qv_client* client, int timeout, qv_client_error* error);

/* Returns when the host has answered. */
QV_CLIENT_EXPORT int qv_client_ping(qv_client* client, int timeout, qv_client_error* error);

QV_CLIENT_EXPORT void qv_service_list_destroy(qv_service_list* services);

/*
 * Returns a subscription to these services, or to all services if `count` is 0. The subscription
 * outlives the client. `Subscription` in QvClient.h says how it behaves.
 */
QV_CLIENT_EXPORT qv_subscription* qv_client_subscribe(const qv_client* client, const int32_t* ids,
                                                      size_t count, qv_client_error* error);

/*
 * Stores the next event, or NULL if the time passes first. If the function fails, the next call
 * connects again.
 */
QV_CLIENT_EXPORT int qv_subscription_next(qv_subscription* subscription, qv_event** event,
                                          int timeout, qv_client_error* error);

/*
 * Returns a descriptor for poll(), which stays the same as long as the subscription exists. When it
 * is readable, call qv_subscription_next() with the time-out 0 until it stores NULL.
 */
QV_CLIENT_EXPORT int qv_subscription_descriptor(const qv_subscription* subscription);

QV_CLIENT_EXPORT void qv_subscription_destroy(qv_subscription* subscription);
QV_CLIENT_EXPORT void qv_event_destroy(qv_event* event);

#ifdef __cplusplus
}
#endif

#endif /* QV_CLIENT_C_H */
