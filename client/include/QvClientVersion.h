/* What QvClient.h and qv_client.h share: the version, and the mark of the library's own names. */
#ifndef QV_CLIENT_VERSION_H
#define QV_CLIENT_VERSION_H

/*
 * A program that was built with one version runs with every later library of the same major
 * version. The number grows with the version: 1.2.3 is 10203.
 */
#define QV_CLIENT_VERSION_MAJOR 1
#define QV_CLIENT_VERSION_MINOR 0
#define QV_CLIENT_VERSION_PATCH 0
#define QV_CLIENT_VERSION \
    (QV_CLIENT_VERSION_MAJOR * 10000 + QV_CLIENT_VERSION_MINOR * 100 + QV_CLIENT_VERSION_PATCH)
#define QV_CLIENT_VERSION_TEXT "1.0.0"

#if defined(__GNUC__)
#define QV_CLIENT_EXPORT __attribute__((visibility("default")))
#else
#define QV_CLIENT_EXPORT
#endif

#endif /* QV_CLIENT_VERSION_H */
