#include "model/FilterModel.h"

#include <algorithm>

std::uint32_t FilterModel::KeyOf(Names& names, const std::string& name) {
    const auto found = std::find(names.begin(), names.end(), name);
    const auto key = static_cast<std::uint32_t>(found - names.begin());
    if (found == names.end()) {
        names.push_back(name);
    }
    return key;
}

void FilterModel::Reset() {
    module_.clear();
    client_.clear();
    label_.clear();
}

void FilterModel::SetModule(const std::string& module, std::optional<bool> on) {
    ModuleKey(module);
    module_[module] = on;
}

void FilterModel::SetClient(const std::string& module, const std::string& client,
                            std::optional<bool> on) {
    if (!module.empty()) {
        ModuleKey(module);
    }
    client_[{module, client}] = on;
}

void FilterModel::SetLabel(const std::string& module, const std::string& client,
                           const std::string& label, std::optional<bool> on) {
    LabelKey(label);
    if (!module.empty()) {
        ModuleKey(module);
    }
    label_[{module, client, label}] = on;
}

bool FilterModel::ModuleOn(const std::string& module) const {
    return In(module_, module).value_or(false);
}

bool FilterModel::ClientOn(const std::string& module, const std::string& client) const {
    const std::optional<bool> own = In(client_, {module, client});
    return own ? *own : In(client_, {"", client}).value_or(true);
}

bool FilterModel::LabelOn(const std::string& module, const std::string& client,
                          const std::string& label) const {
    if (!module.empty() && !client.empty()) {
        return LabelOfModuleClientOn(module, client, label);
    }
    const std::optional<bool> own = In(label_, {module, client, label});
    return own ? *own : In(label_, {"", "", label}).value_or(false);
}

// The nearest setting decides. After those for exactly this client and for the module come together
// the one for all and the one for the client everywhere: on if either is. Nothing can be set for
// the module whose name is empty: that name means every module there.
bool FilterModel::LabelOfModuleClientOn(const std::string& module, const std::string& client,
                                        const std::string& label) const {
    if (!module.empty()) {
        for (const std::string& nearest : {client, std::string()}) {
            if (const std::optional<bool> set = In(label_, {module, nearest, label})) {
                return *set;
            }
        }
    }
    return In(label_, {"", "", label}).value_or(false) ||
           In(label_, {"", client, label}).value_or(false);
}

void FilterModel::Register(std::uint32_t module, std::uint32_t client, const std::string& name) {
    if (module < modules_.size()) {
        registered_[{module, client}] = name;
    }
}

bool FilterModel::IsOn(std::uint32_t module, std::optional<std::uint32_t> client,
                       std::uint32_t label) const {
    if (module >= modules_.size() || label >= labels_.size() || !ModuleOn(modules_[module])) {
        return false;
    }
    if (!client) {
        return LabelOn(modules_[module], "", labels_[label]);
    }
    const auto name = registered_.find({module, *client});
    return name != registered_.end() && ClientOn(modules_[module], name->second) &&
           LabelOfModuleClientOn(modules_[module], name->second, labels_[label]);
}
