// A whole use of the session interface, with a look at what its contract promises after each failure.
#include <linux/videodev2.h>
#include <virtual_camera/virtual_camera.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <thread>

#include "reliability/sweep_case.h"
#include "Stream/YUV/yuv_stream.h"
#include "USBCam_API/USBCam_API.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t Mjpeg = 0;
constexpr uint32_t Yuyv = 1;
constexpr int Frames = 4;
constexpr size_t Bmp_Header_Bytes = 54;
constexpr auto Short_Wait = std::chrono::milliseconds(300);  // where a capture may wait for ever
constexpr auto Long_Wait = std::chrono::seconds(20);         // where it must go on, on a busy machine

bool Concerns(const std::vector<faults::Fault>& failures, const std::vector<faults::Site>& sites)
{
    return std::any_of(failures.begin(), failures.end(), [&](const faults::Fault& fault) {
        return std::find(sites.begin(), sites.end(), fault.site) != sites.end();
    });
}

class Session_Use {
public:
    Session_Use(Report& report_, const std::vector<faults::Fault>& failures)
        : report(report_),
          may_lack_memory(Concerns(failures, {faults::Allocation})),
          // After a refused start or refused buffers the capture waits in its read, and a stop does not reach it.
          may_wait(Concerns(failures, {VIDIOC_REQBUFS, VIDIOC_STREAMON, VIDIOC_QBUF}))
    {
    }

    void Whole();

private:
    // Makes a call whose failures count. Only memory that lacks may make it throw.
    // @return whether it returned
    bool Call(const char* name, const std::function<void()>& body)
    {
        try {
            const faults::In_Library use;
            body();
            return true;
        } catch (const std::bad_alloc&) {
            report.Expect(may_lack_memory, std::string(name) + " threw");
            return false;
        }
    }

    void Capture(uint32_t format);
    void Take_Frames(uint32_t format);
    void Check(const Frame_Buffer_Data& frame, uint32_t format);
    template <typename Condition>
    bool Becomes(Condition condition) const;

    Report& report;
    bool may_lack_memory;
    bool may_wait;
    void* session = nullptr;
    std::atomic<bool> ended{false};
    std::atomic<bool> threw{false};  // the capture, for lack of memory
    bool took_frame = false;
    v4l2_dev_sys_data_t record{};
};

template <typename Condition>
bool Session_Use::Becomes(Condition condition) const
{
    const auto end = Clock::now() + (may_wait ? Clock::duration(Short_Wait) : Clock::duration(Long_Wait));
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A frame that is not marked holds what the camera sent, or the picture made of it.
void Session_Use::Check(const Frame_Buffer_Data& frame, uint32_t format)
{
    report.Expect(frame.PixFormat.u_PixFormat == format && frame.PixFormat.u_Width == 320, "a wrong label");
    if ((frame.buffer.flags & V4L2_BUF_FLAG_ERROR) != 0 || frame.pMem == nullptr) {
        return;
    }
    std::vector<uint8_t> sent = virtual_camera::Frame_Bytes(Swept_Node, frame.buffer.sequence);
    const auto* bytes = static_cast<const uint8_t*>(frame.pMem);
    size_t length = frame.buffer.bytesused;
    if (format == Yuyv) {
        std::vector<uint8_t> pixels(sent.size() / 4 * 6);
        (void)YUV_Stream::YUV_Decode_Table.YUYV_Decode(sent.data(), static_cast<uint32_t>(sent.size()), pixels.data(),
                                                       0);
        sent.swap(pixels);
        bytes += Bmp_Header_Bytes;
        length -= Bmp_Header_Bytes;
    }
    report.Expect(length >= sent.size() && std::memcmp(bytes, sent.data(), sent.size()) == 0,
                  "an unmarked frame with wrong bytes");
}

void Session_Use::Take_Frames(uint32_t format)
{
    for (int taken = 0; taken < Frames && !ended; ++taken) {
        Frame_Buffer_Data* frame = nullptr;
        const bool came = Becomes([&] {
            (void)Call("GET_FRAME_BUFF", [&] { frame = WQZ_USBCam_GET_FRAME_BUFF(session, false); });
            return frame != nullptr || ended;
        });
        report.Expect(came || may_wait, "no frame came");
        if (frame != nullptr) {
            Check(*frame, format);
            took_frame = true;
            if (!Call("SAVE_FRAME_RES", [&] { WQZ_USBCam_SAVE_FRAME_RES(session, frame); })) {
                report.Excuse_Memory();  // the record is still the program's
            }
        }
        if (!came) {
            return;
        }
    }
}

void Session_Use::Capture(uint32_t format)
{
    if (!Call("CREATE", [&] { session = WQZ_USBCam_CREATE_DEVICE_POINT(record); })) {
        return;
    }
    (void)Call("INIT", [&] { (void)WQZ_USBCam_Video_DEAL_WITH_INIT(session, 0); });
    (void)Call("Format_List", [&] {
        const int32_t count = WQZ_USBCam_Get_Format_List_Size(session);
        std::vector<Pix_Format> modes(static_cast<size_t>(std::max(count, 0)));
        (void)WQZ_USBCam_Get_Format_List(session, modes.data());
    });
    int32_t value = 0;
    (void)Call("PU_Get", [&] { (void)WQZ_USBCam_PU_Get(session, V4L2_CID_BRIGHTNESS, &value); });
    (void)Call("PU_Set", [&] { (void)WQZ_USBCam_PU_Set(session, V4L2_CID_BRIGHTNESS, 9); });
    ended = false;
    threw = false;
    took_frame = false;
    std::thread loop([&, format] {
        const Pix_Format mode{format, 320, 240, 500};
        threw = !Call("DEAL_WITH", [&] {
            if (WQZ_USBCam_Video_DEAL_WITH(session, mode) == -1) {
                report.Excuse_Memory();  // a camera that is not open leaves its records in the pool
            }
        });
        ended = true;
    });
    Take_Frames(format);
    (void)Call("LoopMode", [&] { WQZ_USBCam_EVENT_LoopMode(session, 0); });
    if (!Becomes([&] { return ended.load(); })) {
        report.Expect(may_wait, "a stop was not obeyed");
        report.Note_Running_Thread();
        loop.detach();  // the process ends with it
        return;
    }
    loop.join();
    if (threw && took_frame) {
        report.Excuse_Memory();  // a record that comes back after the end of its capture stays in the pool
    }
    (void)Call("Clear", [&] { (void)WQZ_USBCam_Clear_Frame_Buff(session); });
    (void)Call("UNINIT", [&] { WQZ_USBCam_Video_DEAL_WITH_UNINIT(session); });
    (void)Call("DELETE", [&] { WQZ_USBCam_DELETE_DEVICE_POINT(session); });
}

void Session_Use::Whole()
{
    v4l2_dev_sys_data_t* cameras = nullptr;
    int32_t count = 0;
    (void)Call("FIND_ID", [&] { count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF); });
    if (count > 0) {
        record = cameras[0];
    }
    (void)std::snprintf(record.Device_Path, sizeof record.Device_Path, "%s", Swept_Node);
    for (const uint32_t format : {Mjpeg, Yuyv}) {
        Capture(format);
        if (report.Thread_Runs()) {
            return;
        }
    }
    (void)Call("FREE", [&] { WQZ_USBCam_DEVICE_FREE(cameras, count); });
}

}  // namespace

void Sweep_Session(Report& report, const std::vector<faults::Fault>& failures)
{
    const std::string before = Held_Resources();
    Session_Use(report, failures).Whole();
    faults::End();
    if (!report.Thread_Runs()) {
        const std::string after = Held_Resources();
        report.Expect(after == before, "before: " + before + "; after: " + after);
    }
}
