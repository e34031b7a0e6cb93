#include "Stream/video_stream.h"

#include <cstdio>
#include <cstring>

#include "Stream/save_file.h"
#include "USBCam_API/trace.h"

namespace {

constexpr Text Module = "source//Stream/video_stream";

void Save_Raw(const char* directory, const Frame_Buffer_Data& frame)
{
    if (frame.pMem == nullptr) {
        fprintf(stderr, "Raw Not Vail!\n");
        return;
    }
    const std::string path = Save_Path(directory, Time_Name(frame.Frame_Time, "raw"));
    if (!Save_File(path, frame.pMem, frame.buffer.bytesused)) {
        perror(path.c_str());
    }
}

}  // namespace

Video_Stream::~Video_Stream() = default;

int32_t Video_Stream::Save_Frame_buffer(char* Dir_Path, Frame_Buffer* p_Frame_buffer)
{
    Trace<Module, __LINE__, "Save_Frame_buffer", Mark::Start>();
    Save_Raw(Dir_Path, p_Frame_buffer->sBuf);
    Trace<Module, __LINE__, "Save_Frame_buffer", Mark::End>();
    return 0;
}

int32_t Video_Stream::Frame_buffer_Deal_With(char* Dir_Path, Frame_Buffer* p_Frame_buffer)
{
    Trace<Module, __LINE__, "Frame_buffer_Deal_With", Mark::Plain>();
    return Save_Frame_buffer(Dir_Path, p_Frame_buffer);
}
