// Takes frames from a camera, and ends: take_frames NODE FOURCC WIDTH HEIGHT FRAMES library|loop
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "camera_stream.h"
#include "mapped_stream.h"

namespace {

constexpr auto Look_Away = [](const auto&...) {};

void By_Library(const char* node, uint32_t fourcc, uint32_t width, uint32_t height, long frames)
{
    Camera_Stream stream(node, fourcc, width, height);
    for (long i = 0; i < frames; ++i) {
        if (!stream.Take_Frame(Look_Away)) {
            throw std::runtime_error("no frame");
        }
    }
}

void By_Poll_Loop(const char* node, uint32_t fourcc, uint32_t width, uint32_t height, long frames)
{
    Mapped_Stream<Kernel_Calls> stream(node, fourcc, width, height);
    for (long i = 0; i < frames; ++i) {
        stream.Wait_By_Poll();
        stream.Take_Ready_Frame(Look_Away);
    }
}

uint32_t Number(const char* text)
{
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}

}  // namespace

int main(int argc, char** argv)
try {
    if (argc != 7 || std::strlen(argv[2]) != 4) {
        throw std::runtime_error("usage: take_frames NODE FOURCC WIDTH HEIGHT FRAMES library|loop");
    }
    const char* const code = argv[2];
    const uint32_t fourcc = WQZ_CAMERA_FOURCC(code[0], code[1], code[2], code[3]);
    const auto take = std::strcmp(argv[6], "library") == 0 ? By_Library : By_Poll_Loop;
    take(argv[1], fourcc, Number(argv[3]), Number(argv[4]), Number(argv[5]));
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "take_frames: %s\n", error.what());
    return 1;
}
