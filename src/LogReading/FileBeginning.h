// How a file begins that is new in a followed log: with a block, or with the rest of one that
// another file broke off.
#ifndef ZYN_LOGREADING_FILEBEGINNING_H
#define ZYN_LOGREADING_FILEBEGINNING_H

#include <memory>
#include <optional>

#include "LogReading/FollowedLog.h"

// The stream that a new file goes on with, nullptr when it begins one of its own; empty while that
// cannot be decided yet. source: the file's, of which no stream has read.
//
// Bytes with the flags and the length of a header are hardly anything else. But the last bytes of a
// message, up to the flags of a header, may read together with the header behind them as one that
// has an id; and where only the end of a message is missing, any bytes fill the gap. So a decision
// waits while the files before, or more bytes, may still change it; what nobody writes to any more
// is taken for what it looks like.
[[nodiscard]] std::optional<FollowedStream*> StreamToGoOnWith(
    const FollowedLog& log, const FollowedFile& file, const std::shared_ptr<PlainSource>& source);

#endif
