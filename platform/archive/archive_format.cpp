#include "platform/archive/archive_format.h"

#include <cstring>
#include <openssl/evp.h>

namespace vexo::archive {
namespace {

constexpr char kHead[] = "VEXOSIG1";
constexpr char kTail[] = "VEXOEND1";
constexpr char kPrefix[8] = {'V', 'E', 'X', 'O', 'S', 'A', '\0', '\1'};

template <typename T>
T le(const unsigned char *p)
{
	T v = 0;
	for (std::size_t i = 0; i < sizeof(T); ++i)
		v |= static_cast<T>(p[i]) << (8 * i);
	return v;
}

template <typename T>
void putLe(unsigned char *p, T v)
{
	for (std::size_t i = 0; i < sizeof(T); ++i)
		p[i] = static_cast<unsigned char>(v >> (8 * i));
}

} // namespace

std::optional<Trailer> readTrailer(std::string_view file)
{
	if (file.size() < kTrailerSize)
		return std::nullopt;
	auto *p = reinterpret_cast<const unsigned char *>(file.data() + file.size() - kTrailerSize);
	if (std::memcmp(p, kHead, 8) != 0 || std::memcmp(p + 88, kTail, 8) != 0)
		return std::nullopt;
	Trailer t;
	t.keyType = le<std::uint32_t>(p + 8);
	t.flags = le<std::uint32_t>(p + 12);
	t.containerSize = le<std::uint64_t>(p + 16);
	std::memcpy(t.signature.data(), p + 24, kSignatureSize);
	if (t.containerSize != file.size() - kTrailerSize)
		return std::nullopt;
	return t;
}

std::array<unsigned char, kTrailerSize> writeTrailer(const Trailer &t)
{
	std::array<unsigned char, kTrailerSize> out{};
	std::memcpy(out.data(), kHead, 8);
	putLe(out.data() + 8, t.keyType);
	putLe(out.data() + 12, t.flags);
	putLe(out.data() + 16, t.containerSize);
	std::memcpy(out.data() + 24, t.signature.data(), kSignatureSize);
	std::memcpy(out.data() + 88, kTail, 8);
	return out;
}

std::optional<std::array<unsigned char, kMessageSize>> message(std::uint32_t keyType, std::uint32_t flags,
								 std::string_view container)
{
	std::array<unsigned char, kMessageSize> m{};
	std::memcpy(m.data(), kPrefix, 8);
	putLe(m.data() + 8, keyType);
	putLe(m.data() + 12, flags);
	putLe(m.data() + 16, static_cast<std::uint64_t>(container.size()));
	unsigned int len = 0;
	if (EVP_Digest(container.data(), container.size(), m.data() + 24, &len, EVP_sha256(), nullptr) != 1 ||
	    len != 32)
		return std::nullopt;
	return m;
}

} // namespace vexo::archive
