// SPDX-License-Identifier: Apache-2.0

// The meaning of a plug-in's results other than QV_OK, in words for messages to people.
#ifndef QV_RESULT_H
#define QV_RESULT_H

#include "QvPlugin.h"

namespace qv {

inline const char* resultMeaning(int result) {
    switch (result) {
        case QV_ERROR_SERIALIZE:
            return "the answer could not be serialised";
        case QV_ERROR_ARGUMENT:
            return "the request is not valid";
        case QV_ERROR_NO_MEMORY:
            return "no memory for the answer";
        default:
            return "a result that the interface does not define";
    }
}

}  // namespace qv

#endif  // QV_RESULT_H
