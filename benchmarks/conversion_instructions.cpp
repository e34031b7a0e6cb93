// Converts pictures a given number of times, and does little else: an emulator counts the instructions
// (scripts/count-instructions).

#include <libyuv.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Stream/YUV/yuv_decode.h"
#include "Stream/YUV/yuyv_bgr.h"

namespace {

constexpr uint32_t Width = 640;
constexpr uint32_t Groups = Width / 2;
constexpr uint32_t Short_Groups = 5;  // fewer than the vector kernel takes at a time, so the tables do them all

struct Rows {
    std::vector<uint8_t> yuyv = std::vector<uint8_t>(Width * 2, 0x5A);
    std::vector<uint8_t> bgr = std::vector<uint8_t>(Width * 3);
    std::vector<uint8_t> between = std::vector<uint8_t>(Width * 4);
};

YUV_Decode tables;

void By_Kernel(Rows& rows)
{
    yuyv_bgr::Convert_Whole_Vectors(rows.yuyv.data(), Groups, rows.bgr.data());
}

void By_Tables(Rows& rows)
{
    for (uint32_t done = 0; done < Groups; done += Short_Groups) {
        tables.YUYV_Decode(rows.yuyv.data() + done * 4, Short_Groups * 4, rows.bgr.data() + done * 6, 0);
    }
}

void By_Libyuv_Over_Argb(Rows& rows)
{
    constexpr int width = Width;
    libyuv::YUY2ToARGB(rows.yuyv.data(), width * 2, rows.between.data(), width * 4, width, 1);
    libyuv::ARGBToRGB24(rows.between.data(), width * 4, rows.bgr.data(), width * 3, width, 1);
}

void By_Libyuv_Over_Planes(Rows& rows)
{
    constexpr int width = Width;
    uint8_t* const y = rows.between.data();
    uint8_t* const u = y + width;
    uint8_t* const v = u + width / 2;
    libyuv::YUY2ToI422(rows.yuyv.data(), width * 2, y, width, u, width / 2, v, width / 2, width, 1);
    libyuv::I422ToRGB24(y, width, u, width / 2, v, width / 2, rows.bgr.data(), width * 3, width, 1);
}

void Repack(Rows& rows)
{
    tables.RAW10_Decode(rows.yuyv.data(), Width * 2);
}

struct Subject {
    const char* name;
    void (*convert)(Rows& rows);
};

constexpr Subject Subjects[] = {{"tables", By_Tables},
                                {"kernel", By_Kernel},
                                {"libyuv-argb", By_Libyuv_Over_Argb},
                                {"libyuv-planes", By_Libyuv_Over_Planes},
                                {"raw10", Repack}};

}  // namespace

int main(int count, char** arguments)
{
    if (count == 3) {
        for (const Subject& subject : Subjects) {
            if (std::strcmp(subject.name, arguments[1]) == 0) {
                Rows rows;
                for (int left = std::atoi(arguments[2]); left > 0; --left) {
                    subject.convert(rows);
                }
                return 0;
            }
        }
    }
    std::fprintf(stderr, "usage: conversion_instructions SUBJECT REPETITIONS\nA repetition converts %u pixels.\n",
                 Width);
    return 2;
}
