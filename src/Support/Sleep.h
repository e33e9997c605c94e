// Waiting for something that gives no sign: ask, sleep, ask again.
#ifndef ZYN_SUPPORT_SLEEP_H
#define ZYN_SUPPORT_SLEEP_H

// Sleeps for the whole time, also when signals arrive meanwhile. A cancellation point.
void SleepMilliseconds(unsigned int milliseconds);

// How often files and locks that another process holds are asked for, and for how long where the
// wait has an end.
inline constexpr unsigned int kAskAgainMs = 10;
inline constexpr unsigned int kMostAsksAgain = 2000 / kAskAgainMs;

#endif
