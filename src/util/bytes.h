// Bytes of files, and the numbers and names in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace keldo {

using Bytes = std::span<const std::uint8_t>;

[[nodiscard]] inline Bytes AsBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// The caller has checked that the bytes of a number are there.

[[nodiscard]] constexpr std::uint16_t LittleEndian16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

[[nodiscard]] constexpr std::uint32_t LittleEndian32(const std::uint8_t* bytes) {
  return LittleEndian16(bytes) | (std::uint32_t{LittleEndian16(bytes + 2)} << 16U);
}

[[nodiscard]] constexpr std::uint16_t BigEndian16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]);
}

[[nodiscard]] constexpr std::uint32_t BigEndian32(const std::uint8_t* bytes) {
  return (std::uint32_t{BigEndian16(bytes)} << 16U) | BigEndian16(bytes + 2);
}

/// The text of `length` bytes at `offset`; empty when the bytes end before.
[[nodiscard]] inline std::string_view TextAt(Bytes bytes, std::size_t offset, std::size_t length) {
  if (bytes.size() < offset + length) return {};
  return {reinterpret_cast<const char*>(bytes.data() + offset), length};
}

[[nodiscard]] inline bool StartsWith(Bytes bytes, std::string_view magic) {
  return TextAt(bytes, 0, magic.size()) == magic;
}

}  // namespace keldo
