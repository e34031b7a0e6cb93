// The picture of one camera, for any number of viewers.
#ifndef WQZ_TOOL_PREVIEW_FEED_H
#define WQZ_TOOL_PREVIEW_FEED_H

#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "../modes.h"
#include "Camera/wqz_camera.hpp"
#include "feed_statistics.h"
#include "jpeg_encoder.h"
#include "picture.h"

enum class Feed_State {
    Idle,  ///< nobody watches
    Starting,
    Live,
    Unplugged,
    Failed  ///< the camera does not deliver; tried again every two seconds
};

/// What the page shows of a feed.
struct Feed_Report {
    Feed_State state = Feed_State::Idle;
    std::string problem;  ///< a sentence for the states Unplugged and Failed
    std::optional<wqz::Mode> mode;
    uint32_t viewers = 0;
    uint64_t revision = 0;  ///< changes when a viewer changed a control or the mode
    double rate = 0;
    double latency_ms = 0;
    uint64_t frames = 0;
    uint64_t lost = 0;
    uint64_t damaged = 0;
    uint64_t skipped = 0;
};

/// Captures in a thread of its own from the first viewer until a while after the last, and keeps the newest picture.
/// Its functions may be called by any thread.
class Feed {
public:
    /// @param camera_name  by which the camera is opened when it is needed: the identity
    explicit Feed(std::string camera_name);
    ~Feed();
    /// Ends the capture and all waits for pictures and modes.
    void End();
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    /// Keeps the camera capturing while it lives.
    class Viewer {
    public:
        explicit Viewer(Feed& watched) : feed(watched) { feed.Count_Viewer(1); }
        ~Viewer() { feed.Count_Viewer(-1); }
        Viewer(const Viewer&) = delete;
        Viewer& operator=(const Viewer&) = delete;

        /// @return a picture newer than the one that this returned last; null when none came in time
        std::shared_ptr<const Picture> Next(std::chrono::milliseconds timeout);

    private:
        Feed& feed;
        uint64_t last = 0;
    };

    /// Notes that a viewer is being sent the picture now.
    void Count_Sent(const Picture& picture);

    /// The camera, opened by the first call.
    /// @throws wqz::Camera_Error
    wqz::Camera& Camera();

    /// Captures in another mode, for all viewers. When the camera refuses it, the one before goes on.
    /// @return what the driver accepted
    /// @throws wqz::Camera_Error, Tool_Error
    wqz::Mode Change_Mode(const Mode_Wish& wish);

    /// Tells all pages to read the controls again.
    void Note_Change();

    Feed_Report Report() const;

private:
    /// The mode that the driver accepted, or why it did not. A value instead of an exception, because the thread
    /// sanitizer cannot follow an exception from thread to thread.
    struct Mode_Answer {
        std::optional<wqz::Mode> mode;
        int code = 0;  ///< errno value
        std::string sentence;
    };
    struct Mode_Order {
        Mode_Wish wish;
        std::promise<Mode_Answer> answer;
    };

    void Count_Viewer(int change);
    void Run();
    void Refuse_Order();
    bool Wait_For_Work();
    void Work();
    void Obey(Mode_Order next);
    Mode_Answer Try_Mode(const Mode_Wish& wanted);
    void Start(const Mode_Wish& wish);
    void Stop();
    bool Try_To_Recover();
    void Recover();
    void Read();
    void Count(const WQZ_Camera_Frame& frame);
    void Publish(const wqz::Frame& frame);
    void Note_Silence();
    void Note_Failure(int code, const std::string& sentence);
    void Set_State(Feed_State next, const std::string& sentence = {});
    bool Is_Unwatched();

    const std::string name;

    mutable std::mutex mutex;  // guards what follows, up to the thread's own members
    std::condition_variable wake;
    std::condition_variable newer;
    std::unique_ptr<wqz::Camera> camera;  // once open, it stays
    bool ended = false;
    uint32_t viewers = 0;
    std::chrono::steady_clock::time_point last_viewer;
    std::optional<Mode_Order> order;
    std::shared_ptr<const Picture> newest;
    Feed_State state = Feed_State::Idle;
    std::string problem;
    std::optional<wqz::Mode> mode;
    uint64_t revision = 0;
    Feed_Statistics statistics;

    // Used by the capture thread only.
    bool running = false;
    bool away = false;
    Mode_Wish wish;  // of the mode that the camera accepted last
    uint64_t pictures = 0;
    std::chrono::steady_clock::time_point last_frame;
    Picture_Pool pool;
    Jpeg_Encoder encoder;

    std::thread thread;
};

#endif  // WQZ_TOOL_PREVIEW_FEED_H
