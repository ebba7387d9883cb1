// Scope-bound owners for libxml2 documents, XPath contexts and objects, and
// the strings libxml2 hands out, with the reading the library always wants:
// a file through the sysroot seam, no network, no entity expansion and no
// messages on stderr.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>
#include <string>

namespace vexo::xml {

struct DocFree {
	void operator()(xmlDoc *d) const { xmlFreeDoc(d); }
};
struct ContextFree {
	void operator()(xmlXPathContext *c) const { xmlXPathFreeContext(c); }
};
struct ObjectFree {
	void operator()(xmlXPathObject *o) const { xmlXPathFreeObject(o); }
};
struct TextFree {
	void operator()(xmlChar *s) const { xmlFree(s); }
};

using Doc = std::unique_ptr<xmlDoc, DocFree>;
using XPathContext = std::unique_ptr<xmlXPathContext, ContextFree>;
using XPathObject = std::unique_ptr<xmlXPathObject, ObjectFree>;
using Text = std::unique_ptr<xmlChar, TextFree>;

inline constexpr int kReadOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

// The document at an appliance path; null when it cannot be found (*missing
// set, errno from stat) or does not parse (a directory does not either).
Doc readFile(const char *appliancePath, bool *missing = nullptr, int options = kReadOptions);
// A document from memory.
Doc readMemory(std::string_view text, int options = kReadOptions);

// The root element when its name is `name`, else null.
xmlNode *root(const Doc &doc, const char *name);
// Whether n is an element named `name`.
bool named(const xmlNode *n, const char *name);
// An attribute's text, owned.
Text prop(const xmlNode *n, const char *name);
// An attribute's text as a string; nullopt when absent.
std::optional<std::string> propString(const xmlNode *n, const char *name);

// An XPath query over a document: the context and the result are freed
// with the scope. Null when the expression is bad or memory ran out.
class XPath {
public:
	explicit XPath(const Doc &doc);
	explicit operator bool() const { return static_cast<bool>(ctx_); }
	xmlXPathContext *get() const { return ctx_.get(); }
	XPathObject eval(const char *expr) const;
	// The nodes an expression selects (empty on any failure); the node
	// pointers live as long as the document.
	std::vector<xmlNode *> nodes(const char *expr) const;

private:
	XPathContext ctx_;
};

} // namespace vexo::xml
