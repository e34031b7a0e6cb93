// BMP images of uncompressed frames, in memory and as files.
#ifndef WQZ_YUV_STREAM_H
#define WQZ_YUV_STREAM_H

#include <stdint.h>

#include "data_typedef/data_typedef.h"
#include "Stream/frame_buffer.h"
#include "Stream/YUV/bmp_header.h"
#include "Stream/YUV/yuv_decode.h"

/// Turns uncompressed frames into 24-bit BMP images. Image viewers show them upside down: the rows lie top row first
/// while the header declares a bottom-up image, and programs that read these images rely on both. Rows are not padded,
/// so few viewers take a width that is not a multiple of 4.
class WQZ_USBCAM_EXPORT YUV_Stream {
public:
    virtual ~YUV_Stream();

    /// Turns a YUYV frame into a BMP image in place. pMem (array new) is replaced, and bytesused and buff_Length become
    /// bytesused * 3 / 2 + 54. Width and height in the header are those of PixFormat, whatever bytesused says. A frame
    /// so large that bytesused * 3 does not fit 32 bits is left as it is.
    /// @return null
    static PVOID Frame_buffer_Deal_With(Frame_Buffer_Data* p_Frame_buffer);

    /// The same as Save_Frame_buffer(Dir_Path, pFrame_Buffer).
    static int32_t Frame_buffer_Deal_With(char* Dir_Path, Frame_Buffer* pFrame_Buffer);

    /// Writes a raw Bayer frame (BGGR, 16 bits per sample) as "<Dir_Path>/<seconds>_<microseconds>.bmp", named by its
    /// Frame_Time. Missing samples are black. A frame without a width, or too large for 32 bits, is not written.
    /// @param Dir_Path  null for the fixed debugging directory
    /// @return 0, whatever happened; a file that cannot be opened is skipped silently
    static int32_t Save_Frame_buffer(char* Dir_Path, Frame_Buffer* p_Frame_buffer);

    /// Writes w * h pixels of YUYV as "Test.bmp" in the fixed debugging directory. With a w or an h of 0 the file is
    /// the 54-byte header. A picture too large for 32 bits is not written.
    /// @param p_Data  w * h * 2 bytes
    /// @return 0, whatever happened
    static int32_t Save_Frame_buffer(uint8_t* p_Data, uint32_t w, uint32_t h);

    /// Repack a frame of 10-bit samples in place. The 12-bit variant does the same, and both give identical bytes.
    /// @return null
    static PVOID Frame_buffer_Deal_With_Raw10(Frame_Buffer* p_Frame_buffer);
    static PVOID Frame_buffer_Deal_With_Raw12(Frame_Buffer* p_Frame_buffer);

    /// The tables of the library, built when it is loaded, read-only from then on.
    static YUV_Decode YUV_Decode_Table;
};

#endif  // WQZ_YUV_STREAM_H
