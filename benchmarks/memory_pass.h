// Reads and writes memory in vectors, and does nothing else.
#ifndef WQZ_BENCHMARKS_MEMORY_PASS_H
#define WQZ_BENCHMARKS_MEMORY_PASS_H

#include <cstddef>
#include <cstdint>

/// Writes as many bytes as it reads, or three for every two. The processor must have vectors of that many bytes.
template <size_t vector_bytes>
void Memory_Pass(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes);

template <>
void Memory_Pass<16>(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes);
template <>
void Memory_Pass<32>(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes);
template <>
void Memory_Pass<64>(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes);

#endif  // WQZ_BENCHMARKS_MEMORY_PASS_H
