// The cache readers behind <vexohw/disk_health.h>, for the cached verdict:
// `cache` is the disk's cache folder when the caller has it open (one open
// for every value it reads), null to open it here. Each returns 0, or -1
// with the code recorded; a value not published is weight 0.
#pragma once

#include "frame/path_read.h"

namespace vexo::health {

enum class ErrorSource { Timeout, ResetFail, Unc };

int errorWeightCached(ErrorSource source, const char *path, const vexo::PathDir *cache, int &weight);
// code (may be null) is the producer's, read only when asked for.
int wddaCached(const char *path, const vexo::PathDir *cache, int *code, int &weight);
int bundleWeightCached(const char *path, const vexo::PathDir *cache, int &weight);

} // namespace vexo::health
