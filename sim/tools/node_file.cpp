#include "node_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/sysroot.h"
#include "frame/unique.h"

namespace vexosim::tools {

namespace {

bool openNode(const std::string &path, vexo::UniqueFd &fd, int lock)
{
	struct stat st;
	if (vexo::sysroot::stat(path.c_str(), &st) != 0)
		return false;
	if (!S_ISREG(st.st_mode)) {
		errno = ENOTTY; // a real device node: nothing for a stand-in to read
		return false;
	}
	fd.reset(vexo::sysroot::open(path.c_str(), (lock == LOCK_EX ? O_RDWR : O_RDONLY) | O_CLOEXEC));
	if (!fd)
		return false;
	while (::flock(fd.get(), lock) != 0)
		if (errno != EINTR)
			return false;
	return true;
}

std::string readAll(int fd)
{
	std::string s;
	char buf[8192];
	for (ssize_t n; (n = ::pread(fd, buf, sizeof buf, static_cast<off_t>(s.size()))) > 0;)
		s.append(buf, static_cast<size_t>(n));
	return s;
}

json_object *parse(const std::string &text)
{
	json_object *o = json_tokener_parse(text.c_str());
	if (o && !json_object_is_type(o, json_type_object)) {
		json_object_put(o);
		o = nullptr;
	}
	if (!o)
		errno = EINVAL;
	return o;
}

} // namespace

Json readNode(const std::string &appliancePath)
{
	vexo::UniqueFd fd;
	if (!openNode(appliancePath, fd, LOCK_SH))
		return Json();
	return Json(parse(readAll(fd.get())));
}

bool updateNode(const std::string &appliancePath, const std::function<bool(json_object *)> &change)
{
	vexo::UniqueFd fd;
	if (!openNode(appliancePath, fd, LOCK_EX))
		return false;
	Json node(parse(readAll(fd.get())));
	if (!node.get() || !change(node.get()))
		return node.get() != nullptr;
	std::string text = json_object_to_json_string_ext(node.get(), JSON_C_TO_STRING_PRETTY);
	if (::ftruncate(fd.get(), 0) != 0)
		return false;
	size_t off = 0;
	while (off < text.size()) {
		ssize_t n = ::pwrite(fd.get(), text.data() + off, text.size() - off, static_cast<off_t>(off));
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			return false;
		off += static_cast<size_t>(n);
	}
	return true;
}

json_object *member(json_object *o, const char *key)
{
	json_object *v = nullptr;
	return o && json_object_is_type(o, json_type_object) && json_object_object_get_ex(o, key, &v) ? v : nullptr;
}

long long memberInt(json_object *o, const char *key, long long fallback)
{
	json_object *v = member(o, key);
	return v && (json_object_is_type(v, json_type_int) || json_object_is_type(v, json_type_double))
		       ? json_object_get_int64(v)
		       : fallback;
}

bool memberBool(json_object *o, const char *key, bool fallback)
{
	json_object *v = member(o, key);
	return v ? json_object_get_boolean(v) : fallback;
}

std::string memberString(json_object *o, const char *key, const std::string &fallback)
{
	json_object *v = member(o, key);
	return v && json_object_is_type(v, json_type_string) ? json_object_get_string(v) : fallback;
}

} // namespace vexosim::tools
