// An NVMe drive's health log as named values, its warnings and remaining
// life, and the one table of value names and their ids.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <vexoplatform/nvme_smart.h>
#include <vexoplatform/vexoerr.h>

#include "frame/err.h"
#include "platform/nvme/nvme_admin_command.h"

namespace {

using namespace vexo::nvme;

constexpr unsigned kLogHealth = 0x02;
constexpr unsigned kHealthSize = 512;
constexpr int kKelvinAtZeroCelsius = 273;

enum class Form : uint8_t { Hex8, Celsius, Percent, Counter128, Minutes32, Sensor };

struct Field {
	const char *name;
	int id;
	Form form;
	std::size_t offset; // in the health log; 0 for the vendor names
};

// Every name this library gives an id: the health log's values in the log's
// order, then the vendor attributes the attribute database may name.
constexpr Field kFields[] = {
	{"Critical Warning", 1, Form::Hex8, 0},
	{"Temperature", 2, Form::Celsius, 1},
	{"Available Spare", 3, Form::Percent, 3},
	{"Available Spare Threshold", 4, Form::Percent, 4},
	{"Percentage Used", 5, Form::Percent, 5},
	{"Data Units Read", 6, Form::Counter128, 32},
	{"Data Units Written", 7, Form::Counter128, 48},
	{"Host Read Commands", 8, Form::Counter128, 64},
	{"Host Write Commands", 9, Form::Counter128, 80},
	{"Controller Busy Time", 10, Form::Counter128, 96},
	{"Power Cycles", 11, Form::Counter128, 112},
	{"Power On Hours", 12, Form::Counter128, 128},
	{"Unsafe Shutdowns", 13, Form::Counter128, 144},
	{"Media and Data Integrity Errors", 14, Form::Counter128, 160},
	{"Error Information Log Entries", 15, Form::Counter128, 176},
	{"Warning Composite Temperature Time", 16, Form::Minutes32, 192},
	{"Critical Composite Temperature Time", 17, Form::Minutes32, 196},
	{"Temperature Sensor 1", 18, Form::Sensor, 200},
	{"Temperature Sensor 2", 19, Form::Sensor, 202},
	{"Temperature Sensor 3", 20, Form::Sensor, 204},
	{"Temperature Sensor 4", 21, Form::Sensor, 206},
	{"Temperature Sensor 5", 22, Form::Sensor, 208},
	{"Temperature Sensor 6", 23, Form::Sensor, 210},
	{"Temperature Sensor 7", 24, Form::Sensor, 212},
	{"Temperature Sensor 8", 25, Form::Sensor, 214},
};
constexpr std::size_t kHealthFields = 25;

struct VendorName {
	const char *name;
	int id;
};
constexpr VendorName kVendorNames[] = {
	{"Program Fail Count", 160},      {"Erase Fail Count", 161},   {"Later Bad Block Count", 162},
	{"Factory Bad Block Count", 163}, {"Average Erase Count", 164}, {"Max Erase Count", 165},
	{"NAND Bytes Written", 166},      {"Host Bytes Written", 167}, {"Thermal Throttle Count", 168},
	{"Power Loss Protection Failures", 169},
};

uint64_t le(const uint8_t *p, int bytes)
{
	uint64_t v = 0;
	for (int i = bytes - 1; i >= 0; --i)
		v = v << 8 | p[i];
	return v;
}

// A 128-bit little-endian counter in decimal.
std::string counter128(const uint8_t *p)
{
	unsigned __int128 v = static_cast<unsigned __int128>(le(p + 8, 8)) << 64 | le(p, 8);
	if (v == 0)
		return "0";
	std::string s;
	for (; v; v /= 10)
		s.insert(s.begin(), static_cast<char>('0' + static_cast<int>(v % 10)));
	return s;
}

// The text of one value; false when the drive does not report it.
bool valueText(const Field &f, const uint8_t *log, std::string &out)
{
	char b[48];
	const uint8_t *p = log + f.offset;
	switch (f.form) {
	case Form::Hex8:
		std::snprintf(b, sizeof(b), "0x%02x", p[0]);
		break;
	case Form::Sensor:
		if (le(p, 2) == 0)
			return false;
		[[fallthrough]];
	case Form::Celsius:
		std::snprintf(b, sizeof(b), "%d Celsius", static_cast<int>(le(p, 2)) - kKelvinAtZeroCelsius);
		break;
	case Form::Percent:
		std::snprintf(b, sizeof(b), "%u%%", p[0]);
		break;
	case Form::Counter128:
		out = counter128(p);
		return true;
	case Form::Minutes32:
		std::snprintf(b, sizeof(b), "%u", static_cast<unsigned>(le(p, 4)));
		break;
	}
	out = b;
	return true;
}

bool healthLog(const char *path, uint8_t (&log)[kHealthSize])
{
	if (getLogPage(path, kLogHealth, log, kHealthSize) != 0) {
		VEXO_ERR_PASS();
		return false;
	}
	return true;
}

bool badParam(const void *a, const void *b)
{
	if (a && b)
		return false;
	VEXO_ERR(VEXO_ERR_BAD_PARAM);
	vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
	return true;
}

void freeNode(VEXONVMeSmartInfo *n)
{
	std::free(n->name);
	std::free(n->value);
	std::free(n);
}

VEXONVMeSmartInfo *newNode(const char *name, const std::string &value, int id)
{
	auto *n = static_cast<VEXONVMeSmartInfo *>(std::calloc(1, sizeof(VEXONVMeSmartInfo)));
	if (!n)
		return nullptr;
	n->name = strdup(name);
	n->value = strdup(value.c_str());
	n->id = id;
	if (!n->name || !n->value) {
		freeNode(n);
		return nullptr;
	}
	return n;
}

} // namespace

extern "C" {

VEXOP_API void VEXONVMeSmartInfoFree(VEXONVMeSmartInfo *list)
{
	while (list) {
		VEXONVMeSmartInfo *next = list->next;
		freeNode(list);
		list = next;
	}
}

VEXOP_API int VEXONVMeSmartInfoGet(const char *path, VEXONVMeSmartInfo **list)
try {
	if (badParam(path, list))
		return -1;
	if (*list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d Bad parameters: the list of %s is not empty", VEXO_AT, path);
		return -1;
	}
	uint8_t log[kHealthSize];
	if (!healthLog(path, log))
		return -1;
	VEXONVMeSmartInfo *head = nullptr, **tail = &head;
	for (std::size_t i = 0; i < kHealthFields; ++i) {
		std::string v;
		if (!valueText(kFields[i], log, v))
			continue;
		VEXONVMeSmartInfo *n = newNode(kFields[i].name, v, kFields[i].id);
		if (!n) {
			VEXONVMeSmartInfoFree(head);
			VEXO_ERR(VEXO_ERR_NOMEM);
			vlog(LOG_ERR, "%s:%d Out of memory for the health values of %s", VEXO_AT, path);
			return -1;
		}
		*tail = n;
		tail = &n->next;
	}
	*list = head;
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMeCriticalWarningGet(const char *path, unsigned int *warning)
try {
	uint8_t log[kHealthSize];
	if (badParam(path, warning) || !healthLog(path, log))
		return -1;
	*warning = log[0];
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMePercentageUsedGet(const char *path, unsigned int *percent)
try {
	uint8_t log[kHealthSize];
	if (badParam(path, percent) || !healthLog(path, log))
		return -1;
	*percent = log[5];
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMeRemainingLifeGet(const char *path, int isVexology, const char *serial, int *life, int *from)
try {
	if (badParam(path, life) || badParam(from, from))
		return -1;
	if (serial && serial[0]) {
		uint8_t id[kIdentifySize];
		if (identifyController(path, id) != 0) {
			VEXO_ERR_PASS();
			return -1;
		}
		std::string own = idText(id + kIdSn, kSnLen);
		if (own != serial) {
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			vlog(LOG_ERR, "%s:%d %s has serial [%s], not [%s]", VEXO_AT, path, own.c_str(), serial);
			return -1;
		}
	}
	uint8_t log[kHealthSize];
	if (!healthLog(path, log))
		return -1;
	if (isVexology == 1) {
		*life = log[3] > 100 ? 100 : log[3];
		*from = VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE;
	} else {
		*life = log[5] >= 100 ? 0 : 100 - log[5];
		*from = VEXO_NVME_LIFE_FROM_PERCENTAGE_USED;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMeSmartStrToID(const char *name)
try {
	if (!name)
		return 0;
	for (const Field &f : kFields)
		if (std::strcmp(f.name, name) == 0)
			return f.id;
	for (const VendorName &v : kVendorNames)
		if (std::strcmp(v.name, name) == 0)
			return v.id;
	return 0;
} VEXO_C_CATCH(0)

} // extern "C"
