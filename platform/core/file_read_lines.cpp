// Line readers, directory listing and whole-buffer read/write.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <string>
#include <unistd.h>
#include <vector>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/sysroot.h"
#include "text_file.h"

namespace {

void chopLineEnd(std::string &line)
{
	if (!line.empty() && line.back() == '\r')
		line.pop_back();
}

} // namespace

extern "C" {

VEXOP_API int VLIBCFileReadLines(const char *file, PVLIBSZLIST *pList)
try {
	if (!file || !pList || !*pList) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		VEXO_ERR_PASS();
		return -1;
	}
	for (auto &line : lines) {
		chopLineEnd(line);
		if (VLIBCSzListPush(pList, line.c_str()) < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
	}
	return static_cast<int>(lines.size());
} VEXO_C_CATCH(-1)

VEXOP_API char *VLIBCFgets(char *buffer, int size, FILE *stream)
try {
	if (!buffer || size < 1 || !stream) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	if (!std::fgets(buffer, size, stream))
		return nullptr;
	size_t n = std::strlen(buffer);
	if (n && buffer[n - 1] == '\n') {
		buffer[--n] = '\0';
		if (n && buffer[n - 1] == '\r')
			buffer[--n] = '\0';
	}
	return buffer;
} VEXO_C_CATCH(nullptr)

VEXOP_API int VLIBCFileEnumDir(const char *dir, PVLIBSZLIST *pList)
try {
	if (!dir || !pList || !*pList) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DIR *d = vexo::sysroot::opendir(dir);
	if (!d) {
		VEXO_ERR(errno == ENOENT ? VEXO_ERR_NOENT : VEXO_ERR_FOPEN);
		return -1;
	}
	std::vector<std::string> names;
	errno = 0;
	while (struct dirent *e = ::readdir(d)) {
		if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
			names.emplace_back(e->d_name);
	}
	bool failed = errno != 0;
	::closedir(d);
	if (failed) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	std::sort(names.begin(), names.end());
	for (const auto &n : names) {
		if (VLIBCSzListPush(pList, n.c_str()) < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
	}
	return static_cast<int>(names.size());
} VEXO_C_CATCH(-1)

VEXOP_API ssize_t VLIBCRead(int fd, void *buffer, size_t size)
try {
	if (fd < 0 || (!buffer && size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	size_t done = 0;
	while (done < size) {
		ssize_t r = ::read(fd, static_cast<char *>(buffer) + done, size - done);
		if (r < 0 && errno == EINTR)
			continue;
		if (r < 0) {
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
		if (r == 0)
			break; // end of file: what was read is the answer
		done += static_cast<size_t>(r);
	}
	return static_cast<ssize_t>(done);
} VEXO_C_CATCH(-1)

VEXOP_API ssize_t VLIBCWrite(int fd, const void *buffer, size_t size)
try {
	if (fd < 0 || (!buffer && size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	size_t done = 0;
	while (done < size) {
		ssize_t w = ::write(fd, static_cast<const char *>(buffer) + done, size - done);
		if (w < 0 && errno == EINTR)
			continue;
		if (w <= 0) {
			VEXO_ERR(VEXO_ERR_WRITE);
			return -1;
		}
		done += static_cast<size_t>(w);
	}
	return static_cast<ssize_t>(done);
} VEXO_C_CATCH(-1)

} // extern "C"
