// A mutex with its condition variable, and the scoped lock over it.
#ifndef WQZ_MUTEX_CLASS_H
#define WQZ_MUTEX_CLASS_H

#include <pthread.h>
#include <stdint.h>

#include <string>

#include "data_typedef/data_typedef.h"

/// A mutex (not recursive) and the condition variable that belongs to it. Neither is ever destroyed.
class WQZ_USBCAM_EXPORT Mutex_Class {
public:
    Mutex_Class();

    pthread_mutex_t mutex;
    pthread_cond_t cond;
};

/// Holds a Mutex_Class while in scope. Held from construction on; unlock and lock switch between released and held; the
/// end of the scope leaves the mutex unlocked. A guard belongs to the thread that made it.
class WQZ_USBCAM_EXPORT Mutex_Lock_Class {
public:
    /// Locks.
    /// @param place  name of the guarding function, for a look with a debugger
    Mutex_Lock_Class(Mutex_Class& C_Mutex, std::string place);
    Mutex_Lock_Class(Mutex_Class* pC_Mutex_, std::string place);
    Mutex_Lock_Class(Mutex_Class& C_Mutex);
    Mutex_Lock_Class(Mutex_Class* pC_Mutex_);
    virtual ~Mutex_Lock_Class();

    Mutex_Lock_Class(const Mutex_Lock_Class&) = delete;
    Mutex_Lock_Class& operator=(const Mutex_Lock_Class&) = delete;

    /// @return 0, or -1 when this guard holds the mutex already
    int32_t lock();
    /// @return 0, or the error of pthread_mutex_trylock (EBUSY also when this guard holds the mutex)
    int32_t trylock();
    /// @return 0, or -1 when this guard does not hold the mutex
    int32_t unlock();
    /// Wakes one waiter.
    int32_t Send_Cond();
    /// Waits for one wake-up, which may be a spurious one; the mutex must be held through this guard.
    int32_t Wait_Cond();

    Mutex_Class* pC_Mutex;
    std::string Init_Pace;
    volatile int32_t lock_status;  ///< 1 while this guard holds the mutex
};

#endif  // WQZ_MUTEX_CLASS_H
