#pragma once

#include <cstddef>
#include <cstdint>

// Numbers inside the agent's binary blocks (event log records, RAW data, the
// init-channel block) are little-endian whatever the host's order. They are
// taken byte by byte, so neither host order nor alignment matters.
namespace LittleEndian {

inline uint16_t Read16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

inline uint32_t Read32(const unsigned char* p) {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

// A signed field: the same four bytes, two's complement.
inline int32_t ReadI32(const unsigned char* p) { return static_cast<int32_t>(Read32(p)); }

// The 32-bit value at `offset` of a block of `size` bytes; false, and value
// untouched, when its four bytes do not all lie inside the block.
inline bool Read32(const unsigned char* data, size_t size, size_t offset, uint32_t& value) {
  if (size < 4 || offset > size - 4) return false;
  value = Read32(data + offset);
  return true;
}

// The low `width` bytes of value (at most 8), lowest first.
inline void Write(uint64_t value, size_t width, unsigned char* out) {
  for (size_t i = 0; i < width; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

inline void Write32(uint32_t value, unsigned char* out) { Write(value, 4, out); }

}  // namespace LittleEndian
