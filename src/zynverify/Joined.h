// Text made of pieces.
#ifndef ZYN_ZYNVERIFY_JOINED_H
#define ZYN_ZYNVERIFY_JOINED_H

#include <sstream>
#include <string>

// The pieces as a stream writes them, one behind the other.
template <typename... Pieces>
std::string Joined(const Pieces&... pieces) {
    std::ostringstream text;
    (text << ... << pieces);
    return text.str();
}

#endif
