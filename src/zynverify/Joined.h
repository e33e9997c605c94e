// Text made of pieces.
#ifndef ZYN_ZYNVERIFY_JOINED_H
#define ZYN_ZYNVERIFY_JOINED_H

#include <sstream>
#include <string>

// The pieces as a stream writes them, one behind the other. Throws std::bad_alloc, which the stream
// by itself would keep and go on with a text that is cut off.
template <typename... Pieces>
std::string Joined(const Pieces&... pieces) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);
    (text << ... << pieces);
    return text.str();
}

#endif
