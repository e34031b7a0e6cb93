// Pulls the plug of the kernel's USB camera at random moments of what programs do with it, through both interfaces. No
// call may hang, nothing may be left behind, and the camera must work when it is plugged in again. What the kernel has
// to say about it is looked for in its log when all tests have run.
//
// WQZ_UNPLUGS and WQZ_SEED in the environment set how often, and from which seed the moments are drawn.

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <random>
#include <thread>

#include "camera_support.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr char Usb[] = "1209:0001";
constexpr int Vendor = 0x1209, Product = 0x0001;
// Beside its wait, a call may have to wait until uvcvideo gives up a transfer, which takes five seconds.
constexpr auto Call_Limit = 8s;
constexpr auto Process_Limit = 20s;
constexpr auto Longest_Lag = 100ms;  // a plug is pulled up to so long before the moment at which it should be gone
constexpr int Frames_Wanted = 10;

enum Stage { Before, Listing, Opening, Controlling, Starting, Reading, Stopping, Closing, After, Stages };
constexpr const char* Stage_Names[Stages] = {"before", "list", "open",  "controls", "start",
                                             "read",   "stop", "close", "after"};

/// When each stage of a use began, in microseconds since its start.
using Times = std::array<int64_t, Stages>;

/// How far a program has come. Lies in memory that a forked process shares.
struct Progress {
    std::atomic<int> stage{Before};
    std::array<std::atomic<int64_t>, Stages> begin_us{};  // since `start`
    std::atomic<int> wrong_frames{0};
    Clock::time_point start = Clock::now() + Longest_Lag;

    void Enter(Stage next)
    {
        if (stage != next) {
            begin_us[next] = std::chrono::duration_cast<microseconds>(Clock::now() - start).count();
            stage = next;
        }
    }
};

class Shared_Progress {
public:
    Shared_Progress()
        : memory(mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
        pProgress = new (memory) Progress;
    }
    ~Shared_Progress() { (void)munmap(memory, sizeof(Progress)); }
    Shared_Progress(const Shared_Progress&) = delete;
    Shared_Progress& operator=(const Shared_Progress&) = delete;

    Progress* operator->() const { return pProgress; }
    Progress& operator*() const { return *pProgress; }

private:
    void* memory;
    Progress* pProgress;
};

/// A whole use of the camera interface, from the list to the close. Calls may fail, but none for long, and none without
/// an explanation.
class Camera_Use {
public:
    explicit Camera_Use(Progress& progress) : C_Progress(progress) {}

    void Whole()
    {
        C_Progress.Enter(Listing);
        (void)Call("List", 0ms, [] { return WQZ_Camera_List(nullptr, 0); });
        C_Progress.Enter(Opening);
        if (Call("Open", 0ms, [&] { return WQZ_Camera_Open(&pCamera, Usb); }) == 0) {
            C_Progress.Enter(Controlling);
            Use_Controls();
            C_Progress.Enter(Starting);
            const WQZ_Camera_Request request = Exactly(V4L2_PIX_FMT_MJPEG, 160, 120, 30);
            const auto start = [&] { return WQZ_Camera_Start(pCamera, &request, nullptr); };
            if (Call("Start", 0ms, start) == 0) {
                C_Progress.Enter(Reading);
                Read_Frames();
            }
            C_Progress.Enter(Stopping);
            EXPECT_EQ(Call("Stop", 0ms, [&] { return WQZ_Camera_Stop(pCamera); }), 0);
            (void)Call("Start", 0ms, start);
            C_Progress.Enter(Closing);  // of a camera that captures
            EXPECT_EQ(Call("Close", 0ms, [&] { return WQZ_Camera_Close(std::exchange(pCamera, nullptr)); }), 0);
        }
        C_Progress.Enter(After);
    }

private:
    int Call(const char* name, milliseconds wait, const std::function<int()>& body)
    {
        const auto begin = Clock::now();
        const int result = body();
        EXPECT_LT(Clock::now() - begin, wait + Call_Limit) << name;
        if (result < 0) {
            // "There is no camera", or "plug it in again".
            const std::string said = Explanation(pCamera);
            EXPECT_NE(said.find(pCamera == nullptr ? "camera" : "again"), std::string::npos) << name << ": " << said;
        }
        return result;
    }

    void Use_Controls()
    {
        (void)Call("Controls", 0ms, [&] { return WQZ_Camera_Controls(pCamera, nullptr, 0); });
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = "brightness";
        setting.value = 7;
        (void)Call("Set_Controls", 0ms, [&] { return WQZ_Camera_Set_Controls(pCamera, &setting, 1); });
        (void)Call("Get_Control", 0ms, [&] { return WQZ_Camera_Get_Control(pCamera, &setting); });
    }

    // Ends when a read fails, which it may only do because of the unplug.
    void Read_Frames()
    {
        constexpr auto Patience = 10000ms;
        Frame_Tally tally;
        for (int i = 0; i < Frames_Wanted; ++i) {
            Loan loan;
            const int result = Call("Read", Patience, [&] {
                return WQZ_Camera_Read(pCamera, &loan.frame, static_cast<int32_t>(Patience.count()), 0);
            });
            if (result != 0) {
                EXPECT_EQ(result, -ENODEV) << Explanation(pCamera);
                break;
            }
            tally.Add(loan.frame);
            if ((loan.frame.flags & WQZ_CAMERA_FRAME_DAMAGED) == 0) {
                EXPECT_EQ(Motion_Jpeg_Counter(loan.Bytes()), loan.frame.sequence);
            }
        }
        auto counts = Sized<WQZ_Camera_Counts>();
        EXPECT_EQ(WQZ_Camera_Counters(pCamera, &counts), 0);
        tally.Expect_Balance(counts, true);
    }

    Progress& C_Progress;
    WQZ_Camera* pCamera = nullptr;
};

/// A whole use of the session. After an unplug its capture never returns.
void Use_Session(Progress& progress)
{
    progress.Enter(Listing);
    v4l2_dev_sys_data_t* found = nullptr;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&found, Vendor, Product);
    if (count > 0) {
        progress.Enter(Opening);
        void* const handle = WQZ_USBCam_CREATE_DEVICE_POINT(found[0]);
        (void)WQZ_USBCam_Video_DEAL_WITH_INIT(handle, 0);
        progress.Enter(Controlling);
        int32_t brightness = 7;
        (void)WQZ_USBCam_PU_Set(handle, V4L2_CID_BRIGHTNESS, brightness);
        (void)WQZ_USBCam_PU_Get(handle, V4L2_CID_BRIGHTNESS, &brightness);
        progress.Enter(Starting);
        std::thread loop([=] { (void)WQZ_USBCam_Video_DEAL_WITH(handle, Motion_Jpeg(160, 120, 30)); });
        for (int taken = 0; taken < Frames_Wanted;) {
            Frame_Buffer_Data* const frame = WQZ_USBCam_GET_FRAME_BUFF(handle, false);
            if (frame == nullptr) {
                std::this_thread::sleep_for(2ms);
                continue;
            }
            progress.Enter(Reading);
            ++taken;
            if ((frame->buffer.flags & V4L2_BUF_FLAG_ERROR) == 0) {
                const auto* const bytes = static_cast<const uint8_t*>(frame->pMem);
                const int64_t counter = Motion_Jpeg_Counter({bytes, bytes + frame->buffer.bytesused});
                progress.wrong_frames += counter == frame->buffer.sequence ? 0 : 1;
            }
            WQZ_USBCam_SAVE_FRAME_RES(handle, frame);
        }
        progress.Enter(Stopping);
        WQZ_USBCam_EVENT_LoopMode(handle, 0);
        loop.join();
        progress.Enter(Closing);
        WQZ_USBCam_Clear_Frame_Buff(handle);
        WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);
        WQZ_USBCam_DELETE_DEVICE_POINT(handle);
    }
    WQZ_USBCam_DEVICE_FREE(found, count);
    progress.Enter(After);
}

/// Runs a program that uses the camera. The plug is pulled at the host's end, which is quicker than to tell the camera.
class Round {
public:
    virtual ~Round() = default;

    /// Runs the program without an unplug.
    const Progress& Undisturbed()
    {
        Begin();
        End(Clock::time_point::max());
        EXPECT_EQ(C_Progress->stage, After);
        return *C_Progress;
    }

    /// @return the stage in which the program was when the kernel had taken the node away
    Stage Unplug(const std::string& node, const Times& undisturbed, microseconds moment)
    {
        Begin();
        Wait_For(undisturbed, moment);
        const auto pulled = Clock::now();
        std::ofstream("/sys/devices/platform/vhci_hcd.0/detach") << 0;
        while (access(node.c_str(), F_OK) == 0 && Clock::now() < pulled + Process_Limit) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_NE(access(node.c_str(), F_OK), 0) << "the camera did not go away";
        const int stage = C_Progress->stage;
        const auto gone = Clock::now();
        Lag = std::chrono::duration_cast<microseconds>(gone - pulled);
        End(gone);
        EXPECT_EQ(C_Progress->wrong_frames, 0);
        return static_cast<Stage>(stage);
    }

    microseconds Lag{0};

private:
    // A busy machine is faster or slower than it was, so that only the time since the last stage is taken from there.
    void Wait_For(const Times& undisturbed, microseconds moment)
    {
        int stage = After;
        while (stage > Before && undisturbed[static_cast<size_t>(stage)] > moment.count()) {
            --stage;
        }
        if (stage == Before) {
            std::this_thread::sleep_until(C_Progress->start + moment);
            return;
        }
        while (C_Progress->stage < stage && Clock::now() < C_Progress->start + Process_Limit) {
            std::this_thread::sleep_for(200us);
        }
        std::this_thread::sleep_for(moment - microseconds(undisturbed[static_cast<size_t>(stage)]));
    }

protected:
    virtual void Begin() = 0;
    virtual void End(Clock::time_point gone) = 0;

    Shared_Progress C_Progress;
};

// A thread of this process, so that what one use leaves behind is there in the next one.
class Camera_Round : public Round {
    void Begin() override
    {
        Program = std::async(std::launch::async, [this] {
            std::this_thread::sleep_until(C_Progress->start);
            Camera_Use(*C_Progress).Whole();
        });
    }

    void End(Clock::time_point) override
    {
        if (Program.wait_for(Process_Limit) != std::future_status::ready) {
            printf("the camera interface hangs in %s\n", Stage_Names[C_Progress->stage]);
            fflush(nullptr);
            _exit(1);
        }
    }

    std::future<void> Program;
};

// A process of its own that can be killed.
class Session_Round : public Round {
public:
    explicit Session_Round(milliseconds patience) : Patience(patience) {}

private:
    void Begin() override
    {
        fflush(nullptr);
        Process = fork();
        ASSERT_GE(Process, 0);
        if (Process == 0) {
            const std::string log = std::string(Results_Directory) + "/random-unplug-messages.txt";
            if (freopen(log.c_str(), "a", stderr) == nullptr || freopen("/dev/null", "w", stdout) == nullptr) {
                _exit(2);
            }
            std::this_thread::sleep_until(C_Progress->start);
            Use_Session(*C_Progress);
            _exit(0);
        }
    }

    // Only a capture may wait for ever. It is killed when it does.
    void End(Clock::time_point gone) override
    {
        const auto limit = Clock::now() + Process_Limit;
        bool killed = false;
        int status = 0;
        for (pid_t ended = 0; ended == 0; ended = waitpid(Process, &status, WNOHANG)) {
            const int stage = C_Progress->stage;
            const bool captures = stage == Starting || stage == Reading || stage == Stopping;
            if (!killed && captures && Clock::now() - Patience > gone) {
                (void)kill(Process, SIGKILL);
                killed = true;
            }
            if (Clock::now() > limit) {
                ADD_FAILURE() << "the session hangs in " << Stage_Names[stage] << (killed ? ", also when killed" : "");
                (void)kill(Process, SIGKILL);
                return;
            }
            std::this_thread::sleep_for(2ms);
        }
        EXPECT_TRUE(status == 0 || (killed && status == SIGKILL)) << status;
    }

    milliseconds Patience;
    pid_t Process = -1;
};

int From_Environment(const char* name, int otherwise)
{
    const char* const text = getenv(name);
    return text == nullptr || *text == 0 ? otherwise : atoi(text);
}

long Open_Descriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

/// @return the node; it has another number when somebody still holds the old one
std::string Expect_Works()
{
    Plug_In_Usb_Camera();
    Camera camera(Usb);
    EXPECT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_MJPEG, 160, 120, 30)), 0) << Explanation(camera.Handle());
    const auto frames = camera.Take(3);
    EXPECT_EQ(frames.size(), 3U);
    for (const Delivered_Frame& frame : frames) {
        EXPECT_EQ(Motion_Jpeg_Counter(frame.bytes), frame.sequence);
    }
    return camera.Node();
}

/// Draws numbers from a seed.
class Draw {
public:
    explicit Draw(unsigned seed) : Generator(seed) {}

    int64_t Number(int64_t first, int64_t last)
    {
        return std::uniform_int_distribution<int64_t>(first, last)(Generator);
    }

    /// @return a moment within one of the stages, which take turns
    microseconds Moment(const Times& begin_us, int turn)
    {
        const auto stage = static_cast<size_t>(Listing + turn % (After - Listing));
        return microseconds(Number(begin_us[stage], begin_us[stage + 1]));
    }

private:
    std::mt19937 Generator;
};

struct Interface {
    const char* name;
    Times begin_us;
    std::array<int, Stages> unplugs;

    explicit Interface(const char* name_, const Progress& undisturbed) : name(name_), begin_us{}, unplugs{}
    {
        std::copy(undisturbed.begin_us.begin(), undisturbed.begin_us.end(), begin_us.begin());
    }

    void Print() const
    {
        printf("%s:", name);
        for (size_t stage = Before; stage < Stages; ++stage) {
            printf(" %s %d", Stage_Names[stage], unplugs[stage]);
        }
        printf("\n");
    }
};

TEST(Random_Unplug, NothingHangsAndTheCameraWorksWhenItIsBack)
{
    const int unplugs = From_Environment("WQZ_UNPLUGS", 10), seed = From_Environment("WQZ_SEED", 1);
    Draw draw(static_cast<unsigned>(seed));
    const std::string node = Expect_Works();
    Interface interfaces[] = {Interface("camera interface", Camera_Round().Undisturbed()),
                              Interface("session", Session_Round(0ms).Undisturbed())};
    const long descriptors = Open_Descriptors();
    microseconds lag = 40ms;
    for (int i = 0; i < unplugs && !HasFailure(); ++i) {
        Interface& used = interfaces[i % 2];
        SCOPED_TRACE(std::string(used.name) + ", unplug " + std::to_string(i) + ", seed " + std::to_string(seed));
        Camera_Round camera;
        Session_Round session(milliseconds(draw.Number(0, 500)));
        Round& round = i % 2 == 0 ? static_cast<Round&>(camera) : session;
        ++used.unplugs[round.Unplug(node, used.begin_us, draw.Moment(used.begin_us, i) - lag)];
        lag = std::min<microseconds>((lag * 3 + round.Lag) / 4, Longest_Lag);
        EXPECT_EQ(Expect_Works(), node);
        EXPECT_EQ(Open_Descriptors(), descriptors);
    }
    printf("%d unplugs, seed %d, the kernel takes %lld ms to notice; what programs did then:\n", unplugs, seed,
           static_cast<long long>(lag.count() / 1000));
    for (const Interface& used : interfaces) {
        used.Print();
    }
}

}  // namespace
