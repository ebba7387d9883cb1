// Stand-ins for the programs of the update path:
//
//   vexowebapi --exec-fastwebapi api=VEXO.Core.Upgrade.Server method=check ...
//       asks the appliance's update server for /vos/upgrade/check on the
//       firmware server's host (through the library's network seam, so in a
//       simulated appliance `vexosim serve` answers) and prints the answer.
//       Unreachable or failing: a JSON failure, as the real one prints.
//   md5sum FILE...
//       "<hex>  <name>" per file, the file read under the sysroot.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <openssl/evp.h>
#include <string>

#include "frame/net.h"
#include "frame/sysroot.h"

namespace vexosim::tools {

int vexowebapi(int argc, char **argv)
{
	std::string api, method;
	bool fast = false;
	for (int i = 1; i < argc; ++i) {
		std::string a = argv[i];
		if (a == "--exec-fastwebapi")
			fast = true;
		else if (a.rfind("api=", 0) == 0)
			api = a.substr(4);
		else if (a.rfind("method=", 0) == 0)
			method = a.substr(7);
	}
	if (!fast || api != "VEXO.Core.Upgrade.Server" || method != "check") {
		std::printf("{\"error\":{\"code\":103},\"success\":false}\n");
		return 1;
	}
	std::string body;
	vexo::net::Request req;
	req.url = std::string(vexo::net::kFirmwareServer) + "/vos/upgrade/check";
	vexo::net::Outcome out = vexo::net::transfer(req, [&](const char *d, size_t n) {
		body.append(d, n);
		return true;
	});
	if (!out.ok() || out.httpStatus != 200) {
		std::printf("{\"error\":{\"code\":%d},\"success\":false}\n", out.ok() ? static_cast<int>(out.httpStatus)
										  : 400 + static_cast<int>(out.code));
		return 0;
	}
	std::fwrite(body.data(), 1, body.size(), stdout);
	return 0;
}

int md5sum(int argc, char **argv)
{
	int status = 0;
	for (int i = 1; i < argc; ++i) {
		std::ifstream in(vexo::sysroot::path(argv[i]), std::ios::binary);
		std::string data;
		if (in.is_open())
			data.assign(std::istreambuf_iterator<char>(in), {});
		unsigned char md[EVP_MAX_MD_SIZE];
		unsigned len = 0;
		if (!in.is_open() || in.bad() || EVP_Digest(data.data(), data.size(), md, &len, EVP_md5(), nullptr) != 1) {
			std::fprintf(stderr, "md5sum: %s: No such file or directory\n", argv[i]);
			status = 1;
			continue;
		}
		for (unsigned k = 0; k < len; ++k)
			std::printf("%02x", md[k]);
		std::printf("  %s\n", argv[i]);
	}
	return status;
}

} // namespace vexosim::tools
