// The exception boundary: a C++ exception thrown deep inside an entry point
// (from an allocation, or from the seams through their fault hook) comes out
// as the entry's failure value, a recorded code and one LOG_ERR line.
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>
#include <vexohw/disk_enum.h>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/disk_map.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/nvme_location.h>

#include "frame/boundary.h"
#include "support/vexotest.h"

namespace {

enum class Fault { None, NoMemory, Parse, Other };
Fault gFault = Fault::None;
int gCountdown = 0; // throws at the site that brings it to 0
int gCalls = 0;
bool gCounting = false; // allocations are counted (and may fail) only inside an entry
int gAllocs = 0;

} // namespace

// Allocation failure strikes any allocation of the entry's body.
void *operator new(std::size_t n)
{
	if (gCounting) {
		++gAllocs;
		if (gFault == Fault::NoMemory && --gCountdown == 0) {
			gFault = Fault::None;
			throw std::bad_alloc();
		}
	}
	if (void *p = std::malloc(n ? n : 1))
		return p;
	throw std::bad_alloc();
}
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void *p) noexcept { std::free(p); }
void operator delete(void *p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

// The seams' fault point: a parse failure or another exception strikes
// where documents are read and programs run.
extern "C" void vexoFaultPoint(const char *)
{
	++gCalls;
	if ((gFault != Fault::Parse && gFault != Fault::Other) || --gCountdown > 0)
		return;
	const Fault f = gFault;
	gFault = Fault::None;
	if (f == Fault::Parse)
		throw vexo::ParseError("unexpected token");
	throw std::runtime_error("disk on fire");
}

namespace {

using vexo::test::LogCapture;

struct Entry {
	const char *name;
	const char *catcher; // the source path in the line
	long long fail;
	std::function<long long()> call;
};

long long ptr(const void *p) { return p ? 1 : 0; }

const Entry kEntries[] = {
	// The debug family is left out: its bodies only call other entries
	// until a drive has answered.
	{"DiskIsExistInCache", "disk/disk_is_exist_in_cache", 0, [] { return DiskIsExistInCache("/dev/sda"); }},
	{"DiskIndexAndSlotGet", "disk/disk_index_and_slot_get", -1,
	 [] { int p = 0, s = 0; return DiskIndexAndSlotGet("/dev/sda", &p, &s); }},
	{"VEXOEnumAllEUnitsDisks", "external/enum_all_eunits_disks", -1,
	 [] { char n[256]; return VEXOEnumAllEUnitsDisks(0, n, sizeof(n)); }},
	{"VEXOGetDiskDriver", "disk/get_disk_driver", VEXO_DISK_DRIVER_OTHER, [] { return VEXOGetDiskDriver("/dev/sda"); }},
	{"VEXODiskIsSata", "disk/disk_is_sata", -1, [] { return VEXODiskIsSata("/dev/sda"); }},
	{"VEXODiskGetIntValueCacheFile", "disk/disk_get_cache_file", -1,
	 [] { int v = 0; return VEXODiskGetIntValueCacheFile("/dev/sda", "model", &v); }},
	{"SmartInfoCacheGet", "smartctl/smart_info_cache_get", -1,
	 [] { SmartInfoEntry *l = nullptr; return SmartInfoCacheGet("sda", &l); }},
	{"SmartFirmAndSerialRead", "smartctl/smart_firm_and_serial_read", -1,
	 [] { char f[16], s[32]; return SmartFirmAndSerialRead("/dev/sda", f, sizeof(f), s, sizeof(s)); }},
	{"VEXODiskTemperatureGetFromCache", "smartctl/disk_temperature_get", -1,
	 [] { return VEXODiskTemperatureGetFromCache("sda"); }},
	{"SmartIdentifyRead", "smartctl/smart_identify_read", -1,
	 [] { unsigned char id[512]; return SmartIdentifyRead("/dev/sda", id); }},
	{"VLIBCFileGetKeyValue", "core/file_get_key_value", -1,
	 [] { char v[16]; return VLIBCFileGetKeyValue("/etc/vexoinfo.conf", "k", v, sizeof(v), 0); }},
	{"VEXODiskPhysicalDiskNameListGet", "diskmap/disk_physical_disk_name_list_get", -1,
	 [] {
		 PVLIBSZLIST l = VLIBCSzListAlloc(4);
		 int rc = VEXODiskPhysicalDiskNameListGet("/dev/md0", &l);
		 VLIBCSzListFree(l);
		 return rc;
	 }},
	{"VEXOPcieEunitUniqueGetByDevPath", "ebox/pcie_eunit_unique_get_by_dev_path", -1,
	 [] { char u[32]; return VEXOPcieEunitUniqueGetByDevPath("/dev/sda", u, sizeof(u)); }},
	{"VEXODBConnect", "logdb/db_select", 0, [] { return ptr(VEXODBConnect("/var/log/x.db", 0)); }},
	{"VEXONVMeTemperatureGet", "nvme/nvme_admin_log_get", -1, [] { return VEXONVMeTemperatureGet("/dev/nvme0n1"); }},
	{"VEXONVMeDevLocGet", "nvme/nvme_dev_loc_get", -1,
	 [] { int s = 0, l = 0; return VEXONVMeDevLocGet("/dev/nvme0n1", &s, &l); }},
};

struct Kind {
	Fault fault;
	int code;
	const char *what;
};
const Kind kKinds[] = {
	{Fault::NoMemory, VEXO_ERR_NOMEM, "out of memory"},
	{Fault::Parse, VEXO_ERR_READ, "unexpected token"},
	{Fault::Other, VEXO_ERR_INTERNAL, "disk on fire"},
};

// Nested entries have boundaries of their own, so the throw moves from one
// seam call of the entry to the next until it lands in the entry's own body.
TEST(ExceptionBoundary, EveryFamilyReturnsItsFailure)
{
	vexo::test::Sysroot root;
	for (const Entry &e : kEntries) {
		gCalls = gAllocs = 0;
		gCounting = true;
		e.call();
		gCounting = false;
		for (const Kind &k : kKinds) {
			SCOPED_TRACE(std::string(e.name) + " / " + k.what);
			const int calls = k.fault == Fault::NoMemory ? gAllocs : gCalls;
			bool landed = false;
			for (int n = 1; n <= calls && !landed; ++n) {
				LogCapture log;
				VLIBCErrClear();
				gFault = k.fault;
				gCountdown = n;
				long long rc = 0;
				gCounting = true;
				EXPECT_NO_THROW(rc = e.call());
				gCounting = false;
				if (gFault != Fault::None) { // fewer sites than in the first run
					gFault = Fault::None;
					break;
				}
				int hits = 0;
				std::string text;
				for (const auto &l : log.lines())
					if (l.priority == LOG_ERR && l.text.find("exception caught at the interface: ") != std::string::npos) {
						++hits;
						text = l.text;
					}
				ASSERT_EQ(hits, 1) << log.dump();
				EXPECT_NE(text.find(k.what), std::string::npos) << text;
				if (text.rfind(std::string(e.catcher) + ":", 0) != 0)
					continue;
				landed = true;
				EXPECT_EQ(rc, e.fail);
				EXPECT_ERR(k.code);
			}
			EXPECT_TRUE(landed) << "no seam call of its own in " << calls;
		}
	}
	gFault = Fault::None;
}

} // namespace
