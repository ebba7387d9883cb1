// The archive reader: verifies a signed archive against the key installed
// for its key type, checks every entry, and unpacks it with libarchive.
#include <vexoplatform/vexoarchive.h>

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <set>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "frame/boundary.h"
#include "frame/log.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "platform/archive/archive_format.h"

namespace {

using vexo::archive::kTrailerSize;

struct Container {
	std::string bytes; // the verified container, without the trailer
};

struct ArchiveFree {
	void operator()(archive *a) const { archive_read_free(a); }
};
struct DiskFree {
	void operator()(archive *a) const { archive_write_free(a); }
};
using ReadPtr = std::unique_ptr<archive, ArchiveFree>;

int done(VEXOARCHIVE *a, int code)
{
	a->returnCode = code;
	return code;
}

long long unpackedBound()
{
	long long bound = VEXOARCHIVE_MAX_UNPACKED;
	if (const char *e = ::secure_getenv("VEXO_ARCHIVE_MAX_UNPACKED"); e && *e) {
		char *end = nullptr;
		long long v = std::strtoll(e, &end, 10);
		if (end && !*end && v >= 0 && v < bound)
			bound = v;
	}
	return bound;
}

// Reads the whole file (an appliance path), bounded.
int readFile(const char *path, std::string &out)
{
	vexo::UniqueFd fd(vexo::sysroot::open(path, O_RDONLY | O_CLOEXEC));
	struct stat st;
	if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode))
		return VEXOARCHIVE_ERR_IO;
	if (st.st_size > VEXOARCHIVE_MAX_FILE)
		return VEXOARCHIVE_ERR_TOOBIG;
	out.resize(static_cast<size_t>(st.st_size));
	size_t got = 0;
	while (got < out.size()) {
		ssize_t n = ::read(fd.get(), out.data() + got, out.size() - got);
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			return VEXOARCHIVE_ERR_IO;
		got += static_cast<size_t>(n);
	}
	return VEXOARCHIVE_OK;
}

int verify(int keyType, const vexo::archive::Trailer &t, std::string_view container)
{
	std::string keyPath = "/usr/vexo/etc/archive-keys/" + std::to_string(keyType) + ".pem";
	std::unique_ptr<FILE, int (*)(FILE *)> f(vexo::sysroot::fopen(keyPath.c_str(), "re"), &std::fclose);
	if (!f)
		return VEXOARCHIVE_ERR_NOKEY;
	std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)> key(PEM_read_PUBKEY(f.get(), nullptr, nullptr, nullptr),
							  &EVP_PKEY_free);
	if (!key || EVP_PKEY_get_id(key.get()) != EVP_PKEY_ED25519)
		return VEXOARCHIVE_ERR_NOKEY;
	auto msg = vexo::archive::message(t.keyType, t.flags, container);
	if (!msg)
		return VEXOARCHIVE_ERR_SIGNATURE;
	std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX *)> ctx(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
	if (!ctx || EVP_DigestVerifyInit(ctx.get(), nullptr, nullptr, nullptr, key.get()) != 1)
		return VEXOARCHIVE_ERR_NOKEY;
	if (EVP_DigestVerify(ctx.get(), t.signature.data(), t.signature.size(), msg->data(), msg->size()) != 1)
		return VEXOARCHIVE_ERR_SIGNATURE;
	return VEXOARCHIVE_OK;
}

ReadPtr openContainer(const std::string &bytes)
{
	ReadPtr a(archive_read_new());
	if (!a)
		throw std::bad_alloc();
	archive_read_support_format_tar(a.get());
	archive_read_support_filter_none(a.get());
	archive_read_support_filter_gzip(a.get());
	archive_read_support_filter_xz(a.get());
	if (archive_read_open_memory(a.get(), bytes.data(), bytes.size()) != ARCHIVE_OK)
		return nullptr;
	return a;
}

// The entry's name without leading "./", or "" when it is not a safe
// relative name.
std::string safeName(const char *name)
{
	if (!name)
		return {};
	std::string n = name;
	while (n.rfind("./", 0) == 0)
		n.erase(0, 2);
	while (n.size() > 1 && n.back() == '/')
		n.pop_back();
	if (n.empty() || n == "." || n[0] == '/')
		return {};
	size_t start = 0;
	while (start <= n.size()) {
		size_t slash = n.find('/', start);
		std::string_view part(n.data() + start, (slash == std::string::npos ? n.size() : slash) - start);
		if (part == "..")
			return {};
		if (slash == std::string::npos)
			break;
		start = slash + 1;
	}
	return n;
}

// A link at entry `name` pointing to `target` stays inside the directory.
bool linkInside(const std::string &name, const char *target)
{
	if (!target || !*target || target[0] == '/')
		return false;
	int depth = 0;
	for (char c : name)
		depth += c == '/';
	std::string t = target;
	size_t start = 0;
	while (start <= t.size()) {
		size_t slash = t.find('/', start);
		std::string_view part(t.data() + start, (slash == std::string::npos ? t.size() : slash) - start);
		if (part == "..") {
			if (--depth < 0)
				return false;
		} else if (!part.empty() && part != ".") {
			++depth;
		}
		if (slash == std::string::npos)
			break;
		start = slash + 1;
	}
	return true;
}

// Checks one entry; fills name. `links` holds the names of the links seen
// so far: nothing may be written through one. 0 or a code.
int checkEntry(archive_entry *e, std::string &name, std::set<std::string> &links)
{
	name = safeName(archive_entry_pathname(e));
	if (name.empty())
		return VEXOARCHIVE_ERR_PATH;
	for (size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1))
		if (links.count(name.substr(0, slash)))
			return VEXOARCHIVE_ERR_PATH;
	if (archive_entry_hardlink(e))
		return VEXOARCHIVE_ERR_TYPE;
	switch (archive_entry_filetype(e)) {
	case AE_IFREG:
	case AE_IFDIR:
		return VEXOARCHIVE_OK;
	case AE_IFLNK:
		links.insert(name);
		return linkInside(name, archive_entry_symlink(e)) ? VEXOARCHIVE_OK : VEXOARCHIVE_ERR_PATH;
	default:
		return VEXOARCHIVE_ERR_TYPE;
	}
}

// Walks the headers: every entry checked, sizes and count bounded, and the
// first regular file's name recorded.
int scan(const std::string &bytes, std::string &firstFile)
{
	ReadPtr a = openContainer(bytes);
	if (!a)
		return VEXOARCHIVE_ERR_FORMAT;
	long long total = 0, bound = unpackedBound();
	int count = 0;
	std::set<std::string> links;
	archive_entry *e = nullptr;
	int r;
	while ((r = archive_read_next_header(a.get(), &e)) == ARCHIVE_OK) {
		std::string name;
		if (int c = checkEntry(e, name, links); c != VEXOARCHIVE_OK)
			return c;
		if (++count > VEXOARCHIVE_MAX_ENTRIES)
			return VEXOARCHIVE_ERR_TOOBIG;
		if (archive_entry_filetype(e) == AE_IFREG) {
			long long size = archive_entry_size(e);
			if (size < 0 || size > bound - total)
				return VEXOARCHIVE_ERR_TOOBIG;
			total += size;
			if (firstFile.empty())
				firstFile = name;
		}
	}
	return r == ARCHIVE_EOF ? VEXOARCHIVE_OK : VEXOARCHIVE_ERR_FORMAT;
}

int extract(const std::string &bytes, const std::string &hostDir)
{
	ReadPtr in = openContainer(bytes);
	if (!in)
		return VEXOARCHIVE_ERR_FORMAT;
	std::unique_ptr<archive, DiskFree> out(archive_write_disk_new());
	if (!out)
		throw std::bad_alloc();
	// The names were checked for ".." and absolute paths; libarchive checks
	// again, and refuses to write through a link an earlier entry made.
	archive_write_disk_set_options(out.get(), ARCHIVE_EXTRACT_SECURE_SYMLINKS | ARCHIVE_EXTRACT_SECURE_NODOTDOT);
	long long total = 0, bound = unpackedBound();
	std::set<std::string> links;
	archive_entry *e = nullptr;
	int r;
	while ((r = archive_read_next_header(in.get(), &e)) == ARCHIVE_OK) {
		std::string name;
		if (int c = checkEntry(e, name, links); c != VEXOARCHIVE_OK)
			return c;
		archive_entry_copy_pathname(e, (hostDir + "/" + name).c_str());
		if (archive_write_header(out.get(), e) < ARCHIVE_WARN) {
			vlog(LOG_ERR, "%s:%d Failed to write %s: %s", VEXO_AT, name.c_str(),
			     archive_error_string(out.get()));
			return VEXOARCHIVE_ERR_WRITE;
		}
		const void *buf;
		size_t size;
		la_int64_t offset;
		int d;
		while ((d = archive_read_data_block(in.get(), &buf, &size, &offset)) == ARCHIVE_OK) {
			if (static_cast<long long>(size) > bound - total)
				return VEXOARCHIVE_ERR_TOOBIG;
			total += static_cast<long long>(size);
			if (archive_write_data_block(out.get(), buf, size, offset) < ARCHIVE_WARN) {
				vlog(LOG_ERR, "%s:%d Failed to write %s: %s", VEXO_AT, name.c_str(),
				     archive_error_string(out.get()));
				return VEXOARCHIVE_ERR_WRITE;
			}
		}
		if (d != ARCHIVE_EOF)
			return VEXOARCHIVE_ERR_FORMAT;
		if (archive_write_finish_entry(out.get()) < ARCHIVE_WARN) {
			vlog(LOG_ERR, "%s:%d Failed to finish %s: %s", VEXO_AT, name.c_str(),
			     archive_error_string(out.get()));
			return VEXOARCHIVE_ERR_WRITE;
		}
	}
	if (r != ARCHIVE_EOF)
		return VEXOARCHIVE_ERR_FORMAT;
	return archive_write_close(out.get()) == ARCHIVE_OK ? VEXOARCHIVE_OK : VEXOARCHIVE_ERR_WRITE;
}

} // namespace

extern "C" VEXOP_API VEXOARCHIVE *vexoarchive_init(const char *workingDirectory) try {
	if (!workingDirectory || std::strlen(workingDirectory) >= sizeof(VEXOARCHIVE::workingDirectory))
		return nullptr;
	auto *a = static_cast<VEXOARCHIVE *>(std::calloc(1, sizeof(VEXOARCHIVE)));
	if (!a)
		return nullptr;
	std::strcpy(a->workingDirectory, workingDirectory);
	return a;
}
VEXO_C_CATCH(nullptr)

extern "C" VEXOP_API int vexoarchive_open_with_keytype(VEXOARCHIVE *a, const char *path, int keyType) try {
	if (!a)
		return VEXOARCHIVE_ERR_ARG;
	delete static_cast<Container *>(a->priv);
	a->priv = nullptr;
	a->keyType = 0;
	a->fileName[0] = '\0';
	if (!path || keyType < 1 || keyType > 255)
		return done(a, VEXOARCHIVE_ERR_ARG);
	auto c = std::make_unique<Container>();
	if (int r = readFile(path, c->bytes); r != VEXOARCHIVE_OK)
		return done(a, r);
	auto t = vexo::archive::readTrailer(c->bytes);
	if (!t || t->flags != 0)
		return done(a, VEXOARCHIVE_ERR_FORMAT);
	c->bytes.resize(t->containerSize);
	if (t->keyType != static_cast<std::uint32_t>(keyType))
		return done(a, VEXOARCHIVE_ERR_KEYTYPE);
	if (int r = verify(keyType, *t, c->bytes); r != VEXOARCHIVE_OK)
		return done(a, r);
	std::string first;
	if (int r = scan(c->bytes, first); r != VEXOARCHIVE_OK)
		return done(a, r);
	if (first.size() >= sizeof(a->fileName))
		return done(a, VEXOARCHIVE_ERR_FORMAT);
	std::strcpy(a->fileName, first.c_str());
	a->keyType = keyType;
	a->priv = c.release();
	return done(a, VEXOARCHIVE_OK);
}
VEXO_C_CATCH(VEXOARCHIVE_ERR_ARG)

extern "C" VEXOP_API int vexoarchive_extract_multiple(VEXOARCHIVE *a, int flags, int keyType) try {
	if (!a)
		return VEXOARCHIVE_ERR_ARG;
	if (flags != 0)
		return done(a, VEXOARCHIVE_ERR_ARG);
	auto *c = static_cast<Container *>(a->priv);
	if (!c || !a->workingDirectory[0])
		return done(a, VEXOARCHIVE_ERR_STATE);
	if (keyType != a->keyType)
		return done(a, VEXOARCHIVE_ERR_KEYTYPE);
	// A real path, so that no link above the directory trips the check
	// against writing through links.
	char real[PATH_MAX];
	if (!::realpath(vexo::sysroot::path(a->workingDirectory).c_str(), real))
		return done(a, VEXOARCHIVE_ERR_STATE);
	return done(a, extract(c->bytes, real));
}
VEXO_C_CATCH(VEXOARCHIVE_ERR_ARG)

extern "C" VEXOP_API void vexoarchive_free(VEXOARCHIVE *a)
{
	if (!a)
		return;
	delete static_cast<Container *>(a->priv);
	std::free(a);
}

extern "C" VEXOP_API const char *vexoarchive_strerror(int code)
{
	switch (code) {
	case VEXOARCHIVE_OK: return "success";
	case VEXOARCHIVE_ERR_ARG: return "bad argument";
	case VEXOARCHIVE_ERR_IO: return "cannot read the archive";
	case VEXOARCHIVE_ERR_FORMAT: return "not a signed archive";
	case VEXOARCHIVE_ERR_NOKEY: return "no key installed for the key type";
	case VEXOARCHIVE_ERR_SIGNATURE: return "bad signature";
	case VEXOARCHIVE_ERR_KEYTYPE: return "signed for another key type";
	case VEXOARCHIVE_ERR_PATH: return "an entry escapes the directory";
	case VEXOARCHIVE_ERR_TYPE: return "a link, device, fifo or socket entry";
	case VEXOARCHIVE_ERR_TOOBIG: return "too large";
	case VEXOARCHIVE_ERR_WRITE: return "cannot write the unpacked files";
	case VEXOARCHIVE_ERR_STATE: return "not opened, or no working directory";
	default: return "unknown error";
	}
}
