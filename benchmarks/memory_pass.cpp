// Reads and writes memory in vectors of one width, WQZ_VECTOR_BYTES, for which this file is compiled.
#include "memory_pass.h"

namespace {

typedef uint8_t Bytes __attribute__((vector_size(WQZ_VECTOR_BYTES), aligned(1), may_alias));

}  // namespace

template <>
void Memory_Pass<WQZ_VECTOR_BYTES>(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes)
{
    const size_t read_vectors = read_bytes / sizeof(Bytes);
    const size_t write_vectors = write_bytes / sizeof(Bytes);
    const auto* source = reinterpret_cast<const Bytes*>(in);
    auto* target = reinterpret_cast<Bytes*>(out);
    if (read_vectors == write_vectors) {
        for (size_t i = 0; i + 2 <= read_vectors; i += 2) {
            const Bytes a = source[i];
            const Bytes b = source[i + 1];
            target[i] = ~a;
            target[i + 1] = ~b;
        }
        return;
    }
    for (size_t i = 0; i + 2 <= read_vectors; i += 2, target += 3) {
        const Bytes a = source[i];
        const Bytes b = source[i + 1];
        target[0] = a;
        target[1] = a ^ b;
        target[2] = b;
    }
}
