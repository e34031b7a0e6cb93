// Frames written to disk as they came.
#include "Stream/video_stream.h"

#include <cstdio>

#include "Stream/save_file.h"
#include "Trace/trace.h"

namespace {

constexpr Trace_Module Module = {"source//Stream/video_stream"};

// The trace lines of this file. Trace numbers are fixed identifiers, not source lines; do not renumber them.
namespace mark {
constexpr Trace_Line Save = Module.Start(33, "Save_Frame_buffer");
constexpr Trace_Line Save_Done = Module.End(35, "Save_Frame_buffer");
constexpr Trace_Line Deal_With = Module.Plain(41, "Frame_buffer_Deal_With");
}  // namespace mark

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
    Trace(mark::Save);
    Save_Raw(Dir_Path, p_Frame_buffer->sBuf);
    Trace(mark::Save_Done);
    return 0;
}

int32_t Video_Stream::Frame_buffer_Deal_With(char* Dir_Path, Frame_Buffer* p_Frame_buffer)
{
    Trace(mark::Deal_With);
    return Save_Frame_buffer(Dir_Path, p_Frame_buffer);
}
