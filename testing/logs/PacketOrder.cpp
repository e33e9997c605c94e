#include "testing/logs/PacketOrder.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

PacketOrder::PacketOrder(std::string_view orders, std::uint32_t extraPercent, std::uint64_t seed)
    : random_(seed), extraPercent_(extraPercent) {
    perRecord_ = orders == "random";
    perWriter_ = orders == "writer";
    if (perRecord_ || perWriter_) {
        return;
    }
    for (std::size_t begin = 0; begin <= orders.size();) {
        const std::size_t end = std::min(orders.find(',', begin), orders.size());
        orders_.emplace_back(orders.substr(begin, end - begin));
        if (orders_.back().find_first_not_of(kLetters) != std::string::npos) {
            throw std::invalid_argument("packets: orders of the letters " + std::string(kLetters) +
                                        ", or random, or writer");
        }
        begin = end + 1;
    }
}

std::string PacketOrder::Shuffled(LogRandom& random) {
    std::string order(kDefault);
    for (std::size_t i = order.size() - 1; i > 0; --i) {
        std::swap(order[i], order[random.Below(static_cast<std::uint32_t>(i + 1))]);
    }
    return order;
}

std::string_view PacketOrder::Next(std::size_t writer) {
    if (perRecord_) {
        current_ = Shuffled(random_);
    } else if (perWriter_) {
        while (orders_.size() <= writer) {
            orders_.push_back(Shuffled(random_));
        }
        current_ = orders_[writer];
    } else if (orders_.size() == 1) {
        current_ = orders_.front();
    } else {
        current_ = orders_[random_.Below(static_cast<std::uint32_t>(orders_.size()))];
    }
    if (extraPercent_ != 0 && random_.Percent(extraPercent_)) {
        AddExtras();
    }
    return current_;
}

void PacketOrder::AddExtras() {
    const auto below = [this](std::size_t bound) {
        return random_.Below(static_cast<std::uint32_t>(bound));
    };
    for (std::uint32_t count = 1 + random_.Below(3); count != 0; --count) {
        current_.insert(below(current_.size() + 1), 1, kLetters[below(kLetters.size())]);
    }
}
