// The keys of the per-disk value cache and how each is stored. Shared by
// every family that reads or writes one, and by tools that list them.
#pragma once

#include <cstddef>
#include <string_view>

namespace vexo::cache {

enum class KeyType { Int, LLInt, Str };

struct Key {
	std::string_view name;
	KeyType type;
};

// is_bundle_ssd is read as an integer and written as a string of digits.
inline constexpr Key kKeys[] = {
	{"adv_damage_weight", KeyType::Int}, {"bad_sec_ct", KeyType::Int},
	{"below_remain_life_mail_notify_thr", KeyType::Int}, {"below_remain_life_show_thr", KeyType::Int},
	{"below_remain_life_thr", KeyType::Int}, {"critical_warning", KeyType::Int},
	{"dsl_cmd_support", KeyType::Int}, {"erase_time", KeyType::Int}, {"is_bundle_ssd", KeyType::Int},
	{"ironwolf", KeyType::Int}, {"is_vexo_drive", KeyType::Int}, {"mask_serial", KeyType::Int}, {"predict_weight", KeyType::Int},
	{"read_only", KeyType::Int}, {"remain_life", KeyType::Int}, {"remain_life_danger", KeyType::Int},
	{"reset_fail_weight", KeyType::Int}, {"sct_cmd_support", KeyType::Int},
	{"smart_attr_ignore", KeyType::Int}, {"ssd_bundle_warning_weight", KeyType::Int}, {"ssd_bundle_days_left", KeyType::Int}, {"smart_damage_weight", KeyType::Int},
	{"smart_selftest_log_type", KeyType::Int}, {"smart_test_ignore", KeyType::Int},
	{"smart_test_support", KeyType::Int}, {"ssd_bad_block_over_thr", KeyType::Int},
	{"timeout_weight", KeyType::Int}, {"unc_weight", KeyType::Int}, {"wdda_support", KeyType::Int},
	{"wdda_code", KeyType::Int}, {"wdda_weight", KeyType::Int}, {"wdda_damage_weight", KeyType::Int},
	{".smart_info_list.timestamp", KeyType::LLInt}, {"timeout_base", KeyType::LLInt},
	{"reset_fail_base", KeyType::LLInt}, {"unc_base", KeyType::LLInt},
	{"adv_status", KeyType::Str}, {"compatibility", KeyType::Str}, {"firm", KeyType::Str},
	{"firm_status_from_db", KeyType::Str}, {"force_compatibility", KeyType::Str}, {"model", KeyType::Str},
	{"predict_status", KeyType::Str}, {"reset_fail_status", KeyType::Str}, {"seq_status", KeyType::Str},
	{"serial", KeyType::Str}, {"smart", KeyType::Str}, {"smart_testing", KeyType::Str},
	{"sug_firm_upd_ver", KeyType::Str}, {"sug_promote_vos", KeyType::Str}, {"sug_update_vos", KeyType::Str},
	{"timeout_status", KeyType::Str}, {"ui_serial", KeyType::Str}, {"unc_status", KeyType::Str},
	{"vendor", KeyType::Str}, {"wdda_status", KeyType::Str},
};

inline constexpr const char *kDisksDir = "/run/vexostorage/disks";

// A disk name or key is one folder or file under kDisksDir: a single path
// element of letters, digits, '.', '_' and '-', never "." or "..", and not
// beginning with '-' (names also reach tools as arguments).
inline bool isNameComponent(const char *s)
{
	if (!s || !*s || *s == '-' || std::string_view(s) == "." || std::string_view(s) == "..")
		return false;
	std::size_t n = 0;
	for (; s[n]; ++n) {
		const char c = s[n];
		const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
				c == '_' || c == '-';
		if (!ok || n >= 255)
			return false;
	}
	return true;
}

} // namespace vexo::cache
