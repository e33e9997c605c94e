// What keeps the threads of an application whole while they are inside the library.
#ifndef ZYN_SUPPORT_CANCELLATION_H
#define ZYN_SUPPORT_CANCELLATION_H

#include <pthread.h>

// Puts off the cancellation of the calling thread for its own life. A cancelled thread unwinds by
// an exception that must not be caught: where code of the library catches everything, or throws
// nothing, it would end the process. Stands around what sleeps or touches files on the threads of
// an application.
class CancellationOff {
  public:
    CancellationOff() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;
    ~CancellationOff() { pthread_setcancelstate(before_, nullptr); }

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

#endif
