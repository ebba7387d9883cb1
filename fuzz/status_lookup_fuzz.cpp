// Status keyword lookups over arbitrary category and keyword texts.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vexohw/frame.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	std::string in(reinterpret_cast<const char *>(data), size);
	auto cut = in.find('\0');
	std::string category = in.substr(0, cut);
	std::string keyword = cut == std::string::npos ? std::string() : in.substr(cut + 1);
	int rank, abnormal, summary;
	DiskStatusAllAttributeGet(category.c_str(), keyword.c_str(), &rank, &abnormal, &summary);
	char out[8];
	int index = size ? static_cast<int8_t>(data[0]) : 0;
	DiskStatusStringTrensfer(category.c_str(), index, out, 1 + (size % sizeof(out)));
	return 0;
}
