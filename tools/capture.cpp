// The verb "capture": runs one capture from the choice of the mode to the summary.
#include "capture.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "Camera/wqz_camera.hpp"
#include "diagnosis.h"
#include "frame_output.h"
#include "interrupt.h"
#include "output.h"
#include "statistics.h"
#include "tool_error.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds Longest_Silence = 8s;  // some cameras pause for five seconds and go on
constexpr auto Progress_Interval = 250ms;

/// A running capture, from Start to the last frame.
class Capture {
public:
    Capture(wqz::Camera& opened_camera, const Capture_Options& capture_options, const Output_Choice& output_choice);

    /// Saves frames until the capture is complete or a signal came.
    /// @throws Tool_Error  when the camera stops delivering or a frame cannot be written; Closed_Pipe
    void Run();

    bool Is_Complete() const;
    bool Has_Only_Damaged_Frames() const { return counts.Frames() > 0 && counts.Frames() == counts.Damaged(); }
    const wqz::Mode& Mode() const { return mode; }
    std::string Summary() const;
    nlohmann::ordered_json Json() const;

private:
    static wqz::Mode Start(wqz::Camera& camera, const Capture_Options& options, Content content);
    std::optional<std::chrono::milliseconds> Time_Left() const;
    void Read();
    bool Has_Skipped();
    void Take(const WQZ_Camera_Frame& frame);
    void Note_Return();
    [[noreturn]] void Report_Silence() const;
    void Note_Unplug();
    void Wait_For_Camera();

    wqz::Camera& camera;
    const Capture_Options& options;
    std::string node;
    wqz::Mode mode;
    Frame_Output output;
    Statistics counts;
    bool is_away = false;
    bool was_away = false;  // since the last frame
    Clock::time_point last_save = Clock::now();
    uint64_t skipped = 0;
    Clock::time_point next_progress;
};

wqz::Mode Capture::Start(wqz::Camera& camera, const Capture_Options& options, Content content)
{
    const std::vector<uint32_t> preferred =
        content == Content::Bitmap ? std::vector{Yuyv, Motion_Jpeg} : std::vector{Motion_Jpeg, Yuyv};
    wqz::Request request = Choose_Mode(camera.Modes(), options.mode, preferred);
    request.skip = options.skip;
    return Start_Camera(camera, request);
}

Capture::Capture(wqz::Camera& opened_camera, const Capture_Options& capture_options, const Output_Choice& output_choice)
    : camera(opened_camera),
      options(capture_options),
      node(opened_camera.Info().node),
      mode(Start(opened_camera, capture_options, output_choice.content)),
      output(output_choice, mode.fourcc)
{
}

std::optional<std::chrono::milliseconds> Capture::Time_Left() const
{
    if (!options.seconds || counts.Frames() == 0) {
        return std::nullopt;
    }
    const std::chrono::nanoseconds limit(static_cast<int64_t>(*options.seconds * 1e9));
    const auto left = counts.First_Time() + limit - Clock::now().time_since_epoch();
    return std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(left));
}

bool Capture::Is_Complete() const
{
    return Time_Left() == 0ms || (options.frames && output.Saved() >= *options.frames);
}

void Capture::Run()
{
    while (!Is_Complete() && Caught_Signal() == 0) {
        try {
            if (is_away) {
                Wait_For_Camera();
            } else {
                Read();
            }
        } catch (const wqz::Camera_Error& error) {
            if (error.Code() != ENODEV) {
                throw;
            }
            Note_Unplug();
        }
    }
}

void Capture::Read()
{
    const auto wait = std::min(Longest_Silence, Time_Left().value_or(Longest_Silence));
    const wqz::Frame frame = camera.Read(wait);
    if (frame) {
        Take(frame.Record());
    } else if (Has_Skipped()) {
        last_save = Clock::now();
    } else if (wait == Longest_Silence && Caught_Signal() == 0) {
        Report_Silence();
    }
}

/// @return whether frames were skipped since the last call; the camera is not silent then
bool Capture::Has_Skipped()
{
    const uint64_t before = std::exchange(skipped, camera.Counters().skipped);
    return skipped > before;
}

void Capture::Take(const WQZ_Camera_Frame& frame)
{
    const bool is_empty = frame.length == 0;
    counts.Count(frame, was_away);
    if (was_away) {
        Note_Return();
    }
    std::string name = "frame " + std::to_string(counts.Frames());
    if (!is_empty) {
        name = output.Save(frame);
        last_save = Clock::now();
    } else if (Clock::now() - last_save > Longest_Silence) {
        Report_Silence();
    }
    counts.Count_Bytes(frame.length);
    if (Is_Damaged(frame)) {
        counts.Count_Damaged();
        Say(name + (is_empty ? " is empty" : " is damaged: a part of it is missing"));
    } else if (output.Last_Is_Broken()) {
        counts.Count_Damaged();
        Say(name + " is damaged: it could not be decoded whole");
    }
    if (options.output != "-" && Clock::now() >= next_progress) {
        Show_Progress(counts.Progress());
        next_progress = Clock::now() + Progress_Interval;
    }
}

void Capture::Note_Return()
{
    was_away = false;
    const double missed = std::max(0.0, counts.Last_Gap() * mode.Rate() - 1);
    std::ostringstream text;
    text << node << ": the camera is back; missed " << std::fixed << std::setprecision(1) << counts.Last_Gap()
         << " s, about " << std::lround(missed) << " frames";
    Say(text.str());
}

void Capture::Report_Silence() const
{
    if (output.Saved() == 0) {
        throw Tool_Error(No_Frames(node, "").Text());
    }
    throw Tool_Error(node + ": the camera has stopped sending frames; plug it in again");
}

void Capture::Note_Unplug()
{
    if (!options.reconnect) {
        throw Tool_Error(node + ": the camera was unplugged; with --reconnect the capture waits for it");
    }
    Say(node + ": the camera was unplugged; waiting for it to come back");
    is_away = true;
    was_away = counts.Frames() > 0;
}

void Capture::Wait_For_Camera()
{
    const auto limit = Time_Left();
    if (limit ? camera.Recover(*limit) : camera.Recover(wqz::Forever)) {
        node = camera.Info().node;
        is_away = false;
        last_save = Clock::now();
    } else if (Caught_Signal() == 0) {
        throw Tool_Error(node + ": the camera did not come back");
    }
}

std::string Capture::Summary() const
{
    return counts.Summary(camera.Counters().skipped) + "saved     " + output.Summary() + "\n";
}

nlohmann::ordered_json Capture::Json() const
{
    nlohmann::ordered_json json{{"node", node},
                                {"identity", camera.Info().identity},
                                {"mode",
                                 {{"format", mode.format},
                                  {"width", mode.width},
                                  {"height", mode.height},
                                  {"interval", Fraction_Text(mode.interval)}}}};
    counts.Add_To(json, camera.Counters().skipped);
    json["saved"] = output.Saved();
    json["first_file"] = output.First_File();
    json["last_file"] = output.Last_File();
    return json;
}

/// Prints a text as it is to standard output, or as messages when standard output takes the frames.
void Report(const std::string& text, const Capture_Options& options)
{
    if (options.output != "-") {
        std::cout << text;
        Flush_Output();
        return;
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (options.json) {
            std::cerr << line << '\n';
        } else {
            Say(line);
        }
    }
}

void Report_Summary(const Capture& capture, const Capture_Options& options, const std::string& failure)
{
    if (options.json) {
        nlohmann::ordered_json json = capture.Json();
        json["error"] = failure.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(failure);
        Report(Json_Text(json) + "\n", options);
    } else {
        Report(capture.Summary(), options);
    }
}

void Report_End(const Capture& capture, const Capture_Options& options, const std::string& failure)
{
    Clear_Progress();
    std::string unprinted;
    try {
        Report_Summary(capture, options, failure);
    } catch (const Tool_Error& error) {
        unprinted = error.what();
    }
    if (!failure.empty()) {
        Say(failure);
    }
    if (!unprinted.empty()) {
        throw Tool_Error(unprinted);
    }
}

}  // namespace

std::string Contradiction(const Capture_Options& options)
{
    const Target target = Output_Choice(options.output, options.raw).target;
    if (target == Target::File && (options.frames.value_or(1) != 1 || options.seconds)) {
        return "-o " + options.output + " takes one frame; name a directory for more";
    }
    if (target == Target::Standard_Output && isatty(STDOUT_FILENO) == 1) {
        return "-o - writes frames to standard output, which is a terminal; pipe it into a program or a file";
    }
    return "";
}

int Run_Capture(const std::string& camera_name, const Capture_Options& wished)
{
    Capture_Options options = wished;
    const Output_Choice choice(options.output, options.raw);
    if (choice.target == Target::File) {
        options.frames = 1;
    }
    wqz::Camera camera = Open_Camera(camera_name);
    const Interrupt_Guard guard(camera.Handle());
    Capture capture(camera, options, choice);
    if (!options.json) {
        Report(camera.Info().node + std::string(": ") + Mode_Text(capture.Mode()) + "\n", options);
    }
    std::string failure;
    int status = EXIT_SUCCESS;
    try {
        capture.Run();
    } catch (const Closed_Pipe&) {
        status = 128 + SIGPIPE;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    const bool has_limits = options.frames || options.seconds;
    if (failure.empty() && capture.Has_Only_Damaged_Frames()) {
        failure = "every frame was damaged; try another cable or port";
    }
    if (!failure.empty()) {
        status = EXIT_FAILURE;
    } else if (status == EXIT_SUCCESS && has_limits && !capture.Is_Complete()) {
        status = 128 + Caught_Signal();
    }
    Report_End(capture, options, failure);
    return status;
}
