// The compatibility database and rule files, parsed once per process.
//
// Database (one per enclosure, /var/lib/disk-compatibility/<name>_v7.db),
// one JSON object:
//
//   { "disk_compatbility_info": {            <- required; the key is spelled so
//       "<model or ERE pattern>": {
//         "<firmware>" | "default": {
//           "vos_ver": ["7.1", "7.2"],        <- ascending cut points "%u.%u"
//           "compatibility_interval": [       <- exactly one more than the cuts
//             {"compatibility": "support", "smart_test_ignore": false,
//              "smart_attr_ignore": false}, ... ],
//           "fw_buildnumber": 1234,           <- optional
//           "firm_bin": "name.bin" } } },
//     "DB_Mapping": [                         <- optional, newest first
//       {"time": "7.3", "str": "<word>", "mapping": "<database word>"} ] }
//
// Database words: "support", "unverified", "not_support", "for_eunit".
// A model key that is not the model itself is tried as an extended,
// case-insensitive, unanchored regular expression, keys in ascending byte
// order; an exact key always wins. Firmware keys are compared exactly, then
// "default". A version equal to a cut belongs to the interval after it.
//
// Rule file (host_rule.db, or eunit_rule.db for disks on the expansion
// port), one JSON object:
//
//   { "rules": [                              <- priority order
//       { "property": { "positive": {"<prop>": "<value>", ...},
//                       "negative": {"<prop>": "<value>", ...} },
//         "actions":  { "notification": true, "ui_compatibility": "support", ... } } ] }
//
// Properties: host_compatibility (expansion-port disks only), compatibility,
// vendor, protocol ("SATA", "SAS", "NVME", "NONE"), formfactor_size, type.
// The first rule whose positives all hold and whose negatives all fail
// wins; when none does, the last rule applies.
//
// The verdict asks the firmware status (SBDiskFirmStatusAndUpdateInfoGetByDbPath)
// and the action reader regenerates a missing action cache
// (VEXODiskCompatibilityCacheUpdateAndChecker).
//
// Both files are kept parsed per process and per path, keyed on the file's
// identity (device, inode, size, mtime, ctime): one stat per call tells
// whether a file replaced by the updater must be read again.
#pragma once

#include <cstdint>
#include <json/json.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vexo::compat {

// The four database words (gmapDiskCompatibility). False for any other word.
bool wordStatus(std::string_view word, int &status) noexcept;
// "support" ... "fw_upgrade_required" for 1..7, else "unknown".
const char *statusString(int status) noexcept;
// The reverse, whole-string; 0 for null or unknown.
int statusOf(const char *text) noexcept;

// A firmware entry of a model, as listed in the database.
struct FirmwareEntry {
	std::string firmware;	     // the key ("default" included)
	const Json::Value *node;     // the entry object, owned by the Database
	bool hasBuildNumber = false; // "fw_buildnumber" present and an integer
	int64_t buildNumber = 0;
	bool hasFirmBin = false;
	std::string firmBin;
};

class Database {
public:
	// The whole document; "disk_compatbility_info" is an object.
	const Json::Value &root() const { return root_; }
	const Json::Value &info() const { return root_["disk_compatbility_info"]; }
	// "DB_Mapping", or null when the file has none.
	const Json::Value *mapping() const;
	// The node of a model: the exact key, else the first key (byte order)
	// that matches as a pattern; null when none does. Memoised per model.
	const Json::Value *modelNode(const std::string &model, std::string *key = nullptr) const;
	// The firmware entry of a model node: the exact key, else (unless strict)
	// "default"; null when neither.
	static const Json::Value *firmwareNode(const Json::Value &modelNode, const std::string &firmware, bool strict);
	// Every firmware entry of a model (sorted by key), empty when the model
	// has no node.
	std::vector<FirmwareEntry> firmwareEntries(const std::string &model) const;

	struct Impl;
	explicit Database(Json::Value root);
	~Database();
	Database(const Database &) = delete;
	Database &operator=(const Database &) = delete;

private:
	Json::Value root_;
	std::unique_ptr<Impl> impl_;
};

enum class LoadFail : uint8_t { None, Missing, Unreadable, NotObject, NoInfo };

// The parsed database at an appliance path, from this process's cache when
// the file is unchanged. Null on failure, with why; nothing is logged.
std::shared_ptr<const Database> database(const char *appliancePath, LoadFail *why = nullptr);
// The parsed rule file likewise: the whole document when it parses as an
// object (rules not checked), else null.
std::shared_ptr<const Json::Value> ruleFile(const char *appliancePath, LoadFail *why = nullptr);
// Forgets every cached file (tests).
void dropCaches();

// The live database path of a disk under dir (which ends in "/"), with the
// messages of the lookup. False on failure.
bool dbPathOf(const char *disk, const char *dir, std::string &out);
// The rule file of a disk (expansion port or not).
const char *rulePathOf(const char *disk);

// The interval of a firmware entry for a version: its index, or -1 when the
// entry is malformed (logged) or a version is not a number.
int intervalIndex(const Json::Value &firmwareNode, const std::string &version);
// The status of a firmware entry at a version (GetCompatibilityByNode).
bool statusOfNode(const Json::Value &firmwareNode, const std::string &version, const Json::Value *mapping, int &status);

// Case-insensitive unanchored ERE match, as VEXODiskConfigMatch(text, pattern, 3, 0, 0).
bool patternMatch(const std::string &text, const std::string &pattern);

} // namespace vexo::compat
