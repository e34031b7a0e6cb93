// Decoding Motion-JPEG with TurboJPEG.
#include "Camera/jpeg_picture.h"

#include <cerrno>
#include <string>

#include "Camera/failure.h"
#include "Stream/image_end.h"

#ifdef WQZ_WITH_TURBOJPEG

#include <turbojpeg.h>

namespace wqz_camera {

namespace {

/// Its decoder is made once per thread and kept: making one costs more than a small picture.
class Decoder {
public:
    Decoder() : handle(tjInitDecompress()) {}
    ~Decoder()
    {
        if (handle != nullptr) {
            tjDestroy(handle);
        }
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    tjhandle Handle() const
    {
        if (handle == nullptr) {
            throw Failure(ENOMEM, "The decoder for Motion-JPEG cannot be made.");
        }
        return handle;
    }

private:
    tjhandle handle;
};

Failure Broken(const std::string& what)
{
    return {EBADMSG, "The Motion-JPEG picture " + what};
}

void Check_Size(tjhandle decoder, const uint8_t* data, unsigned long length, const Pixel_Rows& target)
{
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int colours = 0;
    if (tjDecompressHeader3(decoder, data, length, &width, &height, &subsampling, &colours) != 0) {
        throw Broken(std::string("cannot be decoded: ") + tjGetErrorStr2(decoder) + ".");
    }
    if (static_cast<uint32_t>(width) != target.width || static_cast<uint32_t>(height) != target.height) {
        throw Broken("is " + std::to_string(width) + "x" + std::to_string(height) + ", not as large as its mode.");
    }
}

}  // namespace

// Many cameras send pictures about which the decoder warns although they are whole. So a warning counts only when the
// end of the picture is missing.
void Decode_Jpeg(const uint8_t* data, uint64_t length, const Pixel_Rows& target)
{
    thread_local const Decoder decoder;
    tjhandle handle = decoder.Handle();
    const auto bytes = static_cast<unsigned long>(length);  // as wide as addresses are
    Check_Size(handle, data, bytes, target);
    const int result = tjDecompress2(handle, data, bytes, target.pixels, static_cast<int>(target.width),
                                     static_cast<int>(target.stride), static_cast<int>(target.height),
                                     target.red_first ? TJPF_RGB : TJPF_BGR, 0);
    if (result != 0 && tjGetErrorCode(handle) == TJERR_FATAL) {
        throw Broken(std::string("cannot be decoded: ") + tjGetErrorStr2(handle) + ".");
    }
    if (result != 0 && !Ends_Jpeg(data, static_cast<uint32_t>(length))) {
        throw Broken("is cut short; what came of it was decoded.");
    }
}

}  // namespace wqz_camera

#else

namespace wqz_camera {

void Decode_Jpeg(const uint8_t* /*data*/, uint64_t /*length*/, const Pixel_Rows& /*target*/)
{
    throw Failure(ENOTSUP, "This library was built without TurboJPEG, so Motion-JPEG cannot be converted.");
}

}  // namespace wqz_camera

#endif
