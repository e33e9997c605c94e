#include "TraceFiltering/TraceFilterRules.h"

namespace {

template <typename Table>
void ResetEntries(Table& table) noexcept {
    table.ForEach([](auto& entry) noexcept { entry.State().Reset(); });
}

template <typename Table, typename Visitor>
void ForEachKey(Table& table, Visitor visit) {
    for (std::uint32_t key = 0; key < table.Size(); ++key) {
        visit(*table[key]);
    }
}

}  // namespace

MultiLevelStatus<Status::Off>& TraceFilterRules::Module(std::string_view module) {
    return modules_[modules_.GetKey(module)]->State();
}

MultiLevelStatus<Status::On>& TraceFilterRules::Client(std::string_view module,
                                                       std::string_view client) {
    const std::uint32_t clientKey = clients_.GetKey(client);
    if (module.empty()) {
        return clients_[clientKey]->State();
    }
    return (*modules_[modules_.GetKey(module)]).Clients()[clientKey]->State();
}

MultiLevelStatus<Status::Off>& TraceFilterRules::Label(std::string_view module,
                                                       std::string_view client,
                                                       std::string_view label) {
    const std::uint32_t labelKey = labels_.GetKey(label);
    if (module.empty() && client.empty()) {
        return labels_[labelKey]->State();
    }
    if (module.empty()) {
        return clients_[clients_.GetKey(client)]->Labels()[labelKey]->State();
    }
    PrimaryModuleEntry& entry = *modules_[modules_.GetKey(module)];
    if (client.empty()) {
        return entry.Labels()[labelKey]->State();
    }
    return entry.Clients()[clients_.GetKey(client)]->Labels()[labelKey]->State();
}

// Parents before children, so that each status is visited once.
void TraceFilterRules::Reset() noexcept {
    ForEachKey(labels_, [](auto& label) noexcept { label.State().Reset(); });
    ForEachKey(clients_, [](PrimaryClientEntry& client) noexcept {
        client.State().Reset();
        ResetEntries(client.Labels());
    });
    ForEachKey(modules_, [](PrimaryModuleEntry& module) noexcept {
        module.State().Reset();
        ResetEntries(module.Labels());
        module.Clients().ForEach([](SlaveClientEntry& client) noexcept {
            client.State().Reset();
            ResetEntries(client.Labels());
        });
    });
}

bool TraceFilterRules::IsOn(std::uint32_t module, std::uint32_t label) {
    if (module >= modules_.Size() || label >= labels_.Size()) {
        return false;
    }
    PrimaryModuleEntry& entry = *modules_[module];
    return entry.State().IsOn() && entry.Labels()[label]->State().IsOn();
}

bool TraceFilterRules::IsOn(std::uint32_t module, std::uint32_t client, std::uint32_t label) {
    if (module >= modules_.Size() || label >= labels_.Size()) {
        return false;
    }
    PrimaryModuleEntry& entry = *modules_[module];
    if (!entry.State().IsOn()) {
        return false;
    }
    const auto& registered = entry.RegisteredClients();
    const auto found = registered.find(static_cast<std::int32_t>(client));
    if (found == registered.end() || found->second >= clients_.Size()) {
        return false;
    }
    SlaveClientEntry& moduleClient = *entry.Clients()[found->second];
    return moduleClient.State().IsOn() && moduleClient.Labels()[label]->State().IsOn();
}
