#include "attribute_format.h"

#include <algorithm>
#include <cstdio>

namespace vexosim::tools {

namespace {

enum Kind { Any, Hdd, Ssd };

struct DefaultAttribute {
	unsigned id;
	const char *format;
	const char *name;
	Kind kind;
};

// smartctl's default attribute table (its "DEFAULT" drive database entry).
constexpr DefaultAttribute kDefaults[] = {
	{1, "raw48", "Raw_Read_Error_Rate", Any},
	{2, "raw48", "Throughput_Performance", Any},
	{3, "raw16(avg16)", "Spin_Up_Time", Any},
	{4, "raw48", "Start_Stop_Count", Any},
	{5, "raw16(raw16)", "Reallocated_Sector_Ct", Any},
	{6, "raw48", "Read_Channel_Margin", Hdd},
	{7, "raw48", "Seek_Error_Rate", Hdd},
	{8, "raw48", "Seek_Time_Performance", Hdd},
	{9, "raw24(raw8)", "Power_On_Hours", Any},
	{10, "raw48", "Spin_Retry_Count", Hdd},
	{11, "raw48", "Calibration_Retry_Count", Hdd},
	{12, "raw48", "Power_Cycle_Count", Any},
	{13, "raw48", "Read_Soft_Error_Rate", Any},
	{175, "raw48", "Program_Fail_Count_Chip", Ssd},
	{176, "raw48", "Erase_Fail_Count_Chip", Ssd},
	{177, "raw48", "Wear_Leveling_Count", Ssd},
	{178, "raw48", "Used_Rsvd_Blk_Cnt_Chip", Ssd},
	{179, "raw48", "Used_Rsvd_Blk_Cnt_Tot", Ssd},
	{180, "raw48", "Unused_Rsvd_Blk_Cnt_Tot", Ssd},
	{181, "raw48", "Program_Fail_Cnt_Total", Any},
	{182, "raw48", "Erase_Fail_Count_Total", Ssd},
	{183, "raw48", "Runtime_Bad_Block", Any},
	{184, "raw48", "End-to-End_Error", Any},
	{187, "raw48", "Reported_Uncorrect", Any},
	{188, "raw48", "Command_Timeout", Any},
	{189, "raw48", "High_Fly_Writes", Hdd},
	{190, "tempminmax", "Airflow_Temperature_Cel", Any},
	{191, "raw48", "G-Sense_Error_Rate", Hdd},
	{192, "raw48", "Power-Off_Retract_Count", Any},
	{193, "raw48", "Load_Cycle_Count", Hdd},
	{194, "tempminmax", "Temperature_Celsius", Any},
	{195, "raw48", "Hardware_ECC_Recovered", Any},
	{196, "raw16(raw16)", "Reallocated_Event_Count", Any},
	{197, "raw48", "Current_Pending_Sector", Any},
	{198, "raw48", "Offline_Uncorrectable", Any},
	{199, "raw48", "UDMA_CRC_Error_Count", Any},
	{200, "raw48", "Multi_Zone_Error_Rate", Hdd},
	{201, "raw48", "Soft_Read_Error_Rate", Hdd},
	{202, "raw48", "Data_Address_Mark_Errs", Hdd},
	{203, "raw48", "Run_Out_Cancel", Any},
	{204, "raw48", "Soft_ECC_Correction", Any},
	{205, "raw48", "Thermal_Asperity_Rate", Any},
	{206, "raw48", "Flying_Height", Hdd},
	{207, "raw48", "Spin_High_Current", Hdd},
	{208, "raw48", "Spin_Buzz", Hdd},
	{209, "raw48", "Offline_Seek_Performnce", Hdd},
	{220, "raw48", "Disk_Shift", Hdd},
	{221, "raw48", "G-Sense_Error_Rate", Hdd},
	{222, "raw48", "Loaded_Hours", Hdd},
	{223, "raw48", "Load_Retry_Count", Hdd},
	{224, "raw48", "Load_Friction", Hdd},
	{225, "raw48", "Load_Cycle_Count", Hdd},
	{226, "raw48", "Load-in_Time", Hdd},
	{227, "raw48", "Torq-amp_Count", Hdd},
	{228, "raw48", "Power-off_Retract_Count", Any},
	{230, "raw48", "Head_Amplitude", Hdd},
	{231, "raw48", "Temperature_Celsius", Hdd},
	{232, "raw48", "Available_Reservd_Space", Any},
	{233, "raw48", "Media_Wearout_Indicator", Ssd},
	{240, "raw24(raw8)", "Head_Flying_Hours", Hdd},
	{241, "raw48", "Total_LBAs_Written", Any},
	{242, "raw48", "Total_LBAs_Read", Any},
	{250, "raw48", "Read_Error_Retry_Rate", Any},
	{254, "raw48", "Free_Fall_Sensor", Hdd},
};

const DefaultAttribute *lookup(unsigned id)
{
	for (const auto &d : kDefaults)
		if (d.id == id)
			return &d;
	return nullptr;
}

const char *const kFormats[] = {"raw8",	       "raw16",	       "raw48",	       "hex48",	    "raw56",
				"hex56",       "raw64",	       "hex64",	       "raw16(raw16)", "raw16(avg16)",
				"raw24(raw8)", "raw24/raw24",  "raw24/raw32",  "sec2hour",	    "min2hour",
				"halfmin2hour", "msec24hour32", "tempminmax",  "temp10x"};

std::string fmt(const char *f, auto... args)
{
	char b[96];
	std::snprintf(b, sizeof b, f, args...);
	return b;
}

// A byte that is zero or the sign extension of the byte below it.
bool ext(uint8_t hi, uint8_t lo) { return hi == 0x00 || (hi == 0xFF && (lo & 0x80)); }

std::string temperature(const uint8_t r[6])
{
	const int t = static_cast<int8_t>(r[0]);
	const unsigned w1 = r[2] | r[3] << 8, w2 = r[4] | r[5] << 8;
	if (!w1 && !w2 && (r[1] == 0x00 || r[1] == 0xFF)) {
		// 00 00 00 00 xx TT: the current value alone, when xx extends its sign.
		if (ext(r[1], r[0]))
			return fmt("%d", t);
		return fmt("%u (%u %u %u %u %u)", r[0], r[5], r[4], r[3], r[2], r[1]);
	}
	// Where drives keep their lowest and highest temperature:
	//   xx HH xx LL xx TT, 00 00 HH LL xx TT, 00 00 00 HH LL TT, 00 CC HH LL xx TT
	// (xx: sign extension, CC: over-temperature count).
	struct Layout {
		bool fits;
		int a, b;
		bool counted;
	};
	const int s1 = static_cast<int8_t>(r[1]), s2 = static_cast<int8_t>(r[2]), s3 = static_cast<int8_t>(r[3]),
		  s4 = static_cast<int8_t>(r[4]);
	const Layout layouts[] = {
		{ext(r[1], r[0]) && ext(r[3], r[2]) && ext(r[5], r[4]), s2, s4, false},
		{!w2 && ext(r[1], r[0]), s2, s3, false},
		{!w2 && !r[3], s1, s2, false},
		{w2 < 0x7FFF && ext(r[1], r[0]), s2, s3, true},
	};
	for (const auto &l : layouts) {
		if (!l.fits)
			continue;
		// Only a believable range counts: -60 to 120 degrees around the current value,
		int lo = std::min(l.a, l.b), hi = std::max(l.a, l.b);
		// and a layout with a count only with a highest value of 40 or more.
		if (-60 <= lo && lo <= t && t <= hi && hi <= 120 && (!l.counted || hi >= 40)) {
			if (l.counted)
				return fmt("%d (Min/Max %d/%d #%u)", t, lo, hi, w2);
			return fmt("%d (Min/Max %d/%d)", t, lo, hi);
		}
	}
	return fmt("%u (%u %u %u %u %u)", r[0], r[5], r[4], r[3], r[2], r[1]);
}

} // namespace

std::string attributeName(unsigned id, unsigned rotation)
{
	const DefaultAttribute *d = lookup(id);
	if (!d)
		return "Unknown_Attribute";
	if (d->kind == Hdd && rotation == 1)
		return "Unknown_SSD_Attribute";
	if (d->kind == Ssd && rotation > 1)
		return "Unknown_HDD_Attribute";
	return d->name;
}

const char *defaultRawFormat(unsigned id)
{
	const DefaultAttribute *d = lookup(id);
	return d ? d->format : "raw48";
}

bool knownRawFormat(const std::string &format)
{
	return std::find(std::begin(kFormats), std::end(kFormats), format) != std::end(kFormats);
}

std::string formatRaw(const uint8_t r[6], const std::string &f)
{
	uint64_t v = 0;
	for (int i = 5; i >= 0; --i)
		v = v << 8 | r[i];
	const unsigned w0 = r[0] | r[1] << 8, w1 = r[2] | r[3] << 8, w2 = r[4] | r[5] << 8;
	const auto llu = [](uint64_t x) { return static_cast<unsigned long long>(x); };
	if (f == "raw8")
		return fmt("%u %u %u %u %u %u", r[5], r[4], r[3], r[2], r[1], r[0]);
	if (f == "raw16")
		return fmt("%u %u %u", w2, w1, w0);
	if (f == "hex48" || f == "hex56" || f == "hex64")
		return fmt("0x%012llx", llu(v));
	if (f == "raw16(raw16)")
		return w1 || w2 ? fmt("%u (%u %u)", w0, w2, w1) : fmt("%u", w0);
	if (f == "raw16(avg16)")
		return w1 ? fmt("%u (Average %u)", w0, w1) : fmt("%u", w0);
	if (f == "raw24(raw8)") {
		unsigned low = r[0] | r[1] << 8 | r[2] << 16;
		return r[3] || r[4] || r[5] ? fmt("%u (%u %u %u)", low, r[5], r[4], r[3]) : fmt("%u", low);
	}
	if (f == "raw24/raw24")
		return fmt("%u/%u", static_cast<unsigned>(v >> 24), static_cast<unsigned>(v & 0xFFFFFF));
	if (f == "raw24/raw32")
		return fmt("%u/%u", static_cast<unsigned>(v >> 32), static_cast<unsigned>(v & 0xFFFFFFFF));
	if (f == "sec2hour") {
		uint64_t h = v / 3600, m = (v % 3600) / 60, s = v % 60;
		return fmt("%lluh+%02llum+%02llus", llu(h), llu(m), llu(s));
	}
	if (f == "min2hour") {
		uint64_t minutes = w0 | static_cast<uint64_t>(w1) << 16;
		std::string s = fmt("%lluh+%02llum", llu(minutes / 60), llu(minutes % 60));
		return w2 ? s + fmt(" (%u)", w2) : s;
	}
	if (f == "halfmin2hour") {
		uint64_t minutes = v / 2;
		return fmt("%lluh+%02llum", llu(minutes / 60), llu(minutes % 60));
	}
	if (f == "msec24hour32") {
		uint64_t hours = v & 0xFFFFFFFF, ms = v >> 32;
		unsigned minutes = static_cast<unsigned>(ms / 60000);
		unsigned sec = static_cast<unsigned>(ms / 1000 % 60), milli = static_cast<unsigned>(ms % 1000);
		return fmt("%lluh+%02um+%02u.%03us", llu(hours + minutes / 60), minutes % 60, sec, milli);
	}
	if (f == "tempminmax")
		return temperature(r);
	if (f == "temp10x")
		return fmt("%u.%u", w0 / 10, w0 % 10);
	return fmt("%llu", llu(v)); // raw48, raw56, raw64
}

} // namespace vexosim::tools
