// Full configuration files, and what a client does with one: shared by the programs that time the
// filter.
#ifndef ZYN_BENCH_FILTERFILES_H
#define ZYN_BENCH_FILTERFILES_H

#include <tinyxml.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "TraceFiltering/ZynClientConfigProcessor.h"
#include "TraceFiltering/ZynFilterManager.h"
#include "ZynConfigFileReader/ZynConfigFileReader.h"

// Every key that the caches hold.
inline constexpr std::uint32_t kModules = ZynFilterManager::kCachedModules;
inline constexpr std::uint32_t kClients = ZynFilterManager::kCachedClients;
inline constexpr std::uint32_t kLabels = ZynFilterManager::kCachedLabels;

inline std::string ModuleName(std::uint32_t key) { return "module" + std::to_string(key); }
inline std::string ClientName(std::uint32_t key) { return "client" + std::to_string(key); }
inline std::string LabelName(std::uint32_t key) { return "label" + std::to_string(key); }

// More of each than the caches hold.
inline constexpr std::uint32_t kManyModules = 300;
inline constexpr std::uint32_t kManyClients = 2000;
inline constexpr std::uint32_t kManyLabels = 60;

// Flat: every module names its labels and clients, 7,100 rules. Nested: every client of every
// module names its labels too, 154,100 rules. Wide: the flat one with more labels, and with more
// modules, which name nothing.
enum class FileShape { Flat, Nested, Wide };

// A configuration file, removed at the end of the scope.
class ConfigFile {
  public:
    explicit ConfigFile(FileShape shape) {
        const char* directory = std::getenv("TMPDIR");
        path_ = std::string(directory != nullptr ? directory : "/tmp") + "/zynbenchXXXXXX";
        const int file = ::mkstemp(path_.data());
        if (file == -1) {
            throw std::runtime_error("no temporary file");
        }
        ::close(file);
        std::ofstream out(path_);
        out << "<?xml version=\"1.0\"?>\n<ZYNConfig trace=\"1\">\n<Logfile path=\"p\" size=\"1\" "
               "maxbackups=\"1\" preserve_size=\"1\" preserve_maxbackups=\"1\"/>\n<Global>\n";
        WriteLabels(out, "GLabel", shape == FileShape::Wide ? kManyLabels : kLabels);
        out << "</Global>\n";
        for (std::uint32_t module = 0; module < kModules; ++module) {
            out << Element("Module", ModuleName(module), true) << ">\n";
            WriteLabels(out, "MLabel");
            for (std::uint32_t client = 0; client < kClients; ++client) {
                out << Element("MClient", ClientName(client), true) << ">\n";
                if (shape == FileShape::Nested) {
                    WriteLabels(out, "MClientLabel");
                }
                out << "</MClient>\n";
            }
            out << "</Module>\n";
        }
        for (std::uint32_t module = kModules; shape == FileShape::Wide && module < kManyModules;
             ++module) {
            out << Element("Module", ModuleName(module), true) << "/>\n";
        }
        out << "</ZYNConfig>\n";
    }
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;
    ~ConfigFile() { ::unlink(path_.c_str()); }
    [[nodiscard]] const std::string& Path() const { return path_; }

  private:
    static std::string Element(const std::string& kind, const std::string& name, bool enabled) {
        return "<" + kind + " name=\"" + name + "\" state=\"" + (enabled ? "1" : "0") + "\"";
    }
    static void WriteLabels(std::ofstream& out, const std::string& kind,
                            std::uint32_t count = kLabels) {
        for (std::uint32_t label = 0; label < count; ++label) {
            out << Element(kind, LabelName(label), label % 2 == 0) << "/>\n";
        }
    }
    std::string path_;
};

// As the service client does it.
inline void Reload(ZynFilterManager& manager, const std::string& path) {
    using Processor = ZynClientConfigProcessor<ZynFilterManager>;
    {
        const FilterReload reload(manager);
        Processor processor(manager);
        ZynConfigFileReader<Processor> reader(processor);
        reader.Read(path);
        if (reader.Failure()) {
            throw std::runtime_error("the configuration could not be read");
        }
    }
    manager.SetLoaded(true);
}

// TinyXML's own load of the same file.
inline void LoadWithTinyXml(const std::string& path) {
    TiXmlDocument document;
    if (!document.LoadFile(path)) {
        throw std::runtime_error("the configuration could not be parsed");
    }
}

// Registers every client with every module, under the keys that a full configuration gave them.
inline void RegisterAll(ZynFilterManager& manager) {
    for (std::uint32_t module = 0; module < kModules; ++module) {
        for (std::uint32_t client = 0; client < kClients; ++client) {
            manager.RegisterClient(static_cast<int>(module), client, ClientName(client));
        }
    }
}

// Queries every combination, so that the tables hold an entry for each.
inline void AskAll(ZynFilterManager& manager) {
    for (std::uint32_t module = 0; module < kModules; ++module) {
        for (std::uint32_t client = 0; client < kClients; ++client) {
            for (std::uint32_t label = 0; label < kLabels; ++label) {
                manager.IsEnabled(static_cast<int>(module), client, static_cast<int>(label));
            }
        }
    }
}

#endif
