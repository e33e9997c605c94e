#include "zynverify/SalvageReport.h"

#include <nlohmann/json.hpp>
#include <ostream>
#include <utility>

#include "Support/PrintableText.h"
#include "zynverify/TextTable.h"

namespace {

using Json = nlohmann::ordered_json;

Json FileJson(const SalvagedFile& file) {
    return {{"bytes", file.bytes},   {"kept", file.kept},       {"skipped", file.Skipped()},
            {"blocks", file.blocks}, {"records", file.records}, {"dropped_records", file.dropped}};
}

std::string BaseName(const std::string& path) {
    return MaskedControls(path.substr(path.rfind('/') + 1));
}

void AddRow(TextTable& table, const std::string& name, const SalvagedFile& file) {
    table.Add({name, std::to_string(file.bytes), std::to_string(file.kept),
               std::to_string(file.Skipped()), std::to_string(file.blocks),
               std::to_string(file.records), std::to_string(file.dropped)},
              {MaskedControls(file.name)});
}

}  // namespace

void PutSalvageTable(std::ostream& out, const std::string& log, const std::string& directory,
                     const SalvageResult& result, std::size_t width) {
    out << "Log " << MaskedControls(log) << ", copy in " << MaskedControls(directory) << '\n';
    TextTable table({{"FILE", TextTable::Side::kLeft},
                     {"BYTES"},
                     {"KEPT"},
                     {"SKIPPED"},
                     {"BLOCKS"},
                     {"RECORDS"},
                     {"DROPPED"}},
                    "COPY");
    for (const SalvagedFile& file : result.files) {
        AddRow(table, BaseName(file.path), file);
    }
    AddRow(table, "total", result.total);
    table.Print(out, width);
}

void PutSalvageJson(std::ostream& out, const std::string& log, const std::string& directory,
                    const SalvageResult& result, int status) {
    Json files = Json::array();
    for (const SalvagedFile& file : result.files) {
        Json json{{"file", file.path}, {"copy", nullptr}};
        if (!file.name.empty()) {
            json["copy"] = directory + '/' + file.name;
        }
        json.update(FileJson(file));
        files.push_back(std::move(json));
    }
    Json document{{"program", "zynlog-verify"},
                  {"version", ZYN_VERSION},
                  {"log", log},
                  {"directory", directory},
                  {"files", std::move(files)}};
    document.update(FileJson(result.total));
    document["status"] = status;
    out << document.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}
