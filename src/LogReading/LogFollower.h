// Reads logs while they are written: each whole block as soon as it is there, through rotation,
// deletion, truncation and renaming.
#ifndef ZYN_LOGREADING_LOGFOLLOWER_H
#define ZYN_LOGREADING_LOGFOLLOWER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LogReading/BlockWalker.h"
#include "LogReading/ByteSource.h"
#include "LogReading/InputIssue.h"
#include "LogReading/LogData.h"
#include "Support/FileDescriptor.h"

// Takes what a follower finds; log: the number of the log in the follower's list. The data tells
// where a position of the block lies.
class FollowListener : public InputListener {
  public:
    virtual void OnBlock(std::size_t log, const FoundBlock& block, LogData& data) = 0;
    virtual void OnDamagedPlace(std::size_t log, const DamagedPlace& place, LogData& data) = 0;
};

// What is there at first is read as one sequence, as by everybody else. From then on each file is
// one of its own, and new names are new files wherever they sort; only a file that does not begin
// with a block header goes on with the block that another one broke off. A file is known by what
// the system knows it by: a new name for it changes nothing, and it is held open and read to its
// end when it is deleted. One that was truncated is read on from there; one that begins anew is
// read anew. Compressed files are read when they are there at first, and never later: they are
// what was read before. Memory: that of a LogData for each file that is being written, and some 300
// bytes for each other one.
//
// The listener outlives it. Throws what OpenLog, LogData and the listener throw, and CheckOSCall
// of the system's refusals.
class LogFollower {
  public:
    static constexpr std::chrono::milliseconds kLookPeriod{200};
    // How long a file that was deleted, or renamed out of the log, may rest before it is let go.
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
    // Waits until there may be something new, kLookPeriod at most. stop: readable when it is time
    // to end, or -1; output: whose reader may go away, or -1.
    Event Wait(int stop, int output);

    // How far each file of a log has been read, in the order of their names.
    [[nodiscard]] std::vector<FilePlace> Places(std::size_t log) const;

  private:
    struct File;
    struct Stream;
    struct Log;
    // What a new file may go on with.
    struct Predecessor {
        Stream* brokenOff = nullptr;  // that of the file before it, if that ends within a block
        bool undecided = false;       // there is a file between the two that may go on as well
    };
    using Clock = std::chrono::steady_clock;

    void OpenFirst(Log& log);
    void LookForFiles(Log& log);
    void AddFile(Log& log, const std::string& path);
    void LookAtFiles(Log& log);
    void LookAtFile(Log& log, File& file);
    void Begin(Log& log, File& file);
    static bool HowItBegins(Log& log, const File& file, const std::shared_ptr<PlainSource>& source,
                            Stream*& goesOn);
    static std::optional<std::uint64_t> RestIn(const Stream& broken, const std::string& path,
                                               const std::shared_ptr<PlainSource>& source);
    void Restart(Log& log, File& file, std::uint64_t from);
    void Grow(Log& log, File& file);
    bool BeganAnew(File& file);
    void Read(Log& log, Stream& stream);
    void ReadBlocks(Log& log, Stream& stream);
    void LetGo(Log& log);
    static bool HasShrunk(const Stream& stream);
    static void NoteMark(Log& log, const Stream& stream);
    static Predecessor PredecessorOf(Log& log, const File& file);

    // Passes on what is not a matter of time: files that are being written are often too short.
    class FirstIssues;

    FollowListener& listener_;
    std::unique_ptr<FirstIssues> firstIssues_;
    std::vector<std::unique_ptr<Log>> logs_;
    FileDescriptor watches_;
    Clock::time_point lastListing_;
    bool listingChanged_ = true;
};

#endif
