// The disk overview document's tests: a sysroot with emulated drives in
// internal bays, and readers of what landed in the document and the log.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vexohw/disk_overview.h>
#include <vexoplatform/logdb.h>

#include "frame/xml.h"
#include "disk/overview_doc.h"
#include "smartctl/drive_sim.h"

namespace vexo::test {

inline const bool kOverviewBackend = installDriveEmulator();

class OverviewDoc : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		ASSERT_TRUE(kOverviewBackend);
		root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xf"}, {"usbportcfg", "0xff0000"},
							  {"esataportcfg", "0x0"}, {"upnpmodelname", "VX1222"}});
		root.write("/bin/xz", "#!/bin/sh\nexec xz \"$@\"\n", 0755);
		root.mkdirs("/var/log");
		root.mkdirs("/run/lock");
		root.mkdirs("/var/run");
	}
	// A drive with this serial in internal bay `bay` (sda is bay 1).
	std::string disk(int bay, const std::string &serial, const std::string &model = "VEXO HAT5300-8T")
	{
		std::string name = std::string("sd") + char('a' + bay - 1);
		DiskLayout(root).sata(name, bay);
		node(name, R"({"protocol":"ata","model":")" + model + R"(","serial":")" + serial + R"(","firmware":"SC60"})");
		root.write("/sys/block/" + name + "/device/model", model + "\n");
		return "/dev/" + name;
	}
	std::string doc() const { return root.read(VEXO_DISK_OVERVIEW_XML); }
	// One child's text of a serial's element ("" when none).
	std::string at(const std::string &serial, const char *name) const
	{
		vexo::xml::Doc d = vexo::xml::readFile(VEXO_DISK_OVERVIEW_XML);
		xmlNode *e = d ? vexo::overview::diskElement(d, serial) : nullptr;
		return e ? vexo::overview::text(vexo::overview::child(e, name)) : "";
	}
	// The notifications spooled, oldest first, each as its text.
	std::vector<std::string> mails() const
	{
		std::set<std::string> names;
		std::error_code ec;
		for (const auto &e : std::filesystem::directory_iterator(root.host("/var/spool/vexonotify"), ec))
			names.insert(e.path().filename().string());
		std::vector<std::string> out;
		for (const auto &n : names)
			out.push_back(root.read("/var/spool/vexonotify/" + n));
		return out;
	}
	// The disk events logged: "msg model serial info" per row.
	std::vector<std::string> events() const
	{
		std::vector<std::string> out;
		VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, 0);
		VEXODB_RESULT *r = db ? VEXODBSelect(db, "SELECT msg, model, serial, info FROM logs ORDER BY rowid") : nullptr;
		while (r && VEXODBFetchRow(r) == 1) {
			std::string row;
			for (const char *c : {"msg", "model", "serial", "info"}) {
				const char *v = VEXODBFetchField(r, c);
				row += (row.empty() ? "" : "|") + std::string(v ? v : "");
			}
			out.push_back(row);
		}
		VEXODBFreeResult(r);
		VEXODBClose(db);
		return out;
	}
	static DiskListNode *list(const std::vector<std::string> &paths)
	{
		DiskListNode *head = nullptr, **tail = &head;
		for (const std::string &p : paths) {
			auto *info = static_cast<DiskInfo *>(std::calloc(1, sizeof(SharedDiskInfo)));
			std::snprintf(info->path, sizeof(info->path), "%s", p.c_str());
			std::snprintf(info->model, sizeof(info->model), "VEXO HAT5300-8T ");
			*tail = static_cast<DiskListNode *>(std::calloc(1, sizeof(DiskListNode)));
			(*tail)->info = info;
			tail = &(*tail)->next;
		}
		return head;
	}
};

} // namespace vexo::test
