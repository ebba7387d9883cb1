// Shared plumbing of the text-file calls (key-value files, section files,
// pid files): whole-file reads, tmp-and-rename writes and the key=value
// line grammar. Internal to libvexoplatform.
#pragma once

#include <string>
#include <string_view>
#include <vector>
#include <vexoplatform/vexocore.h>

namespace vexo::core {

// Reads an appliance file and splits it at '\n'; a trailing '\r' stays on
// its line (callers that parse strip it, writers keep lines as they were);
// a line ends at its first NUL byte.
// On failure records 0x0700 (no file), 0x0900 (open) or 0x0A00 (read) and
// returns false.
bool readLines(const char *file, std::vector<std::string> &lines);

// Replaces file with content: written to a unique temporary file in the
// same directory, flushed, then renamed over it, so that a reader sees the
// old file or the new one and never a part. An existing file keeps its
// mode; a new one is 0644. Records 0x0900 or 0x0B00 and returns false.
bool replaceFile(const char *file, std::string_view content);

// Lines joined with '\n' after each.
std::string joinLines(const std::vector<std::string> &lines);

// White space and a trailing '\r' removed from both ends.
std::string_view trim(std::string_view s);

// A "key=value" line: the key is trimmed, the value trimmed and, when it
// stands in double quotes, unquoted. Comment lines ('#' or ';' first),
// blank lines and lines without '=' or without a key are not pairs.
bool parsePair(std::string_view line, std::string_view &key, std::string_view &value);

// A "[name]" line; the name is trimmed.
bool parseSectionHeader(std::string_view line, std::string_view &name);

// Keys may not be empty nor hold '=', '[' first, or a line break; values may
// not hold a line break. Either would change the file's structure.
bool validKey(const char *key);
bool validValue(const char *value);

// One line from a two-"%s" format (key, value), ending in '\n'. False when
// the format holds anything but exactly two "%s" and "%%".
bool formatPair(const char *format, const char *key, const char *value, std::string &out);

// The value of key in a key-value file (the first line that names it wins).
// 1 found, 0 absent, -1 failure (code recorded by readLines).
// /etc/vexoinfo.conf and /etc.defaults/vexoinfo.conf are parsed once per
// process and root, and parsed again when a stat shows another file
// (device, inode, size, modification or change time), or when the parse
// was taken so soon after a change that a same-sized rewrite could keep
// those times.
int findValue(const char *file, const char *key, std::string &value);

// The pairs of lines[begin, end) into *pHash (allocated when null, cleared
// first); the first line of a key wins. The key count, or -1.
int pairsToHash(const std::vector<std::string> &lines, size_t begin, size_t end, PVLIBSZHASH *pHash);

} // namespace vexo::core
