// The signed archive's trailer and signed message, shared by the reader and
// the tool that makes archives. The layout is documented in
// <vexoplatform/vexoarchive.h>.
#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vexo::archive {

inline constexpr std::size_t kTrailerSize = 96;
inline constexpr std::size_t kSignatureSize = 64;
inline constexpr std::size_t kMessageSize = 56;

struct Trailer {
	std::uint32_t keyType = 0;
	std::uint32_t flags = 0;
	std::uint64_t containerSize = 0;
	std::array<unsigned char, kSignatureSize> signature{};
};

// The trailer at the end of a whole file, if the magic words and the sizes
// agree with the file's length.
std::optional<Trailer> readTrailer(std::string_view file);
std::array<unsigned char, kTrailerSize> writeTrailer(const Trailer &t);

// The message that is signed: fixed prefix, key type, flags, container size,
// SHA-256 of the container. Empty on a digest failure.
std::optional<std::array<unsigned char, kMessageSize>> message(std::uint32_t keyType, std::uint32_t flags,
								 std::string_view container);

} // namespace vexo::archive
