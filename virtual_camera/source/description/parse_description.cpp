// Reads the text form. A line is a keyword and its arguments. Lines before the first "camera" apply to all cameras.
#include <virtual_camera/description.h>
#include <algorithm>
#include <cctype>
#include <map>

#include "description/description_parts.h"

namespace virtual_camera {
namespace {

struct Reader {
    Camera_Description common;  // from the lines before the first camera
    std::vector<Camera_Description> cameras;
    bool formats_replaced = false;
    std::string rest;  // the text after the present line's keyword

    Camera_Description& Current() { return cameras.empty() ? common : cameras.back(); }
};

void Need(const Words& words, size_t least, size_t most)
{
    if (words.size() < least || words.size() > most) {
        Refuse("'" + words[0] + "' takes " + std::to_string(least - 1) +
               (most == least ? "" : " to " + std::to_string(most - 1)) + " arguments");
    }
}

/// @return the argument of a keyword that takes exactly one
const std::string& Only(const Words& words)
{
    Need(words, 2, 2);
    return words[1];
}

std::string Needed_Node(const Words& words)
{
    const std::string prefix = "/dev/video";
    if (Only(words).rfind(prefix, 0) != 0) {
        Refuse("a node is named /dev/videoN");
    }
    (void)Parse_Number<uint16_t>(words[1].substr(prefix.size()));
    return words[1];
}

Usb_Identity& Usb(Reader& reader)
{
    if (!reader.Current().usb) {
        Refuse("this camera has no USB device");
    }
    return *reader.Current().usb;
}

void Begin_Camera(Reader& reader, const Words&)
{
    const auto index = static_cast<uint32_t>(reader.cameras.size());
    Camera_Description camera = reader.common;
    if (camera.usb) {
        camera.usb->port = index + 1;
        camera.usb->device = index + 2;
        camera.usb->serial = Usb_Camera(index).usb->serial;
    }
    camera.card = reader.rest.empty() ? camera.card : reader.rest;
    reader.cameras.push_back(camera);
    reader.formats_replaced = false;
}

void Read_Usb(Reader& reader, const Words& words)
{
    if (Only(words) == "none") {
        reader.Current().usb.reset();
        reader.Current().has_metadata = false;
        return;
    }
    const Words ids = Split(words[1], ":");
    if (ids.size() != 2) {
        Refuse("'" + words[1] + "' is not VENDOR:PRODUCT");
    }
    Usb(reader).vendor = Parse_Number<uint16_t>(ids[0], 16);
    Usb(reader).product_id = Parse_Number<uint16_t>(ids[1], 16);
}

void Read_Format(Reader& reader, const Words& words)
{
    auto& formats = reader.Current().formats;
    if (!reader.formats_replaced) {
        formats.clear();
        reader.formats_replaced = true;
    }
    formats.push_back({Parse_Fourcc(Only(words)), {}});
}

void Read_Size(Reader& reader, const Words& words)
{
    Need(words, 3, SIZE_MAX);
    auto& formats = reader.Current().formats;
    if (!reader.formats_replaced || formats.empty()) {
        Refuse("'size' belongs behind a 'format'");
    }
    Frame_Size size = Parse_Size(words[1]);
    size.stepwise_intervals = words[2] == "from";
    if (size.stepwise_intervals && (words.size() != 8 || words[4] != "to" || words[6] != "step")) {
        Refuse("a range of intervals is 'from A to B step C', the shortest first");
    }
    for (size_t i = size.stepwise_intervals ? 3 : 2; i < words.size(); i += size.stepwise_intervals ? 2 : 1) {
        size.intervals.push_back(Parse_Interval(words[i]));
    }
    if (!size.stepwise_intervals) {
        std::stable_sort(size.intervals.begin(), size.intervals.end(), [](v4l2_fract a, v4l2_fract b) {
            return static_cast<uint64_t>(a.numerator) * b.denominator <
                   static_cast<uint64_t>(b.numerator) * a.denominator;
        });
    }
    formats.back().sizes.push_back(size);
}

std::string Plain(const std::string& name)
{
    std::string plain;
    for (char c : name) {
        plain += std::isalnum(static_cast<unsigned char>(c)) ? static_cast<char>(std::tolower(c)) : '_';
    }
    return plain;
}

void Read_Control(Reader& reader, const Words& words)
{
    Need(words, 2, 6);
    auto& controls = reader.Current().controls;
    if (words[1] == "none") {
        controls.clear();
        return;
    }
    std::vector<Control> known = Default_Controls();
    const auto found = std::find_if(known.begin(), known.end(),
                                    [&](const Control& control) { return Plain(control.name) == words[1]; });
    if (found == known.end()) {
        Refuse("no control is named '" + words[1] + "'");
    }
    Need(words, 6, 6);
    found->minimum = Parse_Number<int32_t>(words[2]);
    found->maximum = Parse_Number<int32_t>(words[3]);
    found->step = Parse_Number<int32_t>(words[4]);
    found->default_value = Parse_Number<int32_t>(words[5]);
    if (found->minimum > found->maximum || found->step < 1 || found->default_value < found->minimum ||
        found->default_value > found->maximum) {
        Refuse("a control is MINIMUM MAXIMUM STEP DEFAULT");
    }
    std::erase_if(controls, [&](const Control& control) { return control.id == found->id; });
    controls.push_back(*found);
    std::sort(controls.begin(), controls.end(), [](const Control& a, const Control& b) { return a.id < b.id; });
}

/// @return whether the argument is `yes`; only `yes` and `no` are accepted
bool Is_Yes(const Words& words, const char* yes, const char* no)
{
    if (Only(words) != yes && words[1] != no) {
        Refuse("'" + words[0] + "' is '" + no + "' or '" + yes + "'");
    }
    return words[1] == yes;
}

void Read_Unplug(Reader& reader, const Words& words)
{
    if (Only(words).back() == 's') {
        reader.Current().unplug_after_seconds = Parse_Seconds(words[1]);
    } else {
        reader.Current().unplug_after_frames = Parse_Number<uint32_t>(words[1]);
    }
}

void Read_Pause(Reader& reader, const Words& words)
{
    Need(words, 3, 3);
    if (words[2].back() != 's') {
        Refuse("'pause-after' takes a number of frames and a time such as 5s");
    }
    reader.Current().pause_after_frames = Parse_Number<uint32_t>(words[1]);
    reader.Current().pause_seconds = Parse_Seconds(words[2]);
}

void Read_Refusal(Reader& reader, const Words& words)
{
    Need(words, 3, 4);
    Refusal refusal;
    refusal.request = Request_Code(words[1]);
    if (refusal.request == 0) {
        Refuse("no request is named '" + words[1] + "'");
    }
    refusal.error = Parse_Errno(words[2]);
    refusal.times = words.size() == 4 ? Parse_Number<int>(words[3]) : -1;
    reader.Current().refusals.push_back(refusal);
}

void Read_Padding(Reader& reader, const Words& words)
{
    reader.Current().jpeg_padding = Only(words) == "full" ? UINT32_MAX : Parse_Number<uint32_t>(words[1]);
    if (reader.Current().jpeg_padding == 0) {
        Refuse("'jpeg-padding' is a number of bytes or 'full'");
    }
}

void Read_Metadata(Reader& reader, const Words& words)
{
    const bool has_path = Only(words) != "none" && words[1] != "automatic";
    reader.Current().has_metadata = words[1] != "none";
    reader.Current().metadata_node = has_path ? Needed_Node(words) : "";
}

/// @return the text after the keyword; there must be one
std::string Some(const Reader& reader, const Words& words)
{
    Need(words, 2, SIZE_MAX);
    return reader.rest;
}

void Read_Line(Reader& reader, const std::string& line)
{
    using Line_Reader = void (*)(Reader&, const Words&);
    static const std::map<std::string, Line_Reader> Readers{
        {"camera", Begin_Camera},
        {"driver", [](Reader& r, const Words& w) { r.Current().driver = Some(r, w); }},
        {"bus-info", [](Reader& r, const Words& w) { r.Current().bus_info = Some(r, w); }},
        {"manufacturer", [](Reader& r, const Words&) { Usb(r).manufacturer = r.rest; }},
        {"product", [](Reader& r, const Words&) { Usb(r).product = r.rest; }},
        {"serial", [](Reader& r, const Words&) { Usb(r).serial = r.rest; }},
        {"usb", Read_Usb},
        {"bcd", [](Reader& r, const Words& w) { Usb(r).bcd_device = Parse_Number<uint16_t>(Only(w), 16); }},
        {"port", [](Reader& r, const Words& w) { Usb(r).port = Parse_Number<uint32_t>(Only(w)); }},
        {"bus", [](Reader& r, const Words& w) { Usb(r).bus = Parse_Number<uint32_t>(Only(w)); }},
        {"device", [](Reader& r, const Words& w) { Usb(r).device = Parse_Number<uint32_t>(Only(w)); }},
        {"speed", [](Reader& r, const Words& w) { Usb(r).speed = Parse_Number<uint32_t>(Only(w)); }},
        {"capture", [](Reader& r, const Words& w) { r.Current().capture_node = Needed_Node(w); }},
        {"metadata", Read_Metadata},
        {"format", Read_Format},
        {"size", Read_Size},
        {"control", Read_Control},
        {"rate", [](Reader& r, const Words& w) { r.Current().max_rate = Is_Yes(w, "max", "asked"); }},
        {"jpeg-padding", Read_Padding},
        {"orphan-buffers", [](Reader& r, const Words& w) { r.Current().orphans_buffers = Is_Yes(w, "yes", "no"); }},
        {"unplug-after", Read_Unplug},
        {"replug-after", [](Reader& r, const Words& w) { r.Current().replug_after_seconds = Parse_Seconds(Only(w)); }},
        {"pause-after", Read_Pause},
        {"damage-every", [](Reader& r, const Words& w) { r.Current().damage_every = Parse_Number<uint32_t>(Only(w)); }},
        {"refuse", Read_Refusal}};
    const char* blanks = " \t\r";
    const Words words = Split(line, blanks);
    if (words.empty() || words[0][0] == '#') {
        return;
    }
    const size_t text = words.size() < 2 ? line.size() : line.find(words[1], line.find(words[0]) + words[0].size());
    reader.rest = line.substr(text, line.find_last_not_of(blanks) + 1 - text);
    const auto found = Readers.find(words[0]);
    if (found == Readers.end()) {
        Refuse("unknown keyword '" + words[0] + "'");
    }
    found->second(reader, words);
}

void Check(const Camera_Description& camera)
{
    if (camera.formats.empty()) {
        Refuse("a camera without formats: " + camera.card);
    }
    for (const Pixel_Format& format : camera.formats) {
        if (format.sizes.empty()) {
            Refuse("format " + Fourcc_Text(format.fourcc) + " has no sizes");
        }
    }
}

}  // namespace

std::vector<Camera_Description> Parse_Description(const std::string& text)
{
    Reader reader;
    size_t number = 0;
    for (size_t from = 0; from < text.size(); number++) {
        const size_t end = std::min(text.find('\n', from), text.size());
        try {
            Read_Line(reader, text.substr(from, end - from));
        } catch (const Description_Error& error) {
            throw Description_Error("line " + std::to_string(number + 1) + ": " + error.what());
        }
        from = end + 1;
    }
    if (reader.cameras.empty()) {
        Refuse("no 'camera' line");
    }
    std::for_each(reader.cameras.begin(), reader.cameras.end(), Check);
    Complete_All(reader.cameras);
    return reader.cameras;
}

}  // namespace virtual_camera
