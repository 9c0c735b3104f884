// invalid_char.cpp - the name check behind INVALID_CHARACTER_ERR: the DOM
// constructors refuse a name that the parser's name scanner rejects.
#include <cstdio>

#include "vqxml/store/error_list.h"

extern "C" int invalidCharacterErr(VQHANDLE nameDS) {
    const char *name = VQDOM_getBufferDS(nameDS);
    const char *bad = VQXML_checkName(name);
    if (bad == nullptr) return 0;
    char params[256];
    std::snprintf(params, sizeof params, "0x%x|%s|", static_cast<unsigned char>(*bad), name);
    vqxml::domError(vqxml::kInvalidCharacterErr, params);
    VQDOM_deleteDS(nameDS);
    return 1;
}
