// prolog.cpp - placeholder until the prolog parser lands.
#include "vqxml/parser/parser.h"

extern "C" int startXMLDecl(Source *) { return 0; }
extern "C" VQHANDLE parseVersionInfo(Source *) { return 0; }
extern "C" int parseWordEqual(Source *, const char *) { return 0; }
extern "C" VQHANDLE parseEncodingDecl(Source *) { return 0; }
extern "C" int parseWordErr(Source *, const char *) { return 0; }
