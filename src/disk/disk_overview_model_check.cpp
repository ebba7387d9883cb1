// VEXODiskOverviewModelCheck: whether the appliance has ever held a disk of
// this model. A check never rebuilds the document.
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vexohw/disk_overview.h>

#include "frame/boundary.h"
#include "frame/sysroot.h"
#include "disk/overview_doc.h"

using namespace vexo::overview;

extern "C" VEXO_API int VEXODiskOverviewModelCheck(const char *model)
try {
	if (!model)
		return 0;
	char buf[32] = {};
	std::strncpy(buf, model, sizeof(buf) - 1);
	std::string want = trimmed(buf);
	struct stat st {};
	if (vexo::sysroot::stat(kDoc, &st) != 0 || st.st_size == 0)
		return 0;
	vexo::xml::Doc doc = vexo::xml::readFile(kDoc);
	xmlNode *root = vexo::xml::root(doc, "overview");
	for (xmlNode *disk = firstElement(root); disk; disk = nextElement(disk))
		if (vexo::xml::propString(disk, "model").value_or("\x01") == want)
			return 1;
	return 0;
}
VEXO_C_CATCH(0)
