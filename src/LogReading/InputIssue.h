// What can be wrong with the files of a log before a byte of a block is looked at.
#ifndef ZYN_LOGREADING_INPUTISSUE_H
#define ZYN_LOGREADING_INPUTISSUE_H

#include <cstdint>
#include <string>

enum class InputIssueKind : std::uint8_t {
    kUnreadable,         // cannot be opened or read, or is no file
    kForeign,            // does not begin with the header of a log file
    kTooSmall,           // is smaller than that header
    kTwin,               // a compressed file beside the plain one, or the other compressed one
    kCompressedCut,      // the compressed data ends early: what came out is read
    kCompressedDamaged,  // it is damaged: what came out before is read
};

struct InputIssue {
    InputIssueKind kind = InputIssueKind::kUnreadable;
    std::string path;  // as opened; "-" for standard input
    std::string text;  // what is said of the path, e.g. "is smaller than the header of a log file"
};

// Hears of each issue once: of most while a log is opened, of damaged compression when the reading
// comes to it.
class InputListener {
  public:
    InputListener() = default;
    InputListener(const InputListener&) = delete;
    InputListener& operator=(const InputListener&) = delete;
    virtual ~InputListener() = default;
    virtual void OnIssue(const InputIssue& issue) = 0;
};

#endif
