// libxml2 on first use: the functions the library calls (see lazy_lib.h).
#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlstring.h>
#include <libxml/xpath.h>

#include "frame/lazy_lib.h"

using vexo::lazy::libxml2;

namespace {

// xmlFree is a variable holding libxml2's release function.
void freeFirstUse(void *p)
{
	static const auto real = reinterpret_cast<xmlFreeFunc *>(libxml2().symbol("xmlFree"));
	if (real && *real)
		(*real)(p);
}

} // namespace

#pragma GCC visibility push(hidden)
extern "C" {

xmlFreeFunc xmlFree = freeFirstUse;

xmlDocPtr xmlReadFile(const char *url, const char *encoding, int options)
{
	VEXO_LAZY_CALL(libxml2(), xmlReadFile, nullptr, url, encoding, options);
}

xmlNodePtr xmlDocGetRootElement(const xmlDoc *doc)
{
	VEXO_LAZY_CALL(libxml2(), xmlDocGetRootElement, nullptr, doc);
}

xmlDocPtr xmlReadMemory(const char *buffer, int size, const char *url, const char *encoding, int options)
{
	VEXO_LAZY_CALL(libxml2(), xmlReadMemory, nullptr, buffer, size, url, encoding, options);
}

xmlXPathContextPtr xmlXPathNewContext(xmlDocPtr doc)
{
	VEXO_LAZY_CALL(libxml2(), xmlXPathNewContext, nullptr, doc);
}

xmlXPathObjectPtr xmlXPathEvalExpression(const xmlChar *expr, xmlXPathContextPtr ctx)
{
	VEXO_LAZY_CALL(libxml2(), xmlXPathEvalExpression, nullptr, expr, ctx);
}

void xmlXPathFreeObject(xmlXPathObjectPtr obj)
{
	VEXO_LAZY_CALL(libxml2(), xmlXPathFreeObject, , obj);
}

void xmlFreeDoc(xmlDocPtr doc)
{
	VEXO_LAZY_CALL(libxml2(), xmlFreeDoc, , doc);
}

xmlChar *xmlGetProp(const xmlNode *node, const xmlChar *name)
{
	VEXO_LAZY_CALL(libxml2(), xmlGetProp, nullptr, node, name);
}

int xmlStrcmp(const xmlChar *a, const xmlChar *b)
{
	VEXO_LAZY_CALL(libxml2(), xmlStrcmp, a == b ? 0 : 1, a, b);
}

// The writers of the documents the library keeps.
xmlDocPtr xmlNewDoc(const xmlChar *version) { VEXO_LAZY_CALL(libxml2(), xmlNewDoc, nullptr, version); }
xmlNodePtr xmlNewNode(xmlNsPtr ns, const xmlChar *name) { VEXO_LAZY_CALL(libxml2(), xmlNewNode, nullptr, ns, name); }
xmlAttrPtr xmlNewProp(xmlNodePtr node, const xmlChar *name, const xmlChar *value)
{
	VEXO_LAZY_CALL(libxml2(), xmlNewProp, nullptr, node, name, value);
}
xmlNodePtr xmlNewTextChild(xmlNodePtr parent, xmlNsPtr ns, const xmlChar *name, const xmlChar *content)
{
	VEXO_LAZY_CALL(libxml2(), xmlNewTextChild, nullptr, parent, ns, name, content);
}
xmlNodePtr xmlDocSetRootElement(xmlDocPtr doc, xmlNodePtr root)
{
	VEXO_LAZY_CALL(libxml2(), xmlDocSetRootElement, nullptr, doc, root);
}
xmlChar *xmlNodeGetContent(const xmlNode *node) { VEXO_LAZY_CALL(libxml2(), xmlNodeGetContent, nullptr, node); }
int xmlKeepBlanksDefault(int val) { VEXO_LAZY_CALL(libxml2(), xmlKeepBlanksDefault, 1, val); }
int xmlSaveFormatFileEnc(const char *file, xmlDocPtr doc, const char *encoding, int format)
{
	VEXO_LAZY_CALL(libxml2(), xmlSaveFormatFileEnc, -1, file, doc, encoding, format);
}

// The disk overview document's edits.
void xmlXPathFreeContext(xmlXPathContextPtr ctx) { VEXO_LAZY_CALL(libxml2(), xmlXPathFreeContext, , ctx); }
void xmlNodeSetContent(xmlNodePtr node, const xmlChar *content)
{
	VEXO_LAZY_CALL(libxml2(), xmlNodeSetContent, , node, content);
}
void xmlNodeAddContent(xmlNodePtr node, const xmlChar *content)
{
	VEXO_LAZY_CALL(libxml2(), xmlNodeAddContent, , node, content);
}
xmlNodePtr xmlAddChild(xmlNodePtr parent, xmlNodePtr cur) { VEXO_LAZY_CALL(libxml2(), xmlAddChild, nullptr, parent, cur); }
xmlNodePtr xmlAddPrevSibling(xmlNodePtr cur, xmlNodePtr elem)
{
	VEXO_LAZY_CALL(libxml2(), xmlAddPrevSibling, nullptr, cur, elem);
}
void xmlUnlinkNode(xmlNodePtr cur) { VEXO_LAZY_CALL(libxml2(), xmlUnlinkNode, , cur); }
void xmlFreeNode(xmlNodePtr cur) { VEXO_LAZY_CALL(libxml2(), xmlFreeNode, , cur); }

} // extern "C"
#pragma GCC visibility pop
