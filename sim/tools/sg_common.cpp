#include "sg_common.h"

#include <cstring>

namespace vexosim::tools::sg {

void hexDump(std::FILE *f, const uint8_t *p, size_t n, bool ascii)
{
	for (size_t off = 0; off < n; off += 16) {
		char line[96];
		std::memset(line, ' ', sizeof line);
		char o[16];
		int ol = std::snprintf(o, sizeof o, "%02zx", off);
		std::memcpy(line + 1, o, static_cast<size_t>(ol));
		size_t end = 0;
		for (size_t i = 0; i < 16 && off + i < n; ++i) {
			size_t col = 8 + i * 3 + (i >= 8 ? 1 : 0);
			std::snprintf(o, sizeof o, "%02x", p[off + i]);
			line[col] = o[0];
			line[col + 1] = o[1];
			end = col + 2;
			if (ascii) {
				uint8_t c = p[off + i];
				line[60 + i] = c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '.';
				end = 61 + i;
			}
		}
		std::fwrite(line, 1, end, f);
		std::fputc('\n', f);
	}
}

void wordDump(std::FILE *f, const uint8_t *p, size_t words)
{
	for (size_t w = 0; w < words; w += 8) {
		std::string hex, text;
		char b[16];
		for (size_t i = 0; i < 8 && w + i < words; ++i) {
			unsigned v = p[2 * (w + i)] | p[2 * (w + i) + 1] << 8;
			std::snprintf(b, sizeof b, " %04x", v);
			hex += b;
			for (unsigned c : {v >> 8, v & 0xFFu})
				text += c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '.';
			text += ' ';
		}
		std::fprintf(f, " %02zx    %s     %s\n", w, hex.c_str(), text.c_str());
	}
}

const char *senseKeyName(unsigned key)
{
	static const char *names[] = {"No Sense",	 "Recovered Error", "Not Ready",      "Medium Error",
				      "Hardware Error",	 "Illegal Request", "Unit Attention", "Data Protect",
				      "Blank Check",	 "Vendor Specific", "Copy Aborted",   "Aborted Command",
				      "Equal",		 "Volume Overflow", "Miscompare",     "Completed"};
	return names[key & 0x0F];
}

std::string additionalSense(unsigned asc, unsigned ascq)
{
	struct Text {
		unsigned asc, ascq;
		const char *text;
	};
	static const Text texts[] = {
		{0x00, 0x00, "No additional sense information"},
		{0x00, 0x1D, "ATA pass through information available"},
		{0x04, 0x02, "Logical unit not ready, initializing command required"},
		{0x11, 0x00, "Unrecovered read error"},
		{0x1A, 0x00, "Parameter list length error"},
		{0x20, 0x00, "Invalid command operation code"},
		{0x24, 0x00, "Invalid field in cdb"},
		{0x26, 0x00, "Invalid field in parameter list"},
		{0x32, 0x01, "Defect list update failure"},
		{0x5D, 0x00, "Failure prediction threshold exceeded"},
	};
	for (const auto &t : texts)
		if (t.asc == asc && t.ascq == ascq)
			return t.text;
	char b[48];
	std::snprintf(b, sizeof b, "ASC=%02x ASCQ=%02x", asc, ascq);
	return b;
}

int category(const ScsiAnswer &a)
{
	if (a.err)
		return osError(a.err);
	if (a.ok)
		return 0;
	switch (a.senseKey()) {
	case 0x00:
	case 0x01:
		return a.status == 0x02 && a.sense.empty() ? 99 : 0;
	case 0x02: return 2;
	case 0x03: return 3;
	case 0x04: return 4;
	case 0x05: return a.asc() == 0x20 ? 9 : 5;
	case 0x06: return 6;
	case 0x07: return 7;
	case 0x0B: return 11;
	case 0x0E: return 14;
	default: return 99;
	}
}

std::string categoryText(int cat)
{
	switch (cat) {
	case 2: return "Not ready";
	case 3: return "Medium or hardware error";
	case 4: return "Medium or hardware error";
	case 5: return "Illegal request";
	case 6: return "Unit attention";
	case 7: return "Data protect";
	case 9: return "Illegal request, Invalid opcode";
	case 11: return "Aborted command";
	case 14: return "Miscompare";
	default:
		if (cat > 50 && cat < 97)
			return std::strerror(cat - 50);
		return "Some other error";
	}
}

void printSense(std::FILE *f, const std::vector<uint8_t> &s)
{
	if (s.empty())
		return;
	bool descriptor = (s[0] & 0x7F) >= 0x72;
	bool current = (s[0] & 0x7F) == 0x70 || (s[0] & 0x7F) == 0x72;
	ScsiAnswer a;
	a.sense = s;
	std::fprintf(f, "%s format, %s; Sense key: %s\n", descriptor ? "Descriptor" : "Fixed",
		     current ? "current" : "deferred", senseKeyName(a.senseKey()));
	std::fprintf(f, "Additional sense: %s\n", additionalSense(a.asc(), a.ascq()).c_str());
	if (!descriptor || s.size() < 8)
		return;
	size_t end = std::min<size_t>(s.size(), 8u + s[7]);
	for (size_t i = 8; i + 1 < end; i += 2u + s[i + 1]) {
		if (s[i] == 0x09 && i + 13 < s.size()) {
			const uint8_t *d = s.data() + i;
			unsigned lba = d[11] << 16 | d[9] << 8 | d[7];
			std::fprintf(f, "  Descriptor type: ATA Status Return: extend=%d error=0x%x \n", d[2] & 1, d[3]);
			std::fprintf(f, "        count=0x%x lba=0x%06x device=0x%x status=0x%x\n", d[5], lba, d[12], d[13]);
		}
	}
}

} // namespace vexosim::tools::sg
