// Captures for viewers: begins with the first, ends after the last, survives unplugging and failures.
#include "feed.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "../diagnosis.h"
#include "../tool_error.h"
#include "device_walk.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto Linger = 3s;               // a page that is loaded again finds the camera running
constexpr auto Read_Slice = 250ms;        // how soon the capture notices an order or its end when no frame comes
constexpr auto Recover_Interval = 300ms;  // between two looks for an unplugged camera
constexpr auto Longest_Silence = 8s;      // some cameras pause for five seconds and go on
constexpr auto Retry_Interval = 2s;
constexpr auto Order_Limit = 15s;  // the slowest cameras take seconds to change their mode

constexpr const char* Ending = "the preview ends";

const std::vector<uint32_t> Preferred_Formats = {Motion_Jpeg, Still_Jpeg, Yuyv, WQZ_CAMERA_FOURCC('U', 'Y', 'V', 'Y')};

}  // namespace

Feed::Feed(std::string camera_name) : name(std::move(camera_name)), thread(&Feed::Run, this)
{
}

Feed::~Feed()
{
    End();
    thread.join();
}

void Feed::End()
{
    {
        const std::lock_guard lock(mutex);
        ended = true;
        if (camera) {
            camera->Cancel();
        }
    }
    wake.notify_all();
    newer.notify_all();
}

void Feed::Count_Viewer(int change)
{
    {
        const std::lock_guard lock(mutex);
        viewers += static_cast<uint32_t>(change);
        last_viewer = Clock::now();
    }
    wake.notify_all();
}

std::shared_ptr<const Picture> Feed::Viewer::Next(std::chrono::milliseconds timeout)
{
    std::unique_lock lock(feed.mutex);
    const auto has_newer = [this] { return feed.newest && feed.newest->number > last; };
    if (!feed.newer.wait_for(lock, timeout, [&] { return feed.ended || has_newer(); }) || feed.ended) {
        return nullptr;
    }
    last = feed.newest->number;
    return feed.newest;
}

void Feed::Count_Sent(const Picture& picture)
{
    const auto age = Clock::now().time_since_epoch() - std::chrono::nanoseconds(picture.time_ns);
    const std::lock_guard lock(mutex);
    statistics.Count_Sent(age);
}

wqz::Camera& Feed::Camera()
{
    const std::lock_guard lock(mutex);
    if (!camera) {
        const std::lock_guard walk(Device_Walk);
        camera = std::make_unique<wqz::Camera>(Open_Camera(name));
    }
    return *camera;
}

wqz::Mode Feed::Change_Mode(const Mode_Wish& wanted)
{
    std::future<Mode_Answer> future;
    {
        const std::lock_guard lock(mutex);
        if (order) {
            throw Tool_Error("another viewer is changing the mode at this moment; try again");
        }
        if (ended) {
            throw Tool_Error(Ending);
        }
        order = Mode_Order{wanted, {}};
        future = order->answer.get_future();
        last_viewer = Clock::now();
    }
    wake.notify_all();
    if (future.wait_for(Order_Limit) != std::future_status::ready) {
        throw Tool_Error("the camera takes too long to change its mode");
    }
    const Mode_Answer answer = future.get();
    if (!answer.mode) {
        throw wqz::Camera_Error(answer.code, answer.sentence);
    }
    return *answer.mode;
}

void Feed::Note_Change()
{
    const std::lock_guard lock(mutex);
    ++revision;
}

Feed_Report Feed::Report() const
{
    const std::lock_guard lock(mutex);
    Feed_Report report;
    report.state = state;
    report.problem = problem;
    report.mode = mode;
    report.viewers = viewers;
    report.revision = revision;
    report.rate = state == Feed_State::Live ? statistics.Rate(Clock::now()) : 0;
    report.latency_ms = statistics.Latency_Milliseconds();
    report.frames = statistics.Frames();
    report.lost = statistics.Lost();
    report.damaged = statistics.Damaged();
    report.skipped = statistics.Skipped();
    return report;
}

void Feed::Run()
{
    while (Wait_For_Work()) {
        try {
            Work();
        } catch (const wqz::Camera_Error& error) {
            Note_Failure(error.Code(), error.what());
        } catch (const std::exception& error) {
            Note_Failure(0, error.what());
        }
    }
    Refuse_Order();
}

/// Answers a viewer whose order came too late.
void Feed::Refuse_Order()
{
    const std::lock_guard lock(mutex);
    if (order) {
        order->answer.set_value({std::nullopt, ECANCELED, Ending});
        order.reset();
    }
}

/// @return false when the feed ends
bool Feed::Wait_For_Work()
{
    std::unique_lock lock(mutex);
    wake.wait(lock, [this] { return ended || viewers > 0 || order || (running && !away); });
    return !ended;
}

void Feed::Work()
{
    std::optional<Mode_Order> next;
    {
        const std::lock_guard lock(mutex);
        next = std::exchange(order, std::nullopt);
    }
    if (next) {
        Obey(std::move(*next));
    } else if (away) {
        Recover();
    } else if (!running) {
        Start(wish);
    } else if (Is_Unwatched()) {
        Stop();
    } else {
        Read();
    }
}

bool Feed::Is_Unwatched()
{
    const std::lock_guard lock(mutex);
    return viewers == 0 && Clock::now() - last_viewer > Linger;
}

void Feed::Obey(Mode_Order next)
{
    Mode_Answer answer = Try_Mode(next.wish);
    if (!answer.mode) {
        Set_State(Feed_State::Idle);  // the next round starts the mode before again if somebody watches
    }
    Note_Change();
    next.answer.set_value(std::move(answer));
}

Feed::Mode_Answer Feed::Try_Mode(const Mode_Wish& wanted)
{
    try {
        Start(wanted);
        const std::lock_guard lock(mutex);
        return {mode, 0, ""};
    } catch (const wqz::Camera_Error& error) {
        return {std::nullopt, error.Code(), error.what()};
    } catch (const Tool_Error& error) {
        return {std::nullopt, EINVAL, error.what()};  // the camera lacks the format
    }
}

void Feed::Start(const Mode_Wish& wanted)
{
    wqz::Camera& opened = Camera();
    const wqz::Request request = Choose_Mode(opened.Modes(), wanted, Preferred_Formats);
    running = false;
    const wqz::Mode accepted = Start_Camera(opened, request);
    running = true;
    wish = wanted;
    last_frame = Clock::now();
    const std::lock_guard lock(mutex);
    mode = accepted;
    newest = nullptr;
    statistics.Restart();
    state = Feed_State::Starting;
    problem.clear();
}

void Feed::Stop()
{
    running = false;
    (void)Camera().Stop();  // no frame is held, so the camera is free now
    {
        const std::lock_guard lock(mutex);
        newest = nullptr;  // the next viewer must not take an old picture for the present
    }
    Set_State(Feed_State::Idle);
}

bool Feed::Try_To_Recover()
{
    wqz::Camera& opened = Camera();
    const std::lock_guard walk(Device_Walk);
    return opened.Recover(0ms);
}

void Feed::Recover()
{
    if (!Try_To_Recover()) {
        std::unique_lock lock(mutex);
        wake.wait_for(lock, Recover_Interval, [this] { return ended || order; });
        return;
    }
    away = false;  // the capture goes on if one was running; otherwise the next round starts it
    last_frame = Clock::now();
    Set_State(Feed_State::Starting);
    Note_Change();
}

void Feed::Read()
{
    const wqz::Frame frame = Camera().Read_Newest(Read_Slice);
    if (frame) {
        Count(frame.Record());
    }
    if (frame && frame.Record().length > 0) {
        Publish(frame);
    } else if (Clock::now() - last_frame > Longest_Silence) {
        Note_Silence();
    }
}

void Feed::Count(const WQZ_Camera_Frame& frame)
{
    const uint64_t skipped = Camera().Counters().skipped;
    const std::lock_guard lock(mutex);
    statistics.Count(frame, skipped, Clock::now());
}

void Feed::Publish(const wqz::Frame& frame)
{
    const WQZ_Camera_Frame& record = frame.Record();
    const auto picture = pool.Take();
    const size_t length = encoder.Encode(frame, *picture);
    last_frame = Clock::now();
    if (length > 0) {
        picture->number = ++pictures;
        picture->sequence = record.sequence;
        picture->lost_before = record.lost_before;
        picture->width = record.width;
        picture->height = record.height;
        picture->time_ns = record.time_ns;
        picture->Finish(length);
    }
    {
        const std::lock_guard lock(mutex);
        newest = length > 0 ? picture : newest;
        state = Feed_State::Live;
        problem.clear();
    }
    newer.notify_all();
}

void Feed::Note_Silence()
{
    last_frame = Clock::now();
    Set_State(Feed_State::Failed,
              "No frame came for 8 seconds. Unplug the camera and plug it in again, or choose "
              "another mode.");
}

void Feed::Note_Failure(int code, const std::string& sentence)
{
    if (code == ENODEV) {
        away = true;
        Set_State(Feed_State::Unplugged, sentence);
        return;
    }
    if (std::exchange(running, false)) {
        (void)WQZ_Camera_Stop(camera->Handle());  // an error here says no more than the one before
    }
    Set_State(Feed_State::Failed, sentence);
    std::unique_lock lock(mutex);
    wake.wait_for(lock, Retry_Interval, [this] { return ended || order; });
}

void Feed::Set_State(Feed_State next, const std::string& sentence)
{
    const std::lock_guard lock(mutex);
    state = next;
    problem = sentence;
}
