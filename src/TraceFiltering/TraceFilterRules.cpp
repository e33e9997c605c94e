#include "TraceFiltering/TraceFilterRules.h"

namespace {

template <typename Table, typename Visitor>
void ForEachKey(Table& table, Visitor visit) {
    for (std::uint32_t key = 0; key < table.Size(); ++key) {
        visit(*table[key]);
    }
}

template <typename Table>
void TakePreparedOf(Table& table) noexcept {
    table.ForEach([](auto& entry) noexcept { entry.State().TakePrepared(); });
}

}  // namespace

void SubSlaveLabels::CatchUp(std::uint32_t taken) noexcept {
    const bool missedMore = taken - taken_ > 1;
    taken_ = taken;
    ForEach([missedMore](LabelEntry& label) noexcept {
        if (missedMore) {
            // It was prepared for a configuration that has been replaced meanwhile.
            label.State().DropPrepared();
        }
        label.State().TakePrepared();
    });
}

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
    SubSlaveLabels& labels = entry.Clients()[clients_.GetKey(client)]->Labels();
    labels.Settle(taken_);
    return labels[labelKey]->State();
}

void TraceFilterRules::Reset() noexcept {
    TakePrepared();
    // Nothing has been prepared since.
    TakePrepared();
    Settle();
}

// Parents before children.
void TraceFilterRules::TakePrepared() noexcept {
    ForEachKey(labels_, [](auto& label) noexcept { label.State().TakePrepared(); });
    ForEachKey(clients_, [](PrimaryClientEntry& client) noexcept {
        client.State().TakePrepared();
        TakePreparedOf(client.Labels());
    });
    ForEachKey(modules_, [](PrimaryModuleEntry& module) noexcept {
        module.State().TakePrepared();
        TakePreparedOf(module.Labels());
        TakePreparedOf(module.Clients());
    });
    ++taken_;
    settled_ = false;
}

void TraceFilterRules::Settle() noexcept {
    if (settled_) {
        return;
    }
    ForEachKey(modules_, [this](PrimaryModuleEntry& module) noexcept {
        module.Clients().ForEach(
            [this](SlaveClientEntry& client) noexcept { client.Labels().Settle(taken_); });
    });
    settled_ = true;
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
    if (!moduleClient.State().IsOn()) {
        return false;
    }
    moduleClient.Labels().Settle(taken_);
    return moduleClient.Labels()[label]->State().IsOn();
}
