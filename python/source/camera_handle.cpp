// An open camera, safe to close while other Python threads use it.
#include "camera_handle.h"

#include <cerrno>
#include <chrono>
#include <thread>

namespace py = pybind11;

namespace {

constexpr std::chrono::milliseconds Release_Look{2};  // between two looks for a release

// What was released is at once with the driver, but nothing tells this thread.
void Await_Release()
{
    const Unlocked unlocked;
    std::this_thread::sleep_for(Release_Look);
}

}  // namespace

class Camera_Handle::Only_Change {
public:
    explicit Only_Change(Camera_Handle& changed) : handle(changed)
    {
        if (handle.changing.exchange(true)) {
            throw wqz::Camera_Error(EBUSY, "Another thread starts or recovers this camera at this moment.");
        }
    }
    ~Only_Change() { handle.changing = false; }
    Only_Change(const Only_Change&) = delete;
    Only_Change& operator=(const Only_Change&) = delete;

private:
    Camera_Handle& handle;
};

Camera_Handle::Camera_Handle(const std::string& name)
{
    const Unlocked unlocked;
    camera = std::make_unique<wqz::Camera>(name);
}

// A forked child leaves the camera to its parent.
Camera_Handle::~Camera_Handle()
{
    if (home.Is_Here()) {
        (void)Close();
    } else {
        (void)camera.release();
    }
}

void Camera_Handle::Enter()
{
    home.Check();
    const std::lock_guard lock(mutex);
    if (closing) {
        throw py::value_error("the camera is closed");
    }
    ++running_calls;
}

void Camera_Handle::Leave()
{
    const std::lock_guard lock(mutex);
    --running_calls;
    idle.notify_all();
}

std::unique_ptr<Lent_Frame> Camera_Handle::Read(std::optional<double> timeout, bool newest)
{
    const Time_Limit limit(timeout);
    const unsigned changes_before = changes;
    auto frame = wqz::detail::Sized<WQZ_Camera_Frame>();
    std::string sentence;
    std::optional<Time_Limit> release;  // since all frames are held
    for (;;) {
        const int32_t result = Read_Slice(frame, limit.Slice(), newest, sentence);
        if (result == 0) {
            return std::make_unique<Lent_Frame>(wqz::Frame(frame));
        }
        if (result != -ENOBUFS) {
            release.reset();
        } else if (!release) {
            release.emplace(Release_Seconds);
        }
        const bool may_pass = result == -ETIMEDOUT || (release && !release->Has_Passed());
        if (!may_pass || limit.Has_Passed()) {
            throw wqz::Camera_Error(-result, sentence);
        }
        if (release) {
            Await_Release();
        }
        Handle_Signals();
        Check_Wait(changes_before);
    }
}

std::unique_ptr<Lent_Frame> Camera_Handle::Take(bool newest)
{
    auto frame = wqz::detail::Sized<WQZ_Camera_Frame>();
    std::string sentence;
    const int32_t result = Read_Slice(frame, 0, newest, sentence);
    if (result == -ETIMEDOUT) {
        return nullptr;
    }
    if (result != 0) {
        throw wqz::Camera_Error(-result, sentence);
    }
    return std::make_unique<Lent_Frame>(wqz::Frame(frame));
}

// Not wqz::Camera::Read, which does not tell a cancel from a time-out.
int32_t Camera_Handle::Read_Slice(WQZ_Camera_Frame& frame, int32_t milliseconds, bool newest, std::string& sentence)
{
    return Call([&](wqz::Camera& open) {
        const uint32_t flags = newest ? uint32_t{WQZ_CAMERA_READ_NEWEST} : 0U;
        const int32_t result = WQZ_Camera_Read(open.Handle(), &frame, milliseconds, flags);
        if (result != 0) {
            sentence = open.Explanation();
        }
        return result;
    });
}

// What another thread or a signal's handler did between two slices of a wait ends it, as it does within a slice.
void Camera_Handle::Check_Wait(unsigned changes_before) const
{
    if (changes != changes_before) {
        throw wqz::Camera_Error(ECANCELED, "The wait was ended, because the capture was stopped or started.");
    }
}

wqz::Mode Camera_Handle::Start(const wqz::Request& request)
{
    return Call([&](wqz::Camera& open) {
        const Only_Change change(*this);
        ++changes;
        return open.Start(request);
    });
}

bool Camera_Handle::Stop()
{
    return Call([&](wqz::Camera& open) {
        ++changes;
        return open.Stop();
    });
}

// A failure before the end of the time may pass: access is granted some time after the node is there. The library tries
// again as long as one call of it lasts, and so does this.
void Camera_Handle::Recover(std::optional<double> timeout)
{
    const Time_Limit limit(timeout);
    const Only_Change change(*this);
    std::string sentence;
    for (;;) {
        const int32_t result = Recover_Slice(limit.Slice(), sentence);
        if (result == 0) {
            return;
        }
        if (result == -ENOTSUP || result == -ECANCELED || limit.Has_Passed()) {
            throw wqz::Camera_Error(-result, sentence);
        }
        Handle_Signals();
        if (closing) {
            throw wqz::Camera_Error(ECANCELED, "The wait was ended, because the camera was closed.");
        }
    }
}

int32_t Camera_Handle::Recover_Slice(int32_t milliseconds, std::string& sentence)
{
    return Call([&](wqz::Camera& open) {
        const int32_t result = WQZ_Camera_Recover(open.Handle(), milliseconds);
        if (result != 0) {
            sentence = open.Explanation();
        }
        return result;
    });
}

bool Camera_Handle::Close()
{
    home.Check();
    const Unlocked unlocked;
    std::unique_lock lock(mutex);
    if (closing) {
        idle.wait(lock, [this] { return closed; });
        return true;
    }
    closing = true;
    ++changes;
    while (running_calls > 0) {
        camera->Cancel();  // ends one wait; the call that ends wakes this one
        idle.wait(lock);
    }
    const bool is_free = camera->Close();
    closed = true;
    idle.notify_all();
    return is_free;
}
