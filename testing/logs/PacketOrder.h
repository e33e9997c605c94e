#ifndef ZYN_TESTING_LOGS_PACKETORDER_H
#define ZYN_TESTING_LOGS_PACKETORDER_H

// The packets of generated records and their order, which the format leaves to the writer. An order
// is a word of letters, one for each packet:
//
//   t time    T thread    p process    m module    c client    l label    M message
//   0 to 8    a packet of this type code without a meaning (4: a number of an id of its own)
//   b s       a binary packet and a string of ids without a meaning
//   v         a thread number with the value flag, which readers drop
//
// A letter that is left out leaves its packet out; one that repeats repeats it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "testing/logs/LogVocabulary.h"

class PacketOrder {
  public:
    static constexpr std::string_view kDefault = "tTpmclM";
    static constexpr std::string_view kLetters = "tTpmclM012345678bsv";

    // orders: one order, or several with commas between them of which each record takes one at
    // random, or "random" for another order with each record, or "writer" for another one with each
    // writer. extraPercent: records with up to three packets more, of any letter, at any place.
    // Throws std::invalid_argument, with a text for the user, for anything else.
    PacketOrder(std::string_view orders, std::uint32_t extraPercent, std::uint64_t seed);

    // The order of the next record, by this of so many writers; valid until the next call.
    std::string_view Next(std::size_t writer);

    // For what else is drawn for a packet.
    LogRandom& Random() { return random_; }

    // kDefault in any order.
    static std::string Shuffled(LogRandom& random);

  private:
    LogRandom random_;
    std::uint32_t extraPercent_;
    bool perRecord_ = false;
    bool perWriter_ = false;
    std::vector<std::string> orders_;
    std::string current_;

    void AddExtras();
};

#endif
