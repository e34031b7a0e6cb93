// The camera interface: controls by name and id, as numbers and as words.
#include <gtest/gtest.h>

#include <map>

#include "support/open_camera.h"

namespace {

using namespace virtual_camera;

class Controls : public Open_Camera {
protected:
    static WQZ_Camera_Setting To_Text(const char* name, const char* text)
    {
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = name;
        setting.text = text;
        return setting;
    }
    static WQZ_Camera_Setting To_Number(const char* name, int64_t value)
    {
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = name;
        setting.value = value;
        return setting;
    }

    int32_t Set(WQZ_Camera_Setting setting) { return WQZ_Camera_Set_Controls(camera, &setting, 1); }

    int64_t Value(const char* name, std::string* text = nullptr)
    {
        char buffer[64] = "";
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = name;
        setting.buffer = buffer;
        setting.buffer_size = sizeof buffer;
        EXPECT_EQ(WQZ_Camera_Get_Control(camera, &setting), 0) << Explanation(camera);
        if (text != nullptr) {
            *text = buffer;
        }
        return setting.value;
    }

    std::map<std::string, WQZ_Camera_Control> List()
    {
        std::vector<WQZ_Camera_Control> controls(64, Sized<WQZ_Camera_Control>());
        const int32_t count = WQZ_Camera_Controls(camera, controls.data(), 64);
        std::map<std::string, WQZ_Camera_Control> by_key;
        for (int32_t i = 0; i < count; ++i) {
            by_key[controls[static_cast<size_t>(i)].key] = controls[static_cast<size_t>(i)];
        }
        return by_key;
    }
};

TEST_F(Controls, AreListedWithRangesFlagsAndMenus)
{
    const auto controls = List();
    for (const Control& described : Default_Controls()) {
        const auto found = std::find_if(controls.begin(), controls.end(),
                                        [&](const auto& entry) { return entry.second.id == described.id; });
        ASSERT_NE(found, controls.end()) << described.name;
        EXPECT_EQ(found->second.name, described.name);
        EXPECT_EQ(found->second.type, described.type);
        EXPECT_EQ(found->second.minimum, described.minimum);
        EXPECT_EQ(found->second.maximum, described.maximum);
        EXPECT_EQ(found->second.default_value, described.default_value);
    }
    EXPECT_EQ(controls.size(), Default_Controls().size()) << "headings of classes are no controls";
    ASSERT_EQ(controls.count("exposure_time_absolute"), 1U);
    EXPECT_NE(controls.at("exposure_time_absolute").flags & WQZ_CAMERA_CONTROL_FLAG_INACTIVE, 0U);

    std::vector<WQZ_Camera_Menu_Item> items(8, Sized<WQZ_Camera_Menu_Item>());
    const uint32_t id = controls.at("auto_exposure").id;
    ASSERT_EQ(WQZ_Camera_Menu(camera, id, items.data(), 8), 2) << "gaps are left out";
    EXPECT_STREQ(items[0].name, "Manual Mode");
    EXPECT_EQ(items[0].index, 1U);
    EXPECT_STREQ(items[1].name, "Aperture Priority Mode");
    EXPECT_EQ(items[1].index, 3U);
    EXPECT_EQ(WQZ_Camera_Menu(camera, controls.at("brightness").id, nullptr, 0), -EINVAL);
}

TEST_F(Controls, AreFoundByNameKeyAndId)
{
    const WQZ_Camera_Control brightness = List().at("brightness");
    EXPECT_EQ(Set(To_Number("Brightness", 5)), 0);
    EXPECT_EQ(Value("bRIGHTNESS"), 5);
    auto setting = Sized<WQZ_Camera_Setting>();
    setting.id = brightness.id;
    setting.value = 6;
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera, &setting, 1), 0);
    EXPECT_EQ(Value("brightness"), 6);
    EXPECT_EQ(Set(To_Number("white balance, automatic", 0)), 0) << "punctuation does not count";
    EXPECT_EQ(Set(To_Number("shininess", 1)), -EINVAL);
    EXPECT_NE(Explanation(camera).find("shininess"), std::string::npos);
    EXPECT_EQ(Set(Sized<WQZ_Camera_Setting>()), -EINVAL) << "neither name nor id";
}

TEST_F(Controls, TakeWordsAsUsersWriteThem)
{
    std::string text;
    EXPECT_EQ(Set(To_Text("auto_exposure", "manual mode")), 0) << Explanation(camera);
    EXPECT_EQ(Value("auto_exposure", &text), 1);
    EXPECT_EQ(text, "Manual Mode");
    EXPECT_EQ(Set(To_Text("white_balance_automatic", "off")), 0);
    EXPECT_EQ(Value("white_balance_automatic"), 0);
    EXPECT_EQ(Set(To_Text("brightness", "0x10")), 0);
    EXPECT_EQ(Value("brightness", &text), 16);
    EXPECT_EQ(text, "16");
    EXPECT_EQ(Set(To_Text("hue", "-3")), 0);
    EXPECT_EQ(Value("hue"), -3);
    EXPECT_EQ(Set(To_Text("brightness", "default")), 0);
    EXPECT_EQ(Value("brightness"), List().at("brightness").default_value);
    EXPECT_EQ(Set(To_Text("brightness", "12x")), -EINVAL);
    EXPECT_NE(Explanation(camera).find("a number from"), std::string::npos) << Explanation(camera);
    EXPECT_EQ(Set(To_Text("auto_exposure", "Sunny")), -EINVAL);
    EXPECT_NE(Explanation(camera).find("Aperture Priority Mode"), std::string::npos) << Explanation(camera);
    EXPECT_EQ(Set(To_Number("auto_exposure", 3)), 0);
    auto setting = To_Number("auto_exposure", 1);
    setting.flags = WQZ_CAMERA_SETTING_DEFAULT;
    EXPECT_EQ(Set(setting), 0);
    EXPECT_EQ(Value("auto_exposure"), List().at("auto_exposure").default_value);
}

TEST_F(Controls, ATextIsCutToTheBuffer)
{
    EXPECT_EQ(Set(To_Text("auto_exposure", "manual mode")), 0) << Explanation(camera);
    char buffer[] = "??????";
    auto setting = To_Text("auto_exposure", nullptr);
    setting.buffer = buffer;
    setting.buffer_size = 4;
    EXPECT_EQ(WQZ_Camera_Get_Control(camera, &setting), 0);
    EXPECT_EQ(std::string(buffer, 6), std::string("Man\0??", 6));
}

// The names of an integer menu's items are numbers, which are not their indices.
TEST_F(Controls, ANumberForAnIntegerMenuIsTheItemThatShowsIt)
{
    Alter(
        Node, VIDIOC_QUERY_EXT_CTRL,
        [](void* argument) {
            auto& query = *static_cast<v4l2_query_ext_ctrl*>(argument);
            query.type = query.id == V4L2_CID_EXPOSURE_AUTO ? uint32_t{V4L2_CTRL_TYPE_INTEGER_MENU} : query.type;
        },
        Always);
    Alter(
        Node, VIDIOC_QUERYMENU,
        [](void* argument) {
            auto& item = *static_cast<v4l2_querymenu*>(argument);
            item.value = item.index == 1 ? 3 : 50;
        },
        Always);
    std::string text;
    EXPECT_EQ(Set(To_Text("auto_exposure", "50")), 0) << Explanation(camera);
    EXPECT_EQ(Value("auto_exposure", &text), 3);
    EXPECT_EQ(text, "50");
    EXPECT_EQ(Set(To_Text("auto_exposure", "3")), 0) << Explanation(camera);
    EXPECT_EQ(Value("auto_exposure", &text), 1) << "the item, not the index";
    EXPECT_EQ(text, "3");
}

TEST_F(Controls, AreSetInOrderUpToTheFirstThatFails)
{
    std::vector<WQZ_Camera_Setting> settings{To_Text("auto_exposure", "Manual Mode"),
                                             To_Number("exposure_time_absolute", 77),
                                             To_Text("auto_exposure", "Aperture Priority Mode"),
                                             To_Number("exposure_time_absolute", 88), To_Number("brightness", 9)};
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera, settings.data(), static_cast<uint32_t>(settings.size())), -EACCES);
    EXPECT_NE(Explanation(camera).find("automatic"), std::string::npos) << Explanation(camera);
    EXPECT_EQ(settings[0].result, 0);
    EXPECT_EQ(settings[1].result, 0);
    EXPECT_EQ(settings[1].value, 77);
    EXPECT_EQ(settings[2].result, 0);
    EXPECT_EQ(settings[3].result, -EACCES);
    EXPECT_EQ(settings[4].result, -ECANCELED);
    EXPECT_EQ(Value("exposure_time_absolute"), 77);
    EXPECT_NE(Value("brightness"), 9);
}

TEST_F(Controls, ValuesOutOfRangeBecomeTheNearestAndAreReported)
{
    auto setting = To_Number("brightness", 1'000'000);
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera, &setting, 1), 0);
    EXPECT_EQ(setting.value, List().at("brightness").maximum);
    EXPECT_EQ(setting.id, List().at("brightness").id);
    WQZ_Camera_Setting huge = To_Number("brightness", int64_t{1} << 40);
    EXPECT_EQ(Set(huge), 0);
    EXPECT_EQ(Value("brightness"), List().at("brightness").maximum) << "never cut to 32 bits";
    EXPECT_EQ(Set(To_Number("auto_exposure", 2)), -EINVAL) << "a gap of the menu";
}

TEST_F(Controls, AnEnumerationThatStandsStillEnds)
{
    Alter(
        Node, VIDIOC_QUERY_EXT_CTRL,
        [](void* argument) { static_cast<v4l2_query_ext_ctrl*>(argument)->id = V4L2_CID_BRIGHTNESS; }, Always);
    EXPECT_EQ(WQZ_Camera_Controls(camera, nullptr, 0), 0) << "the first entry is the heading of a class";
}

TEST_F(Controls, ARefusedMenuIsAnErrorAndNotAMenuWithoutItems)
{
    Fail(Node, VIDIOC_QUERYMENU, {EIO});
    EXPECT_EQ(WQZ_Camera_Menu(camera, V4L2_CID_POWER_LINE_FREQUENCY, nullptr, 0), -EIO);
}

TEST_F(Controls, AFailedReadIsAnErrorAndNeverZero)
{
    auto setting = To_Number("brightness", 42);
    Fail(Node, VIDIOC_G_EXT_CTRLS, {EIO});
    EXPECT_EQ(WQZ_Camera_Get_Control(camera, &setting), -EIO);
    EXPECT_EQ(setting.result, -EIO);
    EXPECT_EQ(setting.value, 42);
    Fail(Node, VIDIOC_QUERY_EXT_CTRL, {EIO});
    EXPECT_EQ(WQZ_Camera_Controls(camera, nullptr, 0), -EIO);
    Unplug(Node);
    EXPECT_EQ(WQZ_Camera_Get_Control(camera, &setting), -ENODEV);
}

// While a camera goes away, the kernel says that its connection is shut down. Programs look for -ENODEV only.
TEST_F(Controls, OfAnUnpluggedCameraSayWhatToDo)
{
    for (const int error : {ENODEV, ESHUTDOWN}) {
        Fail(Node, VIDIOC_QUERY_EXT_CTRL, {error});
        EXPECT_EQ(WQZ_Camera_Controls(camera, nullptr, 0), -ENODEV);
        EXPECT_NE(Explanation(camera).find("unplugged. Plug it in again"), std::string::npos) << Explanation(camera);
        Fail(Node, VIDIOC_S_EXT_CTRLS, {error});
        EXPECT_EQ(Set(To_Number("brightness", 3)), -ENODEV);
        EXPECT_NE(Explanation(camera).find("brightness cannot be set: the camera was unplugged"), std::string::npos);
        Fail(Node, VIDIOC_STREAMON, {error});
        EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240)), -ENODEV) << Explanation(camera);
    }
}

TEST_F(Controls, BitmasksHaveNoSign)
{
    constexpr int64_t Mask = 0x80002000;
    Alter(
        Node, VIDIOC_QUERY_EXT_CTRL,
        [](void* argument) {
            auto& query = *static_cast<v4l2_query_ext_ctrl*>(argument);
            if (query.id == V4L2_CID_BRIGHTNESS) {
                query.type = V4L2_CTRL_TYPE_BITMASK;
                query.minimum = 0;
                query.maximum = Mask;
            }
        },
        Always);
    const auto answer_with_mask = [](void* argument) {
        static_cast<v4l2_ext_controls*>(argument)->controls[0].value = static_cast<int32_t>(Mask);
    };
    std::string text;
    Alter(Node, VIDIOC_G_EXT_CTRLS, answer_with_mask);
    EXPECT_EQ(Value("brightness", &text), Mask);
    EXPECT_EQ(text, std::to_string(Mask));
    Alter(Node, VIDIOC_S_EXT_CTRLS, answer_with_mask);
    auto setting = To_Text("brightness", "0x80002000");
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera, &setting, 1), 0) << Explanation(camera);
    EXPECT_EQ(setting.value, Mask);
    EXPECT_EQ(Set(To_Number("brightness", -1)), -ERANGE);
    EXPECT_EQ(Set(To_Number("contrast", Mask)), 0);
    EXPECT_EQ(Value("contrast"), List().at("contrast").maximum) << "a number with a sign must not become negative";
}

TEST_F(Controls, WideAndTextValuesKeepTheirForm)
{
    constexpr int64_t Wide = int64_t{1} << 40;
    uint32_t type = V4L2_CTRL_TYPE_INTEGER64;
    Alter(
        Node, VIDIOC_QUERY_EXT_CTRL,
        [&](void* argument) {
            auto& query = *static_cast<v4l2_query_ext_ctrl*>(argument);
            if (query.id == V4L2_CID_BRIGHTNESS) {
                query.type = type;
                query.minimum = 0;
                query.maximum = 11;
            }
        },
        Always);
    Alter(Node, VIDIOC_G_EXT_CTRLS,
          [](void* argument) { static_cast<v4l2_ext_controls*>(argument)->controls[0].value64 = Wide; });
    EXPECT_EQ(Value("brightness"), Wide);
    auto wide = To_Number("brightness", Wide);
    EXPECT_EQ(WQZ_Camera_Set_Controls(camera, &wide, 1), 0) << Explanation(camera);
    EXPECT_EQ(wide.value >> 32, Wide >> 32) << "the upper half reaches the driver and comes back";

    type = V4L2_CTRL_TYPE_STRING;
    Fail(Node, VIDIOC_S_EXT_CTRLS, {0, 0});
    EXPECT_EQ(Set(To_Text("brightness", "default")), 0) << "any text is a string's: " << Explanation(camera);
    EXPECT_EQ(Set(To_Text("brightness", "twelve bytes")), -ERANGE);
    EXPECT_NE(Explanation(camera).find("brightness takes texts of at most 11 bytes"), std::string::npos)
        << Explanation(camera);
    EXPECT_EQ(Set(To_Number("brightness", 3)), -EINVAL);
    EXPECT_NE(Explanation(camera).find("`text`"), std::string::npos);
}

// The virtual camera takes the pointer to a text for a number, and leaves it as it is when its range is the widest.
TEST_F(Controls, ATextReachesTheDriverAndItsDefaultIsAskedFor)
{
    Camera_Description description = Usb_Camera();
    Control& brightness = description.controls.at(0);
    ASSERT_EQ(brightness.id, V4L2_CID_BRIGHTNESS);
    brightness.minimum = INT32_MIN;
    brightness.maximum = INT32_MAX;
    brightness.is_signed = true;
    EXPECT_EQ(Close(), 0);
    Unplug(Node);
    Add_Camera(description);
    ASSERT_EQ(WQZ_Camera_Open(&camera, Node), 0);
    const auto make_text = [](void* argument) {
        auto& query = *static_cast<v4l2_query_ext_ctrl*>(argument);
        query.type = query.id == V4L2_CID_BRIGHTNESS ? uint32_t{V4L2_CTRL_TYPE_STRING} : query.type;
        query.maximum = query.id == V4L2_CID_BRIGHTNESS ? 11 : query.maximum;
        query.flags |= V4L2_CTRL_FLAG_HAS_PAYLOAD;
    };
    Alter(Node, VIDIOC_QUERY_EXT_CTRL, make_text, Always);
    std::string arrived;
    Alter(
        Node, VIDIOC_S_EXT_CTRLS,
        [&](void* argument) {
            const v4l2_ext_control& control = *static_cast<v4l2_ext_controls*>(argument)->controls;
            arrived.assign(control.string, control.size);
        },
        Always);
    EXPECT_EQ(Set(To_Text("brightness", "eleven text")), 0) << Explanation(camera);
    EXPECT_EQ(arrived, std::string("eleven text\0", 12));
    EXPECT_EQ(Set(To_Text("brightness", "few")), 0) << Explanation(camera);
    EXPECT_EQ(arrived, std::string("few\0\0\0\0\0\0\0\0\0", 12));

    Fail(Node, VIDIOC_G_EXT_CTRLS, {0, 0});
    auto setting = To_Text("brightness", nullptr);
    setting.flags = WQZ_CAMERA_SETTING_DEFAULT;
    Clear_Log();
    EXPECT_EQ(Set(setting), 0) << Explanation(camera);
    const std::vector<Log_Entry> log = Log();
    const auto asked = std::find_if(log.begin(), log.end(),
                                    [](const Log_Entry& entry) { return entry.request == VIDIOC_G_EXT_CTRLS; });
    ASSERT_NE(asked, log.end());
    EXPECT_EQ(asked->As<v4l2_ext_controls>().which, uint32_t{V4L2_CTRL_WHICH_DEF_VAL});
}

TEST_F(Controls, ArraysAndCompoundControlsAreOnlyListed)
{
    uint32_t type = V4L2_CTRL_TYPE_INTEGER;
    uint32_t flags = V4L2_CTRL_FLAG_HAS_PAYLOAD;
    const auto change = [&](void* argument) {
        auto& query = *static_cast<v4l2_query_ext_ctrl*>(argument);
        query.type = query.id == V4L2_CID_BRIGHTNESS ? type : query.type;
        query.flags |= query.id == V4L2_CID_BRIGHTNESS ? flags : 0;
    };
    Alter(Node, VIDIOC_QUERY_EXT_CTRL, change, Always);
    EXPECT_EQ(Set(To_Number("brightness", 1)), -ENOTSUP);
    type = V4L2_CTRL_TYPE_INTEGER_MENU + 1;
    flags = 0;
    EXPECT_EQ(Set(To_Number("brightness", 1)), -ENOTSUP);
    EXPECT_EQ(List().count("brightness"), 1U);
    EXPECT_EQ(Set(To_Number("contrast", 1)), 0) << Explanation(camera);
}

TEST_F(Controls, AListThatDoesNotEndIsCut)
{
    uint32_t id = 0;
    const auto next_id = [&id](void* argument) { static_cast<v4l2_query_ext_ctrl*>(argument)->id = ++id; };
    Alter(Node, VIDIOC_QUERY_EXT_CTRL, next_id, Always);
    const int32_t count = WQZ_Camera_Controls(camera, nullptr, 0);
    EXPECT_GT(id, 1000U);
    EXPECT_GE(count, 0);
    EXPECT_LT(count, 10000);
}

}  // namespace
