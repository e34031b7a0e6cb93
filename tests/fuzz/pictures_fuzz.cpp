// Pictures in place and in files, raw dumps, and the decoders below them, for frames of any bytes and size.
#include <sys/stat.h>

#include "fuzz/fuzz_input.h"
#include "Stream/video_stream.h"
#include "Stream/YUV/yuv_stream.h"

namespace {

const std::string& Folder()
{
    static const std::string folder = [] {
        char name[] = "/tmp/pictures-fuzz-XXXXXX";
        return std::string(mkdtemp(name));
    }();
    return folder;
}

off_t Size_Of(const char* name)
{
    struct stat file {};
    return stat((Folder() + "/" + name).c_str(), &file) == 0 ? file.st_size : -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fuzz_Input input(data, size);
    Frame_Buffer frame;
    Frame_Buffer_Data& record = frame.sBuf;
    record.PixFormat.u_Width = input.Below(300);
    record.PixFormat.u_Height = input.Below(100);
    const uint32_t choice = input.Below(5);
    const std::vector<uint8_t> bytes = input.Rest();
    auto* block = new uint8_t[bytes.size()];
    std::copy(bytes.begin(), bytes.end(), block);
    record.pMem = block;
    record.buffer.bytesused = static_cast<uint32_t>(bytes.size());
    std::string folder = Folder();
    if (choice == 0) {
        (void)YUV_Stream::Frame_buffer_Deal_With(&record);
        Require(record.buffer.bytesused == bytes.size() * 3 / 2 + 54);
    } else if (choice == 1) {
        (void)YUV_Stream::Save_Frame_buffer(folder.data(), &frame);
        const uint32_t pixels = record.PixFormat.u_Width * record.PixFormat.u_Height;
        Require(record.PixFormat.u_Width == 0 || Size_Of("0_0.bmp") == off_t{pixels} * 3 + 54);
    } else if (choice == 2) {
        (void)Video_Stream::Save_Frame_buffer(folder.data(), &frame);
        Require(Size_Of("0_0.raw") == static_cast<off_t>(bytes.size()));
    } else if (choice == 3) {
        (void)YUV_Stream::Frame_buffer_Deal_With_Raw10(&frame);
    } else {
        (void)YUV_Stream::Frame_buffer_Deal_With_Raw12(&frame);
    }
    delete[] static_cast<uint8_t*>(record.pMem);
    return 0;
}
