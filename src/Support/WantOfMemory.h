// A program's end where memory is so short that not even an exception can be thrown.
#ifndef ZYN_SUPPORT_WANTOFMEMORY_H
#define ZYN_SUPPORT_WANTOFMEMORY_H

// The runtime ends a program that has no room for the exception that it is to throw, or that runs
// out of memory where nothing may be thrown (a destructor of a library, say), with a core file.
// From this call on it writes the text to standard error and exits with the status instead; any
// other end is as before. text: for as long as the program runs.
void EndWithoutMemory(const char* text, int status) noexcept;

#endif
