// Reads logs while they are written: each whole block as soon as it is there, through rotation,
// deletion, truncation and renaming.
#ifndef ZYN_LOGREADING_LOGFOLLOWER_H
#define ZYN_LOGREADING_LOGFOLLOWER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/InputIssue.h"
#include "LogReading/LogData.h"
#include "Support/FileDescriptor.h"

struct FollowedFile;
struct FollowedLog;
struct FollowedStream;

// Takes what a follower finds; log: the number of the log in the follower's list. The data gives
// the file and offset of a position.
class FollowListener : public InputListener {
  public:
    virtual void OnBlock(std::size_t log, const FoundBlock& block, LogData& data) = 0;
    virtual void OnDamagedPlace(std::size_t log, const DamagedPlace& place, LogData& data) = 0;
};

// The files that exist at first are read as one sequence, as every reader does. From then on each
// file is read by itself, and a new name is a new file wherever it sorts; only a file that does not
// begin with a block header goes on with the block that another one broke off. A file is identified
// by device and inode: renaming it changes nothing, and it is held open and read to its end when it
// is deleted. One that was truncated is read on from there; one that begins anew is read anew.
// Compressed files are read when they are there at first, and never later: they are what was read
// before. Memory: that of a LogData for each file that is being written, and some 300 bytes for
// each other one.
//
// The listener outlives it. Throws what OpenLog, LogData and the listener throw, and CheckOSCall
// of the system's refusals.
class LogFollower {
  public:
    static constexpr std::chrono::milliseconds kLookPeriod{200};
    // How long a file that was deleted, or renamed out of the log, may stay unchanged before it is
    // closed.
    static constexpr std::chrono::milliseconds kPatience{2000};

    // paths: log directories, which may be empty, and log files.
    LogFollower(const std::vector<std::string>& paths, FollowListener& listener);
    LogFollower(const LogFollower&) = delete;
    LogFollower& operator=(const LogFollower&) = delete;
    ~LogFollower();

    // Before the first look: where the reading of a file begins that is there already.
    void BeginAt(const std::string& path, std::uint64_t offset);
    // The files that are there, as the first look will read them.
    [[nodiscard]] std::vector<FilePlace> Files(std::size_t log) const;

    // Hands out every whole block that is there and was not yet.
    void Look();

    enum class Event : std::uint8_t { kLook, kStop, kOutputClosed };
    // Waits until there may be something new, kLookPeriod at most. stop: a descriptor that becomes
    // readable when it is time to end, or -1; output: a pipe whose reader may close it, or -1.
    Event Wait(int stop, int output);

    // How far each file of a log has been read, in the order of their names.
    [[nodiscard]] std::vector<FilePlace> Places(std::size_t log) const;

  private:
    void OpenFirst(FollowedLog& log);
    void LookForFiles(FollowedLog& log);
    void AddFile(FollowedLog& log, const std::string& path);
    void LookAtFiles(FollowedLog& log);
    void LookAtFile(FollowedLog& log, FollowedFile& file);
    void Begin(FollowedLog& log, FollowedFile& file);
    void Read(FollowedLog& log, FollowedStream& stream);
    void ReadBlocks(const FollowedLog& log, FollowedStream& stream);

    // Drops issues that time may settle: files that are being written are often too short.
    class FirstIssues;

    FollowListener& listener_;
    std::unique_ptr<FirstIssues> firstIssues_;
    std::vector<std::unique_ptr<FollowedLog>> logs_;
    FileDescriptor watches_;
    std::chrono::steady_clock::time_point lastListing_;
    bool listingChanged_ = true;
};

#endif
