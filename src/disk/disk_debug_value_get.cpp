// Debug overrides: a test rig makes a disk report invented values through
// the section of /tmp/.disk_status_debug named by the disk's true serial.
// Every reader goes through one lookup, gated by the product.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vexohw/disk_debug.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/list.h"
#include "frame/text.h"

namespace {

enum class Debug { SmartInfo, LatestTestType, AdvCode, Unc, Life, Temperature, CritWarning, PercentageUsed };

struct DebugKey {
	Debug what;
	const char *key;
	int base; // numbers: strtol base; 0 for text
};

// The keys of the override file. The self-test results take their key from
// the caller (smart_test_quick, smart_test_extend, smart_test).
constexpr DebugKey kDebugKeys[] = {
	{Debug::SmartInfo, "smart_info", 0},
	{Debug::LatestTestType, "latest_test_type", 0},
	{Debug::AdvCode, "adv_code", 0},
	{Debug::Unc, "unc", 10},
	{Debug::Life, "life", 10},
	{Debug::Temperature, "temp", 10},
	{Debug::CritWarning, "crit", 16},
	{Debug::PercentageUsed, "perc_used", 10},
};

constexpr const DebugKey &keyOf(Debug d)
{
	for (const auto &k : kDebugKeys)
		if (k.what == d)
			return k;
	return kDebugKeys[0];
}

struct Word {
	const char *text;
	int value;
};
constexpr Word kTestResults[] = {{"completed", 1}, {"aborted", 2}, {"interrupted", 3}, {"damage", 4}, {"none", 6}};
constexpr Word kTestTypes[] = {{"quick", 1}, {"extend", 2}};

struct Hash {
	PVLIBSZHASH p = nullptr;
	Hash() = default;
	Hash(const Hash &) = delete;
	Hash &operator=(const Hash &) = delete;
	~Hash() { VLIBCSzHashFree(p); }
};

// 1 and the text when the disk's section holds key, 0 when not, -1 on
// failure.
int DebugValueGet(const char *path, const char *key, std::string &value)
{
	if (!path || !key) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!VLIBCSupportDiskStatusDebug())
		return 0;
	char firmware[64], serial[256];
	if (SmartFirmAndSerialRead(path, firmware, sizeof(firmware), serial, sizeof(serial)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get serial of %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	Hash section;
	section.p = VLIBCSzHashAlloc(8);
	if (!section.p) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	// No file, or no section for this disk: nothing is overridden.
	if (VLIBCFileGetSection(VEXO_DISK_STATUS_DEBUG_FILE, serial, &section.p) < 0)
		return 0;
	const char *v = VLIBCSzHashGetValue(section.p, key);
	if (!v)
		return 0;
	value = v;
	return 1;
}

// A number of the override, or 0 when strtol rejects it.
int DebugNumberGet(const char *path, Debug what, long min, long max, long &out)
{
	const DebugKey &k = keyOf(what);
	std::string text;
	int r = DebugValueGet(path, k.key, text);
	if (r != 1)
		return r;
	errno = 0;
	char *end = nullptr;
	long v = std::strtol(text.c_str(), &end, k.base);
	if (end == text.c_str())
		errno = EINVAL; // no digits at all
	else if (errno == 0 && (v < min || v > max))
		errno = ERANGE;
	if (errno == ERANGE || errno == EINVAL) {
		vlog(LOG_ERR, "%s:%d Bad number [%s] of %s for %s", VEXO_AT, text.c_str(), k.key, path);
		return 0;
	}
	out = v;
	return 1;
}

int DebugWordGet(const char *path, const char *key, const Word *words, size_t count, int *out)
{
	if (!out) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string text;
	int r = DebugValueGet(path, key, text);
	if (r != 1)
		return r;
	for (size_t i = 0; i < count; ++i)
		if (text == words[i].text) {
			*out = words[i].value;
			return 1;
		}
	vlog(LOG_ERR, "%s:%d Unknown value [%s] of %s for %s", VEXO_AT, text.c_str(), key, path);
	return 0;
}

int DebugUnsignedGet(const char *path, Debug what, long max, unsigned int *out)
{
	if (!out) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	long v = 0;
	int r = DebugNumberGet(path, what, 0, max, v);
	if (r == 1)
		*out = static_cast<unsigned int>(v);
	return r;
}

char *copyText(const char *s, size_t n)
{
	char *p = static_cast<char *>(std::malloc(n + 1));
	if (p) {
		std::memcpy(p, s, n);
		p[n] = '\0';
	}
	return p;
}

// One "#id, value, worst, threshold, raw" entry; null when it doesn't parse
// or memory runs out (then *oom is set).
SmartInfoEntry *parseEntry(const std::string &text, bool *oom)
{
	// Each field is shorter than the entry itself.
	std::string f[5];
	for (auto &s : f)
		s.assign(text.size() + 1, '\0');
	if (std::sscanf(text.c_str(), "#%[^,], %[^,], %[^,], %[^,], %[^;]", f[0].data(), f[1].data(), f[2].data(),
			f[3].data(), f[4].data()) != 5)
		return nullptr;
	auto *e = static_cast<SmartInfoEntry *>(std::calloc(1, sizeof(SmartInfoEntry)));
	if (!e) {
		*oom = true;
		return nullptr;
	}
	char **fields[5] = {&e->id, &e->value, &e->worst, &e->threshold, &e->raw};
	for (int i = 0; i < 5; ++i) {
		size_t n = std::strlen(f[i].c_str());
		while (n > 0 && (f[i][n - 1] == ' ' || f[i][n - 1] == '\t'))
			--n;
		*fields[i] = copyText(f[i].c_str(), n);
		if (!*fields[i]) {
			*oom = true;
			VEXODiskSmartInfoFree(e);
			return nullptr;
		}
	}
	return e;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskDebugSmartInfoListGet(const char *path, SmartInfoEntry **list)
try {
	if (!list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string text;
	int r = DebugValueGet(path, keyOf(Debug::SmartInfo).key, text);
	if (r != 1)
		return r;
	vexo::ListBuilder<SmartInfoEntry, VEXODiskSmartInfoFree> entries;
	size_t start = 0;
	while (start <= text.size()) {
		size_t end = text.find(';', start);
		std::string one = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
		size_t lead = one.find_first_not_of(" \t");
		one = lead == std::string::npos ? std::string() : one.substr(lead);
		if (!one.empty()) {
			bool oom = false;
			SmartInfoEntry *e = parseEntry(one, &oom);
			if (oom) {
				VEXO_ERR(VEXO_ERR_LIST_ALLOC);
				return -1;
			}
			if (e) {
				entries.append(e);
			} else {
				vlog(LOG_ERR, "%s:%d Bad smart_info entry [%s] for %s", VEXO_AT, one.c_str(), path);
			}
		}
		if (end == std::string::npos)
			break;
		start = end + 1;
	}
	*list = entries.release();
	return 1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDebugSmartTestResultGet(const char *path, const char *key, int *result)
try {
	return DebugWordGet(path, key, kTestResults, std::size(kTestResults), result);
} VEXO_C_CATCH(-1)

VEXO_API int SMARTDiskDebugSmartLatestTestTypeGet(const char *path, int *type)
try {
	return DebugWordGet(path, keyOf(Debug::LatestTestType).key, kTestTypes, std::size(kTestTypes), type);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDebugAdvTestCodeGet(const char *path, char *code, int size)
try {
	if (!code || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string text;
	int r = DebugValueGet(path, keyOf(Debug::AdvCode).key, text);
	if (r == 1 && !VEXO_COPY_OUT(code, size, text, "test code"))
		return -1;
	return r;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDebugUncGet(const char *path, unsigned int *unc)
try {
	return DebugUnsignedGet(path, Debug::Unc, UINT_MAX, unc);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDebugLifeGet(const char *path, unsigned int *life)
try {
	return DebugUnsignedGet(path, Debug::Life, UINT_MAX, life);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDebugTemperatureGet(const char *path, int *temperature)
try {
	if (!temperature) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	long v = 0;
	int r = DebugNumberGet(path, Debug::Temperature, INT_MIN, INT_MAX, v);
	if (r == 1)
		*temperature = static_cast<int>(v);
	return r;
} VEXO_C_CATCH(-1)

VEXO_API int VEXONVMeDebugCritWarningGet(const char *path, unsigned int *warning)
try {
	return DebugUnsignedGet(path, Debug::CritWarning, UINT_MAX, warning);
} VEXO_C_CATCH(-1)

VEXO_API int VEXONVMeDebugPercentageUsedGet(const char *path, unsigned int *percentage)
try {
	return DebugUnsignedGet(path, Debug::PercentageUsed, UINT_MAX, percentage);
} VEXO_C_CATCH(-1)

} // extern "C"
