// The streaming side of the test camera: negotiation, numbered frames, payloads.
#ifndef WQZ_TESTS_KERNEL_USB_CAMERA_STREAM_H
#define WQZ_TESTS_KERNEL_USB_CAMERA_STREAM_H

#include <turbojpeg.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

#include "usb_camera_descriptors.h"

struct Probe_Control {  // UVC 1.0, as it goes over the wire
    uint16_t hint;
    uint8_t format, frame;
    uint32_t interval;
    uint16_t rates[5];
    uint32_t max_frame, max_payload;
} __attribute__((packed));
static_assert(sizeof(Probe_Control) == 26);

/// A baseline JPEG of stripes, with room for the counter comment behind the start marker.
inline Bytes Encode_Jpeg(const Frame_Size& size)
{
    Bytes pixels(size_t{size.width} * size.height * 3);
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<uint8_t>(i / 7 + i % 3 * 60);
    }
    unsigned char* out = nullptr;
    unsigned long length = 0;
    const tjhandle encoder = tjInitCompress();
    if (tjCompress2(encoder, pixels.data(), size.width, 0, size.height, TJPF_RGB, &out, &length, TJSAMP_422, 75, 0)) {
        throw std::runtime_error(tjGetErrorStr2(encoder));
    }
    Bytes image(out, out + length);
    tjFree(out);
    tjDestroy(encoder);
    image.insert(image.begin() + Test_Picture::Comment_At, Test_Picture::Comment_Bytes, 0);
    return image;
}

/// The streaming side: which mode was negotiated, and its frames, paced by the negotiated interval. They are numbered
/// from 0 at each start; none is left out, a slow host gets them late.
/// States: stopped, streaming.
class Stream {
public:
    Stream() : cJpeg{Encode_Jpeg(Sizes[0]), Encode_Jpeg(Sizes[1])} { Negotiate(Probe_Control{}); }

    const Probe_Control& Probe() const { return S_Probe; }

    /// Brings what the host asks for into what the camera can do.
    void Negotiate(Probe_Control wanted)
    {
        wanted.format = std::clamp<uint8_t>(wanted.format, 1, 2);
        wanted.frame = std::clamp<uint8_t>(wanted.frame, 1, 2);
        const Frame_Size& size = Sizes[wanted.frame - 1U];
        const auto distance = [&](uint32_t interval) { return std::abs(int64_t{interval} - int64_t{wanted.interval}); };
        wanted.interval = *std::min_element(size.intervals.begin(), size.intervals.end(),
                                            [&](uint32_t a, uint32_t b) { return distance(a) < distance(b); });
        wanted.max_frame = uint32_t{size.width} * size.height * 2;
        wanted.max_payload = Max_Payload;
        S_Probe = wanted;
    }

    void Start(const Probe_Control& wanted)
    {
        Negotiate(wanted);
        u_Counter = 0;
        cFrame.clear();
        Next_Frame = Clock::now();
        bStreaming = true;
    }

    void Stop() { bStreaming = false; }
    bool Streaming() const { return bStreaming; }
    void Pause(std::chrono::seconds time) { Next_Frame = std::max(Next_Frame, Clock::now() + time); }

    /// @return how long until the next payload is due, 0 or less when it is
    auto Wait() const { return cFrame.empty() ? Next_Frame - Clock::now() : Clock::duration::zero(); }

    /// @return the next payload with its header, for a transfer of `room` bytes
    Bytes Next_Payload(uint32_t room)
    {
        if (cFrame.empty()) {
            Begin_Frame();
        }
        const size_t data = std::min<size_t>(cFrame.size() - u_Sent, std::min(room, Max_Payload) - 2);
        const bool last = u_Sent + data == cFrame.size();
        Bytes payload(2 + data);
        payload[0] = 2;  // bytes of the header: this one and its bits, which say end of header, end of frame, parity
        payload[1] = static_cast<uint8_t>(0x80 | (last ? 0x02 : 0) | (u_Counter & 0x01));
        std::copy_n(cFrame.begin() + static_cast<std::ptrdiff_t>(u_Sent), data, payload.begin() + 2);
        u_Sent += data;
        if (last) {
            cFrame.clear();
            ++u_Counter;
        }
        return payload;
    }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr uint32_t Max_Payload = 16384;  // 32 packets of 512 bytes, uvcvideo's largest transfer

    void Begin_Frame()
    {
        const size_t mode = S_Probe.frame - 1U;
        cFrame = S_Probe.format == 1 ? cJpeg[mode]
                                     : Test_Picture::Yuyv_Frame(Sizes[mode].width, Sizes[mode].height, u_Counter);
        if (S_Probe.format == 1) {
            Test_Picture::Write_Comment(cFrame.data() + Test_Picture::Comment_At, u_Counter);
        }
        u_Sent = 0;
        // No burst after a slow host or a pause.
        Next_Frame = std::max(Next_Frame + std::chrono::nanoseconds(int64_t{S_Probe.interval} * 100), Clock::now());
    }

    Bytes cJpeg[2];  // one per size
    Bytes cFrame;    // the frame being sent; empty between frames
    Probe_Control S_Probe{};
    size_t u_Sent = 0;
    uint32_t u_Counter = 0;
    Clock::time_point Next_Frame;
    bool bStreaming = false;
};

#endif  // WQZ_TESTS_KERNEL_USB_CAMERA_STREAM_H
