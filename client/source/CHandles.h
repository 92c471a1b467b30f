// SPDX-License-Identifier: Apache-2.0

// Defines the objects of qv_client.h that C programs do not see into.
#ifndef QV_CLIENT_C_HANDLES_H
#define QV_CLIENT_C_HANDLES_H

#include "QvClient.h"
#include "qv_client.h"

struct qv_client {
    qv::client::Client client;
};

struct qv_subscription {
    qv::client::Subscription subscription;
};

#endif  // QV_CLIENT_C_HANDLES_H
