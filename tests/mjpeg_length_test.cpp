// The length of Motion-JPEG frames: the search for the end of a padded image, compared with a plain backward scan.
// Blocks begin and end with the data, so that the address sanitizer reports any read outside.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Stream/frame_buffer.h"
#include "USBCam_API/USBCam_API.h"

namespace {

int32_t Plain_Scan(const uint8_t* data, uint32_t length)
{
    if (length < 2 || data[0] != 0xFF || data[1] != 0xD8) {
        return -1;
    }
    uint32_t end = length;
    while (data[end - 1] == 0) {
        --end;
    }
    return data[end - 2] == 0xFF && data[end - 1] == 0xD9 ? static_cast<int32_t>(end) : -1;
}

class Padded_Image {
public:
    // An image of `image` bytes in a block of `length`, with runs of up to 99 zeros inside.
    Padded_Image(uint32_t image, uint32_t length, std::mt19937& random) : bytes(new uint8_t[length]()), size(length)
    {
        for (uint32_t i = 0; i < image; ++i) {
            bytes[i] = static_cast<uint8_t>(1 + random() % 255);
        }
        for (int holes = static_cast<int>(random() % 4); holes > 0 && image > 4; --holes) {
            const uint32_t run = std::min<uint32_t>(1 + static_cast<uint32_t>(random() % 99), image - 4);
            std::memset(&bytes[2 + random() % (image - 3 - run)], 0, run);
        }
        for (uint32_t i = 0, zeros = 0; i < image; ++i) {
            zeros = bytes[i] == 0 ? zeros + 1 : 0;
            if (zeros == 100) {
                bytes[i] = 1;  // two runs have met
                zeros = 0;
            }
        }
        bytes[0] = 0xFF;
        bytes[1] = 0xD8;
        if (image >= 4) {
            bytes[image - 2] = 0xFF;
            bytes[image - 1] = 0xD9;
        }
    }

    void Expect_Search_Agrees() const
    {
        EXPECT_EQ(Frame_Buffer::MJPEG_Length(bytes.get(), size), Plain_Scan(bytes.get(), size)) << "length " << size;
    }

    std::unique_ptr<uint8_t[]> bytes;
    uint32_t size;
};

class Mjpeg_Search : public testing::Test {
protected:
    // Every search prints a line; capturing them keeps the test's output short.
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override { (void)testing::internal::GetCapturedStderr(); }
    std::mt19937 random{2026};
};

TEST_F(Mjpeg_Search, FindsTheEndInSmallBuffersOfEveryLength)
{
    for (uint32_t length = 2; length <= 460; ++length) {
        for (uint32_t image = 2; image <= length; image += (length < 230 ? 1 : 3)) {
            Padded_Image(image, length, random).Expect_Search_Agrees();
        }
    }
}

TEST_F(Mjpeg_Search, FindsTheEndAroundTheProbePositions)
{
    for (uint32_t base : {400U, 800U, 1600U, 3200U, 4096U, 6400U, 12800U, 65536U}) {
        for (uint32_t length = base - 5; length <= base + 5; ++length) {
            for (uint32_t probe :
                 {4U, 102U, 201U, length / 4, length / 2, length / 2 + 100, length - 100, length - 2}) {
                for (uint32_t image = probe - 2; image <= probe + 2; ++image) {
                    Padded_Image(image, length, random).Expect_Search_Agrees();
                }
            }
        }
    }
}

TEST_F(Mjpeg_Search, FindsTheEndInRandomBuffersUpToEightMegabytes)
{
    for (int i = 0; i < 3000; ++i) {
        const uint32_t length = 2 + static_cast<uint32_t>(random() % (1U << (1 + random() % 15)));
        Padded_Image(2 + static_cast<uint32_t>(random() % (length - 1)), length, random).Expect_Search_Agrees();
    }
    const uint32_t large = 8U << 20;
    for (uint32_t image : {2U, 4U, 50000U, 500000U, large / 2, large / 2 + 3, 3900000U, large - 1, large}) {
        Padded_Image(image, large, random).Expect_Search_Agrees();
    }
}

TEST_F(Mjpeg_Search, ReadsUnalignedBuffersAndRefusesDamagedEnds)
{
    for (uint32_t shift = 1; shift < 4; ++shift) {
        Padded_Image image(5001, 20000, random);
        std::unique_ptr<uint8_t[]> moved(new uint8_t[image.size + shift]);
        std::memcpy(&moved[shift], image.bytes.get(), image.size);
        EXPECT_EQ(Frame_Buffer::MJPEG_Length(&moved[shift], image.size), 5001);
        moved[shift + 5000] = 0xD8;
        EXPECT_EQ(Frame_Buffer::MJPEG_Length(&moved[shift], image.size), -1);
    }
}

struct Zero_Run {
    uint32_t begin, bytes;
    int32_t end;  // that the search finds in an image of 3900 bytes
};

// In a buffer of 4096 bytes the first probes look at the 100 bytes before 2048, 3072 and 3584.
TEST(Mjpeg_Length, ARunOfZerosMisleadsTheSearchOnlyWhenItFillsAProbe)
{
    constexpr uint32_t length = 4096;
    constexpr int32_t image = 3900;
    for (const Zero_Run& run : {Zero_Run{1948, 99, image}, Zero_Run{1948, 100, 1948}, Zero_Run{1949, 100, image},
                                Zero_Run{1000, 900, image}, Zero_Run{2972, 100, 2972}, Zero_Run{2971, 100, image},
                                Zero_Run{3484, 100, 3484}, Zero_Run{3300, 284, 3300}}) {
        std::vector<uint8_t> bytes(length, 0);
        std::fill_n(bytes.begin(), image, uint8_t{1});
        std::fill_n(bytes.begin() + run.begin, run.bytes, uint8_t{0});
        bytes[0] = bytes[image - 2] = 0xFF;
        bytes[1] = 0xD8;
        bytes[image - 1] = 0xD9;
        testing::internal::CaptureStderr();
        EXPECT_EQ(Frame_Buffer::MJPEG_Length(bytes.data(), length), run.end == image ? image : -1);
        const std::string printed = testing::internal::GetCapturedStderr();
        EXPECT_EQ(printed.rfind("End_data_index [" + std::to_string(run.end) + "]", 0), 0U) << printed;
    }
}

TEST(Mjpeg_Length, ARemainderOfTwoProbesIsScannedByteByByte)
{
    std::vector<uint8_t> bytes(400, 1);
    std::fill_n(bytes.begin() + 200, 100, uint8_t{0});  // which a probe before 300 would take for the padding
    bytes[0] = bytes[398] = 0xFF;
    bytes[1] = 0xD8;
    bytes[399] = 0xD9;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(bytes.data(), 400U), 400);
    (void)testing::internal::GetCapturedStderr();
}

TEST(Mjpeg_Length, AProbeWhoseWordsWouldCancelIn32BitsHoldsData)
{
    std::vector<uint8_t> bytes(300, 0);
    bytes[0] = bytes[298] = 0xFF;
    bytes[1] = 0xD8;
    bytes[103] = bytes[107] = 0x80;  // two words of 2^31 in the only probe, before 150
    bytes[299] = 0xD9;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(bytes.data(), 300U), 300);
    (void)testing::internal::GetCapturedStderr();
}

TEST(Mjpeg_Length, BadInputIsRefusedBeforeAnythingIsRead)
{
    std::unique_ptr<uint8_t[]> one(new uint8_t[1]{0xFF});
    v4l2_buffer record{};
    testing::internal::CaptureStderr();
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(one.get(), 1U), -1);
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(one.get(), 0U), -1);
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(nullptr, 100U), -1);
    record.bytesused = 1;
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(one.get(), &record), -1);
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(nullptr, &record), -1);
    uint8_t other[4] = {0xFF, 0xD9, 0xFF, 0xD9};
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(other, 4U), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Mjpeg_Length, ByteCountIsReturnedOnlyBetweenStartAndEndMarkers)
{
    uint8_t image[8] = {0xFF, 0xD8, 1, 2, 0xFF, 0xD9, 0, 0};
    v4l2_buffer record{};
    record.bytesused = 6;
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(image, &record), 6);
    record.bytesused = 8;
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(image, &record), -1);
}

TEST(Mjpeg_Length, ASearchPrintsTheEndItFound)
{
    uint8_t image[300] = {0xFF, 0xD8, 1, 0xFF, 0xD9};
    testing::internal::CaptureStderr();
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(image, 300U), 5);
    image[4] = 0xD0;
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(image, 300U), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "End_data_index [5][0x00000005]->[FF][D9]!\nEnd_data_index [5][0x00000005]->[FF][D0]!\n");
}

}  // namespace
