// Keeps the system log records of this process (see SyslogCapture.h).

#include "testing/faults/SyslogCapture.h"

#include <mutex>
#include <utility>

namespace {

struct Records {
    std::mutex mutex;
    std::vector<SyslogRecord> list;
};

// Never destroyed: destructors of other objects may still log at the end of the process.
Records& TheRecords() {
    static auto* const records = new Records;
    return *records;
}

}  // namespace

void OnSyslogRecord(const SyslogRecord& record) {
    Records& records = TheRecords();
    const std::lock_guard lock(records.mutex);
    records.list.push_back(record);
}

SyslogCapture::SyslogCapture() { static_cast<void>(Take()); }

SyslogCapture::~SyslogCapture() { static_cast<void>(Take()); }

std::vector<SyslogRecord> SyslogCapture::Take() {
    Records& records = TheRecords();
    const std::lock_guard lock(records.mutex);
    return std::exchange(records.list, {});
}

bool SyslogCapture::IsOpen() { return IsSyslogOpen(); }
