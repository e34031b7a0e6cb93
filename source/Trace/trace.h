// Trace lines of the capture path: made by the compiler, copied into GLOG one at a time.
#ifndef WQZ_TRACE_H
#define WQZ_TRACE_H

#include <cstddef>
#include <cstring>

#include "USBCam_API/USBCam_API.h"  // declares GLOG and its accessors, which trace.cpp defines

/// A finished trace line.
struct Trace_Line {
    char text[128]{};      ///< a longer line does not compile
    std::size_t size = 0;  ///< bytes, terminator included

    consteval void Append(const char* part)
    {
        while (*part != '\0') {
            text[size++] = *part++;
        }
    }
    consteval void Append(int number)
    {
        if (number >= 10) {
            Append(number / 10);
        }
        text[size++] = static_cast<char>('0' + number % 10);
    }
};

/// A source module as its trace lines name it.
/// The numbers of its lines are fixed identifiers, not source lines: people look up a line by its number.
struct Trace_Module {
    const char* file;

    /// A function's entry, one of its returns, and a mark on the way.
    consteval Trace_Line Start(int number, const char* function) const { return Line(number, function, "START!"); }
    consteval Trace_Line End(int number, const char* function) const { return Line(number, function, "END!"); }
    consteval Trace_Line Plain(int number, const char* function) const { return Line(number, function, "!"); }

private:
    consteval Trace_Line Line(int number, const char* function, const char* position) const
    {
        Trace_Line line;
        line.Append("\t File:[");
        line.Append(file);
        line.Append("] line:[");
        line.Append(number);
        line.Append("] Fun:[");
        line.Append(function);
        line.Append("] ");
        line.Append(position);
        line.Append("\r\n");
        ++line.size;  // the terminator
        return line;
    }
};

/// Writes a line and its terminator to the start of GLOG.
inline void Trace(const Trace_Line& line)
{
    std::memcpy(WQZ_USBCam_Get_Cache(), line.text, line.size);
}

#endif  // WQZ_TRACE_H
