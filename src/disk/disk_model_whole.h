// A disk's whole model without a word to the drive. The kernel shows a SCSI
// disk's model as the 16-byte product field of INQUIRY, so an ATA disk
// behind a SCSI host reads "WDC WD40EFPX-68C"; the whole text is in the
// per-disk cache (written when the disk arrived) or in the ATA IDENTIFY
// data the kernel keeps as VPD page 0x89. Not exported.
#pragma once

#include <string>

namespace vexo::disk {

enum class ModelSource {
	Record, // the record's own text, as it stands
	Cache,  // the per-disk cache value "model"
	AtaVpd, // the IDENTIFY data of /sys/block/<name>/device/vpd_pg89
};

const char *modelSourceName(ModelSource s);

// The whole model of the disk `name` ("sda"): a text that begins with the
// recorded one (so a stale or foreign text is never taken), or the recorded
// one itself.
ModelSource wholeModel(const char *name, const char *recorded, std::string &out);

// The model text of an IDENTIFY DEVICE page (words 27 to 46), trimmed.
std::string identifyModel(const unsigned char *identify);

} // namespace vexo::disk
