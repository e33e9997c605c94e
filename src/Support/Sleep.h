// Polling: waiting for something that sends no notification.
#ifndef ZYN_SUPPORT_SLEEP_H
#define ZYN_SUPPORT_SLEEP_H

// Sleeps for the whole time, also when signals arrive meanwhile. A cancellation point.
void SleepMilliseconds(unsigned int milliseconds);

// How often a file or lock that another process holds is tried again, and for how long where the
// wait has a limit.
inline constexpr unsigned int kRetryMs = 10;
inline constexpr unsigned int kMaxRetries = 2000 / kRetryMs;

#endif
