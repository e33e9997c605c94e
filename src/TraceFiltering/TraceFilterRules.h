// The tables that map the names of modules, clients and labels to small keys, and the statuses that
// combine the switch set for one name with those of the levels above it. All cost lies in changing
// a switch: the resolved status is stored, so a query reads one value per step of its lookup.
//
//   Labels (GLabel) -------> Client.Labels (GClientLabel) --.
//        |                                                   > Module.Client.Labels (MClientLabel)
//        '-----------------> Module.Labels (MLabel) --------'
//   Clients (GClient) -----> Module.Clients (MClient)        Modules have no parents.
//
// Nothing here locks: the filter manager holds its two locks around every call.
#ifndef ZYN_TRACEFILTERING_TRACEFILTERRULES_H
#define ZYN_TRACEFILTERING_TRACEFILTERRULES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Support/NoReentrantSpinLockPolicy.h"
#include "Support/ValidationException.h"

// Inherit means "not set at this level", and in the caches of the filter manager "not resolved".
enum class Status : std::uint32_t { Off = 0, Inherit = 1, On = 2 };

// The on/off state of one name whose value is Default when no level sets it. `levels` holds four
// fields of two bits: the own setting in the lowest, that of the parents above it. A field is 0
// when not set, 2 when set to Default, 3 when set to the other value; 1 reads as not set. Objects
// refer to each other and never move.
template <Status Default>
requires(Default != Status::Inherit) class MultiLevelStatus {
  public:
    static constexpr std::size_t kMaxParents = 2;

    MultiLevelStatus() = default;
    MultiLevelStatus(const MultiLevelStatus&) = delete;
    MultiLevelStatus& operator=(const MultiLevelStatus&) = delete;
    virtual ~MultiLevelStatus() = default;

    // Sets the own level and brings everything that inherits from it up to date.
    void SetStatus(Status status) noexcept {
        Update(static_cast<std::uint8_t>((levels_ & ~kFieldMask) | FieldOf(status)));
    }

    // Rebuilds the upper levels from the parents, resolves, and goes on to the children, depth
    // first.
    void ApplyParentStatus() noexcept { Update(WithParents(levels_ & kFieldMask)); }

    // What the own level is set to by the next TakePrepared; nothing else changes.
    void Prepare(Status status) noexcept { prepared_ = FieldOf(status); }
    void DropPrepared() noexcept { prepared_ = kNotPrepared; }

    // Sets the own level to what was prepared since the last call, else to the unconfigured state:
    // the default, set explicitly, without parents; not set with them. Does not go on to the
    // children: the caller goes over all statuses, parents before children.
    void TakePrepared() noexcept {
        const std::uint8_t unconfigured = HasParents() ? kNotSet : kDefault;
        levels_ = WithParents(prepared_ == kNotPrepared ? unconfigured : prepared_);
        status_ = Resolve(levels_);
        prepared_ = kNotPrepared;
    }

    // Makes room for one more child, so that LinkTo cannot fail. Throws std::bad_alloc.
    void ReserveChild() {
        if (children_.size() == children_.capacity()) {
            children_.reserve(children_.empty() ? 1 : 2 * children_.size());
        }
    }
    // Appends parent to the parents, of which there can be kMaxParents. ReserveChild was called on
    // it.
    void LinkTo(MultiLevelStatus& parent) noexcept {
        parents_[parentCount_++] = &parent;
        parent.children_.push_back(this);
    }

    [[nodiscard]] Status Get() const noexcept { return status_; }
    [[nodiscard]] bool IsOn() const noexcept { return status_ == Status::On; }
    [[nodiscard]] std::uint8_t Levels() const noexcept { return levels_; }
    [[nodiscard]] bool HasParents() const noexcept { return parentCount_ != 0; }

  private:
    static constexpr std::uint8_t kFieldMask = 3;
    static constexpr std::uint8_t kNotSet = 0;
    static constexpr std::uint8_t kNotPrepared = 1;  // no field has this value
    static constexpr std::uint8_t kDefault = 2;
    static constexpr std::uint8_t kOther = 3;
    static constexpr Status kOtherStatus = Default == Status::On ? Status::Off : Status::On;

    static std::uint8_t FieldOf(Status status) noexcept {
        if (status == Status::Inherit) {
            return kNotSet;
        }
        return status == Default ? kDefault : kOther;
    }

    // The nearest level that says anything wins.
    static Status Resolve(std::uint8_t levels) noexcept {
        // The upper bit of a field says that the level is set, the lower one how.
        const unsigned int set = levels & 0xAAU;
        const unsigned int nearest = set & (0U - set);
        return (levels & nearest >> 1U) != 0 ? kOtherStatus : Default;
    }

    // What is shifted past the top field is lost.
    [[nodiscard]] std::uint8_t WithParents(unsigned int levels) const noexcept {
        for (std::size_t i = 0; i < parentCount_; ++i) {
            levels |= static_cast<unsigned int>(parents_[i]->levels_) << (2 * (i + 1));
        }
        return static_cast<std::uint8_t>(levels & 0xFFU);
    }

    // A child depends on nothing but its own setting and its parents' levels: where these come out
    // as they were, there is nothing below to do.
    void Update(std::uint8_t levels) noexcept {
        if (levels == levels_) {
            return;
        }
        levels_ = levels;
        status_ = Resolve(levels);
        for (MultiLevelStatus* child : children_) {
            child->ApplyParentStatus();
        }
    }

    std::uint8_t levels_ = 0;
    std::uint8_t parentCount_ = 0;
    std::uint8_t prepared_ = kNotPrepared;
    Status status_ = Default;
    std::array<MultiLevelStatus*, kMaxParents> parents_{};
    std::vector<MultiLevelStatus*> children_;
};

// An entry that owns its name, for the primary tables.
template <Status Default>
class EntryWithNameStorage {
  public:
    explicit EntryWithNameStorage(std::string_view name) : name_(name) {}

    [[nodiscard]] const std::string& Name() const noexcept { return name_; }
    [[nodiscard]] MultiLevelStatus<Default>& State() noexcept { return status_; }

  private:
    std::string name_;
    MultiLevelStatus<Default> status_;
};

// An entry that goes by the name of its primary entry, which lives as long as all tables.
template <Status Default>
class EntryWithNameReference {
  public:
    explicit EntryWithNameReference(const std::string& name) : name_(&name) {}

    [[nodiscard]] const std::string& Name() const noexcept { return *name_; }
    [[nodiscard]] MultiLevelStatus<Default>& State() noexcept { return status_; }

  private:
    const std::string* name_;
    MultiLevelStatus<Default> status_;
};

// Names to keys. Keys are dense from 0, and stay valid for the table's life: no entry is ever
// removed.
template <typename Entry>
class PrimaryTable {
  public:
    PrimaryTable() = default;
    PrimaryTable(const PrimaryTable&) = delete;
    PrimaryTable& operator=(const PrimaryTable&) = delete;
    virtual ~PrimaryTable() = default;

    // Called after a new entry was appended.
    virtual void OnCreateNewEntry(Entry* /*entry*/) noexcept {}

    // The key of exactly this name, which is added when it is new. Throws CheckMemoryAllocation
    // "Can not allocate memory for new entry", or std::bad_alloc; the table is as before then.
    std::uint32_t GetKey(std::string_view name) {
        const auto found = keys_.find(name);
        return found != keys_.end() ? found->second : Append(name);
    }

    // The caller guarantees key < Size().
    Entry* operator[](std::uint32_t key) const noexcept { return entries_[key].get(); }
    [[nodiscard]] std::size_t Size() const noexcept { return entries_.size(); }

  private:
    [[gnu::noinline]] std::uint32_t Append(std::string_view name) {
        const auto key = static_cast<std::uint32_t>(entries_.size());
        std::unique_ptr<Entry> entry(new (std::nothrow) Entry(name));
        ZYN_CHECK_MEMORY_ALLOCATION(entry != nullptr, "Can not allocate memory for new entry");
        if (entries_.size() == entries_.capacity()) {
            entries_.reserve(entries_.empty() ? 16 : 2 * entries_.size());
        }
        keys_.emplace(entry->Name(), key);
        entries_.push_back(std::move(entry));
        OnCreateNewEntry(entries_.back().get());
        return key;
    }

    std::vector<std::unique_ptr<Entry>> entries_;
    // Views of the entries' own names.
    std::unordered_map<std::string_view, std::uint32_t> keys_;
};

// An ordered map from the keys of a master table to entries of another. The keys of a master are
// dense from 0 and mostly all in use, so that an entry's place is mostly its key.
template <typename Entry>
class KeyedEntries {
  public:
    struct Slot {
        std::uint32_t key;
        std::unique_ptr<Entry> entry;
    };

    // nullptr when there is none.
    [[nodiscard]] Entry* Find(std::uint32_t key) const noexcept {
        if (key < slots_.size() && slots_[key].key == key) [[likely]] {
            return slots_[key].entry.get();
        }
        const auto place = Place(slots_, key);
        return place != slots_.end() && place->key == key ? place->entry.get() : nullptr;
    }
    // The key is new. Throws std::bad_alloc; nothing is inserted then.
    void Insert(std::uint32_t key, std::unique_ptr<Entry> entry) {
        slots_.insert(Place(slots_, key), Slot{key, std::move(entry)});
    }

    [[nodiscard]] std::size_t Size() const noexcept { return slots_.size(); }
    // In ascending order of the keys.
    [[nodiscard]] auto begin() const noexcept { return slots_.begin(); }
    [[nodiscard]] auto end() const noexcept { return slots_.end(); }

  private:
    template <typename Slots>
    static auto Place(Slots& slots, std::uint32_t key) noexcept {
        return std::ranges::lower_bound(slots, key, {}, &Slot::key);
    }

    std::vector<Slot> slots_;
};

// A sparse table with the keys of its master tables, whose entries are the parents of its own.
template <typename Master, typename Entry>
class SlaveTable {
  public:
    static constexpr std::size_t kMaxMasters = 2;

    SlaveTable() = default;
    SlaveTable(const SlaveTable&) = delete;
    SlaveTable& operator=(const SlaveTable&) = delete;
    virtual ~SlaveTable() = default;

    // Called after a new entry was inserted.
    virtual void OnCreateNewEntry(Entry* /*entry*/) noexcept {}

    // Before the first entry; at most kMaxMasters. The master outlives the use of this table.
    void AddMaster(Master& master) noexcept { masters_[masterCount_++] = &master; }

    // The entry of a master key, which the caller guarantees to be one; created and linked to its
    // parents when absent, as are the parents themselves. Throws CheckMemoryAllocation "Can not
    // allocate new entry", or std::bad_alloc; this table is as before then.
    Entry* operator[](std::uint32_t key) {
        Entry* const found = entries_.Find(key);
        return found != nullptr ? found : Insert(key);
    }

    // Visits the entries in ascending order of their keys.
    template <typename Visitor>
    void ForEach(Visitor visit) {
        for (const auto& slot : entries_) {
            visit(*slot.entry);
        }
    }
    [[nodiscard]] std::size_t Size() const noexcept { return entries_.Size(); }

  private:
    [[gnu::noinline]] Entry* Insert(std::uint32_t key) {
        // Whatever can fail comes before the first link: a parent must not keep a child that is
        // gone.
        for (std::size_t i = 0; i < masterCount_; ++i) {
            (*masters_[i])[key]->State().ReserveChild();
        }
        std::unique_ptr<Entry> created(new (std::nothrow) Entry((*masters_[0])[key]->Name()));
        ZYN_CHECK_MEMORY_ALLOCATION(created != nullptr, "Can not allocate new entry");
        Entry* const entry = created.get();
        entries_.Insert(key, std::move(created));
        for (std::size_t i = 0; i < masterCount_; ++i) {
            entry->State().LinkTo((*masters_[i])[key]->State());
            entry->State().ApplyParentStatus();
        }
        OnCreateNewEntry(entry);
        return entry;
    }

    std::array<Master*, kMaxMasters> masters_{};
    std::size_t masterCount_ = 0;
    KeyedEntries<Entry> entries_;
};

using LabelEntry = EntryWithNameReference<Status::Off>;

class PrimaryLabels final : public PrimaryTable<EntryWithNameStorage<Status::Off>> {};
class SlaveLabels final : public SlaveTable<PrimaryLabels, LabelEntry> {};

// The labels of the clients within modules, which are by far the most entries. They take over what
// was prepared for them when they are next looked at, and not before.
class SubSlaveLabels final : public SlaveTable<SlaveLabels, LabelEntry> {
  public:
    // To be called before the entries are used. taken: how often the tables have taken over what
    // was prepared; all levels above have done so.
    void Settle(std::uint32_t taken) noexcept {
        if (taken_ != taken) [[unlikely]] {
            CatchUp(taken);
        }
    }

  private:
    [[gnu::noinline]] void CatchUp(std::uint32_t taken) noexcept;

    std::uint32_t taken_ = 0;
};

class PrimaryClientEntry final : public EntryWithNameStorage<Status::On> {
  public:
    using EntryWithNameStorage::EntryWithNameStorage;
    [[nodiscard]] SlaveLabels& Labels() noexcept { return labels_; }

  private:
    SlaveLabels labels_;
};

class PrimaryClients final : public PrimaryTable<PrimaryClientEntry> {
  public:
    explicit PrimaryClients(PrimaryLabels& labels) noexcept : labels_(&labels) {}
    void OnCreateNewEntry(PrimaryClientEntry* client) noexcept override {
        client->Labels().AddMaster(*labels_);
    }

  private:
    PrimaryLabels* labels_;
};

// A client within one module.
class SlaveClientEntry final : public EntryWithNameReference<Status::On> {
  public:
    using EntryWithNameReference::EntryWithNameReference;
    [[nodiscard]] SubSlaveLabels& Labels() noexcept { return labels_; }

  private:
    SubSlaveLabels labels_;
};

class SlaveClients final : public SlaveTable<PrimaryClients, SlaveClientEntry> {
  public:
    // moduleLabels: those of the module that owns this table.
    explicit SlaveClients(SlaveLabels& moduleLabels) noexcept : moduleLabels_(&moduleLabels) {}
    void Bind(PrimaryClients& clients) noexcept {
        AddMaster(clients);
        clients_ = &clients;
    }
    void OnCreateNewEntry(SlaveClientEntry* moduleClient) noexcept override {
        // A client within a module has its global namesake for a parent, so the name is known and
        // the lookup adds nothing.
        PrimaryClientEntry* client = (*clients_)[clients_->GetKey(moduleClient->Name())];
        moduleClient->Labels().AddMaster(*moduleLabels_);
        moduleClient->Labels().AddMaster(client->Labels());
    }

  private:
    SlaveLabels* moduleLabels_;
    PrimaryClients* clients_ = nullptr;
};

class PrimaryModuleEntry final : public EntryWithNameStorage<Status::Off> {
  public:
    explicit PrimaryModuleEntry(std::string_view name)
        : EntryWithNameStorage(name), clients_(labels_) {}

    [[nodiscard]] SlaveClients& Clients() noexcept { return clients_; }
    [[nodiscard]] SlaveLabels& Labels() noexcept { return labels_; }
    // From the identifier under which an application registered a client to the client's key.
    [[nodiscard]] std::map<std::int32_t, std::uint32_t>& RegisteredClients() noexcept {
        return registeredClients_;
    }

  private:
    SlaveLabels labels_;
    SlaveClients clients_;
    std::map<std::int32_t, std::uint32_t> registeredClients_;
};

class PrimaryModules final : public PrimaryTable<PrimaryModuleEntry> {
  public:
    PrimaryModules(PrimaryClients& clients, PrimaryLabels& labels) noexcept
        : clients_(&clients), labels_(&labels) {}
    void OnCreateNewEntry(PrimaryModuleEntry* module) noexcept override {
        module->Clients().Bind(*clients_);
        module->Labels().AddMaster(*labels_);
    }

  private:
    PrimaryClients* clients_;
    PrimaryLabels* labels_;
};

// All tables of one filter and the lock that guards them.
class TraceFilterRules {
  public:
    TraceFilterRules() : clients_(labels_), modules_(clients_, labels_) {}

    [[nodiscard]] CriticalSectionSyncPolicy& TableLock() noexcept { return tableLock_; }
    [[nodiscard]] PrimaryClients& Clients() noexcept { return clients_; }
    [[nodiscard]] PrimaryModules& Modules() noexcept { return modules_; }
    [[nodiscard]] PrimaryLabels& Labels() noexcept { return labels_; }

    // The statuses that the elements of the configuration set, created when absent. An empty module
    // or client name selects the level above it. Throw as GetKey and operator[] do.
    MultiLevelStatus<Status::Off>& Module(std::string_view module);
    MultiLevelStatus<Status::On>& Client(std::string_view module, std::string_view client);
    MultiLevelStatus<Status::Off>& Label(std::string_view module, std::string_view client,
                                         std::string_view label);

    // Puts every status into its unconfigured state: what has no parents is set to its default,
    // all else inherits. Entries, keys and registered clients stay. Nothing is prepared any more.
    void Reset() noexcept;

    // Puts every status that something was prepared for since the last time into that state, all
    // others into their unconfigured one. What is below the clients of modules follows when it is
    // looked at through this class: with Settle() in front, also through a status above it.
    void TakePrepared() noexcept;
    void Settle() noexcept;

    // Whether a trace point is on, resolved with all that it inherits. Unknown keys and
    // unregistered clients are off. Creates the entries it meets, and throws as operator[] does.
    bool IsOn(std::uint32_t module, std::uint32_t label);
    bool IsOn(std::uint32_t module, std::uint32_t client, std::uint32_t label);

  private:
    CriticalSectionSyncPolicy tableLock_;
    PrimaryLabels labels_;
    PrimaryClients clients_;
    PrimaryModules modules_;
    std::uint32_t taken_ = 0;  // how often TakePrepared was called
    bool settled_ = true;
};

#endif
