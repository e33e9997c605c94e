// How records are shown. Each form is one file beside this one, named in the table of
// OutputForm.cpp; it knows neither where records come from nor why they were chosen.
#ifndef ZYN_ZYNLOGCAT_OUTPUTFORM_H
#define ZYN_ZYNLOGCAT_OUTPUTFORM_H

#include <memory>
#include <string>
#include <string_view>

#include "TraceData/text/TextFile.h"
#include "zynlogcat/TraceRecord.h"

// Receives records, one by one. What TextFile throws passes on.
class RecordSink {
  public:
    virtual ~RecordSink() = default;
    // The record is valid during the call only; its block's data until EndBlock, if records are
    // read block by block.
    virtual void Put(const TraceRecord& record) = 0;
    // Around the records of each block that is read as one; where reading fails amid a block, its
    // end does not come.
    virtual void BeginBlock() {}
    virtual void EndBlock() {}
};

// The options that concern forms.
struct FormSettings {
    bool header = true;     // where a form has one
    bool terminal = false;  // the output is read by people, at a terminal
    bool colors = false;
    std::string beginLabel = "Entry";  // of the records that begin and end a slice
    std::string endLabel = "Exit";
};

// One thread. Whoever makes it calls Begin, then Put for each record, then End; the output outlives
// it.
class OutputForm : public RecordSink {
  public:
    virtual void Begin() {}
    virtual void End() {}
    // A message for the user at the end; empty: none.
    [[nodiscard]] virtual std::string Remark() const { return {}; }
};

struct FormKind {
    std::string_view name;
    std::unique_ptr<OutputForm> (*make)(TextFile& out, const FormSettings& settings);
    // Whether each record is shown as soon as it is put.
    bool immediate;
};

// The form of that name; null: there is none.
[[nodiscard]] const FormKind* FindForm(std::string_view name) noexcept;
// "columns, short, ...", for messages.
[[nodiscard]] std::string FormNames();

std::unique_ptr<OutputForm> MakeColumnsForm(TextFile& out, const FormSettings& settings);
std::unique_ptr<OutputForm> MakeShortForm(TextFile& out, const FormSettings& settings);
std::unique_ptr<OutputForm> MakeJsonForm(TextFile& out, const FormSettings& settings);
std::unique_ptr<OutputForm> MakeCsvForm(TextFile& out, const FormSettings& settings);
std::unique_ptr<OutputForm> MakeCountForm(TextFile& out, const FormSettings& settings);
std::unique_ptr<OutputForm> MakeCountJsonForm(TextFile& out, const FormSettings& settings);
std::unique_ptr<OutputForm> MakeTimelineForm(TextFile& out, const FormSettings& settings);

#endif
