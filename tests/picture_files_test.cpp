// Pictures in memory and on disk: in-place conversion, BMP files, raw dumps.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Stream/video_stream.h"
#include "Stream/YUV/yuv_stream.h"

namespace {

std::string* redirected_to = nullptr;  // where files for the fixed directory go instead

using Bytes = std::vector<uint8_t>;

Bytes Random_Bytes(std::size_t length)
{
    std::mt19937 random(7);
    Bytes bytes(length);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random());
    }
    return bytes;
}

uint32_t Word(const Bytes& file, std::size_t offset)
{
    uint32_t word = 0;
    std::memcpy(&word, &file[offset], sizeof word);
    return word;
}

void Expect_Header(const Bytes& file, uint32_t width, uint32_t height)
{
    ASSERT_GE(file.size(), 54U);
    EXPECT_EQ(file[0], 'B');
    EXPECT_EQ(file[1], 'M');
    EXPECT_EQ(Word(file, 2), width * height * 3 + 54);
    EXPECT_EQ(Word(file, 6), 0U);
    EXPECT_EQ(Word(file, 10), 54U);
    EXPECT_EQ(Word(file, 14), 40U);
    EXPECT_EQ(Word(file, 18), width);
    EXPECT_EQ(Word(file, 22), height);
    EXPECT_EQ(Word(file, 26), 1U | 24U << 16);
    EXPECT_EQ(Word(file, 30), 0U);
    EXPECT_EQ(Word(file, 34), width * height * 3);
    for (std::size_t offset : {38U, 42U, 46U, 50U}) {
        EXPECT_EQ(Word(file, offset), 0U);
    }
}

// A frame whose block ends with its bytes, so that the address sanitizer reports any read beyond.
class Frame {
public:
    Frame(const Bytes& bytes, uint32_t width, uint32_t height)
    {
        Frame_Buffer_Data& data = buffer.sBuf;
        auto* block = new uint8_t[bytes.size()];
        std::copy(bytes.begin(), bytes.end(), block);
        data.pMem = block;
        data.buffer.bytesused = static_cast<uint32_t>(bytes.size());
        data.PixFormat = {1, width, height, 0};
        data.Frame_Time = {1700000000, 5};
    }
    ~Frame() { delete[] static_cast<uint8_t*>(buffer.sBuf.pMem); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    Bytes Content() const
    {
        const auto* bytes = static_cast<const uint8_t*>(buffer.sBuf.pMem);
        return {bytes, bytes + buffer.sBuf.buffer.bytesused};
    }

    Frame_Buffer buffer;
};

class Directory {
public:
    Directory()
    {
        char name[] = "/tmp/pictures-XXXXXX";
        path = mkdtemp(name);
    }
    ~Directory() { std::filesystem::remove_all(path); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    char* Name() { return path.data(); }
    std::vector<std::string> Files() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
    Bytes Read(const std::string& name) const
    {
        std::ifstream file(path + "/" + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::string path;
};

// The number that the next file to be opened gets.
int Lowest_Descriptor()
{
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

const std::vector<std::string> One_Bmp = {"1700000000_5.bmp"};

TEST(In_Place, AYuyvFrameBecomesABitmap)
{
    // Small frames get recently freed memory, filled with 0xEE: a byte that should be zero and is not written shows.
    for (uint32_t length : {640U * 480U * 2U, 640U * 480U * 2U - 5U, 16U, 17U, 18U, 19U, 20U}) {
        auto* used = new uint8_t[length * 3 / 2 + 54];
        std::fill_n(static_cast<volatile uint8_t*>(used), length * 3 / 2 + 54, uint8_t{0xEE});
        delete[] used;
        Bytes yuyv = Random_Bytes(length);
        Frame frame(yuyv, 640, 480);
        EXPECT_EQ(YUV_Stream::Frame_buffer_Deal_With(&frame.buffer.sBuf), nullptr);
        const auto size = static_cast<uint32_t>(yuyv.size() * 3 / 2 + 54);
        EXPECT_EQ(frame.buffer.sBuf.buffer.bytesused, size);
        EXPECT_EQ(frame.buffer.sBuf.buff_Length, size);

        Bytes expected(size, 0);
        YUV_Stream::YUV_Decode_Table.YUYV_Decode(yuyv.data(), static_cast<uint32_t>(yuyv.size()), expected.data() + 54,
                                                 size);
        Bytes bitmap = frame.Content();
        Expect_Header(bitmap, 640, 480);
        EXPECT_TRUE(std::equal(expected.begin() + 54, expected.end(), bitmap.begin() + 54)) << length;
    }
}

TEST(In_Place, EmptyAndOversizedFramesStayUnchanged)
{
    Frame_Buffer_Data empty{};
    testing::internal::CaptureStderr();
    EXPECT_EQ(YUV_Stream::Frame_buffer_Deal_With(&empty), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Raw Not Vail!\n");

    Frame frame({1, 2, 3, 4}, 2, 1);
    void* block = frame.buffer.sBuf.pMem;
    frame.buffer.sBuf.buffer.bytesused = 0xFFFFFFFFU / 3 + 1;
    EXPECT_EQ(YUV_Stream::Frame_buffer_Deal_With(&frame.buffer.sBuf), nullptr);
    EXPECT_EQ(frame.buffer.sBuf.pMem, block);
    EXPECT_EQ(frame.buffer.sBuf.buffer.bytesused, 0xFFFFFFFFU / 3 + 1);
}

TEST(Raw_Picture, IsSplitByItsBggrPattern)
{
    Directory directory;
    // Rows of 16-bit samples: blue green / green red.
    Frame frame({1, 0, 2, 0, 3, 0, 4, 0}, 2, 2);
    EXPECT_EQ(YUV_Stream::Frame_buffer_Deal_With(directory.Name(), &frame.buffer), 0);
    ASSERT_EQ(directory.Files(), One_Bmp);
    Bytes file = directory.Read(One_Bmp[0]);
    Expect_Header(file, 2, 2);
    EXPECT_EQ(Bytes(file.begin() + 54, file.end()), (Bytes{1, 0, 0, 0, 2, 0, 0, 3, 0, 0, 0, 4}));
}

struct Partial_Frame {
    std::size_t bytes;
    uint32_t height;
    std::size_t samples;  // of the picture that are shown
};

// Rows of 8 samples, 16 bytes each.
TEST(Raw_Picture, MissingSamplesAreBlackAndAPartialRowShowsOnlyInAPair)
{
    for (const Partial_Frame& one :
         {Partial_Frame{0, 3, 0}, Partial_Frame{15, 1, 0}, Partial_Frame{16, 1, 8}, Partial_Frame{30, 1, 8},
          Partial_Frame{16, 4, 8}, Partial_Frame{22, 4, 11}, Partial_Frame{23, 4, 11}, Partial_Frame{32, 4, 16},
          Partial_Frame{46, 4, 16}, Partial_Frame{54, 5, 27}, Partial_Frame{60, 3, 24}, Partial_Frame{70, 5, 32}}) {
        Directory directory;
        Frame frame(Bytes(one.bytes, 0x11), 8, one.height);
        YUV_Stream::Save_Frame_buffer(directory.Name(), &frame.buffer);
        const Bytes file = directory.Read(One_Bmp[0]);
        ASSERT_EQ(file.size(), 8 * one.height * 3 + 54);
        const auto black = file.begin() + 54 + static_cast<std::ptrdiff_t>(one.samples * 3);
        EXPECT_TRUE(std::all_of(black, file.end(), [](uint8_t byte) { return byte == 0; })) << one.bytes;
        EXPECT_EQ(std::count(file.begin() + 54, black, 0x11), static_cast<std::ptrdiff_t>(one.samples)) << one.bytes;
    }
}

TEST(Raw_Picture, WithoutHeightOnlyTheHeaderIsWritten)
{
    Directory directory;
    Frame frame(Bytes(64, 1), 8, 0);
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(directory.Name(), &frame.buffer), 0);
    const Bytes file = directory.Read(One_Bmp[0]);
    EXPECT_EQ(file.size(), 54U);
    Expect_Header(file, 8, 0);
}

TEST(Raw_Picture, NothingIsWrittenWithoutWidthBytesOrDirectoryOrBeyond32Bits)
{
    Directory directory;
    Frame frame(Bytes(64, 1), 0, 4);
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(directory.Name(), &frame.buffer), 0);
    frame.buffer.sBuf.PixFormat = {1, 0x10000, 0x10000, 0};
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(directory.Name(), &frame.buffer), 0);
    EXPECT_TRUE(directory.Files().empty());

    Frame_Buffer empty;
    char nowhere[] = "/nonexistent";
    Frame picture(Bytes(8, 1), 2, 2);
    testing::internal::CaptureStderr();
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(nowhere, &empty), 0);
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(nowhere, &picture.buffer), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Raw Not Vail!\n") << "a failed open stays silent";
}

TEST(Raw_Samples, TenAndTwelveBitSamplesAreRepackedAlike)
{
    Bytes samples = Random_Bytes(1001);
    Frame ten(samples, 0, 0);
    Frame twelve(samples, 0, 0);
    EXPECT_EQ(YUV_Stream::Frame_buffer_Deal_With_Raw10(&ten.buffer), nullptr);
    EXPECT_EQ(YUV_Stream::Frame_buffer_Deal_With_Raw12(&twelve.buffer), nullptr);
    EXPECT_EQ(ten.Content(), twelve.Content());
    EXPECT_NE(ten.Content(), samples);
    Frame_Buffer empty;
    testing::internal::CaptureStderr();
    EXPECT_EQ(YUV_Stream::Frame_buffer_Deal_With_Raw12(&empty), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Raw Not Vail!\n");
}

TEST(Raw_Dump, WritesTheBytesToAFileNamedByTheFramesTime)
{
    Directory directory;
    Bytes bytes = Random_Bytes(5000);
    Frame frame(bytes, 1, 1);
    EXPECT_EQ(Video_Stream::Frame_buffer_Deal_With(directory.Name(), &frame.buffer), 0);
    EXPECT_EQ(directory.Files(), std::vector<std::string>{"1700000000_5.raw"});
    EXPECT_EQ(directory.Read("1700000000_5.raw"), bytes);
}

TEST(Raw_Dump, ReplacesAnEarlierFileAndClosesIt)
{
    Directory directory;
    const int next_descriptor = Lowest_Descriptor();
    for (const std::size_t length : {5000U, 20U}) {
        const Bytes bytes = Random_Bytes(length);
        Frame frame(bytes, 1, 1);
        EXPECT_EQ(Video_Stream::Save_Frame_buffer(directory.Name(), &frame.buffer), 0);
        EXPECT_EQ(directory.Read("1700000000_5.raw"), bytes);
    }
    EXPECT_EQ(Lowest_Descriptor(), next_descriptor) << "a file stayed open";
}

TEST(Raw_Dump, ReportsAFileThatDoesNotOpenAndAnEmptyFrame)
{
    Frame frame({1}, 1, 1);
    Frame_Buffer empty;
    empty.sBuf.buff_Length = 4096;
    char nowhere[] = "/nonexistent";
    testing::internal::CaptureStderr();
    EXPECT_EQ(Video_Stream::Save_Frame_buffer(nowhere, &frame.buffer), 0);
    EXPECT_EQ(Video_Stream::Save_Frame_buffer(nowhere, &empty), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "/nonexistent/1700000000_5.raw: No such file or directory\nRaw Not Vail!\n");
}

// fopen below redirects the fixed directory to one of the test.
class Fixed_Directory : public testing::Test {
protected:
    Fixed_Directory() { redirected_to = &directory.path; }
    ~Fixed_Directory() override { redirected_to = nullptr; }
    Directory directory;
};

TEST_F(Fixed_Directory, ReceivesYuyvPicturesAndDumpsSavedWithoutADirectory)
{
    Bytes yuyv = Random_Bytes(64 * 48 * 2);
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(yuyv.data(), 64, 48), 0);
    Frame frame(yuyv, 64, 48);
    EXPECT_EQ(Video_Stream::Save_Frame_buffer(nullptr, &frame.buffer), 0);
    const Bytes picture = directory.Read("Test.bmp");
    Expect_Header(picture, 64, 48);
    EXPECT_EQ(picture.size(), 64U * 48U * 3U + 54U);
    EXPECT_EQ(directory.Read("1700000000_5.raw"), yuyv);
}

#if __SIZEOF_POINTER__ == 4
// The header could name these bytes, but no object is as large. Sizes computed in 32 bits would come out small.
TEST_F(Fixed_Directory, APictureLargerThanMemoryIsNotWritten)
{
    Frame frame(Bytes(64, 1), 0x40000000, 1);
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(directory.Name(), &frame.buffer), 0);
    frame.buffer.sBuf.PixFormat = {1, 0x20000000, 2, 0};
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(directory.Name(), &frame.buffer), 0);
    uint8_t none[4] = {};
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(none, 0x20000000, 2), 0);
    EXPECT_TRUE(directory.Files().empty());
}
#endif

TEST_F(Fixed_Directory, AYuyvPictureWithoutWidthOrHeightIsItsHeader)
{
    uint8_t none[4] = {};
    EXPECT_EQ(YUV_Stream::Save_Frame_buffer(none, 0x10000, 0x10000), 0);
    EXPECT_TRUE(directory.Files().empty()) << "more bytes than the header can name";
    for (const auto& [width, height] : {std::pair{0U, 7U}, {640U, 0U}, {0U, 0U}}) {
        EXPECT_EQ(YUV_Stream::Save_Frame_buffer(none, width, height), 0);
        const Bytes file = directory.Read("Test.bmp");
        EXPECT_EQ(file.size(), 54U);
        Expect_Header(file, width, height);
        std::filesystem::remove(directory.path + "/Test.bmp");
    }
}

}  // namespace

// Overrides the C library's function.
extern "C" FILE* fopen(const char* path, const char* mode)
{
    static const auto real = reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
    const std::string fixed = "/mnt/hgfs/Work_Linux_SDK/DEBUG_SAVE//";
    if (redirected_to != nullptr && std::string(path).rfind(fixed, 0) == 0) {
        return real((*redirected_to + "/" + (path + fixed.size())).c_str(), mode);
    }
    return real(path, mode);
}
