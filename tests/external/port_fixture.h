// The fixture the port tests share: a sysroot, its disk layout, and port
// maps read afresh after each change.
#pragma once
#include <string>
#include <syslog.h>
#include <utility>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>

#include "external/port_map.h"
#include "support/disk_layout.h"

namespace vexo::test {

class PortFixture : public ::testing::Test {
protected:
	using Extra = std::vector<std::pair<std::string, std::string>>;
	using Names = std::vector<std::string>;
	void SetUp() override
	{
		VLIBCErrClear();
		vexo::external::resetPortMaps();
	}
	void TearDown() override { vexo::external::resetPortMaps(); }
	void maps(const std::string &usb, const std::string &esata, const std::string &internal, const std::string &cache,
		  const Extra &extra = {})
	{
		disks.portMaps(usb, esata, internal, cache, extra);
		vexo::external::resetPortMaps();
	}

	Sysroot root;
	DiskLayout disks{root};
};

} // namespace vexo::test
