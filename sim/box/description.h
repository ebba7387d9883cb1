// The appliance description: one JSON file per simulated box. parse() reads
// and checks all of it before anything is written, so a bad description
// never leaves a partial tree behind.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

struct json_object;

namespace vexosim {

// A refusal of the description: "<file>: <json path>: <what is wrong>".
class DescriptionError : public std::runtime_error {
public:
	using std::runtime_error::runtime_error;
};

using KeyValues = std::vector<std::pair<std::string, std::string>>;

struct JsonRef {
	explicit JsonRef(json_object *o = nullptr);
	~JsonRef();
	JsonRef(const JsonRef &) = delete;
	JsonRef &operator=(const JsonRef &) = delete;
	json_object *get() const { return obj; }
	json_object *obj;
};

struct Partition {
	int number = 0;
	uint64_t startSector = 0; // 512-byte sectors
	uint64_t sizeBytes = 0;
};

// Where a device sits.
enum class Where { Bay, Esata, Usb, Unit, Pci, Sys };

struct Device {
	std::string at; // json path, for messages
	std::string name;
	Where where = Where::Bay;
	int bay = 0;      // Bay, Unit
	int port = 0;     // Esata, Usb, Unit (the eSATA port of the unit)
	int slot = 0;     // Pci
	int position = 0; // Pci (socket on the card), Sys (the n of sysd<n>)
	std::string model, vendor, serial, firmware, protocol, driver;
	uint64_t sizeBytes = 0;
	int logicalBlockSize = 512;
	int rotationRate = 1; // 1: solid state
	std::vector<Partition> partitions;
	std::shared_ptr<JsonRef> drive; // passed through to the drive emulator
};

struct PciSlot {
	int slot = 0;
	std::string pciId; // root port, "0000:00:01.0"
	std::string card;  // adapter card model
	int sockets = 0;
};

struct Unit {
	int port = 0; // eSATA port it hangs off, from 1
	std::string model;
	int bays = 0;
	KeyValues pmInfo; // extra vexo_pm_info keys
};

struct Box {
	std::string source;
	std::string model;
	std::string unique;
	KeyValues version; // /etc.defaults/VERSION, base and nano among them
	int internalBays = 0, esataPorts = 0, usbPorts = 0, cacheSlots = 0;
	KeyValues vexoinfo; // extra product keys
	std::vector<PciSlot> slots;
	std::vector<Unit> units;
	std::vector<Device> devices;

	// Letter index (0 = sda) of each kind of port.
	int esataLetter(int port) const { return internalBays + port - 1; }
	int usbLetter(int port) const { return internalBays + esataPorts + port - 1; }
	int cacheLetter(int n) const { return internalBays + esataPorts + usbPorts + n - 1; }
	const Unit *unitOn(int esataPort) const;
	const PciSlot *slotNumbered(int slot) const;
};

// Reads and checks a description. Throws DescriptionError.
Box parse(const std::string &file);

std::string letterName(int index);            // 0 -> "sda", 25 -> "sdz"
std::string unitDiskName(int portLetter, int bay); // "sdma" for port letter 12, bay 1

} // namespace vexosim
