// How a step of the camera interface fails: with an errno value and a sentence for the user.
#ifndef WQZ_CAMERA_FAILURE_H
#define WQZ_CAMERA_FAILURE_H

#include <stdexcept>
#include <string>

namespace wqz_camera {

/// Thrown inside; the flat functions turn it into a negative errno and keep the sentence for Explain.
class Failure : public std::runtime_error {
public:
    /// @param errno_value  positive
    Failure(int errno_value, const std::string& sentence) : std::runtime_error(sentence), error(errno_value) {}

    const int error;
};

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_FAILURE_H
