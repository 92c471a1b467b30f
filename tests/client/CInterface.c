// SPDX-License-Identifier: Apache-2.0

/*
 * Uses every function of qv_client.h with the host at the socket of the first argument. Ends with
 * status 1 and a line for the first expectation that fails.
 */
#include <poll.h>
#include <qv_client.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define EXPECT(condition)                                                   \
    do {                                                                    \
        if (!(condition)) {                                                 \
            printf("line %d: %s (%s)\n", __LINE__, #condition, error.text); \
            exit(EXIT_FAILURE);                                             \
        }                                                                   \
    } while (0)

static qv_client_error error;

static qv_client* connect_to(const char* path) {
    qv_client_options options = QV_CLIENT_OPTIONS;
    options.socket_path = path;
    options.timeout = QV_CLIENT_NO_TIMEOUT;
    options.host_user = (int64_t)geteuid();
    qv_client* const client = qv_client_create(&options, &error);
    EXPECT(client != NULL && error.result == QV_CLIENT_OK && error.text[0] == '\0');
    return client;
}

static void test_errors(const char* path) {
    qv_client_options options = QV_CLIENT_OPTIONS;
    options.socket_path = "/none";
    EXPECT(qv_client_create(&options, &error) == NULL);
    EXPECT(error.result == QV_CLIENT_CANNOT_CONNECT && error.code == 2);
    EXPECT(strstr(error.text, "cannot reach the host at /none") == error.text);
    EXPECT(qv_client_create(&options, NULL) == NULL);
    options.size = 0;
    EXPECT(qv_client_create(&options, &error) == NULL && error.result == QV_CLIENT_ARGUMENT);

    qv_client* const client = connect_to(path);
    const qv_service nothing = {1, NULL};
    EXPECT(qv_client_register(client, &nothing, 1, QV_CLIENT_OWN_TIMEOUT, &error) ==
           QV_CLIENT_ARGUMENT);
    EXPECT(strstr(error.text, "the address of 1 is empty") != NULL);
    const int32_t missing = 99;
    qv_service_list* services = NULL;
    EXPECT(qv_client_wait(client, &missing, 1, &services, 0, &error) == QV_CLIENT_TIMED_OUT);
    EXPECT(services == NULL && error.result == QV_CLIENT_TIMED_OUT);
    qv_client_destroy(client);
}

static void test_services(qv_client* client) {
    const qv_service some[] = {{7, "/run/a.sock"}, {-1, "\xc3\xa9"}};
    EXPECT(qv_client_ping(client, QV_CLIENT_OWN_TIMEOUT, &error) == QV_CLIENT_OK);
    EXPECT(qv_client_register(client, some, 2, QV_CLIENT_OWN_TIMEOUT, &error) == QV_CLIENT_OK);
    EXPECT(qv_client_register(client, NULL, 0, QV_CLIENT_OWN_TIMEOUT, NULL) == QV_CLIENT_OK);
    EXPECT(qv_client_sync(client, QV_CLIENT_OWN_TIMEOUT, &error) == QV_CLIENT_OK);

    qv_service_list* services = NULL;
    EXPECT(qv_client_list(client, &services, QV_CLIENT_OWN_TIMEOUT, &error) == QV_CLIENT_OK);
    EXPECT(services->count == 2 && services->services[0].id == -1);
    EXPECT(strcmp(services->services[0].address, "\xc3\xa9") == 0);
    EXPECT(strcmp(services->services[1].address, "/run/a.sock") == 0);
    qv_service_list_destroy(services);

    const int32_t ids[] = {8, 7};
    EXPECT(qv_client_find(client, ids, 2, &services, QV_CLIENT_OWN_TIMEOUT, &error) ==
           QV_CLIENT_OK);
    EXPECT(services->count == 1 && services->services[0].id == 7);
    qv_service_list_destroy(services);
    EXPECT(qv_client_wait(client, ids + 1, 1, &services, QV_CLIENT_OWN_TIMEOUT, &error) ==
           QV_CLIENT_OK);
    EXPECT(services->count == 1 && strcmp(services->services[0].address, "/run/a.sock") == 0);
    qv_service_list_destroy(services);
}

/* Waits for the descriptor and returns the next event. */
static qv_event* next_event(qv_subscription* subscription) {
    qv_event* event = NULL;
    while (event == NULL) {
        struct pollfd entry = {qv_subscription_descriptor(subscription), POLLIN, 0};
        EXPECT(poll(&entry, 1, -1) == 1);
        EXPECT(qv_subscription_next(subscription, &event, 0, &error) == QV_CLIENT_OK);
    }
    return event;
}

static void test_subscription(qv_client* client) {
    const int32_t ids[] = {7, 8};
    qv_subscription* const subscription = qv_client_subscribe(client, ids, 2, &error);
    EXPECT(subscription != NULL);
    qv_event* event = next_event(subscription);
    EXPECT(event->kind == QV_EVENT_SNAPSHOT && event->registered.count == 1);
    EXPECT(event->registered.services[0].id == 7);
    const int64_t revision = event->revision;
    qv_event_destroy(event);

    const qv_service moved[] = {{7, "b"}, {8, "c"}};
    EXPECT(qv_client_register(client, moved, 2, QV_CLIENT_OWN_TIMEOUT, &error) == QV_CLIENT_OK);
    event = next_event(subscription);
    EXPECT(event->kind == QV_EVENT_CHANGE && event->revision > revision);
    EXPECT(event->registered.count == 1 && event->changed.count == 1);
    EXPECT(strcmp(event->registered.services[0].address, "c") == 0);
    EXPECT(strcmp(event->changed.services[0].address, "b") == 0);
    EXPECT(event->withdrawn_count == 0 && event->reason[0] == '\0');
    qv_event_destroy(event);

    EXPECT(qv_client_unregister(client, ids, 1, QV_CLIENT_OWN_TIMEOUT, &error) == QV_CLIENT_OK);
    EXPECT(qv_subscription_next(subscription, &event, QV_CLIENT_NO_TIMEOUT, &error) ==
           QV_CLIENT_OK);
    EXPECT(event->withdrawn_count == 1 && event->withdrawn[0] == 7);
    qv_event_destroy(event);
    EXPECT(qv_subscription_next(subscription, &event, 0, &error) == QV_CLIENT_OK && event == NULL);
    qv_subscription_destroy(subscription);
}

int main(int argc, char** argv) {
    if (argc != 2 || qv_client_version() != QV_CLIENT_VERSION) {
        return EXIT_FAILURE;
    }
    test_errors(argv[1]);
    qv_client* const client = connect_to(argv[1]);
    test_services(client);
    test_subscription(client);
    qv_client_destroy(client);
    qv_client_destroy(NULL);
    qv_service_list_destroy(NULL);
    qv_subscription_destroy(NULL);
    qv_event_destroy(NULL);
    return EXIT_SUCCESS;
}
