// Opens cameras, keeps frames, and runs other programs on the same camera.
#include "camera_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

std::string Explanation(WQZ_Camera* camera)
{
    std::array<char, 2048> text{};
    const int length = WQZ_Camera_Explain(camera, text.data(), text.size());
    EXPECT_GE(length, 0);
    EXPECT_LT(length, static_cast<int>(text.size()));
    return text.data();
}

WQZ_Camera_Request Exactly(uint32_t fourcc, uint32_t width, uint32_t height, uint32_t fps)
{
    auto request = Sized<WQZ_Camera_Request>();
    request.fourcc = fourcc;
    request.width = width;
    request.height = height;
    request.interval = {fps == 0 ? 0U : 1U, fps};
    request.flags = WQZ_CAMERA_START_EXACT;
    return request;
}

Loan::~Loan()
{
    if (frame.data != nullptr) {
        EXPECT_EQ(Release(), 0) << Explanation();
    }
}

int Loan::Release()
{
    return WQZ_Camera_Release(&frame);
}

Camera::Camera(const std::string& name)
{
    const int result = WQZ_Camera_Open(&pHandle, name.c_str());
    if (result != 0) {
        throw std::runtime_error("cannot open " + name + ": " + Explanation());
    }
}

Camera::~Camera()
{
    if (pHandle != nullptr) {
        (void)Close();
    }
}

std::string Camera::Node()
{
    auto info = Sized<WQZ_Camera_Info>();
    EXPECT_EQ(WQZ_Camera_Describe(pHandle, &info), 0);
    return info.node;
}

int Camera::Start(const WQZ_Camera_Request& request)
{
    C_Tally.Expect_Balance(Counters(), true);
    const int result = WQZ_Camera_Start(pHandle, &request, &S_Mode);
    C_Tally.Clear();
    return result;
}

int Camera::Read(WQZ_Camera_Frame& frame, int timeout_ms, uint32_t flags)
{
    const int result = WQZ_Camera_Read(pHandle, &frame, timeout_ms, flags);
    if (result == 0) {
        C_Tally.Add(frame);
    }
    return result;
}

Loans Camera::Hold(size_t count)
{
    Loans loans;
    while (loans.size() < count) {
        auto loan = std::make_unique<Loan>();
        const int result = Read(loan->frame, 10000);
        if (result != 0) {
            ADD_FAILURE() << "frame " << loans.size() << ": " << result << ", " << Explanation(pHandle);
            break;
        }
        loans.push_back(std::move(loan));
    }
    return loans;
}

std::vector<Delivered_Frame> Camera::Take(size_t count)
{
    std::vector<Delivered_Frame> frames;
    while (frames.size() < count) {
        const Loans loans = Hold(1);
        if (loans.empty()) {
            break;
        }
        const WQZ_Camera_Frame& frame = loans[0]->frame;
        frames.push_back({static_cast<uint32_t>(frames.size()),
                          frame.sequence,
                          {frame.fourcc, frame.width, frame.height, 0},
                          loans[0]->Bytes()});
    }
    return frames;
}

WQZ_Camera_Counts Camera::Counters()
{
    auto counts = Sized<WQZ_Camera_Counts>();
    EXPECT_EQ(WQZ_Camera_Counters(pHandle, &counts), 0);
    return counts;
}

int Camera::Set(const std::string& name, const std::string& text)
{
    auto setting = Sized<WQZ_Camera_Setting>();
    setting.name = name.c_str();
    setting.text = text.c_str();
    return WQZ_Camera_Set_Controls(pHandle, &setting, 1);
}

int Camera::Close()
{
    C_Tally.Expect_Balance(Counters(), true);
    WQZ_Camera* const closed = pHandle;
    pHandle = nullptr;
    return WQZ_Camera_Close(closed);
}

Other_Capture::Other_Capture(const std::string& node)
{
    int from_other[2];
    if (pipe2(from_other, O_CLOEXEC) != 0 || (Process = fork()) < 0) {
        throw std::runtime_error("cannot run another program");
    }
    if (Process == 0) {
        (void)dup2(from_other[1], STDOUT_FILENO);
        (void)dup2(from_other[1], STDERR_FILENO);
        (void)execlp("v4l2-ctl", "v4l2-ctl", "-d", node.c_str(), "--stream-mmap", "--stream-count=1000000", nullptr);
        _exit(127);
    }
    (void)close(from_other[1]);
    Output = from_other[0];  // stays open: v4l2-ctl ends when nobody can read what it writes
    char letter = 0;         // a '<' for each frame
    while (read(Output, &letter, 1) == 1 && letter != '<') {
    }
    if (letter != '<') {
        End();
        throw std::runtime_error("v4l2-ctl captures nothing from " + node);
    }
}

void Other_Capture::End()
{
    if (Process > 0) {
        (void)kill(Process, SIGKILL);
        (void)waitpid(Process, nullptr, 0);
        (void)close(Output);
        Process = -1;
    }
}

void Expect_Free_For_Others(const std::string& node, const std::string& fourcc, uint32_t width, uint32_t height)
{
    const Command_Result other =
        Run_Command("v4l2-ctl -d " + node + " -v width=" + std::to_string(width) + ",height=" + std::to_string(height) +
                    ",pixelformat=" + fourcc + " --stream-mmap --stream-count=3 --stream-to=/tmp/other");
    EXPECT_EQ(other.status, 0) << other.output;
    EXPECT_EQ(other.output.find("fail"), std::string::npos) << node << ": " << other.output;
}

int In_Another_Process(int (*body)(const std::string& argument), const std::string& argument)
{
    const pid_t process = fork();
    if (process == 0) {
        _exit(body(argument));
    }
    int status = 0;
    if (process < 0 || waitpid(process, &status, 0) != process || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}
