// The descriptor of a node: a timer, so that select and poll wait for frames without help.
#ifndef WQZ_VIRTUAL_CAMERA_NODE_TIMER_H
#define WQZ_VIRTUAL_CAMERA_NODE_TIMER_H

#include "system/monotonic_time.h"

namespace virtual_camera {

/// @return a descriptor that is ready, or a negative errno
int Make_Timer(int open_flags, int lowest_number);

/// Sets when the descriptor becomes ready.
/// @param settle  with At_Once: return when it is; must not be asked for while another thread reads the timer
void Arm_Timer(int fd, Time time, bool settle);

/// Blocks until the timer is due. @return 0 or a negative errno
int Wait_For_Timer(int fd);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_NODE_TIMER_H
