// Takes numbers and bytes from the input of a fuzzer.
#ifndef WQZ_TESTS_FUZZ_FUZZ_INPUT_H
#define WQZ_TESTS_FUZZ_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Ends the process, for the fuzzer to report, when a property does not hold.
inline void Require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

/// The bytes of one input, from the first to the last. Beyond the end everything is zero or empty.
class Fuzz_Input {
public:
    Fuzz_Input(const uint8_t* data, size_t size) : next(data), left(size) {}

    bool Is_Empty() const { return left == 0; }

    void Fill(void* target, size_t size)
    {
        const size_t taken = std::min(size, left);
        std::memset(target, 0, size);
        if (taken > 0) {
            std::memcpy(target, next, taken);
        }
        next += taken;
        left -= taken;
    }

    template <typename Number>
    Number Take()
    {
        Number number{};
        Fill(&number, sizeof number);
        return number;
    }

    /// @return a number from 0 to limit - 1
    uint32_t Below(uint32_t limit) { return Take<uint16_t>() % limit; }

    /// @return a text of at most 300 bytes, whose length the input chooses
    std::string Text()
    {
        std::string text(std::min<size_t>(Below(301), left), '\0');
        Fill(text.data(), text.size());
        return text.substr(0, text.find('\0'));
    }

    /// @return what is left, in a block of exactly its size, so that the address sanitizer reports each read beyond it
    std::vector<uint8_t> Rest()
    {
        std::vector<uint8_t> rest(next, next + left);
        rest.shrink_to_fit();
        left = 0;
        return rest;
    }

private:
    const uint8_t* next;
    size_t left;
};

#endif  // WQZ_TESTS_FUZZ_FUZZ_INPUT_H
