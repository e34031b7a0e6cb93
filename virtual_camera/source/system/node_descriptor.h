// Makes the descriptor of an open node, and makes it ready.
#ifndef WQZ_VIRTUAL_CAMERA_NODE_DESCRIPTOR_H
#define WQZ_VIRTUAL_CAMERA_NODE_DESCRIPTOR_H

#include "system/monotonic_time.h"

namespace virtual_camera {

/// The program gets the descriptor of an epoll instance that watches one timer. So select, poll and epoll wait for
/// frames in the kernel, and read fails with EINVAL as on uvcvideo's nodes.
class Node_Descriptor {
public:
    Node_Descriptor() = default;
    ~Node_Descriptor();
    Node_Descriptor(const Node_Descriptor&) = delete;
    Node_Descriptor& operator=(const Node_Descriptor&) = delete;

    /// @return a new descriptor, which is ready at first, or a negative errno. It replaces an earlier one.
    int Open(int open_flags, int lowest_number);

    /// Sets when the descriptor becomes ready.
    /// @param settle  with At_Once, wait until it is ready; not allowed while a thread is in Wait
    void Arm(Time time, bool settle) const;

    /// Blocks until the timer is due, and switches it off. @return 0 or a negative errno
    int Wait() const;

    /// A second descriptor, for programs that wait for events. It is readable while Signal is on.
    int Signal_Descriptor();
    void Signal(bool on);

    /// Blocks until that descriptor is readable. @return 0 or a negative errno
    int Wait_For_Signal() const;

private:
    int timer = -1;
    int signal = -1;
    bool signalled = false;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_NODE_DESCRIPTOR_H
