// The flat functions of the camera interface: they check what they are given, and turn failures into results.
#include "Camera/wqz_camera.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "Camera/camera.h"
#include "Camera/camera_list.h"
#include "Camera/camera_monitor.h"
#include "Camera/failure.h"
#include "Camera/frame_convert.h"
#include "Camera/records.h"
#include "Camera/running_call.h"

using namespace wqz_camera;

namespace {

// The last failure of calls without a camera.
thread_local Last_Failure thread_failure(false);

constexpr char Kept_By_Frames[] = "The driver keeps the camera until the frames that are still held are released.";

template <typename Body>
int32_t Answer(Last_Failure& last_failure, Body body) noexcept
{
    try {
        return body();
    } catch (const Failure& failure) {
        last_failure.Set(failure.what());
        return -failure.error;
    } catch (const std::bad_alloc&) {
        last_failure.Set_Fixed("The process is out of memory.");
        return -ENOMEM;
    } catch (...) {
        last_failure.Set_Fixed("The library met an error that it did not expect.");
        return -EIO;
    }
}

template <typename Body>
int32_t Answer(WQZ_Camera* camera, Body body) noexcept
{
    if (camera == nullptr) {
        thread_failure.Set_Fixed("The camera is a null pointer.");
        return -EINVAL;
    }
    const WQZ_Camera::Running_Call call(*camera);
    return Answer(camera->last_failure, body);
}

template <typename Body>
int32_t Answer(WQZ_Camera_Monitor* monitor, Body body) noexcept
{
    if (monitor == nullptr) {
        thread_failure.Set_Fixed("The monitor is a null pointer.");
        return -EINVAL;
    }
    return Answer(thread_failure, body);
}

// Copies the caller's setting, of whatever size, into the size that this library knows, runs `body` on it, and copies
// it back.
template <typename Body>
int32_t With_Setting(uint8_t* caller, uint32_t size, Body body)
{
    WQZ_Camera_Setting setting{};
    std::memcpy(&setting, caller, sizeof setting);
    setting.result = 0;
    try {
        body(setting);
    } catch (const Failure& failure) {
        setting.result = -failure.error;
        Store(caller, size, setting);
        throw;
    } catch (const std::bad_alloc&) {
        setting.result = -ENOMEM;
        Store(caller, size, setting);
        throw;
    }
    Store(caller, size, setting);
    return 0;
}

void Mark_Not_Tried(uint8_t* caller)
{
    const int32_t result = -ECANCELED;
    std::memcpy(caller + offsetof(WQZ_Camera_Setting, result), &result, sizeof result);
}

int32_t Store_Sentence(const std::string& sentence, char* text, uint32_t capacity)
{
    if (text == nullptr && capacity > 0) {
        return -EINVAL;
    }
    if (capacity > 0) {
        const size_t length = std::min<size_t>(sentence.size(), capacity - 1);
        std::memcpy(text, sentence.data(), length);
        text[length] = '\0';
    }
    return static_cast<int32_t>(sentence.size());
}

void Check_Request(const WQZ_Camera_Request& request)
{
    if (request.fourcc == 0 || request.width == 0 || request.height == 0) {
        throw Failure(EINVAL, "The request names no pixel format, or a width or height of 0.");
    }
    if ((request.interval.numerator == 0) != (request.interval.denominator == 0)) {
        throw Failure(EINVAL, "The interval of the request is no fraction; 0/0 leaves the rate to the camera.");
    }
    if ((request.flags & ~uint32_t{WQZ_CAMERA_START_EXACT}) != 0) {
        throw Failure(EINVAL, "The request has flags that are not known.");
    }
}

}  // namespace

int32_t WQZ_Camera_List(WQZ_Camera_Info* cameras, uint32_t capacity)
{
    return Answer(thread_failure, [=] {
        std::vector<WQZ_Camera_Info> list;
        for (const Camera_Record& record : List_Cameras()) {
            list.push_back(record.info);
        }
        return Store_List(cameras, capacity, list);
    });
}

int32_t WQZ_Camera_Open(WQZ_Camera** camera, const char* name)
{
    return Answer(thread_failure, [=] {
        if (camera == nullptr) {
            throw Failure(EINVAL, "There is no place for the handle: a null pointer.");
        }
        *camera = nullptr;
        *camera = std::make_unique<WQZ_Camera>(name == nullptr ? "" : name).release();
        return 0;
    });
}

int32_t WQZ_Camera_Describe(WQZ_Camera* camera, WQZ_Camera_Info* info)
{
    return Answer(camera, [=] {
        Check_Record(info, "camera record");
        Store(info, camera->Describe());
        return 0;
    });
}

int32_t WQZ_Camera_Modes(WQZ_Camera* camera, WQZ_Camera_Offer* offers, uint32_t capacity)
{
    return Answer(camera, [=] { return Store_List(offers, capacity, camera->Modes()); });
}

int32_t WQZ_Camera_Controls(WQZ_Camera* camera, WQZ_Camera_Control* controls, uint32_t capacity)
{
    return Answer(camera, [=] { return Store_List(controls, capacity, camera->Controls()); });
}

int32_t WQZ_Camera_Menu(WQZ_Camera* camera, uint32_t id, WQZ_Camera_Menu_Item* items, uint32_t capacity)
{
    return Answer(camera, [=] { return Store_List(items, capacity, camera->Menu(id)); });
}

int32_t WQZ_Camera_Get_Control(WQZ_Camera* camera, WQZ_Camera_Setting* setting)
{
    return Answer(camera, [=] {
        Check_Record(setting, "setting");
        return With_Setting(reinterpret_cast<uint8_t*>(setting), setting->size,
                            [=](WQZ_Camera_Setting& own) { camera->Get_Control(own); });
    });
}

int32_t WQZ_Camera_Set_Controls(WQZ_Camera* camera, WQZ_Camera_Setting* settings, uint32_t count)
{
    return Answer(camera, [=] {
        Check_Record(settings, "first setting");
        const uint32_t size = settings->size;
        auto* const first = reinterpret_cast<uint8_t*>(settings);
        for (uint32_t i = 0; i < count; ++i) {
            Mark_Not_Tried(first + size_t{i} * size);
        }
        for (uint32_t i = 0; i < count; ++i) {
            (void)With_Setting(first + size_t{i} * size, size,
                               [=](WQZ_Camera_Setting& own) { camera->Set_Control(own); });
        }
        return 0;
    });
}

int32_t WQZ_Camera_Start(WQZ_Camera* camera, const WQZ_Camera_Request* request, WQZ_Camera_Mode* mode)
{
    return Answer(camera, [=] {
        Check_Record(request, "request");
        if (mode != nullptr) {
            Check_Record(mode, "mode");
        }
        Check_Request(*request);
        const WQZ_Camera_Mode accepted = camera->Start(*request);
        if (mode != nullptr) {
            Store(mode, accepted);
        }
        return 0;
    });
}

int32_t WQZ_Camera_Read(WQZ_Camera* camera, WQZ_Camera_Frame* frame, int32_t timeout_ms, uint32_t flags)
{
    return Answer(camera, [=] {
        Check_Record(frame, "frame");
        if ((flags & ~uint32_t{WQZ_CAMERA_READ_NEWEST}) != 0) {
            throw Failure(EINVAL, "The call has flags that are not known.");
        }
        WQZ_Camera_Frame taken{};
        const int result = camera->Read(taken, timeout_ms, (flags & WQZ_CAMERA_READ_NEWEST) != 0);
        if (result == 0) {
            Store(frame, taken);
        }
        return result;
    });
}

int32_t WQZ_Camera_Release(WQZ_Camera_Frame* frame)
{
    return Answer(thread_failure, [=] {
        Check_Record(frame, "frame");
        const std::optional<int> result = Frame_Stream::Give_Back(*frame);
        if (!result) {
            throw Failure(EINVAL, "The record holds no frame, or one that was released already.");
        }
        frame->data = nullptr;
        frame->length = 0;
        frame->loan = nullptr;
        frame->ticket = 0;
        if (*result != 0) {
            throw Failure(-*result, "The driver did not take the buffer back.");
        }
        return 0;
    });
}

int32_t WQZ_Camera_Counters(WQZ_Camera* camera, WQZ_Camera_Counts* counts)
{
    return Answer(camera, [=] {
        Check_Record(counts, "record of counts");
        Store(counts, camera->Counters());
        return 0;
    });
}

// Does only what a signal handler may do.
int32_t WQZ_Camera_Cancel(WQZ_Camera* camera)
{
    if (camera == nullptr) {
        return -EINVAL;
    }
    camera->Cancel();
    return 0;
}

int32_t WQZ_Camera_Stop(WQZ_Camera* camera)
{
    return Answer(camera, [=] {
        if (camera->Stop() != 0) {
            throw Failure(EBUSY, Kept_By_Frames);
        }
        return 0;
    });
}

int32_t WQZ_Camera_Recover(WQZ_Camera* camera, int32_t timeout_ms)
{
    return Answer(camera, [=] {
        camera->Recover(timeout_ms);
        return 0;
    });
}

int32_t WQZ_Camera_Close(WQZ_Camera* camera)
{
    return Answer(thread_failure, [=] {
        if (camera == nullptr) {
            throw Failure(EINVAL, "The camera is a null pointer.");
        }
        if (std::unique_ptr<WQZ_Camera>(camera)->Close() != 0) {
            throw Failure(EBUSY, Kept_By_Frames);
        }
        return 0;
    });
}

int32_t WQZ_Camera_Explain(WQZ_Camera* camera, char* text, uint32_t capacity)
{
    std::optional<WQZ_Camera::Running_Call> call;
    if (camera != nullptr) {
        call.emplace(*camera);
    }
    return Answer(thread_failure, [=] {
        return Store_Sentence((camera == nullptr ? thread_failure : camera->last_failure).Text(), text, capacity);
    });
}

int32_t WQZ_Camera_Explain_Call(WQZ_Camera* camera, char* text, uint32_t capacity)
{
    std::optional<WQZ_Camera::Running_Call> call;
    if (camera != nullptr) {
        call.emplace(*camera);
    }
    return Answer(thread_failure, [=] {
        const Last_Failure& failure = camera == nullptr ? thread_failure : camera->last_failure;
        return Store_Sentence(failure.Text_Of_This_Thread(), text, capacity);
    });
}

int32_t WQZ_Camera_Descriptor(WQZ_Camera* camera)
{
    return Answer(camera, [=] { return camera->Descriptor(); });
}

int32_t WQZ_Camera_Monitor_Open(WQZ_Camera_Monitor** monitor)
{
    return Answer(thread_failure, [=] {
        if (monitor == nullptr) {
            throw Failure(EINVAL, "There is no place for the handle: a null pointer.");
        }
        *monitor = nullptr;
        *monitor = std::make_unique<WQZ_Camera_Monitor>().release();
        return 0;
    });
}

int32_t WQZ_Camera_Monitor_Descriptor(WQZ_Camera_Monitor* monitor)
{
    return Answer(monitor, [=] { return monitor->Descriptor(); });
}

int32_t WQZ_Camera_Monitor_Read(WQZ_Camera_Monitor* monitor, WQZ_Camera_Event* event, int32_t timeout_ms)
{
    return Answer(monitor, [=] {
        Check_Record(event, "event");
        WQZ_Camera_Event next{};
        if (!monitor->Read(next, timeout_ms)) {
            throw Failure(ETIMEDOUT, "No camera came or went in the time given.");
        }
        next.info.size = sizeof next.info;
        Store(event, next);
        return 0;
    });
}

int32_t WQZ_Camera_Monitor_Close(WQZ_Camera_Monitor* monitor)
{
    return Answer(monitor, [=] {
        const std::unique_ptr<WQZ_Camera_Monitor> closed(monitor);
        return 0;
    });
}

int32_t WQZ_Camera_Convert(const WQZ_Camera_Frame* frame, uint32_t layout, void* pixels, uint64_t capacity,
                           uint32_t stride)
{
    return Answer(thread_failure, [=] {
        Check_Record(frame, "frame");
        Convert_Frame(*frame, layout, static_cast<uint8_t*>(pixels), capacity, stride);
        return 0;
    });
}
