// Arbitrary bytes as what the unit driver answers in its command files:
// the I2C key "i2c", the polled section and the GPIO word must all be
// parsed without overrun, and a bad answer must give a failure, not junk.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/sem.h>
#include <vexohw/ebox.h>

#include "fuzz_root.h"

namespace {

// The command the library writes lands at the start of the file (no
// emulator here): a first line longer than any command keeps the input.
const std::string kPad(48, ' ');

int noLock(VEXO_EBOX_HANDLE_T *) { return 0; }

void put(const char *path, const uint8_t *data, size_t size)
{
	std::string text = kPad + "\n" + std::string(reinterpret_cast<const char *>(data), size);
	vexo::fuzz::writeInput(path, reinterpret_cast<const uint8_t *>(text.data()), text.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static const bool ready = [] {
		std::filesystem::create_directories(vexo::fuzz::root() + "/unit");
		return true;
	}();
	(void)ready;
	unsigned length = size ? data[0] % 9 : 1; // 8 is refused before anything is sent
	put("/unit/vexo_pm_i2c", data, size);
	VEXO_EBOX_HANDLE_T h{};
	std::strcpy(h.gpio_path, "/unit/vexo_pm_i2c");
	h.sem_id = -1;
	h.Wait = noLock;
	h.Signal = noLock;
	VEXO_EBOX_I2C_T t{};
	t.address = 0x40;
	t.reg = 0x05;
	t.length = static_cast<unsigned short>(length);
	int rc = VEXOEBoxI2cRead(&h, &t, 1);
	if (length > VEXO_EBOX_I2C_DATA_MAX && rc != -1)
		std::abort();
	put("/unit/vexo_pm_i2c", data, size);
	PVLIBSZHASH polled = nullptr;
	if (VEXOEBoxI2cPoll(&h, &polled) == 0 && !polled)
		std::abort();
	VLIBCSzHashFree(polled);
	return 0;
}
