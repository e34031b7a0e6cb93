// The length of a Motion-JPEG image in any bytes, by both searches and by the driver's count.
#include "fuzz/fuzz_input.h"
#include "Stream/frame_buffer.h"
#include "Stream/image_end.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fuzz_Input input(data, size);
    std::vector<uint8_t> bytes = input.Rest();
    const auto length = static_cast<uint32_t>(bytes.size());
    v4l2_buffer record{};
    record.bytesused = length;
    const int32_t by_record = Frame_Buffer::MJPEG_Length(bytes.data(), &record);
    Require(by_record == -1 || by_record == static_cast<int32_t>(length));
    const int32_t by_search = Frame_Buffer::MJPEG_Length(bytes.data(), length);
    Require(by_search >= -1 && by_search <= static_cast<int32_t>(length));
    const uint32_t found = Jpeg_Length(bytes.data(), length);
    Require(found <= length);
    Require(found == length || Ends_Jpeg(bytes.data(), found));
    return 0;
}
