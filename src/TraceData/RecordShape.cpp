#include "TraceData/RecordShape.h"

#include "TraceData/BuiltInTracePackets.h"
#include "TraceData/PacketIds.h"
#include "TraceData/PacketLayout.h"
#include "TraceData/TracePacket.h"

// Makes the groups of a shape, packet by packet. What packets mean is left to DispatchPacket and
// the filler of the general path: the record that a shape is learned from is decoded on the way,
// and seen to take a value from the packet or not.
class RecordShape::Learner {
  public:
    explicit Learner(RecordShape& shape) noexcept : shape_(shape), filler_(shape.record_) {}

    // False when the shape has no room for the packet, or cannot stand for it.
    bool Take(const TracePacket& packet) noexcept {
        const PacketHead& head = packet.head;
        const bool isTime = head.Type() == PacketType::kBinary && head.id == kTimePacketId;
        if (isTime && head.length != kTimePacketBytes) {
            return false;
        }
        const std::uint32_t headBytes = PacketHeadBytes(head.flags);
        if (isTime || (head.flags & kPacketLengthFlag) == 0) {
            if (headBytes + head.length > Heads::kBytes - rowBytes_ && !EndRow(nullptr, 0)) {
                return false;
            }
            AddToRow(packet.payload - headBytes, headBytes);
            here_ = {groups_, rowBytes_};
            rowBytes_ += head.length;
            DispatchPacket(packet, *this);
            return true;
        }
        DispatchPacket(packet, *this);
        return TakeText(packet, headBytes);
    }

    bool Finish() noexcept {
        if (rowBytes_ != 0 && !EndRow(nullptr, 0)) {
            return false;
        }
        shape_.end_ = shape_.groups_.data() + groups_;
        Finish(shape_.time_, time_);
        Finish(shape_.thread_, thread_);
        Finish(shape_.process_, process_);
        filler_.OnEnd(Damage::kNone, 0);
        return true;
    }

    // What DispatchPacket calls.
    void OnRead(std::string_view text, std::uint16_t id) noexcept { filler_.OnRead(text, id); }
    void OnThread(std::uint32_t number) noexcept {
        thread_ = here_;
        filler_.OnThread(number);
    }
    void OnProcess(std::uint32_t number) noexcept {
        process_ = here_;
        filler_.OnProcess(number);
    }
    void OnTime(std::uint32_t seconds, std::uint16_t milliseconds) noexcept {
        time_ = here_;
        filler_.OnTime(seconds, milliseconds);
    }
    void OnControl(std::uint32_t code, std::uint32_t process) noexcept {
        filler_.OnControl(code, process);
    }

  private:
    // In which group's row a number lies, and how far behind its begin.
    struct NumberPlace {
        std::size_t group = kGroups;
        std::uint32_t offset = 0;
    };

    void AddToRow(const char* bytes, std::uint32_t count) noexcept {
        std::memcpy(row_.heads.data() + rowBytes_, bytes, count);
        std::memset(row_.mask.data() + rowBytes_, 0xFF, count);
        rowBytes_ += count;
    }

    // A packet whose length is not part of the shape.
    bool TakeText(const TracePacket& packet, std::uint32_t headBytes) noexcept {
        const char* const begin = packet.payload - headBytes;
        const std::uint32_t same = headBytes - kPacketLengthBytes;
        if (rowBytes_ == 0 && afterText_) {
            if (texts_ == kTexts) {
                return false;
            }
            Text& text = shape_.texts_[texts_];
            text.mask = (std::uint64_t{1} << (8 * same)) - 1;
            text.head = LoadLittleEndian<std::uint64_t>(begin) & text.mask;
            text.place = PlaceOf(packet);
            text.headBytes = headBytes;
            ++texts_;
            shape_.groups_[groups_ - 1].end = shape_.texts_.data() + texts_;
            return true;
        }
        if (headBytes > Heads::kBytes - rowBytes_ && !EndRow(nullptr, 0)) {
            return false;
        }
        AddToRow(begin, same);
        rowBytes_ += kPacketLengthBytes;
        return EndRow(PlaceOf(packet), UINT32_MAX);
    }

    // Where the packet's text goes. One that went there before is not kept any more.
    std::string_view* PlaceOf(const TracePacket& packet) noexcept {
        RecordValues& values = shape_.record_.values;
        std::string_view* place = &values.message;
        for (std::string_view& name : values.names) {
            if (name.data() == packet.payload) {
                place = &name;
            }
        }
        if (place->data() != packet.payload) {
            return Ignored();
        }
        for (std::size_t i = 0; i < groups_; ++i) {
            Leave(shape_.groups_[i].place, place);
        }
        for (std::size_t i = 0; i < texts_; ++i) {
            Leave(shape_.texts_[i].place, place);
        }
        return place;
    }
    void Leave(std::string_view*& held, const std::string_view* wanted) noexcept {
        if (held == wanted) {
            held = Ignored();
        }
    }
    std::string_view* Ignored() noexcept { return &shape_.ignored_[ignored_++]; }

    // lengthMask: whether a text ends the row, which goes to place.
    bool EndRow(std::string_view* place, std::uint32_t lengthMask) noexcept {
        if (groups_ == kGroups) {
            return false;
        }
        Group& group = shape_.groups_[groups_];
        group.heads = row_;
        group.place = place != nullptr ? place : Ignored();
        group.headBytes = rowBytes_;
        group.lengthMask = lengthMask;
        group.end = shape_.texts_.data() + texts_;
        ++groups_;
        row_ = Heads();
        rowBytes_ = 0;
        afterText_ = lengthMask != 0;
        return true;
    }

    void Finish(Number& number, const NumberPlace& place) const noexcept {
        if (place.group == kGroups) {
            number = {};
            return;
        }
        const Group& group = shape_.groups_[place.group];
        number = {group.place, static_cast<std::ptrdiff_t>(group.headBytes - place.offset)};
    }

    RecordShape& shape_;
    RecordFiller filler_;
    // The row of packets that is being gathered.
    Heads row_;
    std::uint32_t rowBytes_ = 0;
    bool afterText_ = false;
    std::size_t groups_ = 0;
    std::size_t texts_ = 0;
    std::size_t ignored_ = 0;
    NumberPlace here_;
    NumberPlace time_;
    NumberPlace thread_;
    NumberPlace process_;
};

bool RecordShape::Learn(const char* data, std::uint32_t length) noexcept {
    Forget();
    // A row's last word is looked at whether or not it is a length: there must be one.
    if (length < kPacketLengthBytes) {
        return false;
    }
    Learner learner(*this);
    TracePacketReader packets(data, length);
    TracePacket packet;
    bool fits = true;
    while (fits && packets.Next(packet)) {
        fits = learner.Take(packet);
    }
    if (!fits || packets.FoundDamage() != Damage::kNone || !learner.Finish()) {
        Forget();
        return false;
    }
    return true;
}

// What is left is the shape of a record without packets.
void RecordShape::Forget() noexcept {
    end_ = groups_.data();
    time_ = thread_ = process_ = {};
    record_ = DecodedRecord();
}
