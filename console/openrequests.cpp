#include "console/openrequests.h"

OpenRequests::Kind OpenRequests::pop() {
    if (kinds.empty()) return NONE;
    const Kind first = kinds.front();
    kinds.pop_front();
    return first;
}
