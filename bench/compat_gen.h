// Compatibility databases and rule files the size of delivered ones, made
// up from a seed: thousands of drive models (some as patterns), several
// firmware entries each with version cut points, and a mapping of newer
// words. Used by the tests, the benchmark and the fuzz seeds.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vexo::test {

struct CompatGenModel {
	std::string key;      // model name or pattern
	std::string firmware; // a firmware key ("default" allowed)
	std::string word;     // its verdict at every version
};

struct CompatGenOptions {
	int models = 6000;
	uint32_t seed = 1;
	// Listed first, exactly as given, so a test knows their verdicts.
	std::vector<CompatGenModel> fixed;
};

namespace compat_gen_detail {

inline uint32_t next(uint32_t &s)
{
	s ^= s << 13;
	s ^= s >> 17;
	s ^= s << 5;
	return s;
}

inline std::string quote(const std::string &s)
{
	std::string o = "\"";
	for (char c : s) {
		if (c == '"' || c == '\\')
			o += '\\';
		o += c;
	}
	return o + "\"";
}

} // namespace compat_gen_detail

// A database in the delivered format, about 500 bytes per model.
inline std::string makeCompatDatabase(const CompatGenOptions &o)
{
	using namespace compat_gen_detail;
	static const char *vendors[] = {"ST", "WDC WD", "TOSHIBA MG", "HGST HUS", "Samsung SSD ", "CT", "VEXO HAT"};
	static const char *words[] = {"support", "unverified", "not_support", "for_eunit", "support_legacy"};
	static const char *cuts[] = {"42218.0", "64570.1", "69057.2", "72806.0", "72806.3", "79000.0"};
	uint32_t s = o.seed ? o.seed : 1;
	std::string out = "{\"disk_compatbility_info\":{";
	bool first = true;
	auto entry = [&](const std::string &fw, int ncuts, int start, const std::string &fixedWord, int build) {
		std::string e = quote(fw) + ":{\"vos_ver\":[";
		for (int c = 0; c < ncuts; ++c)
			e += (c ? "," : "") + quote(cuts[start + c]);
		e += "],\"compatibility_interval\":[";
		for (int c = 0; c <= ncuts; ++c) {
			std::string w = fixedWord.empty() ? words[next(s) % 5] : fixedWord;
			e += (c ? "," : "") + std::string("{\"compatibility\":") + quote(w);
			if (next(s) % 8 == 0)
				e += ",\"smart_test_ignore\":true,\"smart_attr_ignore\":false";
			e += "}";
		}
		e += "]";
		if (build > 0) {
			char b[96];
			std::snprintf(b, sizeof(b), ",\"fw_buildnumber\":%d,\"firm_bin\":\"fw_%d.bin\"", build, build);
			e += b;
		}
		return e + "}";
	};
	for (const CompatGenModel &m : o.fixed) {
		out += (first ? "" : ",") + quote(m.key) + ":{" + entry(m.firmware, 1, 3, m.word, 0) + "}";
		first = false;
	}
	for (int i = 0; i < o.models; ++i) {
		const char *vendor = vendors[next(s) % 7];
		char name[96];
		std::snprintf(name, sizeof(name), "%s%05u%c%c-%04d", vendor, next(s) % 100000, 'A' + next(s) % 26,
			      'A' + next(s) % 26, i);
		std::string key = name;
		if (i % 25 == 0) // a family of models as one pattern
			key = std::string("^") + vendor + "[0-9]{5}Q" + std::to_string(i) + "-.*$";
		std::string m = (first ? "" : ",") + quote(key) + ":{";
		first = false;
		int nfw = 2 + static_cast<int>(next(s) % 3);
		bool maker = std::string(vendor) == "VEXO HAT";
		for (int f = 0; f < nfw; ++f) {
			char fw[32];
			std::snprintf(fw, sizeof(fw), "%c%c%02u", 'A' + next(s) % 26, 'A' + next(s) % 26, f * 10 + next(s) % 10);
			std::string fwKey = (f == nfw - 1 && next(s) % 2) ? "default" : fw;
			int ncuts = static_cast<int>(next(s) % 4);
			int start = static_cast<int>(next(s) % (7 - ncuts));
			if (start + ncuts > 6)
				start = 6 - ncuts;
			m += (f ? "," : "") + entry(fwKey, ncuts, start, "", maker || next(s) % 3 == 0 ? 1000 + f * 7 : 0);
		}
		out += m + "}";
	}
	out += "},\"DB_Mapping\":[{\"time\":\"80000.0\",\"str\":\"support_legacy\",\"mapping\":\"support\"},"
	       "{\"time\":\"72000.0\",\"str\":\"support_legacy\",\"mapping\":\"not_support\"},"
	       "{\"time\":\"60000.0\",\"str\":\"support_beta\",\"mapping\":\"unverified\"}]}";
	return out;
}

// A rule file with the property combinations the rules are made of:
// verdicts, protocol, vendor, form factor, type and (for units) the host's
// verdict, with an unconditional last rule.
inline std::string makeCompatRules(bool eunit)
{
	std::string r = "{\"rules\":[";
	if (eunit)
		r += "{\"property\":{\"positive\":{\"host_compatibility\":\"for_eunit\"},\"negative\":{}},"
		     "\"actions\":{\"ui_compatibility\":\"support\",\"notification\":false}},";
	r += "{\"property\":{\"positive\":{\"compatibility\":\"support\"},\"negative\":{}},"
	     "\"actions\":{\"ui_compatibility\":\"support\",\"notification\":false,\"alert\":false}},"
	     "{\"property\":{\"positive\":{\"compatibility\":\"fw_upgrade_required\"},\"negative\":{}},"
	     "\"actions\":{\"ui_compatibility\":\"fw_upgrade_required\",\"notification\":true,\"selectable\":false,"
	     "\"can_select_after_fwupgrade\":true}},"
	     "{\"property\":{\"positive\":{\"compatibility\":\"not_support\",\"protocol\":\"SATA\"},"
	     "\"negative\":{\"formfactor_size\":\"2.5\"}},"
	     "\"actions\":{\"ui_compatibility\":\"not_support\",\"notification\":true,\"selectable\":false,\"hide_remain_life\":true,"
	     "\"hide_sb_days_left\":true,\"show_lifetime_chart\":false,\"send_health_report\":false}},"
	     "{\"property\":{\"positive\":{\"compatibility\":\"not_support\"},\"negative\":{\"vendor\":\"Vexology\"}},"
	     "\"actions\":{\"ui_compatibility\":\"not_support\",\"notification\":true,\"selectable\":false}},"
	     "{\"property\":{\"positive\":{\"protocol\":\"NVME\",\"type\":\"cache\"},\"negative\":{}},"
	     "\"actions\":{\"ui_compatibility\":\"not_in_support\",\"notification\":false,\"hide_unc\":true}},"
	     "{\"property\":{\"positive\":{},\"negative\":{}},"
	     "\"actions\":{\"ui_compatibility\":\"not_in_support\",\"notification\":false,\"notify_unc\":false}}]}";
	return r;
}

} // namespace vexo::test
