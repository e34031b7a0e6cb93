// Decoding of Motion-JPEG frames.
#ifndef WQZ_CAMERA_JPEG_PICTURE_H
#define WQZ_CAMERA_JPEG_PICTURE_H

#include <cstdint>

#include "Camera/frame_convert.h"

namespace wqz_camera {

/// @throws Failure  ENOTSUP when the library was built without a decoder; EBADMSG for a picture that is broken, cut
///                  short (decoded as far as it goes) or of another size than the target
void Decode_Jpeg(const uint8_t* data, uint64_t length, const Pixel_Rows& target);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_JPEG_PICTURE_H
