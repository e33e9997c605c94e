/* The client programming interface of the tracing facility: names to handles, whether a trace point
 * is enabled, and control requests to the tracing service. For C and C++; needs no other header.
 *
 * The first call of a process connects to the service if it runs. It then takes as long as the
 * service needs to confirm, about 2 seconds at most. Calls of other threads that come meanwhile
 * wait for the same attempt and share its outcome. From then on a thread of the library keeps the
 * connection in step with the service. When the service runs and does not confirm, or no thread can
 * be started, these calls do nothing more and tell a failure, whatever they were for, and the next
 * call tries again; a service that starts later and does not confirm is not looked for again.
 *
 * The connection is closed before a fork, for parent and child, and stays closed; and it is closed
 * when the process ends. Fork and exit wait for an attempt to connect that is under way, or for the
 * request that was sent, and then for the service to confirm the end of the connection: each of
 * the two takes about 2 seconds at most. Requests that wait behind that one are not sent; they fail
 * at once. Fork handlers of the application that run between the library's preparation and its end
 * of the fork (those registered before the library was loaded) get the failure value from every
 * call, at once and without a report.
 *
 * What is said here of 2 seconds is said of the service; a process that holds the lock of the
 * senders in the run directory, or a file system that does not answer, is waited for as long as it
 * takes.
 *
 * Every function may be called by any thread. None raises a C++ exception; what went wrong is
 * written to the system log under "ZYNAPI", by each call that failed. A thread that is cancelled
 * meanwhile finishes its call first. */
#ifndef ZYN_ZYNANSIAPI_ZYNANSIAPI_H
#define ZYN_ZYNANSIAPI_ZYNANSIAPI_H

#if defined(__GNUC__)
#define ZYN_API __attribute__((visibility("default")))
#else
#define ZYN_API
#endif

#ifdef __cplusplus
#define ZYN_API_NOEXCEPT noexcept
extern "C" {
#else
#define ZYN_API_NOEXCEPT
#endif

/* As the client of ZynTraceEnabledEx: no particular one. */
#define ZYN_NO_CLIENT 0xFFFFFFFFU

/* Stores the handle of the module, or label, of that name in *module, or *label; the same name
 * always has the same handle, also across a change of the configuration. Case counts. Works without
 * the service. Returns 0, or 1 when a pointer is null or memory is short, and as said above;
 * nothing is stored then. */
ZYN_API int ZynGetModuleHandle(const char* name, int* module) ZYN_API_NOEXCEPT;
ZYN_API int ZynGetLabelHandle(const char* name, int* label) ZYN_API_NOEXCEPT;

/* Gives the client of that name a number of the caller's choice within a module, for
 * ZynTraceEnabledEx. Numbers below 70 make the fastest queries. A number that is given again
 * stands for the new name. Works without the service. Returns 0, or 1 when name is null or memory
 * is short, and as said above. A module that no handle stands for is no failure; nothing is
 * registered then. */
ZYN_API int ZynRegisterClient(int module, unsigned int client, const char* name) ZYN_API_NOEXCEPT;

/* Whether the label is enabled for the client in the module, or, with ZYN_NO_CLIENT, for the module
 * as a whole: 1 or 0. 0 also while tracing is paused, for handles and numbers that nothing stands
 * for, and on a failure. Made to stand in front of every trace call: while the service runs, what
 * was asked before is answered without a lock or a system call; modules and numbers below 70 and
 * labels below 30 in the shortest time. The others take up to 8 MiB of memory. */
ZYN_API int ZynTraceEnabledEx(int module, unsigned int client, int label) ZYN_API_NOEXCEPT;

/* Control requests, for all clients of the service: stop and go on with tracing, read the
 * configuration file anew, turn preservation of log files on and off. Requests of a process are
 * sent one after another: each waits for those before it, then about 2 seconds at most for the
 * service's confirmation of its own. Returns 0 once confirmed, 1 when the service does not run,
 * does not confirm, or on any failure. */
ZYN_API int ZynPause(void) ZYN_API_NOEXCEPT;
ZYN_API int ZynResume(void) ZYN_API_NOEXCEPT;
ZYN_API int ZynReloadConfig(void) ZYN_API_NOEXCEPT;
ZYN_API int ZynPreservationOn(void) ZYN_API_NOEXCEPT;
ZYN_API int ZynPreservationOff(void) ZYN_API_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
