// The camera interface for C++17.
#ifndef WQZ_CAMERA_HPP
#define WQZ_CAMERA_HPP

// The camera interface for C++17: values that own what they hold, and exceptions instead of results.
//
//     wqz::Camera camera("046d:0825");
//     wqz::Mode mode = camera.Start({"MJPG", 1280, 720, 30});
//     while (auto frame = camera.Read(2s)) {
//         Save(frame.Bytes());
//     }
//
// A wqz::Frame lends the driver's memory and gives it back when it goes out of scope; it may outlive its camera. What
// fails throws wqz::Camera_Error with the errno value and the sentence of WQZ_Camera_Explain_Call. Threads, lifetimes
// and the meaning of every field are those of Camera/wqz_camera.h, whose functions this header calls.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Camera/wqz_camera.h"

namespace wqz {

/// What went wrong: Code() is the errno value, what() the sentence.
class Camera_Error : public std::runtime_error {
public:
    Camera_Error(int errno_value, const std::string& sentence) : std::runtime_error(sentence), code(errno_value) {}

    int Code() const noexcept { return code; }

private:
    int code;
};

namespace detail {

inline std::string Explanation(WQZ_Camera* camera)
{
    std::string text(256, '\0');
    for (;;) {
        const int32_t result = WQZ_Camera_Explain_Call(camera, text.data(), static_cast<uint32_t>(text.size()));
        if (result < 0) {
            return {};
        }
        const auto length = static_cast<std::size_t>(result);
        if (length < text.size()) {
            text.resize(length);
            return text;
        }
        text.resize(length + 1);
    }
}

/// @return the result, unless it is an error
inline int32_t Check(int32_t result, WQZ_Camera* camera = nullptr)
{
    if (result < 0) {
        std::string sentence = Explanation(camera);
        throw Camera_Error(-result, sentence.empty() ? std::strerror(-result) : sentence);
    }
    return result;
}

template <typename Record>
Record Sized()
{
    Record record{};
    record.size = sizeof record;
    return record;
}

/// Fills a list whose length may change between two calls.
template <typename Record, typename Fill>
std::vector<Record> List(Fill fill)
{
    std::vector<Record> records;
    for (auto count = static_cast<std::size_t>(fill(nullptr, 0U)); count > records.size();) {
        records.assign(count, Sized<Record>());
        count = static_cast<std::size_t>(fill(records.data(), static_cast<uint32_t>(records.size())));
        if (count <= records.size()) {
            records.resize(count);
            break;
        }
    }
    return records;
}

}  // namespace detail

/// A wait without limit.
constexpr std::chrono::milliseconds Forever = std::chrono::milliseconds::max();

namespace detail {

/// Milliseconds, rounded up, within what a wait takes; -1 for Forever. (Doubles, because Forever in finer units does
/// not fit an integer.)
template <typename Rep, typename Period>
int32_t Milliseconds(std::chrono::duration<Rep, Period> time)
{
    using Wide = std::chrono::duration<double, std::milli>;
    if (Wide(time) >= Wide(Forever)) {
        return -1;
    }
    const double milliseconds = std::ceil(Wide(time).count());
    constexpr double Longest = std::numeric_limits<int32_t>::max();
    return milliseconds <= 0 ? 0 : static_cast<int32_t>(milliseconds < Longest ? milliseconds : Longest);
}

}  // namespace detail

/// The code of a pixel format, from its text: "MJPG"; "Y16" stands for "Y16 ", "Y16-BE" for its big-endian twin.
class Fourcc {
public:
    constexpr Fourcc(uint32_t fourcc = 0) : code(fourcc) {}
    constexpr Fourcc(const char* text) : Fourcc(std::string_view(text)) {}
    Fourcc(const std::string& text) : Fourcc(std::string_view(text)) {}
    constexpr Fourcc(std::string_view text) : code(0)
    {
        constexpr std::string_view Big_Endian = "-BE";
        if (text.size() > Big_Endian.size() && text.substr(text.size() - Big_Endian.size()) == Big_Endian) {
            text.remove_suffix(Big_Endian.size());
            code = 1U << 31;
        }
        for (std::size_t i = 0; i < 4; ++i) {
            code |= static_cast<uint32_t>(static_cast<unsigned char>(i < text.size() ? text[i] : ' ')) << (8 * i);
        }
    }

    constexpr uint32_t Code() const { return code; }
    constexpr operator uint32_t() const { return code; }

private:
    uint32_t code;
};

/// Frames per second: 30, 29.97, or an exact interval in seconds. 0 leaves the rate to the camera.
class Rate {
public:
    constexpr Rate() : interval{0, 0} {}
    template <typename Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    constexpr Rate(Integer frames_per_second)
        : interval{frames_per_second > 0 ? 1U : 0U,
                   frames_per_second > 0 ? static_cast<uint32_t>(frames_per_second) : 0U}
    {
    }
    Rate(double frames_per_second) : interval{0, 0}
    {
        if (frames_per_second > 1e-6 && frames_per_second < 4e6) {  // the fraction holds no others
            const bool slow = frames_per_second < 1;
            interval.numerator = slow ? static_cast<uint32_t>(std::lround(1000 / frames_per_second)) : 1000;
            interval.denominator = slow ? 1000 : static_cast<uint32_t>(std::lround(frames_per_second * 1000));
        }
    }
    constexpr Rate(WQZ_Camera_Fraction seconds_per_frame) : interval(seconds_per_frame) {}

    constexpr WQZ_Camera_Fraction Interval() const { return interval; }

private:
    WQZ_Camera_Fraction interval;
};

/// What Start is asked for.
struct Request {
    Fourcc format;
    uint32_t width = 0;
    uint32_t height = 0;
    Rate rate = {};
    bool exact = false;    ///< refuse what the camera does not offer
    uint32_t buffers = 0;  ///< 0 for four
    uint32_t skip = 0;     ///< frames to give back unseen first
};

/// What the driver accepted.
struct Mode : WQZ_Camera_Mode {
    std::string Format() const { return format; }
    /// @return frames per second, 0 when the driver tells none
    double Rate() const
    {
        return interval.numerator == 0 ? 0 : static_cast<double>(interval.denominator) / interval.numerator;
    }
};

/// Bytes that something else owns.
class Bytes {
public:
    constexpr Bytes(const uint8_t* first, std::size_t count) : start(first), length(count) {}

    constexpr const uint8_t* data() const { return start; }
    constexpr std::size_t size() const { return length; }
    constexpr bool empty() const { return length == 0; }
    constexpr const uint8_t* begin() const { return start; }
    constexpr const uint8_t* end() const { return start + length; }
    constexpr uint8_t operator[](std::size_t index) const { return start[index]; }

private:
    const uint8_t* start;
    std::size_t length;
};

/// A frame on loan, or nothing.
class Frame {
public:
    Frame() = default;
    /// Takes over a frame of WQZ_Camera_Read.
    explicit Frame(const WQZ_Camera_Frame& taken) : frame(taken) {}
    ~Frame() { Release(); }
    Frame(Frame&& other) noexcept : frame(std::exchange(other.frame, detail::Sized<WQZ_Camera_Frame>())) {}
    Frame& operator=(Frame&& other) noexcept
    {
        if (this != &other) {
            Release();
            frame = std::exchange(other.frame, detail::Sized<WQZ_Camera_Frame>());
        }
        return *this;
    }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    explicit operator bool() const noexcept { return frame.data != nullptr; }

    wqz::Bytes Bytes() const { return {frame.data, static_cast<std::size_t>(frame.length)}; }
    /// @return a copy of the bytes
    std::vector<uint8_t> Copy() const { return {frame.data, frame.data + frame.length}; }

    uint32_t Sequence() const { return frame.sequence; }
    /// @return the frames that the driver lost since the one delivered before
    uint32_t Lost_Before() const { return frame.lost_before; }
    /// @return the time of the clock that is std::chrono::steady_clock on Linux
    std::chrono::nanoseconds Time() const { return std::chrono::nanoseconds(frame.time_ns); }
    bool Damaged() const { return (frame.flags & WQZ_CAMERA_FRAME_DAMAGED) != 0; }
    Fourcc Format() const { return frame.fourcc; }
    uint32_t Width() const { return frame.width; }
    uint32_t Height() const { return frame.height; }
    uint32_t Bytes_Per_Line() const { return frame.bytes_per_line; }
    /// @return the record for the C functions; this object still releases it
    const WQZ_Camera_Frame& Record() const { return frame; }

    /// Converts to height rows of width pixels, three bytes each, blue first. A frame that is cut short throws EBADMSG;
    /// the form with `pixels` has then written what could be decoded.
    std::vector<uint8_t> To_Bgr() const { return Converted(WQZ_CAMERA_PIXELS_BGR); }
    void To_Bgr(void* pixels, std::size_t capacity, uint32_t stride = 0) const
    {
        detail::Check(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels, capacity, stride));
    }
    /// As above, red first.
    std::vector<uint8_t> To_Rgb() const { return Converted(WQZ_CAMERA_PIXELS_RGB); }
    void To_Rgb(void* pixels, std::size_t capacity, uint32_t stride = 0) const
    {
        detail::Check(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_RGB, pixels, capacity, stride));
    }

    /// Gives the frame back before the end of its scope.
    void Release() noexcept
    {
        if (frame.loan != nullptr) {
            (void)WQZ_Camera_Release(&frame);
        }
    }

private:
    std::vector<uint8_t> Converted(uint32_t layout) const
    {
        std::vector<uint8_t> pixels(std::size_t{frame.width} * frame.height * 3);
        detail::Check(WQZ_Camera_Convert(&frame, layout, pixels.data(), pixels.size(), 0));
        return pixels;
    }

    WQZ_Camera_Frame frame = detail::Sized<WQZ_Camera_Frame>();
};

/// A control to set: a number, a text as WQZ_Camera_Setting takes it, or the default.
struct Setting {
    Setting(std::string control, int64_t number) : name(std::move(control)), value(number) {}
    Setting(std::string control, int number) : Setting(std::move(control), int64_t{number}) {}
    Setting(std::string control, std::string words) : name(std::move(control)), text(std::move(words)) {}
    Setting(std::string control, const char* words) : Setting(std::move(control), std::string(words)) {}
    Setting(uint32_t control, int64_t number) : id(control), value(number) {}
    Setting(uint32_t control, std::string words) : id(control), text(std::move(words)) {}

    static Setting Default(std::string control)
    {
        Setting setting(std::move(control), int64_t{0});
        setting.to_default = true;
        return setting;
    }

    std::string name;
    uint32_t id = 0;
    int64_t value = 0;
    std::optional<std::string> text;
    bool to_default = false;
};

/// The value of a control.
struct Control_Value {
    uint32_t id;
    int64_t number;
    std::string text;  ///< of a string; otherwise the menu item's name or the number
};

/// @return the cameras of the system
inline std::vector<WQZ_Camera_Info> List_Cameras()
{
    return detail::List<WQZ_Camera_Info>(
        [](WQZ_Camera_Info* cameras, uint32_t capacity) { return detail::Check(WQZ_Camera_List(cameras, capacity)); });
}

/// An open camera. A moved-from one may only be destroyed and assigned to.
class Camera {
public:
    /// @param name  as WQZ_Camera_Open takes it; empty for the only camera
    explicit Camera(const std::string& name = {}) { detail::Check(WQZ_Camera_Open(&handle, name.c_str())); }
    ~Camera() { (void)Close(); }
    Camera(Camera&& other) noexcept : handle(std::exchange(other.handle, nullptr)) {}
    Camera& operator=(Camera&& other) noexcept
    {
        if (this != &other) {
            (void)Close();
            handle = std::exchange(other.handle, nullptr);
        }
        return *this;
    }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    WQZ_Camera_Info Info() const
    {
        auto info = detail::Sized<WQZ_Camera_Info>();
        Check(WQZ_Camera_Describe(handle, &info));
        return info;
    }

    std::vector<WQZ_Camera_Offer> Modes() const
    {
        return detail::List<WQZ_Camera_Offer>([this](WQZ_Camera_Offer* offers, uint32_t capacity) {
            return Check(WQZ_Camera_Modes(handle, offers, capacity));
        });
    }

    std::vector<WQZ_Camera_Control> Controls() const
    {
        return detail::List<WQZ_Camera_Control>([this](WQZ_Camera_Control* controls, uint32_t capacity) {
            return Check(WQZ_Camera_Controls(handle, controls, capacity));
        });
    }

    std::vector<WQZ_Camera_Menu_Item> Menu(uint32_t id) const
    {
        return detail::List<WQZ_Camera_Menu_Item>([this, id](WQZ_Camera_Menu_Item* items, uint32_t capacity) {
            return Check(WQZ_Camera_Menu(handle, id, items, capacity));
        });
    }

    Control_Value Get(const std::string& control) const { return Get(0, control.c_str()); }
    Control_Value Get(uint32_t id) const { return Get(id, nullptr); }

    /// Sets controls in order, up to the first that fails.
    void Set_Controls(const std::vector<Setting>& settings)
    {
        std::vector<WQZ_Camera_Setting> records;
        for (const Setting& setting : settings) {
            auto record = detail::Sized<WQZ_Camera_Setting>();
            record.id = setting.id;
            record.name = setting.id == 0 ? setting.name.c_str() : nullptr;
            record.value = setting.value;
            record.text = setting.text ? setting.text->c_str() : nullptr;
            record.flags = setting.to_default ? uint32_t{WQZ_CAMERA_SETTING_DEFAULT} : 0U;
            records.push_back(record);
        }
        if (!records.empty()) {
            Check(WQZ_Camera_Set_Controls(handle, records.data(), static_cast<uint32_t>(records.size())));
        }
    }
    void Set(const Setting& setting) { Set_Controls(std::vector<Setting>(1, setting)); }

    /// @return what the driver accepted
    Mode Start(const Request& request)
    {
        auto record = detail::Sized<WQZ_Camera_Request>();
        record.fourcc = request.format;
        record.width = request.width;
        record.height = request.height;
        record.interval = request.rate.Interval();
        record.buffers = request.buffers;
        record.skip = request.skip;
        record.flags = request.exact ? uint32_t{WQZ_CAMERA_START_EXACT} : 0U;
        Mode mode{};
        static_cast<WQZ_Camera_Mode&>(mode).size = sizeof(WQZ_Camera_Mode);
        Check(WQZ_Camera_Start(handle, &record, &mode));
        return mode;
    }

    /// @return the oldest frame; an empty one on time-out and when Cancel, Stop, Start or Close ended the wait
    template <typename Rep, typename Period>
    Frame Read(std::chrono::duration<Rep, Period> timeout)
    {
        return Take(detail::Milliseconds(timeout), 0);
    }
    /// @return the newest of the frames that are ready
    template <typename Rep, typename Period>
    Frame Read_Newest(std::chrono::duration<Rep, Period> timeout)
    {
        return Take(detail::Milliseconds(timeout), WQZ_CAMERA_READ_NEWEST);
    }

    WQZ_Camera_Counts Counters() const
    {
        auto counts = detail::Sized<WQZ_Camera_Counts>();
        Check(WQZ_Camera_Counters(handle, &counts));
        return counts;
    }

    void Cancel() noexcept { (void)WQZ_Camera_Cancel(handle); }

    /// @return false when the driver keeps the camera until the held frames are released
    bool Stop()
    {
        const int32_t result = WQZ_Camera_Stop(handle);
        return result == -EBUSY ? false : Check(result) == 0;
    }

    /// @return whether the camera is back; false on time-out and cancel
    template <typename Rep, typename Period>
    bool Recover(std::chrono::duration<Rep, Period> timeout)
    {
        const int32_t result = WQZ_Camera_Recover(handle, detail::Milliseconds(timeout));
        return result == -ETIMEDOUT || result == -ECANCELED ? false : Check(result) == 0;
    }

    /// Closes before the end of the scope.
    /// @return false when the driver keeps the camera until the held frames are released
    bool Close() noexcept { return handle == nullptr || WQZ_Camera_Close(std::exchange(handle, nullptr)) == 0; }

    int Descriptor() const { return Check(WQZ_Camera_Descriptor(handle)); }
    std::string Explanation() const { return detail::Explanation(handle); }
    WQZ_Camera* Handle() const noexcept { return handle; }

private:
    int32_t Check(int32_t result) const { return detail::Check(result, handle); }

    Frame Take(int32_t timeout_ms, uint32_t flags)
    {
        auto frame = detail::Sized<WQZ_Camera_Frame>();
        const int32_t result = WQZ_Camera_Read(handle, &frame, timeout_ms, flags);
        if (result != -ETIMEDOUT && result != -ECANCELED) {
            Check(result);
        }
        return Frame(frame);
    }

    Control_Value Get(uint32_t id, const char* name) const
    {
        char text[4096] = "";
        auto setting = detail::Sized<WQZ_Camera_Setting>();
        setting.id = id;
        setting.name = name;
        setting.buffer = text;
        setting.buffer_size = sizeof text;
        Check(WQZ_Camera_Get_Control(handle, &setting));
        return {setting.id, setting.value, text};
    }

    WQZ_Camera* handle = nullptr;
};

/// Reports cameras that come and go.
class Monitor {
public:
    Monitor() { detail::Check(WQZ_Camera_Monitor_Open(&handle)); }
    ~Monitor()
    {
        if (handle != nullptr) {
            (void)WQZ_Camera_Monitor_Close(handle);
        }
    }
    Monitor(Monitor&& other) noexcept : handle(std::exchange(other.handle, nullptr)) {}
    Monitor& operator=(Monitor&& other) noexcept
    {
        std::swap(handle, other.handle);
        return *this;
    }
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    int Descriptor() const { return detail::Check(WQZ_Camera_Monitor_Descriptor(handle)); }

    /// @return the next event, or nothing when none came in time
    template <typename Rep, typename Period>
    std::optional<WQZ_Camera_Event> Read(std::chrono::duration<Rep, Period> timeout)
    {
        auto event = detail::Sized<WQZ_Camera_Event>();
        const int32_t result = WQZ_Camera_Monitor_Read(handle, &event, detail::Milliseconds(timeout));
        if (result == -ETIMEDOUT) {
            return std::nullopt;
        }
        detail::Check(result);
        return event;
    }

private:
    WQZ_Camera_Monitor* handle = nullptr;
};

}  // namespace wqz

#endif  // WQZ_CAMERA_HPP
