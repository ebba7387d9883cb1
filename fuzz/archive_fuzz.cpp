// Arbitrary containers, signed with the fuzz root's own key so that the
// entry checks are reached, or arbitrary whole files (first byte odd): the
// reader refuses or unpacks, and nothing ever lands outside its directory.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <string>
#include <vexoplatform/vexoarchive.h>

#include "fuzz_root.h"
#include "platform/archive/archive_format.h"

namespace fs = std::filesystem;

namespace {

EVP_PKEY *fuzzKey()
{
	static EVP_PKEY *key = [] {
		EVP_PKEY *k = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
		fs::create_directories(vexo::fuzz::root() + "/usr/vexo/etc/archive-keys");
		FILE *f = std::fopen((vexo::fuzz::root() + "/usr/vexo/etc/archive-keys/7.pem").c_str(), "w");
		if (!k || !f || PEM_write_PUBKEY(f, k) != 1)
			std::abort();
		std::fclose(f);
		fs::create_directories(vexo::fuzz::root() + "/tmp");
		return k;
	}();
	return key;
}

std::string signedFile(std::string container)
{
	auto msg = vexo::archive::message(7, 0, container);
	vexo::archive::Trailer t;
	t.keyType = 7;
	t.containerSize = container.size();
	size_t len = t.signature.size();
	EVP_MD_CTX *ctx = EVP_MD_CTX_new();
	if (!msg || EVP_DigestSignInit(ctx, nullptr, nullptr, nullptr, fuzzKey()) != 1 ||
	    EVP_DigestSign(ctx, t.signature.data(), &len, msg->data(), msg->size()) != 1)
		std::abort();
	EVP_MD_CTX_free(ctx);
	auto trailer = vexo::archive::writeTrailer(t);
	return container.append(reinterpret_cast<const char *>(trailer.data()), trailer.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	if (size == 0)
		return 0;
	fuzzKey();
	std::string body(reinterpret_cast<const char *>(data) + 1, size - 1);
	std::string file = data[0] & 1 ? body : signedFile(body);
	vexo::fuzz::writeInput("/tmp/in.sa", reinterpret_cast<const uint8_t *>(file.data()), file.size());
	const std::string out = vexo::fuzz::root() + "/jail/out";
	fs::remove_all(vexo::fuzz::root() + "/jail");
	fs::create_directories(out);
	VEXOARCHIVE *a = vexoarchive_init("/jail/out");
	if (vexoarchive_open_with_keytype(a, "/tmp/in.sa", 7) == 0)
		vexoarchive_extract_multiple(a, 0, 7);
	vexoarchive_free(a);
	// The jail holds only the directory it was given.
	for (const auto &e : fs::directory_iterator(vexo::fuzz::root() + "/jail"))
		if (e.path() != out)
			std::abort();
	for (const auto &e : fs::directory_iterator(vexo::fuzz::root()))
		if (e.path().filename() != "jail" && e.path().filename() != "tmp" &&
		    e.path().filename() != "usr")
			std::abort();
	return 0;
}
