// vexo-archive: makes signed archives in the format the platform's archive
// reader takes (see <vexoplatform/vexoarchive.h>).
//
//   vexo-archive keygen PRIVATE PUBLIC            an Ed25519 key pair (PEM)
//   vexo-archive pack KEYTYPE PRIVATE OUT DIR     tar+gzip DIR's contents, sign
//   vexo-archive sign KEYTYPE PRIVATE CONTAINER OUT   sign any container as is
//   vexo-archive keys ROOT     key pairs for firmware (7) and packages (8) in a
//                              simulated appliance, unless it has them: the
//                              public keys where the reader looks for them,
//                              /usr/vexo/etc/archive-keys/N.pem, the private
//                              ones in /run/vexosim/archive-keys/N.key
#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/archive/archive_format.h"

namespace fs = std::filesystem;

namespace {

struct Failure : std::runtime_error {
	using std::runtime_error::runtime_error;
};

using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)>;
using File = std::unique_ptr<FILE, int (*)(FILE *)>;

File openFile(const std::string &path, const char *mode)
{
	File f(std::fopen(path.c_str(), mode), &std::fclose);
	if (!f)
		throw Failure("cannot open " + path);
	return f;
}

std::string slurp(const std::string &path)
{
	std::ifstream in(path, std::ios::binary);
	if (!in)
		throw Failure("cannot read " + path);
	return {std::istreambuf_iterator<char>(in), {}};
}

void spill(const std::string &path, const std::string &bytes)
{
	std::string tmp = path + ".tmp";
	{
		std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
		out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
		if (!out.flush())
			throw Failure("cannot write " + tmp);
	}
	if (std::rename(tmp.c_str(), path.c_str()) != 0)
		throw Failure("cannot rename " + tmp);
}

void keygen(const std::string &priv, const std::string &pub)
{
	std::unique_ptr<EVP_PKEY_CTX, void (*)(EVP_PKEY_CTX *)> ctx(EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr),
								    &EVP_PKEY_CTX_free);
	EVP_PKEY *raw = nullptr;
	if (!ctx || EVP_PKEY_keygen_init(ctx.get()) != 1 || EVP_PKEY_keygen(ctx.get(), &raw) != 1)
		throw Failure("cannot generate a key");
	Key key(raw, &EVP_PKEY_free);
	int fd = ::open(priv.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
	if (fd < 0)
		throw Failure("cannot create " + priv);
	File pf(::fdopen(fd, "w"), &std::fclose);
	if (!pf || PEM_write_PrivateKey(pf.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1)
		throw Failure("cannot write " + priv);
	File uf = openFile(pub, "w");
	if (PEM_write_PUBKEY(uf.get(), key.get()) != 1)
		throw Failure("cannot write " + pub);
}

std::string sign(unsigned keyType, const std::string &privPath, std::string container)
{
	File f = openFile(privPath, "r");
	Key key(PEM_read_PrivateKey(f.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
	if (!key || EVP_PKEY_get_id(key.get()) != EVP_PKEY_ED25519)
		throw Failure("not an Ed25519 private key: " + privPath);
	auto msg = vexo::archive::message(keyType, 0, container);
	if (!msg)
		throw Failure("cannot digest the container");
	vexo::archive::Trailer t;
	t.keyType = keyType;
	t.containerSize = container.size();
	size_t len = t.signature.size();
	std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX *)> ctx(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
	if (!ctx || EVP_DigestSignInit(ctx.get(), nullptr, nullptr, nullptr, key.get()) != 1 ||
	    EVP_DigestSign(ctx.get(), t.signature.data(), &len, msg->data(), msg->size()) != 1 ||
	    len != t.signature.size())
		throw Failure("cannot sign");
	auto trailer = vexo::archive::writeTrailer(t);
	container.append(reinterpret_cast<const char *>(trailer.data()), trailer.size());
	return container;
}

la_ssize_t collect(archive *, void *user, const void *buf, size_t n)
{
	static_cast<std::string *>(user)->append(static_cast<const char *>(buf), n);
	return static_cast<la_ssize_t>(n);
}

// The directory's contents as a gzip'd pax stream, names relative and in
// sorted order so that the same tree gives the same archive.
std::string tarDir(const std::string &dir)
{
	std::vector<fs::path> paths;
	for (const auto &e : fs::recursive_directory_iterator(dir))
		paths.push_back(e.path());
	std::sort(paths.begin(), paths.end());
	std::string out;
	std::unique_ptr<archive, int (*)(archive *)> a(archive_write_new(), &archive_write_free);
	if (!a || archive_write_set_format_pax_restricted(a.get()) != ARCHIVE_OK ||
	    archive_write_add_filter_gzip(a.get()) != ARCHIVE_OK ||
	    archive_write_set_bytes_in_last_block(a.get(), 1) != ARCHIVE_OK ||
	    archive_write_open(a.get(), &out, nullptr, collect, nullptr) != ARCHIVE_OK)
		throw Failure("cannot start the container");
	for (const auto &p : paths) {
		struct stat st;
		if (::lstat(p.c_str(), &st) != 0)
			throw Failure("cannot stat " + p.string());
		std::unique_ptr<archive_entry, void (*)(archive_entry *)> e(archive_entry_new(), &archive_entry_free);
		archive_entry_copy_stat(e.get(), &st);
		archive_entry_set_uid(e.get(), 0);
		archive_entry_set_gid(e.get(), 0);
		archive_entry_copy_pathname(e.get(), p.lexically_relative(dir).c_str());
		std::string body;
		if (S_ISLNK(st.st_mode))
			archive_entry_copy_symlink(e.get(), fs::read_symlink(p).c_str());
		else if (S_ISREG(st.st_mode))
			body = slurp(p);
		if (archive_write_header(a.get(), e.get()) != ARCHIVE_OK ||
		    (!body.empty() && archive_write_data(a.get(), body.data(), body.size()) < 0))
			throw Failure(std::string("cannot add ") + p.string() + ": " + archive_error_string(a.get()));
	}
	if (archive_write_close(a.get()) != ARCHIVE_OK)
		throw Failure("cannot finish the container");
	return out;
}

void keysFor(const std::string &root)
{
	std::string pub = root + "/usr/vexo/etc/archive-keys", priv = root + "/run/vexosim/archive-keys";
	fs::create_directories(pub);
	fs::create_directories(priv);
	for (int type : {7, 8}) {
		std::string p = pub + "/" + std::to_string(type) + ".pem", k = priv + "/" + std::to_string(type) + ".key";
		if (::access(p.c_str(), R_OK) != 0 || ::access(k.c_str(), R_OK) != 0)
			keygen(k, p);
	}
}

unsigned keyType(const char *text)
{
	char *end = nullptr;
	unsigned long v = std::strtoul(text, &end, 10);
	if (!end || *end || v < 1 || v > 255)
		throw Failure(std::string("bad key type ") + text);
	return static_cast<unsigned>(v);
}

int usage()
{
	std::fprintf(stderr, "usage: vexo-archive keygen PRIVATE PUBLIC\n"
			     "       vexo-archive pack KEYTYPE PRIVATE OUT DIR\n"
			     "       vexo-archive sign KEYTYPE PRIVATE CONTAINER OUT\n"
			     "       vexo-archive keys ROOT\n"
			     "KEYTYPE: 7 firmware, 8 package\n");
	return 2;
}

} // namespace

int main(int argc, char **argv)
{
	try {
		std::string cmd = argc > 1 ? argv[1] : "";
		if (cmd == "keygen" && argc == 4) {
			keygen(argv[2], argv[3]);
			return 0;
		}
		if (cmd == "keys" && argc == 3) {
			keysFor(argv[2]);
			return 0;
		}
		if (cmd == "pack" && argc == 6) {
			spill(argv[4], sign(keyType(argv[2]), argv[3], tarDir(argv[5])));
			return 0;
		}
		if (cmd == "sign" && argc == 6) {
			spill(argv[5], sign(keyType(argv[2]), argv[3], slurp(argv[4])));
			return 0;
		}
	} catch (const std::exception &e) {
		std::fprintf(stderr, "vexo-archive: %s\n", e.what());
		return 1;
	}
	return usage();
}
