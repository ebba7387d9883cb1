// The slots every family shares: answers from the unit's host info.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ebox/ebox_private.h"
#include "frame/err.h"

namespace vexo::ebox {
namespace {

constexpr int kListMax = 2048;

std::vector<std::string> deviceList(VEXO_EBOX_HANDLE_T *h)
{
	char list[kListMax] = {};
	std::vector<std::string> out;
	if (!VEXOEBoxHostInfoGet("vexo_device_list", h->info_path, list, sizeof(list)))
		return out;
	std::string cur;
	for (const char *p = list;; ++p) {
		if (!*p || *p == ' ' || *p == ',' || *p == '\t') {
			if (!cur.empty())
				out.push_back(cur);
			cur.clear();
			if (!*p)
				break;
		} else {
			cur += *p;
		}
	}
	return out;
}

int copyOut(const std::string &v, char *buf, int size)
{
	if (!buf || size <= 0 || v.size() >= static_cast<size_t>(size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memcpy(buf, v.c_str(), v.size() + 1);
	return 0;
}

int infoSlot(VEXO_EBOX_HANDLE_T *h, const char *key, char *buf, int size)
{
	if (!h || !buf || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (!VEXOEBoxHostInfoGet(key, h->info_path, buf, size)) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return 0;
}

} // namespace

int vendorNameGet(VEXO_EBOX_HANDLE_T *h, char *buf, int size) { return infoSlot(h, "vendor", buf, size); }
int deviceIdGet(VEXO_EBOX_HANDLE_T *h, char *buf, int size) { return infoSlot(h, "deviceid", buf, size); }

int diskPathGet(VEXO_EBOX_HANDLE_T *h, int disk, char *buf, int size)
{
	if (!h || disk < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	auto list = deviceList(h);
	if (static_cast<size_t>(disk) > list.size()) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return copyOut(list[disk - 1], buf, size);
}

// The unit driver shows "eh_process=1" in the host info while the kernel's
// error handling works on the port; absent means idle.
int ehProcessGet(VEXO_EBOX_HANDLE_T *h, int *busy)
{
	if (!h || !busy) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char v[16] = {};
	*busy = VEXOEBoxHostInfoGet("eh_process", h->info_path, v, sizeof(v)) && std::strcmp(v, "0") != 0;
	return 0;
}

int isPmPresent(VEXO_EBOX_HANDLE_T *h)
{
	char v[32] = {};
	return h && VEXOEBoxHostInfoGet("deviceid", h->info_path, v, sizeof(v)) ? 1 : 0;
}

int maxDiskGet(VEXO_EBOX_HANDLE_T *h)
{
	if (!h) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return static_cast<int>(deviceList(h).size());
}

int pmInfoGet(VEXO_EBOX_HANDLE_T *h, const char *key, char *buf, int size) { return infoSlot(h, key, buf, size); }

int hostInfoDeviceUniqueGet(VEXO_EBOX_HANDLE_T *h, char *buf, int size) { return infoSlot(h, "Unique", buf, size); }

void fillCommon(VEXO_EBOX_HANDLE_T *h)
{
	h->VendorNameGet = vendorNameGet;
	h->DeviceIDGet = deviceIdGet;
	h->DiskPathGet = diskPathGet;
	h->EHProcessGet = ehProcessGet;
	h->IsPMPresent = isPmPresent;
	h->MaxDiskGet = maxDiskGet;
	h->Wait = semWait;
	h->Signal = semSignal;
}

} // namespace vexo::ebox
