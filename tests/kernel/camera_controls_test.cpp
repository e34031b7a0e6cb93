// Modes and controls of the camera interface on the kernel's own drivers, compared with what v4l2-ctl reports.

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>

#include "camera_support.h"

namespace {

constexpr char Usb[] = "1209:0001";

class Camera_Modes_And_Controls : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        Plug_In_Usb_Camera();
        Make_Vivid_Repeatable();
    }
    const std::string Vivid = Discovered_Camera("vivid").Node();
};

std::vector<WQZ_Camera_Offer> Modes_Of(Camera& camera)
{
    const int32_t count = WQZ_Camera_Modes(camera.Handle(), nullptr, 0);
    EXPECT_GT(count, 0) << Explanation(camera.Handle());
    std::vector<WQZ_Camera_Offer> offers(static_cast<size_t>(std::max(count, 1)));
    offers[0].size = sizeof offers[0];
    EXPECT_EQ(WQZ_Camera_Modes(camera.Handle(), offers.data(), static_cast<uint32_t>(count)), count);
    return offers;
}

/// One line for each discrete mode: format, size, frames per second as v4l2-ctl rounds them.
std::string Text_Of(const std::vector<WQZ_Camera_Offer>& offers)
{
    std::string text;
    for (const WQZ_Camera_Offer& offer : offers) {
        EXPECT_EQ(offer.width_min, offer.width_max);
        EXPECT_EQ(offer.height_min, offer.height_max);
        char line[80];
        (void)snprintf(line, sizeof line, "%s %ux%u %.3f\n", offer.format, offer.width_min, offer.height_min,
                       static_cast<double>(offer.interval_min.denominator) / offer.interval_min.numerator);
        text += line;
    }
    return text;
}

std::string Modes_By_V4l2_Ctl(const std::string& node)
{
    std::istringstream listing(Run_Command("v4l2-ctl -d " + node + " --list-formats-ext").output);
    std::string modes, format, size;
    for (std::string line; std::getline(listing, line);) {
        const size_t quote = line.find("]: '");
        const size_t discrete = line.find("Size: Discrete ");
        const size_t rate = line.find('s', line.find("Interval: Discrete") + 18);
        if (quote != std::string::npos) {
            format = line.substr(quote + 4, line.find('\'', quote + 4) - quote - 4);
            format.erase(std::remove(format.begin(), format.end(), ' '), format.end());  // 'Y16 -BE'
        } else if (discrete != std::string::npos) {
            size = line.substr(discrete + 15);
        } else if (line.find("Interval: Discrete") != std::string::npos) {
            const size_t from = line.find('(', rate) + 1;
            modes += format + " " + size + " " + line.substr(from, line.find(" fps") - from) + "\n";
        }
    }
    return modes;
}

/// Prints the first difference instead of thousands of lines.
void Expect_Same_Lines(const std::string& ours, const std::string& theirs)
{
    std::istringstream our_lines(ours), their_lines(theirs);
    for (std::string our_line, their_line; std::getline(their_lines, their_line);) {
        std::getline(our_lines, our_line);
        ASSERT_EQ(our_line, their_line);
    }
    EXPECT_EQ(ours.size(), theirs.size());
}

TEST_F(Camera_Modes_And_Controls, ModesAreThoseThatV4l2CtlLists)
{
    const struct {
        std::string name;
        WQZ_Camera_Fraction odd;  // an interval that is no whole number of frames per second
    } cases[] = {{Usb, {2, 15}}, {Vivid, {2, 25}}};
    for (const auto& c : cases) {
        Camera camera(c.name);
        const auto offers = Modes_Of(camera);
        Expect_Same_Lines(Text_Of(offers), Modes_By_V4l2_Ctl(camera.Node()));
        const auto odd = std::find_if(offers.begin(), offers.end(), [&c](const WQZ_Camera_Offer& offer) {
            return offer.interval_min.numerator == c.odd.numerator &&
                   offer.interval_min.denominator == c.odd.denominator;
        });
        ASSERT_NE(odd, offers.end()) << c.name;
        WQZ_Camera_Request request = Exactly(odd->fourcc, odd->width_min, odd->height_min, 0);
        request.interval = c.odd;
        EXPECT_EQ(camera.Start(request), 0) << Explanation(camera.Handle());
        EXPECT_EQ(camera.S_Mode.interval.numerator * c.odd.denominator,
                  camera.S_Mode.interval.denominator * c.odd.numerator);
    }
}

TEST_F(Camera_Modes_And_Controls, StepwiseSizesAreOneRangeAndCanBeStarted)
{
    ASSERT_EQ(Run_Command("v4l2-ctl -d " + Vivid + " -i 3").status, 0);
    const std::string listing = Run_Command("v4l2-ctl -d " + Vivid + " --list-formats-ext").output;
    uint32_t range[6] = {};
    const char* const stepwise = strstr(listing.c_str(), "Size: Stepwise");
    ASSERT_NE(stepwise, nullptr) << listing;
    ASSERT_EQ(sscanf(stepwise, "Size: Stepwise %ux%u - %ux%u with step %u/%u", &range[0], &range[1], &range[2],
                     &range[3], &range[4], &range[5]),
              6)
        << stepwise;
    Camera camera(Vivid);
    const auto offers = Modes_Of(camera);
    const auto grey = std::find_if(offers.begin(), offers.end(),
                                   [](const WQZ_Camera_Offer& offer) { return offer.fourcc == V4L2_PIX_FMT_GREY; });
    ASSERT_NE(grey, offers.end());
    const uint32_t told[] = {grey->width_min,  grey->height_min, grey->width_max,
                             grey->height_max, grey->width_step, grey->height_step};
    EXPECT_TRUE(std::equal(std::begin(range), std::end(range), std::begin(told))) << stepwise;

    const uint32_t width = range[0] + 7 * range[4], height = range[1] + 5 * range[5];
    EXPECT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_GREY, width, height, 0)), 0) << Explanation(camera.Handle());
    const auto frames = camera.Take(2);
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].bytes.size(), size_t{width} * height);
    EXPECT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_GREY, range[2] + range[4], height, 0)), -ENOTSUP);
    puts(Explanation(camera.Handle()).c_str());
    EXPECT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_GREY, width + 1, height, 0)), range[4] == 1 ? 0 : -ENOTSUP);
    EXPECT_EQ(WQZ_Camera_Stop(camera.Handle()), 0);
    EXPECT_EQ(Run_Command("v4l2-ctl -d " + Vivid + " -i 0").status, 0);
}

std::map<std::string, WQZ_Camera_Control> Controls_Of(Camera& camera)
{
    const int32_t count = WQZ_Camera_Controls(camera.Handle(), nullptr, 0);
    EXPECT_GT(count, 0) << Explanation(camera.Handle());
    std::vector<WQZ_Camera_Control> controls(static_cast<size_t>(std::max(count, 1)));
    controls[0].size = sizeof controls[0];
    EXPECT_EQ(WQZ_Camera_Controls(camera.Handle(), controls.data(), static_cast<uint32_t>(count)), count);
    std::map<std::string, WQZ_Camera_Control> by_key;
    for (const WQZ_Camera_Control& control : controls) {
        EXPECT_TRUE(by_key.emplace(control.key, control).second) << control.key << " twice";
    }
    return by_key;
}

/// @return the value as a text, or the error
std::string Get(Camera& camera, const std::string& name)
{
    char text[256] = "";
    auto setting = Sized<WQZ_Camera_Setting>();
    setting.name = name.c_str();
    setting.buffer = text;
    setting.buffer_size = sizeof text;
    const int result = WQZ_Camera_Get_Control(camera.Handle(), &setting);
    return result == 0 ? text : "error " + std::to_string(result);
}

/// @return what v4l2-ctl prints after "name: "
std::string By_V4l2_Ctl(const std::string& node, const std::string& name)
{
    const std::string output = Run_Command("v4l2-ctl -d " + node + " -C " + name).output;
    return output.compare(0, name.size() + 2, name + ": ") == 0
               ? output.substr(name.size() + 2, output.size() - name.size() - 3)
               : output;
}

TEST_F(Camera_Modes_And_Controls, ControlsAreThoseThatV4l2CtlLists)
{
    for (const std::string& name : {std::string(Usb), Vivid}) {
        Camera camera(name);
        auto controls = Controls_Of(camera);
        std::istringstream listing(Run_Command("v4l2-ctl -d " + camera.Node() + " --list-ctrls").output);
        size_t compared = 0;
        for (std::string line; std::getline(listing, line);) {
            char key[64] = "";
            unsigned id = 0;
            if (sscanf(line.c_str(), " %63s 0x%x (", key, &id) != 2) {
                continue;
            }
            ASSERT_EQ(controls.count(key), 1U) << line;
            const WQZ_Camera_Control& control = controls[key];
            EXPECT_EQ(control.id, id) << line;
            EXPECT_EQ((control.flags & WQZ_CAMERA_CONTROL_FLAG_INACTIVE) != 0,
                      line.find("inactive") != std::string::npos)
                << line;
            long long minimum = 0, maximum = 0;
            const char* const range = strstr(line.c_str(), "min=");
            if (range != nullptr && sscanf(range, "min=%lld max=%lld", &minimum, &maximum) == 2) {
                EXPECT_EQ(control.minimum, minimum) << line;
                EXPECT_EQ(control.maximum, maximum) << line;
            }
            ++compared;
        }
        EXPECT_EQ(compared, controls.size());
        printf("%s: %zu controls as v4l2-ctl lists them\n", camera.Node().c_str(), compared);
    }
}

TEST_F(Camera_Modes_And_Controls, ControlsOfEachTypeAreSetAndReadByName)
{
    const struct {
        const char *name, *text, *read, *by_v4l2_ctl;
    } cases[] = {
        {"integer_64_bits", "123456789012", "123456789012", "123456789012"},
        {"Integer 64 Bits", "-0x10", "-16", "-16"},
        {"integer_32_bits", "-2147483648", "-2147483648", "-2147483648"},
        {"bitmask", "0x80002000", "2147491840", "-2147475456"},  // v4l2-ctl takes the bits for a signed number
        {"boolean", "off", "0", "0"},
        {"menu", "Menu Item 4", "Menu Item 4", "4"},
        {"menu", "1", "Menu Item 1", "1"},
        {"integer_menu", "13", "13", "6"},
        {"string", "abc", "abc", "'abc'"},
        {"brightness", "0x20", "32", "32"},
        {"brightness", "default", "128", "128"},
        {"hue", "1000", "128", "128"},  // set to the nearest, as the kernel does
    };
    Camera camera(Vivid);
    for (const auto& c : cases) {
        EXPECT_EQ(camera.Set(c.name, c.text), 0) << c.name << ": " << Explanation(camera.Handle());
        EXPECT_EQ(Get(camera, c.name), c.read) << c.name;
        if (islower(c.name[0]) != 0) {
            const std::string theirs = By_V4l2_Ctl(Vivid, c.name);
            EXPECT_EQ(theirs.substr(0, strlen(c.by_v4l2_ctl)), c.by_v4l2_ctl) << c.name;
        }
    }
    for (const auto& [name, text] : {std::pair("string", "far too long"), std::pair("menu", "Menu Item 2"),
                                     std::pair("menu", "2"), std::pair("boolean", "perhaps"),
                                     std::pair("no_such_control", "1"), std::pair("read_only_integer_32_bits", "1")}) {
        const std::string before = Get(camera, name);
        EXPECT_LT(camera.Set(name, text), 0) << name << "=" << text;
        EXPECT_NE(Explanation(camera.Handle()).find(name), std::string::npos) << Explanation(camera.Handle());
        EXPECT_EQ(Get(camera, name), before) << name;
        puts(Explanation(camera.Handle()).c_str());
    }
    (void)camera.Set("hue", "default");
}

TEST_F(Camera_Modes_And_Controls, MenusHaveTheItemsOfTheDriver)
{
    Camera camera(Vivid);
    auto controls = Controls_Of(camera);
    for (const char* key : {"menu", "integer_menu", "test_pattern"}) {
        std::string ours;
        std::vector<WQZ_Camera_Menu_Item> items(64);
        items[0].size = sizeof items[0];
        const int32_t count = WQZ_Camera_Menu(camera.Handle(), controls[key].id, items.data(), 64);
        ASSERT_GT(count, 2) << key;
        ASSERT_LE(count, 64) << key;
        for (int32_t i = 0; i < count; ++i) {
            const WQZ_Camera_Menu_Item& item = items[static_cast<size_t>(i)];
            ours += std::to_string(item.index) + ": " + item.name + "\n";
        }
        // Between the control's line and the next control are lines such as "\t\t\t\t3: Menu Item 3".
        std::istringstream listing(Run_Command("v4l2-ctl -d " + Vivid + " --list-ctrls-menus").output);
        std::string theirs;
        bool inside = false;
        for (std::string line; std::getline(listing, line);) {
            const size_t begin = line.find_first_not_of(" \t");
            char name[64] = "";
            if (sscanf(line.c_str(), " %63s 0x%*x (", name) == 1 && line.find(" 0x") != std::string::npos) {
                inside = strcmp(name, key) == 0;
            } else if (inside && begin != std::string::npos && line.find(": ") != std::string::npos) {
                theirs += line.substr(begin, line.find(" (0x") - begin) + "\n";
            }
        }
        EXPECT_EQ(ours, theirs) << key;
    }
}

TEST_F(Camera_Modes_And_Controls, SettingsGoInOrderUpToTheFirstThatFails)
{
    Camera camera(Usb);
    ASSERT_EQ(camera.Set("white_balance_automatic", "on"), 0) << Explanation(camera.Handle());
    EXPECT_NE(Controls_Of(camera)["white_balance_temperature"].flags & WQZ_CAMERA_CONTROL_FLAG_INACTIVE, 0U);

    WQZ_Camera_Setting settings[3]{};
    const char* const names[] = {"brightness", "white_balance_temperature", "white_balance_automatic"};
    const int64_t values[] = {12, 3000, 0};
    for (int i = 0; i < 3; ++i) {
        settings[i].name = names[i];
        settings[i].value = values[i];
    }
    settings[0].size = sizeof settings[0];
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera.Handle(), settings, 3), -EACCES);
    EXPECT_EQ(settings[0].result, 0);
    EXPECT_EQ(settings[1].result, -EACCES);
    EXPECT_EQ(settings[2].result, -ECANCELED);
    const std::string said = Explanation(camera.Handle());
    EXPECT_NE(said.find("white_balance_temperature"), std::string::npos) << said;
    EXPECT_EQ(Get(camera, "brightness"), "12");
    EXPECT_EQ(Get(camera, "white_balance_automatic"), "1");

    std::swap(settings[1], settings[2]);
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera.Handle(), settings, 3), 0) << Explanation(camera.Handle());
    EXPECT_EQ(By_V4l2_Ctl(camera.Node(), "white_balance_temperature"), "3000");
    settings[2].flags = WQZ_CAMERA_SETTING_DEFAULT;
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera.Handle(), settings, 3), 0) << Explanation(camera.Handle());
    EXPECT_EQ(settings[2].value, 4600);
    EXPECT_EQ(By_V4l2_Ctl(camera.Node(), "white_balance_temperature"), "4600");
    ASSERT_EQ(camera.Set("white_balance_automatic", "default"), 0);
    ASSERT_EQ(camera.Set("brightness", "default"), 0);
    EXPECT_EQ(Get(camera, "sharpness"), "error -22");
}

}  // namespace
