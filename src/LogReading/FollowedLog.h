// What LogFollower knows of one log: its files, and the streams in which they are read.
#ifndef ZYN_LOGREADING_FOLLOWEDLOG_H
#define ZYN_LOGREADING_FOLLOWEDLOG_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/ByteSource.h"
#include "LogReading/LogData.h"

using FollowClock = std::chrono::steady_clock;

// Pieces that are read as one sequence.
struct FollowedStream {
    // Whether a file has become smaller since it was last looked at.
    [[nodiscard]] bool HasShrunk() const;

    LogData data;
    BlockWalker walker{data, LogEnd::kFollowed};
    bool rests = false;             // nothing came since it was read
    bool unfinished = false;        // it ends within a block
    FollowClock::time_point tried;  // when a block was searched for in vain
};

// Identified by device and inode, not by its name.
struct FollowedFile {
    static constexpr std::size_t kMarkBytes = 64;

    // Whether bytes that were read are others now: the file was emptied and has grown again.
    [[nodiscard]] bool BeganAnew();

    std::shared_ptr<RawFile> raw;
    std::shared_ptr<PlainSource> source;  // nullptr: not yet a log file, or none
    bool foreign = false;
    // What was given to streams: bytes behind it are new.
    std::uint64_t taken = 0;
    // The stream that ends with this file.
    FollowedStream* stream = nullptr;
    // The last bytes that were read, and their end in the file.
    std::array<char, kMarkBytes> mark{};
    std::size_t markBytes = 0;
    std::uint64_t markEnd = 0;
    FollowClock::time_point grown;
    bool listed = true;
};

struct FollowedLog {
    // Begins a stream with a file, from an offset on.
    void AddStream(FollowedFile& file, std::uint64_t from);
    // Reads a file from another place on; 0: when it has become a log file once more.
    void Restart(FollowedFile& file, std::uint64_t from);
    // There is more of a file.
    void Grow(FollowedFile& file);
    // Remembers the last bytes that a stream has read of its last file.
    void NoteMark(const FollowedStream& stream);
    // Forgets files that no longer belong to the log and have not grown since, and streams that
    // nothing will be added to.
    void LetGo(FollowClock::time_point grownBefore);
    // How far each file has been read, in the order of their names.
    [[nodiscard]] std::vector<FilePlace> Places() const;

    std::size_t number = 0;
    std::string path;
    bool directory = false;
    std::vector<std::unique_ptr<FollowedFile>> files;
    std::vector<std::unique_ptr<FollowedStream>> streams;
    // Of streams that are gone, how far their files were read.
    std::vector<FilePlace> places;
    std::set<std::string> unreadable;
};

#endif
