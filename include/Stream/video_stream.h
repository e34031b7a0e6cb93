// Frames written to disk as they came.
#ifndef WQZ_VIDEO_STREAM_H
#define WQZ_VIDEO_STREAM_H

#include <stdint.h>

#include "data_typedef/data_typedef.h"
#include "Stream/frame_buffer.h"

/// Writes frames to disk as they came, for inspection.
class WQZ_USBCAM_EXPORT Video_Stream {
public:
    virtual ~Video_Stream();

    /// Writes the bytes of a frame to "<Dir_Path>/<seconds>_<microseconds>.raw", named by its Frame_Time. A second
    /// frame of the same microsecond overwrites the first.
    /// @param Dir_Path  null for the fixed debugging directory
    /// @return 0, whatever happened; a file that cannot be opened is reported on standard error
    static int32_t Save_Frame_buffer(char* Dir_Path, Frame_Buffer* p_Frame_buffer);

    /// The same.
    static int32_t Frame_buffer_Deal_With(char* Dir_Path, Frame_Buffer* p_Frame_buffer);
};

#endif  // WQZ_VIDEO_STREAM_H
