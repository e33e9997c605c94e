// A plain model of the trace filter: what was set for which names, and every answer worked out anew
// from that.
#ifndef ZYN_FUZZ_MODEL_FILTERMODEL_H
#define ZYN_FUZZ_MODEL_FILTERMODEL_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

class FilterModel {
  public:
    // Forgets what was set; names keep their keys.
    void Reset();

    // on: std::nullopt takes a setting back. Empty module and client names mean "every".
    void SetModule(const std::string& module, std::optional<bool> on);
    void SetClient(const std::string& module, const std::string& client, std::optional<bool> on);
    void SetLabel(const std::string& module, const std::string& client, const std::string& label,
                  std::optional<bool> on);

    // What holds for names, whether or not they are known, with empty ones as above.
    [[nodiscard]] bool ModuleOn(const std::string& module) const;
    [[nodiscard]] bool ClientOn(const std::string& module, const std::string& client) const;
    [[nodiscard]] bool LabelOn(const std::string& module, const std::string& client,
                               const std::string& label) const;

    std::uint32_t ModuleKey(const std::string& name) { return KeyOf(modules_, name); }
    std::uint32_t LabelKey(const std::string& name) { return KeyOf(labels_, name); }
    void Register(std::uint32_t module, std::uint32_t client, const std::string& name);

    // Whether a trace point is on; client: std::nullopt for none in particular.
    [[nodiscard]] bool IsOn(std::uint32_t module, std::optional<std::uint32_t> client,
                            std::uint32_t label) const;

  private:
    using Names = std::vector<std::string>;
    static std::uint32_t KeyOf(Names& names, const std::string& name);

    template <typename Key>
    using Settings = std::map<Key, std::optional<bool>>;
    template <typename Key>
    static std::optional<bool> In(const Settings<Key>& settings, const Key& key) {
        const auto found = settings.find(key);
        return found == settings.end() ? std::nullopt : found->second;
    }

    // For a client registered within a module, whatever their names are.
    [[nodiscard]] bool LabelOfModuleClientOn(const std::string& module, const std::string& client,
                                             const std::string& label) const;

    Names modules_;
    Names labels_;
    Settings<std::string> module_;
    // By module, empty for the global one, and client.
    Settings<std::pair<std::string, std::string>> client_;
    // By module and client, each empty for all, and label.
    Settings<std::tuple<std::string, std::string, std::string>> label_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::string> registered_;
};

#endif
