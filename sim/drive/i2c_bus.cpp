#include "i2c_bus.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <map>
#include <mutex>

namespace vexosim::drive {
namespace {

std::mutex gMutex;
std::map<int, int> gAddress; // handle -> chosen device address

Outcome fail(int err, const std::string &why)
{
	Outcome o;
	o.kind = Outcome::Errno;
	o.err = err;
	o.note = why;
	return o;
}

std::string hex2(int v)
{
	char b[8];
	std::snprintf(b, sizeof b, "0x%02x", v & 0xFF);
	return b;
}

// The device object at an address, or null when nothing answers there.
json_object *device(Drive &d, int address)
{
	json_object *bus = nullptr, *dev = nullptr;
	if (!json_object_object_get_ex(d.node(), "i2c", &bus) ||
	    !json_object_object_get_ex(bus, hex2(address).c_str(), &dev) || !json_object_is_type(dev, json_type_object))
		return nullptr;
	return dev;
}

json_object *registers(json_object *dev)
{
	json_object *regs = nullptr;
	if (!json_object_object_get_ex(dev, "registers", &regs)) {
		regs = json_object_new_object();
		json_object_object_add(dev, "registers", regs);
	}
	return regs;
}

} // namespace

bool isI2cRequest(unsigned long req)
{
	return req == I2C_SLAVE || req == I2C_SLAVE_FORCE || req == I2C_SMBUS;
}

Outcome i2cRequest(Drive &d, int handle, unsigned long req, void *arg, std::string &line)
{
	json_object *bus = nullptr;
	if (!json_object_object_get_ex(d.node(), "i2c", &bus)) {
		line = "I2C";
		return fail(ENOTTY, "refused: not an i2c bus");
	}
	if (req != I2C_SMBUS) {
		long address = static_cast<long>(reinterpret_cast<uintptr_t>(arg));
		line = "I2C_SLAVE " + hex2(static_cast<int>(address));
		if (address < 0 || address > 0x7F)
			return fail(EINVAL, "refused: address out of range");
		std::lock_guard<std::mutex> lk(gMutex);
		gAddress[handle] = static_cast<int>(address);
		return Outcome{};
	}
	auto *io = static_cast<i2c_smbus_ioctl_data *>(arg);
	int address = -1;
	{
		std::lock_guard<std::mutex> lk(gMutex);
		auto it = gAddress.find(handle);
		if (it != gAddress.end())
			address = it->second;
	}
	line = "I2C_SMBUS";
	if (!io || !io->data)
		return fail(EFAULT, "refused: null argument");
	bool read = io->read_write == I2C_SMBUS_READ;
	bool byteData = io->size == I2C_SMBUS_BYTE_DATA;
	if (io->size != I2C_SMBUS_BYTE && !byteData)
		return fail(EOPNOTSUPP, "refused: transfer size " + std::to_string(io->size));
	line += std::string(read ? " read" : " write") + (byteData ? " byte_data" : " byte") + " addr=" + hex2(address);
	if (byteData)
		line += " reg=" + hex2(io->command);
	if (byteData && !read)
		line += " value=" + hex2(io->data->byte);
	else if (!byteData && !read)
		line += " value=" + hex2(io->command);
	if (address < 0)
		return fail(EINVAL, "refused: no device chosen");
	json_object *dev = device(d, address);
	if (!dev)
		return fail(ENXIO, "no answer");
	if (byteData) {
		json_object *regs = registers(dev), *v = nullptr;
		std::string key = hex2(io->command);
		if (read) {
			io->data->byte = json_object_object_get_ex(regs, key.c_str(), &v)
						 ? static_cast<uint8_t>(json_object_get_int(v))
						 : 0;
		} else {
			json_object_object_add(regs, key.c_str(), json_object_new_int(io->data->byte));
			d.markChanged();
		}
	} else {
		json_object *v = nullptr;
		if (read) {
			io->data->byte = json_object_object_get_ex(dev, "byte", &v) ? static_cast<uint8_t>(json_object_get_int(v)) : 0;
		} else {
			// A send byte: the chip without registers keeps it.
			json_object_object_add(dev, "byte", json_object_new_int(io->command));
			d.markChanged();
		}
	}
	Outcome o;
	if (read)
		o.note = " read " + hex2(io->data->byte);
	return o;
}

void i2cForget(int handle)
{
	std::lock_guard<std::mutex> lk(gMutex);
	gAddress.erase(handle);
}

} // namespace vexosim::drive
