// What went wrong with a camera, and what the user can do about it, in sentences.
#ifndef WQZ_CAMERA_EXPLAIN_H
#define WQZ_CAMERA_EXPLAIN_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "Camera/failure.h"
#include "Camera/wqz_camera.h"

namespace wqz_camera {

/// The last failure, kept for Explain, and besides it the last one of each thread. Any thread may set and read it.
class Last_Failure {
public:
    /// @param per_thread  false for an object that only one thread uses
    explicit Last_Failure(bool per_thread = true);
    /// Keeps a copy. Without memory for it, Explain says that memory is missing.
    void Set(const char* sentence) noexcept;
    /// As above for a sentence with static lifetime; does not allocate.
    void Set_Fixed(const char* sentence) noexcept;
    std::string Text() const;
    /// @return the last failure of the calling thread, or the last of all when this thread had none here
    std::string Text_Of_This_Thread() const;

private:
    struct Sentence {
        std::string text;
        const char* fixed = nullptr;
        uint64_t owner = 0;  ///< number of the Last_Failure that it belongs to
    };
    static Sentence& Of_This_Thread();
    void Set_Copy(const char* sentence);

    const uint64_t number;  ///< 0 for an object that only one thread uses
    mutable std::mutex mutex;
    Sentence last;
};

/// @return the failure of an open: no permission, no such node, ...
Failure Open_Failure(const std::string& node, int error);

/// @return the failure of a step of a capture's start, with the remedy where there is one
/// @param step  "set the format"
Failure Step_Failure(const std::string& node, const char* step, int error);

/// @return the failure of a stream for which the USB bus has no room
Failure Bandwidth_Failure(const WQZ_Camera_Mode& mode, const std::vector<WQZ_Camera_Offer>& offers);

/// @return what a Read without a frame means
const char* Read_Sentence(int error);

/// @return the processes that have the node open: "ffmpeg (process 4711)"; this one only when it has it open more than
///         once; none when none can be seen
std::vector<std::string> Holders_Of(const std::string& node);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_EXPLAIN_H
