// printer.h - the writers of the serializer and the pretty-printer.
//
// Every writer takes the address of a write cursor and the capacity left
// (signed; 0 or less means no room) and returns the number of bytes its
// complete output needs, whether or not it fitted. Nothing is allocated.
#ifndef VQXML_DOM_PRINTER_H
#define VQXML_DOM_PRINTER_H

#include <cstdint>

#include "vqxml/vqxml.h"

extern "C" {

VQXML_API int32_t printNodeEx(VQHANDLE node, char **cursor, int32_t capacity);
VQXML_API int32_t printNodeBeatifyEx(VQHANDLE node, char **cursor,
                                     int32_t capacity, int32_t indent);
VQXML_API int32_t printString(const char *text, char **cursor, int32_t capacity);
VQXML_API int32_t printAttributes(VQHANDLE element, char **cursor, int32_t capacity);
VQXML_API int32_t printAttValue(VQHANDLE attribute, char **cursor, int32_t capacity);
VQXML_API int32_t printEntityRef(VQHANDLE reference, char **cursor, int32_t capacity);
VQXML_API int32_t printCDATASection(VQHANDLE node, char **cursor, int32_t capacity);
VQXML_API int32_t printXmlDecl(VQHANDLE xmlDecl, char **cursor, int32_t capacity);
VQXML_API int32_t printDocumentType(VQHANDLE doctype, char **cursor, int32_t capacity);
VQXML_API int32_t printExternalID(VQHANDLE externalId, char **cursor, int32_t capacity);
VQXML_API int32_t printEntity(VQHANDLE entity, char **cursor, int32_t capacity);
VQXML_API int32_t printNotation(VQHANDLE notation, char **cursor, int32_t capacity);
VQXML_API int32_t printElementDecl(VQHANDLE decl, char **cursor, int32_t capacity);
VQXML_API int32_t printCpChildren(VQHANDLE particle, char **cursor, int32_t capacity);
VQXML_API int32_t printAttlistDecl(VQHANDLE decl, char **cursor, int32_t capacity);

}  // extern "C"

#endif  // VQXML_DOM_PRINTER_H
