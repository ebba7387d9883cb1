#include "cert.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <stdexcept>
#include <unistd.h>

namespace vexosim::serve {
namespace {

using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY *)>;
using Cert = std::unique_ptr<X509, void (*)(X509 *)>;

void check(bool ok, const char *what)
{
	if (!ok)
		throw std::runtime_error(std::string("certificate: ") + what);
}

Key newKey()
{
	EVP_PKEY *k = EVP_EC_gen("P-256");
	check(k != nullptr, "cannot generate a key");
	return Key(k, &EVP_PKEY_free);
}

void addExt(X509 *cert, X509 *issuer, int nid, const char *value)
{
	X509V3_CTX ctx;
	X509V3_set_ctx_nodb(&ctx);
	X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
	X509_EXTENSION *ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
	check(ext != nullptr, "bad extension");
	X509_add_ext(cert, ext, -1);
	X509_EXTENSION_free(ext);
}

Cert issue(EVP_PKEY *key, const char *cn, X509 *issuer, EVP_PKEY *issuerKey, bool ca)
{
	Cert c(X509_new(), &X509_free);
	check(c != nullptr, "out of memory");
	X509_set_version(c.get(), 2);
	unsigned char serial[16];
	RAND_bytes(serial, sizeof serial);
	serial[0] &= 0x7f;
	BIGNUM *bn = BN_bin2bn(serial, sizeof serial, nullptr);
	BN_to_ASN1_INTEGER(bn, X509_get_serialNumber(c.get()));
	BN_free(bn);
	X509_gmtime_adj(X509_getm_notBefore(c.get()), -3600);
	X509_gmtime_adj(X509_getm_notAfter(c.get()), 3650L * 24 * 3600);
	X509_set_pubkey(c.get(), key);
	X509_NAME *name = X509_get_subject_name(c.get());
	X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char *>("vexosim"), -1,
				   -1, 0);
	X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char *>(cn), -1, -1, 0);
	X509 *iss = issuer ? issuer : c.get();
	X509_set_issuer_name(c.get(), X509_get_subject_name(iss));
	if (ca) {
		addExt(c.get(), iss, NID_basic_constraints, "critical,CA:TRUE");
		addExt(c.get(), iss, NID_key_usage, "critical,keyCertSign,cRLSign");
	} else {
		addExt(c.get(), iss, NID_basic_constraints, "CA:FALSE");
		addExt(c.get(), iss, NID_key_usage, "critical,digitalSignature");
		addExt(c.get(), iss, NID_ext_key_usage, "serverAuth");
		addExt(c.get(), iss, NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");
	}
	addExt(c.get(), iss, NID_subject_key_identifier, "hash");
	check(X509_sign(c.get(), issuerKey ? issuerKey : key, EVP_sha256()) > 0, "cannot sign");
	return c;
}

void writePem(const std::string &path, EVP_PKEY *key, X509 *cert)
{
	std::string tmp = path + ".tmp";
	int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, key ? 0600 : 0644);
	check(fd >= 0, "cannot create a file");
	std::unique_ptr<FILE, int (*)(FILE *)> f(::fdopen(fd, "w"), &std::fclose);
	check(f != nullptr, "cannot open a file");
	bool ok = key ? PEM_write_PrivateKey(f.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1
		      : PEM_write_X509(f.get(), cert) == 1;
	check(ok && std::fclose(f.release()) == 0, "cannot write a file");
	check(std::rename(tmp.c_str(), path.c_str()) == 0, "cannot rename a file");
}

} // namespace

void ensureCertificates(const std::string &dir)
{
	bool whole = true;
	for (const char *f : {"/ca.pem", "/ca.key", "/server.pem", "/server.key"})
		whole = whole && ::access((dir + f).c_str(), R_OK) == 0;
	if (whole)
		return;
	Key caKey = newKey();
	Cert ca = issue(caKey.get(), "vexosim appliance CA", nullptr, nullptr, true);
	Key key = newKey();
	Cert cert = issue(key.get(), "127.0.0.1", ca.get(), caKey.get(), false);
	writePem(dir + "/ca.key", caKey.get(), nullptr);
	writePem(dir + "/ca.pem", nullptr, ca.get());
	writePem(dir + "/server.key", key.get(), nullptr);
	writePem(dir + "/server.pem", nullptr, cert.get());
}

} // namespace vexosim::serve
