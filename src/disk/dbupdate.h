// What the database update family shares: the model, file helpers that
// never leave a half-written file in place, and one run over an index that
// the exported entry points and the tools' drivers all go through.
#pragma once
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>
#include <vexohw/dbupdate.h>

namespace vexo::dbupdate {

inline constexpr const char *kOfflineDir = "/var/lib/offlinekit/";
inline constexpr const char *kStateDir = "/var/lib/diskdbupdate";
inline constexpr const char *kHostTimeFile = "/usr/vexo/etc/.disk_db_update_time";
inline constexpr const char *kKitVersionFile = "/usr/vexo/etc/.disk_offlinekit_version";
inline constexpr const char *kKitInfo = "/var/lib/offlinekit//INFO";
inline constexpr const char *kTemperatureKey = "temperature";

// The appliance's model (upnpmodelname), lower-cased and trimmed. false,
// with its log line, when it cannot be read.
bool model(std::string &out);

// Copies an appliance file to another, whole: written beside the target,
// flushed to disk and renamed over it. mode 0: the source's mode. false
// with errno on failure; the target is then untouched.
bool copyWhole(const std::string &from, const std::string &to, mode_t mode = 0);
// Writes text as a whole file the same way.
bool writeWhole(const std::string &path, std::string_view text);
// A decimal number from the first line of a file: 1 read, 0 missing,
// -1 cannot be opened, -2 cannot be read or holds no number.
int readNumber(const std::string &path, long long &value);
// mkdir -p of an appliance directory.
bool makeDirs(const std::string &dir, mode_t mode);
// Whether a relative path stays inside the directory it is joined to.
bool safeRelative(std::string_view rel);

// One run over an index, as VEXODiskDbDownload does it, with what the
// drivers add.
struct RunOptions {
	std::string sourceDir = kOfflineDir; // where the entries' "url" point
	bool force = false;                  // install whatever the versions say
	bool decideOnly = false;             // report what would be done, install nothing
	// Brings the file an entry names to the source directory before it is
	// installed (online); false fails that row.
	std::function<bool(const std::string &url)> fetch;
	VEXODiskDbEventFunction onEvent = nullptr;
	void *context = nullptr;
	// Out: the names of the rows installed.
	std::vector<std::string> *installed = nullptr;
};
int run(const char *jsonPath, DiskOnlineDbInfo *rows, int rowCount, const char *timeFile, int *status,
	const RunOptions &opts);

// An expansion unit's database from the kit, and every unit's: 0 updated,
// 1 nothing to do, 2 failed. opts gives the events and the force.
int unitUpdate(const char *unitModel, const RunOptions &opts);
int unitsUpdate(const RunOptions &opts);

} // namespace vexo::dbupdate
