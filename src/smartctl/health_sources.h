// The health sources the verdict adds up, each in one place. A source whose
// family has nothing to say for a disk gives what an absent source gives:
// weight 0 and no finding.
#pragma once

#include <string>

#include "frame/path_read.h"

namespace vexo::health {

// Life and media answers of the overlay (remaining life and SSD bad blocks).
struct LifeAnswers {
	bool haveAttr = false; // the disk's health attributes could be read
	int badSectors = 0;
	int remainLife = -1;
	bool belowThreshold = false, danger = false, belowShow = false, belowMail = false;
	bool vexology = false, readOnly = false, badBlockOver = false;
};
LifeAnswers lifeAnswers(const char *path);

// Compatibility rules: whether the disk's attribute findings are ignored.
bool smartAttributeIgnorable(const char *path);

// NVMe warnings: the critical warning bitmap and the percentage used, from
// the health log (page 2). false when the drive can't be asked.
bool nvmeCriticalWarning(const char *path, unsigned &bitmap);
bool nvmePercentageUsed(const char *path, unsigned &percent);

// The other weights of the overview. `cache` is the disk's open cache
// folder when only cached values may be read (one open for all of them),
// null otherwise. Each is 0, or -1 when its source failed.
int advWeight(const char *path, const vexo::PathDir *cache, std::string *advStatus);
int wddaWeight(const char *path, const vexo::PathDir *cache);
int ssdBundleWeight(const char *path, const vexo::PathDir *cache);
int errorTimeoutWeight(const char *path, const vexo::PathDir *cache);
int errorResetFailWeight(const char *path, const vexo::PathDir *cache);
int errorUncWeight(const char *path, const vexo::PathDir *cache);

} // namespace vexo::health
