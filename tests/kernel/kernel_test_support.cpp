// Runs commands, finds cameras, captures frames and computes the expected pictures.
#include "kernel_test_support.h"

#include <sys/wait.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "test_picture.h"

namespace {

constexpr auto Poll_Interval = std::chrono::milliseconds(2);

constexpr int Usb_Camera_Nodes = 2;  // one for frames, and one for metadata that appears last

/// @return whether all nodes of the USB camera are there and can be opened
bool Usb_Camera_Is_There()
{
    int nodes = 0;
    for (const auto& node : std::filesystem::directory_iterator("/sys/class/video4linux")) {
        std::error_code gone_meanwhile;
        const auto driver = std::filesystem::read_symlink(node.path() / "device/driver", gone_meanwhile);
        nodes += driver.filename() == "uvcvideo" && access(("/dev" / node.path().filename()).c_str(), F_OK) == 0;
    }
    return nodes == Usb_Camera_Nodes;
}

/// Decodes a JPEG image. @return false when any part of it is damaged
bool Decodes(const std::vector<uint8_t>& image)
{
    const tjhandle decoder = tjInitDecompress();
    int width = 0, height = 0, subsampling = 0, colours = 0;
    bool good = tjDecompressHeader3(decoder, image.data(), image.size(), &width, &height, &subsampling, &colours) == 0;
    std::vector<uint8_t> pixels(good ? static_cast<size_t>(width) * static_cast<size_t>(height) * 3 : 0);
    good = good && tjDecompress2(decoder, image.data(), image.size(), pixels.data(), width, 0, height, TJPF_RGB,
                                 TJFLAG_STOPONWARNING) == 0;
    tjDestroy(decoder);
    return good;
}

void Append_Little(std::vector<uint8_t>& to, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) {
        to.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

uint8_t Clamp_Byte(int value)
{
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

}  // namespace

Command_Result Run_Command(const std::string& command)
{
    FILE* const pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "re");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + command);
    }
    Command_Result result{};
    char part[4096];
    for (size_t count; (count = fread(part, 1, sizeof part, pipe)) > 0;) {
        result.output.append(part, count);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

void Tell_Usb_Camera(const std::string& what)
{
    std::ofstream(Camera_Fifo) << what << std::flush;
}

void Plug_In_Usb_Camera()
{
    if (!Usb_Camera_Is_There()) {
        (void)Run_Command(std::string("usb_camera ") + Camera_Fifo + " >/dev/null 2>&1 &");
    }
    for (int i = 0; i < 1000 && !Usb_Camera_Is_There(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Discovered_Camera::Discovered_Camera(const std::string& driver)
    : Count(WQZ_USBCam_DEVICE_FIND_ID(&pArray, 0xFFFF, 0xFFFF))
{
    const auto found = std::find_if(pArray, pArray + Count, [&](const auto& r) { return driver == r.driver; });
    if (found == pArray + Count) {
        WQZ_USBCam_DEVICE_FREE(pArray, Count);
        throw std::runtime_error("no camera of driver " + driver);
    }
    S_Record = *found;
    snprintf(S_Record.Device_Path, sizeof S_Record.Device_Path, "%s", S_Record.device);
}

Capture_Session::Capture_Session(const Discovered_Camera& camera)
    : pHandle(WQZ_USBCam_CREATE_DEVICE_POINT(camera.S_Record))
{
    WQZ_USBCam_Video_DEAL_WITH_INIT(pHandle, 0);
}

Capture_Session::~Capture_Session()
{
    if (Loop.valid()) {
        Stop();
    }
    WQZ_USBCam_Clear_Frame_Buff(pHandle);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(pHandle);
    WQZ_USBCam_DELETE_DEVICE_POINT(pHandle);
}

void Capture_Session::Start(const Pix_Format& mode)
{
    Loop = std::async(std::launch::async, WQZ_USBCam_Video_DEAL_WITH, pHandle, mode);
}

std::vector<Delivered_Frame> Capture_Session::Take(size_t count, std::chrono::seconds patience)
{
    std::vector<Delivered_Frame> frames;
    auto last = std::chrono::steady_clock::now();
    while (frames.size() < count && std::chrono::steady_clock::now() - last < patience) {
        Frame_Buffer_Data* const frame = WQZ_USBCam_GET_FRAME_BUFF(pHandle, false);
        if (frame == nullptr) {
            std::this_thread::sleep_for(Poll_Interval);
            continue;
        }
        C_Tally.Add(*frame);
        const auto* const bytes = static_cast<const uint8_t*>(frame->pMem);
        frames.push_back({frame->index, frame->buffer.sequence, frame->PixFormat,
                          std::vector<uint8_t>(bytes, bytes + frame->buffer.bytesused)});
        WQZ_USBCam_SAVE_FRAME_RES(pHandle, frame);
        last = std::chrono::steady_clock::now();
    }
    return frames;
}

int32_t Capture_Session::Stop()
{
    WQZ_USBCam_EVENT_LoopMode(pHandle, 0);
    printf("%llu frames delivered, %llu overtaken, %llu lost in the driver\n",
           static_cast<unsigned long long>(C_Tally.Delivered()), static_cast<unsigned long long>(C_Tally.Overtaken()),
           static_cast<unsigned long long>(C_Tally.Lost()));
    return Loop.get();
}

std::vector<uint8_t> Expected_Bitmap(const std::vector<uint8_t>& yuyv, uint32_t width, uint32_t height)
{
    const uint32_t pixel_bytes = width * height * 3;
    std::vector<uint8_t> bitmap = {'B', 'M'};
    for (const uint32_t field :
         {pixel_bytes + 54, 0U, 54U, 40U, width, height, 24U << 16 | 1U, 0U, pixel_bytes, 0U, 0U, 0U, 0U}) {
        Append_Little(bitmap, field, 4);
    }
    for (size_t i = 0; i + 3 < yuyv.size(); i += 4) {
        const int u = yuyv[i + 1] - 128, v = yuyv[i + 3] - 128;
        for (const int y : {yuyv[i], yuyv[i + 2]}) {
            bitmap.push_back(Clamp_Byte(y + ((7287 * u) >> 12)));
            bitmap.push_back(Clamp_Byte(y - ((1415 * u + 2936 * v) >> 12)));
            bitmap.push_back(Clamp_Byte(y + ((5765 * v) >> 12)));
        }
    }
    return bitmap;
}

int64_t Motion_Jpeg_Counter(const std::vector<uint8_t>& frame)
{
    using namespace Test_Picture;
    const size_t size = frame.size();
    if (size < Comment_At + Comment_Bytes + 2 || frame[0] != 0xFF || frame[1] != 0xD8 || frame[size - 2] != 0xFF ||
        frame[size - 1] != 0xD9 || !Decodes(frame)) {
        return -1;
    }
    const std::string comment(frame.begin() + Comment_At, frame.begin() + Comment_At + Comment_Bytes);
    unsigned counter = 0;
    return sscanf(comment.c_str() + 4, "frame %u", &counter) == 1 ? int64_t{counter} : -1;
}

void Make_Vivid_Repeatable()
{
    const std::string node = Discovered_Camera("vivid").Node();
    (void)Run_Command("v4l2-ctl -d " + node + " -i 0 && v4l2-ctl -d " + node +
                      " -c osd_text_mode=2,horizontal_movement=5");
}

Vivid_Pictures::Vivid_Pictures(const std::string& node, const std::string& fourcc, uint32_t width, uint32_t height)
{
    const std::string file = "/tmp/vivid_picture";
    const Command_Result result =
        Run_Command("v4l2-ctl -d " + node + " -v width=" + std::to_string(width) + ",height=" + std::to_string(height) +
                    ",pixelformat=" + fourcc + " --stream-mmap --stream-count=1 --stream-to=" + file);
    std::ifstream in(file, std::ios::binary);
    cFirst.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (result.status != 0 || cFirst.empty() || cFirst.size() % (size_t{width} * height) != 0) {
        throw std::runtime_error("v4l2-ctl took no picture: " + result.output);
    }
    Row_Bytes = cFirst.size() / height;
    Step_Bytes = Row_Bytes / width * Vivid_Step;
}

std::vector<uint8_t> Vivid_Pictures::Bytes(uint32_t number) const
{
    std::vector<uint8_t> bytes = cFirst;
    const auto shift = static_cast<std::ptrdiff_t>(Row_Bytes - Step_Bytes * number % Row_Bytes);
    for (auto row = bytes.begin(); row != bytes.end(); row += static_cast<std::ptrdiff_t>(Row_Bytes)) {
        std::rotate(row, row + shift, row + static_cast<std::ptrdiff_t>(Row_Bytes));
    }
    return bytes;
}
