// What the support routines share: the common transfer of the two fetchers,
// the reader of the update server's answer, and small file helpers.
#pragma once
#include <string>
#include <string_view>
#include <vexohw/misc.h>

#include "frame/net.h"

namespace vexo::misc {

// The fetchers' transfer: JSON headers, the common options, and the log
// lines of the setup steps. Perform failures are left to the caller.
net::Outcome curlTransfer(const char *url, int insecure, const net::Sink &sink);

// Reads the update server's answer. 0, or -1 with its log line.
int parseUpdateInfo(std::string_view text, VOSUpdateInfo *update, VOSUpdateInfo *promotion);

// Writes content to an appliance path through a temporary sibling and a
// rename, created with mode 0644. false on failure (errno kept).
bool writeTmp(const std::string &tmpPath, std::string_view content);

// Free space under an appliance path: 0 enough, -1 cannot tell, -2 too
// little. Logs as VEXOFsSizeCheck does.
int fsSizeCheck(unsigned long needed, const char *path);

// URL-encodes text; false when libcurl cannot.
bool urlEncode(std::string_view text, std::string &out);

} // namespace vexo::misc
