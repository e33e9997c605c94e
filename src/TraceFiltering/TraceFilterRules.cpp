#include "TraceFiltering/TraceFilterRules.h"

namespace {

template <typename Entry>
void ResetEntry(Entry& entry) noexcept {
    auto& state = entry.State();
    state.SetStatus(state.HasParents() ? Status::Inherit : state.DefaultStatus());
}

template <typename Table>
void ResetEntries(Table& table) noexcept {
    table.ForEach([](auto& entry) noexcept { ResetEntry(entry); });
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

void TraceFilterRules::Reset() noexcept {
    ForEachKey(modules_, [](PrimaryModuleEntry& module) noexcept {
        ResetEntry(module);
        module.Clients().ForEach([](SlaveClientEntry& client) noexcept {
            ResetEntry(client);
            ResetEntries(client.Labels());
        });
        ResetEntries(module.Labels());
    });
    ForEachKey(clients_, [](PrimaryClientEntry& client) noexcept {
        ResetEntry(client);
        ResetEntries(client.Labels());
    });
    ForEachKey(labels_, [](auto& label) noexcept { ResetEntry(label); });
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
