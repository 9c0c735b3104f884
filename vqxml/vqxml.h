/*
 * vqxml.h - the public C interface of libvqxml.
 *
 * libvqxml reads, builds, inspects, changes and writes XML documents. Every
 * document lives in a document area of its own; callers never hold pointers
 * into an area but 32-bit handles (VQHANDLE) that stay valid while the area
 * grows or moves. A handle is slot * 256 + document number; 0 is the null
 * handle and every value below 256 is invalid.
 *
 * Failures are recorded, not returned: a failing call appends a record to an
 * error list and returns 0 or the null handle. Drain the list with
 *
 *     char params[256], msg[512];
 *     int64_t code;
 *     while ((code = VQXML_getError(params)) != 0)
 *         VQXML_getErrorMsg(code, params, msg, sizeof msg);
 *
 * Ownership: a DOM string (DS) handle passed to a VQDOM_create* or VQDOM_set*
 * function or to a data-editing function is handed over. A node passed to an
 * insertion function belongs to the library; when the insertion is refused
 * the node is deleted. Removed nodes are unlinked but alive: insert them
 * elsewhere or delete them with VQDOM_deleteNode.
 *
 * The library keeps process-wide state and takes no locks: use it from one
 * thread at a time. Call VQXML_xmlInit() once before parsing.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef VQXML_VQXML_H
#define VQXML_VQXML_H

#include <stddef.h>
#include <stdint.h>

/* ---- version ------------------------------------------------------------ */

/* The package version. The build reads it from here, so the installed CMake
 * package, vqxml.pc and the library's file names always agree with it. */
#define VQXML_VERSION_MAJOR 0
#define VQXML_VERSION_MINOR 1
#define VQXML_VERSION_PATCH 0
#define VQXML_VERSION_STRING "0.1.0"
/* One number for comparisons: major * 10000 + minor * 100 + patch. */
#define VQXML_VERSION \
    (VQXML_VERSION_MAJOR * 10000 + VQXML_VERSION_MINOR * 100 + VQXML_VERSION_PATCH)

#if defined(_WIN32)
#define VQXML_API
#else
#define VQXML_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A handle: slot * 256 + document number. */
typedef uint32_t VQHANDLE;

/* Node type codes. */
enum {
    VQXML_ELEMENT_NODE = 1,
    VQXML_ATTRIBUTE_NODE = 2,
    VQXML_TEXT_NODE = 3,
    VQXML_CDATA_SECTION_NODE = 4,
    VQXML_ENTITY_REFERENCE_NODE = 5,
    VQXML_ENTITY_NODE = 6,
    VQXML_PROCESSING_INSTRUCTION_NODE = 7,
    VQXML_COMMENT_NODE = 8,
    VQXML_DOCUMENT_NODE = 9,
    VQXML_DOCUMENT_TYPE_NODE = 10,
    VQXML_DOCUMENT_FRAGMENT_NODE = 11,
    VQXML_NOTATION_NODE = 12,
    VQXML_ELEMENT_DECL_NODE = 13,
    VQXML_ATTLIST_DECL_NODE = 14,
    VQXML_ATT_DEF_NODE = 15,
    VQXML_CP_CHILDREN_NODE = 16,
    VQXML_NAME_LIST_NODE = 17
};

/*
 * The head of a document area. A streamed area image starts with these 48
 * bytes; the handle table follows, then 4 reserved bytes, then the blocks.
 */
typedef struct VQXML_AreaHead {
    int32_t doc;            /* document number, 1..255 */
    int32_t size;           /* whole area in bytes */
    int32_t indexes;        /* handle-table slots */
    int32_t firstfree;      /* where the next slot search starts */
    int32_t freesize;       /* data bytes not held by live objects */
    int32_t freeoffset;     /* number of free handle slots */
    int32_t dbgHandles;     /* live objects */
    int32_t dbgSize;        /* bytes of live objects, headers included */
    int32_t dbgFreeHandles; /* frees since creation */
    int32_t dbgFreeSize;    /* bytes freed since creation */
    char *data;             /* start of the data region */
} VQXML_AreaHead;

/* One record of the memory accounting list (newest first). */
typedef struct VQXML_DbgMem {
    void *addr;                 /* the user block */
    int32_t count;              /* sequence number of the allocation */
    int32_t size;               /* size of the user block */
    struct VQXML_DbgMem *next;  /* next (older) record */
    char text[24];              /* label, at most 23 characters */
    uint32_t DocHandle;         /* document node of a document area, else 0 */
} VQXML_DbgMem;

/* ---- exported tables ------------------------------------------------- */

/* Area heads by document number; a null entry is a free number. */
VQXML_API extern VQXML_AreaHead *docHead[256];
/* Non-zero: the area of that number must not be grown any more. */
VQXML_API extern int32_t dontRealloc[256];
/* Record of the last allocation when it was a document area, else null. */
VQXML_API extern VQXML_DbgMem *allocMemDocArea;
/* Trace handle of the support library (a file descriptor); 0 = off. */
VQXML_API extern uint64_t XmlTraceHandle;
/* Trace level: low byte is a digit character, '2' passes levels 0..2. */
VQXML_API extern int32_t XmlTraceFlag;
/* Tick counter, cleared by VQXML_clearTiks. */
VQXML_API extern int64_t liTIKS;

/* ---- start, stop, tracing ------------------------------------------- */

VQXML_API void VQXML_xmlInit(void);
VQXML_API void xmlInit(void);
VQXML_API void VQXML_xmlCleanup(void);
VQXML_API void xmlCleanup(void);
VQXML_API void VQXML_xmlSetTraceFlag(uint64_t handle, int32_t flag);
VQXML_API void VQXML_TRACE_XML(uint32_t level, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
VQXML_API void VQXML_TRACE_XML_DUMP(uint32_t level, const char *label,
                                    const void *data, int64_t length,
                                    VQHANDLE node);
VQXML_API void VQXML_clearTiks(void);
VQXML_API int64_t VQXML_getTiks(void);

/* ---- document areas and handles ------------------------------------- */

/* 1 when the handle names a live object; records 1001748 otherwise. */
VQXML_API int VQXML_checkNode(VQHANDLE handle);
VQXML_API void VQXML_deleteDocumentArea(VQHANDLE handle);
VQXML_API void VQXML_deleteDocumentAreaRange(int32_t low, int32_t high);
/* Installs a filled area image; the block is consumed either way. */
VQXML_API int VQXML_documentLoaded(void *area);

/* ---- compaction and streaming of document areas --------------------- */

/* Moves the area's listed free space together into one block at its end.
 * Free blocks that are not on the free list (freed objects) are moved, not
 * reclaimed; the allocator's sweep takes them back. */
VQXML_API void VQXML_compact(VQHANDLE document);
/* Makes the area minimal (handle table cut after the highest slot in use,
 * every free block dropped) and returns its bytes, *lengthOut of them; null
 * for an unknown document. The document stays in use and may grow again.
 * The image holds the bytes as they are in memory: only the same build on
 * the same kind of machine reads it back. */
VQXML_API void *VQXML_streamOut(VQHANDLE document, int32_t *lengthOut);
/* A block of length bytes for an image; fill it and pass it to
 * VQXML_documentLoaded. Null (DOM code 11) when it cannot be allocated or
 * length is below 1. */
VQXML_API void *VQXML_streamIn(int32_t length);

/* ---- errors ---------------------------------------------------------- */

/* Oldest main-list code (0 when empty); its parameter text goes to buffer
 * (256 bytes, may be null) and the record is removed. */
VQXML_API int64_t VQXML_getError(char *buffer);
/* Renders a message; returns its full length, writes at most size-1 bytes
 * and a terminator. */
VQXML_API int32_t VQXML_getErrorMsg(int64_t code, const char *params,
                                    char *buffer, int32_t bufferSize);
VQXML_API void VQXML_resetErrorList(void);
VQXML_API int32_t VQDOM_getError(char *buffer);
VQXML_API int32_t VQDOM_getLastError(void);

/* ---- memory diagnostics ---------------------------------------------- */

/* counters (six int32): live objects, live bytes, area sizes, frees, freed
 * bytes, areas counted; for one document, or all when (document & 255) is
 * 0. Always returns 1. */
VQXML_API int VQXML_debug_mem(VQHANDLE document, int32_t *counters,
                              int withLeakReport);
VQXML_API void VQXML_PRINTINTOFILE(const char *path);
VQXML_API int VQXML_DomDump(void);
VQXML_API void VQDOM_startMemInfo(void);
VQXML_API char *VQDOM_endMemInfo(void);

/* ---- DOM strings ------------------------------------------------------ */

VQXML_API VQHANDLE VQDOM_createDS(VQHANDLE handle, const char *text);
/* Valid until the next allocation in the same document. */
VQXML_API char *VQDOM_getBufferDS(VQHANDLE ds);
VQXML_API int64_t VQDOM_lenDS(VQHANDLE ds);
VQXML_API void VQDOM_deleteDS(VQHANDLE ds);
VQXML_API int VQDOM_cmpDS(VQHANDLE a, VQHANDLE b);
VQXML_API int VQDOM_cmpDSStr(VQHANDLE ds, const char *text);
VQXML_API int64_t VQDOM_cpyDS(VQHANDLE ds, char *buffer, int64_t size);
VQXML_API VQHANDLE VQDOM_cloneDS(VQHANDLE handle, VQHANDLE ds);
VQXML_API void VQDOM_appendDS(VQHANDLE ds, const char *text);
VQXML_API void VQDOM_appendDS2(VQHANDLE ds, VQHANDLE other);
VQXML_API void VQDOM_removeSpacesDS(VQHANDLE ds);
VQXML_API int64_t VQDOM_cpyDS_ExpandRef(VQHANDLE ds, char *buffer,
                                        int64_t size);
VQXML_API int64_t VQDOM_cpyDS_ExpandRef2(VQHANDLE ds, char *buffer,
                                         int64_t size);

/* ---- documents and node creation ------------------------------------- */

VQXML_API VQHANDLE VQDOM_createDocument(void);
/*
 * The implementation object is the document itself: returns the handle it
 * is given. (C++ callers may also call it without an argument, which
 * yields 0.)
 */
VQXML_API VQHANDLE VQDOM_getImplementation(VQHANDLE document);
VQXML_API int VQDOM_hasFeature(VQHANDLE impl, const char *feature,
                               const char *version);
VQXML_API VQHANDLE VQDOM_createElement(VQHANDLE doc, VQHANDLE name);
VQXML_API VQHANDLE VQDOM_createTextNode(VQHANDLE doc, VQHANDLE data);
VQXML_API VQHANDLE VQDOM_createComment(VQHANDLE doc, VQHANDLE data);
VQXML_API VQHANDLE VQDOM_createCDATASection(VQHANDLE doc, VQHANDLE data);
VQXML_API VQHANDLE VQDOM_createProcessingInstruction(VQHANDLE doc,
                                                     VQHANDLE target,
                                                     VQHANDLE data);
VQXML_API VQHANDLE VQDOM_createAttribute(VQHANDLE doc, VQHANDLE name);
VQXML_API VQHANDLE VQDOM_createEntityReference(VQHANDLE doc, VQHANDLE name);
VQXML_API VQHANDLE VQDOM_createDocumentFragment(VQHANDLE doc);

/* ---- navigation ------------------------------------------------------- */

VQXML_API VQHANDLE VQDOM_getNodeName(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getNodeValue(VQHANDLE node);
VQXML_API int32_t VQDOM_getNodeType(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getParentNode(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getChildNodes(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getFirstChild(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getLastChild(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getPreviousSibling(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getNextSibling(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getAttributes(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getOwnerDocument(VQHANDLE node);
VQXML_API int VQDOM_hasChildNodes(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getTagName(VQHANDLE element);
VQXML_API VQHANDLE VQDOM_getDocumentElement(VQHANDLE doc);
VQXML_API VQHANDLE VQDOM_getDocumentFragmentElement(VQHANDLE fragment);
VQXML_API VQHANDLE VQDOM_getDoctype(VQHANDLE doc);
VQXML_API int64_t VQDOM_getText(VQHANDLE node, char *buf, int64_t cap);
VQXML_API int64_t VQDOM_getTextContent(VQHANDLE node, char *buf,
                                       int64_t cap);
VQXML_API VQHANDLE VQDOM_getTextDS(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getTextContentDS(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getElementsByTagName(VQHANDLE node, VQHANDLE name);
VQXML_API VQHANDLE VQDOM_getElementsByTagNameStr(VQHANDLE node,
                                                 const char *name);
VQXML_API int VQDOM_rename(VQHANDLE node, const char *newName);

/* ---- tree mutation ---------------------------------------------------- */

VQXML_API VQHANDLE VQDOM_appendChild(VQHANDLE parent, VQHANDLE newChild);
VQXML_API VQHANDLE VQDOM_insertBefore(VQHANDLE parent, VQHANDLE newChild,
                                      VQHANDLE refChild);
VQXML_API VQHANDLE VQDOM_replaceChild(VQHANDLE parent, VQHANDLE newChild,
                                      VQHANDLE oldChild);
VQXML_API VQHANDLE VQDOM_removeChild(VQHANDLE parent, VQHANDLE oldChild);
VQXML_API void VQDOM_deleteNode(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_cloneNode(VQHANDLE node, int deep);
VQXML_API VQHANDLE VQDOM_cloneNodeDoc(VQHANDLE node, int deep,
                                      VQHANDLE targetDoc);
VQXML_API int VQDOM_normalize(VQHANDLE node);
VQXML_API void VQDOM_setNodeValue(VQHANDLE node, VQHANDLE value);
VQXML_API void VQDOM_setData(VQHANDLE node, VQHANDLE value);
VQXML_API void VQDOM_setValue(VQHANDLE node, VQHANDLE value);

/* ---- attributes, named node maps, node lists -------------------------- */

VQXML_API VQHANDLE VQDOM_getNamedItem(VQHANDLE map, VQHANDLE name);
VQXML_API VQHANDLE VQDOM_getNamedItemStr(VQHANDLE map, const char *name);
VQXML_API VQHANDLE VQDOM_setNamedItem(VQHANDLE map, VQHANDLE node);
VQXML_API VQHANDLE VQDOM_removeNamedItem(VQHANDLE map, VQHANDLE name);
VQXML_API VQHANDLE VQDOM_removeNamedItemStr(VQHANDLE map, const char *name);
VQXML_API VQHANDLE VQDOM_itemMap(VQHANDLE map, uint64_t index);
VQXML_API uint32_t VQDOM_getLengthMap(VQHANDLE map);
VQXML_API VQHANDLE VQDOM_itemList(VQHANDLE list, uint64_t index);
VQXML_API uint32_t VQDOM_getLengthList(VQHANDLE list);
VQXML_API VQHANDLE VQDOM_getAttribute(VQHANDLE element, VQHANDLE name);
VQXML_API int64_t VQDOM_getAttributeStr(VQHANDLE element, const char *name,
                                        char *buffer, int64_t capacity);
VQXML_API VQHANDLE VQDOM_getAttributeNode(VQHANDLE element, VQHANDLE name);
VQXML_API VQHANDLE VQDOM_getAttributeNodeStr(VQHANDLE element,
                                             const char *name);
VQXML_API void VQDOM_setAttribute(VQHANDLE element, VQHANDLE name,
                                  VQHANDLE value);
VQXML_API VQHANDLE VQDOM_setAttributeNode(VQHANDLE element,
                                          VQHANDLE attribute);
VQXML_API void VQDOM_removeAttribute(VQHANDLE element, VQHANDLE name);
VQXML_API void VQDOM_removeAttributeStr(VQHANDLE element, const char *name);
VQXML_API VQHANDLE VQDOM_removeAttributeNode(VQHANDLE element,
                                             VQHANDLE attribute);

/* ---- character data --------------------------------------------------- */

VQXML_API VQHANDLE VQDOM_getData(VQHANDLE node);
VQXML_API int64_t VQDOM_getLengthData(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_substringData(VQHANDLE node, uint64_t offset,
                                       uint64_t count);
VQXML_API void VQDOM_appendData(VQHANDLE node, VQHANDLE data);
VQXML_API void VQDOM_appendDataStr(VQHANDLE node, const char *text);
VQXML_API void VQDOM_insertData(VQHANDLE node, uint64_t offset,
                                VQHANDLE data);
VQXML_API void VQDOM_insertDataStr(VQHANDLE node, uint64_t offset,
                                   const char *text);
VQXML_API void VQDOM_deleteData(VQHANDLE node, uint64_t offset,
                                uint64_t count);
VQXML_API void VQDOM_replaceData(VQHANDLE node, uint64_t offset,
                                 uint64_t count, VQHANDLE data);
VQXML_API VQHANDLE VQDOM_splitText(VQHANDLE node, uint64_t offset);
VQXML_API void VQDOM_setRawXml(VQHANDLE textNode);
VQXML_API VQHANDLE VQDOM_getTarget(VQHANDLE pi);
VQXML_API VQHANDLE VQDOM_getDataPI(VQHANDLE pi);
VQXML_API void VQDOM_setDataPI(VQHANDLE pi, VQHANDLE data);
VQXML_API VQHANDLE VQDOM_getName(VQHANDLE attr);
VQXML_API VQHANDLE VQDOM_getValue(VQHANDLE attr);
VQXML_API int VQDOM_getSpecified(VQHANDLE attr);

/* ---- document type definitions ---------------------------------------- */

VQXML_API VQHANDLE VQDOM_getNameDTD(VQHANDLE doctype);
VQXML_API VQHANDLE VQDOM_getEntities(VQHANDLE doctype);
VQXML_API VQHANDLE VQDOM_getNotations(VQHANDLE doctype);
VQXML_API VQHANDLE VQDOM_getPublicID(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getSystemID(VQHANDLE node);
VQXML_API VQHANDLE VQDOM_getNotationName(VQHANDLE entity);

/*
 * Definitions at run time. Names and texts are NUL-terminated strings; a
 * definition text is read as the part of a declaration behind the name(s):
 * a content model ("EMPTY", "(a|b)*", ...) or an attribute type
 * and default declaration ("(red|green) 'red'", "CDATA #IMPLIED", ...).
 * Faults in the text are recorded as parse messages (line 1 = the text's
 * first line). Each call returns 1 on success and 0, leaving the document
 * as it was, on failure, with one exception: a failed VQDOM_createAttListDef
 * also deletes the element's attribute-list declaration when that holds no
 * definition.
 *
 * VQDOM_enumAttValues: a new DS (yours) with the allowed values of an
 * enumerated attribute separated by '|', empty for other types; 0 when
 * there is no such definition.
 * VQDOM_createElementDef: declares an element; text after the content
 * model is not read. 0 when the element is declared already.
 * VQDOM_createAttListDef: adds an attribute definition to the element's
 * existing attribute-list declaration (0 without one, or when the
 * attribute is defined already); every element of that name in the
 * document gets the default, unspecified, in place of an attribute of that
 * name it had.
 * VQDOM_deleteElementDef: removes the element's declarations and its
 * attribute-list declarations; 0 while an element of that name is in the
 * document, or when there was nothing to delete.
 * VQDOM_deleteAttListDef: removes an attribute definition (its declaration
 * too when it was the last) and the attribute from every element of that
 * name. Refused while an element of that name carries the attribute as
 * specified, where that element is among the document's children or nested
 * in elements of the same name only; elements found deeper lose theirs.
 */
VQXML_API VQHANDLE VQDOM_enumAttValues(VQHANDLE doctype,
                                       const char *elementName,
                                       const char *attributeName);
VQXML_API int VQDOM_createElementDef(VQHANDLE doctype,
                                     const char *elementName,
                                     const char *contentText);
VQXML_API int VQDOM_createAttListDef(VQHANDLE doctype,
                                     const char *elementName,
                                     const char *attributeName,
                                     const char *definitionText);
VQXML_API int VQDOM_deleteElementDef(VQHANDLE doctype,
                                     const char *elementName);
VQXML_API int VQDOM_deleteAttListDef(VQHANDLE doctype,
                                     const char *elementName,
                                     const char *attributeName);

/* ---- parsing ------------------------------------------------------------ */

/* A new Document, or 0 with the messages on the main error list. */
VQXML_API VQHANDLE VQXML_parse(const char *text);
/* A new DocumentFragment of document holding the parsed content, or 0. */
VQXML_API VQHANDLE VQXML_parseFragment(VQHANDLE document, const char *text);
/* Pointer to the first byte that cannot stand in a name, or null. */
VQXML_API char *VQXML_checkName(const char *name);

/* ---- path selection ----------------------------------------------------- */

/* The node that a path selects below node: an Element, a Text child
 * ('a/text()') or an Attr ('a/@id'); 0 for a malformed path or no match.
 * Steps are element names, optionally with a position ('item[2]', from 1)
 * or attribute tests ("item[@id='7' and @type='x']"); a leading '/' starts
 * at the document. Nothing is recorded on the error lists. */
VQXML_API VQHANDLE VQXML_selectSingleNode(VQHANDLE node, const char *path);
/* A live node list of the elements that a path of names and '/' selects
 * below node, read with VQDOM_itemList and VQDOM_getLengthList; it lives as
 * long as node. Only the first element of each intermediate step is
 * followed. 0 when node is invalid or path is null. */
VQXML_API VQHANDLE VQXML_selectNodes(VQHANDLE node, const char *path);

/* ---- printing ----------------------------------------------------------- */

/* Writes the node as XML text; returns the full length needed. A result not
 * smaller than size means the buffer was too small. Line breaks are CR LF. */
VQXML_API int32_t VQXML_printNode(VQHANDLE node, char *buffer, int32_t size);

/* ---- element lookup ----------------------------------------------------- */

/* All walk the direct children of parent in document order and stop at the
 * first handle that is not valid. n counts matches from 0; a negative n
 * never matches. */
VQXML_API VQHANDLE VQXML_findChildElement(VQHANDLE parent, VQHANDLE tagName,
                                          int32_t n);
VQXML_API VQHANDLE VQXML_findChildElementStr(VQHANDLE parent,
                                             const char *tagName, int32_t n);
/* The first element child whose attribute attrName (read up to 255 bytes)
 * equals value byte for byte. */
VQXML_API VQHANDLE VQXML_findAttribute(VQHANDLE parent, const char *attrName,
                                       const char *value);
VQXML_API VQHANDLE VQXML_findIndexedChildElem(VQHANDLE parent, int32_t n);
/* The text of an element whose only child is one Text node: copies at most
 * size bytes with the terminator and returns the full length. Any other
 * content reads as the empty text and returns 0. */
VQXML_API int32_t VQXML_getElementText(VQHANDLE element, char *buffer,
                                       int32_t size);
VQXML_API uint32_t VQXML_countChildElements(VQHANDLE parent);
/* Element descendants at all depths. */
VQXML_API uint32_t VQXML_countSubElements(VQHANDLE parent);
VQXML_API uint32_t VQXML_countNamedChildren(VQHANDLE parent,
                                            VQHANDLE tagName);
/* Move all children (or only the element children) of from to the end of
 * to, in order. A child that to refuses is deleted, as with every refused
 * insertion; to == from changes nothing. */
VQXML_API void VQXML_moveChildren(VQHANDLE to, VQHANDLE from);
VQXML_API void VQXML_moveChildElems(VQHANDLE to, VQHANDLE from);

/* ---- model descriptions ------------------------------------------------- */

/* Predicates on a model item; 1 for true. Multiple and mandatory test only
 * the first byte of OCCURENCE (one R) and USE against an upper-case 'M'.
 * Enumerated and green-yellow-red compare the item's text (read into 32
 * bytes) with "enumeration" and "gyr"; hasSubElements is 1 whenever that
 * text is empty, also for an element without children. */
VQXML_API int VQXML_isMultiple(VQHANDLE element);
VQXML_API int VQXML_isMandatory(VQHANDLE element);
VQXML_API int VQXML_isEnumerated(VQHANDLE element);
VQXML_API int VQXML_isGreenYellowRed(VQHANDLE element);
VQXML_API int VQXML_hasSubElements(VQHANDLE element);
/* 0 when documents a and b carry the same values in their "PAR" sections
 * as the model's "PAR" section describes them, else 1. A comment between
 * model items makes every comparison report "different". */
VQXML_API int VQXML_cmpParameters(VQHANDLE model, VQHANDLE a, VQHANDLE b);
/* A new document: rootName with PID, MINTIME "10", VERS "1.0", TYPE
 * "COLLECTED", a "PAR" section with items P1.. (DESC Parameter_1.., type
 * "text") and a "DAT" section with D1.. (DESC Data_1..). 0 when the root
 * name is no XML name or memory runs out (nothing is left behind). */
VQXML_API VQHANDLE VQXML_createEmptyModel(int32_t parameterCount,
                                          int32_t dataCount,
                                          const char *rootName,
                                          const char *pid);
/* Empties the main error list, then records 1001807 for every pair of
 * element children with the same tag name and 1001808 for every pair with
 * the same DESC. 1 when anything was recorded. */
VQXML_API int VQXML_checkDoubleTag(VQHANDLE element);
/* Empties the main error list, records 1001756 for every '.' or '(' in the
 * text and returns the first of them, or null. */
VQXML_API char *VQXML_checkDesc(const char *text);
/* Tag names of the element and its element ancestors, joined by '.'
 * ("MODEL.PAR.P1"); the empty text and 0 for a node that is no element. */
VQXML_API int32_t VQXML_getXmlPath(VQHANDLE node, char *buffer, int32_t size);

/* ---- queries and answers ------------------------------------------------- */

/*
 * Queries and answers are built from a model document and an entry list: a
 * null-terminated array of entries, each a path, a NUL and the value, itself
 * NUL-terminated ("Group(1).Size\0" "12"). A path is the DESC values of the
 * model items from the section down, joined by '.'; every component but the
 * last may carry a 0-based occurrence index "(n)" (at most 65535) for a
 * multiple group. Values are checked and converted by their item's type
 * while they are stored. The builders record every fault, go on with the
 * next entry, and then hand back nothing when anything was recorded.
 * A null entry list, or a model without the section, gives the null handle.
 */
/* A new query document; empties the main error list first. */
VQXML_API VQHANDLE VQXML_createQuery(VQHANDLE model, const char **entries);
/* A new answer: a copy of the query without indentation, the data under
 * "DAT" and a TIMESTAMP "MM.DD.YYYY hh:mm:ss" (month first). Empties the main
 * error list first; mandatory data are not checked. */
VQXML_API VQHANDLE VQXML_createAnswer(VQHANDLE model, VQHANDLE query,
                                      const char **entries);
/* Append a new element for modelItem to parent (a Document stands for its
 * "PAR" or "DAT" element), filled from entries relative to modelItem and
 * checked for mandatory items; the element, or the null handle when anything
 * failed (the element is then deleted). The error list is not emptied. */
VQXML_API VQHANDLE VQXML_createSubQuery(VQHANDLE modelItem, const char **entries,
                                        VQHANDLE parent);
VQXML_API VQHANDLE VQXML_createSubAnswer(VQHANDLE modelItem, const char **entries,
                                         VQHANDLE parent);
/* The stored text of the index-th occurrence of the item at path: copies at
 * most size bytes with the terminator, returns the full length; 0 (and the
 * empty text) when the path is wrong. Path errors are recorded as parameter
 * errors, also for data. */
VQXML_API int32_t VQXML_getParValue(VQHANDLE model, VQHANDLE query, const char *path,
                                    int32_t index, char *buffer, int32_t size);
VQXML_API int32_t VQXML_getDatValue(VQHANDLE model, VQHANDLE answer, const char *path,
                                    int32_t index, char *buffer, int32_t size);
VQXML_API int32_t VQXML_getSubValue(VQHANDLE modelElement, VQHANDLE targetElement,
                                    const char *path, int32_t index, char *buffer,
                                    int32_t size);
/* As VQXML_getSubValue, but a time shows as "YYYY.MM.DD hh:mm:ss" and a
 * traffic light as "green", "yellow" or "red". */
VQXML_API int32_t VQXML_getTypedSubValue(VQHANDLE modelElement, VQHANDLE targetElement,
                                         const char *path, int32_t index, char *buffer,
                                         int32_t size);
/* The number of occurrences of the item at path. */
VQXML_API int32_t VQXML_getParCount(VQHANDLE model, VQHANDLE query, const char *path);
VQXML_API int32_t VQXML_getDatCount(VQHANDLE model, VQHANDLE answer, const char *path);
/* The model item at a '.'-separated DESC path (no indices); a Document
 * starts at its "PAR" (kind 0) or "DAT" element. */
VQXML_API VQHANDLE VQXML_getSubModel(VQHANDLE node, int32_t kind, const char *descPath);
/* The element of a query or answer (or below d) that corresponds to the
 * model element m, its index-th occurrence at the last step. */
VQXML_API VQHANDLE VQXML_getSub(VQHANDLE d, VQHANDLE m, int32_t index, int32_t kind);
VQXML_API VQHANDLE VQXML_getSubQuery(VQHANDLE d, VQHANDLE m, int32_t index);
VQXML_API VQHANDLE VQXML_getSubAnswer(VQHANDLE d, VQHANDLE m, int32_t index);

/* ---- beautifying ---------------------------------------------------------- */

/* Indents an element's subtree in place with Text nodes of CR LF and
 * blanks: two more per level below level 59, the parent's level from 59 on,
 * at most 62 blanks. Elements with mixed content (any child other than an
 * element or a comment) are left as they are, with their subtree. */
VQXML_API void VQXML_beautifyElement(VQHANDLE element, int32_t level);
/* The document element from level 0. */
VQXML_API void VQXML_beautifyDocument(VQHANDLE document);
/* Deletes the Text children of every element in the subtree that holds no
 * CDATA section and no text other than blanks, tabs and line ends. */
VQXML_API void VQXML_unBeautifyElement(VQHANDLE element);
VQXML_API void VQXML_unBeautifyDocument(VQHANDLE document);
/* Removes the indentation text from the node's subtree (the tree changes),
 * then prints it indented; returns the full length needed, 0 for an
 * invalid node. */
VQXML_API int32_t VQXML_printBeautifyNode(VQHANDLE node, char *buffer,
                                          int32_t size);

#ifdef __cplusplus
} /* extern "C" */

inline VQHANDLE VQDOM_getImplementation() { return VQDOM_getImplementation(0); }
#endif

#endif /* VQXML_VQXML_H */
