#include "led_files.h"

#include <string>

namespace vexosim {
namespace {

// Two possible chips: an older one at 0x2c (absent here) with three levels,
// and the one on this board with six, level 3 the default, its bus named by
// the adapter's name.
const std::string kLedBrightnessXml = R"(<?xml version="1.0" encoding="UTF-8"?>
<led_brightness>
  <i2c><bus>0</bus><address>0x2c</address><offset>0x00</offset><command_type>I2C</command_type></i2c>
  <brightness><value>0</value><i2cValue>0x00</i2cValue></brightness>
  <brightness><value>1</value><i2cValue>0x7F</i2cValue><default>true</default></brightness>
  <brightness><value>2</value><i2cValue>0xFF</i2cValue></brightness>
  <i2c><bus>)" + std::string(kDimmerAdapter) + R"(</bus><address>0x2d</address><offset>0x01</offset><command_type>SMBUS</command_type></i2c>
  <brightness><value>0</value><i2cValue>0x00</i2cValue></brightness>
  <brightness><value>1</value><i2cValue>0x20</i2cValue></brightness>
  <brightness><value>2</value><i2cValue>0x40</i2cValue></brightness>
  <brightness><value>3</value><i2cValue>0x80</i2cValue><default>true</default></brightness>
  <brightness><value>4</value><i2cValue>0xC0</i2cValue></brightness>
  <brightness><value>5</value><i2cValue>255</i2cValue></brightness>
</led_brightness>
)";

} // namespace

void ledFiles(const Box &box, Tree &tree)
{
	(void)box;
	tree.file("/usr/vexo/etc.defaults/led_brightness.xml", kLedBrightnessXml);
	// The chip starts at the default level's byte.
	tree.file("/dev/i2c-" + std::to_string(kDimmerBus),
		  "{\"i2c\": {\"0x2d\": {\"registers\": {\"0x01\": 128}}}}\n");
	tree.file("/sys/class/i2c-dev/i2c-" + std::to_string(kDimmerBus) + "/name", std::string(kDimmerAdapter) + "\n");
	tree.dir("/var/lock");
	tree.dir("/run/vexostorage");
}

} // namespace vexosim
