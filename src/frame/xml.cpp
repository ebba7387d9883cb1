#include "frame/xml.h"

#include <cerrno>
#include <climits>
#include <sys/stat.h>
#include <vector>

#include "frame/sysroot.h"

namespace vexo::xml {

Doc readFile(const char *path, bool *missing, int options)
{
	std::string host = sysroot::path(path);
	struct stat st {};
	// libxml2 says nothing of why a read failed: a missing file is told apart
	// here, and a directory is never handed to the parser.
	bool gone = ::stat(host.c_str(), &st) != 0;
	if (missing)
		*missing = gone;
	if (gone)
		return nullptr;
	if (!S_ISREG(st.st_mode)) {
		errno = EINVAL;
		return nullptr;
	}
	Doc doc(xmlReadFile(host.c_str(), nullptr, options));
	if (!doc)
		errno = EINVAL;
	return doc;
}

Doc readMemory(std::string_view text, int options)
{
	if (text.size() > INT_MAX)
		return nullptr;
	return Doc(xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, options));
}

bool named(const xmlNode *n, const char *name)
{
	return n && n->type == XML_ELEMENT_NODE && xmlStrcmp(n->name, reinterpret_cast<const xmlChar *>(name)) == 0;
}

xmlNode *root(const Doc &doc, const char *name)
{
	xmlNode *top = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
	return named(top, name) ? top : nullptr;
}

Text prop(const xmlNode *n, const char *name)
{
	return Text(n ? xmlGetProp(n, reinterpret_cast<const xmlChar *>(name)) : nullptr);
}

std::optional<std::string> propString(const xmlNode *n, const char *name)
{
	Text t = prop(n, name);
	if (!t)
		return std::nullopt;
	return std::string(reinterpret_cast<const char *>(t.get()));
}

XPath::XPath(const Doc &doc) : ctx_(doc ? xmlXPathNewContext(doc.get()) : nullptr)
{
	// A bad expression is answered with null, not with lines on stderr.
	if (ctx_)
		ctx_->error = [](void *, auto *) {};
}

XPathObject XPath::eval(const char *expr) const
{
	if (!ctx_ || !expr)
		return nullptr;
	return XPathObject(xmlXPathEvalExpression(reinterpret_cast<const xmlChar *>(expr), ctx_.get()));
}

std::vector<xmlNode *> XPath::nodes(const char *expr) const
{
	std::vector<xmlNode *> out;
	XPathObject o = eval(expr);
	if (!o || o->type != XPATH_NODESET || !o->nodesetval)
		return out;
	for (int i = 0; i < o->nodesetval->nodeNr; ++i)
		out.push_back(o->nodesetval->nodeTab[i]);
	return out;
}

} // namespace vexo::xml
