// SPDX-License-Identifier: Apache-2.0

/*
 * Defines the frames that a client and the resident host, `qvhost serve`, exchange over the host's
 * socket. The socket is a stream socket of the Unix domain.
 *
 * A client sends requests. The host sends an answer to each, in the order of the requests. Requests
 * and answers are frames: a header of 12 bytes, then as many bytes as the header says.
 *
 *     offset  bytes  in a request                         in an answer
 *     0       4      command code                         result code
 *     4       4      how many bytes follow the header     the same
 *     8       4      a number of the client's choice      the request's number
 *
 * All three are unsigned and little-endian. The bytes after a request's header are the input of the
 * command, a serialised message. If the result is QV_OK, the bytes after an answer's header are the
 * answer of the command, a serialised message. If the result is one of the host's own codes below,
 * they are a text in UTF-8 for people. A client may send further requests before it has received
 * the answers to earlier ones.
 *
 * A subscription takes its connection for itself. The host answers it with any number of frames,
 * which all have the number of the request. The client sends nothing more and ends the subscription
 * by closing the connection.
 *
 * The command codes are those of QvPlugin.h and the host's own below. The result codes are those of
 * QvPlugin.h and QvHostResult.
 */
#ifndef QV_FRAME_H
#define QV_FRAME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { QV_FRAME_HEADER_SIZE = 12 };

/* The edition of the protocol that this file defines. A host of edition 1 has no hello. */
enum { QV_PROTOCOL_EDITION = 2 };

/*
 * Commands that the host carries out itself. Their messages are those of QvHost.proto. The host
 * ignores the input of the first four.
 */
enum {
    QV_HOST_COMMAND_PING = 0,     /* the answer has no bytes */
    QV_HOST_COMMAND_STATUS = 1,   /* out: HostStatus */
    QV_HOST_COMMAND_SYNC = 2,     /* answered when the plug-in's file holds the directory of now */
    QV_HOST_COMMAND_HELLO = 3,    /* in and out: HostHello; no client has to send it */
    QV_HOST_COMMAND_FIND = 4,     /* in: HostFind, out: ServiceInfoArray of namingService.proto */
    QV_HOST_COMMAND_SUBSCRIBE = 5 /* in: HostSubscription, out: HostEvent, again and again */
};

/*
 * The host's own result codes. After the first five and the last, the host closes the connection,
 * because it must not or cannot read on. If the header of a request has arrived, the code answers
 * this request. Otherwise the code answers no request, and its number is 0.
 */
enum QvHostResult {
    QV_HOST_ERROR_FORBIDDEN = 21001, /* this user may not use the host */
    QV_HOST_ERROR_CLIENTS = 21002,   /* as many clients as the host takes are connected */
    QV_HOST_ERROR_LENGTH = 21003,    /* the request is longer than the host takes */
    QV_HOST_ERROR_TIMEOUT = 21004,   /* no request, or only part of one, arrived in time */
    QV_HOST_ERROR_STOPPING = 21005,  /* the host ends; idle clients receive this, too */
    QV_HOST_ERROR_COMMAND = 21006,   /* the plug-in has no such command */
    QV_HOST_ERROR_PLUGIN = 21007,    /* the plug-in failed to carry the command out */
    QV_HOST_ERROR_REFUSED = 21008,   /* the directory cannot hold the services; nothing changed */
    QV_HOST_ERROR_NOT_KEPT = 21009,  /* the change is made, but a restart may lose it */
    QV_HOST_ERROR_FILE = 21010,      /* the plug-in's file does not follow the directory */
    QV_HOST_ERROR_PRIVILEGE = 21011, /* only root and the host's own user may use the command */
    QV_HOST_ERROR_SUBSCRIBED = 21012 /* a subscription's connection takes no further request */
};

typedef struct QvFrameHeader {
    uint32_t code;   /* command code or result code */
    uint32_t length; /* number of bytes after the header */
    uint32_t number; /* number of the request */
} QvFrameHeader;

/* These convert a header to its QV_FRAME_HEADER_SIZE bytes on the wire, and back. */

static inline void QvFramePutNumber(unsigned char* bytes, uint32_t number) {
    bytes[0] = (unsigned char)(number & 0xFF);
    bytes[1] = (unsigned char)(number >> 8 & 0xFF);
    bytes[2] = (unsigned char)(number >> 16 & 0xFF);
    bytes[3] = (unsigned char)(number >> 24 & 0xFF);
}

static inline uint32_t QvFrameGetNumber(const unsigned char* bytes) {
    return (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 | (uint32_t)bytes[2] << 16 |
           (uint32_t)bytes[3] << 24;
}

static inline void QvFramePutHeader(unsigned char* bytes, QvFrameHeader header) {
    QvFramePutNumber(bytes, header.code);
    QvFramePutNumber(bytes + 4, header.length);
    QvFramePutNumber(bytes + 8, header.number);
}

static inline QvFrameHeader QvFrameGetHeader(const unsigned char* bytes) {
    QvFrameHeader header;
    header.code = QvFrameGetNumber(bytes);
    header.length = QvFrameGetNumber(bytes + 4);
    header.number = QvFrameGetNumber(bytes + 8);
    return header;
}

#ifdef __cplusplus
}
#endif

#endif /* QV_FRAME_H */
