// The mutex with its condition variable, and the guard over it.
#include "Mutex/mutex_class.h"

#include <utility>

Mutex_Class::Mutex_Class() : mutex(), cond()
{
    pthread_mutex_init(&mutex, nullptr);
    pthread_cond_init(&cond, nullptr);
}

Mutex_Lock_Class::Mutex_Lock_Class(Mutex_Class& C_Mutex, std::string place)
    : Mutex_Lock_Class(&C_Mutex, std::move(place))
{
}

Mutex_Lock_Class::Mutex_Lock_Class(Mutex_Class* pC_Mutex_, std::string place)
    : pC_Mutex(pC_Mutex_), Init_Pace(std::move(place)), lock_status(0)
{
    (void)lock();
}

Mutex_Lock_Class::Mutex_Lock_Class(Mutex_Class& C_Mutex) : Mutex_Lock_Class(&C_Mutex, std::string())
{
}

Mutex_Lock_Class::Mutex_Lock_Class(Mutex_Class* pC_Mutex_) : Mutex_Lock_Class(pC_Mutex_, std::string())
{
}

Mutex_Lock_Class::~Mutex_Lock_Class()
{
    (void)unlock();
    pC_Mutex = nullptr;
}

int32_t Mutex_Lock_Class::lock()
{
    if (lock_status != 0) {
        return -1;
    }
    pthread_mutex_lock(&pC_Mutex->mutex);
    lock_status = 1;
    return 0;
}

int32_t Mutex_Lock_Class::trylock()
{
    const int32_t result = pthread_mutex_trylock(&pC_Mutex->mutex);
    if (result == 0) {
        lock_status = 1;
    }
    return result;
}

int32_t Mutex_Lock_Class::unlock()
{
    if (lock_status == 0) {
        return -1;
    }
    // Cleared before the unlock, so that the guard never claims a mutex that another thread may hold.
    lock_status = 0;
    pthread_mutex_unlock(&pC_Mutex->mutex);
    return 0;
}

int32_t Mutex_Lock_Class::Send_Cond()
{
    return pthread_cond_signal(&pC_Mutex->cond);
}

int32_t Mutex_Lock_Class::Wait_Cond()
{
    return pthread_cond_wait(&pC_Mutex->cond, &pC_Mutex->mutex);
}
