// parser.h - the recursive-descent parser: document content, the prolog and
// the internal document type definition, and the path tokenizer. Each parse
// function returns what it built (or 1 where nothing is built) and 0 on
// failure, after recording its message on the main error list.
#ifndef VQXML_PARSER_PARSER_H
#define VQXML_PARSER_PARSER_H

#include <cstdint>

#include "vqxml/parser/source.h"
#include "vqxml/vqxml.h"

// Token of the path tokenizer.
struct XToken {
    int32_t kind;       // -1 none/bad, 0 end, 1 string, 2 number, 3 punct, 4 name
    const char *start;  // contents of a string, or the name
    uint32_t value;     // length (1, 4), number (2), character (3)
};

extern "C" {

// Path tokenizer: reads one token, returns the position behind it.
VQXML_API const char *nextXToken(const char *text, XToken *token);

// Content (document and fragment).
VQXML_API int parseMisc(Source *source, VQHANDLE parent);
VQXML_API VQHANDLE parseElement(Source *source);
VQXML_API VQHANDLE parseContent(Source *source, int inElement);
VQXML_API VQHANDLE parseCharData(Source *source);
VQXML_API int okCharData(Source *source);
VQXML_API VQHANDLE parseReference(Source *source, int inContent);
VQXML_API uint32_t parseNumber(Source *source);
VQXML_API VQHANDLE parseAttValue(Source *source, VQHANDLE attr, VQHANDLE attDef);
VQXML_API VQHANDLE parseComment(Source *source);
VQXML_API int okCommentData(Source *source);
VQXML_API int startComment(Source *source);
VQXML_API VQHANDLE parseProcInst(Source *source);
VQXML_API VQHANDLE parseCDSect(Source *source);
VQXML_API int okCData(Source *source);
VQXML_API VQHANDLE replacementText(Source *source, VQHANDLE doctype);
VQXML_API VQHANDLE parseName(Source *source);
VQXML_API int parseSpace(Source *source, int required);
VQXML_API int parseCharErr(Source *source, int character);
VQXML_API int parseWordErr(Source *source, const char *word);

// Prolog and document type definition.
VQXML_API int startXMLDecl(Source *source);
VQXML_API int startConditionalSect(Source *source);
VQXML_API int parseWords(Source *source, const char *const *table);
VQXML_API int parseWordEqual(Source *source, const char *word);
VQXML_API VQHANDLE parseVersionInfo(Source *source);
VQXML_API VQHANDLE parseEncodingDecl(Source *source);
VQXML_API VQHANDLE parseLiteral(Source *source, int (*charClass)(int),
                                const char *what);
VQXML_API VQHANDLE parseExternalID(Source *source, int systemRequired);
VQXML_API VQHANDLE parseMarkupDecl(Source *source);
VQXML_API int parseContentSpec(Source *source, VQHANDLE elementDecl);
VQXML_API int parseAttType(Source *source, VQHANDLE attDef);
VQXML_API int parseDefaultDecl(Source *source, VQHANDLE attDef);
VQXML_API VQHANDLE parseCP(Source *source, int nested);
VQXML_API int parsePEReference(Source *source, VQHANDLE entityReference,
                               int setName);
VQXML_API int parsePE(VQHANDLE document, VQHANDLE entity,
                      VQHANDLE entityReference);
VQXML_API int parseExtSubsetDecl(Source *source, VQHANDLE parent,
                                 int conditionalAllowed);
VQXML_API int parseIgnore(Source *source);
VQXML_API int parseIgnoreSectContents(Source *source);

}  // extern "C"

namespace vqxml {

// The prolog steps that VQXML_parse calls: the XML declaration (returns the
// XmlDecl handle or 0) and the document type declaration with its internal
// and external subsets (returns 1 or 0; the DocumentType is appended to the
// document, and deleted again on failure).
VQHANDLE parseXmlDecl(Source *source);
int parseDoctypeDecl(Source *source, VQHANDLE document);

}  // namespace vqxml

#endif  // VQXML_PARSER_PARSER_H
