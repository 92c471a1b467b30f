// SPDX-License-Identifier: Apache-2.0

/*
 * A component that registers itself, waits for a service that it needs, and follows that service
 * until it is withdrawn:
 *
 *     cc -std=c99 -o component component.c $(pkg-config --cflags --libs lorx-naming-service)
 *     ./component ID ADDRESS NEEDED [SOCKET]
 *
 * A component with a loop of its own waits for qv_subscription_descriptor() there.
 */
#include <inttypes.h>
#include <qv_client.h>
#include <stdio.h>
#include <stdlib.h>

static void fail(const qv_client_error* error) {
    fprintf(stderr, "component: %s\n", error->text);
    exit(EXIT_FAILURE);
}

static void use(int32_t needed, const qv_service_list* services) {
    for (size_t i = 0; i < services->count; ++i) {
        printf("using %" PRId32 " at %s\n", needed, services->services[i].address);
    }
}

/* Returns 0 when the service is gone. */
static int follow(int32_t needed, const qv_event* event) {
    if (event->kind == QV_EVENT_DISCONNECTED) {
        /* The address may still be right. The next event tells. */
        printf("the host is away: %s\n", event->reason);
        return 1;
    }
    use(needed, &event->registered);
    use(needed, &event->changed);
    return event->withdrawn_count == 0 &&
           (event->kind != QV_EVENT_SNAPSHOT || event->registered.count != 0);
}

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: component ID ADDRESS NEEDED [SOCKET]\n");
        return 2;
    }
    const qv_service self = {(int32_t)strtol(argv[1], NULL, 10), argv[2]};
    const int32_t needed = (int32_t)strtol(argv[3], NULL, 10);
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);

    qv_client_options options = QV_CLIENT_OPTIONS;
    options.socket_path = argc > 4 ? argv[4] : NULL;
    qv_client_error error;
    qv_client* const client = qv_client_create(&options, &error);
    if (client == NULL) {
        fail(&error);
    }
    const int registered = qv_client_register(client, &self, 1, QV_CLIENT_OWN_TIMEOUT, &error);
    if (registered == QV_CLIENT_NOT_KEPT) {
        fprintf(stderr, "component: a restart of the host may lose it: %s\n", error.text);
    } else if (registered != QV_CLIENT_OK) {
        fail(&error);
    }

    qv_service_list* found = NULL;
    if (qv_client_wait(client, &needed, 1, &found, QV_CLIENT_NO_TIMEOUT, &error) != QV_CLIENT_OK) {
        fail(&error);
    }
    qv_service_list_destroy(found);

    qv_subscription* const subscription = qv_client_subscribe(client, &needed, 1, &error);
    if (subscription == NULL) {
        fail(&error);
    }
    int is_there = 1;
    while (is_there) {
        qv_event* event = NULL;
        if (qv_subscription_next(subscription, &event, QV_CLIENT_NO_TIMEOUT, &error) !=
            QV_CLIENT_OK) {
            fail(&error);
        }
        is_there = follow(needed, event);
        qv_event_destroy(event);
    }
    printf("%" PRId32 " is gone\n", needed);
    qv_subscription_destroy(subscription);

    const int withdrawn = qv_client_unregister(client, &self.id, 1, QV_CLIENT_OWN_TIMEOUT, &error);
    if (withdrawn != QV_CLIENT_OK && withdrawn != QV_CLIENT_NOT_KEPT) {
        fail(&error);
    }
    qv_client_destroy(client);
    return 0;
}
