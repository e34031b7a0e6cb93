// What the tool's doctor reads from the system, on made-up folders, and what it concludes where no virtual camera can
// show the case: containers, kernel modules, rights, other processes, lost frames.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>

#include "bandwidth.h"
#include "diagnosis.h"

namespace {

namespace fs = std::filesystem;

bool Matches(const std::string& text, const std::string& pattern)
{
    return std::regex_search(text, std::regex(pattern));
}

/// A folder that looks like the root of a system.
class Made_Up_System : public testing::Test {
protected:
    Made_Up_System() { Write("proc/sys/kernel/osrelease", "6.1.0-40-cloud"); }
    ~Made_Up_System() override { fs::remove_all(root); }

    void Write(const fs::path& name, const std::string& content) const
    {
        fs::create_directories((root / name).parent_path());
        std::ofstream(root / name) << content << '\n';
    }
    void Link(const fs::path& name, const std::string& target) const
    {
        fs::create_directories((root / name).parent_path());
        fs::create_symlink(target, root / name);
    }
    void Plug_In_Camera() const
    {
        const fs::path device = "sys/bus/usb/devices/1-2";
        Write(device / "idVendor", "046d");
        Write(device / "idProduct", "0825");
        Write(device / "speed", "480");
        Write(device / "version", " 2.00");
        Write(device / "1-2:1.1/bInterfaceClass", "0e");
    }
    std::vector<Finding> Findings() const { return Check_Computer(Look_At_System(root), {}); }

    const fs::path root = [] {
        std::string name = fs::temp_directory_path() / "findings-XXXXXX";
        return fs::path(mkdtemp(name.data()));
    }();
};

TEST_F(Made_Up_System, NamesTheRemedyForEachReasonOfAMissingDriver)
{
    const fs::path modules = "lib/modules/6.1.0-40-cloud";
    const std::string module = "kernel/drivers/media/usb/uvc/uvcvideo.ko";
    EXPECT_EQ(Findings().front().id, "no-camera") << "modules that cannot be seen are no missing ones";

    Write(modules / "modules.dep", "kernel/fs/fat/fat.ko:");
    ASSERT_EQ(Findings().size(), 1U);
    EXPECT_TRUE(Matches(Findings().front().Text(), "kernel 6.1.0-40-cloud has no module uvcvideo.*apt install"));

    Plug_In_Camera();
    const struct {
        fs::path file;
        std::string content, sentence;
    } cases[] = {
        {modules / "modules.builtin", "kernel/fs/fat/fat.ko", "046d:0825 at port 1-2 has no driver: the kernel "},
        {modules / "modules.dep", module + ".xz: kernel/drivers/media/mc/mc.ko.xz", "modprobe uvcvideo'\\."},
        {"proc/modules", "uvcvideo 131072 0 - Live", "although .*uvcvideo is loaded.*dmesg"}};
    for (const auto& c : cases) {
        Write(c.file, c.content);
        ASSERT_EQ(Findings().size(), 1U) << c.file;
        EXPECT_EQ(Findings().front().id, "no-driver");
        EXPECT_TRUE(Matches(Findings().front().Text(), c.sentence)) << Findings().front().Text();
    }
    Link("sys/bus/usb/devices/1-2/1-2:1.1/driver", "../../drivers/uvcvideo");
    fs::create_directories(root / "sys/bus/usb/devices/1-2/drivers/uvcvideo");
    Link("sys/bus/usb/devices/drivers", "1-2/drivers");
    EXPECT_EQ(Findings().front().id, "no-camera") << "a driver has taken it, but made no node";
}

TEST_F(Made_Up_System, TellsAContainerThatItLacksTheDevice)
{
    Write("proc/1/cgroup", "0::/init.scope");
    Write("sys/class/video4linux/video3/name", "Webcam");
    ASSERT_EQ(Findings().size(), 1U);
    EXPECT_TRUE(Matches(Findings().front().Text(), "kernel has /dev/video3 \\(Webcam\\).*udevadm trigger"));
    const std::pair<fs::path, std::string> marks[] = {{".dockerenv", ""},
                                                      {"run/.containerenv", ""},
                                                      {"run/secrets/kubernetes.io/token", ""},
                                                      {"proc/1/cgroup", "0::/kubepods/pod7"}};
    for (const auto& [file, content] : marks) {
        Write(file, content);
        ASSERT_EQ(Findings().size(), 1U) << file;
        EXPECT_EQ(Findings().front().id, "no-node");
        EXPECT_TRUE(Matches(Findings().front().Text(), "not given the device.*--device /dev/video3")) << file;
        fs::remove(root / file);
    }
    Write(".dockerenv", "");
    Write("dev/video3", "");
    EXPECT_EQ(Findings().front().id, "only-metadata");
    fs::remove_all(root / "sys/class");
    EXPECT_TRUE(Matches(Findings().front().Text(), "No camera is here: this is a container.*--device"));
    Write("lib/modules/6.1.0-40-cloud/modules.dep", "kernel/fs/fat/fat.ko:");
    EXPECT_EQ(Findings().front().id, "no-camera") << "a container's modules are not the kernel's";
    fs::remove_all(root / "lib");
    Plug_In_Camera();
    EXPECT_TRUE(Matches(Findings().front().Text(), "modprobe uvcvideo' on the host"));
}

TEST_F(Made_Up_System, KnowsHowMuchBulkTransfersCarry)
{
    Plug_In_Camera();
    EXPECT_DOUBLE_EQ(Port_Limit(Look_At_System(root).usb.at(0)), 24576000);
    const fs::path endpoint = "sys/bus/usb/devices/1-2/1-2:1.1/ep_81";
    Write(endpoint / "type", "Bulk");
    Write(endpoint / "direction", "out");
    EXPECT_DOUBLE_EQ(Port_Limit(Look_At_System(root).usb.at(0)), 24576000);
    Write(endpoint / "direction", "in");
    EXPECT_DOUBLE_EQ(Port_Limit(Look_At_System(root).usb.at(0)), 53248000);
}

TEST_F(Made_Up_System, NamesTheProcessesThatHoldANode)
{
    Write("proc/41/comm", "cheese");
    Link("proc/41/fd/3", "/dev/video10");
    Link("proc/41/fd/4", "/dev/video1");
    Write("proc/42/comm", "bash");
    Link("proc/42/fd/0", "/dev/video11");
    Link("proc/" + std::to_string(getpid()) + "/fd/3", "/dev/video1");
    Link("proc/self/fd/3", "/dev/video1");
    const Holders holders = Holders_Of("/dev/video1", root / "proc");
    EXPECT_TRUE(holders.all_seen);
    EXPECT_EQ(holders.names, std::vector<std::string>{"cheese (process 41)"});
    EXPECT_EQ(Held("/dev/video1", holders).Text(),
              "/dev/video1 is busy: cheese (process 41) has it open. End the capture there, or end the process with "
              "'kill 41'.");
    EXPECT_TRUE(Matches(Held("/dev/video1", {{}, {}, false}).Text(), "another user.*sudo fuser -v /dev/video1"));
}

TEST_F(Made_Up_System, KnowsWhenAProcessHidesWhatItHolds)
{
    fs::create_directories(root / "proc/41/fd");
    fs::permissions(root, fs::perms::all);
    fs::permissions(root / "proc/41/fd", fs::perms::none);
    const pid_t child = fork();  // another user, because root sees everything
    if (child == 0) {
        constexpr uid_t Nobody = 65534;
        (void)!setuid(Nobody);
        _exit(Holders_Of("/dev/video1", root / "proc").all_seen ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the folder that it may not read counts as seen";
    fs::permissions(root / "proc/41/fd", fs::perms::owner_all);
}

TEST_F(Made_Up_System, ReadsTheRightsOfANode)
{
    Write("dev/video0", "");
    ASSERT_EQ(chmod((root / "dev/video0").c_str(), 0640), 0);
    const Node_Access access = Look_At_Node(root / "dev/video0");
    EXPECT_EQ(access.mode, 0640U);
    EXPECT_EQ(access.owner, access.user);
    EXPECT_TRUE(access.is_owner && access.in_group);
    EXPECT_EQ(access.is_root, geteuid() == 0);
}

TEST(Findings, TellWhichRightIsMissing)
{
    const struct {
        std::function<void(Node_Access&)> change;
        bool in_container;
        std::string text;
    } cases[] = {
        {[](auto&) {}, false,
         "\\(alice\\) may not open /dev/video0: it belongs to root and the group video, its mode is 0660, and the user "
         "is "
         "not in that group.*sudo usermod -aG video alice', then log in again"},
        {[](auto& access) { access.group_listed = true; }, false, "older than.*Log out and in again"},
        {[](auto& access) { access.in_group = true; }, false, "something else refuses it.*AppArmor"},
        {[](auto& access) { access.in_group = true; }, true, "device rules.*--device /dev/video0"},
        {[](auto& access) { access.is_root = true; }, true, "root may open any node.*--device /dev/video0"},
        {[](auto& access) { access.is_owner = true; }, false, "which would allow it.*something else"},
        {[](auto& access) { access.group = "root"; }, false, "udev/rules.d.*usermod -aG video alice"},
        {[](auto& access) { access.mode = 0600; }, true,
         "mode is 0600\\. .*SUBSYSTEM==\"video4linux\", GROUP=\"video\""},
    };
    for (const auto& c : cases) {
        Node_Access access{"/dev/video0", "root", "video", 0660, "alice"};
        c.change(access);
        const Finding finding = No_Permission(access, c.in_container);
        EXPECT_EQ(finding.id, "no-permission");
        EXPECT_TRUE(Matches(finding.Text(), c.text)) << finding.Text();
    }
}

TEST(Findings, CountTheBytesOfAMode)
{
    const std::pair<const char*, double> bytes_per_pixel[] = {{"YUYV", 2}, {"NV12", 1.5}, {"GREY", 1},
                                                              {"Y16 ", 2}, {"BGR3", 3},   {"pBAA", 1.25}};
    for (const auto& [format, bytes] : bytes_per_pixel) {
        WQZ_Camera_Offer offer{};
        offer.fourcc = wqz::Fourcc(format).Code();
        offer.width_max = 640;
        offer.height_max = 480;
        offer.interval_min = {1, 30};
        EXPECT_DOUBLE_EQ(Needed(offer), 640 * 480 * 30 * bytes) << format;
        offer.flags = WQZ_CAMERA_OFFER_COMPRESSED;
        EXPECT_EQ(Needed(offer), 0) << "not known";
    }
}

TEST(Findings, JudgeThePortByTheWidestModeAndTheCamerasOwnSpeed)
{
    const struct {
        uint32_t megabits;
        bool is_super_speed;
        uint32_t width;
        std::string expected;
    } cases[] = {{480, false, 640, ""},          {480, false, 1920, "mode-too-wide "},
                 {480, true, 640, "slow-port "}, {480, true, 1920, "mode-too-wide slow-port "},
                 {5000, true, 1920, ""},         {0, true, 1920, ""}};
    for (const auto& c : cases) {
        WQZ_Camera_Offer offer{};
        offer.fourcc = wqz::Fourcc("YUYV").Code();
        offer.width_max = c.width;
        offer.height_max = 480;
        offer.interval_min = {1, 30};
        Usb_Camera port{};
        port.megabits = c.megabits;
        port.is_super_speed = c.is_super_speed;
        std::string ids;
        for (const Finding& finding : Check_Port("/dev/video0", port, {offer})) {
            ids += finding.id + " ";
        }
        EXPECT_EQ(ids, c.expected) << c.megabits << " " << c.width;
    }
}

TEST(Findings, JudgeAShortCapture)
{
    const struct {
        uint64_t frames, lost;
        double rate;
        std::string control, expected;
    } cases[] = {{30, 0, 30, "", ""},
                 {30, 0, 26, "", ""},
                 {30, 0, 15, "", "slow-rate: .*but 15\\.0 came\\. Dim light.*or choose a lower rate"},
                 {30, 0, 15, "exposure_auto_priority", "slow-rate: .*controls /dev/video0 exposure_auto_priority=off"},
                 {20, 10, 20, "", "lost-frames: .*10 frames got lost beside 20((?!slow-rate).)*$"},
                 {10, 10, 8, "", "lost-frames: .*slow-rate: "}};
    for (const auto& c : cases) {
        Trial trial;
        trial.node = "/dev/video0";
        trial.mode.interval = {1, 30};
        trial.frames = c.frames;
        trial.lost = c.lost;
        trial.rate = c.rate;
        trial.exposure_control = c.control;
        std::string text;
        for (const Finding& finding : Check_Trial(trial)) {
            text += finding.id + ": " + finding.Text();
        }
        EXPECT_TRUE(c.expected.empty() ? text.empty() : Matches(text, c.expected)) << text;
    }
}

}  // namespace
