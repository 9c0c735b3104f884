// init.cpp - the library's start-up and clean-up entry points.
#include "vqxml/store/char_class.h"
#include "vqxml/store/memdiag.h"
#include "vqxml/vqxml.h"

namespace vqxml {
void releaseTraceBuffers();
}

extern "C" void VQXML_xmlInit(void) { initChType(); }
extern "C" void xmlInit(void) { initChType(); }

// Empties the main error list (pending DOM errors are moved into it first)
// and gives back the trace buffers and the memory kept from deleted
// documents. Documents stay allocated.
extern "C" void VQXML_xmlCleanup(void) {
    VQXML_resetErrorList();
    vqxml::releaseTraceBuffers();
    vqxml::releaseKeptMemory();
}

extern "C" void xmlCleanup(void) { VQXML_resetErrorList(); }
