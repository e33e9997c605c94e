// The results of a verification: the findings, and what the log's blocks and files hold. The
// reports for people and for programs are made of it.
#ifndef ZYN_ZYNVERIFY_FINDINGS_H
#define ZYN_ZYNVERIFY_FINDINGS_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class FindingKind : std::uint8_t {
    kUnreadable,   // the system does not let the file be read
    kSmallFile,    // less than a file header: an export of the directory does not begin
    kForeignFile,  // without the file header: an export leaves it out
    kBlockHeader,  // not a block header: an export stops
    kBlockCut,     // the log ends within the block: an export stops
    kRecord,       // no record where one should begin: an export drops the rest of the block
    kPacket,       // a packet runs past its record: an export stops
    kGap,          // numbers are missing
    kDuplicate,    // numbers that have been there before
    kOrder,        // records more than 1,000 places out of order: an export leaves them there
    kStray,        // a number far from all around it
    kRestart,      // the numbering begins anew: no damage
    kZeros,        // the log ends in zeros where a block should begin: an export stops
    kUnfinished,   // the last file is being written, up to the middle of a block: no damage
    kNoFiles,      // there is nothing to be verified
    kCompressed,   // compressed data ends early or is damaged
    kTwin,         // a compressed file beside the one that is read: no damage
};

// The word for it in reports.
[[nodiscard]] std::string_view KindName(FindingKind kind) noexcept;
// What an export does there: "fails", "omits", "stops", "drops" or "keeps".
[[nodiscard]] std::string_view ExportEffect(FindingKind kind) noexcept;
[[nodiscard]] bool IsDamage(FindingKind kind) noexcept;

struct Finding {
    FindingKind kind{};
    std::string file{};        // path; empty: not known
    std::uint64_t offset = 0;  // in the file: of the first damaged byte, else of the block
    std::uint64_t block = 0;   // counted from 1 over the log; 0: none in particular
    std::uint64_t bytes = 0;   // affected
    std::optional<std::uint64_t> records{};  // affected; empty: cannot be known
    std::string text{};
};

// Milliseconds since 1970-01-01 UTC of the earliest and the latest record; empty without any.
struct TimeRange {
    std::uint64_t first = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t last = 0;

    [[nodiscard]] bool Empty() const noexcept { return first > last; }
    void Add(std::uint64_t time) noexcept {
        first = time < first ? time : first;
        last = time > last ? time : last;
    }
    void Add(const TimeRange& other) noexcept {
        if (!other.Empty()) {
            Add(other.first);
            Add(other.last);
        }
    }
};

struct Writer {
    std::string host;
    std::uint32_t process = 0;

    friend bool operator==(const Writer&, const Writer&) = default;
};

// Writers of a file or a log: the first kMost of them, and whether there were more.
struct Writers {
    static constexpr std::size_t kMost = 64;
    std::vector<Writer> known;
    bool more = false;

    void Add(const Writer& writer);
};

struct BlockReport {
    std::uint64_t number = 0;  // from 1 over the log
    std::string file;
    std::uint64_t offset = 0;  // of the block header in the file
    Writer writer;
    std::uint32_t dataBytes = 0;
    std::uint64_t records = 0;  // read to their end
    std::uint32_t lowest = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t highest = 0;
    TimeRange time;
};

// Blocks count for the file in which they begin.
struct FileReport {
    std::string path;
    std::uint64_t bytes = 0;  // the header of the file not counted
    std::uint64_t blocks = 0;
    std::uint64_t records = 0;
    std::uint64_t findings = 0;
    TimeRange time;
    Writers writers;
};

struct LogReport {
    std::string name;
    std::vector<FileReport> files;
    std::uint64_t blocks = 0;
    std::uint64_t records = 0;
    std::uint64_t exported = 0;  // records that an export of the log writes
    std::uint64_t verifiedBytes = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t missing = 0;     // numbers in gaps
    std::uint64_t duplicates = 0;  // numbers that came again
    std::uint64_t late = 0;        // records left out of order
    std::uint64_t findings = 0;
    TimeRange time;
    Writers writers;
    bool damaged = false;
    bool unreadable = false;
};

// Receives the results while a verification runs. May throw, which ends it.
class VerifyListener {
  public:
    virtual ~VerifyListener() = default;
    virtual void OnLogBegin(const LogReport& log) = 0;
    virtual void OnFinding(const Finding& finding) = 0;
    virtual void OnBlock(const BlockReport& block) = 0;
    virtual void OnProgress(std::uint64_t done, std::uint64_t total) = 0;
    virtual void OnLogEnd(const LogReport& log) = 0;
};

#endif
