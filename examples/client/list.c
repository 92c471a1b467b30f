// SPDX-License-Identifier: Apache-2.0

/*
 * Lists the services that a resident host keeps, with nothing but sockets and QvFrame.h:
 *
 *     cc -std=c11 -o list list.c $(pkg-config --cflags lorx-naming-service)
 *     ./list [SOCKET]
 *
 * The answer is a message of Protocol Buffers. This program reads what a list of services has of
 * it. A field is a tag and a value. The tag is 8 times the number of the field, plus the kind of
 * the value. A value is a number or bytes. A number has 7 bits in each byte, the lowest first.
 * Bytes have their count, as such a number, before them.
 */
#include <QvFrame.h>
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { COMMAND_GET_SERVICES = 0x0202 };

/* The rest of a message. */
typedef struct Bytes {
    const unsigned char* next;
    const unsigned char* end;
} Bytes;

typedef struct Field {
    unsigned number;
    uint64_t value; /* the number, or the count of the bytes */
    Bytes bytes;
} Field;

static void fail(const char* what) {
    fprintf(stderr, "list: %s\n", what);
    exit(EXIT_FAILURE);
}

static uint64_t takeNumber(Bytes* bytes) {
    uint64_t number = 0;
    for (int shift = 0; shift < 64 && bytes->next < bytes->end; shift += 7) {
        const unsigned char byte = *bytes->next++;
        number |= (uint64_t)(byte & 0x7F) << shift;
        if (byte < 0x80) {
            return number;
        }
    }
    fail("the answer is broken");
    return 0;
}

/* Takes the next field. Returns 0 at the end. */
static int takeField(Bytes* message, Field* field) {
    enum { WIRE_NUMBER = 0, WIRE_BYTES = 2 };
    if (message->next == message->end) {
        return 0;
    }
    const uint64_t tag = takeNumber(message);
    *field = (Field){.number = (unsigned)(tag >> 3), .value = takeNumber(message)};
    if ((tag & 7) == WIRE_BYTES) {
        if (field->value > (uint64_t)(message->end - message->next)) {
            fail("the answer is broken");
        }
        field->bytes.next = message->next;
        field->bytes.end = message->next + field->value;
        message->next = field->bytes.end;
    } else if ((tag & 7) != WIRE_NUMBER) {
        fail("the answer is broken");
    }
    return 1;
}

static void printService(Bytes service) {
    int32_t id = 0;
    Bytes address = {NULL, NULL};
    Field field;
    while (takeField(&service, &field)) {
        if (field.number == 1) {
            /* A negative number has 64 bits. */
            id = (int32_t)(uint32_t)field.value;
        } else if (field.number == 2) {
            address = field.bytes;
        }
    }
    printf("%d\t", (int)id);
    /* A program for people would have to escape characters that drive a terminal. */
    for (; address.next != address.end; ++address.next) {
        putchar(*address.next);
    }
    putchar('\n');
}

static int connectTo(const char* path) {
    struct sockaddr_un address = {0};
    address.sun_family = AF_UNIX;
    /* The address is 0 after the path. */
    for (size_t i = 0; path[i] != '\0'; ++i) {
        if (i + 1 == sizeof address.sun_path) {
            fail("the socket's path is too long");
        }
        address.sun_path[i] = path[i];
    }
    const int host = socket(AF_UNIX, SOCK_STREAM, 0);
    if (host == -1 || connect(host, (const struct sockaddr*)&address, sizeof address) != 0) {
        fail(strerror(errno));
    }
    return host;
}

static void sendAll(int host, const unsigned char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t count = write(host, bytes, size);
        if (count == -1 && errno != EINTR) {
            fail(strerror(errno));
        }
        if (count > 0) {
            bytes += count;
            size -= (size_t)count;
        }
    }
}

static void receiveAll(int host, unsigned char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t count = read(host, bytes, size);
        if (count == 0) {
            fail("the host closed the connection");
        }
        if (count == -1 && errno != EINTR) {
            fail(strerror(errno));
        }
        if (count > 0) {
            bytes += count;
            size -= (size_t)count;
        }
    }
}

int main(int argc, char** argv) {
    const int host = connectTo(argc > 1 ? argv[1] : "/run/Vornak/LorxCore/namingService.sock");

    const QvFrameHeader request = {COMMAND_GET_SERVICES, 0, 1};
    unsigned char header[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(header, request);
    sendAll(host, header, sizeof header);

    receiveAll(host, header, sizeof header);
    const QvFrameHeader answer = QvFrameGetHeader(header);
    unsigned char* const bytes = malloc((size_t)answer.length + 1);
    if (bytes == NULL) {
        fail("out of memory");
    }
    receiveAll(host, bytes, answer.length);
    close(host);
    if (answer.code != 0) {
        bytes[answer.length] = '\0';
        fprintf(stderr, "list: the host answered %u: %s\n", (unsigned)answer.code, (char*)bytes);
        free(bytes);
        return EXIT_FAILURE;
    }

    Bytes list = {bytes, bytes + answer.length};
    Field field;
    while (takeField(&list, &field)) {
        if (field.number == 1) {
            printService(field.bytes);
        }
    }
    free(bytes);
    return fflush(stdout) == 0 && !ferror(stdout) ? EXIT_SUCCESS : EXIT_FAILURE;
}
