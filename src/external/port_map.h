// The port maps of /etc.defaults/vexoinfo.conf (not exported).
#pragma once

#include <atomic>
#include <cstdint>

namespace vexo::external {

// One cached copy of the four masks. Each user keeps its own copy, read
// once per process and again while usbportcfg is 0 (a product without USB
// ports reads the file on every call). Concurrent loads store equal values.
class PortMap {
public:
	// Loads the masks unless cached. 0, or -1 when usbportcfg cannot be read
	// (logged; 0x0900 recorded). The other keys may be missing: they stay 0.
	int load();
	uint64_t usb() const { return usb_.load(std::memory_order_relaxed); }
	uint64_t esata() const { return esata_.load(std::memory_order_relaxed); }
	uint64_t internal() const { return internal_.load(std::memory_order_relaxed); }
	uint64_t cache() const { return cache_.load(std::memory_order_relaxed); }
	// Forgets the cached masks (tests switch products in one process).
	void reset();

private:
	std::atomic<uint64_t> usb_{0}, esata_{0}, internal_{0}, cache_{0};
};

// The copies of VEXODiskPortCheck and VEXODiskPortEnumAll. The external SATA
// port table keeps a third one of its own.
PortMap &portCheckMap();
PortMap &portEnumAllMap();
void resetEsataPorts();
// Forgets every cached copy (tests switch products in one process).
void resetPortMaps();

// The masks are tested with a 32-bit 1 shifted by the letter index, so the
// shift count wraps at 32 (index 32 tests bit 0), as on the appliance.
inline bool bitSet(uint64_t mask, int index)
{
	return (mask & (uint32_t{1} << (static_cast<unsigned>(index) & 31u))) != 0;
}

} // namespace vexo::external
