// Numbers in files. Whoever calls has checked that the bytes are there.
#pragma once

#include <cstdint>

namespace keldo {

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

}  // namespace keldo
