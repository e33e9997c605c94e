// A plain model of the text export: the log format read byte by byte into copies, the re-ordering
// as a sorted map, a line put together field by field. Slow, and
// without any of the reader's code.
#ifndef ZYN_FUZZ_MODEL_LOGMODEL_H
#define ZYN_FUZZ_MODEL_LOGMODEL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The value of one packet.
struct ModelValue {
    enum class Kind { kText, kThread, kProcess, kTime, kControl };
    Kind kind = Kind::kText;
    std::uint16_t id = 0;      // of a text
    std::uint32_t first = 0;   // the number, the seconds or the control code
    std::uint32_t second = 0;  // the milliseconds, or who sent the control message
    std::string text;

    friend bool operator==(const ModelValue&, const ModelValue&) = default;
};

// The values of a record's packets, and the failure that ended the reading (empty: none).
struct ModelRecord {
    std::vector<ModelValue> values;
    std::string failure;
};
[[nodiscard]] ModelRecord ModelDecode(std::string_view record);

// The line of a record. Its time is now when it has none of its own.
struct ModelClock {
    std::uint32_t seconds;
    std::uint32_t milliseconds;
};
[[nodiscard]] std::string ModelLine(const std::vector<ModelValue>& values,
                                    std::string_view separator, ModelClock now);

// The lines of a log without file headers, up to the failure (empty: none).
struct ModelExport {
    std::string lines;
    std::uint64_t records = 0;
    std::string failure;
    std::size_t position = 0;  // behind the last block that was read whole
};
// blocks: how many are read; std::nullopt for all.
[[nodiscard]] ModelExport ModelExportLog(std::string_view log, std::string_view separator,
                                         ModelClock now, std::optional<std::size_t> blocks);

#endif
