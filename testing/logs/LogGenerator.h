#ifndef ZYN_TESTING_LOGS_LOGGENERATOR_H
#define ZYN_TESTING_LOGS_LOGGENERATOR_H

// Makes realistic logs of any size from a seed, block by block, in memory that does not grow with
// the log. The program zynloggen is its command line.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "testing/logs/CallTrace.h"
#include "testing/logs/LogVocabulary.h"
#include "testing/logs/LogWriter.h"
#include "testing/logs/PacketOrder.h"

struct LogRange {
    std::uint32_t least;
    std::uint32_t most;
};

// How sequence numbers, which time and content follow, lie in a block. They never leave the block
// that they would be in if the log were in order.
enum class LogOrder {
    kInOrder,
    kWindow,    // shuffled within successive groups of `window` records
    kShuffled,  // shuffled within the whole block
};

struct LogGeneratorOptions {
    std::uint32_t records = 1000;  // numbered from 1
    std::uint32_t files = 1;
    std::uint64_t seed = 1;
    LogOrder order = LogOrder::kInOrder;
    std::uint32_t window = 64;

    // Each block takes the records that fit into a size drawn from here, at least one.
    LogRange blockBytes{40000, 60000};
    LogRange messageBytes{20, 400};
    LogRange nameBytes{6, 16};           // modules and clients; labels have words of their own
    std::uint32_t controlPercent = 1;    // records that tell of a control request instead of a text
    std::uint32_t multilinePercent = 3;  // messages of several lines
    std::uint32_t noTimePercent = 0;     // records without a time packet
    std::uint64_t stepUs = 500;          // log time from record to record, microseconds
    std::uint32_t startTime = 1700000000;        // of the first record, seconds since 1970 UTC
    std::string packets{PacketOrder::kDefault};  // their order in a record (PacketOrder)
    std::uint32_t extraPercent = 0;              // records with packets that repeat or mean nothing
    bool calls = false;  // of functions that begin, nest and end, instead of all other messages
    bool span = false;   // files end in the middle of a record; else every block lies in one file
};

// Throws std::invalid_argument, with a text for the user, for options that make no log.
void CheckLogGeneratorOptions(const LogGeneratorOptions& options);

class LogGenerator {
  public:
    // Throws as CheckLogGeneratorOptions does.
    explicit LogGenerator(const LogGeneratorOptions& options);

    struct Block {
        std::string bytes;                 // header and data
        std::vector<std::size_t> records;  // where in `bytes` each record begins
    };

    // Replaces `block` by the next one, which takes at most `most` records; `most` is not 0 and at
    // most `RecordsLeft`.
    void NextBlock(std::uint32_t most, Block& block);

    [[nodiscard]] std::uint32_t RecordsLeft() const { return options_.records - made_; }

  private:
    LogGeneratorOptions options_;
    LogRandom random_;
    std::vector<std::string> modules_;
    std::vector<std::string> clients_;
    std::uint32_t made_ = 0;  // records that have left in a block

    PacketOrder packets_;
    CallTrace calls_;
    LogRecord record_;  // the next one, when it was made but did not fit
    bool pending_ = false;
    std::string message_;
    std::string data_;  // the block's records in order
    std::vector<std::size_t> starts_;
    std::vector<std::uint32_t> order_;

    // The values of the next record.
    struct Values {
        bool hasTime = false;
        std::uint32_t seconds = 0;
        std::uint16_t milliseconds = 0;
        std::uint32_t thread = 0;
        std::uint32_t process = 0;
        std::string_view module;
        std::string_view client;
        std::string_view label;
        std::uint32_t control = 0;  // its code; 0: the message instead
    };

    void MakeRecord(std::uint32_t number);
    void AddPacket(char letter, const Values& values);
    void AddMeaningless(char letter, const Values& values);
    void FillBlock(std::uint32_t most);
    void Arrange();
};

// Writes the whole log as "zynlog-0001.txt" and so on into the directory, which exists; returns the
// number of bytes. Every file gets its even share of the records, maybe none, and the header.
// Throws std::invalid_argument for the options, std::system_error when a file cannot be written.
std::uint64_t WriteGeneratedLog(const LogGeneratorOptions& options, const std::string& directory);

#endif
