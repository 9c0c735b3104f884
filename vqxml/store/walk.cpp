// walk.cpp - the walks of walk.h that callers outside the library reach
// through their C names.
#include "vqxml/store/walk.h"

#include "vqxml/store/dom_string.h"

using namespace vqxml;

extern "C" int getAttChildValue(VQHANDLE start, VQHANDLE *valueDS) {
    if (valueDS == nullptr || typedNode(start) == nullptr) return 0;
    // Text nodes add their value; entity references add their children's
    // values in document order.
    return forEachValueText(start, start, [start, valueDS](VQHANDLE value) {
        if (*valueDS == 0) return (*valueDS = VQDOM_cloneDS(start, value)) != 0;
        const int64_t want = VQDOM_lenDS(*valueDS) + VQDOM_lenDS(value);
        VQDOM_appendDS2(*valueDS, value);
        return VQDOM_lenDS(*valueDS) == want;
    }) ? 1 : 0;
}
