#ifndef WQZ_TRACE_H
#define WQZ_TRACE_H

#include <array>
#include <cstddef>
#include <cstring>

#include "USBCam_API/USBCam_API.h"

/// Where in a function a trace line stands.
enum class Mark { Start, End, Plain };

/// A string literal as a template argument.
template <std::size_t N>
struct Text {
    consteval Text(const char (&literal)[N])
    {
        for (std::size_t i = 0; i < N; ++i) {
            value[i] = literal[i];
        }
    }
    char value[N]{};
};

template <std::size_t Capacity>
struct Line_Builder {
    constexpr void Append(const char* text)
    {
        while (*text != '\0') {
            line[used++] = *text++;
        }
    }
    constexpr void Append(int number)
    {
        if (number >= 10) {
            Append(number / 10);
        }
        line[used++] = static_cast<char>('0' + number % 10);
    }
    std::array<char, Capacity> line{};
    std::size_t used = 0;
};

template <Text File, int Line, Text Function, Mark Position>
consteval auto Build_Trace_Line()
{
    Line_Builder<sizeof(File.value) + sizeof(Function.value) + 64> builder;
    builder.Append("\t File:[");
    builder.Append(File.value);
    builder.Append("] line:[");
    builder.Append(Line);
    builder.Append("] Fun:[");
    builder.Append(Function.value);
    builder.Append(Position == Mark::Start ? "] START!\r\n" : Position == Mark::End ? "] END!\r\n" : "] !\r\n");
    return builder;
}

/// Writes one line and its terminator to the start of GLOG. The line is made by the compiler: the capture path pays for
/// a copy of some sixty bytes, not for formatting.
template <Text File, int Line, Text Function, Mark Position>
inline void Trace()
{
    static constexpr auto line = Build_Trace_Line<File, Line, Function, Position>();
    std::memcpy(WQZ_USBCam_Get_Cache(), line.line.data(), line.used + 1);
}

#endif  // WQZ_TRACE_H
